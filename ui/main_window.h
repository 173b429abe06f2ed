#pragma once

#include <QMainWindow>
#include <QStringList>
#include <QVariantList>

#include "ui/column_layout.h"
#include "ui/model_structures.h"

class QAction;
class QComboBox;
class QLabel;
class QListWidget;
class QMenu;
class QSettings;
class QSplitter;
class QTableView;
class QTimer;
class QToolBar;
class main_model_filter;
class status_delegate;

// The application's one main window: device table, log pane, toolbars, menus and
// status bar. It decides nothing: every action is a signal, and core calls back
// into its public operations.
class main_window final : public QMainWindow
{
    Q_OBJECT
public:
    // Restores geometry, state and the log pane from the group "Window" of settings.
    explicit main_window(QSettings& settings, QWidget* parent = nullptr);
    ~main_window() override;
    Q_DISABLE_COPY_MOVE(main_window)

    // Shows the table through the filter and restores the stored column layout.
    void set_model(main_model_filter* filter);

    // The line joins the pane with the others of the moment, within log_batch_ms.
    void append_log(const QString& line);
    // Rebuilds the pane, as when the log filter changes.
    void set_log(const QStringList& lines);
    // Collapses or opens the log pane below the table.
    void set_log_visible(bool visible);

    // The permanent label shows the offline sign; remote actions are greyed.
    void set_offline(bool offline);
    // Locks the actions that edit the list or start work while a run is active.
    void set_running(bool running);
    void show_status(const QString& text);
    // The counts of the run by outcome, beside the status message.
    void show_summary(const QString& text);

    // The script form of a column layout ("display:120", "status:40%", "mac");
    // unlisted columns are hidden. The number of fields applied; 0 leaves the layout.
    int set_column_layout(const QStringList& fields);
    // The layout as it stands, in the stored form.
    column_layout current_column_layout() const;
    // Every column shown in its own place, the widths shared evenly.
    void reset_column_layout();

    QTableView* table() const { return m_table; }
    QListWidget* log_list() const { return m_log; }
    // A fleet logs thousands of lines within a second, and every addition lays the whole
    // list out again: lines that come together are added together.
    static constexpr int log_batch_ms = 100;
    QMenu* menu_actions() const { return m_menu_actions; }
    QMenu* menu_options() const { return m_menu_options; }
    QToolBar* fastbar() const { return m_fastbar; }
    QToolBar* scriptbar() const { return m_scriptbar; }

signals:
    void help();
    void import(const QString& file);
    void export_data(const QString& file);
    void export_report(const QString& file);
    void scan();
    void settings();
    void cmdline();
    void quit();
    // moc gives the shorter overloads (no idents; then no force_update) from the defaults.
    void run_list(bool no_add, bool fetch_only, bool force_update = false, const QStringList& idents = {});
    void clear_list();
    void add_element();
    void edit_element(const QString& ident);
    void delete_element(const QString& ident);
    void selection_request(model_structures::selection_type type);
    void apply_pack();
    void error_list();
    void lang();
    void about();
    void copy_status(const QString& ident);
    void script_toolbar_action(const QString& uuid);
    void script_toolbar_btn(const QString& action);
    void action_menu_executed(int cmd, const QVariantList& args);
    void option_menu_executed(const QString& cmd, const QVariantList& args, bool checked);

protected:
    void closeEvent(QCloseEvent* event) override;
    void showEvent(QShowEvent* event) override;
    void changeEvent(QEvent* event) override;

private slots:
    void on_act_quit_triggered();
    void on_act_import_triggered();
    void on_act_run_triggered();
    void on_act_clear_triggered();
    void on_act_add_triggered();
    void on_act_edit_triggered();
    void on_act_delete_triggered();
    void on_act_about_triggered();
    void on_act_scan_triggered();
    void on_act_fetch_only_triggered();
    void on_act_apply_pack_triggered();
    void on_act_select_all_triggered();
    void on_act_select_inverted_triggered();
    void on_act_select_none_triggered();
    void on_act_errors_triggered();
    void on_act_force_update_triggered();
    void on_act_lang_triggered();
    void on_act_settings_triggered();
    void on_act_cmdline_triggered();
    void on_act_export_triggered();
    void on_act_export_report_triggered();
    void on_act_help_triggered();
    void on_act_run_tasks_triggered();
    void on_act_run_tasks_2_triggered();
    void on_act_copy_status_triggered();
    void on_table_data_doubleClicked(const QModelIndex& index);
    void on_table_data_customContextMenuRequested(const QPoint& pos);

private:
    QAction* make_action(const char* name, const char* icon, const char* shortcut);
    void build_widgets();
    void build_actions();
    void build_menus();
    void retranslate();
    void update_action_states();
    // The ident of the first selected index's row; empty without a selection.
    QString selected_ident() const;
    void apply_fields(const QVector<column_layout::field>& fields);
    void apply_default_widths();
    void flush_log();
    void restore_window();
    void restore_columns();
    void save_window();

    QSettings& m_settings;
    main_model_filter* m_filter = nullptr;
    status_delegate* m_delegate = nullptr;

    QWidget* m_central = nullptr;
    QSplitter* m_splitter = nullptr;
    QTableView* m_table = nullptr;
    QListWidget* m_log = nullptr;
    QStringList m_log_pending; // lines not yet in the pane
    QTimer* m_log_timer = nullptr;
    QLabel* m_status_label = nullptr;
    QLabel* m_summary_label = nullptr;
    QLabel* m_row_filter_label = nullptr;
    QComboBox* m_row_filter = nullptr;
    QMenu* m_context_menu = nullptr;
    QMenu* m_menu_application = nullptr;
    QMenu* m_menu_queue = nullptr;
    QMenu* m_menu_help = nullptr;
    QMenu* m_menu_actions = nullptr;
    QMenu* m_menu_options = nullptr;
    QToolBar* m_toolbar = nullptr;
    QToolBar* m_fastbar = nullptr;
    QToolBar* m_scriptbar = nullptr;

    QAction* act_quit = nullptr;
    QAction* act_import = nullptr;
    QAction* act_run = nullptr;
    QAction* act_clear = nullptr;
    QAction* act_add = nullptr;
    QAction* act_edit = nullptr;
    QAction* act_delete = nullptr;
    QAction* act_about = nullptr;
    QAction* act_scan = nullptr;
    QAction* act_fetch_only = nullptr;
    QAction* act_apply_pack = nullptr;
    QAction* act_select_all = nullptr;
    QAction* act_select_inverted = nullptr;
    QAction* act_select_none = nullptr;
    QAction* act_errors = nullptr;
    QAction* act_force_update = nullptr;
    QAction* act_lang = nullptr;
    QAction* act_settings = nullptr;
    QAction* act_cmdline = nullptr;
    QAction* act_export = nullptr;
    QAction* act_export_report = nullptr;
    QAction* act_help = nullptr;
    QAction* act_run_tasks = nullptr;
    QAction* act_run_tasks_2 = nullptr;
    QAction* act_copy_status = nullptr;

    bool m_default_widths_pending = true;
    bool m_running = false;
    bool m_offline = false;
};
