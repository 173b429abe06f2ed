#include "ui/main_window.h"

#include <QAction>
#include <QCloseEvent>
#include <QComboBox>
#include <QFileDialog>
#include <QHeaderView>
#include <QIcon>
#include <QItemSelectionModel>
#include <QLabel>
#include <QListWidget>
#include <QMenu>
#include <QMenuBar>
#include <QScrollBar>
#include <QSettings>
#include <QSplitter>
#include <QStatusBar>
#include <QTableView>
#include <QTimer>
#include <QToolBar>
#include <QVBoxLayout>

#include "tasks/file_filters.h"
#include "ui/main_model.h"
#include "ui/main_model_filter.h"
#include "ui/resource_init.h"
#include "ui/status_delegate.h"

namespace
{

const QString window_group = QStringLiteral("Window");
const QString key_geometry = QStringLiteral("geometry");
const QString key_state = QStringLiteral("state");
const QString key_columns = QStringLiteral("columns");
const QString key_log_visible = QStringLiteral("log/visible");
const QString key_log_position = QStringLiteral("log/position");

// Click actions of Behavior/taskclick, by index.
enum click_action : uint { click_none = 0, click_edit = 1, click_run_tasks = 2, click_check_updates = 3 };

QByteArray from_hex_setting(const QVariant& value)
{
    return QByteArray::fromHex(value.toString().toLatin1());
}

} // namespace

main_window::main_window(QSettings& settings, QWidget* parent)
    : QMainWindow(parent)
    , m_settings(settings)
    , m_delegate(new status_delegate(this))
{
    init_ui_resources();
    setObjectName(QStringLiteral("main_window"));
    resize(800, 600);
    setWindowIcon(QIcon(QStringLiteral(":/icn/main")));

    build_widgets();
    build_actions();
    build_menus();
    retranslate();
    update_action_states();
    restore_window();
}

main_window::~main_window() = default;

void main_window::build_widgets()
{
    m_central = new QWidget(this);
    m_central->setObjectName(QStringLiteral("centralwidget"));
    auto* layout = new QVBoxLayout(m_central);
    layout->setObjectName(QStringLiteral("verticalLayout"));
    m_splitter = new QSplitter(Qt::Vertical, m_central);
    m_splitter->setObjectName(QStringLiteral("splitter"));

    m_table = new QTableView(m_splitter);
    m_table->setObjectName(QStringLiteral("table_data"));
    m_table->setSelectionBehavior(QAbstractItemView::SelectRows);
    m_table->setSelectionMode(QAbstractItemView::ExtendedSelection);
    m_table->setEditTriggers(QAbstractItemView::NoEditTriggers);
    m_table->setWordWrap(false);
    m_table->setContextMenuPolicy(Qt::CustomContextMenu);
    // The model offers no vertical header; row numbers would be blank squares.
    m_table->verticalHeader()->hide();
    m_table->horizontalHeader()->setSectionsMovable(true);
    // The delegate finds the status column itself: hidden columns shift view indices.
    m_table->setItemDelegate(m_delegate);

    m_log = new QListWidget(m_splitter);
    m_log->setObjectName(QStringLiteral("log_list"));
    m_log->setUniformItemSizes(true);
    m_log_timer = new QTimer(this);
    m_log_timer->setSingleShot(true);
    m_log_timer->setInterval(log_batch_ms);
    connect(m_log_timer, &QTimer::timeout, this, &main_window::flush_log);
    m_splitter->addWidget(m_table);
    m_splitter->addWidget(m_log);
    m_splitter->setStretchFactor(0, 3);
    m_splitter->setStretchFactor(1, 1);
    layout->addWidget(m_splitter);
    setCentralWidget(m_central);

    menuBar()->setObjectName(QStringLiteral("menubar"));
    m_toolbar = new QToolBar(this);
    m_toolbar->setObjectName(QStringLiteral("toolBar"));
    m_fastbar = new QToolBar(this);
    m_fastbar->setObjectName(QStringLiteral("fastbar"));
    m_scriptbar = new QToolBar(this);
    m_scriptbar->setObjectName(QStringLiteral("scriptbar"));
    addToolBar(Qt::TopToolBarArea, m_toolbar);
    addToolBar(Qt::TopToolBarArea, m_fastbar);
    addToolBar(Qt::TopToolBarArea, m_scriptbar);
    // The bar's buttons are quick actions whose data is their identifier.
    connect(m_scriptbar, &QToolBar::actionTriggered, this,
        [this](QAction* action) { emit script_toolbar_action(action->data().toString()); });

    auto* bar = new QStatusBar(this);
    bar->setObjectName(QStringLiteral("statusbar"));
    setStatusBar(bar);
    m_summary_label = new QLabel(bar);
    m_summary_label->setObjectName(QStringLiteral("l_summary"));
    bar->addPermanentWidget(m_summary_label);
    m_row_filter_label = new QLabel(bar);
    m_row_filter_label->setObjectName(QStringLiteral("l_row_filter"));
    bar->addPermanentWidget(m_row_filter_label);
    m_row_filter = new QComboBox(bar);
    m_row_filter->setObjectName(QStringLiteral("f_row_filter"));
    m_row_filter->addItems({ QString(), QString(), QString() });
    m_row_filter_label->setBuddy(m_row_filter);
    bar->addPermanentWidget(m_row_filter);
    connect(m_row_filter, qOverload<int>(&QComboBox::currentIndexChanged), this, [this](int index) {
        if (m_filter)
            m_filter->set_row_filter(main_model_filter::row_filter(index));
    });
    m_status_label = new QLabel(bar);
    m_status_label->setObjectName(QStringLiteral("l_status"));
    m_status_label->setMinimumHeight(16);
    bar->addPermanentWidget(m_status_label);

    connect(m_table, &QTableView::doubleClicked, this, &main_window::on_table_data_doubleClicked);
    connect(
        m_table, &QTableView::customContextMenuRequested, this, &main_window::on_table_data_customContextMenuRequested);
}

QAction* main_window::make_action(const char* name, const char* icon, const char* shortcut)
{
    auto* action = new QAction(this);
    action->setObjectName(QLatin1String(name));
    if (icon)
        action->setIcon(QIcon(QLatin1String(icon)));
    if (shortcut)
        action->setShortcut(QKeySequence(QLatin1String(shortcut)));
    return action;
}

void main_window::build_actions()
{
    act_quit = make_action("act_quit", ":/icn/exit", "Ctrl+Q");
    act_import = make_action("act_import", ":/icn/import", "Ctrl+I");
    act_run = make_action("act_run", ":/icn/run", "Ctrl+R");
    act_clear = make_action("act_clear", ":/icn/clear", "Ctrl+Del");
    act_add = make_action("act_add", ":/icn/add", "Ctrl+A");
    act_edit = make_action("act_edit", ":/icn/edit", "Ctrl+E");
    act_delete = make_action("act_delete", ":/icn/delete", "Ctrl+D");
    act_about = make_action("act_about", ":/icn/about", nullptr);
    act_scan = make_action("act_scan", ":/icn/scan", "Ctrl+S");
    act_fetch_only = make_action("act_fetch_only", ":/icn/check", "Ctrl+Shift+R");
    act_apply_pack = make_action("act_apply_pack", ":/icn/pack", "Ctrl+P");
    act_select_all = make_action("act_select_all", ":/icn/select_all", nullptr);
    act_select_inverted = make_action("act_select_inverted", ":/icn/select_invert", nullptr);
    act_select_none = make_action("act_select_none", ":/icn/select_none", nullptr);
    act_errors = make_action("act_errors", nullptr, nullptr);
    act_force_update = make_action("act_force_update", nullptr, nullptr);
    act_lang = make_action("act_lang", nullptr, "F9");
    act_settings = make_action("act_settings", nullptr, nullptr);
    act_cmdline = make_action("act_cmdline", nullptr, "F4");
    act_export = make_action("act_export", nullptr, nullptr);
    act_export_report = make_action("act_export_report", nullptr, nullptr);
    act_help = make_action("act_help", nullptr, "F1");
    act_run_tasks = make_action("act_run_tasks", nullptr, nullptr);
    act_run_tasks_2 = make_action("act_run_tasks_2", nullptr, nullptr);
    act_copy_status = make_action("act_copy_status", nullptr, nullptr);

    const std::pair<QAction*, void (main_window::*)()> handlers[] = {
        { act_quit, &main_window::on_act_quit_triggered },
        { act_import, &main_window::on_act_import_triggered },
        { act_run, &main_window::on_act_run_triggered },
        { act_clear, &main_window::on_act_clear_triggered },
        { act_add, &main_window::on_act_add_triggered },
        { act_edit, &main_window::on_act_edit_triggered },
        { act_delete, &main_window::on_act_delete_triggered },
        { act_about, &main_window::on_act_about_triggered },
        { act_scan, &main_window::on_act_scan_triggered },
        { act_fetch_only, &main_window::on_act_fetch_only_triggered },
        { act_apply_pack, &main_window::on_act_apply_pack_triggered },
        { act_select_all, &main_window::on_act_select_all_triggered },
        { act_select_inverted, &main_window::on_act_select_inverted_triggered },
        { act_select_none, &main_window::on_act_select_none_triggered },
        { act_errors, &main_window::on_act_errors_triggered },
        { act_force_update, &main_window::on_act_force_update_triggered },
        { act_lang, &main_window::on_act_lang_triggered },
        { act_settings, &main_window::on_act_settings_triggered },
        { act_cmdline, &main_window::on_act_cmdline_triggered },
        { act_export, &main_window::on_act_export_triggered },
        { act_export_report, &main_window::on_act_export_report_triggered },
        { act_help, &main_window::on_act_help_triggered },
        { act_run_tasks, &main_window::on_act_run_tasks_triggered },
        { act_run_tasks_2, &main_window::on_act_run_tasks_2_triggered },
        { act_copy_status, &main_window::on_act_copy_status_triggered },
    };
    for (const auto& [action, handler] : handlers)
        connect(action, &QAction::triggered, this, handler);
}

void main_window::build_menus()
{
    m_menu_application = new QMenu(menuBar());
    m_menu_application->setObjectName(QStringLiteral("menu"));
    m_menu_application->addActions({ act_import, act_export });
    m_menu_application->addSeparator();
    m_menu_application->addActions({ act_settings, act_lang, act_cmdline });
    m_menu_application->addSeparator();
    m_menu_application->addAction(act_quit);

    m_menu_queue = new QMenu(menuBar());
    m_menu_queue->setObjectName(QStringLiteral("menu_2"));
    m_menu_queue->addActions({ act_run, act_fetch_only, act_force_update, act_run_tasks, act_apply_pack });
    m_menu_queue->addSeparator();
    m_menu_queue->addActions({ act_scan, act_add, act_edit, act_delete, act_clear });
    m_menu_queue->addSeparator();
    m_menu_queue->addActions({ act_select_all, act_select_inverted, act_select_none });
    m_menu_queue->addSeparator();
    m_menu_queue->addActions({ act_copy_status, act_errors, act_export_report });

    // Filled from data by a later stage: device operations and their options.
    m_menu_actions = new QMenu(menuBar());
    m_menu_actions->setObjectName(QStringLiteral("menu_actions"));
    m_menu_options = new QMenu(menuBar());
    m_menu_options->setObjectName(QStringLiteral("menu_options"));

    m_menu_help = new QMenu(menuBar());
    m_menu_help->setObjectName(QStringLiteral("menu_3"));
    m_menu_help->addActions({ act_help, act_about });

    for (QMenu* menu : { m_menu_application, m_menu_queue, m_menu_actions, m_menu_options, m_menu_help })
        menuBar()->addMenu(menu);

    m_toolbar->addActions({ act_run, act_fetch_only, act_apply_pack });
    m_toolbar->addSeparator();
    m_toolbar->addActions({ act_scan, act_add, act_edit, act_delete, act_clear });
    m_toolbar->addSeparator();
    m_toolbar->addActions({ act_select_all, act_select_inverted, act_select_none });
    m_toolbar->addSeparator();
    m_toolbar->addActions({ act_import, act_quit });
    m_fastbar->addAction(act_run_tasks_2);

    m_context_menu = new QMenu(this);
    m_context_menu->setObjectName(QStringLiteral("context_menu"));
    m_context_menu->addActions({ act_edit, act_delete });
    m_context_menu->addSeparator();
    m_context_menu->addAction(act_copy_status);
}

void main_window::retranslate()
{
    setWindowTitle(tr("Kelmar Firmware Update"));
    if (m_filter)
        m_table->horizontalHeader()->headerDataChanged(Qt::Horizontal, 0, m_filter->columnCount() - 1);
    act_quit->setText(tr("Quit"));
    act_import->setText(tr("Data import..."));
    act_run->setText(tr("Update online"));
    act_clear->setText(tr("Clear"));
    act_add->setText(tr("Add device"));
    act_edit->setText(tr("Edit properties"));
    act_delete->setText(tr("Delete device"));
    act_about->setText(tr("About"));
    act_scan->setText(tr("Network scan"));
    act_fetch_only->setText(tr("Check updates"));
    act_apply_pack->setText(tr("Apply firmware pack"));
    act_select_all->setText(tr("Select all"));
    act_select_inverted->setText(tr("Invert selection"));
    act_select_none->setText(tr("Select none"));
    act_errors->setText(tr("Problems window"));
    act_force_update->setText(tr("Force update"));
    act_lang->setText(tr("Language"));
    act_settings->setText(tr("Settings"));
    act_cmdline->setText(tr("Command line..."));
    act_export->setText(tr("Data export..."));
    act_export_report->setText(tr("Export report..."));
    m_row_filter_label->setText(tr("Show:"));
    m_row_filter->setItemText(main_model_filter::all_rows, tr("All rows"));
    m_row_filter->setItemText(main_model_filter::failed_rows, tr("Failures"));
    m_row_filter->setItemText(main_model_filter::running_rows, tr("Running"));
    act_help->setText(tr("Help"));
    act_run_tasks->setText(tr("Run tasks"));
    act_run_tasks_2->setText(tr("Run tasks"));
    act_copy_status->setText(tr("Copy status"));
    act_copy_status->setToolTip(tr("Copy status"));

    m_menu_application->setTitle(tr("Application"));
    m_menu_queue->setTitle(tr("Queue"));
    m_menu_help->setTitle(tr("?"));
    m_menu_actions->setTitle(tr("Actions"));
    m_menu_options->setTitle(tr("Options"));
    m_toolbar->setWindowTitle(tr("Main toolbar"));
    m_fastbar->setWindowTitle(tr("Test toolbar"));
    m_scriptbar->setWindowTitle(tr("Script toolbar"));
    set_offline(m_offline);
}

void main_window::changeEvent(QEvent* event)
{
    if (event->type() == QEvent::LanguageChange)
        retranslate();
    QMainWindow::changeEvent(event);
}

void main_window::update_action_states()
{
    // Remote actions need the update service as well as an idle queue.
    for (QAction* action : { act_run, act_fetch_only, act_force_update })
        action->setEnabled(!m_running && !m_offline);
    for (QAction* action :
        { act_run_tasks, act_run_tasks_2, act_scan, act_clear, act_add, act_edit, act_delete, act_import })
        action->setEnabled(!m_running);
}

void main_window::set_model(main_model_filter* filter)
{
    m_filter = filter;
    m_table->setModel(filter);
    m_filter->set_row_filter(main_model_filter::row_filter(m_row_filter->currentIndex()));
    // Rows start in the order they came; a click on a header sorts.
    m_table->horizontalHeader()->setSortIndicator(-1, Qt::AscendingOrder);
    m_table->setSortingEnabled(true);
    restore_columns();
}

void main_window::append_log(const QString& line)
{
    m_log_pending << line;
    if (!m_log_timer->isActive())
        m_log_timer->start();
}

void main_window::flush_log()
{
    // Follow the end only when the reader is there: scrolled-back lines stay put.
    const QScrollBar* bar = m_log->verticalScrollBar();
    const bool at_end = bar->value() == bar->maximum();
    m_log->addItems(m_log_pending);
    m_log_pending.clear();
    if (at_end)
        m_log->scrollToBottom();
}

void main_window::set_log(const QStringList& lines)
{
    m_log_timer->stop();
    m_log_pending.clear();
    m_log->clear();
    m_log->addItems(lines);
    m_log->scrollToBottom();
}

void main_window::set_log_visible(bool visible)
{
    QList<int> sizes = m_splitter->sizes();
    if (sizes.size() != 2)
        return;
    const int total = sizes[0] + sizes[1];
    if (visible && sizes[1] == 0)
        sizes = { total * 3 / 4, total - total * 3 / 4 };
    else if (!visible)
        sizes = { total, 0 };
    m_splitter->setSizes(sizes);
}

void main_window::set_offline(bool offline)
{
    m_offline = offline;
    m_status_label->setText(offline
            ? QStringLiteral("<img style='vertical-align: middle;' src=':/icn/offline'> ") + tr("Offline mode")
            : QString());
    update_action_states();
}

void main_window::set_running(bool running)
{
    m_running = running;
    update_action_states();
}

void main_window::show_status(const QString& text)
{
    statusBar()->showMessage(text);
}

void main_window::show_summary(const QString& text)
{
    m_summary_label->setText(text);
}

QString main_window::selected_ident() const
{
    const QItemSelectionModel* selection = m_table->selectionModel();
    if (!selection)
        return {};
    const QModelIndexList indexes = selection->selectedIndexes();
    return indexes.isEmpty() ? QString() : indexes.first().data(main_model::ident_role).toString();
}

void main_window::on_act_quit_triggered()
{
    // Through the close, so the layout is saved whichever way the window goes.
    close();
}

void main_window::on_act_import_triggered()
{
    const QString file = QFileDialog::getOpenFileName(
        this, tr("Task file selection"), {}, tasks::file_filters({ tasks::file_kind::csv }));
    if (!file.isEmpty())
        emit import(file);
}

void main_window::on_act_export_triggered()
{
    QFileDialog dialog(this, tr("Task file export"), {}, tasks::file_filters({ tasks::file_kind::csv }));
    dialog.setObjectName(QStringLiteral("export_dialog"));
    dialog.setAcceptMode(QFileDialog::AcceptSave);
    dialog.setDefaultSuffix(QStringLiteral("csv"));
    if (dialog.exec() != QDialog::Accepted || dialog.selectedFiles().isEmpty())
        return;
    emit export_data(dialog.selectedFiles().first());
}

void main_window::on_act_export_report_triggered()
{
    const QString csv = tr("CSV files (*.csv)");
    const QString html = tr("Web pages (*.html)");
    QFileDialog dialog(this, tr("Report export"), {}, csv + QStringLiteral(";;") + html);
    dialog.setObjectName(QStringLiteral("report_dialog"));
    dialog.setAcceptMode(QFileDialog::AcceptSave);
    dialog.setDefaultSuffix(QStringLiteral("csv"));
    connect(&dialog, &QFileDialog::filterSelected, &dialog, [&dialog, html](const QString& filter) {
        dialog.setDefaultSuffix(filter == html ? QStringLiteral("html") : QStringLiteral("csv"));
    });
    if (dialog.exec() != QDialog::Accepted || dialog.selectedFiles().isEmpty())
        return;
    emit export_report(dialog.selectedFiles().first());
}

void main_window::on_act_run_triggered()
{
    emit run_list(false, false, false, {});
}

void main_window::on_act_run_tasks_triggered()
{
    emit run_list(true, false, false, {});
}

void main_window::on_act_run_tasks_2_triggered()
{
    on_act_run_tasks_triggered();
}

void main_window::on_act_fetch_only_triggered()
{
    emit run_list(false, true, false, {});
}

void main_window::on_act_force_update_triggered()
{
    emit run_list(false, false, true, {});
}

void main_window::on_act_clear_triggered()
{
    emit clear_list();
}

void main_window::on_act_add_triggered()
{
    emit add_element();
}

void main_window::on_act_edit_triggered()
{
    const QString ident = selected_ident();
    if (!ident.isEmpty())
        emit edit_element(ident);
}

void main_window::on_act_delete_triggered()
{
    const QString ident = selected_ident();
    if (!ident.isEmpty())
        emit delete_element(ident);
}

void main_window::on_act_copy_status_triggered()
{
    const QString ident = selected_ident();
    if (!ident.isEmpty())
        emit copy_status(ident);
}

void main_window::on_act_about_triggered()
{
    emit about();
}

void main_window::on_act_scan_triggered()
{
    emit scan();
}

void main_window::on_act_apply_pack_triggered()
{
    emit apply_pack();
}

void main_window::on_act_select_all_triggered()
{
    emit selection_request(model_structures::selection_type::all);
}

void main_window::on_act_select_inverted_triggered()
{
    emit selection_request(model_structures::selection_type::inverted);
}

void main_window::on_act_select_none_triggered()
{
    emit selection_request(model_structures::selection_type::none);
}

void main_window::on_act_errors_triggered()
{
    emit error_list();
}

void main_window::on_act_lang_triggered()
{
    emit lang();
}

void main_window::on_act_settings_triggered()
{
    emit settings();
}

void main_window::on_act_cmdline_triggered()
{
    emit cmdline();
}

void main_window::on_act_help_triggered()
{
    emit help();
}

void main_window::on_table_data_doubleClicked(const QModelIndex& index)
{
    if (!index.isValid())
        return;
    const QString ident = index.data(main_model::ident_role).toString();
    const int column = status_delegate::source_column(index);

    m_settings.beginGroup(QStringLiteral("Behavior/taskclick"));
    const bool common = m_settings.value(QStringLiteral("common_settings"), true).toBool();
    uint action = m_settings.value(QStringLiteral("row"), 0).toUInt();
    if (!common) {
        if (column == main_model::col_display)
            action = m_settings.value(QStringLiteral("address"), 0).toUInt();
        else if (column == main_model::col_status)
            action = m_settings.value(QStringLiteral("status"), 0).toUInt();
        else
            action = click_edit;
    }
    m_settings.endGroup();

    switch (action) {
    case click_edit:
        emit edit_element(ident);
        break;
    case click_run_tasks:
        emit run_list(true, false, false, { ident });
        break;
    case click_check_updates:
        emit run_list(false, false, false, { ident });
        break;
    default:
        break;
    }
}

void main_window::on_table_data_customContextMenuRequested(const QPoint& pos)
{
    if (m_table->indexAt(pos).isValid())
        m_context_menu->popup(m_table->viewport()->mapToGlobal(pos));
}

int main_window::set_column_layout(const QStringList& fields)
{
    const QVector<column_layout::field> parsed = column_layout::from_script(fields, m_table->viewport()->width());
    if (parsed.isEmpty() || !m_filter)
        return 0;
    apply_fields(parsed);
    m_default_widths_pending = false;
    return parsed.size();
}

void main_window::reset_column_layout()
{
    if (!m_filter)
        return;
    m_filter->set_hidden_columns({});
    QHeaderView* header = m_table->horizontalHeader();
    for (int section = 0; section < header->count(); ++section)
        header->moveSection(header->visualIndex(section), section);
    m_default_widths_pending = true;
    apply_default_widths();
}

column_layout main_window::current_column_layout() const
{
    column_layout layout;
    const QHeaderView* header = m_table->horizontalHeader();
    if (m_filter) {
        for (int c = 0; c < main_model::column_count; ++c) {
            const int shown = m_filter->proxy_column(c);
            if (shown >= 0)
                layout.fields.append({ c, header->sectionSize(shown) });
        }
    }
    layout.order = header->saveState();
    return layout;
}

void main_window::apply_fields(const QVector<column_layout::field>& fields)
{
    m_filter->set_hidden_columns(column_layout::hidden_columns(fields, main_model::column_count));
    QHeaderView* header = m_table->horizontalHeader();
    for (const column_layout::field& f : fields) {
        const int shown = m_filter->proxy_column(f.id);
        if (shown >= 0 && f.width > 0)
            header->resizeSection(shown, f.width);
    }
}

void main_window::apply_default_widths()
{
    if (!m_default_widths_pending || !m_filter)
        return;
    m_default_widths_pending = false;
    QHeaderView* header = m_table->horizontalHeader();
    const int width = qMax(header->minimumSectionSize(), (m_table->viewport()->width() - 3) / 3);
    for (int section = 0; section < header->count(); ++section)
        header->resizeSection(section, width);
}

void main_window::showEvent(QShowEvent* event)
{
    QMainWindow::showEvent(event);
    // After the layout has given the viewport its real width.
    if (m_default_widths_pending)
        QTimer::singleShot(0, this, &main_window::apply_default_widths);
}

void main_window::restore_window()
{
    m_settings.beginGroup(window_group);
    const QByteArray geometry = from_hex_setting(m_settings.value(key_geometry));
    if (!geometry.isEmpty())
        restoreGeometry(geometry);
    const QByteArray state = from_hex_setting(m_settings.value(key_state));
    if (!state.isEmpty())
        restoreState(state);

    const QStringList position = m_settings.value(key_log_position).toString().split(QLatin1Char(','));
    if (position.size() == 2) {
        bool first_ok = false;
        bool second_ok = false;
        const int first = position[0].toInt(&first_ok);
        const int second = position[1].toInt(&second_ok);
        if (first_ok && second_ok && first >= 0 && second >= 0)
            m_splitter->setSizes({ first, second });
    }
    // Absent means collapsed: the table has the window until the user opens the log.
    const bool log_visible = m_settings.value(key_log_visible, false).toBool();
    m_settings.endGroup();
    if (!log_visible)
        set_log_visible(false);
}

void main_window::restore_columns()
{
    m_default_widths_pending = true;
    if (!m_filter)
        return;
    const std::optional<column_layout> layout
        = column_layout::from_value(m_settings.value(window_group + QLatin1Char('/') + key_columns));
    if (!layout) {
        m_filter->set_hidden_columns({});
        if (isVisible())
            QTimer::singleShot(0, this, &main_window::apply_default_widths);
        return;
    }
    m_filter->set_hidden_columns(layout->hidden_columns(main_model::column_count));
    if (!layout->order.isEmpty())
        m_table->horizontalHeader()->restoreState(layout->order);
    apply_fields(layout->fields);
    m_default_widths_pending = false;
}

void main_window::save_window()
{
    m_settings.beginGroup(window_group);
    m_settings.setValue(key_geometry, QString::fromLatin1(saveGeometry().toHex()));
    m_settings.setValue(key_state, QString::fromLatin1(saveState().toHex()));
    if (m_filter)
        m_settings.setValue(key_columns, current_column_layout().to_json());
    // A splitter that was never laid out has no sizes worth keeping.
    const QList<int> sizes = m_splitter->sizes();
    if (sizes.size() == 2 && sizes[0] + sizes[1] > 0) {
        m_settings.setValue(key_log_position, QStringLiteral("%1,%2").arg(sizes[0]).arg(sizes[1]));
        m_settings.setValue(key_log_visible, sizes[1] > 0);
    } else {
        m_settings.remove(key_log_position);
    }
    m_settings.endGroup();
}

void main_window::closeEvent(QCloseEvent* event)
{
    save_window();
    // core ends the program; the window only reports.
    emit quit();
    QMainWindow::closeEvent(event);
}
