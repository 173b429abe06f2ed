// Scripts: the API the core offers them, their console, script files, autorun and the
// batch script run.
#include "app/core.h"

#include "app/app_paths.h"
#include "app/caps.h"
#include "app/fixed_names.h"
#include "app/log_console.h"
#include "app/options_menu.h"
#include "scripting/lua_runtime.h"
#include "scripting/sapi.h"
#include "scripting/wait.h"
#include "ui/dynwidgets_controller.h"
#include "ui/videoplayer.h"

#include <QCoreApplication>
#include <QFile>
#include <QUrl>

namespace {

bool is_lua(const QString& path)
{
    return path.endsWith(QLatin1String(".lua"), Qt::CaseInsensitive);
}

} // namespace

void core::build_api()
{
    sapi::core_functions f;
    f.echo_enabled = [this] { return m_processor->echo_enabled(); };
    f.batch = [this] { return m_mode == batch; };
    f.add_device = [this](const endpoint& ep) { introduce(task_element(ep, device())); };
    f.clear_devices = [this] { clear_list(); };
    f.export_devices = [this](const QString& file, bool selected_only) {
        return static_cast<unsigned long>(export_task_file(file, selected_only));
    };
    f.import_devices = [this](const QString& file) { return static_cast<unsigned long>(import_task_file(file)); };
    f.start_scan = [this] { return scan(); };
    f.scan_finished = [this] { return m_scan_finished; };
    f.settings_changed = [this] { reload_settings(); };
    f.pack_list = [this] { return find_packs(false); };
    f.caps = [] { return caps::table(); };
    f.version = [] { return caps::version_text(); };
    f.register_device = [this](const QString& serial, const QString& first, const QString& second) {
        return m_registration.register_new_device(serial, first, second);
    };
    f.register_mac = [this](const QString& serial, short port, const QString& mac, const QHostAddress& address) {
        const delivery::register_mac_result r = m_registration.register_cloud_mac(serial, uint16_t(port), mac, address);
        return QVariantMap { { QStringLiteral("result"), r.result },
            { QStringLiteral("date"), r.date.toString(delivery::registration::date_format) },
            { QStringLiteral("operator_mac"), r.operator_mac },
            { QStringLiteral("operator_ip"), r.operator_ip.toString() } };
    };
    f.plugin_list = [this] {
        QList<QVariantMap> list;
        for (const plugins::plugin_record& r : m_plugins->records(false))
            list << QVariantMap { { QStringLiteral("ident"), r.ident }, { QStringLiteral("filename"), r.file },
                { QStringLiteral("status"), plugins::loader::state_word(r.state) } };
        return list;
    };
    // The player lives by itself and deletes itself when closed.
    f.play_video = [](const QUrl& url, const param_list& params) { (new videoplayer)->play(url, params); };
    // Without windows there is nowhere to put widgets, and the sapi says so.
    if (m_mode == interactive)
        f.toolbar = [this](const QString& name, const QString& operation, const QStringList& args,
                        const param_list& params) { return run_toolbar_operation(name, operation, args, params); };
    m_sapi = std::make_unique<sapi>(std::move(f), m_manager, *m_settings);
    m_sapi->set_lua(m_lua.get());
}

void core::build_lua()
{
    // Each runs on the main thread while the script waits; the API exists by the time a script runs.
    lua_runtime::bindings b;
    b.caps = [this] { return m_sapi->sapi_caps(); };
    b.version = [this] { return m_sapi->sapi_version(); };
    b.download_file = [this](const QString& url, const QString& file) {
        return m_sapi->sapi_download_file(QUrl::fromUserInput(url), file);
    };
    b.url_contents = [this](const QString& url) { return m_sapi->sapi_url_contents(QUrl::fromUserInput(url)); };
    b.pack_list = [this] { return m_sapi->sapi_pack_list(); };
    b.devices_scan = [this] { return m_sapi->sapi_devices_scan(); };
    b.devices_import = [this](const QString& file) { return m_sapi->sapi_devices_import(file); };
    // As devices.export: the rows the user ticked.
    b.devices_export = [this](const QString& file) { return m_sapi->sapi_devices_export(file, true); };
    m_lua = std::make_unique<lua_runtime>(std::move(b));
    connect(m_lua.get(), &lua_runtime::error, this, &core::on_lua_runtime_error);
    connect(m_lua.get(), &lua_runtime::log, this, &core::on_lua_runtime_log);
}

void core::on_lua_runtime_error(const QString& message)
{
    log(fixed_names::sources::lua, tr("Runtime error: %1").arg(message), { fixed_names::tags::lua });
    // Without windows the log is the console: said once is enough.
    if (console() != m_log_console.get())
        m_sapi->sapi_error(message, false);
}

void core::on_lua_runtime_log(const QString& message)
{
    log(fixed_names::sources::lua, tr("Runtime message: %1").arg(message), { fixed_names::tags::lua });
    if (console() != m_log_console.get())
        m_sapi->sapi_output(message.toHtmlEscaped(), false);
}

scripting::console* core::console() const
{
    return m_sapi ? m_sapi->console() : nullptr;
}

void core::wait_while(const std::function<bool()>& condition, const QString& message,
    scripting::console::animation kind)
{
    if (scripting::console* out = console())
        out->wait(condition, message, false, kind);
    else
        scripting::wait_while(condition, 100);
}

bool core::run_script_file(const QString& path)
{
    scripting::console* out = console();
    if (is_lua(path)) {
        QFile probe(path);
        if (!probe.open(QIODevice::ReadOnly)) {
            if (out)
                out->append_error(tr("Unable to open script %1: %2").arg(path, probe.errorString()), false);
            return false;
        }
        m_processor->queue_entry(scripting::command_entry, QStringLiteral("script.lua.run %1").arg(path),
            { QString(), qint64(scripting::commands::run_lua_script) }, { path }, {});
        return true;
    }
    const cmd_processor::script_file script = cmd_processor::read_script_file(path);
    if (!script.ok) {
        if (out)
            out->append_error(tr("Unable to open script %1: %2").arg(path, script.error), false);
        return false;
    }
    if (out)
        out->append(QStringLiteral("<div style='font-style: italic; color: gray;'>%1</div>")
                        .arg(tr("Loaded script: %1").arg(path)),
            false);
    execute_script_lines(script.lines);
    return true;
}

void core::execute_script_lines(const QStringList& texts)
{
    scripting::console* out = console();
    QList<QPair<QUuid, QString>> lines;
    for (const QString& text : texts) {
        const QUuid ident = QUuid::createUuid();
        if (out)
            out->remember_line(ident, text);
        lines.append({ ident, text });
    }
    m_processor->execute_script(lines);
}

bool core::run_batch_script(const QString& path)
{
    if (!run_script_file(path))
        return false;
    watch_script_run();
    return true;
}

void core::watch_script_run()
{
    m_script_run = true;
    // The interpreter says nothing when a script holds no command at all: look now and then.
    m_script_watch.setInterval(100);
    connect(&m_script_watch, &QTimer::timeout, this, &core::end_script_run_if_done, Qt::UniqueConnection);
    m_script_watch.start();
}

void core::end_script_run_if_done()
{
    // An event of the fleet's end may start a macro: the run lasts until its lines have run.
    if (!m_script_run || flows_busy() || !m_events.idle() || m_event_messages.loadAcquire() != 0
        || !m_processor->idle())
        return;
    m_script_watch.stop();
    QCoreApplication::quit();
}

void core::run_autorun()
{
    scripting::autorun stored;
    stored.load(*m_settings);
    QList<scripting::autorun_entry> enabled;
    for (scripting::autorun_entry e : stored.entries()) {
        if (!e.enabled)
            continue;
        const QString resolved = app_paths::autorun_file(m_portable, m_application_path, e.file);
        if (!resolved.isEmpty())
            e.file = resolved;
        enabled << e;
    }
    m_autorun.set_entries(enabled);
    m_autorun.set_runner([this](const QString& file) { return run_script_file(file); });
    if (m_settings->value(QStringLiteral("Autorun/enabled"), false).toBool())
        m_autorun.run();
}

void core::set_log_filters(const QStringList& tags)
{
    m_options.log_filter = tags;
    m_options.save(*m_settings);
    m_history.set_filter(0, tags);
    if (m_options_menu)
        m_options_menu->show_options(m_options);
}

void core::reload_settings()
{
    m_options.load(*m_settings);
    if (m_options_menu)
        m_options_menu->show_options(m_options);
    read_mirrors();
    for (const QString& ident : m_manager.lines())
        set_row_address(ident);
}

bool core::run_toolbar_operation(
    const QString& name, const QString& operation, const QStringList& args, const param_list& params)
{
    if (!m_widgets)
        return false;
    QString error;
    if (operation == QLatin1String("show") || operation == QLatin1String("hide"))
        m_widgets->set_visible(name, operation == QLatin1String("show"));
    else if (operation == QLatin1String("add"))
        error = m_widgets->add(name, args, params);
    else if (operation == QLatin1String("edit"))
        error = m_widgets->edit(name, args.value(0), params);
    else // "delete": the sapi lets no other operation through
        error = m_widgets->remove(name, args.value(0));
    if (!error.isEmpty())
        m_sapi->sapi_error(error, false);
    return error.isEmpty();
}
