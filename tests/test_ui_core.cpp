// The program with its window: start-up dialogs and a run seen in the table.
#include "tests/support/answer_modal.h"
#include "tests/support/fleet_fixture.h"
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

} // namespace

class test_ui_core : public QObject
{
    Q_OBJECT
private slots:
    void usage_warning_at_first_start_only();
    void run_paints_the_table();
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

QTEST_MAIN(test_ui_core)
#include "test_ui_core.moc"
