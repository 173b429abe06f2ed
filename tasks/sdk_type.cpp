#include "tasks/sdk_type.h"

namespace sdk {

QString type_text(int value)
{
    switch (type(value)) {
    case type::legacy: return QStringLiteral("legacy");
    case type::xcloud: return QStringLiteral("xcloud");
    case type::xnet: return QStringLiteral("xnet");
    default: return QStringLiteral("-unknown-");
    }
}

type type_from_text(const QString& text, type fallback)
{
    for (type t : { type::legacy, type::xcloud, type::xnet }) {
        if (text == type_text(int(t)))
            return t;
    }
    return fallback;
}

} // namespace sdk
