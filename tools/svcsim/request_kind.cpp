#include "tools/svcsim/request_kind.h"

namespace svcsim
{

QString kind_name(request_kind kind)
{
    switch (kind) {
    case request_kind::update:
        return QStringLiteral("update");
    case request_kind::file:
        return QStringLiteral("file");
    case request_kind::confirm:
        return QStringLiteral("confirm");
    case request_kind::rpc:
        return QStringLiteral("rpc");
    case request_kind::repo_check:
        return QStringLiteral("repo_check");
    case request_kind::repo_file:
        return QStringLiteral("repo_file");
    case request_kind::other:
        break;
    }
    return QStringLiteral("other");
}

request_kind kind_from_name(const QString& name)
{
    for (const request_kind k : { request_kind::update, request_kind::file, request_kind::confirm, request_kind::rpc,
             request_kind::repo_check, request_kind::repo_file }) {
        if (name == kind_name(k))
            return k;
    }
    return request_kind::other;
}

} // namespace svcsim
