#include "tests/support/fleet_fixture.h"

#include <QtTest>

using namespace fleet;

namespace {

// The service offers a firmware of this size to `count` devices with `defaults`, and a core is made for them.
// The firmware, empty on failure.
QByteArray run_with_offer(fixture& f, int count, int size, const QJsonObject& defaults = {})
{
    const QByteArray firmware = image(size, char('a' + size % 26));
    const QString path = f.service.add_file("ipc.bin", firmware);
    if (!f.start_devices(count, defaults))
        return {};
    QJsonObject fleet;
    for (int i = 0; i < count; ++i)
        fleet.insert(f.serial(i), QJsonObject { { "verdict", "pending" }, { "offers", QJsonArray { path } } });
    if (!f.start_service(fleet))
        return {};
    f.make_core();
    return firmware;
}

} // namespace

class test_update_flow : public QObject
{
    Q_OBJECT
private slots:
    void one_download_serves_two_devices();
    void verdicts_end_the_flow_data();
    void verdicts_end_the_flow();
    void fetch_only_and_force_update();
    void dropped_service_interrupts_waiting_lines();
    void failed_upload_cancels_confirm();
    void offline_mode_opens_no_socket();
    void closed_library_missing_data();
    void closed_library_missing();
};

void test_update_flow::one_download_serves_two_devices()
{
    fixture f;
    const QByteArray firmware = run_with_offer(f, 2, 100000);
    QVERIFY2(!firmware.isEmpty(), qPrintable(f.devices.error() + f.service.error()));
    f.c->on_window_run_list();
    QTRY_COMPARE_WITH_TIMEOUT(f.ended, 2, 60000);

    QCOMPARE(f.service.requests("file").size(), 1);
    QCOMPARE(f.service.requests("update").size(), 2);
    QCOMPARE(f.service.requests("confirm").size(), 2);
    for (int i = 0; i < 2; ++i) {
        QCOMPARE(f.result(i).text, QStringLiteral("Done upgrading"));
        QVERIFY(f.result(i).ok);
        QCOMPARE(f.devices.state(i)["upgrade_md5"].toString(), md5_hex(firmware));
        QCOMPARE(f.line(f.idents[i])->get(tasks::keys::version).toString(), md5_hex(firmware));
    }
}

void test_update_flow::verdicts_end_the_flow_data()
{
    QTest::addColumn<QJsonValue>("entry");
    QTest::addColumn<QString>("text");
    QTest::addColumn<bool>("ok");
    QTest::newRow("denied is a failure") << QJsonValue("denied") << "Denied in service" << false;
    QTest::newRow("updated") << QJsonValue("updated") << "Updates not found" << true;
}

void test_update_flow::verdicts_end_the_flow()
{
    QFETCH(QJsonValue, entry);
    fixture f;
    QVERIFY2(f.start_devices(1), qPrintable(f.devices.error()));
    QVERIFY2(f.start_service({ { f.serial(0), entry } }), qPrintable(f.service.error()));
    f.make_core();
    f.c->on_window_run_list();
    QTRY_COMPARE_WITH_TIMEOUT(f.ended, 1, 30000);
    QTEST(f.result(0).text, "text");
    QTEST(f.result(0).ok, "ok");
    QCOMPARE(f.service.requests("file").size(), 0);
    QCOMPARE(f.devices.state(0)["upgrades"].toInt(), 0);
}

void test_update_flow::fetch_only_and_force_update()
{
    fixture f;
    QVERIFY2(!run_with_offer(f, 1, 5000).isEmpty(), qPrintable(f.devices.error() + f.service.error()));
    f.c->on_window_run_list(false, true, false);
    QTRY_COMPARE_WITH_TIMEOUT(f.ended, 1, 30000);
    QCOMPARE(f.result(0).text, QStringLiteral("Update available"));
    QCOMPARE(f.service.requests("file").size(), 0);
    QCOMPARE(f.service.requests("update").at(0).toObject()["force"].toBool(), false);

    // Fetch-only wins over force; a forced full run reports the flag.
    f.c->on_window_run_list(false, false, true);
    QTRY_COMPARE_WITH_TIMEOUT(f.ended, 2, 30000);
    QCOMPARE(f.service.requests("update").size(), 2);
    QCOMPARE(f.service.requests("update").at(1).toObject()["force"].toBool(), true);
}

void test_update_flow::dropped_service_interrupts_waiting_lines()
{
    fixture f;
    QVERIFY2(!run_with_offer(f, 3, 5000).isEmpty(), qPrintable(f.devices.error() + f.service.error()));
    f.service.set_fault("*", QJsonObject { { "drop", true } });
    f.c->on_window_run_list();
    QTRY_COMPARE_WITH_TIMEOUT(f.ended, 3, 60000);
    for (int i = 0; i < 3; ++i)
        QCOMPARE(f.result(i).text, QStringLiteral("Execution interrupted"));
    QVERIFY(!f.c->remote_enabled());
    QCOMPARE(f.log_text().count("Disabling server communications due to generic network error"), 1);
    QCOMPARE(f.devices.state(0)["upgrades"].toInt(), 0);
}

void test_update_flow::failed_upload_cancels_confirm()
{
    fixture f;
    const QJsonObject chunk_refused { { "faults", QJsonObject { { "chunk_ret", QJsonObject { { "2", 514 } } } } } };
    QVERIFY2(!run_with_offer(f, 1, 200000, chunk_refused).isEmpty(), qPrintable(f.devices.error() + f.service.error()));
    f.c->on_window_run_list();
    QTRY_COMPARE_WITH_TIMEOUT(f.ended, 1, 60000);
    QVERIFY2(f.result(0).text.startsWith("Failed to upgrade: Error "), qPrintable(f.result(0).text));
    QVERIFY(!f.result(0).ok);
    QCOMPARE(f.service.requests("confirm").size(), 0);
    QVERIFY(f.log_text().contains("Canceling tasks: confirm"));
}

void test_update_flow::offline_mode_opens_no_socket()
{
    fixture f;
    QVERIFY2(f.start_devices(1, QJsonObject { { "software_version", "V4.02.R11.HI3516EV.10.0001" } }),
        qPrintable(f.devices.error()));
    QVERIFY2(f.start_service({}), qPrintable(f.service.error()));
    const QByteArray firmware = image(40000, 'e');
    const QString fw = f.service.add_file("fw.bin", firmware);
    const QString list = f.service.add_file("offline_firmwares.list", ("HI3516EV.10 " + fw + " 1 legacy\n").toUtf8());
    const QString previous = QDir::currentPath();
    QVERIFY(!list.isEmpty() && QDir::setCurrent(QFileInfo(list).absolutePath()));
    f.make_core(true);
    QDir::setCurrent(previous);
    f.c->on_window_run_list();
    QTRY_COMPARE_WITH_TIMEOUT(f.ended, 1, 60000);
    QCOMPARE(f.result(0).text, QStringLiteral("Done upgrading"));
    QCOMPARE(f.devices.state(0)["upgrade_md5"].toString(), md5_hex(firmware));
    QCOMPARE(f.service.stats()["connections_total"].toInt(), 0);
}

void test_update_flow::closed_library_missing_data()
{
    QTest::addColumn<QString>("sdk");
    QTest::addColumn<QString>("library");
    QTest::newRow("xcloud") << "xcloud"
                            << "libXCloudSDK.so";
    QTest::newRow("xnet") << "xnet"
                          << "libXNetSDK.so";
}

void test_update_flow::closed_library_missing()
{
    QFETCH(QString, sdk);
    QFETCH(QString, library);
    fixture f;
    QVERIFY2(f.start_devices(1), qPrintable(f.devices.error()));
    const QString file = f.service.add_file("fw.bin", image(20000, 'n'));
    const QJsonObject offer { { "file", file }, { "sdk_type", sdk } };
    QVERIFY2(f.start_service({ { f.serial(0), QJsonObject { { "verdict", "pending" }, { "offers", QJsonArray { offer } } } } }),
        qPrintable(f.service.error()));
    f.make_core();
    f.c->on_window_run_list();
    QTRY_COMPARE_WITH_TIMEOUT(f.ended, 1, 30000);

    QCOMPARE(f.result(0).text, QStringLiteral("System error"));
    QVERIFY(!f.result(0).ok);
    QCOMPARE(f.service.requests("confirm").size(), 0);
    const QString log = f.log_text();
    QVERIFY2(log.contains(QStringLiteral("Device library %1 can't be used: ").arg(library)), qPrintable(log));
    QVERIFY(log.indexOf(library) < log.indexOf("SDK init failed"));
    // Nothing is claimed for a library that isn't there.
    QVERIFY(log.contains("xc_support: false, xn_support: false"));
}

QTEST_GUILESS_MAIN(test_update_flow)
#include "test_update_flow.moc"
