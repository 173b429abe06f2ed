#pragma once

#include <QMetaType>
#include <QString>

namespace sdk {

// Which backend drives a device.
enum class type : int { unknown = 0, legacy = 1, xcloud = 2, xnet = 3 };

QString type_text(int value);
// Case-sensitive match against the three names; fallback when none matches.
type type_from_text(const QString& text, type fallback);

} // namespace sdk

Q_DECLARE_METATYPE(sdk::type)
