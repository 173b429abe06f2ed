#include "app/core.h"

#include "app/app_paths.h"
#include "app/caps.h"
#include "app/fixed_names.h"
#include "diagnostics/blackbox.h"
#include "tasks/sdk_type.h"

#include <QCoreApplication>
#include <QDateTime>
#include <QFileInfo>
#include <QHostAddress>
#include <QLibraryInfo>
#include <QLocale>
#include <QMessageBox>

#include <cstdio>
#include <limits>
#include <random>

core::core(const QString& own_checksum, const QString& application_path)
    : QObject(nullptr)
    , loggable("core")
    , m_own_checksum(own_checksum)
    , m_application_path(application_path)
{
    m_portable = app_paths::is_portable(QCoreApplication::applicationDirPath());
    register_meta_types();

    for (const QString& name : { QStringLiteral("en_US"), QStringLiteral("ru_RU") }) {
        const QLocale locale(name);
        m_languages.insert(name,
            QStringLiteral("%1 (%2)").arg(QLocale::languageToString(locale.language()), locale.nativeLanguageName()));
    }

    connect(&m_manager, &tasks::manager::flow_started, this, &core::on_task_manager_flow_started);
    connect(&m_manager, &tasks::manager::flow_ended, this, &core::on_task_manager_flow_ended);
    connect(&m_manager, &tasks::manager::task_running, this, &core::on_task_manager_task_running);

    m_settings = std::make_unique<QSettings>(settings_path(), QSettings::IniFormat);
    if (m_settings->contains(QStringLiteral("language")))
        apply_language(m_settings->value(QStringLiteral("language")).toString());

    m_blackbox = std::make_shared<blackbox>(log_path());
    m_blackbox->open();
    attach(m_blackbox);
    blackbox::set_global(m_blackbox);

    log(fixed_names::sources::core,
        tr("Version: %1, %2, capabilities: %3").arg(caps::version_text(), caps::platform_text(), caps::text()));
}

core::~core()
{
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
    qRegisterMetaType<device_list>("model_structures::device_list");
    qRegisterMetaType<mac>("mac");
    qRegisterMetaType<param_list>("param_list");
    qRegisterMetaType<parameters>("parameters");
    qRegisterMetaType<endpoint>("endpoint");
    qRegisterMetaType<QList<endpoint>>("QList<endpoint>");
    qRegisterMetaType<tasks::common_data>("tasks::common_data");
    qRegisterMetaType<sdk::type>("sdk::type");
    qRegisterMetaType<signed int>("signed int");
    qRegisterMetaType<size_t>("size_t");
    qRegisterMetaType<uint8_t>("uint8_t");
}

QString core::settings_path() const
{
    return app_paths::settings_file(m_portable, m_application_path);
}

QString core::log_path() const
{
    return app_paths::log_file(m_portable, m_application_path);
}

bool core::operate(operation_mode mode, bool offline)
{
    m_mode = mode;
    if (m_mode == batch)
        log(fixed_names::sources::core, tr("Running in batch mode"));

    std::mt19937_64 engine { std::random_device { "default" }() };
    m_session_number = std::uniform_int_distribution<quint64> { 1, std::numeric_limits<quint64>::max() }(engine);

    if (offline) {
        switch_remote(false);
        log(fixed_names::sources::core, tr("Disabling remote communications because offline mode was specified."));
        // The box needs the widget application, which batch mode doesn't create.
        if (m_mode == interactive)
            QMessageBox::information(nullptr, tr("Offline mode"),
                tr("The application is started in offline mode. Communication with remote services will not be established."));
    }

    stage(tr("Menu"));
    m_options.load(*m_settings);
    if (m_history.filter(0) != m_options.log_filter)
        m_history.set_filter(0, m_options.log_filter);
    if (!m_settings->contains(QStringLiteral("firmware_pack_functionality")))
        m_settings->setValue(QStringLiteral("firmware_pack_functionality"), QStringLiteral("legacy"));
    read_mirrors();

    stage(tr("Done"));
    m_settings->sync();
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
    emit stage_changed(text, m_stage_number, m_stage_total);
}

void core::switch_remote(bool enabled)
{
    m_remote_enabled = enabled;
}

void core::log(const QString& source, const QString& text, const QStringList& tags)
{
    QMutexLocker lock(&m_log_mutex);
    const QString line = QStringLiteral("%1 | %2: %3")
                             .arg(QDateTime::currentDateTime().toString(QStringLiteral("dd.MM.yyyy, hh:mm:ss")), source, text);
    const QByteArray out = line.toUtf8() + '\n';
    fwrite(out.constData(), 1, size_t(out.size()), stdout);
    fflush(stdout);
    // Passed as an argument, not as the format: a device name with a % must not reach the formatter.
    if (m_blackbox)
        m_blackbox->write(ident().constData(), blackbox::plain, "%s", QStringLiteral("%1: %2").arg(source, text).toUtf8().constData());
    m_history.add(line, tags);
}

void core::apply_language(const QString& locale_name)
{
    for (auto* old : { m_qt_translator.get(), m_translator.get() }) {
        if (old)
            QCoreApplication::removeTranslator(old);
    }
    m_qt_translator = std::make_unique<QTranslator>();
    if (m_qt_translator->load(QStringLiteral("qtbase_%1").arg(locale_name), QLibraryInfo::location(QLibraryInfo::TranslationsPath)))
        QCoreApplication::installTranslator(m_qt_translator.get());
    m_translator = std::make_unique<QTranslator>();
    if (m_translator->load(QStringLiteral(":/langs/%1").arg(locale_name)))
        QCoreApplication::installTranslator(m_translator.get());
    m_current_language = locale_name;
}

void core::introduce(const task_element& element)
{
    m_manager.add_line(element.ident);
    auto l = m_manager.line(element.ident);
    l->set(tasks::keys::selected, true);
    l->set(tasks::keys::endpoint, QVariant::fromValue(element.ep));
    l->set(tasks::keys::ident, element.ident);
    l->set(tasks::keys::device, QVariant::fromValue(element.dev));
    log(element.ep.short_form(), tr("Introduced: flow ident %1").arg(element.ident), { fixed_names::tags::tasks });
}

QString core::source_of(const QString& ident) const
{
    const auto l = m_manager.find(ident);
    if (!l)
        return fixed_names::sources::core;
    return l->get(tasks::keys::endpoint).value<endpoint>().short_form();
}

void core::set_status(const QString& ident, const QString& text, status_mode mode)
{
    // The table arrives with the window; batch mode has none.
    Q_UNUSED(ident)
    Q_UNUSED(text)
    Q_UNUSED(mode)
}

void core::warn(const QString& title, const QString& text)
{
    if (m_mode == interactive)
        QMessageBox::warning(nullptr, title, text);
    else
        log(fixed_names::sources::core, QStringLiteral("%1: %2").arg(title, text));
}

void core::refresh_status_bar()
{
    // The status bar arrives with the window.
}

void core::on_window_run_list(bool no_add, bool fetch_only, bool force_update, QStringList idents)
{
    if (idents.isEmpty()) {
        for (const QString& ident : m_manager.lines()) {
            if (m_manager.find(ident)->get(tasks::keys::selected).toBool())
                idents << ident;
        }
    }
    if (m_mode == interactive) {
        if (m_manager.count() == 0) {
            warn(tr("The list is empty"), tr("No tasks. Import the task list or add a new one."));
            return;
        }
        if (idents.isEmpty()) {
            warn(tr("Nothing is selected"), tr("Select at least one task before launching."));
            return;
        }
    }
    const int update_mode = fetch_only ? 0 : (force_update ? 2 : 1);
    log(fixed_names::sources::core, tr("Launching %n tasks...", nullptr, idents.size()), { fixed_names::tags::tasks });

    m_manager.set_launch_list(idents);
    if (!no_add) {
        for (const QString& ident : qAsConst(idents)) {
            if (!m_manager.contains(ident))
                continue;
            const tasks::task identify(tasks::names::identify);
            tasks::task check(tasks::names::check_updates, identify);
            check.set(tasks::args::force_update, update_mode == 2);
            m_manager.add_task(ident, identify);
            m_manager.add_task(ident, check);
            if (update_mode != 0) {
                const tasks::task flash(tasks::names::flash, check);
                m_manager.add_task(ident, flash);
                m_manager.add_task(ident, tasks::task(tasks::names::confirm, flash));
            }
        }
    }
    m_manager.launch();
    refresh_status_bar();
}

void core::on_window_run_list(bool no_add, bool fetch_only, bool force_update)
{
    on_window_run_list(no_add, fetch_only, force_update, {});
}

void core::on_window_run_list(bool no_add)
{
    on_window_run_list(no_add, false, false, {});
}

void core::on_window_run_list()
{
    on_window_run_list(false, false, false, {});
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

void core::on_task_manager_flow_started(const QString& ident)
{
    const auto l = m_manager.find(ident);
    log(source_of(ident), tr("Started with %n tasks", nullptr, l ? l->pending() : 0), { fixed_names::tags::tasks });
    refresh_status_bar();
}

void core::on_task_manager_task_running(const QString& flow, const QString& name, const QString& uuid)
{
    Q_UNUSED(uuid)
    const auto l = m_manager.find(flow);
    if (!l)
        return;
    log(source_of(flow), tr("Task %1 started").arg(name), { fixed_names::tags::tasks });
    l->set(tasks::keys::selected, true);
    // Steps are dispatched once the device layer exists; until then every task is unknown
    // and holds its flow, as an unknown task must.
    log(source_of(flow), tr("Unknown task: %1").arg(name), { fixed_names::tags::tasks });
}

void core::on_task_manager_flow_ended(const QString& ident)
{
    const auto l = m_manager.find(ident);
    log(source_of(ident), tr("Flow ended"), { fixed_names::tags::tasks });
    tasks::common_data result { tr("Done"), true };
    if (l && l->params().contains(tasks::keys::result))
        result = l->get(tasks::keys::result).value<tasks::common_data>();
    set_status(ident, result.text, result.ok ? status_success : status_failure);
    refresh_status_bar();
    if (m_manager.running_count() == 0) {
        log(fixed_names::sources::core, tr("-- all done --"), { fixed_names::tags::core });
        if (m_mode == batch)
            QCoreApplication::quit();
    }
}
