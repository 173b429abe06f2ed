#include "ui/settings_window.h"

#include "scripting/actions_db.h"
#include "scripting/autorun.h"
#include "tasks/file_filters.h"
#include "ui/edit_script.h"
#include "ui/help.h"
#include "ui/long_entry_tooltips.h"
#include "ui/script_action.h"
#include "ui/settings_groups_model.h"
#include "ui/settings_script_autorun_model.h"

#include <QCheckBox>
#include <QComboBox>
#include <QCoreApplication>
#include <QDialogButtonBox>
#include <QDir>
#include <QEvent>
#include <QFile>
#include <QFileDialog>
#include <QFileInfo>
#include <QFormLayout>
#include <QGroupBox>
#include <QHBoxLayout>
#include <QHeaderView>
#include <QIdentityProxyModel>
#include <QLabel>
#include <QListView>
#include <QMessageBox>
#include <QPushButton>
#include <QRadioButton>
#include <QSaveFile>
#include <QSettings>
#include <QSlider>
#include <QSpinBox>
#include <QStackedWidget>
#include <QTabWidget>
#include <QTableView>
#include <QToolBar>
#include <QTreeView>
#include <QVBoxLayout>

#include <algorithm>

namespace settings
{

namespace
{

    const QString key_use_hardware_revisions = QStringLiteral("use_hardware_revisions");
    const QString key_firmware_pack_functionality = QStringLiteral("firmware_pack_functionality");
    const QString key_short_address = QStringLiteral("short_device_address_display");
    const QString key_encrypt_passwords = QStringLiteral("encrypt_passwords_on_export");
    const QString key_limit_tasks = QStringLiteral("limit_concurrent_tasks");
    const QString key_icon_scale = QStringLiteral("QuickActions/icon_scale");
    const QString key_autorun_enabled = QStringLiteral("Autorun/enabled");
    const QString click_group = QStringLiteral("Behavior/taskclick");
    constexpr int icon_step = 16;

    // The click actions by index, as the main window reads them.
    const char* const click_actions[] = {
        QT_TRANSLATE_NOOP("settings::window", "None"),
        QT_TRANSLATE_NOOP("settings::window", "Edit"),
        QT_TRANSLATE_NOOP("settings::window", "Run task"),
        QT_TRANSLATE_NOOP("settings::window", "Check updates"),
    };

    // The layout as the action list shows it: each action with its picture, the question mark
    // when the picture can't be loaded.
    class action_icons final : public QIdentityProxyModel
    {
    public:
        action_icons(const scripting::actions_db& actions, QObject* parent)
            : QIdentityProxyModel(parent)
            , m_actions(actions)
        {
        }

        QVariant data(const QModelIndex& index, int role) const override
        {
            if (role != Qt::DecorationRole)
                return QIdentityProxyModel::data(index, role);
            const QString identifier = index.data(scripting::actions_layout_model::identifier_role).toString();
            if (!m_actions.contains(identifier))
                return {};
            const QString icon = m_actions.action(identifier).icon;
            return QPixmap(icon).isNull() ? QIcon(QStringLiteral(":/svg/question")) : QIcon(icon);
        }

    private:
        const scripting::actions_db& m_actions;
    };

    template <typename T> T* named(T* widget, const char* name)
    {
        widget->setObjectName(QLatin1String(name));
        return widget;
    }

    QString help_key(const char* name)
    {
        return help::settings_group + QLatin1Char('/') + QLatin1String(name);
    }

} // namespace

window::window(QSettings* settings, scripting::actions_db* actions, scripting::autorun* autorun,
    const QString& application_folder, QWidget* parent)
    : QDialog(parent)
    , m_settings(settings)
    , m_actions(actions)
    , m_autorun(autorun)
    , m_application_folder(application_folder)
{
    setObjectName(QStringLiteral("settings"));
    groups = named(new QTreeView(this), "groups");
    groups->setHeaderHidden(true);
    groups->setMaximumWidth(180);
    fields = named(new QStackedWidget(this), "fields");
    build_general_page();
    build_scripting_page();
    build_autorun_page();
    build_behavior_page();
    build_help_page();

    m_buttons
        = named(new QDialogButtonBox(QDialogButtonBox::Ok | QDialogButtonBox::Apply | QDialogButtonBox::Cancel, this),
            "buttonBox");
    connect(m_buttons, &QDialogButtonBox::accepted, this, &QDialog::accept);
    connect(m_buttons, &QDialogButtonBox::rejected, this, &QDialog::reject);
    connect(m_buttons->button(QDialogButtonBox::Apply), &QPushButton::clicked, this, &window::on_applied);

    auto* pages = new QHBoxLayout;
    pages->addWidget(groups);
    pages->addWidget(fields, 1);
    auto* layout = new QVBoxLayout(this);
    layout->addLayout(pages);
    layout->addWidget(m_buttons);

    fields->setCurrentIndex(0);
    m_groups_model = new settings_groups_model(this);
    groups->setModel(m_groups_model);
    groups->expandAll();
    connect(groups, &QTreeView::activated, this, &window::on_groups_activated);
    connect(groups, &QTreeView::clicked, this, &window::on_groups_activated);

    m_autorun_model = new settings_script_autorun_model(this);
    script_autorun->setModel(m_autorun_model);
    script_autorun->horizontalHeader()->setSectionResizeMode(0, QHeaderView::Stretch);
    connect(script_autorun->selectionModel(), &QItemSelectionModel::selectionChanged, this,
        &window::script_autorun_selection_changed);
    script_autorun_selection_changed({}, {});

    fill_click_boxes();
    load_click_group();

    m_edit_script = new edit_script(this);
    connect(m_edit_script, &edit_script::done, this, &window::w_edit_script_done);
    m_script_action = new script_action(this);
    m_script_action->set_commands(&m_actions->commands_model());
    connect(m_script_action, &script_action::done, this, &window::w_script_action_done);

    auto* with_icons = new action_icons(*m_actions, this);
    with_icons->setSourceModel(&m_actions->layout_model());
    scripting_actions->setModel(with_icons);
    scripting_toolbar_layout->setModel(&m_actions->layout_model());
    scripting_toolbar_available->setModel(&m_actions->commands_model());

    auto* tooltips = new long_entry_tooltips(this);
    for (QAbstractItemView* view : std::initializer_list<QAbstractItemView*> {
             scripting_actions, scripting_toolbar_available, scripting_toolbar_layout, script_autorun })
        tooltips->watch(view);

    f_help_language->addItem(QString(), QString());
    f_help_language->addItem(QStringLiteral("English"), QStringLiteral("en_US"));
    f_help_language->addItem(QStringLiteral("Русский"), QStringLiteral("ru_RU"));
    retranslate();
    resize(760, 480);
}

window::~window() = default;

void window::build_general_page()
{
    auto* page = named(new QWidget(fields), "first");
    l_use_hardware_revisions = new QLabel(page);
    f_use_hardware_revisions = named(new QCheckBox(page), "f_use_hardware_revisions");
    l_firmware_pack_functionality = new QLabel(page);
    f_firmware_pack_functionality = named(new QComboBox(page), "f_firmware_pack_functionality");
    f_firmware_pack_functionality->addItems(
        { QStringLiteral("legacy"), QStringLiteral("xcloud"), QStringLiteral("xnet") });
    l_device_address_display = new QLabel(page);
    f_device_address_display = named(new QCheckBox(page), "f_device_address_display");
    l_encrypt_passwords_on_export = new QLabel(page);
    f_encrypt_passwords_on_export = named(new QCheckBox(page), "f_encrypt_passwords_on_export");
    l_limit_concurrent_tasks = new QLabel(page);
    f_limit_concurrent_tasks = named(new QSpinBox(page), "f_limit_concurrent_tasks");
    f_limit_concurrent_tasks->setRange(0, 100);
    g_functionality_fallback = new QGroupBox(page);
    l_functionality_switch = new QLabel(g_functionality_fallback);
    f_functionality_switch = named(new QComboBox(g_functionality_fallback), "f_functionality_switch");
    f_functionality_switch->addItems({ QString(), QString(), QString() });

    auto* fallback = new QFormLayout(g_functionality_fallback);
    fallback->addRow(l_functionality_switch, f_functionality_switch);
    auto* form = new QFormLayout;
    form->addRow(l_use_hardware_revisions, f_use_hardware_revisions);
    form->addRow(l_firmware_pack_functionality, f_firmware_pack_functionality);
    form->addRow(l_device_address_display, f_device_address_display);
    form->addRow(l_encrypt_passwords_on_export, f_encrypt_passwords_on_export);
    form->addRow(l_limit_concurrent_tasks, f_limit_concurrent_tasks);
    auto* layout = new QVBoxLayout(page);
    layout->addLayout(form);
    layout->addWidget(g_functionality_fallback);
    layout->addStretch();
    fields->addWidget(page);
}

void window::build_scripting_page()
{
    auto* page = named(new QWidget(fields), "page_2");
    scripting_submenu = named(new QTabWidget(page), "scripting_submenu");
    tab_editing = named(new QWidget(scripting_submenu), "tab_editing");
    tab_customize = named(new QWidget(scripting_submenu), "tab_customize");

    auto* area = named(new QWidget(tab_editing), "scripting_editing_toolbar_area");
    auto* bar = new QToolBar(area);
    m_new_action = bar->addAction(QIcon(QStringLiteral(":/svg/add_file")), QString());
    m_edit_action = bar->addAction(QIcon(QStringLiteral(":/svg/edit_file")), QString());
    m_delete_action = bar->addAction(QIcon(QStringLiteral(":/svg/delete_file")), QString());
    bar->addSeparator();
    l_icon_scale = new QLabel(bar);
    bar->addWidget(l_icon_scale);
    m_icon_slider = named(new QSlider(Qt::Horizontal, bar), "s_scripting_toolbar_slider");
    m_icon_slider->setRange(1, 3);
    m_icon_slider->setTickPosition(QSlider::TicksAbove);
    m_icon_slider->setMaximumWidth(120);
    bar->addWidget(m_icon_slider);
    l_icon_size = named(new QLabel(bar), "l_icon_size");
    bar->addWidget(l_icon_size);
    (new QVBoxLayout(area))->addWidget(bar);
    area->layout()->setContentsMargins(0, 0, 0, 0);
    connect(m_new_action, &QAction::triggered, this, &window::s_scripting_toolbar_add_action);
    connect(m_edit_action, &QAction::triggered, this, &window::s_scripting_toolbar_edit_action);
    connect(m_delete_action, &QAction::triggered, this, &window::s_scripting_toolbar_delete_action);
    connect(m_icon_slider, &QSlider::sliderMoved, this, &window::s_scripting_toolbar_slider_sliderMoved);

    scripting_actions = named(new QListView(tab_editing), "scripting_actions");
    scripting_actions->setSelectionMode(QAbstractItemView::ExtendedSelection);
    connect(scripting_actions, &QListView::activated, this, &window::on_scripting_actions_activated);
    auto* editing = new QVBoxLayout(tab_editing);
    editing->addWidget(area);
    editing->addWidget(scripting_actions);

    l_toolbar_available = new QLabel(tab_customize);
    scripting_toolbar_available = named(new QListView(tab_customize), "scripting_toolbar_available");
    scripting_toolbar_available->setSelectionMode(QAbstractItemView::ExtendedSelection);
    l_toolbar_layout = new QLabel(tab_customize);
    scripting_toolbar_layout = named(new QListView(tab_customize), "scripting_toolbar_layout");
    scripting_toolbar_layout->setSelectionMode(QAbstractItemView::ExtendedSelection);
    scripting_toolbar_add = named(new QPushButton(tab_customize), "scripting_toolbar_add");
    scripting_toolbar_add_separator = named(new QPushButton(tab_customize), "scripting_toolbar_add_separator");
    scripting_toolbar_remove = named(new QPushButton(tab_customize), "scripting_toolbar_remove");
    scripting_toolbar_move_up = named(new QPushButton(tab_customize), "scripting_toolbar_move_up");
    scripting_toolbar_move_down = named(new QPushButton(tab_customize), "scripting_toolbar_move_down");
    connect(scripting_toolbar_add, &QPushButton::clicked, this, &window::on_scripting_toolbar_add_clicked);
    connect(scripting_toolbar_add_separator, &QPushButton::clicked, this,
        &window::on_scripting_toolbar_add_separator_clicked);
    connect(scripting_toolbar_remove, &QPushButton::clicked, this, &window::on_scripting_toolbar_remove_clicked);
    connect(scripting_toolbar_move_up, &QPushButton::clicked, this, &window::on_scripting_toolbar_move_up_clicked);
    connect(scripting_toolbar_move_down, &QPushButton::clicked, this, &window::on_scripting_toolbar_move_down_clicked);

    auto* available = new QVBoxLayout;
    available->addWidget(l_toolbar_available);
    available->addWidget(scripting_toolbar_available);
    auto* buttons = new QVBoxLayout;
    buttons->addStretch();
    for (QPushButton* b : { scripting_toolbar_add, scripting_toolbar_add_separator, scripting_toolbar_remove,
             scripting_toolbar_move_up, scripting_toolbar_move_down })
        buttons->addWidget(b);
    buttons->addStretch();
    auto* placed = new QVBoxLayout;
    placed->addWidget(l_toolbar_layout);
    placed->addWidget(scripting_toolbar_layout);
    auto* customize = new QHBoxLayout(tab_customize);
    customize->addLayout(available, 1);
    customize->addLayout(buttons);
    customize->addLayout(placed, 1);

    scripting_submenu->addTab(tab_editing, QString());
    scripting_submenu->addTab(tab_customize, QString());
    (new QVBoxLayout(page))->addWidget(scripting_submenu);
    fields->addWidget(page);
}

void window::build_autorun_page()
{
    auto* page = named(new QWidget(fields), "page_4");
    f_autorun_enabled = named(new QCheckBox(page), "f_autorun_enabled");
    script_autorun = named(new QTableView(page), "script_autorun");
    script_autorun->setSelectionBehavior(QAbstractItemView::SelectRows);
    script_autorun->setSelectionMode(QAbstractItemView::ExtendedSelection);
    script_autorun->verticalHeader()->hide();
    script_autorun_add_btn = named(new QPushButton(page), "script_autorun_add_btn");
    script_autorun_edit_btn = named(new QPushButton(page), "script_autorun_edit_btn");
    script_autorun_delete_btn = named(new QPushButton(page), "script_autorun_delete_btn");
    script_autorun_enable_btn = named(new QPushButton(page), "script_autorun_enable_btn");
    script_autorun_up_btn = named(new QPushButton(page), "script_autorun_up_btn");
    script_autorun_down_btn = named(new QPushButton(page), "script_autorun_down_btn");
    connect(script_autorun_add_btn, &QPushButton::clicked, this, &window::on_script_autorun_add_btn_clicked);
    connect(script_autorun_edit_btn, &QPushButton::clicked, this, &window::on_script_autorun_edit_btn_clicked);
    connect(script_autorun_delete_btn, &QPushButton::clicked, this, &window::on_script_autorun_delete_btn_clicked);
    connect(script_autorun_enable_btn, &QPushButton::clicked, this, &window::on_script_autorun_enable_btn_clicked);
    connect(script_autorun_up_btn, &QPushButton::clicked, this, &window::on_script_autorun_up_btn_clicked);
    connect(script_autorun_down_btn, &QPushButton::clicked, this, &window::on_script_autorun_down_btn_clicked);

    auto* buttons = new QVBoxLayout;
    for (QPushButton* b : { script_autorun_add_btn, script_autorun_edit_btn, script_autorun_delete_btn,
             script_autorun_enable_btn, script_autorun_up_btn, script_autorun_down_btn })
        buttons->addWidget(b);
    buttons->addStretch();
    auto* table = new QHBoxLayout;
    table->addWidget(script_autorun, 1);
    table->addLayout(buttons);
    auto* layout = new QVBoxLayout(page);
    layout->addWidget(f_autorun_enabled);
    layout->addLayout(table);
    fields->addWidget(page);
}

void window::build_behavior_page()
{
    auto* page = named(new QWidget(fields), "page_5");
    g_task_double_click = new QGroupBox(page);
    o_behavior_click_common = named(new QRadioButton(g_task_double_click), "o_behavior_click_common");
    l_behavior_click_row = new QLabel(g_task_double_click);
    f_behavior_click_row = named(new QComboBox(g_task_double_click), "f_behavior_click_row");
    o_behavior_click_individual = named(new QRadioButton(g_task_double_click), "o_behavior_click_individual");
    l_behavior_click_address = new QLabel(g_task_double_click);
    f_behavior_click_address = named(new QComboBox(g_task_double_click), "f_behavior_click_address");
    l_behavior_click_status = new QLabel(g_task_double_click);
    f_behavior_click_status = named(new QComboBox(g_task_double_click), "f_behavior_click_status");
    connect(o_behavior_click_common, &QRadioButton::toggled, this, &window::on_o_behavior_click_common_toggled);

    auto* common = new QFormLayout;
    common->addRow(l_behavior_click_row, f_behavior_click_row);
    auto* individual = new QFormLayout;
    individual->addRow(l_behavior_click_address, f_behavior_click_address);
    individual->addRow(l_behavior_click_status, f_behavior_click_status);
    auto* group = new QVBoxLayout(g_task_double_click);
    group->addWidget(o_behavior_click_common);
    group->addLayout(common);
    group->addWidget(o_behavior_click_individual);
    group->addLayout(individual);
    auto* layout = new QVBoxLayout(page);
    layout->addWidget(g_task_double_click);
    layout->addStretch();
    fields->addWidget(page);
}

void window::build_help_page()
{
    auto* page = named(new QWidget(fields), "page_3");
    l_help_execute_commands = new QLabel(page);
    f_help_execute_commands = named(new QCheckBox(page), "f_help_execute_commands");
    l_help_language = new QLabel(page);
    f_help_language = named(new QComboBox(page), "f_help_language");
    auto* form = new QFormLayout;
    form->addRow(l_help_execute_commands, f_help_execute_commands);
    form->addRow(l_help_language, f_help_language);
    auto* layout = new QVBoxLayout(page);
    layout->addLayout(form);
    layout->addStretch();
    fields->addWidget(page);
}

void window::fill_click_boxes()
{
    for (QComboBox* box : { f_behavior_click_row, f_behavior_click_address, f_behavior_click_status }) {
        const int current = box->currentIndex();
        box->clear();
        for (int i = 0; i < int(std::size(click_actions)); ++i)
            box->addItem(tr(click_actions[i]), i);
        box->setCurrentIndex(qMax(0, current));
    }
}

void window::retranslate()
{
    setWindowTitle(tr("Settings"));
    l_use_hardware_revisions->setText(QCoreApplication::translate("settings", "Use hardware revisions:"));
    l_firmware_pack_functionality->setText(QCoreApplication::translate("settings", "Firmware pack functionality:"));
    l_device_address_display->setText(QCoreApplication::translate("settings", "Device address display:"));
    f_device_address_display->setText(QCoreApplication::translate("settings", "Show only IP-address"));
    l_encrypt_passwords_on_export->setText(QCoreApplication::translate("settings", "Encrypt exported passwords:"));
    l_limit_concurrent_tasks->setText(QCoreApplication::translate("settings", "Limit concurrent tasks:\n0 — no limit"));
    f_limit_concurrent_tasks->setSpecialValueText(QCoreApplication::translate("settings", "No limit"));
    f_limit_concurrent_tasks->setSuffix(QCoreApplication::translate("settings", " task(s)"));
    g_functionality_fallback->setTitle(QCoreApplication::translate("settings", "Functionality fallback"));
    l_functionality_switch->setText(QCoreApplication::translate("settings", "Functionality switch:"));
    f_functionality_switch->setItemText(0, QCoreApplication::translate("settings", "Never"));
    f_functionality_switch->setItemText(1, QCoreApplication::translate("settings", "Ask once"));
    f_functionality_switch->setItemText(2, QCoreApplication::translate("settings", "Always ask"));

    scripting_submenu->setTabText(0, tr("Editing"));
    scripting_submenu->setTabText(1, tr("Customize toolbar"));
    m_new_action->setText(tr("New action..."));
    m_edit_action->setText(tr("Edit action..."));
    m_delete_action->setText(tr("Delete action..."));
    l_icon_scale->setText(tr("Icon size:"));
    l_toolbar_available->setText(tr("Available commands:"));
    l_toolbar_layout->setText(tr("Toolbar:"));
    scripting_toolbar_add->setText(tr("Add"));
    scripting_toolbar_add_separator->setText(tr("Add separator"));
    scripting_toolbar_remove->setText(tr("Remove"));
    scripting_toolbar_move_up->setText(tr("Move up"));
    scripting_toolbar_move_down->setText(tr("Move down"));

    f_autorun_enabled->setText(tr("Run these scripts at start-up"));
    script_autorun_add_btn->setText(tr("Add..."));
    script_autorun_edit_btn->setText(tr("Edit..."));
    script_autorun_delete_btn->setText(tr("Delete"));
    script_autorun_up_btn->setText(tr("Up"));
    script_autorun_down_btn->setText(tr("Down"));
    script_autorun_selection_changed({}, {});

    g_task_double_click->setTitle(tr("Task double click"));
    o_behavior_click_common->setText(tr("Common"));
    o_behavior_click_individual->setText(tr("Individual"));
    l_behavior_click_row->setText(tr("Row:"));
    l_behavior_click_address->setText(tr("Address:"));
    l_behavior_click_status->setText(tr("Status:"));

    l_help_execute_commands->setText(tr("Execute commands on click:"));
    l_help_language->setText(tr("Help language:"));
    f_help_language->setItemText(0, tr("Default"));
}

void window::changeEvent(QEvent* event)
{
    if (event->type() == QEvent::LanguageChange) {
        retranslate();
        fill_click_boxes();
        m_groups_model->retranslate();
        groups->expandAll();
    }
    QDialog::changeEvent(event);
}

void window::showEvent(QShowEvent* event)
{
    load();
    QDialog::showEvent(event);
}

void window::load()
{
    QSettings& s = *m_settings;
    f_use_hardware_revisions->setChecked(s.value(key_use_hardware_revisions, false).toBool());
    const int functionality = f_firmware_pack_functionality->findText(
        s.value(key_firmware_pack_functionality, QStringLiteral("legacy")).toString());
    f_firmware_pack_functionality->setCurrentIndex(qMax(0, functionality));
    f_device_address_display->setChecked(s.value(key_short_address, false).toBool());
    f_encrypt_passwords_on_export->setChecked(s.value(key_encrypt_passwords, true).toBool());
    f_limit_concurrent_tasks->setValue(s.value(key_limit_tasks, 0u).toInt());

    f_help_execute_commands->setChecked(s.value(help_key("execute_commands"), false).toBool());
    f_help_language->setCurrentIndex(
        qMax(0, f_help_language->findData(s.value(help_key("locale_override")).toString())));

    apply_icon_scale(s.value(key_icon_scale, m_icon_slider->minimum()).toInt());

    m_actions->load(s);

    f_autorun_enabled->setChecked(s.value(key_autorun_enabled, false).toBool());
    m_autorun->load(s);
    m_autorun_model->set_entries(m_autorun->entries());
    script_autorun_selection_changed({}, {});

    // Not among what a showing must read, but a choice left unsaved mustn't outlive it either.
    load_click_group();
}

void window::load_click_group()
{
    m_settings->beginGroup(click_group);
    o_behavior_click_common->setChecked(m_settings->value(QStringLiteral("common_settings"), true).toBool());
    o_behavior_click_individual->setChecked(!o_behavior_click_common->isChecked());
    f_behavior_click_row->setCurrentIndex(m_settings->value(QStringLiteral("row"), 0).toInt());
    f_behavior_click_address->setCurrentIndex(m_settings->value(QStringLiteral("address"), 0).toInt());
    f_behavior_click_status->setCurrentIndex(m_settings->value(QStringLiteral("status"), 0).toInt());
    m_settings->endGroup();
    on_o_behavior_click_common_toggled(o_behavior_click_common->isChecked());
}

void window::save()
{
    QSettings& s = *m_settings;
    s.setValue(key_use_hardware_revisions, f_use_hardware_revisions->isChecked());
    s.setValue(key_firmware_pack_functionality, f_firmware_pack_functionality->currentText());
    s.setValue(key_short_address, f_device_address_display->isChecked());
    s.setValue(key_encrypt_passwords, f_encrypt_passwords_on_export->isChecked());
    s.setValue(key_limit_tasks, uint(f_limit_concurrent_tasks->value()));

    m_actions->save(s);

    s.setValue(key_autorun_enabled, f_autorun_enabled->isChecked());
    m_autorun->set_entries(m_autorun_model->entries());
    m_autorun->save(s);

    s.beginGroup(click_group);
    s.setValue(QStringLiteral("common_settings"), o_behavior_click_common->isChecked());
    s.setValue(QStringLiteral("row"), f_behavior_click_row->currentData().toInt());
    s.setValue(QStringLiteral("address"), f_behavior_click_address->currentData().toInt());
    s.setValue(QStringLiteral("status"), f_behavior_click_status->currentData().toInt());
    s.endGroup();

    s.setValue(help_key("execute_commands"), f_help_execute_commands->isChecked());
    s.setValue(help_key("locale_override"), f_help_language->currentData().toString());
}

void window::on_groups_activated(const QModelIndex& index)
{
    if (index.isValid())
        fields->setCurrentIndex(index.data(settings_groups_model::page_role).toInt());
}

void window::on_applied(bool)
{
    emit applied();
}

void window::apply_icon_scale(int value)
{
    value = qBound(m_icon_slider->minimum(), value, m_icon_slider->maximum());
    m_icon_slider->setValue(value);
    l_icon_size->setText(QString::number(value * icon_step));
    scripting_actions->setIconSize({ value * icon_step, value * icon_step });
}

void window::s_scripting_toolbar_slider_sliderMoved(int value)
{
    apply_icon_scale(value);
    // Kept at once: the scale is a view preference, not part of what Apply stores.
    m_settings->setValue(key_icon_scale, value);
}

QList<int> window::selected_rows(const QListView* view) const
{
    QList<int> rows;
    for (const QModelIndex& i : view->selectionModel()->selectedIndexes())
        rows << i.row();
    std::sort(rows.begin(), rows.end());
    return rows;
}

void window::s_scripting_toolbar_add_action()
{
    m_script_action->prepare(tr("Add action"), QVariant(), QString(), QString(), 0, QString());
    m_script_action->open();
}

void window::s_scripting_toolbar_edit_action()
{
    const QList<int> rows = selected_rows(scripting_actions);
    if (rows.isEmpty()) {
        QMessageBox::warning(this, tr("Can't edit"), tr("Select action to edit."));
        return;
    }
    if (rows.size() > 1) {
        QMessageBox::warning(this, tr("Can't edit"), tr("Select only one action before edit."));
        return;
    }
    edit_action_at(rows.first());
}

void window::on_scripting_actions_activated(const QModelIndex& index)
{
    if (index.isValid())
        edit_action_at(index.row());
}

void window::edit_action_at(int row)
{
    const QString identifier
        = m_actions->layout_model().index(row).data(scripting::actions_layout_model::identifier_role).toString();
    if (!m_actions->contains(identifier))
        return;
    const scripting::quick_action a = m_actions->action(identifier);
    m_script_action->prepare(tr("Edit action"), identifier, a.icon, a.title, uint(a.mode), a.value);
    m_script_action->open();
}

void window::w_script_action_done(
    const QVariant& tag, const QString& icon, const QString& title, uint mode, const QString& value)
{
    const scripting::quick_action a { icon, title, int(mode), value };
    if (tag.toString().isEmpty())
        m_actions->add_action(a, int(m_actions->layout().size()));
    else
        m_actions->edit_action(tag.toString(), a);
}

void window::s_scripting_toolbar_delete_action()
{
    QList<int> rows;
    QStringList titles;
    for (int row : selected_rows(scripting_actions)) {
        if (m_actions->layout_model().is_end(row))
            continue;
        rows << row;
        titles << m_actions->layout_model().index(row).data().toString();
    }
    if (rows.isEmpty()) {
        QMessageBox::warning(this, tr("Delete actions"), tr("Nothing is selected"));
        return;
    }
    if (QMessageBox::question(this, tr("Delete actions"),
            tr("Delete this actions (%1)?").arg(titles.join(QStringLiteral(", "))), QMessageBox::Yes | QMessageBox::No)
        != QMessageBox::Yes)
        return;
    for (auto it = rows.crbegin(); it != rows.crend(); ++it)
        m_actions->remove_action(*it);
}

void window::on_scripting_toolbar_add_clicked()
{
    const QList<int> chosen = selected_rows(scripting_toolbar_available);
    const QList<int> places = selected_rows(scripting_toolbar_layout);
    int position = places.isEmpty() ? int(m_actions->layout().size()) : places.first();
    for (int row : chosen) {
        const QModelIndex command = m_actions->commands_model().index(row);
        const QString value = command.data(scripting::actions_commands_model::value_role).toString();
        if (value.isEmpty())
            continue;
        m_actions->add_action(
            { QString(), command.data().toString(), scripting::quick_action::command, value }, position++);
    }
}

void window::on_scripting_toolbar_add_separator_clicked()
{
    const QList<int> places = selected_rows(scripting_toolbar_layout);
    m_actions->add_separator(places.isEmpty() ? int(m_actions->layout().size()) : places.first());
}

void window::on_scripting_toolbar_remove_clicked()
{
    const QList<int> rows = selected_rows(scripting_toolbar_layout);
    for (auto it = rows.crbegin(); it != rows.crend(); ++it)
        m_actions->remove_action(*it);
}

void window::move_layout_row(int step)
{
    const QList<int> rows = selected_rows(scripting_toolbar_layout);
    if (rows.size() != 1)
        return;
    const int from = rows.first();
    if (m_actions->move(from, from + step))
        scripting_toolbar_layout->setCurrentIndex(m_actions->layout_model().index(from + step));
}

void window::on_scripting_toolbar_move_up_clicked()
{
    move_layout_row(-1);
}

void window::on_scripting_toolbar_move_down_clicked()
{
    move_layout_row(1);
}

QList<int> window::selected_autorun_rows() const
{
    QList<int> rows;
    for (const QModelIndex& i : script_autorun->selectionModel()->selectedRows())
        rows << i.row();
    std::sort(rows.begin(), rows.end());
    return rows;
}

void window::script_autorun_selection_changed(const QItemSelection&, const QItemSelection&)
{
    const QList<int> rows = selected_autorun_rows();
    const bool any = !rows.isEmpty();
    script_autorun_edit_btn->setEnabled(any);
    script_autorun_delete_btn->setEnabled(any);
    script_autorun_enable_btn->setEnabled(any);
    script_autorun_up_btn->setEnabled(rows.size() == 1 && rows.first() > 0);
    script_autorun_down_btn->setEnabled(rows.size() == 1 && rows.first() + 1 < m_autorun_model->rowCount());
    const bool enabled = any && m_autorun_model->entries().value(rows.first()).enabled;
    script_autorun_enable_btn->setText(enabled ? tr("Disable") : tr("Enable"));
}

void window::on_script_autorun_add_btn_clicked()
{
    const QStringList files = QFileDialog::getOpenFileNames(this, tr("Select script files"), QString(),
        tasks::file_filters(
            { tasks::file_kind::all_scripts, tasks::file_kind::orvane_scripts, tasks::file_kind::lua_scripts }));
    for (const QString& file : files)
        m_autorun_model->add(autorun_entry_for(file, m_application_folder));
}

scripting::autorun_entry window::autorun_entry_for(const QString& file, const QString& application_folder)
{
    const QFileInfo info(file);
    // Kept relative, the list follows a portable copy of the folder to another place.
    const bool in_folder = !application_folder.isEmpty()
        && QDir(info.absolutePath()).canonicalPath() == QDir(application_folder).canonicalPath();
    return { in_folder ? info.fileName() : file, true, file.endsWith(QLatin1String(".lua"), Qt::CaseInsensitive) };
}

void window::on_script_autorun_edit_btn_clicked()
{
    const QList<int> rows = selected_autorun_rows();
    if (rows.isEmpty())
        return;
    const scripting::autorun_entry e = m_autorun_model->entries().value(rows.first());
    if (e.type)
        return;
    QString path = m_resolve ? m_resolve(e.file) : QString();
    if (path.isEmpty())
        path = e.file;
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) {
        QMessageBox::warning(this, tr("Access error"), tr("Can't open the file \"%1\".").arg(path));
        return;
    }
    m_edited_script = path;
    m_edit_script->edit(path, QString::fromUtf8(file.readAll()));
    m_edit_script->open();
}

void window::w_edit_script_done(const QString&, const QString& contents)
{
    QSaveFile file(m_edited_script);
    if (!file.open(QIODevice::WriteOnly) || file.write(contents.toUtf8()) < 0 || !file.commit())
        QMessageBox::warning(this, tr("Access error"), tr("Can't open the file \"%1\".").arg(m_edited_script));
}

void window::on_script_autorun_delete_btn_clicked()
{
    const QList<int> rows = selected_autorun_rows();
    if (rows.isEmpty())
        return;
    if (QMessageBox::question(
            this, tr("Deleting scripts"), tr("Remove selected scripts?"), QMessageBox::Yes | QMessageBox::No)
        == QMessageBox::Yes)
        m_autorun_model->remove_rows(rows);
}

void window::on_script_autorun_enable_btn_clicked()
{
    for (int row : selected_autorun_rows())
        m_autorun_model->set_enabled(row, !m_autorun_model->entries().value(row).enabled);
    script_autorun_selection_changed({}, {});
}

void window::move_autorun_row(int step)
{
    const QList<int> rows = selected_autorun_rows();
    if (rows.size() != 1 || !m_autorun_model->move_row(rows.first(), rows.first() + step))
        return;
    script_autorun->selectRow(rows.first() + step);
    // The selection moved with the row, so selecting it again changed nothing: the buttons
    // are brought up to date here.
    script_autorun_selection_changed({}, {});
}

void window::on_script_autorun_up_btn_clicked()
{
    move_autorun_row(-1);
}

void window::on_script_autorun_down_btn_clicked()
{
    move_autorun_row(1);
}

void window::on_o_behavior_click_common_toggled(bool checked)
{
    f_behavior_click_row->setEnabled(checked);
    f_behavior_click_address->setEnabled(!checked);
    f_behavior_click_status->setEnabled(!checked);
}

} // namespace settings
