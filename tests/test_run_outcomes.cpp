// What a run leaves behind: its summary by outcome, the handover report, and the check of the
// version a device comes back with after a flash.
#include "tests/support/fleet_fixture.h"
#include "tests/support/script_session.h"
#include "tests/support/self_run.h"

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
    void fleet_summary_report_and_post_flash_check();
    void batch_with_nothing_to_do_ends_data();
    void batch_with_nothing_to_do_ends();
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

// Seven devices, the post-flash check on: three flashed, one refusing the upload, one up to date, one denied,
// one that took the image but kept its version (red, unconfirmed). The summary counts them, stands just before
// "-- all done --", and the report has one row per device that agrees with the log.
void test_run_outcomes::fleet_summary_report_and_post_flash_check()
{
    fixture f;
    const QJsonObject refuses { { "faults", QJsonObject { { "close_at", QJsonArray { 1520 } } } } };
    const QJsonObject keeps { { "faults", QJsonObject { { "keep_version", true } } } };
    QVERIFY2(f.devices.start(7, { { "reboot_ms", 300 }, { "upgrade_step_ms", 20 } },
                 QJsonArray { QJsonObject(), QJsonObject(), QJsonObject(), refuses, QJsonObject(), QJsonObject(), keeps }),
        qPrintable(f.devices.error()));
    const QByteArray firmware = image(40000, 'r');
    const QString file = f.service.add_file("r.bin", firmware);
    QJsonObject fleet;
    for (int i : { 0, 1, 2, 3, 6 })
        fleet.insert(f.serial(i), offer(file));
    fleet.insert(f.serial(4), QJsonObject { { "verdict", "updated" } });
    fleet.insert(f.serial(5), QJsonObject { { "verdict", "denied" } });
    QVERIFY2(f.start_service(fleet), qPrintable(f.service.error()));
    QVector<QString> versions_before;
    for (int i = 0; i < 7; ++i)
        versions_before << f.devices.state(i)["software_version"].toString();
    f.make_core(false, core::interactive);
    f.c->on_window_option_menu_executed(QStringLiteral("verify_after_flash"), {}, true);

    f.c->on_window_run_list();
    QCOMPARE(f.c->summary().count(run_summary::waiting) + f.c->summary().count(run_summary::running), 7);
    QTRY_COMPARE_WITH_TIMEOUT(f.ended, 7, 60000);
    // Registrations end the run after the last flow.
    QTRY_VERIFY_WITH_TIMEOUT(f.log_text().contains("-- all done --"), 10000);
    const QStringList lines = f.log_text().split('\n');
    QVERIFY2(lines.last().endsWith("[core]: -- all done --"), qPrintable(lines.mid(lines.size() - 12).join('\n')));
    QVERIFY2(lines.at(lines.size() - 2).endsWith("[core]: Done: 3, up to date: 1, failed: 3, running: 0, waiting: 0"),
        qPrintable(lines.at(lines.size() - 2)));

    const QString new_version = QStringLiteral("V") + md5_hex(firmware).left(8);
    main_model* model = f.c->model();
    const auto cell = [&](int i, int column, int role = Qt::DisplayRole) {
        return model->data(model->index(model->row_of(f.idents[i]), column), role);
    };
    QCOMPARE(f.service.requests("confirm", f.serial(0)).size(), 1);
    QVERIFY2(cell(0, main_model::col_summary).toString().contains(new_version), qPrintable(cell(0, 3).toString()));
    QCOMPARE(f.line(f.idents[0])->get(tasks::keys::version).toString(), new_version);
    QCOMPARE(f.devices.state(6)["upgrades"].toInt(), 1);
    QCOMPARE(f.result(6).text, QStringLiteral("Still on %1 after the flash").arg(versions_before.at(6)));
    QCOMPARE(cell(6, main_model::col_status).toString(), f.result(6).text);
    QCOMPARE(cell(6, main_model::col_status, Qt::BackgroundRole).value<QColor>(), main_model::status_color(0));
    QCOMPARE(f.service.requests("confirm", f.serial(6)).size(), 0);

    const QString path = f.dir.filePath("handover.csv");
    QCOMPARE(f.c->export_report(path), 7);
    QStringList rows = read_all(path).split(QStringLiteral("\r\n"), Qt::SkipEmptyParts);
    QCOMPARE(rows.size(), 8);
    rows.removeFirst();
    for (int i = 0; i < 7; ++i) {
        const QString device = f.endpoint_of(f.idents[i]).short_form();
        const QString row = rows.at(i); // by address, as the devices were made
        const QStringList fields = row.split(',');
        QCOMPARE(fields.size(), 9);
        QCOMPARE(fields.mid(0, 2), (QStringList { device, f.serial(i).toUpper() }));
        // What the log said of the device when it was identified.
        const QString identified = lines.filter(device + ": Device serial: ").value(0);
        QVERIFY2(identified.contains(QStringLiteral("hardware: %1, version: %2,").arg(fields.at(3), fields.at(4))),
            qPrintable(identified + " / " + row));
        QCOMPARE(fields.at(4), versions_before.at(i));
        QCOMPARE(fields.at(5), i < 3 ? new_version : versions_before.at(i));
        QCOMPARE(fields.at(6), f.result(i).text);
        const QDateTime started = QDateTime::fromString(fields.at(7), QStringLiteral("yyyy-MM-dd hh:mm:ss"));
        const QDateTime ended = QDateTime::fromString(fields.at(8), QStringLiteral("yyyy-MM-dd hh:mm:ss"));
        QVERIFY2(started.isValid() && ended.isValid() && started <= ended, qPrintable(row));
    }
    QCOMPARE(f.c->export_report(f.dir.filePath("missing/handover.csv")), -1);

    // How a script leaves the record of its run: version before and after, the same on the device that kept it.
    recording_console console;
    f.c->api().set_console(&console);
    session script(*f.c);
    const QString page = f.dir.filePath("handover.html");
    QVERIFY(script.run("report.export " + page));
    QVERIFY2(console.plain().join('\n').contains(QStringLiteral("Devices in the report: 7")),
        qPrintable(console.plain().join('\n')));
    QCOMPARE(f.c->resolve_variable(QStringLiteral("last/result")), QStringLiteral("7"));
    const QString html = read_all(page);
    QCOMPARE(html.count(QStringLiteral("<tr>")), 1 + 7);
    QVERIFY(html.contains(QStringLiteral("<td>%1</td><td>%1</td>").arg(versions_before.at(6))));
    QVERIFY(html.contains(QStringLiteral("<td>%1</td><td>%2</td>").arg(versions_before.at(0), new_version)));
}

QTEST_MAIN(test_run_outcomes)
#include "test_run_outcomes.moc"

void test_run_outcomes::batch_with_nothing_to_do_ends_data()
{
    QTest::addColumn<QByteArray>("csv");
    QTest::newRow("empty file") << QByteArray();
    QTest::newRow("blank lines") << QByteArray("\n\n");
}

void test_run_outcomes::batch_with_nothing_to_do_ends()
{
    QFETCH(QByteArray, csv);
    QTemporaryDir dir;
    const QString binary = dir.filePath("orvane");
    QVERIFY(QFile::copy(QStringLiteral(ORVANE_BINARY), binary));
    QSettings settings(dir.filePath("ov.config"), QSettings::IniFormat);
    settings.setValue("Service/address", "127.0.0.1");
    settings.setValue("Service/port", 1);
    settings.sync();
    QFile file(dir.filePath("devices.csv"));
    QVERIFY(file.open(QIODevice::WriteOnly) && file.write(csv) == csv.size());
    file.close();
    QString out;
    QCOMPARE(self_run::run_to_end(binary, { "--batch", file.fileName() }, &out, 20000), 0);
    const QStringList lines = out.trimmed().split('\n');
    QVERIFY2(lines.last().endsWith("[core]: -- all done --"), qPrintable(out));
    QVERIFY2(lines.at(lines.size() - 2).endsWith("[core]: Done: 0, up to date: 0, failed: 0, running: 0, waiting: 0"),
        qPrintable(out));
}
