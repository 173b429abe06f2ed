#include <QAction>
#include <QApplication>
#include <QCheckBox>
#include <QDialogButtonBox>
#include <QFileDialog>
#include <QHeaderView>
#include <QImageReader>
#include <QLabel>
#include <QLineEdit>
#include <QMenu>
#include <QProxyStyle>
#include <QPushButton>
#include <QRadioButton>
#include <QSettings>
#include <QSignalSpy>
#include <QSpinBox>
#include <QSplitter>
#include <QStyleOptionProgressBar>
#include <QTableView>
#include <QTemporaryDir>
#include <QTimer>
#include <QToolBar>
#include <QtTest>

#include <functional>
#include <memory>

#include "ui/main_model.h"
#include "ui/main_model_filter.h"
#include "ui/main_window.h"
#include "ui/port_setup.h"
#include "ui/problem_report.h"
#include "ui/splash.h"
#include "ui/status_delegate.h"
#include "ui/task_edit.h"
#include "ui/usage_warning.h"

namespace
{

// A window over a model of three rows, with its settings in a file of its own.
struct window_fixture {
    explicit window_fixture(const QString& settings_path, const std::function<void(QSettings&)>& preset = {})
        : settings(settings_path, QSettings::IniFormat)
    {
        if (preset)
            preset(settings);
        for (int i = 0; i < 3; ++i) {
            main_model::record r = main_model::make_record(
                QStringLiteral("id-%1").arg(i), QStringLiteral("admin@127.0.0.%1").arg(i + 2));
            model.add_record(r);
        }
        filter.setSourceModel(&model);
        window = std::make_unique<main_window>(settings);
        window->set_model(&filter);
    }

    QAction* action(const char* name) const { return window->findChild<QAction*>(QLatin1String(name)); }
    QTableView* table() const { return window->table(); }
    bool show()
    {
        window->show();
        return QTest::qWaitForWindowExposed(window.get());
    }

    QSettings settings;
    main_model model;
    main_model_filter filter;
    std::unique_ptr<main_window> window;
};

// Records the progress bars that reach the style.
class bar_recorder final : public QProxyStyle
{
public:
    void drawControl(
        ControlElement element, const QStyleOption* option, QPainter* painter, const QWidget* widget) const override
    {
        if (element == CE_ProgressBar) {
            if (const auto* bar = qstyleoption_cast<const QStyleOptionProgressBar*>(option))
                bars.append({ bar->progress, bar->text });
        }
        QProxyStyle::drawControl(element, option, painter, widget);
    }
    mutable QList<QPair<int, QString>> bars;
};

// Accepts the next modal file dialog with a file, or rejects it when file is empty.
void answer_file_dialog(const QString& file, QString* title)
{
    QTimer::singleShot(0, [file, title] {
        auto* dialog = qobject_cast<QFileDialog*>(QApplication::activeModalWidget());
        if (!dialog) {
            answer_file_dialog(file, title);
            return;
        }
        *title = dialog->windowTitle();
        if (file.isEmpty()) {
            dialog->reject();
            return;
        }
        dialog->selectFile(file);
        QMetaObject::invokeMethod(dialog, "accept");
    });
}

} // namespace

class test_ui_window : public QObject
{
    Q_OBJECT
private slots:
    void init();

    void actions_data();
    void actions();
    void actions_are_built_in_table_order();
    void menus_and_toolbars();
    void icons_load_from_resources();
    void run_actions_emit_flags_data();
    void run_actions_emit_flags();
    void selection_actions_data();
    void selection_actions();
    void row_actions_take_the_first_selected_index();
    void import_and_export_go_through_file_dialogs();
    void double_click_data();
    void double_click();
    void column_layout_survives_a_restart();
    void broken_column_layout_leaves_the_default_data();
    void broken_column_layout_leaves_the_default();
    void script_column_layout();
    void log_position_data();
    void log_position();
    void offline_label_and_remote_actions();
    void running_locks_editing_actions();
    void progress_text_recognised_data();
    void progress_text_recognised();
    void delegate_paints_bars_for_status_progress_only();
    void task_edit_range_data();
    void task_edit_range();
    void task_edit_increase_data();
    void task_edit_increase();
    void task_edit_multiple_accept_emits_the_endpoints();
    void task_edit_multiple_without_range_adds_nothing();
    void task_edit_single_adds_one();
    void task_edit_encrypted_password_data();
    void task_edit_encrypted_password();
    void port_setup_choice_data();
    void port_setup_choice();
    void splash_shows_stage();
    void usage_warning_text_and_box();
    void problem_report_formats_time();

private:
    QString settings_path() const { return m_dir->filePath(QStringLiteral("ov.config")); }
    std::unique_ptr<QTemporaryDir> m_dir;
};

void test_ui_window::init()
{
    m_dir = std::make_unique<QTemporaryDir>();
    QVERIFY(m_dir->isValid());
}

void test_ui_window::actions_data()
{
    QTest::addColumn<QString>("name");
    QTest::addColumn<QString>("text");
    QTest::addColumn<QString>("shortcut");
    QTest::addColumn<bool>("has_icon");

    const struct {
        const char* name;
        const char* text;
        const char* shortcut;
        bool icon;
    } table[] = {
        { "act_quit", "Quit", "Ctrl+Q", true },
        { "act_import", "Data import...", "Ctrl+I", true },
        { "act_run", "Update online", "Ctrl+R", true },
        { "act_clear", "Clear", "Ctrl+Del", true },
        { "act_add", "Add device", "Ctrl+A", true },
        { "act_edit", "Edit properties", "Ctrl+E", true },
        { "act_delete", "Delete device", "Ctrl+D", true },
        { "act_about", "About", "", true },
        { "act_scan", "Network scan", "Ctrl+S", true },
        { "act_fetch_only", "Check updates", "Ctrl+Shift+R", true },
        { "act_apply_pack", "Apply firmware pack", "Ctrl+P", true },
        { "act_select_all", "Select all", "", true },
        { "act_select_inverted", "Invert selection", "", true },
        { "act_select_none", "Select none", "", true },
        { "act_errors", "Problems window", "", false },
        { "act_force_update", "Force update", "", false },
        { "act_lang", "Language", "F9", false },
        { "act_settings", "Settings", "", false },
        { "act_cmdline", "Command line...", "F4", false },
        { "act_export", "Data export...", "", false },
        { "act_help", "Help", "F1", false },
        { "act_run_tasks", "Run tasks", "", false },
        { "act_run_tasks_2", "Run tasks", "", false },
        { "act_copy_status", "Copy status", "", false },
    };
    for (const auto& row : table)
        QTest::newRow(row.name) << row.name << row.text << row.shortcut << row.icon;
}

void test_ui_window::actions()
{
    QFETCH(QString, name);
    QFETCH(QString, text);
    QFETCH(QString, shortcut);
    QFETCH(bool, has_icon);
    window_fixture f(settings_path());
    const auto* action = f.window->findChild<QAction*>(name);
    QVERIFY(action);
    QCOMPARE(action->text(), text);
    QCOMPARE(action->shortcut(), QKeySequence(shortcut));
    QCOMPARE(!action->icon().pixmap(16, 16).isNull(), has_icon);
    if (name == QLatin1String("act_copy_status"))
        QCOMPARE(action->toolTip(), text);
}

void test_ui_window::actions_are_built_in_table_order()
{
    window_fixture f(settings_path());
    QStringList names;
    for (const QAction* action : f.window->findChildren<QAction*>(QString(), Qt::FindDirectChildrenOnly)) {
        if (action->objectName().startsWith(QLatin1String("act_")))
            names.append(action->objectName());
    }
    const QStringList expected { "act_quit", "act_import", "act_run", "act_clear", "act_add", "act_edit", "act_delete",
        "act_about", "act_scan", "act_fetch_only", "act_apply_pack", "act_select_all", "act_select_inverted",
        "act_select_none", "act_errors", "act_force_update", "act_lang", "act_settings", "act_cmdline", "act_export",
        "act_help", "act_run_tasks", "act_run_tasks_2", "act_copy_status" };
    QCOMPARE(names, expected);
}

void test_ui_window::menus_and_toolbars()
{
    window_fixture f(settings_path());
    const main_window& w = *f.window;
    QCOMPARE(w.windowTitle(), QStringLiteral("Kelmar Firmware Update"));
    QCOMPARE(w.objectName(), QStringLiteral("main_window"));
    QCOMPARE(w.size(), QSize(800, 600));
    QVERIFY(!w.windowIcon().pixmap(32, 32).isNull());

    const QList<QPair<QString, QString>> menus { { "menu", "Application" }, { "menu_2", "Queue" }, { "menu_3", "?" },
        { "menu_actions", "Actions" }, { "menu_options", "Options" } };
    for (const auto& [name, title] : menus) {
        const auto* menu = w.findChild<QMenu*>(name);
        QVERIFY2(menu, qPrintable(name));
        QCOMPARE(menu->title(), title);
    }
    QVERIFY(w.menu_actions()->actions().isEmpty());
    QVERIFY(w.menu_options()->actions().isEmpty());

    const QList<QPair<QString, QString>> bars { { "toolBar", "Main toolbar" }, { "fastbar", "Test toolbar" },
        { "scriptbar", "Script toolbar" } };
    for (const auto& [name, title] : bars) {
        const auto* bar = w.findChild<QToolBar*>(name);
        QVERIFY2(bar, qPrintable(name));
        QCOMPARE(bar->windowTitle(), title);
    }
    for (const char* name : { "centralwidget", "splitter", "table_data", "log_list", "statusbar", "menubar" })
        QVERIFY2(w.findChild<QWidget*>(QLatin1String(name)), name);
    QCOMPARE(w.findChild<QTableView*>("table_data")->parent(), w.findChild<QSplitter*>("splitter"));
    QVERIFY(w.table()->horizontalHeader()->sectionsMovable());
    QCOMPARE(w.findChild<QLabel*>("l_status")->minimumHeight(), 16);
}

void test_ui_window::icons_load_from_resources()
{
    const QStringList names { "main", "exit", "import", "run", "clear", "add", "edit", "delete", "about", "scan",
        "check", "pack", "select_all", "select_invert", "select_none", "offline" };
    window_fixture f(settings_path()); // registers the resources
    for (const QString& name : names) {
        const QIcon icon(QStringLiteral(":/icn/") + name);
        QVERIFY2(!icon.pixmap(24, 24).isNull(), qPrintable(name));
    }
    QImageReader splash_art(QStringLiteral(":/arts/splash"));
    QVERIFY2(splash_art.canRead(), qPrintable(splash_art.errorString()));
}

void test_ui_window::run_actions_emit_flags_data()
{
    QTest::addColumn<QString>("name");
    QTest::addColumn<bool>("no_add");
    QTest::addColumn<bool>("fetch_only");
    QTest::addColumn<bool>("force_update");

    QTest::newRow("run is a full update") << "act_run" << false << false << false;
    QTest::newRow("run tasks adds no update chain") << "act_run_tasks" << true << false << false;
    QTest::newRow("the toolbar's run tasks does the same") << "act_run_tasks_2" << true << false << false;
    QTest::newRow("check updates only fetches") << "act_fetch_only" << false << true << false;
    QTest::newRow("force update forces") << "act_force_update" << false << false << true;
}

void test_ui_window::run_actions_emit_flags()
{
    QFETCH(QString, name);
    QFETCH(bool, no_add);
    QFETCH(bool, fetch_only);
    QFETCH(bool, force_update);
    window_fixture f(settings_path());
    QSignalSpy spy(f.window.get(), &main_window::run_list);
    f.window->findChild<QAction*>(name)->trigger();
    QCOMPARE(spy.count(), 1);
    QCOMPARE(spy.at(0).at(0).toBool(), no_add);
    QCOMPARE(spy.at(0).at(1).toBool(), fetch_only);
    QCOMPARE(spy.at(0).at(2).toBool(), force_update);
    QCOMPARE(spy.at(0).at(3).toStringList(), QStringList());
}

void test_ui_window::selection_actions_data()
{
    QTest::addColumn<QString>("name");
    QTest::addColumn<int>("type");
    QTest::newRow("select all asks for 0") << "act_select_all" << 0;
    QTest::newRow("invert asks for 1") << "act_select_inverted" << 1;
    QTest::newRow("select none asks for 2") << "act_select_none" << 2;
}

void test_ui_window::selection_actions()
{
    QFETCH(QString, name);
    QFETCH(int, type);
    window_fixture f(settings_path());
    QSignalSpy spy(f.window.get(), &main_window::selection_request);
    f.window->findChild<QAction*>(name)->trigger();
    QCOMPARE(spy.count(), 1);
    QCOMPARE(int(spy.at(0).at(0).value<model_structures::selection_type>()), type);
}

void test_ui_window::row_actions_take_the_first_selected_index()
{
    window_fixture f(settings_path());
    QSignalSpy edit(f.window.get(), &main_window::edit_element);
    QSignalSpy remove(f.window.get(), &main_window::delete_element);
    QSignalSpy copy(f.window.get(), &main_window::copy_status);

    for (const char* name : { "act_edit", "act_delete", "act_copy_status" })
        f.action(name)->trigger();
    QCOMPARE(edit.count() + remove.count() + copy.count(), 0);

    // Row 2 first, then row 0: the first selected index wins, not the lowest row.
    QItemSelectionModel* selection = f.table()->selectionModel();
    selection->select(f.filter.index(2, 0), QItemSelectionModel::Select | QItemSelectionModel::Rows);
    selection->select(f.filter.index(0, 0), QItemSelectionModel::Select | QItemSelectionModel::Rows);
    for (const char* name : { "act_edit", "act_delete", "act_copy_status" })
        f.action(name)->trigger();
    QCOMPARE(edit.count(), 1);
    QCOMPARE(edit.at(0).at(0).toString(), QStringLiteral("id-2"));
    QCOMPARE(remove.at(0).at(0).toString(), QStringLiteral("id-2"));
    QCOMPARE(copy.at(0).at(0).toString(), QStringLiteral("id-2"));
}

void test_ui_window::import_and_export_go_through_file_dialogs()
{
    window_fixture f(settings_path());
    QSignalSpy imported(f.window.get(), &main_window::import);
    QSignalSpy exported(f.window.get(), &main_window::export_data);
    const QString existing = m_dir->filePath(QStringLiteral("devices.csv"));
    QFile file(existing);
    QVERIFY(file.open(QIODevice::WriteOnly));
    file.close();

    QString title;
    answer_file_dialog({}, &title);
    f.action("act_import")->trigger();
    QCOMPARE(title, QStringLiteral("Task file selection"));
    QCOMPARE(imported.count(), 0);

    answer_file_dialog(existing, &title);
    f.action("act_import")->trigger();
    QCOMPARE(imported.count(), 1);
    QCOMPARE(QFileInfo(imported.at(0).at(0).toString()), QFileInfo(existing));

    // The suffix is added when the user leaves it out.
    answer_file_dialog(m_dir->filePath(QStringLiteral("out")), &title);
    f.action("act_export")->trigger();
    QCOMPARE(title, QStringLiteral("Task file export"));
    QCOMPARE(exported.count(), 1);
    QCOMPARE(QFileInfo(exported.at(0).at(0).toString()).fileName(), QStringLiteral("out.csv"));
}

void test_ui_window::double_click_data()
{
    QTest::addColumn<QVariant>("common");
    QTest::addColumn<int>("row_action");
    QTest::addColumn<int>("address_action");
    QTest::addColumn<int>("status_action");
    QTest::addColumn<QList<int>>("hidden");
    QTest::addColumn<int>("column");
    QTest::addColumn<QString>("expected");

    const QVariant absent;
    QTest::newRow("nothing stored does nothing") << absent << -1 << -1 << -1 << QList<int> {} << 1 << "none";
    QTest::newRow("common setting is on by default: row action edits")
        << absent << 1 << 3 << 3 << QList<int> {} << 0 << "edit";
    QTest::newRow("common row action 2 runs the row's tasks")
        << QVariant(true) << 2 << 0 << 0 << QList<int> {} << 4 << "run_tasks";
    QTest::newRow("common row action 3 updates the row")
        << QVariant(true) << 3 << 0 << 0 << QList<int> {} << 2 << "update";
    QTest::newRow("an unknown action does nothing") << QVariant(true) << 7 << 0 << 0 << QList<int> {} << 2 << "none";
    QTest::newRow("per cell: the address cell takes address")
        << QVariant(false) << 1 << 2 << 3 << QList<int> {} << 0 << "run_tasks";
    QTest::newRow("per cell: the status cell takes status")
        << QVariant(false) << 1 << 2 << 3 << QList<int> {} << 4 << "update";
    QTest::newRow("per cell: column 2 always edits") << QVariant(false) << 3 << 0 << 0 << QList<int> {} << 2 << "edit";
    QTest::newRow("per cell: status 0 does nothing") << QVariant(false) << 1 << 1 << 0 << QList<int> {} << 4 << "none";
    QTest::newRow("per cell: hidden columns don't shift the status cell")
        << QVariant(false) << 0 << 0 << 3 << QList<int> { 1, 2 } << 4 << "update";
}

void test_ui_window::double_click()
{
    QFETCH(QVariant, common);
    QFETCH(int, row_action);
    QFETCH(int, address_action);
    QFETCH(int, status_action);
    QFETCH(QList<int>, hidden);
    QFETCH(int, column);
    QFETCH(QString, expected);
    window_fixture f(settings_path(), [&](QSettings& s) {
        s.beginGroup(QStringLiteral("Behavior/taskclick"));
        if (common.isValid())
            s.setValue(QStringLiteral("common_settings"), common);
        const QList<QPair<QString, int>> keys { { "row", row_action }, { "address", address_action },
            { "status", status_action } };
        for (const auto& [key, value] : keys) {
            if (value >= 0)
                s.setValue(key, value);
        }
        s.endGroup();
    });
    f.filter.set_hidden_columns(hidden);
    QVERIFY(f.show());
    QSignalSpy edit(f.window.get(), &main_window::edit_element);
    QSignalSpy run(f.window.get(), &main_window::run_list);

    const QModelIndex cell = f.filter.index(1, f.filter.proxy_column(column));
    QVERIFY(cell.isValid());
    f.table()->scrollTo(cell);
    const QPoint at = f.table()->visualRect(cell).center();
    // The view acts on a double click only over the index of the press before it, and
    // QTest's double click sends no press of its own.
    QTest::mousePress(f.table()->viewport(), Qt::LeftButton, {}, at);
    QTest::mouseDClick(f.table()->viewport(), Qt::LeftButton, {}, at);

    if (expected == QLatin1String("none")) {
        QCOMPARE(edit.count() + run.count(), 0);
    } else if (expected == QLatin1String("edit")) {
        QCOMPARE(run.count(), 0);
        QCOMPARE(edit.count(), 1);
        QCOMPARE(edit.at(0).at(0).toString(), QStringLiteral("id-1"));
    } else {
        QCOMPARE(edit.count(), 0);
        QCOMPARE(run.count(), 1);
        QCOMPARE(run.at(0).at(0).toBool(), expected == QLatin1String("run_tasks"));
        QCOMPARE(run.at(0).at(1).toBool(), false);
        QCOMPARE(run.at(0).at(2).toBool(), false);
        QCOMPARE(run.at(0).at(3).toStringList(), QStringList { QStringLiteral("id-1") });
    }
}

void test_ui_window::column_layout_survives_a_restart()
{
    int status_visual = -1;
    {
        window_fixture f(settings_path());
        QVERIFY(f.show());
        QCOMPARE(f.window->set_column_layout({ "display:150", "serial:90", "status:210" }), 3);
        QCOMPARE(f.filter.hidden_columns(), (QList<int> { 2, 3 }));
        QHeaderView* header = f.table()->horizontalHeader();
        header->moveSection(header->visualIndex(f.filter.proxy_column(4)), 0);
        status_visual = header->visualIndex(f.filter.proxy_column(4));
        QCOMPARE(status_visual, 0);
        QSignalSpy quit(f.window.get(), &main_window::quit);
        QVERIFY(f.window->close());
        QCOMPARE(quit.count(), 1);
        f.settings.sync();
    }
    QSettings stored(settings_path(), QSettings::IniFormat);
    QVERIFY(!stored.value(QStringLiteral("Window/geometry")).toString().isEmpty());
    QVERIFY(!stored.value(QStringLiteral("Window/state")).toString().isEmpty());
    QVERIFY(column_layout::from_value(stored.value(QStringLiteral("Window/columns"))).has_value());

    window_fixture g(settings_path());
    QVERIFY(g.show());
    QCOMPARE(g.filter.hidden_columns(), (QList<int> { 2, 3 }));
    QCOMPARE(g.filter.columnCount(), 3);
    QHeaderView* header = g.table()->horizontalHeader();
    QCOMPARE(header->sectionSize(g.filter.proxy_column(0)), 150);
    QCOMPARE(header->sectionSize(g.filter.proxy_column(1)), 90);
    QCOMPARE(header->sectionSize(g.filter.proxy_column(4)), 210);
    QCOMPARE(header->visualIndex(g.filter.proxy_column(4)), status_visual);
    // The stored layout is not overwritten by the first-show defaults.
    QTest::qWait(20);
    QCOMPARE(header->sectionSize(g.filter.proxy_column(0)), 150);
}

void test_ui_window::broken_column_layout_leaves_the_default_data()
{
    QTest::addColumn<QString>("value");
    QTest::newRow("text that isn't JSON") << "{not json";
    QTest::newRow("a JSON array") << "[1,2,3]";
    QTest::newRow("a document without order") << R"({"fields":[{"id":1,"width":40}]})";
    QTest::newRow("a document without fields") << R"({"order":"00"})";
    QTest::newRow("nothing stored") << "";
}

void test_ui_window::broken_column_layout_leaves_the_default()
{
    QFETCH(QString, value);
    window_fixture f(settings_path(), [&](QSettings& s) {
        if (!value.isEmpty())
            s.setValue(QStringLiteral("Window/columns"), value);
    });
    QVERIFY(f.show());
    QCOMPARE(f.filter.columnCount(), 5);
    QVERIFY(f.filter.hidden_columns().isEmpty());
    QHeaderView* header = f.table()->horizontalHeader();
    const int expected = (f.table()->viewport()->width() - 3) / 3;
    QVERIFY(expected > header->minimumSectionSize());
    for (int section = 0; section < 5; ++section)
        QTRY_COMPARE(header->sectionSize(section), expected);
}

void test_ui_window::script_column_layout()
{
    window_fixture f(settings_path());
    QVERIFY(f.show());
    QTRY_VERIFY(f.table()->viewport()->width() > 100);
    QTest::qWait(0);
    const int usable = f.table()->viewport()->width() - 3;
    QHeaderView* header = f.table()->horizontalHeader();

    QCOMPARE(f.window->set_column_layout({ "mac:40%", "summary" }), 2);
    QCOMPARE(f.filter.columnCount(), 2);
    QCOMPARE(header->sectionSize(f.filter.proxy_column(2)), usable * 40 / 100);
    QCOMPARE(header->sectionSize(f.filter.proxy_column(3)), usable / 2);

    // Nothing known: the layout stays as it was.
    QCOMPARE(f.window->set_column_layout({ "nonsense:10", "other" }), 0);
    QCOMPARE(f.filter.hidden_columns(), (QList<int> { 0, 1, 4 }));
}

void test_ui_window::log_position_data()
{
    QTest::addColumn<QString>("position");
    QTest::addColumn<QVariant>("visible");
    QTest::addColumn<bool>("collapsed");

    QTest::newRow("nothing stored leaves the pane as built") << "" << QVariant() << false;
    QTest::newRow("garbage leaves the pane as built") << "abc,def" << QVariant() << false;
    QTest::newRow("a single number leaves the pane as built") << "300" << QVariant() << false;
    QTest::newRow("a zero second size collapses the pane") << "400,0" << QVariant() << true;
    QTest::newRow("visible false collapses the pane") << "300,100" << QVariant(false) << true;
    QTest::newRow("visible true keeps it open") << "300,100" << QVariant(true) << false;
}

void test_ui_window::log_position()
{
    QFETCH(QString, position);
    QFETCH(QVariant, visible);
    QFETCH(bool, collapsed);
    window_fixture f(settings_path(), [&](QSettings& s) {
        if (!position.isEmpty())
            s.setValue(QStringLiteral("Window/log/position"), position);
        if (visible.isValid())
            s.setValue(QStringLiteral("Window/log/visible"), visible);
    });
    QVERIFY(f.show());
    const QList<int> sizes = f.window->findChild<QSplitter*>("splitter")->sizes();
    QCOMPARE(sizes.size(), 2);
    QCOMPARE(sizes[1] == 0, collapsed);
    QVERIFY(sizes[0] > 0);

    // Closing stores what is shown, and the next window shows it again.
    f.window->close();
    f.settings.sync();
    window_fixture g(settings_path());
    QVERIFY(g.show());
    QCOMPARE(g.window->findChild<QSplitter*>("splitter")->sizes()[1] == 0, collapsed);
}

void test_ui_window::offline_label_and_remote_actions()
{
    window_fixture f(settings_path());
    const auto* label = f.window->findChild<QLabel*>("l_status");
    QVERIFY(label->text().isEmpty());
    f.window->set_offline(true);
    QCOMPARE(label->text(), QStringLiteral("<img style='vertical-align: middle;' src=':/icn/offline'> Offline mode"));
    for (const char* name : { "act_run", "act_fetch_only", "act_force_update" })
        QVERIFY2(!f.action(name)->isEnabled(), name);
    for (const char* name : { "act_run_tasks", "act_scan", "act_add" })
        QVERIFY2(f.action(name)->isEnabled(), name);
    f.window->set_offline(false);
    QVERIFY(label->text().isEmpty());
    QVERIFY(f.action("act_run")->isEnabled());
}

void test_ui_window::running_locks_editing_actions()
{
    window_fixture f(settings_path());
    const QList<const char*> locked { "act_run", "act_fetch_only", "act_force_update", "act_run_tasks",
        "act_run_tasks_2", "act_scan", "act_clear", "act_add", "act_edit", "act_delete", "act_import" };
    const QList<const char*> free { "act_quit", "act_about", "act_select_all", "act_errors", "act_help", "act_export",
        "act_copy_status", "act_settings" };

    f.window->set_running(true);
    for (const char* name : locked)
        QVERIFY2(!f.action(name)->isEnabled(), name);
    for (const char* name : free)
        QVERIFY2(f.action(name)->isEnabled(), name);

    f.window->set_running(false);
    for (const char* name : locked)
        QVERIFY2(f.action(name)->isEnabled(), name);

    // A run ending while offline leaves the remote actions greyed.
    f.window->set_offline(true);
    f.window->set_running(true);
    f.window->set_running(false);
    QVERIFY(!f.action("act_run")->isEnabled());
    QVERIFY(f.action("act_add")->isEnabled());
}

void test_ui_window::progress_text_recognised_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<int>("progress");

    QTest::newRow("uploading with a percentage") << "Uploading: 42%" << 42;
    QTest::newRow("the Russian translation") << QString::fromUtf8("Передача: 42%") << 42;
    QTest::newRow("zero percent") << "Upgrading: 0%" << 0;
    QTest::newRow("a full hundred") << "Upgrading: 100%" << 100;
    QTest::newRow("a space before the sign") << "Uploading: 7 %" << 7;
    QTest::newRow("plain text") << "Checking updates..." << -1;
    QTest::newRow("empty text") << "" << -1;
    QTest::newRow("a percentage not at the end") << "50% done" << -1;
    QTest::newRow("a sign without a number") << "Uploading: %" << -1;
    QTest::newRow("past a hundred") << "Uploading: 250%" << -1;
    QTest::newRow("a long number is not a percentage") << "Code 1042%" << -1;
}

void test_ui_window::progress_text_recognised()
{
    QFETCH(QString, text);
    QFETCH(int, progress);
    QCOMPARE(status_delegate::progress_of(text), progress);
}

void test_ui_window::delegate_paints_bars_for_status_progress_only()
{
    window_fixture f(settings_path());
    f.model.update_status(QStringLiteral("id-0"), QStringLiteral("Uploading: 42%"));
    f.model.update_status(QStringLiteral("id-1"), QStringLiteral("Checking updates..."));
    f.model.update_status(QStringLiteral("id-2"), QString::fromUtf8("Передача: 7%"));
    // A percentage outside the status column stays text.
    f.model.update_summary(QStringLiteral("id-1"), QStringLiteral("Disk 90%"));
    f.filter.set_hidden_columns({ 1 }); // the status column moves to view column 3
    bar_recorder style;
    f.table()->setStyle(&style);
    QVERIFY(f.show());
    style.bars.clear();
    f.table()->viewport()->grab();
    f.table()->setStyle(nullptr);

    std::sort(style.bars.begin(), style.bars.end());
    const QList<QPair<int, QString>> expected { { 7, QString::fromUtf8("Передача: 7%") },
        { 42, QStringLiteral("Uploading: 42%") } };
    QCOMPARE(style.bars, expected);
}

void test_ui_window::task_edit_range_data()
{
    QTest::addColumn<QString>("address");
    QTest::addColumn<int>("devices");
    QTest::addColumn<QString>("first");
    QTest::addColumn<QString>("last");
    QTest::addColumn<int>("count");

    QTest::newRow("10 devices from .250 stop at .255") << "192.168.1.250" << 10 << "192.168.1.250"
                                                       << "192.168.1.255" << 6;
    QTest::newRow("a range inside the octet") << "10.0.0.1" << 3 << "10.0.0.1"
                                              << "10.0.0.3" << 3;
    QTest::newRow("one device is its own range") << "10.0.0.9" << 1 << "10.0.0.9"
                                                 << "10.0.0.9" << 1;
    QTest::newRow("starting at .255 gives one") << "10.0.0.255" << 4 << "10.0.0.255"
                                                << "10.0.0.255" << 1;
    QTest::newRow("a leading zero is decimal, not octal") << "10.0.0.010" << 2 << "10.0.0.10"
                                                          << "10.0.0.11" << 2;
    QTest::newRow("two points are invalid") << "10.0.1" << 2 << ""
                                            << "" << 0;
    QTest::newRow("words are invalid") << "abc.def.ghi.jkl" << 2 << ""
                                       << "" << 0;
    QTest::newRow("an octet past 255 is invalid") << "10.0.0.256" << 2 << ""
                                                  << "" << 0;
    QTest::newRow("an IPv6 form with three points is invalid") << "::ffff:1.2.3.4" << 2 << ""
                                                               << "" << 0;
    QTest::newRow("empty is invalid") << "" << 2 << ""
                                      << "" << 0;
}

void test_ui_window::task_edit_range()
{
    QFETCH(QString, address);
    QFETCH(int, devices);
    QFETCH(QString, first);
    QFETCH(QString, last);
    QFETCH(int, count);
    task_edit dialog;
    dialog.prepare_add();
    dialog.findChild<QRadioButton*>("o_add_multi")->click();
    QTest::keyClicks(dialog.findChild<QLineEdit*>("f_address"), address);
    dialog.findChild<QSpinBox*>("f_num_devices")->setValue(devices);

    QCOMPARE(dialog.range_first(), first);
    QCOMPARE(dialog.range_last(), last);
    QCOMPARE(dialog.range_count(), count);
    const QString label = dialog.findChild<QLabel*>("l_range")->text();
    if (count > 0)
        QCOMPARE(label, QString::fromUtf8("%1 — %2").arg(first, last));
    else
        QCOMPARE(label, QStringLiteral("<span style='color: red;'>Invalid</span>"));

    // Single mode shows no range.
    dialog.findChild<QRadioButton*>("o_add_single")->click();
    QCOMPARE(dialog.range_count(), 0);
    QVERIFY(!dialog.findChild<QSpinBox*>("f_num_devices")->isEnabled());
}

void test_ui_window::task_edit_increase_data()
{
    QTest::addColumn<QString>("address");
    QTest::addColumn<int>("n");
    QTest::addColumn<bool>("clamp");
    QTest::addColumn<QString>("expected");

    QTest::newRow("adds to the last octet") << "10.1.2.3" << 4 << true << "10.1.2.7";
    QTest::newRow("zero is the address itself") << "10.1.2.3" << 0 << false << "10.1.2.3";
    QTest::newRow("clamp stops at 255") << "10.1.2.250" << 9 << true << "10.1.2.255";
    QTest::newRow("exactly 255 without clamp is fine") << "10.1.2.250" << 5 << false << "10.1.2.255";
    QTest::newRow("256 without clamp fails") << "10.1.2.250" << 6 << false << "";
    QTest::newRow("never carries into the third octet") << "10.1.2.255" << 1 << true << "10.1.2.255";
    QTest::newRow("three parts fail") << "10.1.2" << 1 << true << "";
    QTest::newRow("a bad octet fails") << "10.1.x.2" << 1 << true << "";
    QTest::newRow("a negative step fails") << "10.1.2.3" << -1 << true << "";
}

void test_ui_window::task_edit_increase()
{
    QFETCH(QString, address);
    QFETCH(int, n);
    QFETCH(bool, clamp);
    QFETCH(QString, expected);
    QCOMPARE(task_edit::increase(address, n, clamp), expected);
}

void test_ui_window::task_edit_multiple_accept_emits_the_endpoints()
{
    task_edit dialog;
    dialog.prepare_add();
    QCOMPARE(dialog.windowTitle(), QStringLiteral("Add task"));
    QSignalSpy added(&dialog, &task_edit::added);
    dialog.findChild<QLineEdit*>("f_name")->setText(QStringLiteral("hall"));
    dialog.findChild<QRadioButton*>("o_add_multi")->click();
    QTest::keyClicks(dialog.findChild<QLineEdit*>("f_address"), QStringLiteral("127.0.0.253"));
    dialog.findChild<QSpinBox*>("f_num_devices")->setValue(5);
    dialog.findChild<QSpinBox*>("f_port")->setValue(34600);
    dialog.findChild<QLineEdit*>("f_user")->setText(QStringLiteral("operator"));
    QTest::keyClicks(dialog.findChild<QLineEdit*>("f_password"), QStringLiteral("secret"));

    dialog.findChild<QDialogButtonBox*>("buttonBox")->button(QDialogButtonBox::Ok)->click();

    QCOMPARE(added.count(), 1);
    const auto list = added.at(0).at(0).value<QList<endpoint>>();
    QCOMPARE(list.size(), 3);
    const QStringList hosts { "127.0.0.253", "127.0.0.254", "127.0.0.255" };
    for (int i = 0; i < list.size(); ++i) {
        QCOMPARE(list[i].host, hosts[i]);
        QCOMPARE(list[i].name, QStringLiteral("hall"));
        QCOMPARE(list[i].port, uint16_t(34600));
        QCOMPARE(list[i].user, QStringLiteral("operator"));
        QCOMPARE(list[i].password, QStringLiteral("secret"));
        QVERIFY(!list[i].password_encrypted);
    }
    QCOMPARE(dialog.result(), int(QDialog::Accepted));
}

void test_ui_window::task_edit_multiple_without_range_adds_nothing()
{
    task_edit dialog;
    dialog.prepare_add();
    QSignalSpy added(&dialog, &task_edit::added);
    dialog.findChild<QRadioButton*>("o_add_multi")->click();
    QTest::keyClicks(dialog.findChild<QLineEdit*>("f_address"), QStringLiteral("127.0.0"));
    dialog.open();
    dialog.findChild<QDialogButtonBox*>("buttonBox")->button(QDialogButtonBox::Ok)->click();
    QCOMPARE(added.count(), 0);
    QVERIFY(dialog.isVisible());
    dialog.reject();
}

void test_ui_window::task_edit_single_adds_one()
{
    task_edit dialog;
    dialog.prepare_add();
    QSignalSpy added(&dialog, &task_edit::added);
    QTest::keyClicks(dialog.findChild<QLineEdit*>("f_address"), QStringLiteral("cam.local"));
    dialog.findChild<QDialogButtonBox*>("buttonBox")->button(QDialogButtonBox::Ok)->click();
    QCOMPARE(added.count(), 1);
    const auto list = added.at(0).at(0).value<QList<endpoint>>();
    QCOMPARE(list.size(), 1);
    QCOMPARE(list[0].host, QStringLiteral("cam.local"));
    QCOMPARE(list[0].port, endpoint::default_port);
    QCOMPARE(list[0].user, QStringLiteral("admin"));
}

void test_ui_window::task_edit_encrypted_password_data()
{
    QTest::addColumn<bool>("encrypted");
    QTest::addColumn<QString>("typed");
    QTest::addColumn<QString>("password");
    QTest::addColumn<bool>("flag");

    QTest::newRow("encrypted and untouched is kept with its flag") << true << ""
                                                                   << "U2FsdGVk:c2VhbGVk" << true;
    QTest::newRow("encrypted then typed over takes the text") << true << "fresh"
                                                              << "fresh" << false;
    QTest::newRow("a clear password shows and stays clear") << false << ""
                                                            << "U2FsdGVk:c2VhbGVk" << false;
    QTest::newRow("a clear password typed on is extended") << false << "9"
                                                           << "U2FsdGVk:c2VhbGVk9" << false;
}

void test_ui_window::task_edit_encrypted_password()
{
    QFETCH(bool, encrypted);
    QFETCH(QString, typed);
    QFETCH(QString, password);
    QFETCH(bool, flag);
    endpoint original;
    original.name = QStringLiteral("gate");
    original.host = QStringLiteral("127.0.0.5");
    original.mac = QStringLiteral("00:12:34:56:78:9a");
    original.port = 34568;
    original.user = QStringLiteral("root");
    original.password = QStringLiteral("U2FsdGVk:c2VhbGVk");
    original.password_encrypted = encrypted;
    original.mtype = 3;

    task_edit dialog;
    dialog.prepare_edit(QStringLiteral("flow-1"), original);
    QCOMPARE(dialog.windowTitle(), QStringLiteral("Edit task"));
    auto* field = dialog.findChild<QLineEdit*>("f_password");
    QCOMPARE(field->text(), encrypted ? QString() : original.password);
    QCOMPARE(field->placeholderText(), encrypted ? QStringLiteral("Encrypted") : QString());
    QCOMPARE(dialog.password_kept(), encrypted);
    QVERIFY(!dialog.findChild<QRadioButton*>("o_add_multi")->isVisibleTo(&dialog));

    QSignalSpy edited(&dialog, &task_edit::edited);
    QSignalSpy added(&dialog, &task_edit::added);
    if (!typed.isEmpty()) {
        field->end(false);
        QTest::keyClicks(field, typed);
    }
    dialog.findChild<QDialogButtonBox*>("buttonBox")->button(QDialogButtonBox::Ok)->click();

    QCOMPARE(added.count(), 0);
    QCOMPARE(edited.count(), 1);
    QCOMPARE(edited.at(0).at(0).toString(), QStringLiteral("flow-1"));
    const auto data = edited.at(0).at(1).value<endpoint>();
    QCOMPARE(data.password, password);
    QCOMPARE(data.password_encrypted, flag);
    // What the form doesn't show travels unchanged.
    QCOMPARE(data.mac, original.mac);
    QCOMPARE(data.mtype, original.mtype);
    QCOMPARE(data.host, original.host);
    QCOMPARE(data.port, original.port);
    QCOMPARE(data.user, original.user);
    QCOMPARE(data.name, original.name);
}

void test_ui_window::port_setup_choice_data()
{
    QTest::addColumn<bool>("use_default");
    QTest::addColumn<int>("change_to");
    QTest::addColumn<int>("expected");

    QTest::newRow("the default gives 0") << true << 0 << 0;
    QTest::newRow("custom gives the current value") << false << 0 << 8443;
    QTest::newRow("changing the value picks custom") << true << 9000 << 9000;
}

void test_ui_window::port_setup_choice()
{
    QFETCH(bool, use_default);
    QFETCH(int, change_to);
    QFETCH(int, expected);
    port_setup dialog;
    QCOMPARE(dialog.windowTitle(), QStringLiteral("Port selection"));
    dialog.prepare(QStringLiteral("Specify port value for SSL"), 8443, 8443, use_default);
    QCOMPARE(dialog.findChild<QLabel*>("l_info")->text(), QStringLiteral("Specify port value for SSL"));
    QCOMPARE(dialog.findChild<QLabel*>("l_default")->text(), QStringLiteral("8443"));
    QCOMPARE(dialog.findChild<QRadioButton*>("o_default")->isChecked(), use_default);
    if (change_to)
        dialog.findChild<QSpinBox*>("i_port")->setValue(change_to);
    QCOMPARE(dialog.port(), expected);
}

void test_ui_window::splash_shows_stage()
{
    splash screen;
    QCOMPARE(screen.pixmap().size(), QSize(480, 300));
    // The artwork, not the plain panel used when it can't be read.
    const QImage art = screen.pixmap().toImage();
    QVERIFY(art.pixelColor(86, 40) != art.pixelColor(10, 10));
    screen.set_stage(QStringLiteral("Loading cache"), 9, 12);
    QCOMPARE(screen.message(), QStringLiteral("Loading: Loading cache"));
    QCOMPARE(screen.stage_number(), 9);
    QCOMPARE(screen.stage_total(), 12);
    // The stage is painted over the artwork.
    const QImage before = screen.grab().toImage();
    screen.set_stage(QStringLiteral("Done"), 12, 12);
    QVERIFY(screen.grab().toImage() != before);
}

void test_ui_window::usage_warning_text_and_box()
{
    usage_warning dialog;
    QVERIFY(dialog.isModal());
    QVERIFY(dialog.findChild<QLabel*>("l_text")->text().startsWith(
        QStringLiteral("If the device is working properly, then a firmware update is not required!\n\nDo not turn")));
    QVERIFY(dialog.findChild<QLabel*>("l_text")->text().endsWith(
        QStringLiteral("the device will completely stop working!")));
    QVERIFY(!dialog.dont_show_again());
    dialog.findChild<QCheckBox*>("o_dont_show")->click();
    QVERIFY(dialog.dont_show_again());
    auto* buttons = dialog.findChild<QDialogButtonBox*>("buttonBox");
    QVERIFY(buttons->button(QDialogButtonBox::Ok));
    // The wrapped text is shown whole, not cut at the dialog's first guess of a height.
    dialog.show();
    QVERIFY(QTest::qWaitForWindowExposed(&dialog));
    const auto* label = dialog.findChild<QLabel*>("l_text");
    QVERIFY(label->height() >= label->heightForWidth(label->width()));
    QVERIFY(buttons->button(QDialogButtonBox::Cancel));
}

void test_ui_window::problem_report_formats_time()
{
    problem_report dialog;
    QCOMPARE(dialog.windowTitle(), QStringLiteral("Issues report"));
    QCOMPARE(dialog.findChild<QTableView*>("tableView")->model(), &dialog.model());
    dialog.add(QDateTime(QDate(2024, 3, 1), QTime(9, 5, 7)), QStringLiteral("check_updates"),
        QStringLiteral("admin@127.0.0.2"), QStringLiteral("S1"), QStringLiteral("Failed"));
    dialog.add(QDateTime(QDate(2024, 3, 1), QTime(21, 0, 0)), QStringLiteral("confirm"), QString(), QString(),
        QStringLiteral("x"));
    QCOMPARE(dialog.model().rowCount(), 2);
    QCOMPARE(dialog.model().data(dialog.model().index(0, 0)).toString(), QStringLiteral("09:05:07"));
    QCOMPARE(dialog.model().data(dialog.model().index(1, 0)).toString(), QStringLiteral("21:00:00"));
    QCOMPARE(dialog.model().data(dialog.model().index(1, 0), 256).toUInt(), 2u);
}

QTEST_MAIN(test_ui_window)
#include "test_ui_window.moc"
