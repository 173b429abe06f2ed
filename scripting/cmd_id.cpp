#include "scripting/cmd_id.h"

namespace scripting {

QString cmd_id::text() const
{
    return plugin + QLatin1Char('/') + QString::number(number);
}

cmd_id cmd_id::from_text(const QString& text)
{
    const int slash = text.indexOf(QLatin1Char('/'));
    if (slash < 0)
        return { QString(), text.toLongLong() };
    return { text.left(slash), text.mid(slash + 1).toLongLong() };
}

bool cmd_id::operator<(const cmd_id& other) const
{
    if (plugin != other.plugin)
        return plugin < other.plugin;
    return number < other.number;
}

} // namespace scripting
