// Events that scripts attach macros to, and the quick actions of the script toolbar.
#include "app/core.h"

#include "app/fixed_names.h"
#include "app/script_toolbar.h"
#include "scripting/sapi.h"
#include "ui/main_window.h"

#include <QMessageBox>
#include <QToolBar>

void core::on_event(
    const QString& name, const QStringList& args, const QString& action_type, const QString& action_value)
{
    Q_UNUSED(name)
    Q_UNUSED(args)
    if (action_type.compare(QLatin1String("macro"), Qt::CaseInsensitive) != 0)
        return;
    // The name is looked up now: a macro may be recorded after the attachment.
    scripting::macro_recorder& recorder = m_processor->recorder();
    if (recorder.exists(action_value)) {
        // Its lines land in the interpreter's input queue; nothing here waits for them.
        recorder.play(action_value);
        return;
    }
    // The console lives on the main thread; the count keeps a script run from ending before it is said.
    m_event_messages.ref();
    const QString text = tr("Specified macro %1 does not exists.").arg(action_value);
    QMetaObject::invokeMethod(
        this,
        [this, text] {
            m_sapi->sapi_error(text, false);
            m_event_messages.deref();
        },
        Qt::QueuedConnection);
}

void core::load_quick_actions()
{
    stage(tr("Actions"));
    m_actions.load(*m_settings);
    m_actions.commands_model().set_commands(m_cmddb.commands_descriptions().values());
    stage(tr("Actions toolbar"));
    QToolBar* bar = m_window->scriptbar();
    fill_toolbar(*bar, m_actions);
    // Whoever edits the store (the settings window, a script) sees the bar follow.
    connect(&m_actions, &scripting::actions_db::actions_altered, bar, [this, bar] { fill_toolbar(*bar, m_actions); });
    connect(m_window.get(), &main_window::script_toolbar_action, this, &core::on_window_script_toolbar_action);
    connect(m_window.get(), &main_window::script_toolbar_btn, this, &core::on_window_script_toolbar_btn);
}

void core::on_window_script_toolbar_btn(const QString& action)
{
    on_window_script_toolbar_action(action);
}

void core::on_window_script_toolbar_action(const QString& uuid)
{
    static const QString macro_prefix = QStringLiteral("macro:");
    if (uuid.startsWith(macro_prefix)) {
        m_processor->recorder().play(uuid.mid(macro_prefix.size()));
        return;
    }
    if (!m_actions.contains(uuid)) {
        log(fixed_names::sources::core, tr("Unknown quick action: %1").arg(uuid));
        return;
    }
    const scripting::quick_action action = m_actions.action(uuid);
    switch (action.mode) {
    case scripting::quick_action::script:
        // One script, so the lines share one group and run back to back.
        execute_script_lines(action.value.split(QLatin1Char('\n'), Qt::SkipEmptyParts));
        break;
    case scripting::quick_action::file:
        run_script_file(action.value);
        break;
    case scripting::quick_action::command: {
        const scripting::cmd_id command = scripting::cmd_id::from_text(action.value);
        if (command.plugin.isEmpty())
            run_toolbar_command(command);
        else
            run_plugin_action(action.value);
        break;
    }
    default:
        log(fixed_names::sources::core, tr("Unknown quick action mode %1 of %2").arg(action.mode).arg(uuid));
    }
}

void core::run_toolbar_command(const scripting::cmd_id& command)
{
    using c = scripting::commands;
    switch (c(command.number)) {
    case c::caps:
    case c::version:
        execute_processor_command(QUuid::createUuid(), 0, 0, m_cmddb.command_name(command), command, {}, {},
            cmd_processor::execution_mode::plain);
        break;
    case c::clear:
        if (scripting::console* out = console())
            out->clear();
        break;
    case c::clear_devices:
        if (m_manager.running_count() > 0)
            warn(tr("Executing command"), tr("Unable to clear the list: the queue is running"));
        else
            clear_list();
        break;
    case c::scan_devices:
        try {
            m_sapi->sapi_devices_scan();
        } catch (const QString& message) {
            warn(tr("Executing \"%1\"").arg(m_cmddb.command_name(command)), message);
        }
        break;
    default:
        log(fixed_names::sources::core,
            tr("The command %1 can't run from the toolbar").arg(m_cmddb.command_name(command)));
    }
}
