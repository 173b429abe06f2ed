#pragma once

#include "scripting/autorun.h"

#include <QDialog>
#include <QItemSelection>
#include <QVariant>

#include <functional>

class QButtonGroup;
class QCheckBox;
class QComboBox;
class QDialogButtonBox;
class QGroupBox;
class QLabel;
class QListView;
class QPushButton;
class QRadioButton;
class QSettings;
class QSlider;
class QSpinBox;
class QStackedWidget;
class QTabWidget;
class QTableView;
class QTreeView;
class edit_script;
class script_action;
class settings_groups_model;
class settings_script_autorun_model;

namespace scripting
{
class actions_db;
class autorun;
} // namespace scripting

namespace settings
{

// Everything of the program that isn't a menu option. It keeps nothing between showings:
// each show reads the settings file and the two stores again, and only save() writes them.
class window final : public QDialog
{
    Q_OBJECT
public:
    // Where an autorun entry's file lies; the entry itself when it resolves to nothing.
    using path_resolver = std::function<QString(const QString& file)>;

    window(QSettings* settings, scripting::actions_db* actions, scripting::autorun* autorun,
        const QString& application_folder, QWidget* parent = nullptr);
    ~window() override;
    Q_DISABLE_COPY_MOVE(window)

    void set_path_resolver(path_resolver resolve) { m_resolve = std::move(resolve); }
    // Writes the form, the stores and the groups of the pages, in that order.
    void save();
    // The autorun entry of a chosen file: enabled, Lua by its suffix, and named relative to
    // the application folder when it lies directly in it.
    static scripting::autorun_entry autorun_entry_for(const QString& file, const QString& application_folder);

signals:
    void applied();

private slots:
    void on_groups_activated(const QModelIndex& index);
    void on_scripting_actions_activated(const QModelIndex& index);
    void on_scripting_toolbar_add_clicked();
    void on_scripting_toolbar_add_separator_clicked();
    void on_scripting_toolbar_remove_clicked();
    void on_scripting_toolbar_move_up_clicked();
    void on_scripting_toolbar_move_down_clicked();
    void on_script_autorun_add_btn_clicked();
    void on_script_autorun_edit_btn_clicked();
    void on_script_autorun_delete_btn_clicked();
    void on_script_autorun_enable_btn_clicked();
    void on_script_autorun_up_btn_clicked();
    void on_script_autorun_down_btn_clicked();
    void on_o_behavior_click_common_toggled(bool checked);
    void on_applied(bool checked);
    void s_scripting_toolbar_add_action();
    void s_scripting_toolbar_edit_action();
    void s_scripting_toolbar_delete_action();
    void s_scripting_toolbar_slider_sliderMoved(int value);
    void script_autorun_selection_changed(const QItemSelection& selected, const QItemSelection& deselected);
    void w_edit_script_done(const QString& name, const QString& contents);
    void w_script_action_done(
        const QVariant& tag, const QString& icon, const QString& title, uint mode, const QString& value);

protected:
    void showEvent(QShowEvent* event) override;
    void changeEvent(QEvent* event) override;

private:
    void build_general_page();
    void build_scripting_page();
    void build_autorun_page();
    void build_behavior_page();
    void build_help_page();
    void retranslate();
    void fill_click_boxes();
    void load();
    void load_click_group();
    void apply_icon_scale(int value);
    // Opens the action editor for a layout row holding an action.
    void edit_action_at(int row);
    QList<int> selected_rows(const QListView* view) const;
    QList<int> selected_autorun_rows() const;
    // Takes the selected layout row by one place; the end row stays where it is.
    void move_layout_row(int step);
    void move_autorun_row(int step);

    QSettings* m_settings;
    scripting::actions_db* m_actions;
    scripting::autorun* m_autorun;
    QString m_application_folder;
    path_resolver m_resolve;
    QString m_edited_script; // the file edit_script works on

    settings_groups_model* m_groups_model = nullptr;
    settings_script_autorun_model* m_autorun_model = nullptr;
    edit_script* m_edit_script = nullptr;
    script_action* m_script_action = nullptr;

    QTreeView* groups = nullptr;
    QStackedWidget* fields = nullptr;
    QDialogButtonBox* m_buttons = nullptr;

    QLabel* l_use_hardware_revisions = nullptr;
    QCheckBox* f_use_hardware_revisions = nullptr;
    QLabel* l_firmware_pack_functionality = nullptr;
    QComboBox* f_firmware_pack_functionality = nullptr;
    QLabel* l_device_address_display = nullptr;
    QCheckBox* f_device_address_display = nullptr;
    QLabel* l_encrypt_passwords_on_export = nullptr;
    QCheckBox* f_encrypt_passwords_on_export = nullptr;
    QLabel* l_limit_concurrent_tasks = nullptr;
    QSpinBox* f_limit_concurrent_tasks = nullptr;
    QGroupBox* g_functionality_fallback = nullptr;
    QLabel* l_functionality_switch = nullptr;
    QComboBox* f_functionality_switch = nullptr;

    QTabWidget* scripting_submenu = nullptr;
    QWidget* tab_editing = nullptr;
    QWidget* tab_customize = nullptr;
    QAction* m_new_action = nullptr;
    QAction* m_edit_action = nullptr;
    QAction* m_delete_action = nullptr;
    QLabel* l_icon_scale = nullptr;
    QSlider* m_icon_slider = nullptr;
    QLabel* l_icon_size = nullptr;
    QListView* scripting_actions = nullptr;
    QLabel* l_toolbar_available = nullptr;
    QListView* scripting_toolbar_available = nullptr;
    QLabel* l_toolbar_layout = nullptr;
    QListView* scripting_toolbar_layout = nullptr;
    QPushButton* scripting_toolbar_add = nullptr;
    QPushButton* scripting_toolbar_add_separator = nullptr;
    QPushButton* scripting_toolbar_remove = nullptr;
    QPushButton* scripting_toolbar_move_up = nullptr;
    QPushButton* scripting_toolbar_move_down = nullptr;

    QCheckBox* f_autorun_enabled = nullptr;
    QTableView* script_autorun = nullptr;
    QPushButton* script_autorun_add_btn = nullptr;
    QPushButton* script_autorun_edit_btn = nullptr;
    QPushButton* script_autorun_delete_btn = nullptr;
    QPushButton* script_autorun_enable_btn = nullptr;
    QPushButton* script_autorun_up_btn = nullptr;
    QPushButton* script_autorun_down_btn = nullptr;

    QGroupBox* g_task_double_click = nullptr;
    QRadioButton* o_behavior_click_common = nullptr;
    QRadioButton* o_behavior_click_individual = nullptr;
    QLabel* l_behavior_click_row = nullptr;
    QComboBox* f_behavior_click_row = nullptr;
    QLabel* l_behavior_click_address = nullptr;
    QComboBox* f_behavior_click_address = nullptr;
    QLabel* l_behavior_click_status = nullptr;
    QComboBox* f_behavior_click_status = nullptr;

    QLabel* l_help_execute_commands = nullptr;
    QCheckBox* f_help_execute_commands = nullptr;
    QLabel* l_help_language = nullptr;
    QComboBox* f_help_language = nullptr;
};

} // namespace settings
