// What a run leaves behind: its summary by outcome, the handover report, and the check of the
// version a device comes back with after a flash.
#include "tests/support/fleet_fixture.h"
#include "tests/support/script_session.h"

#include <QTextDocument>
#include <QtTest>
#include <QtWidgets>

using namespace fleet;

namespace {

QJsonObject offer(const QString& file)
{
    return QJsonObject { { "verdict", "pending" }, { "offers", QJsonArray { file } } };
}

QString read_all(const QString& path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? QString::fromUtf8(file.readAll()) : QString();
}

} // namespace

class test_run_outcomes : public QObject
{
    Q_OBJECT
private slots:
    void csv_fields_data();
    void csv_fields();
    void html_is_escaped_and_written_whole();
    // Before any batch run: a batch core's quit at the end of its run stops every later event loop.
    void post_flash_check();
    void mixed_fleet_summary_and_report();
};

void test_run_outcomes::csv_fields_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<QString>("field");
    QTest::newRow("plain") << "127.0.0.2:34567" << "127.0.0.2:34567";
    QTest::newRow("empty") << "" << "";
    QTest::newRow("comma quoted") << "Error 5: a, b" << "\"Error 5: a, b\"";
    QTest::newRow("quotes doubled") << "say \"hi\"" << "\"say \"\"hi\"\"\"";
    QTest::newRow("line break kept inside quotes") << "two\nlines" << "\"two\nlines\"";
    QTest::newRow("formula defused") << "=HYPERLINK(\"x\")" << "\"'=HYPERLINK(\"\"x\"\")\"";
    QTest::newRow("leading minus defused") << "-1+1" << "\"'-1+1\"";
}

void test_run_outcomes::csv_fields()
{
    QFETCH(QString, text);
    QFETCH(QString, field);
    run_report::row r;
    r.device = text;
    r.outcome = QStringLiteral("Done upgrading");
    r.started = QDateTime(QDate(2026, 3, 1), QTime(10, 0, 5));
    const QString csv = run_report::csv({ r });
    const QString header = QStringLiteral("device,serial,mac,hardware,version_before,version_after,outcome,started,ended\r\n");
    QVERIFY(csv.startsWith(header));
    QCOMPARE(csv.mid(header.size()), field + QStringLiteral(",,,,,,Done upgrading,2026-03-01 10:00:05,\r\n"));
}

void test_run_outcomes::html_is_escaped_and_written_whole()
{
    run_report::row r;
    r.device = QStringLiteral("<script>&x");
    r.outcome = QStringLiteral("Still on V1 after the flash");
    const QString html = run_report::html({ r, r }, QDateTime::currentDateTime());
    QVERIFY(!html.contains(QStringLiteral("<script>")));
    QTextDocument doc;
    doc.setHtml(html);
    const QString shown = doc.toPlainText();
    QCOMPARE(shown.count(QStringLiteral("<script>&x")), 2);
    QVERIFY(shown.contains(QStringLiteral("Version before")));

    QTemporaryDir dir;
    QString error;
    QVERIFY(run_report::write(dir.filePath("handover.HTML"), { r }, &error));
    QVERIFY(read_all(dir.filePath("handover.HTML")).startsWith(QStringLiteral("<!DOCTYPE html>")));
    QVERIFY(run_report::write(dir.filePath("handover.html.csv"), { r }, &error));
    QVERIFY(read_all(dir.filePath("handover.html.csv")).startsWith(QStringLiteral("device,")));
    QVERIFY(!run_report::write(dir.filePath("no/such/folder/r.csv"), { r }, &error));
    QVERIFY(!error.isEmpty());
}

// Six devices: three flashed, one refusing the upload, one up to date, one denied. The summary counts them,
// stands just before "-- all done --", and the report has one row per device that agrees with the log.
void test_run_outcomes::mixed_fleet_summary_and_report()
{
    fixture f;
    const QJsonObject refuses { { "faults", QJsonObject { { "close_at", QJsonArray { 1520 } } } } };
    QVERIFY2(f.devices.start(6, { { "reboot_ms", 200 }, { "upgrade_step_ms", 20 } },
                 QJsonArray { QJsonObject(), QJsonObject(), QJsonObject(), refuses }),
        qPrintable(f.devices.error()));
    const QByteArray firmware = image(40000, 'r');
    const QString file = f.service.add_file("r.bin", firmware);
    QJsonObject fleet;
    for (int i = 0; i < 4; ++i)
        fleet.insert(f.serial(i), offer(file));
    fleet.insert(f.serial(4), QJsonObject { { "verdict", "updated" } });
    fleet.insert(f.serial(5), QJsonObject { { "verdict", "denied" } });
    QVERIFY2(f.start_service(fleet), qPrintable(f.service.error()));
    QVector<QString> versions_before;
    for (int i = 0; i < 6; ++i)
        versions_before << f.devices.state(i)["software_version"].toString();
    f.make_core();

    f.c->on_window_run_list();
    QCOMPARE(f.c->summary().count(run_summary::waiting) + f.c->summary().count(run_summary::running), 6);
    QTRY_COMPARE_WITH_TIMEOUT(f.ended, 6, 60000);
    // Registrations end the run after the last flow.
    QTRY_VERIFY_WITH_TIMEOUT(f.log_text().contains("-- all done --"), 10000);
    const run_summary s = f.c->summary();
    QCOMPARE(s.count(run_summary::done), 3);
    QCOMPARE(s.count(run_summary::up_to_date), 1);
    QCOMPARE(s.count(run_summary::failed), 2);
    QCOMPARE(s.count(run_summary::running) + s.count(run_summary::waiting), 0);
    const QStringList lines = f.log_text().split('\n');
    QVERIFY2(lines.last().endsWith("[core]: -- all done --"), qPrintable(lines.mid(lines.size() - 12).join('\n')));
    QVERIFY2(lines.at(lines.size() - 2).endsWith(
                 "[core]: Done: 3, up to date: 1, failed: 2, running: 0, waiting: 0"),
        qPrintable(lines.at(lines.size() - 2)));

    const QString path = f.dir.filePath("handover.csv");
    QCOMPARE(f.c->export_report(path), 6);
    QStringList rows = read_all(path).split(QStringLiteral("\r\n"), Qt::SkipEmptyParts);
    QCOMPARE(rows.size(), 7);
    rows.removeFirst();
    for (int i = 0; i < 6; ++i) {
        const QString device = f.endpoint_of(f.idents[i]).short_form();
        const QString row = rows.at(i); // by address, as the devices were made
        const QStringList fields = row.split(',');
        QCOMPARE(fields.size(), 9);
        QCOMPARE(fields.at(0), device);
        QCOMPARE(fields.at(1), f.serial(i).toUpper());
        // What the log said of the device when it was identified.
        const QString identified = lines.filter(device + ": Device serial: ").value(0);
        QVERIFY2(identified.contains(QStringLiteral("hardware: %1, version: %2,").arg(fields.at(3), fields.at(4))),
            qPrintable(identified + " / " + row));
        QCOMPARE(fields.at(4), versions_before.at(i));
        QCOMPARE(fields.at(5), i < 3 ? md5_hex(firmware) : versions_before.at(i));
        QCOMPARE(fields.at(6), f.result(i).text);
        const QDateTime started = QDateTime::fromString(fields.at(7), QStringLiteral("yyyy-MM-dd hh:mm:ss"));
        const QDateTime ended = QDateTime::fromString(fields.at(8), QStringLiteral("yyyy-MM-dd hh:mm:ss"));
        QVERIFY2(started.isValid() && ended.isValid() && started <= ended, qPrintable(row));
    }
    QCOMPARE(f.c->export_report(f.dir.filePath("missing/handover.csv")), -1);

}

// With the check on, a device that took the image but kept its version ends red and unconfirmed; one that
// runs the new version is confirmed and shows it.
void test_run_outcomes::post_flash_check()
{
    fixture f;
    const QJsonObject keeps { { "faults", QJsonObject { { "keep_version", true } } } };
    QVERIFY2(f.devices.start(2, { { "reboot_ms", 300 }, { "upgrade_step_ms", 20 } }, QJsonArray { QJsonObject(), keeps }),
        qPrintable(f.devices.error()));
    const QByteArray firmware = image(30000, 'p');
    const QString file = f.service.add_file("p.bin", firmware);
    QVERIFY2(f.start_service({ { f.serial(0), offer(file) }, { f.serial(1), offer(file) } }), qPrintable(f.service.error()));
    const QString old_version = f.devices.state(1)["software_version"].toString();
    f.make_core(false, core::interactive);
    f.c->on_window_option_menu_executed(QStringLiteral("verify_after_flash"), {}, true);
    QVERIFY(QSettings(f.dir.filePath("ov.config"), QSettings::IniFormat)
                .value("Extended/menu_options/verify_after_flash")
                .toBool());

    f.c->on_window_run_list();
    QTRY_COMPARE_WITH_TIMEOUT(f.ended, 2, 60000);
    main_model* model = f.c->model();
    const auto cell = [&](int i, int column, int role = Qt::DisplayRole) {
        return model->data(model->index(model->row_of(f.idents[i]), column), role);
    };

    const QString new_version = QStringLiteral("V") + md5_hex(firmware).left(8);
    QCOMPARE(f.result(0).text, QStringLiteral("Done upgrading"));
    QCOMPARE(f.service.requests("confirm", f.serial(0)).size(), 1);
    QVERIFY2(cell(0, main_model::col_summary).toString().contains(new_version), qPrintable(cell(0, 3).toString()));
    QCOMPARE(f.line(f.idents[0])->get(tasks::keys::version).toString(), new_version);

    QCOMPARE(f.devices.state(1)["upgrades"].toInt(), 1);
    QCOMPARE(f.result(1).text, QStringLiteral("Still on %1 after the flash").arg(old_version));
    QCOMPARE(cell(1, main_model::col_status).toString(), f.result(1).text);
    QCOMPARE(cell(1, main_model::col_status, Qt::BackgroundRole).value<QColor>(), main_model::status_color(0));
    QCOMPARE(f.service.requests("confirm", f.serial(1)).size(), 0);
    QCOMPARE(f.c->summary().count(run_summary::failed), 1);

    // How a script leaves the record of its run.
    recording_console console;
    f.c->api().set_console(&console);
    session script(*f.c);
    const QString page = f.dir.filePath("handover.html");
    QVERIFY(script.run("report.export " + page));
    QVERIFY2(console.plain().join('\n').contains(QStringLiteral("Devices in the report: 2")),
        qPrintable(console.plain().join('\n')));
    QCOMPARE(f.c->resolve_variable(QStringLiteral("last/result")), QStringLiteral("2"));
    const QString html = read_all(page);
    QCOMPARE(html.count(QStringLiteral("<tr>")), 1 + 2);
    // Version before and after: the same on the device that kept it, the new one on the other.
    QVERIFY(html.contains(QStringLiteral("<td>%1</td><td>%1</td>").arg(old_version)));
    QVERIFY(html.contains(QStringLiteral("<td>%1</td><td>%2</td>").arg(old_version, new_version)));
}

QTEST_MAIN(test_run_outcomes)
#include "test_run_outcomes.moc"
