// Interpreter commands: the slot on the blocking connection and the table of handlers.
#include "app/core.h"

#include "app/command_context.h"
#include "app/fixed_names.h"
#include "scripting/sapi.h"

#include <QCoreApplication>
#include <QDeadlineTimer>
#include <QThread>

namespace {

// Command numbers and their handlers, one part per area.
const command_table& command_handlers()
{
    static const command_table table = [] {
        command_table t;
        add_device_commands(t);
        add_display_commands(t);
        add_settings_commands(t);
        add_network_commands(t);
        add_pack_commands(t);
        return t;
    }();
    return table;
}

} // namespace

void core::build_interpreter()
{
    m_cmddb.build();
    // Outside the queue, as a toolbar button runs them: the outcome is the button's alone.
    m_core_functions = std::make_unique<plugins::core_functions>(m_cmddb,
        [this](const scripting::cmd_id& id, const QStringList& args, const param_list& params) {
            return execute_processor_command(QUuid::createUuid(), 1, 1, m_cmddb.command_name(id), id, args, params,
                cmd_processor::execution_mode::plain)
                .ok;
        });
    m_processor = std::make_unique<cmd_processor>(m_cmddb);
    // Blocking: the interpreter thread stands still until the command has run here.
    connect(m_processor.get(), &cmd_processor::command, this, &core::on_cmd_processor_command,
        Qt::BlockingQueuedConnection);
    connect(m_processor.get(), &cmd_processor::output, this, &core::on_cmd_processor_output);
    connect(m_processor.get(), &cmd_processor::parse_error, this, &core::on_cmd_processor_parse_error);
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

void core::on_cmd_processor_output(const QString& message)
{
    if (scripting::console* out = console())
        out->append(QStringLiteral("<div style='font-style: italic; color: green;'>%1</div>").arg(message), false);
}

void core::on_cmd_processor_parse_error(const QUuid& ident, const QString& message)
{
    if (scripting::console* out = console())
        out->append_error(tr("Line %1, error \"%2\"").arg(out->line_of(ident), message), false);
}

void core::on_cmd_processor_command(QUuid ident, uint command_n, size_t commands_total, QString line,
    scripting::cmd_id command, QStringList args, param_list params, cmd_processor::execution_mode mode)
{
    if (scripting::console* out = console()) {
        if (!line.startsWith(QLatin1Char('@')) && mode == cmd_processor::execution_mode::plain
            && m_processor->echo_enabled())
            out->show_input(line);
        out->status(ident, command_n, commands_total, line);
    }
    // A plugin command belongs to the plugin that owns it, and leaves the last result alone.
    if (!command.plugin.isEmpty()) {
        run_plugin_command(command, args, params);
        return;
    }
    const scripting::command_result r
        = execute_processor_command(ident, command_n, commands_total, line, command, args, params, mode);
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
    const command_call call { ident, command_n, commands_total, line, command, args, params, mode };
    command_context context(*this, *m_sapi, call);
    // A value a conversion can't read, and a refused scan, end the command, not the program.
    try {
        return handler(context);
    } catch (const sapi::unsupported_value_exception& e) {
        return context.error(QString::fromUtf8(e.what()));
    } catch (const QString& refusal) {
        return context.error(refusal);
    }
}
