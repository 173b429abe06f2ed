#include "app/core.h"

#include "app/actions_menu.h"
#include "app/app_paths.h"
#include "app/caps.h"
#include "app/fixed_names.h"
#include "app/log_console.h"
#include "app/options_menu.h"
#include "delivery/service_url.h"
#include "diagnostics/blackbox.h"
#include "scripting/lua_runtime.h"
#include "scripting/sapi.h"
#include "sdk/device_library.h"
#include "sdk/legacy.h"
#include "tasks/sdk_type.h"
#include "ui/about.h"
#include "ui/apply_pack.h"
#include "ui/cmdline.h"
#include "ui/dynwidgets_controller.h"
#include "ui/help.h"
#include "ui/main_model.h"
#include "ui/main_model_filter.h"
#include "ui/main_window.h"
#include "ui/port_setup.h"
#include "ui/problem_report.h"
#include "ui/settings_window.h"
#include "ui/splash.h"
#include "ui/task_edit.h"
#include "ui/usage_warning.h"

#include <QCoreApplication>
#include <QDateTime>
#include <QFileInfo>
#include <QHostAddress>
#include <QLibraryInfo>
#include <QLocale>
#include <QMessageBox>
#include <QTemporaryDir>
#include <QTimer>

#include <cstdio>
#include <limits>
#include <random>

// Outside any namespace, as Q_INIT_RESOURCE requires; registering twice is harmless.
static void init_translation_resources()
{
    Q_INIT_RESOURCE(orvane_resources);
}

namespace {

// The local time that starts a log line, formatted once a second by each thread that logs:
// the local clock costs a look at the time zone files on every reading, and a launch of a
// thousand rows logs thousands of lines at once.
QString log_stamp()
{
    thread_local qint64 stamped = -1;
    thread_local QString stamp;
    const qint64 now = QDateTime::currentMSecsSinceEpoch() / 1000;
    if (now != stamped) {
        stamped = now;
        stamp = QDateTime::fromSecsSinceEpoch(now).toString(QStringLiteral("dd.MM.yyyy, hh:mm:ss"));
    }
    return stamp;
}

} // namespace

core::core(const QString& own_checksum, const QString& application_path)
    : QObject(nullptr)
    , loggable("core")
    , m_own_checksum(own_checksum)
    , m_application_path(application_path)
    , m_updater(fixed_names::platform, fixed_names::version_build, application_path)
    , m_crypto(delivery::make_pack_crypto([this] { return m_client.client_id(); }))
{
    m_portable = app_paths::is_portable(QCoreApplication::applicationDirPath());
    // The closed device libraries sit where plugins do, or beside the program.
    sdk::device_library::set_folders({ plugin_folder(), m_application_path });
    register_meta_types();

    for (const QString& name : { QStringLiteral("en_US"), QStringLiteral("ru_RU") }) {
        const QLocale locale(name);
        m_languages.insert(name,
            QStringLiteral("%1 (%2)").arg(QLocale::languageToString(locale.language()), locale.nativeLanguageName()));
    }

    connect(&m_manager, &tasks::manager::flow_started, this, &core::on_task_manager_flow_started);
    connect(&m_manager, &tasks::manager::flow_ended, this, &core::on_task_manager_flow_ended);
    connect(&m_manager, &tasks::manager::task_running, this, &core::on_task_manager_task_running);
    connect(&m_progress, &progress_mailbox::delivered, this, &core::on_sdk_flash_progress);

    connect(&m_client, &client::canceled, this, &core::on_client_canceled);
    connect(&m_client, &client::confirmed, this, &core::on_client_confirmed);
    connect(&m_client, &client::failed, this, &core::on_client_failed);
    connect(&m_client, &client::file_received, this, &core::on_client_file_received);
    connect(&m_client, &client::update_found, this, &core::on_client_update_found);
    connect(&m_scanner, &scanner::device_found, this, &core::on_scanner_device_found);
    connect(&m_scanner, &scanner::device_lost, this, &core::on_scanner_device_lost);
    connect(&m_scanner, &scanner::done, this, &core::on_scanner_done);
    connect(&m_updater, &updater::downloaded, this, &core::on_updater_downloaded);
    connect(&m_updater, &updater::new_update_available, this, &core::on_updater_new_update_available);
    connect(&m_updater, &updater::download_failed, this, &core::on_updater_download_failed);

    m_dispatch = {
        { tasks::names::apply_pack_firmware, &core::dt_apply_pack_firmware },
        { tasks::names::identify, &core::dt_identify },
        { tasks::names::check_updates, &core::dt_check_updates },
        { tasks::names::flash, &core::dt_update },
        { tasks::names::confirm, &core::dt_confirm },
        { tasks::names::await_device, &core::dt_await_device },
        { tasks::names::change_ip, &core::dt_change_ip },
        { tasks::names::change_port, &core::dt_change_port },
        { tasks::names::change_subnet, &core::dt_change_subnet },
        { tasks::names::change_transfer_policy, &core::dt_change_transefer_policy },
        { tasks::names::dhcp, &core::dt_set_dhcp },
        { tasks::names::fix, &core::dt_fix_device },
        { tasks::names::import_configuration, &core::dt_import_configuration },
        { tasks::names::reboot, &core::dt_reboot },
        { tasks::names::reset_configuration, &core::dt_reset_configuration },
        { tasks::names::set_language, &core::dt_set_language },
        { tasks::names::verify_flash, &core::dt_verify_flash },
    };
    m_worker_steps = m_dispatch.keys();
    m_worker_steps.removeAll(tasks::names::check_updates);
    m_worker_steps.removeAll(tasks::names::confirm);

    build_lua();
    m_plugins = std::make_unique<plugins::loader>();
    connect(m_plugins.get(), &plugins::loader::message, this, &core::on_plugin_loader_message);
    build_interpreter();

    m_settings = std::make_unique<QSettings>(settings_path(), QSettings::IniFormat);
    // The file is read at the first question; only then does its status tell.
    m_settings->contains(QStringLiteral("language"));
    const bool settings_unreadable = m_settings->status() != QSettings::NoError;
    if (settings_unreadable) {
        // Left as it is, the file keeps what can still be mended by hand (the service identity);
        // this run works on the defaults, in a file of its own that goes with it.
        m_settings_stand_in = std::make_unique<QTemporaryDir>();
        m_settings = std::make_unique<QSettings>(
            m_settings_stand_in->filePath(fixed_names::settings_file), QSettings::IniFormat);
    }
    if (m_settings->contains(QStringLiteral("language")))
        apply_language(m_settings->value(QStringLiteral("language")).toString());
    build_api();

    m_blackbox = std::make_shared<blackbox>(log_path());
    m_blackbox->open();
    attach(m_blackbox);
    blackbox::set_global(m_blackbox);

    log(fixed_names::sources::core,
        tr("Version: %1, %2, capabilities: %3").arg(caps::version_text(), caps::platform_text(), caps::text()));
    if (settings_unreadable)
        log(fixed_names::sources::core,
            tr("The settings file \"%1\" can't be read: it is left as it is, and this run uses the defaults.")
                .arg(settings_path()));
    m_client.attach(m_blackbox);
    m_scanner.attach(m_blackbox);
}

core::~core()
{
    // First: event actions and the interpreter call into this object until their threads
    // have ended, and so does a Lua script. An event action never waits for the main thread.
    m_events.stop();
    stop_interpreter();
    m_lua->disconnect(this);
    m_lua.reset();
    m_registration_queue.clear();
    m_registration_threads.waitForDone();
    m_files_to_store.clear();
    m_store_thread.waitForDone();
    m_script_watch.stop();
    m_updater.stop();
    // Nothing reaches a slot while the members go, some of which the slots use.
    m_updater.disconnect(this);
    m_manager.disconnect(this);
    m_client.disconnect(this);
    m_scanner.disconnect(this);
    m_scanner.stop();
    m_scanner.wait();
    // Workers belong to their lines; stop them before the lines go.
    for (const QString& ident : m_manager.lines()) {
        if (auto l = m_manager.find(ident))
            delete_worker(*l);
    }
    for (const auto& worker : m_retired_workers)
        worker->clean_up();
    m_retired_workers.clear();
    // Windows go before the models they show, and the log pane before the history that feeds it.
    m_history.remove_listener(0);
    save_console_geometry();
    if (m_sapi && m_sapi->console() == m_cmdline.get())
        m_sapi->set_console(nullptr);
    m_about.reset();
    m_apply_pack.reset();
    m_port_setup.reset();
    m_actions_menu.reset();
    m_options_menu.reset();
    m_widgets.reset();
    m_cmdline.reset();
    m_help.reset();
    m_task_edit.reset();
    m_settings_window.reset();
    m_problems.reset();
    m_window.reset();
    m_filter.reset();
    m_model.reset();
    m_splash.reset();
    m_sapi.reset();
    m_plugins.reset();
    m_log_console.reset();
    m_settings.reset();
    blackbox::set_global(nullptr);
    if (m_qt_translator)
        QCoreApplication::removeTranslator(m_qt_translator.get());
    if (m_translator)
        QCoreApplication::removeTranslator(m_translator.get());
}

void core::register_meta_types()
{
    qRegisterMetaType<device>("device");
    qRegisterMetaType<device_list>("device_list");
    qRegisterMetaType<mac>("mac");
    qRegisterMetaType<param_list>("param_list");
    qRegisterMetaType<parameters>("parameters");
    qRegisterMetaType<endpoint>("endpoint");
    qRegisterMetaType<QList<endpoint>>("QList<endpoint>");
    qRegisterMetaType<tasks::common_data>("tasks::common_data");
    qRegisterMetaType<sdk::type>("sdk::type");
    qRegisterMetaType<client::queued_data>("client::queued_data");
    qRegisterMetaType<client::update_resp>("client::update_resp");
    qRegisterMetaType<client::update_resp::firmware_list>("client::update_resp::firmware_list");
    qRegisterMetaType<client::error_codes>("client::error_codes");
    qRegisterMetaType<updater::update_info>("updater::update_info");
    qRegisterMetaType<sdk::prototype::flash_progress_type>("sdk::prototype::flash_progress_type");
    qRegisterMetaType<signed int>("signed int");
    qRegisterMetaType<size_t>("size_t");
    qRegisterMetaType<uint8_t>("uint8_t");
    qRegisterMetaType<scripting::commands>("scripting::commands");
    model_structures::register_meta_types();
}

QString core::settings_path() const
{
    return app_paths::settings_file(m_portable, m_application_path);
}

QString core::log_path() const
{
    return app_paths::log_file(m_portable, m_application_path);
}

QString core::plugin_folder() const
{
    return app_paths::plugin_folder(m_portable, m_application_path);
}

bool core::operate(operation_mode mode, bool offline)
{
    m_mode = mode;
    if (m_mode == batch) {
        log(fixed_names::sources::core, tr("Running in batch mode"));
        m_log_console = std::make_unique<log_console>(*this);
        m_sapi->set_console(m_log_console.get());
    } else {
        m_splash = std::make_unique<splash>();
        m_splash->show();
    }

    std::mt19937_64 engine { std::random_device { "default" }() };
    m_session_number = std::uniform_int_distribution<quint64> { 1, std::numeric_limits<quint64>::max() }(engine);

    start_plugins();

    stage(tr("Service client"));
    configure_service(offline);

    stage(tr("Lua runtime"));
    if (!m_lua->initialize())
        log(fixed_names::sources::core, tr("Unable to initialize Lua runtime."));

    if (offline) {
        switch_remote(false);
        log(fixed_names::sources::core, tr("Disabling remote communications because offline mode was specified."));
        // The box needs the widget application, which batch mode doesn't create.
        if (m_mode == interactive)
            QMessageBox::information(m_splash.get(), tr("Offline mode"),
                tr("The application is started in offline mode. Communication with remote services will not be established."));
    }

    open_cache();

    if (m_mode == interactive) {
        stage(tr("Interface"));
        build_interface();
        load_quick_actions();
    }

    stage(tr("Menu"));
    m_options.load(*m_settings);
    if (m_window)
        m_history.set_filter(0, m_options.log_filter);
    if (!m_settings->contains(QStringLiteral("firmware_pack_functionality")))
        m_settings->setValue(QStringLiteral("firmware_pack_functionality"), QStringLiteral("legacy"));
    read_mirrors();
    sdk::legacy::set_factory_password(m_settings->value(QStringLiteral("factory_password"), QStringLiteral("kestr")).toString());
    // The core serves every name alike; task_done and tasks_done are its own to raise.
    attach_listener({ QStringLiteral("scanner_done"), QStringLiteral("widget_changed"), QStringLiteral("task_done"),
                        QStringLiteral("tasks_done") },
        &m_events);

    stage(tr("Events"));
    m_events.start();

    stage(tr("Script autorun"));
    run_autorun();

    stage(tr("Done"));
    m_settings->sync();

    if (m_mode == interactive) {
        QTimer::singleShot(500, this, [this] {
            if (m_splash && m_window)
                m_splash->finish(m_window.get());
        });
        if (!m_settings->value(QStringLiteral("usage_warning_accepted"), false).toBool()) {
            usage_warning warning(m_window.get());
            if (warning.exec() != QDialog::Accepted)
                return false;
            if (warning.dont_show_again())
                m_settings->setValue(QStringLiteral("usage_warning_accepted"), true);
        }
    }
    // Batch runs have nobody to ask and must not end for an update; offline, nothing goes out.
    // Not before now: the splash processes events, and an answer arriving then would prompt over
    // the start-up and quit before the main loop runs, which loses the quit.
    if (m_mode == interactive && !offline)
        m_updater.start();
    return true;
}

void core::read_mirrors()
{
    m_short_device_address_display = m_settings->value(QStringLiteral("short_device_address_display"), false).toBool();
    m_encrypt_passwords_on_export = m_settings->value(QStringLiteral("encrypt_passwords_on_export"), true).toBool();
    m_limit_concurrent_tasks = m_settings->value(QStringLiteral("limit_concurrent_tasks"), 0u).toUInt();
    m_functionality_change_policy = m_settings->value(QStringLiteral("functionality_change_policy"), 1u).toUInt();
    m_manager.set_limit(m_limit_concurrent_tasks);
}

void core::stage(const QString& text)
{
    ++m_stage_number;
    if (m_splash)
        m_splash->set_stage(text, m_stage_number, m_stage_total);
    emit stage_changed(text, m_stage_number, m_stage_total);
}

void core::switch_remote(bool enabled)
{
    m_remote_enabled = enabled;
    m_client.set_disabled(!enabled);
    if (m_window)
        m_window->set_offline(!enabled);
}

void core::configure_service(bool offline)
{
    m_settings->beginGroup(QStringLiteral("Service"));
    const QByteArray id = QByteArray::fromHex(m_settings->value(QStringLiteral("client_id")).toString().toLatin1());
    const QByteArray key = QByteArray::fromHex(m_settings->value(QStringLiteral("client_key")).toString().toLatin1());
    const QHostAddress address(m_settings->value(QStringLiteral("address")).toString());
    const uint port = m_settings->value(QStringLiteral("port"), 8088u).toUInt();
    const int timeout = m_settings->value(QStringLiteral("timeout_s"), 120).toInt();
    m_settings->endGroup();

    if (!offline && (id.size() != 8 || key.size() != 32))
        log(fixed_names::sources::core,
            tr("No service identity is configured (Service/client_id, Service/client_key): requests to the update service will fail."));
    m_client.setup(m_own_checksum, id, m_session_number, key, offline);
    m_client.set_timeout(timeout);
    if (!address.isNull()) {
        m_client.set_server(address, uint16_t(port));
        m_registration.set_endpoint(QUrl(delivery::service_url(address, uint16_t(port), delivery::rpc::path)));
        m_updater.set_server(address, uint16_t(port));
    }
}

void core::log(const QString& source, const QString& text, const QStringList& tags)
{
    const QString line = QStringLiteral("%1 | %2: %3").arg(log_stamp(), source, text);
    {
        QMutexLocker lock(&m_log_mutex);
        const QByteArray out = line.toUtf8() + '\n';
        fwrite(out.constData(), 1, size_t(out.size()), stdout);
        fflush(stdout);
        // Passed as an argument, not as the format: a device name with a % must not reach the formatter.
        if (m_blackbox)
            m_blackbox->write(ident().constData(), blackbox::plain, "%s",
                QStringLiteral("%1: %2").arg(source, text).toUtf8().constData());
    }
    // Outside the lock: the history's listeners may log in turn.
    m_history.add(line, tags);
}

void core::apply_language(const QString& locale_name)
{
    for (auto* old : { m_qt_translator.get(), m_translator.get() }) {
        if (old)
            QCoreApplication::removeTranslator(old);
    }
    m_qt_translator = std::make_unique<QTranslator>();
    if (m_qt_translator->load(QStringLiteral("qt_%1").arg(locale_name), QLibraryInfo::location(QLibraryInfo::TranslationsPath)))
        QCoreApplication::installTranslator(m_qt_translator.get());
    m_translator = std::make_unique<QTranslator>();
    init_translation_resources();
    if (m_translator->load(QStringLiteral(":/langs/%1").arg(locale_name)))
        QCoreApplication::installTranslator(m_translator.get());
    m_current_language = locale_name;
    m_cmddb.describe();
    for (const plugins::plugin_record& r : m_plugins->records(true)) {
        r.interface->set_language(locale_name);
        m_cmddb.describe(r.ident, *r.interface);
    }
}

void core::on_window_option_menu_executed(const QString& cmd, const QVariantList& args, bool checked)
{
    if (bool* field = m_options.flag(cmd)) {
        *field = checked;
    } else if (cmd == QLatin1String("preferred_subnet")) {
        const int prefix = args.value(0).toInt();
        if (prefix == 16)
            m_options.preferred_subnet = QHostAddress(QStringLiteral("255.255.0.0"));
        else if (prefix == 24)
            m_options.preferred_subnet = QHostAddress(QStringLiteral("255.255.255.0"));
        else
            log(fixed_names::sources::core, tr("Unknown subnet mask in application settings: %1").arg(cmd));
    } else if (cmd == QLatin1String("log_filter")) {
        const QString tag = args.value(0).toString();
        if (checked && !m_options.log_filter.contains(tag))
            m_options.log_filter << tag;
        else if (!checked)
            m_options.log_filter.removeAll(tag);
        m_history.set_filter(0, m_options.log_filter);
    } else {
        log(fixed_names::sources::core, tr("Unknown menu option ident: %1").arg(cmd));
        return;
    }
    m_options.save(*m_settings);
}

void core::on_window_quit()
{
    QCoreApplication::quit();
}

