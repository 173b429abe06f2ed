#pragma once

#include <QString>

namespace svcsim
{

// The three questions the service answers, the JSON-RPC calls, the build repository's
// two questions, and anything else that arrives.
enum class request_kind { update, file, confirm, other, rpc, repo_check, repo_file };
constexpr int request_kind_count = 7;

// "update", "file", "confirm", "other", "rpc", "repo_check", "repo_file".
QString kind_name(request_kind kind);
// The path word of a kind; `other` for anything unknown.
request_kind kind_from_name(const QString& name);

} // namespace svcsim
