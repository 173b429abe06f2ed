// Commands on the script's own state and the program's settings: variables, aliases,
// macros, events, settings, and the end of the program.
#include "app/command_context.h"
#include "app/core.h"
#include "scripting/sapi.h"

#include <QCoreApplication>

using scripting::command_result;

namespace {

// Names beginning "__" are the program's own and listed only when asked for all.
bool listed(const QString& name, const command_context& x)
{
    return !name.startsWith(QLatin1String("__")) || x.arg(0).toLower() == QLatin1String("all");
}

QString setting_text(const QVariant& value)
{
    return value.type() == QVariant::StringList ? value.toStringList().join(QStringLiteral(", ")) : value.toString();
}

class settings_commands
{
    Q_DECLARE_TR_FUNCTIONS(core)
public:
    static void add_to(command_table& t)
    {
        using c = scripting::commands;
        t.insert(qint64(c::aliases), &aliases);
        t.insert(qint64(c::attach_event), &attach_event);
        t.insert(qint64(c::delete_variable), &delete_variable);
        t.insert(qint64(c::detach_event), &detach_event);
        t.insert(qint64(c::exit), &exit);
        t.insert(qint64(c::list_attached_events), &list_attached_events);
        t.insert(qint64(c::macro_delete), &macro_delete);
        t.insert(qint64(c::macro_list), &macro_list);
        t.insert(qint64(c::macro_show), &macro_show);
        t.insert(qint64(c::remove_alias), &remove_alias);
        t.insert(qint64(c::settings_get), &settings_get);
        t.insert(qint64(c::settings_set), &settings_set);
        t.insert(qint64(c::vars), &vars);
    }

private:
    static command_result aliases(command_context& x)
    {
        const QMap<QString, QString> all = x.c.processor().aliases();
        for (auto it = all.cbegin(); it != all.cend(); ++it) {
            if (listed(it.key(), x))
                x.output(QStringLiteral("<div style=\"font-family: monospace;\">"
                                        "<span style=\"color: blue;\">%1</span>: %2</div>")
                             .arg(it.key(), it.value().toHtmlEscaped()));
        }
        return command_result::success();
    }

    static command_result attach_event(command_context& x)
    {
        if (x.call.params.isEmpty())
            return x.error(tr("Event attachment command requires specifying a type of action"));
        if (x.call.params.firstKey().toLower() != QLatin1String("macro"))
            return x.error(tr("This event action is not supported"));
        const QString event = x.arg(0);
        const QStringList args = x.call.args.mid(1);
        x.c.events().attach(event, args, x.call.params.firstKey().toLower(), x.call.params.first());
        if (!x.c.processor().echo_enabled())
            return command_result::success();
        x.output(tr("Event handler attached for %1").arg((QStringList { event } + args).join(QLatin1Char(' '))));
        // With echo on the outcome is the failure one; scripts have come to rely on it.
        return command_result::failure();
    }

    static command_result detach_event(command_context& x)
    {
        const QString event = x.arg(0);
        const QStringList args = x.call.args.mid(1);
        if (x.c.events().detach(event, args))
            return command_result::success();
        return x.error(tr("Failed to detach event %1 with arguments %2.")
                           .arg(event, args.isEmpty() ? tr("<none>") : args.join(QLatin1Char(' '))));
    }

    static command_result list_attached_events(command_context& x)
    {
        const auto listing = x.c.events().attachments_by_event();
        for (auto event = listing.cbegin(); event != listing.cend(); ++event) {
            x.output(QStringLiteral("<span style='color: blue;'>%1</span>:").arg(event.key().toHtmlEscaped()));
            for (auto args = event->cbegin(); args != event->cend(); ++args) {
                const QString text = args.key().isEmpty() ? tr("<none>") : args.key();
                x.output(QStringLiteral("<div style='margin-left: 20px; color: blue;'>%1</div>:").arg(text.toHtmlEscaped()));
                for (const QString& action : *args)
                    x.output(QStringLiteral("<div style='margin-left: 40px;'>%1</div>").arg(action.toHtmlEscaped()));
            }
        }
        return command_result::success();
    }

    static command_result delete_variable(command_context& x)
    {
        const QString name = x.arg(0);
        if (!x.c.processor().remove_variable(name))
            return x.error(tr("Variable %1 not found").arg(name));
        x.output(tr("Variable %1 deleted").arg(name));
        return { true, name };
    }

    static command_result exit(command_context&)
    {
        QCoreApplication::exit(0);
        return command_result::failure();
    }

    static command_result macro_delete(command_context& x)
    {
        scripting::macro_recorder& recorder = x.c.processor().recorder();
        const QString name = x.arg(0);
        if (!recorder.exists(name))
            return x.has_param(QStringLiteral("force")) ? command_result::failure() : x.error(tr("No such recording"));
        recorder.remove(name);
        x.output(tr("Removed macro: %1").arg(name));
        return { true, name };
    }

    static command_result macro_list(command_context& x)
    {
        for (const QString& name : x.c.processor().recorder().names()) {
            if (listed(name, x))
                x.output(name);
        }
        return command_result::success();
    }

    static command_result macro_show(command_context& x)
    {
        scripting::macro_recorder& recorder = x.c.processor().recorder();
        const QString name = x.arg(0);
        if (!recorder.exists(name))
            return x.error(tr("No such recording"));
        for (const QString& line : recorder.lines(name))
            x.output(line.toHtmlEscaped());
        return { true, name };
    }

    static command_result remove_alias(command_context& x)
    {
        const QString name = x.arg(0);
        if (!x.c.processor().remove_alias(name))
            return x.error(tr("Alias %1 not found").arg(name));
        // Through the queue, so it shows after the command that removed it.
        if (x.plain())
            x.c.processor().queue_print(tr("Alias %1 removed").arg(name));
        return { true, name };
    }

    static command_result settings_get(command_context& x)
    {
        const QString key = x.arg(0);
        const QVariant stored = x.api.sapi_settings_get(key, QVariant());
        if (!stored.isValid() && x.call.args.size() < 2)
            return x.error(tr("Unknown setting: %1").arg(key));
        const QString value = stored.isValid() ? setting_text(stored) : x.arg(1);
        x.output(QStringLiteral("<span style='color: blue;'>%1</span>: %2").arg(key, value.toHtmlEscaped()));
        return command_result::success();
    }

    static command_result settings_set(command_context& x)
    {
        x.api.sapi_settings_set(x.arg(0), x.arg(1));
        return command_result::success();
    }

    static command_result vars(command_context& x)
    {
        const bool history = x.has_param(QStringLiteral("history"));
        const QMap<QString, cmd_processor::variable_record> all = x.c.processor().variables();
        for (auto it = all.cbegin(); it != all.cend(); ++it) {
            if (!listed(it.key(), x))
                continue;
            QString html = QStringLiteral("<div style=\"font-family: monospace;\">"
                                          "<span style=\"color: blue;\">%1</span> = \"%2\"</div>")
                               .arg(it.key(), it->value.toHtmlEscaped());
            if (history && !it->history.isEmpty()) {
                QStringList previous;
                for (const QString& value : it->history)
                    previous << value.toHtmlEscaped();
                html += QStringLiteral("<div style=\"margin-left: 10px;\">%1:<div style=\"font-family: monospace; "
                                       "margin-left: 10px;\">%2</div></div>")
                            .arg(tr("Previous values"), previous.join(QStringLiteral("<br>")));
            }
            x.output(html);
        }
        return command_result::success();
    }
};

} // namespace

void add_settings_commands(command_table& table)
{
    settings_commands::add_to(table);
}
