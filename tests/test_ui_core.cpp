// The program with its window: start-up dialogs, a run seen in the table, and a command reference in
// the help that can't fall behind the command table.
#include "scripting/cmddb.h"
#include "tests/support/answer_modal.h"
#include "tests/support/fleet_fixture.h"
#include "ui/help.h"
#include "ui/main_window.h"
#include "ui/problem_report.h"

#include <QtTest>
#include <QtWidgets>

using namespace fleet;

namespace {

QString cell(const main_model& model, int row, int column)
{
    return model.data(model.index(row, column)).toString();
}

void store(const fixture& f, const QString& key, const QVariant& value)
{
    QSettings(f.dir.filePath("ov.config"), QSettings::IniFormat).setValue(key, value);
}

QVariant stored(const fixture& f, const QString& key)
{
    return QSettings(f.dir.filePath("ov.config"), QSettings::IniFormat).value(key);
}

// Every dotted name that runs a command, with whether "?" hides it (a hidden branch hides all below it).
void runnable_paths(const scripting::cmddb::tree& level, const QString& prefix, bool hidden, QMap<QString, bool>& out)
{
    for (auto it = level.cbegin(); it != level.cend(); ++it) {
        const QString path = prefix.isEmpty() ? it.key() : prefix + '.' + it.key();
        const bool node_hidden = hidden || it->hidden;
        if (!it->command.is_null())
            out.insert(path, node_hidden);
        runnable_paths(it->children, path, node_hidden, out);
    }
}

} // namespace

class test_ui_core : public QObject
{
    Q_OBJECT
private slots:
    void usage_warning_at_first_start_only();
    void run_paints_the_table();
    void help_covers_every_command_data();
    void help_covers_every_command();
};

void test_ui_core::usage_warning_at_first_start_only()
{
    fixture f;
    // The program's own update check goes to the service host: a closed loopback port here.
    store(f, "Service/address", "127.0.0.1");
    store(f, "Service/port", 1);
    const auto start = [&f] {
        f.c = std::make_unique<core>(QString(), f.dir.path());
        return f.c->operate(core::interactive, false);
    };
    // Refused, it ends the start and nothing is stored.
    auto watch = answer_modal([](QWidget* modal) { static_cast<QDialog*>(modal)->reject(); });
    QVERIFY(!start());
    f.c.reset();
    QVERIFY(!stored(f, "usage_warning_accepted").isValid());

    bool shown = false;
    watch = answer_modal([&](QWidget* modal) {
        shown = modal->objectName() == QLatin1String("usage_warning");
        modal->findChild<QCheckBox*>("o_dont_show")->setChecked(true);
        static_cast<QDialog*>(modal)->accept();
    });
    QVERIFY(start());
    QVERIFY(shown);
    f.c.reset();
    QCOMPARE(stored(f, "usage_warning_accepted").toBool(), true);

    // The second start shows nothing: a dialog now would be refused and fail the start.
    bool shown_again = false;
    watch = answer_modal([&](QWidget* modal) {
        shown_again = true;
        static_cast<QDialog*>(modal)->reject();
    });
    QVERIFY(start());
    QTest::qWait(100);
    QVERIFY(!shown_again);
}

// The flows' texts and verdicts are test_update_flow's; here, that the table and the problems window show them.
void test_ui_core::run_paints_the_table()
{
    fixture f;
    QVERIFY2(f.devices.start(2), qPrintable(f.devices.error()));
    const QJsonObject refused { { "error", 11 } };
    QVERIFY2(f.start_service({ { f.serial(0), "updated" }, { f.serial(1), refused } }), qPrintable(f.service.error()));
    f.make_core(false, core::interactive);
    QFile csv(f.dir.filePath("devices.csv"));
    QVERIFY(csv.open(QIODevice::WriteOnly) && csv.write("127.0.0.1,1,admin,\n") > 0);
    csv.close();
    main_model& model = *f.c->model();
    f.c->on_window_import(csv.fileName());
    QCOMPARE(model.rowCount(), 3);
    QAction* run = f.c->window()->findChild<QAction*>("act_run");
    run->trigger();
    QVERIFY(!run->isEnabled());
    QTRY_VERIFY_WITH_TIMEOUT(
        f.c->task_manager().running_count() == 0 && f.log_text().contains("-- all done --"), 60000);
    QVERIFY(run->isEnabled());

    f.idents << model.at(2).ident; // the imported row
    const QStringList statuses { "Updates not found", "Execution interrupted",
        "Error 1: Error connecting to 127.0.0.1" };
    for (int i = 0; i < 3; ++i) {
        const int row = model.row_of(f.idents[i]);
        QCOMPARE(cell(model, row, main_model::col_status), statuses[i]);
        QCOMPARE(model.data(model.index(row, main_model::col_status), Qt::BackgroundRole).value<QColor>(),
            main_model::status_color(i < 1 ? 1 : 0));
        const QString summary = cell(model, row, main_model::col_summary);
        QCOMPARE(cell(model, row, main_model::col_serial), i < 2 ? f.serial(i).toUpper() : QString());
        QVERIFY2(i < 2 ? summary.contains(f.serial(i).toUpper()) : summary == "No information", qPrintable(summary));
    }
    // The service's refusal is in the problems window, which opened by itself; a device's failure stays in its row.
    const problems& list = f.c->problem_list()->model();
    QCOMPARE(list.rowCount(), 1);
    QCOMPARE(list.data(list.index(0, 4)).toString(),
        QStringLiteral("Remote service error, code -13:11: \"General server error: device not yours\""));
    QVERIFY(f.c->problem_list()->isVisible());
}

void test_ui_core::help_covers_every_command_data()
{
    QTest::addColumn<QString>("language");
    QTest::newRow("en_US") << "en_US";
    QTest::newRow("ru_RU") << "ru_RU";
}

void test_ui_core::help_covers_every_command()
{
    QFETCH(QString, language);
    scripting::cmddb db;
    db.build();
    QMap<QString, bool> paths;
    runnable_paths(db.commands_tree(), QString(), false, paths);
    QVERIFY(paths.size() > 60);
    const QStringList lines = help::read_resource(help::cmd_reference, language).split('\n');
    for (auto it = paths.cbegin(); it != paths.cend(); ++it) {
        const QString link = QStringLiteral("<a href=\"special://ov_command/%1\">").arg(it.key());
        const auto entry = std::find_if(lines.cbegin(), lines.cend(),
            [&](const QString& line) { return line.startsWith("<h3>") && line.contains(link); });
        QVERIFY2(entry != lines.cend(), qPrintable("no entry for " + it.key()));
        QVERIFY2(entry->contains("class=\"hidden\"") == it.value(), qPrintable("hidden mark of " + it.key()));
    }
    QCOMPARE(lines.filter("<h3>").size(), paths.size());
}

QTEST_MAIN(test_ui_core)
#include "test_ui_core.moc"
