#pragma once

#include <QMetaType>
#include <QString>

namespace tasks {

// The result of a flow or a step, as the row's status cell shows it.
struct common_data
{
    QString text;
    bool ok = false;
};

} // namespace tasks

Q_DECLARE_METATYPE(tasks::common_data)
