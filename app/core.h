#pragma once

#include "app/menu_options.h"
#include "diagnostics/log_history.h"
#include "diagnostics/loggable.h"
#include "tasks/common_data.h"
#include "tasks/manager.h"
#include "tasks/task_element.h"

#include <QMutex>
#include <QObject>
#include <QSettings>
#include <QStringList>
#include <QTranslator>

#include <memory>

class blackbox;

// The switchboard: owns every subsystem, turns launches into flows and worker
// reports into row states, and keeps the log the whole program shares.
class core final : public QObject, public loggable
{
    Q_OBJECT
public:
    enum operation_mode { interactive = 0, batch = 1 };
    Q_ENUM(operation_mode)

    // Colour modes of a status cell.
    enum status_mode { status_failure = 0, status_success = 1, status_progress = 2, status_none = 3 };

    core(const QString& own_checksum, const QString& application_path);
    ~core() override;
    Q_DISABLE_COPY_MOVE(core)

    // Brings up the rest of the program; false makes main return 1.
    bool operate(operation_mode mode, bool offline);
    operation_mode mode() const { return m_mode; }

    // The user log: standard output, the blackbox and the history; any thread.
    using loggable::log;
    void log(const QString& source, const QString& text, const QStringList& tags = { QStringLiteral("core") });

    // Loads the Qt and own translations of a locale and remembers it.
    void apply_language(const QString& locale_name);
    QString current_language() const { return m_current_language; }
    // "English name (native name)" by locale name, as the language menu offers them.
    const QMap<QString, QString>& languages() const { return m_languages; }

    // Adds a row for a device: a line, its parameters and its first worker.
    void introduce(const task_element& element);

    // Paths of the program's files for this run.
    bool portable() const { return m_portable; }
    QString settings_path() const;
    QString log_path() const;

    QSettings& settings() { return *m_settings; }
    tasks::manager& task_manager() { return m_manager; }
    log_history& history() { return m_history; }
    const menu_options& options() const { return m_options; }
    bool remote_enabled() const { return m_remote_enabled; }
    quint64 session_number() const { return m_session_number; }
    uint limit_concurrent_tasks() const { return m_limit_concurrent_tasks; }
    bool encrypt_passwords_on_export() const { return m_encrypt_passwords_on_export; }
    bool short_device_address_display() const { return m_short_device_address_display; }

    // Stage texts shown on the splash; counted in both modes.
    int stage_number() const { return m_stage_number; }
    int stage_total() const { return m_stage_total; }

public slots:
    // Launch: compose the update chain on each line (unless no_add) and start the flows.
    void on_window_run_list(bool no_add, bool fetch_only, bool force_update, QStringList idents);
    void on_window_run_list(bool no_add, bool fetch_only, bool force_update);
    void on_window_run_list(bool no_add);
    void on_window_run_list();
    void on_window_option_menu_executed(const QString& cmd, const QVariantList& args, bool checked);
    void on_window_quit();

signals:
    void stage_changed(const QString& text, int number, int total);

private slots:
    void on_task_manager_flow_started(const QString& ident);
    void on_task_manager_flow_ended(const QString& ident);
    void on_task_manager_task_running(const QString& flow, const QString& name, const QString& uuid);

private:
    void register_meta_types();
    void stage(const QString& text);
    void read_mirrors();
    void switch_remote(bool enabled);
    // Sets the status cell of a row (no-op without a table).
    void set_status(const QString& ident, const QString& text, status_mode mode);
    QString source_of(const QString& ident) const;
    // A warning box in interactive mode, a log line in batch.
    void warn(const QString& title, const QString& text);
    void refresh_status_bar();

    QString m_own_checksum;
    QString m_application_path;
    bool m_portable = true;
    operation_mode m_mode = interactive;
    bool m_cache_in_use = true;
    bool m_remote_enabled = true;
    bool m_short_device_address_display = false;
    bool m_encrypt_passwords_on_export = true;
    uint m_limit_concurrent_tasks = 0;
    uint m_functionality_change_policy = 1;
    menu_options m_options;
    QStringList m_requested_versions;
    quint64 m_session_number = 0;

    tasks::manager m_manager;
    log_history m_history;
    QMap<QString, QString> m_languages;
    QString m_current_language;
    std::unique_ptr<QTranslator> m_qt_translator;
    std::unique_ptr<QTranslator> m_translator;
    std::unique_ptr<QSettings> m_settings;
    std::shared_ptr<blackbox> m_blackbox;
    QMutex m_log_mutex; // serialises the user log; taken before the blackbox's own

    int m_stage_number = 0;
    int m_stage_total = 11;
};
