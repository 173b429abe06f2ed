#pragma once

#include <QString>

namespace svcsim
{

// The three questions the service answers, and anything else that arrives.
enum class request_kind { update, file, confirm, other };

// "update", "file", "confirm", "other".
QString kind_name(request_kind kind);
// The path word of a kind; `other` for anything unknown.
request_kind kind_from_name(const QString& name);

} // namespace svcsim
