// The command console: its window, the lines typed in it, and the interpreter's state shown on it.
#include "app/core.h"

#include "scripting/lua_runtime.h"
#include "scripting/sapi.h"
#include "ui/cmdline.h"
#include "ui/main_window.h"

namespace {

const QString geometry_key = QStringLiteral("Console/geometry");
const QString state_key = QStringLiteral("Console/state");

} // namespace

void core::build_console()
{
    m_cmdline = std::make_unique<cmdline>(*m_settings);
    cmdline* w = m_cmdline.get();
    connect(w, &cmdline::input, this, &core::on_cmdline_input);
    connect(w, &cmdline::script_requested, this, &core::on_cmdline_script_requested);
    m_sapi->set_console(w);

    // The interpreter reports from its own thread: these reach the window queued.
    connect(m_processor.get(), &cmd_processor::queue_stopped, w, &cmdline::set_ready);
    connect(m_processor.get(), &cmd_processor::macro_recording_started, w,
        [w](const QString& name) { w->macro_recording(true, name); });
    connect(
        m_processor.get(), &cmd_processor::macro_recording_stopped, w, [w] { w->macro_recording(false, QString()); });
    connect(m_processor.get(), &cmd_processor::macro_playback_started, w,
        [w](const QString& name) { w->macro_playback(true, name); });
    connect(m_processor.get(), &cmd_processor::macro_playback_stopped, w, [w] { w->macro_playback(false, QString()); });

    w->restoreGeometry(QByteArray::fromHex(m_settings->value(geometry_key).toString().toLatin1()));
    w->restoreState(QByteArray::fromHex(m_settings->value(state_key).toString().toLatin1()));
}

void core::save_console_geometry()
{
    if (!m_cmdline)
        return;
    m_settings->setValue(geometry_key, QString::fromLatin1(m_cmdline->saveGeometry().toHex()));
    m_settings->setValue(state_key, QString::fromLatin1(m_cmdline->saveState().toHex()));
}

void core::on_window_cmdline()
{
    if (!m_cmdline)
        return;
    m_cmdline->show();
    m_cmdline->raise();
    m_cmdline->activateWindow();
}

void core::on_cmdline_input(const QUuid& ident, scripting::script_type type, const QString& line)
{
    if (type == scripting::script_type::lua) {
        // Nothing echoes a Lua line on its way, as the interpreter does for its own.
        if (scripting::console* out = console())
            out->show_input(line);
        m_sapi->sapi_run_lua_line(line);
        return;
    }
    if (m_processor->recorder().is_recording())
        m_sapi->sapi_output(QStringLiteral("<span style='color: orange'>%1</span> %2")
                                .arg(tr("Macro>").toHtmlEscaped(), line.toHtmlEscaped()),
            false);
    m_processor->execute_line(ident, line);
}

void core::on_cmdline_script_requested(const QString& file)
{
    run_script_file(file);
}
