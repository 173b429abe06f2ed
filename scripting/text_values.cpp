#include "scripting/text_values.h"

#include <QStringList>

namespace scripting {

std::optional<bool> text_to_bool(const QString& text)
{
    static const QStringList no { "no", "0", "false", "off", "disable", "disabled" };
    static const QStringList yes { "yes", "1", "true", "on", "enable", "enabled" };
    const QString word = text.toLower();
    if (no.contains(word))
        return false;
    if (yes.contains(word))
        return true;
    return std::nullopt;
}

} // namespace scripting
