#include <QtTest>
#include <QtWidgets>

#include <memory>

#include "ui/main_model.h"
#include "ui/main_model_filter.h"
#include "ui/main_window.h"
#include "ui/task_edit.h"

namespace
{

// A window over a model of three rows, with its settings in a file of its own, preset from
// "key=value;key=value". What the window asks of core is written down in seen, a line a signal.
struct window_fixture {
    explicit window_fixture(const QString& path, const QString& preset = {})
        : settings(path, QSettings::IniFormat)
    {
        for (const QString& entry : preset.split(';', Qt::SkipEmptyParts))
            settings.setValue(entry.section('=', 0, 0), entry.section('=', 1));
        for (int i = 0; i < 3; ++i)
            model.add_record(main_model::make_record("id-" + QString::number(i), "admin@cam" + QString::number(i)));
        filter.setSourceModel(&model);
        window = std::make_unique<main_window>(settings);
        window->set_model(&filter);
        main_window* w = window.get();
        QObject::connect(
            w, &main_window::run_list, [this](bool no_add, bool fetch, bool force, const QStringList& ids) {
                seen << QString::asprintf("run %d%d%d ", no_add, fetch, force) + ids.join(',');
            });
        QObject::connect(w, &main_window::edit_element, [this](const QString& id) { seen << "edit " + id; });
    }

    QTableView* table() const { return window->table(); }
    QHeaderView* header() const { return window->table()->horizontalHeader(); }
    QList<int> widths(const QList<int>& source_columns) const
    {
        QList<int> out;
        for (int column : source_columns)
            out << header()->sectionSize(filter.proxy_column(column));
        return out;
    }
    bool log_collapsed() const { return window->findChild<QSplitter*>("splitter")->sizes().value(1) == 0; }
    bool show()
    {
        window->show();
        return QTest::qWaitForWindowExposed(window.get());
    }

    QSettings settings;
    main_model model;
    main_model_filter filter;
    std::unique_ptr<main_window> window;
    QStringList seen;
};

void click_ok(QDialog& dialog)
{
    dialog.findChild<QDialogButtonBox*>("buttonBox")->button(QDialogButtonBox::Ok)->click();
}

} // namespace

class test_ui_window : public QObject
{
    Q_OBJECT
private slots:
    void init();
    void double_click_data();
    void double_click();
    void column_layout_survives_a_restart();
    void stored_layout_data();
    void stored_layout();
    void offline_and_running_action_states();
    void task_edit_add_data();
    void task_edit_add();
    void task_edit_encrypted_password_data();
    void task_edit_encrypted_password();

private:
    QString settings_path() const { return m_dir->filePath(QStringLiteral("ov.config")); }
    std::unique_ptr<QTemporaryDir> m_dir;
};

void test_ui_window::init()
{
    m_dir = std::make_unique<QTemporaryDir>();
    QVERIFY(m_dir->isValid());
}

void test_ui_window::double_click_data()
{
    QTest::addColumn<QString>("preset"); // keys of Behavior/taskclick
    QTest::addColumn<int>("column");
    QTest::addColumn<QString>("expected");
    const QString per_cell = "common_settings=false;row=1;address=2;status=3";
    QTest::newRow("nothing stored does nothing") << "" << 3 << "";
    QTest::newRow("common is the default: row action edits") << "row=1;address=3;status=3" << 0 << "edit id-1";
    QTest::newRow("common row action 2 runs the row's tasks") << "common_settings=true;row=2" << 4 << "run 100 id-1";
    QTest::newRow("per cell: the address cell takes address") << per_cell << 0 << "run 100 id-1";
    QTest::newRow("per cell: the status cell takes status") << per_cell << 4 << "run 000 id-1";
    QTest::newRow("per cell: other columns always edit") << "common_settings=false;row=3" << 3 << "edit id-1";
}

// Serial and MAC are hidden: the cells are known by their source column, not their place.
void test_ui_window::double_click()
{
    QFETCH(QString, preset);
    QFETCH(int, column);
    const QString group = QStringLiteral("Behavior/taskclick/");
    window_fixture f(settings_path(), preset.isEmpty() ? preset : group + preset.replace(';', ';' + group));
    f.filter.set_hidden_columns({ 1, 2 });
    QVERIFY(f.show());
    const QModelIndex cell = f.filter.index(1, f.filter.proxy_column(column));
    QVERIFY(cell.isValid());
    const QPoint at = f.table()->visualRect(cell).center();
    // The view acts on a double click only over the index pressed before; QTest's double click sends no press.
    QTest::mousePress(f.table()->viewport(), Qt::LeftButton, {}, at);
    QTest::mouseDClick(f.table()->viewport(), Qt::LeftButton, {}, at);
    QTEST(f.seen.join('|'), "expected");
}

// The script forms set the layout; a restart after Quit shows it again, moved sections and all.
void test_ui_window::column_layout_survives_a_restart()
{
    QList<int> widths;
    {
        window_fixture f(settings_path());
        QVERIFY(f.show());
        QTRY_VERIFY(f.table()->viewport()->width() > 100);
        QTest::qWait(0);
        const int usable = f.table()->viewport()->width() - 3;
        // Pixels as they stand, a share of the viewport, an even share for a bare name.
        QCOMPARE(f.window->set_column_layout({ "display:150", "mac:40%", "status" }), 3);
        widths = { 150, usable * 40 / 100, usable / 3 };
        QCOMPARE(f.widths({ 0, 2, 4 }), widths);
        QCOMPARE(f.window->set_column_layout({ "nonsense:10", "other" }), 0); // nothing known: left as it was
        QCOMPARE(f.filter.hidden_columns(), (QList<int> { 1, 3 }));
        f.header()->moveSection(f.header()->visualIndex(f.filter.proxy_column(4)), 0);
        f.window->findChild<QAction*>("act_quit")->trigger(); // through the close, as any other way out
        f.settings.sync();
    }
    window_fixture g(settings_path());
    QVERIFY(g.show());
    QCOMPARE(g.filter.hidden_columns(), (QList<int> { 1, 3 }));
    QCOMPARE(g.filter.columnCount(), 3);
    QCOMPARE(g.header()->visualIndex(g.filter.proxy_column(4)), 0);
    QCOMPARE(g.widths({ 0, 2, 4 }), widths);
    QTest::qWait(20); // the first-show defaults don't overwrite the stored layout
    QCOMPARE(g.widths({ 0, 2, 4 }), widths);
}

void test_ui_window::stored_layout_data()
{
    QTest::addColumn<QString>("preset");
    QTest::addColumn<bool>("collapsed");
    QTest::newRow("nothing stored: default columns, the pane collapsed") << "" << true;
    QTest::newRow("columns: text that isn't JSON") << "Window/columns={not json" << true;
    QTest::newRow("log: sizes that aren't numbers are passed over")
        << "Window/log/position=abc,def;Window/log/visible=true" << false;
    QTest::newRow("log: visible false collapses the pane")
        << "Window/log/position=300,100;Window/log/visible=false" << true;
}

// A broken or missing layout leaves the default; the log pane's state is kept across a restart.
void test_ui_window::stored_layout()
{
    QFETCH(QString, preset);
    QFETCH(bool, collapsed);
    window_fixture f(settings_path(), preset);
    QVERIFY(f.show());
    QCOMPARE(f.filter.columnCount(), 5);
    QCOMPARE(f.log_collapsed(), collapsed);
    f.window->close();
    f.settings.sync();
    window_fixture g(settings_path());
    QVERIFY(g.show());
    QCOMPARE(g.log_collapsed(), collapsed);
}

void test_ui_window::offline_and_running_action_states()
{
    window_fixture f(settings_path());
    const QStringList actions { "act_run", "act_fetch_only", "act_force_update", "act_run_tasks", "act_run_tasks_2",
        "act_scan", "act_clear", "act_add", "act_edit", "act_delete", "act_import", "act_quit", "act_select_all",
        "act_errors", "act_export", "act_copy_status", "act_settings" };
    const auto enabled = [&] { // '1' for each enabled action, in the order named
        QString out;
        for (const QString& name : actions)
            out += f.window->findChild<QAction*>(name)->isEnabled() ? '1' : '0';
        return out;
    };
    const auto* label = f.window->findChild<QLabel*>("l_status");
    f.window->set_offline(true);
    QVERIFY(label->text().endsWith("Offline mode"));
    QCOMPARE(enabled(), QString("000" "11111111" "111111"));
    f.window->set_running(true);
    QCOMPARE(enabled(), QString("000" "00000000" "111111"));
    // A run ending while offline leaves the remote actions greyed.
    f.window->set_running(false);
    QCOMPARE(enabled(), QString("000" "11111111" "111111"));
    f.window->set_offline(false);
    QVERIFY(label->text().isEmpty());
    QCOMPARE(enabled(), QString(17, '1'));
}

void test_ui_window::task_edit_add_data()
{
    QTest::addColumn<QString>("address");
    QTest::addColumn<int>("devices"); // 0: back to single mode before accepting
    QTest::addColumn<QString>("range"); // first and last
    QTest::addColumn<int>("count"); // 0: nothing is added and the dialog stays
    QTest::addColumn<QString>("name");
    const QString hall = "hall";
    QTest::newRow(".250 and 10 devices stop at .255") << "10.0.0.250" << 10 << "10.0.0.250 — 10.0.0.255" << 6 << hall;
    QTest::newRow("a leading zero is decimal, not octal") << "10.0.0.010" << 2 << "10.0.0.10 — 10.0.0.11" << 2 << hall;
    QTest::newRow("an octet past 255 is invalid") << "10.0.0.256" << 2 << " — " << 0 << hall;
    QTest::newRow("single mode adds the host as typed") << "cam.local" << 0 << QString() << 1 << hall;
    // The task list has no quoting: a comma is refused where it is typed.
    QTest::newRow("a comma in the name") << "cam.local" << 0 << QString() << 0 << "hall, left";
}

void test_ui_window::task_edit_add()
{
    QFETCH(QString, address);
    QFETCH(int, devices);
    QFETCH(QString, range);
    QFETCH(int, count);
    QFETCH(QString, name);
    const QString first = range.section(QString::fromUtf8(" — "), 0, 0);
    task_edit dialog;
    dialog.prepare_add();
    auto line = [&](const char* name) { return dialog.findChild<QLineEdit*>(name); };
    auto* spin = dialog.findChild<QSpinBox*>("f_num_devices");
    dialog.findChild<QRadioButton*>("o_add_multi")->click();
    QTest::keyClicks(line("f_address"), address);
    spin->setValue(devices ? devices : 5);
    if (!devices)
        dialog.findChild<QRadioButton*>("o_add_single")->click();
    QCOMPARE(spin->isEnabled(), devices > 0);
    QCOMPARE(dialog.range_count(), devices ? count : 0);
    if (devices)
        QCOMPARE(dialog.range_first() + QString::fromUtf8(" — ") + dialog.range_last(), range);
    line("f_name")->setText(name);
    dialog.findChild<QSpinBox*>("f_port")->setValue(34600);
    line("f_user")->setText(QStringLiteral("operator"));
    QTest::keyClicks(line("f_password"), QStringLiteral("secret"));
    QSignalSpy added(&dialog, &task_edit::added);
    dialog.open();
    click_ok(dialog);
    QCOMPARE(dialog.isVisible(), count == 0);
    QCOMPARE(added.count(), count ? 1 : 0);
    QList<endpoint> expected;
    for (int i = 0; i < count; ++i) {
        const int octet = first.section('.', 3).toInt() + i;
        const QString host = devices ? first.section('.', 0, 2) + '.' + QString::number(octet) : address;
        expected << endpoint { name, {}, host, 34600, "operator", "secret", false, 0 };
    }
    QCOMPARE(added.value(0).value(0).value<QList<endpoint>>(), expected);
    if (name.contains(',')) { // mended, it goes through
        QVERIFY(dialog.findChild<QLabel*>("l_error")->isVisible());
        line("f_name")->setText(name.remove(','));
        click_ok(dialog);
        QCOMPARE(added.count(), 1);
    }
}

void test_ui_window::task_edit_encrypted_password_data()
{
    QTest::addColumn<bool>("encrypted");
    QTest::addColumn<QString>("typed");
    QTest::addColumn<bool>("flag");
    QTest::addColumn<QString>("password");
    QTest::newRow("encrypted and untouched is kept with its flag") << true << QString() << true << "U2FsdGVk:c2VhbGVk";
    QTest::newRow("encrypted then typed over takes the text") << true << "fresh" << false << "fresh";
    QTest::newRow("a clear password typed on is extended") << false << "9" << false << "U2FsdGVk:c2VhbGVk9";
    QTest::newRow("a comma is refused") << false << ",9" << false << QString();
}

void test_ui_window::task_edit_encrypted_password()
{
    QFETCH(bool, encrypted);
    QFETCH(QString, typed);
    QFETCH(QString, password);
    QFETCH(bool, flag);
    const endpoint original { "gate", "00:12:34:56:78:9a", "127.0.0.5", 34568, "root", "U2FsdGVk:c2VhbGVk", encrypted,
        3 };
    task_edit dialog;
    dialog.prepare_edit(QStringLiteral("flow-1"), original);
    auto* field = dialog.findChild<QLineEdit*>("f_password");
    QCOMPARE(field->text(), encrypted ? QString() : original.password);
    QCOMPARE(dialog.password_kept(), encrypted);
    QSignalSpy edited(&dialog, &task_edit::edited);
    QSignalSpy added(&dialog, &task_edit::added);
    if (!typed.isEmpty()) {
        field->end(false);
        QTest::keyClicks(field, typed);
    }
    click_ok(dialog);
    QCOMPARE(added.count(), 0);
    QCOMPARE(edited.count(), password.isEmpty() ? 0 : 1);
    if (password.isEmpty())
        return;
    QCOMPARE(edited.at(0).at(0).toString(), QStringLiteral("flow-1"));
    // What the form doesn't show travels unchanged.
    endpoint expected = original;
    expected.password = password;
    expected.password_encrypted = flag;
    QCOMPARE(edited.at(0).at(1).value<endpoint>(), expected);
}

QTEST_MAIN(test_ui_window)
#include "test_ui_window.moc"
