#pragma once

#include "app/menu_options.h"
#include "app/progress_mailbox.h"
#include "app/run_report.h"
#include "app/run_summary.h"
#include "delivery/client.h"
#include "delivery/pack_crypto.h"
#include "delivery/registration.h"
#include "delivery/updater.h"
#include "diagnostics/log_history.h"
#include "diagnostics/loggable.h"
#include "firmware_pack/pack_v3.h"
#include "plugins/core_functions.h"
#include "plugins/loader.h"
#include "scripting/actions_db.h"
#include "scripting/autorun.h"
#include "scripting/cmd_processor.h"
#include "scripting/cmddb.h"
#include "scripting/console.h"
#include "scripting/event_handler.h"
#include "scripting/event_listener.h"
#include "tasks/common_data.h"
#include "tasks/manager.h"
#include "tasks/task_element.h"
#include "sdk/prototype.h"
#include "sdk/scanner.h"
#include "ui/model_structures.h"
#include "ui/pack_list_model.h"

#include <QAtomicInt>
#include <QDeadlineTimer>
#include <QMutex>
#include <QObject>
#include <QSet>
#include <QSettings>
#include <QStringList>
#include <QThreadPool>
#include <QTimer>
#include <QTranslator>

#include <functional>
#include <memory>
#include <optional>
#include <vector>

class QTemporaryDir;
class about;
class apply_pack;
class blackbox;
class cmdline;
class help;
class lua_runtime;
class main_model;
class main_model_filter;
class main_window;
class port_setup;
class problem_report;
class sapi;
class splash;
class task_edit;
namespace settings {
class window;
}
namespace dynmenu {
class actions_menu;
class options_menu;
}
namespace dynwidgets {
class controller;
}

// The switchboard: owns every subsystem, turns launches into flows and worker
// reports into row states, and keeps the log the whole program shares.
class core final : public QObject, public loggable, private event::listener
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

    // Loads the Qt and own translations of a locale, remembers it and tells the plugins.
    void apply_language(const QString& locale_name);
    QString current_language() const { return m_current_language; }
    // "English name (native name)" by locale name, as the language menu offers them.
    const QMap<QString, QString>& languages() const { return m_languages; }

    // Adds a row for a device: a line, its parameters and its first worker.
    void introduce(const task_element& element);
    // The first line whose serial is this one; empty when none.
    QString line_by_serial(const QString& serial) const;
    // Reads a task list file and adds its rows; the number added.
    int import_task_file(const QString& path);
    // Writes the selected lines as a task list; the number written.
    int export_task_file(const QString& path, bool selected_only);
    // The rows of the last launch by outcome.
    run_summary summary() const;
    // Every line as the handover report shows it, by address.
    QList<run_report::row> report_rows() const;
    // Writes the handover report (HTML when the name ends in .html, else CSV); the number
    // of rows, or -1, logged, when it can't be written.
    int export_report(const QString& path);

    // A function of the flow ident and the task just made, giving a further task.
    using follow_up = std::function<std::optional<tasks::task>(const QString& ident, const tasks::task& made)>;
    // Composes one task per selected line and, unless no_launch, launches them.
    void add_task_to_selection(const QString& name, const parameters& args, const follow_up& then, bool no_launch);
    // The same, launching unless the autorun_tasks option is off.
    void run_on_selection(const QString& name, const parameters& args, const follow_up& then = {});
    // A follow-up that chains a reboot to the operation, so a failure takes the reboot with it.
    static follow_up chained_reboot();
    // Gives the selected lines 192.168.<third>.<start..> one device at a time, each awaited.
    void assign_addresses(int third_octet, int first_last_octet);
    // Starts flows with a limit of their own for this launch.
    void launch(const QStringList& idents, bool no_add, bool fetch_only, bool force_update, std::optional<uint> own_limit);

    // Starts a discovery: a single pass from the window, a count-limited run from scripts.
    // Refused (false, with a warning) while flows run or a scan runs.
    bool scan(std::optional<quint64> count = std::nullopt);
    scanner& lan_scanner() { return m_scanner; }
    bool scan_finished() const { return m_scan_finished; }
    // Removes every line (and row); refused while flows run.
    void clear_list();
    // The lines whose row is ticked, in the order of the manager's lines.
    QStringList selected_lines() const;

    // The OVScript interpreter and its vocabulary.
    cmd_processor& processor() { return *m_processor; }
    scripting::cmddb& command_db() { return m_cmddb; }
    // A script variable ${$task/...}, ${$env/...}, ${$last/...} by its path; none when the
    // path is unknown or too short.
    std::optional<QString> resolve_variable(const QStringList& path) const;
    // The same by its text ("env/local_ip/10.0.0.1"); empty when unknown.
    QString resolve_variable(const QString& path) const;
    // Where the outcome of a command reaches the next line.
    void set_last_result(bool ok, const QString& result);
    // The API that commands, Lua and plugins use.
    sapi& api() { return *m_sapi; }
    lua_runtime& lua() { return *m_lua; }
    plugins::loader& plugin_loader() { return *m_plugins; }
    // The built-in commands seen as a plugin.
    plugins::core_functions& builtin_functions() { return *m_core_functions; }
    // Tells a loaded plugin the language, joins its commands to the command table and hands
    // it the API; false, logged, when it has no instance or refuses to start.
    bool start_plugin(const QString& ident);
    // A toolbar button bound to a plugin's command ("plugin/number") was pressed; false,
    // logged, when no plugin has the identifier or the action failed.
    bool run_plugin_action(const QString& command_text);
    // True while a flow runs or the registrations that follow the flows go on: the run is
    // over, and "-- all done --" said, only once this is false.
    bool flows_busy() const;
    // Where scripted output shows; null while there is none (the log in batch mode).
    scripting::console* console() const;
    // Returns once condition no longer holds, showing message on the console meanwhile;
    // the event loop runs on.
    void wait_while(const std::function<bool()>& condition, const QString& message, scripting::console::animation kind);
    // Runs a script file: Lua through its command, anything else line by line through the
    // interpreter. False when it can't be read.
    bool run_script_file(const QString& path);
    // Script lines to the interpreter as one group, each shown in the console when it runs.
    void execute_script_lines(const QStringList& texts);
    // Runs a script file in batch mode and quits once it, every flow and the event actions
    // they led to have ended.
    bool run_batch_script(const QString& path);
    // The attachments of scripts to events, and the thread that fires them.
    event::handler& events() { return m_events; }
    // The quick actions of the script toolbar.
    scripting::actions_db& quick_actions() { return m_actions; }

    // The firmware pack files on offer: the application folder when portable, the data
    // locations otherwise; the cache only when asked for.
    QStringList find_packs(bool include_cache) const;
    // Opens a pack with the service identity's functions; true when it loaded without error.
    bool load_pack(std::shared_ptr<firmware_pack::pack>& pack, const QString& path);
    // A pack's targets, present when a line has the serial; only those with only_present.
    model_structures::device_list pack_targets(const std::shared_ptr<firmware_pack::pack>& pack, bool only_present) const;
    // The dialog's records for these files; a file that doesn't load adds its line to errors.
    QList<pack_list_model::record> pack_offers(const QStringList& files, QStringList& errors);
    // Adds apply_pack_firmware to every line of each target's serial and launches; always true.
    bool apply_firmware_pack(const std::shared_ptr<firmware_pack::pack>& pack, const model_structures::device_list& targets);
    // Whether the firmware cache is used; off from its first failure to the end of the run.
    bool cache_in_use() const { return m_cache_in_use; }

    // Paths of the program's files for this run.
    bool portable() const { return m_portable; }
    QString settings_path() const;
    QString log_path() const;
    QString plugin_folder() const;

    // The window family; null in batch mode.
    main_window* window() const { return m_window.get(); }
    // The command console; null in batch mode.
    cmdline* console_window() const { return m_cmdline.get(); }
    // The widgets that scripts put on toolbars; null in batch mode.
    dynwidgets::controller* widgets() const { return m_widgets.get(); }
    main_model* model() const { return m_model.get(); }
    problem_report* problem_list() const { return m_problems.get(); }

    QSettings& settings() { return *m_settings; }
    tasks::manager& task_manager() { return m_manager; }
    log_history& history() { return m_history; }
    const menu_options& options() const { return m_options; }
    // Stores the log tags that the window's pane shows.
    void set_log_filters(const QStringList& tags);
    // Reads the settings that the core mirrors again, as after the settings window.
    void reload_settings();
    bool remote_enabled() const { return m_remote_enabled; }
    // Switches remote communications (the update client, the window's remote actions).
    void switch_remote(bool enabled);
    client& service() { return m_client; }
    // Device and MAC registration with the service; its record of registered devices lasts the run.
    delivery::registration& registrations() { return m_registration; }
    updater& self_updater() { return m_updater; }
    const QStringList& requested_versions() const { return m_requested_versions; }
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
    // An entry of the Actions menu: its operation goes on every selected row.
    void on_window_action_menu_executed(scripting::commands cmd, const QVariantList& args);
    void on_window_quit();
    void on_window_import(const QString& file);
    void on_window_export(const QString& file);
    void on_window_export_report(const QString& file);
    void on_window_add_element();
    void on_window_edit_element(const QString& ident);
    void on_window_copy_status(const QString& ident);
    void on_window_selection_request(model_structures::selection_type type);
    void on_window_about();
    void on_window_help();
    void on_window_cmdline();
    void on_window_settings();
    // The settings window stored its form: the core takes the new values at once.
    void on_settings_accepted();
    void on_settings_applied();
    // A command clicked in the help: run at once, or offered in the console's input.
    void on_help_cmd_clicked(const QString& cmd, bool execute);
    void on_window_error_list();
    void on_window_lang();
    void on_window_scan();
    void on_window_clear_list();
    void on_window_delete_element(const QString& ident);
    void on_window_model_selection_changed(const QString& ident, bool state);
    void on_window_apply_pack();
    void on_apply_pack_accepted(const model_structures::device_list& targets);
    void on_task_edit_added(const QList<endpoint>& data);
    void on_task_edit_edited(const QString& ident, const endpoint& data);
    // A quick action by its identifier, or "macro:<name>" for a macro.
    void on_window_script_toolbar_action(const QString& uuid);
    // A script widget's button: its action text, taken as above.
    void on_window_script_toolbar_btn(const QString& action);

signals:
    void stage_changed(const QString& text, int number, int total);
    // A program event for scripts that attached actions to it ("scanner_done", "task_done", ...).
    void event_raised(const QString& name, const QStringList& args);

private slots:
    void on_task_manager_flow_started(const QString& ident);
    void on_task_manager_flow_ended(const QString& ident);
    void on_task_manager_task_running(const QString& flow, const QString& name, const QString& uuid);
    void on_sdk_done(const QString& ident);
    void on_sdk_failed(const QString& ident, signed int error, const QString& description);
    void on_sdk_data_available(const QString& ident, const parameters& p);
    void on_sdk_flash_progress(const QString& ident, sdk::prototype::flash_progress_type stage, uint current, uint total);
    void on_sdk_status_update(const QString& ident, const QString& status);
    void on_client_failed(const client::queued_data& qd, client::error_codes code, uint descriptive);
    void on_client_canceled(const client::queued_data& qd);
    void on_client_update_found(const QString& serial, const client::update_resp& resp);
    void on_client_file_received(const QString& version, const QByteArray& data);
    void on_client_confirmed(const QString& serial);
    void on_scanner_device_found(const mac& address, const device& dev);
    void on_scanner_device_lost(const mac& address);
    void on_scanner_done(bool interrupted);
    void on_updater_new_update_available(const updater::update_info& info);
    void on_updater_downloaded();
    void on_updater_download_failed(const QString& text);
    // A line typed in the console: OVScript to the interpreter, Lua to the runtime.
    void on_cmdline_input(const QUuid& ident, scripting::script_type type, const QString& line);
    void on_cmdline_script_requested(const QString& file);
    void on_lua_runtime_error(const QString& message);
    void on_lua_runtime_log(const QString& message);
    void on_plugin_loader_message(const QString& message);
    void on_cmd_processor_output(const QString& message);
    void on_cmd_processor_parse_error(const QUuid& ident, const QString& message);
    // Runs one interpreter command while the interpreter thread waits for it.
    void on_cmd_processor_command(QUuid ident, uint command_n, size_t commands_total, QString line,
        scripting::cmd_id command, QStringList args, param_list params, cmd_processor::execution_mode mode);

private:
    using operation = std::function<bool(sdk::prototype* worker, tasks::line& line)>;
    using operation_follow_up = std::function<void(bool accepted, tasks::line& line)>;
    using device_task = void (core::*)(const QString& ident);

    // The worker of a line, made or replaced so it is of the wanted type.
    bool ensure_worker(tasks::line& line, int type);
    static sdk::prototype* worker_of(const tasks::line& line);
    void delete_worker(tasks::line& line);
    // Takes the worker off a line that goes: it is deleted once its thread has ended, so that
    // the window never waits for a device's time-out.
    void retire_worker(tasks::line& line);
    void drop_finished_workers();
    // Every device operation: status text, the operation, its failure text, a follow-up.
    void common_step(const QString& ident, const QString& status, const operation& op, const QString& failure,
        const operation_follow_up& then = {});
    void cancel(const QString& ident);
    tasks::task* running_task(const QString& ident);
    // Whether the line's flow runs and stands at one of these steps. A report meant for
    // another step (late, repeated, or for a flow that has ended) is not for it.
    bool at_step(const QString& ident, const QStringList& steps) const;
    // The one way a step fails: unless the line stands at one of the steps, nothing happens
    // and false comes back. Otherwise the text is logged (when there is one), the result
    // stored, the cell turns red, the dependents are cancelled and the manager is told,
    // unless `hold` keeps the line at its step with its slot.
    bool fail_step(const QString& ident, const QStringList& steps, const QString& log_text, const QString& result_text,
        bool hold = false);
    // The line of this serial that stands at the step: the one waiting for the service's answer.
    QString line_waiting(const QString& serial, const QString& step) const;
    // Marks the device (by "address" or "serial" key) as this flow's; the flow that holds it
    // already, when another running flow does.
    QString claim_device(const QString& key, const QString& ident);
    // Fails the step of a second row of a device that another flow is working on.
    void refuse_device_in_work(const QString& ident, const QString& step, const QString& holder);
    // Row texts; no-ops while there is no table.
    void set_row_address(const QString& ident);
    void set_row_info(const QString& ident, const QString& serial, const QString& description);
    // Adds a service failure to the problem list; interactive only.
    void add_problem(const client::queued_data& qd, const QString& text);
    // Whether a row of user text is refused because the task list couldn't hold it; logged.
    bool refused_as_row(const endpoint& ep);
    // Builds the settings window and joins its results to the core.
    void build_settings_window();
    // The settings window stores its form; the core re-reads what it mirrors.
    void take_settings();
    // The row's address text, short or full as the setting says.
    QString address_text(const endpoint& ep) const;
    // Makes the limit of open files fit this many devices at work at once; logs when it can't.
    void raise_open_file_limit(quint64 devices);
    // Builds the window, the table and their connections (stage "Interface").
    void build_interface();
    // The console window, its place on the screen and the interpreter's state on it.
    void build_console();
    void save_console_geometry();
    void set_running_state(bool running);

    void dt_identify(const QString& ident);
    void dt_check_updates(const QString& ident);
    void dt_update(const QString& ident);
    void dt_confirm(const QString& ident);
    // Flashes data on a line with the backend its offer names; also the path of packs. Data
    // that isn't the file its offer names (empty, or another MD5) fails the step instead.
    void apply_firmware(const QString& ident, const QByteArray& data);
    void finish_flash(const QString& ident, bool ok, const QString& text);
    // After a flash, asks the device again (once it is back) which version it runs.
    void dt_verify_flash(const QString& ident);
    void try_verify_flash(const QString& ident);
    // The device didn't answer at verify_flash: asked again later, until the time is up.
    void retry_verify_flash(const QString& ident, const QString& reason);
    // The answer of the device at verify_flash: a new version passes, the old one fails.
    void verify_version(const QString& ident, const parameters& p);
    // The flows of these lines start again from waiting in the summary.
    void begin_outcomes(const QStringList& idents);
    // Keeps what a flow ended with for the summary and the report.
    void record_outcome(const QString& ident, const tasks::common_data& result);
    // The offer a line works with: the first of its new_version.
    static client::update_resp::offer offer_of(const tasks::line& line);
    // The lines standing at flash for this firmware, not yet handed it.
    QStringList lines_waiting_for(const QString& firmware) const;
    void clean_up_worker(const QString& ident, const QString& log_text);
    // Hands the service identity and address from the settings to the client.
    void configure_service(bool offline);
    void dt_apply_pack_firmware(const QString& ident);
    // Creates or loads the cache at start-up (stages "Creating cache", "Loading cache").
    void open_cache();
    // The firmware from the cache, checked against its identifier; empty when it isn't there
    // or fails, and a failure turns the cache off.
    QByteArray cached_firmware(const QString& firmware);
    // Checks the next download and adds it to the cache on m_store_thread, one at a time: a
    // 16 MiB firmware takes the main thread a quarter of a second.
    void store_next_file();
    // Back on the main thread: the lines waiting for the firmware get it once it is checked.
    void file_stored(const QString& firmware, const QByteArray& data, bool intact,
        const std::optional<firmware_pack::pack_v3::pending_add>& add);
    // Hands the lines in m_to_serve their firmware, a slice per turn of the event loop.
    void serve_waiting_lines();
    // Whether data is the firmware file of this identifier: not empty, and its MD5.
    bool checked_firmware(const QString& firmware, const QByteArray& data);
    // The same without remembering it, for any thread.
    static bool firmware_intact(const QString& firmware, const QByteArray& data);
    void dt_await_device(const QString& ident);
    void dt_change_ip(const QString& ident);
    void dt_change_port(const QString& ident);
    void dt_change_subnet(const QString& ident);
    void dt_change_transefer_policy(const QString& ident);
    void dt_fix_device(const QString& ident);
    void dt_import_configuration(const QString& ident);
    void dt_reboot(const QString& ident);
    void dt_reset_configuration(const QString& ident);
    void dt_set_dhcp(const QString& ident);
    void dt_set_language(const QString& ident);

    // What a device of the update flow is registered with once its flow has ended, and
    // what the options asked for when it was queued.
    struct registration_item
    {
        QString source;
        QString serial;
        QString hardware;
        QString version;
        QString host;
        uint16_t port = 0;
        bool device = false;
        bool mac = false;
    };
    // Keeps the identified device of a line in the update flow for registration.
    void remember_for_registration(const QString& ident);
    // At the end of its flow, queues the line's device when the options want registration.
    void queue_registration(const QString& ident);
    // Hands queued devices to the registration threads while one is free; a serial already
    // on its way waits for its answer.
    void run_registrations();
    // Back on the main thread once a device's registration calls have returned.
    void registration_finished(const QString& serial);
    bool registrations_pending() const;
    bool registration_wanted() const;
    // These two run on a registration thread.
    void register_device(const registration_item& item);
    void register_mac(const registration_item& item);
    // The local address and MAC of the interface that faces a host: the operator's machine as
    // the device sees it. Reads nothing of the core, so registration threads use it too.
    static std::pair<QString, QString> facing_address(const QString& host);
    // "-- all done --" once no flow runs and no registration waits.
    void end_if_idle();
    // Gives every command its meaning; an unknown number fails.
    scripting::command_result execute_processor_command(const QUuid& ident, uint command_n, size_t commands_total,
        const QString& line, const scripting::cmd_id& command, const QStringList& args, const param_list& params,
        cmd_processor::execution_mode mode);
    // The interpreter and its handler of ${$...}, wired to this object.
    void build_interpreter();
    // Ends the interpreter's thread, also while it waits inside a command of this object.
    void stop_interpreter();
    // The scripting API with what it calls back here.
    void build_api();
    // The Lua runtime with the functions its `orvane` table calls here.
    void build_lua();
    // Stages "Loading plugins" and "Starting plugins".
    void start_plugins();
    // A command of a plugin goes to the plugin that owns it.
    void run_plugin_command(const scripting::cmd_id& command, const QStringList& args, const param_list& params);
    // Stage "Script autorun": the enabled files of the autorun list, when autorun is on.
    void run_autorun();
    // Makes the batch run end once the scripts, the flows and the events are idle, looking now and then.
    void watch_script_run();
    // Quits a batch script run once the script and every flow have ended.
    void end_script_run_if_done();
    // Handler thread: plays the macro an attachment names.
    void on_event(const QString& name, const QStringList& args, const QString& action_type,
        const QString& action_value) override;
    // A quick action's built-in command, run here outside the interpreter's queue.
    void run_toolbar_command(const scripting::cmd_id& command);
    // A widget operation of a script on a named toolbar ("show", "hide", "add", "edit", "delete").
    bool run_toolbar_operation(
        const QString& name, const QString& operation, const QStringList& args, const param_list& params);
    // Stages "Actions" and "Actions toolbar": the stored quick actions on the script toolbar.
    void load_quick_actions();

    // Asks for a port of the type an Actions entry names, then changes it on the selection.
    void change_port_of_selection(const QString& entry);
    // Plays the macro whose name the variable holds; without one, the text with the variable's name.
    void play_menu_macro(const QString& variable, const QString& missing_text);

    void register_meta_types();
    void stage(const QString& text);
    void read_mirrors();
    // Sets the status cell of a row (no-op without a table).
    void set_status(const QString& ident, const QString& text, status_mode mode);
    QString source_of(const QString& ident) const;
    // A warning box in interactive mode, a log line in batch.
    void warn(const QString& title, const QString& text);
    void refresh_status_bar();
    // The same, a moment later: each refresh reads every launched row, and a
    // fleet's thousand rows start and end in bursts.
    void refresh_status_bar_soon();
    void show_status_message(const QString& text);
    void raise_event(const QString& name, const QStringList& args = {});
    static task_element element_of(const device& dev);

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
    QHash<QString, device_task> m_dispatch;
    QStringList m_worker_steps; // the tasks a worker reports on: all but the service's
    QHash<QString, QString> m_devices_in_work; // device key -> the flow working on it
    QHash<QString, QSet<QString>> m_keys_in_work; // flow -> the device keys it has claimed
    QHash<QString, registration_item> m_identified; // by flow ident, until the flow ends
    QHash<QString, QDeadlineTimer> m_verify_deadlines; // by flow ident, while verify_flash waits for the device
    QList<registration_item> m_registration_queue;
    QSet<QString> m_serials_registering; // handed to a registration thread, not yet back
    std::vector<std::unique_ptr<sdk::prototype>> m_retired_workers; // of deleted lines, still working

    std::unique_ptr<main_model> m_model;
    std::unique_ptr<main_model_filter> m_filter;
    std::unique_ptr<main_window> m_window;
    std::unique_ptr<splash> m_splash;
    std::unique_ptr<problem_report> m_problems;
    std::unique_ptr<task_edit> m_task_edit;
    std::unique_ptr<apply_pack> m_apply_pack;
    std::unique_ptr<port_setup> m_port_setup;
    std::unique_ptr<dynmenu::actions_menu> m_actions_menu;
    std::unique_ptr<dynmenu::options_menu> m_options_menu;
    std::unique_ptr<dynwidgets::controller> m_widgets;
    std::unique_ptr<about> m_about;
    std::unique_ptr<help> m_help;
    std::unique_ptr<cmdline> m_cmdline;
    std::unique_ptr<settings::window> m_settings_window;
    firmware_pack::pack_v3 m_cache;
    // Firmware checked against its identifier, one copy shared by every line that needs it.
    QHash<QString, QByteArray> m_checked_firmware;
    client m_client;
    delivery::registration m_registration;
    // Registration calls block their thread for a round trip each: a few run at once, off the
    // main thread. Waited for first in the destructor, as they log.
    QThreadPool m_registration_threads;
    // Downloads waiting for their check and cache write, and one thread to do them. m_cache is
    // only read on the main thread while a write runs; the thread is waited for in the
    // destructor, so a block is never left half-written.
    QList<QPair<QString, QByteArray>> m_files_to_store;
    bool m_storing = false;
    // Lines at flash whose firmware has come, in the order they are handed it.
    QStringList m_to_serve;
    bool m_status_bar_due = false;
    // The workers' flash progress, painted as often as the status bar is refreshed.
    progress_mailbox m_progress { 100 };
    QThreadPool m_store_thread;
    updater m_updater;
    delivery::pack_crypto m_crypto;
    tasks::manager m_manager;
    scanner m_scanner;
    bool m_scan_finished = true;
    log_history m_history;
    QMap<QString, QString> m_languages;
    QString m_current_language;
    std::unique_ptr<QTranslator> m_qt_translator;
    std::unique_ptr<QTranslator> m_translator;
    std::unique_ptr<QSettings> m_settings;
    std::unique_ptr<QTemporaryDir> m_settings_stand_in; // holds the settings of a run whose file can't be read
    std::shared_ptr<blackbox> m_blackbox;
    scripting::cmddb m_cmddb;
    std::unique_ptr<cmd_processor> m_processor;
    std::unique_ptr<lua_runtime> m_lua;
    std::unique_ptr<plugins::loader> m_plugins;
    std::unique_ptr<plugins::core_functions> m_core_functions;
    std::unique_ptr<sapi> m_sapi;
    std::unique_ptr<scripting::console> m_log_console; // batch mode's console
    scripting::actions_db m_actions;
    scripting::autorun m_autorun;
    event::handler m_events;
    QAtomicInt m_event_messages = 0; // said by event actions, not yet shown on the main thread
    bool m_script_run = false; // quit when the script and the flows have ended
    QTimer m_script_watch;
    QMutex m_log_mutex; // serialises the user log; taken before the blackbox's own

    int m_stage_number = 0;
    int m_stage_total = 11;
};
