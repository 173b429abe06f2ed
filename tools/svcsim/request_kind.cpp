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
    case request_kind::other:
        break;
    }
    return QStringLiteral("other");
}

request_kind kind_from_name(const QString& name)
{
    for (const request_kind k : { request_kind::update, request_kind::file, request_kind::confirm }) {
        if (name == kind_name(k))
            return k;
    }
    return request_kind::other;
}

} // namespace svcsim
