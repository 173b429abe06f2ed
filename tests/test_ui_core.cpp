// The program with its window: start-up dialogs, a run seen in the table, and the language.
#include "app/core.h"
#include "tests/support/answer_modal.h"
#include "tests/support/box_answers.h"
#include "tests/support/devsim_harness.h"
#include "tests/support/svcsim_harness.h"
#include "ui/main_model.h"
#include "ui/main_window.h"
#include "ui/problem_report.h"

#include <QtTest>
#include <QtWidgets>

#include <functional>
#include <memory>

namespace {

task_element row_at(const QString& host)
{
    endpoint ep;
    ep.host = host;
    return task_element(ep, device());
}

QString cell(const main_model& model, int row, int column)
{
    return model.data(model.index(row, column)).toString();
}

QColor colour(const main_model& model, int row)
{
    return model.data(model.index(row, main_model::col_status), Qt::BackgroundRole).value<QColor>();
}

const QColor failure_colour(255, 225, 220);
const QColor success_colour(220, 255, 225);

// A core with its window in a folder of its own, the usage warning accepted unless told.
struct desk
{
    explicit desk(bool warning_accepted = true)
    {
        if (warning_accepted)
            set("usage_warning_accepted", true);
        // The program's own update check goes to the service host: a closed loopback port here.
        set("Service/address", "127.0.0.1");
        set("Service/port", 1);
    }

    QString config() const { return dir.filePath("ov.config"); }
    void set(const QString& key, const QVariant& value) { QSettings(config(), QSettings::IniFormat).setValue(key, value); }
    QVariant get(const QString& key) const { return QSettings(config(), QSettings::IniFormat).value(key); }

    bool start()
    {
        c = std::make_unique<core>(QString(), dir.path());
        return c->operate(core::interactive, false);
    }

    QString log_text() const
    {
        QStringList lines;
        for (const auto& e : c->history().entries({ "core", "tasks", "sapi" }))
            lines << e.text;
        return lines.join('\n');
    }

    QTemporaryDir dir;
    std::unique_ptr<core> c;
};

} // namespace

class test_ui_core : public QObject
{
    Q_OBJECT
private slots:
    void usage_warning_at_first_start_only();
    void run_paints_the_table();
    void run_without_selection_warns_data();
    void run_without_selection_warns();
    void language_at_start_and_at_run_time();
};

void test_ui_core::usage_warning_at_first_start_only()
{
    desk d(false);
    // Refused, it ends the start and nothing is stored.
    auto watch = answer_modal([](QWidget* modal) { static_cast<QDialog*>(modal)->reject(); });
    QVERIFY(!d.start());
    d.c.reset();
    QVERIFY(!d.get("usage_warning_accepted").isValid());

    bool shown = false;
    watch = answer_modal([&](QWidget* modal) {
        shown = modal->objectName() == QLatin1String("usage_warning");
        modal->findChild<QCheckBox*>("o_dont_show")->setChecked(true);
        static_cast<QDialog*>(modal)->accept();
    });
    QVERIFY(d.start());
    QVERIFY(shown);
    QCOMPARE(d.c->window()->windowTitle(), QStringLiteral("Kelmar Firmware Update"));
    d.c.reset();
    QCOMPARE(d.get("usage_warning_accepted").toBool(), true);

    // The second start shows nothing: a dialog now would be refused and fail the start.
    bool shown_again = false;
    watch = answer_modal([&](QWidget* modal) {
        shown_again = true;
        static_cast<QDialog*>(modal)->reject();
    });
    QVERIFY(d.start());
    QTest::qWait(100);
    QVERIFY(!shown_again);
}

// The flows' texts and verdicts are test_update_flow's; here, that the table and the problems window show them.
void test_ui_core::run_paints_the_table()
{
    devsim_harness devices;
    QVERIFY2(devices.start(2), qPrintable(devices.error()));
    svcsim_harness service;
    auto serial = [&](int i) { return devices.state(i)["serial"].toString(); };
    QVERIFY2(service.start(QJsonObject { { "fleet",
                 QJsonObject { { serial(0), "updated" }, { serial(1), QJsonObject { { "error", 11 } } } } } }),
        qPrintable(service.error()));
    desk d;
    d.set("Service/client_id", QString::fromLatin1(service.client_id().toHex()));
    d.set("Service/client_key", QString::fromLatin1(service.client_key().toHex()));
    d.set("Service/port", service.port());
    QFile csv(d.dir.filePath("devices.csv"));
    QVERIFY(csv.open(QIODevice::WriteOnly));
    for (int i = 0; i < 2; ++i)
        csv.write(QStringLiteral("%1,%2,admin,\n").arg(devices.address(i).toString()).arg(devices.port(i)).toUtf8());
    csv.write("127.0.0.1,1,admin,\n");
    csv.close();

    QVERIFY(d.start());
    main_model& model = *d.c->model();
    d.c->on_window_import(csv.fileName());
    QCOMPARE(model.rowCount(), 3);
    for (int row = 0; row < 3; ++row)
        QCOMPARE(cell(model, row, main_model::col_status), QStringLiteral("Added"));
    QAction* run = d.c->window()->findChild<QAction*>("act_run");
    run->trigger();
    QVERIFY(!run->isEnabled());
    QTRY_VERIFY_WITH_TIMEOUT(d.c->task_manager().running_count() == 0 && d.log_text().contains("-- all done --"), 60000);
    QVERIFY(run->isEnabled());

    QMap<QString, int> rows; // by host
    for (const QString& ident : d.c->task_manager().lines())
        rows[d.c->task_manager().find(ident)->get(tasks::keys::endpoint).value<endpoint>().host] = model.row_of(ident);
    const QStringList statuses { "Updates not found", "Execution interrupted",
        "Error 1: Error connecting to 127.0.0.1" };
    for (int i = 0; i < 3; ++i) {
        const int row = rows.value(i < 2 ? devices.address(i).toString() : "127.0.0.1", -1);
        QVERIFY(row >= 0);
        QCOMPARE(cell(model, row, main_model::col_status), statuses[i]);
        QCOMPARE(colour(model, row), i < 1 ? success_colour : failure_colour);
        const QString summary = cell(model, row, main_model::col_summary);
        QCOMPARE(cell(model, row, main_model::col_serial), i < 2 ? serial(i).toUpper() : QString());
        QVERIFY2(i < 2 ? summary.contains(serial(i).toUpper()) : summary == "No information", qPrintable(summary));
    }
    // The service's refusal is in the problems window, which opened by itself; a device's failure stays in its row.
    const problems& list = d.c->problem_list()->model();
    QCOMPARE(list.rowCount(), 1);
    QCOMPARE(list.data(list.index(0, 4)).toString(),
        QStringLiteral("Remote service error, code -13:11: \"General server error: device not yours\""));
    QVERIFY(d.c->problem_list()->isVisible());
}

void test_ui_core::run_without_selection_warns_data()
{
    QTest::addColumn<int>("rows");
    QTest::addColumn<QString>("title");
    QTest::addColumn<QString>("text");
    QTest::newRow("empty list") << 0 << "The list is empty" << "No tasks. Import the task list or add a new one.";
    QTest::newRow("nothing ticked") << 2 << "Nothing is selected" << "Select at least one task before launching.";
}

void test_ui_core::run_without_selection_warns()
{
    QFETCH(int, rows);
    QFETCH(QString, title);
    QFETCH(QString, text);
    desk d;
    QVERIFY(d.start());
    for (int i = 0; i < rows; ++i)
        d.c->introduce(row_at(QStringLiteral("127.0.0.%1").arg(200 + i)));
    d.c->on_window_selection_request(model_structures::selection_type::none);
    const box_answers answers;
    d.c->window()->findChild<QAction*>("act_run")->trigger();
    QTRY_COMPARE_WITH_TIMEOUT(answers.texts(), QStringList { title + ": " + text }, 5000);
    QCOMPARE(d.c->task_manager().running_count(), 0u);
    QVERIFY(!d.log_text().contains("Launching"));
}

// The stored language at start; a switch at run time removes it again and reaches the dialogs already built.
void test_ui_core::language_at_start_and_at_run_time()
{
    desk d;
    d.set("language", "ru_RU");
    QVERIFY(d.start());
    main_window* w = d.c->window();
    QCOMPARE(d.c->current_language(), QStringLiteral("ru_RU"));
    QVERIFY(!w->menuBar()->actions().isEmpty());
    const QString menu = w->menuBar()->actions().at(0)->text();
    QCOMPARE(menu, QCoreApplication::translate("main_window", "Application"));
    QVERIFY2(menu != QLatin1String("Application"), qPrintable(menu));
    const QString header = d.c->model()->headerData(main_model::col_status, Qt::Horizontal, Qt::DisplayRole).toString();
    QVERIFY2(!header.isEmpty() && header != QLatin1String("Operation"), qPrintable(header));
    d.c->introduce(row_at(QStringLiteral("127.0.0.250")));
    QVERIFY(cell(*d.c->model(), 0, main_model::col_status) != QLatin1String("Added"));
    auto* name = w->findChild<QDialog*>("task_edit")->findChild<QLabel*>("l_name");
    QVERIFY(name->text() != QLatin1String("Name:"));
    // Qt's own buttons follow, from the distribution's translations.
    const QString cancel = QCoreApplication::translate("QPlatformTheme", "Cancel");
    QVERIFY2(cancel != QLatin1String("Cancel"), "qttranslations5-l10n is missing: bash scripts/setup.sh installs it");

    d.c->apply_language(QStringLiteral("en_US")); // no translation of its own
    QTRY_COMPARE(name->text(), QStringLiteral("Name:"));
    QCOMPARE(QCoreApplication::translate("QPlatformTheme", "Cancel"), QStringLiteral("Cancel"));
    QCOMPARE(w->findChild<QAction*>("act_run")->text(), QStringLiteral("Update online"));
    QCOMPARE(w->findChild<QDialog*>("problem_report")->windowTitle(), QStringLiteral("Issues report"));
}

QTEST_MAIN(test_ui_core)
#include "test_ui_core.moc"
