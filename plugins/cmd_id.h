#pragma once

#include <QMetaType>
#include <QString>

namespace scripting {

// A command's identity: the plugin that owns it (empty for built-in commands) and its number.
struct cmd_id
{
    QString plugin;
    qint64 number = 0;

    // "plugin/number"; split again on the first "/".
    QString text() const { return plugin + QLatin1Char('/') + QString::number(number); }
    static cmd_id from_text(const QString& text)
    {
        const int slash = text.indexOf(QLatin1Char('/'));
        if (slash < 0)
            return { QString(), text.toLongLong() };
        return { text.left(slash), text.mid(slash + 1).toLongLong() };
    }
    // The number 0 with no plugin: no command at all.
    bool is_null() const { return plugin.isEmpty() && number == 0; }

    bool operator==(const cmd_id& other) const { return plugin == other.plugin && number == other.number; }
    bool operator!=(const cmd_id& other) const { return !(*this == other); }
    // Plugin identifiers first, then numbers.
    bool operator<(const cmd_id& other) const
    {
        return plugin != other.plugin ? plugin < other.plugin : number < other.number;
    }
};

} // namespace scripting

Q_DECLARE_METATYPE(scripting::cmd_id)
