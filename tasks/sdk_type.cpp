#include "tasks/sdk_type.h"

namespace sdk {

QString type_text(int value)
{
    switch (value) {
    case legacy: return QStringLiteral("legacy");
    case xcloud: return QStringLiteral("xcloud");
    case xnet: return QStringLiteral("xnet");
    default: return QStringLiteral("-unknown-");
    }
}

type type_from_text(const QString& text, type fallback)
{
    for (type t : { legacy, xcloud, xnet }) {
        if (text == type_text(t))
            return t;
    }
    return fallback;
}

} // namespace sdk
