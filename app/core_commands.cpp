// Interpreter commands: the slot on the blocking connection and the table of handlers.
#include "app/core.h"

#include "app/command_call.h"
#include "app/fixed_names.h"

#include <QCoreApplication>
#include <QDeadlineTimer>
#include <QThread>

void core::build_interpreter()
{
    m_cmddb.build();
    m_processor = std::make_unique<cmd_processor>(m_cmddb);
    // Blocking: the interpreter thread stands still until the command has run here.
    connect(m_processor.get(), &cmd_processor::command, this, &core::on_cmd_processor_command,
        Qt::BlockingQueuedConnection);
    m_processor->register_var_handler({ QStringLiteral("\\$\\{\\$([\\w|\\/]+)\\}"), QStringLiteral("\\/"),
        [this](const QStringList& path) {
            // Called on the interpreter thread; what it reads belongs to this one.
            std::optional<QString> value;
            if (QThread::currentThread() == thread())
                value = resolve_variable(path);
            else
                QMetaObject::invokeMethod(
                    this, [&] { value = resolve_variable(path); }, Qt::BlockingQueuedConnection);
            return cmd_processor::var_handler_resp { value.has_value(), value.value_or(QString()) };
        } });
}

void core::stop_interpreter()
{
    if (!m_processor)
        return;
    m_processor->disconnect(this);
    m_processor->request_stop();
    // A call the interpreter waits on would never run now: dropping it releases the
    // interpreter, which then sees the stop.
    while (!m_processor->wait(QDeadlineTimer(10)))
        QCoreApplication::removePostedEvents(this, QEvent::MetaCall);
    m_processor.reset();
}

const QHash<qint64, core::command_handler>& core::command_handlers()
{
    // One part per area, each in its own file: devices and tasks, display and console,
    // settings and variables, network and notifications, packs and plugins.
    static const QHash<qint64, command_handler> handlers;
    return handlers;
}

void core::on_cmd_processor_command(QUuid ident, uint command_n, size_t commands_total, QString line,
    scripting::cmd_id command, QStringList args, param_list params, cmd_processor::execution_mode mode)
{
    // Echoing the typed line and showing the progress are the console's; there is none yet.
    // A plugin command belongs to the plugin that owns it, and leaves the last result alone.
    if (!command.plugin.isEmpty())
        return;
    const scripting::command_result r =
        execute_processor_command(ident, command_n, commands_total, line, command, args, params, mode);
    set_last_result(r.ok, r.result);
}

scripting::command_result core::execute_processor_command(const QUuid& ident, uint command_n, size_t commands_total,
    const QString& line, const scripting::cmd_id& command, const QStringList& args, const param_list& params,
    cmd_processor::execution_mode mode)
{
    const command_handler handler = command_handlers().value(command.number);
    if (!handler) {
        const QString name = m_cmddb.command_name(command);
        const QString number = QString::number(command.number);
        log(fixed_names::sources::core,
            tr("Unknown command: %1").arg(name.isEmpty() ? number : QStringLiteral("%1 (%2)").arg(name, number)),
            { fixed_names::tags::core, fixed_names::tags::scripting });
        return scripting::command_result::failure();
    }
    return (this->*handler)({ ident, command_n, commands_total, line, command, args, params, mode });
}
