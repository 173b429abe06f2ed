#include "tests/core_fixture.h"
#include "tests/support/devsim_harness.h"

#include <QCryptographicHash>
#include <QFile>
#include <QTcpServer>
#include <QTemporaryDir>
#include <QtTest>

namespace {

// A core over simulated devices on loopback, one row per device.
struct fixture : core_fixture
{
    QStringList add_all_rows()
    {
        QStringList idents;
        for (int i = 0; i < sim.count(); ++i)
            idents << add_row(sim.address(i).toString(), sim.port(i));
        return idents;
    }

    devsim_harness sim;
};

// The most devices in a session at once, as the devices saw it: each device is busy
// from its first request to its last.
int peak_at_devices(devsim_harness& sim)
{
    QList<QPair<qint64, int>> events; // time, +1 for a start, -1 for an end
    for (int i = 0; i < sim.count(); ++i) {
        qint64 first = -1, last = -1;
        for (const QJsonValue& r : sim.requests(i)) {
            const qint64 t = qint64(r.toObject().value("time_ms").toDouble());
            first = first < 0 ? t : std::min(first, t);
            last = std::max(last, t);
        }
        if (first >= 0)
            events << qMakePair(first, 1) << qMakePair(last, -1);
    }
    // At the same millisecond an end comes first: one flow handed over to the next.
    std::sort(events.begin(), events.end());
    int now = 0, peak = 0;
    for (const auto& e : events)
        peak = std::max(peak, now += e.second);
    return peak;
}

uint16_t closed_port()
{
    QTcpServer probe;
    probe.listen(QHostAddress::LocalHost, 0);
    return probe.serverPort();
}

} // namespace

class test_core_devices : public QObject
{
    Q_OBJECT
private slots:
    void identify_reports_device_data();
    void operations_reach_the_device_data();
    void operations_reach_the_device();
    void reset_moves_the_row_to_factory_address();
    void await_after_reboot_and_device_gone();
    void failure_cancels_chained_reboot();
    void limit_holds_running_flows();
    void configuration_import_data();
    void configuration_import();
    void many_devices_without_limit();
    void import_opens_encrypted_passwords();
    void batch_run_over_a_task_file();
};

void test_core_devices::identify_reports_device_data()
{
    fixture f;
    QVERIFY2(f.sim.start(2), qPrintable(f.sim.error()));
    const QStringList idents = f.add_all_rows();
    const QString dead = f.add_row("127.0.0.1", closed_port());
    f.c->run_on_selection(tasks::names::identify, {});
    QTRY_COMPARE_WITH_TIMEOUT(f.ended, 3, 20000);

    const QString log = f.log_text();
    for (int i = 0; i < 2; ++i) {
        const QJsonObject state = f.sim.state(i);
        const auto l = f.c->task_manager().find(idents[i]);
        QCOMPARE(l->get(tasks::keys::serial).toString(), state["serial"].toString());
        QCOMPARE(l->get(tasks::keys::hardware).toString(), state["hardware"].toString());
        QCOMPARE(l->get(tasks::keys::endpoint).value<endpoint>().mac, state["mac"].toString());
        QVERIFY2(log.contains(QStringLiteral("Device serial: %1, hardware: %2, version: %3, build time: %4")
                                  .arg(state["serial"].toString(), state["hardware"].toString(),
                                      state["software_version"].toString(), state["build_time"].toString())),
            qPrintable(log));
        QVERIFY(f.result(idents[i]).ok);
    }
    QCOMPARE(f.result(dead).text, QStringLiteral("Error 1: Error connecting to 127.0.0.1"));
    QVERIFY(!f.result(dead).ok);
    QVERIFY(log.contains("-- all done --"));
}

void test_core_devices::operations_reach_the_device_data()
{
    QTest::addColumn<QString>("task");
    QTest::addColumn<QVariantMap>("args");
    QTest::addColumn<QString>("state_key");
    QTest::addColumn<QJsonValue>("expected");
    QTest::addColumn<int>("set_requests");
    QTest::addColumn<QString>("result");

    QTest::newRow("language is set") << tasks::names::set_language << QVariantMap { { "language", "ru/RU" } }
                                     << "language" << QJsonValue("Russian") << 1 << "Done";
    QTest::newRow("language already set sends nothing")
        << tasks::names::set_language << QVariantMap { { "language", "en/US" } } << "language" << QJsonValue("English")
        << 0 << "Done";
    QTest::newRow("unknown language fails") << tasks::names::set_language << QVariantMap { { "language", "de/DE" } }
                                            << "language" << QJsonValue("English") << 0
                                            << "Error 11: Unknown device language: de/DE";
    QTest::newRow("transfer policy changes") << tasks::names::change_transfer_policy
                                             << QVariantMap { { "policy", "fluency" } } << "net/TransferPlan"
                                             << QJsonValue("Fluency") << 1 << "Done";
    QTest::newRow("transfer policy already set sends no 1040")
        << tasks::names::change_transfer_policy << QVariantMap { { "policy", "quality" } } << "net/TransferPlan"
        << QJsonValue("Quality") << 0 << "Done";
    QTest::newRow("dhcp request") << tasks::names::dhcp << QVariantMap { { "enable", true } } << "dhcp_requests"
                                  << QJsonValue(1) << 1 << "Done";
    QTest::newRow("reboot") << tasks::names::reboot << QVariantMap {} << "boot_count" << QJsonValue(2) << 0 << "Done";
}

void test_core_devices::operations_reach_the_device()
{
    QFETCH(QString, task);
    QFETCH(QVariantMap, args);
    QFETCH(QString, state_key);
    QFETCH(QJsonValue, expected);
    QFETCH(int, set_requests);
    QFETCH(QString, result);

    fixture f;
    QVERIFY2(f.sim.start(1, QJsonObject { { "language", "English" }, { "reboot_ms", 300 },
                                 { "net", QJsonObject { { "TransferPlan", "Quality" } } } }),
        qPrintable(f.sim.error()));
    const QString ident = f.add_all_rows().constFirst();
    f.c->run_on_selection(task, args);
    QTRY_COMPARE_WITH_TIMEOUT(f.ended, 1, 20000);

    QCOMPARE(f.result(ident).text, result);
    const auto read = [&]() -> QJsonValue {
        const QJsonObject state = f.sim.state(0);
        if (state_key == "language")
            return state["location"].toObject()["Language"];
        const QStringList path = state_key.split('/');
        return path.size() > 1 ? state[path[0]].toObject()[path[1]] : state[path[0]];
    };
    // A rebooted device counts its boot when it is back.
    QTRY_COMPARE_WITH_TIMEOUT(read(), expected, 5000);
    // Config sets of any kind (language, policy, DHCP) as the device counted them.
    QCOMPARE(f.sim.requests_of(0, 1040).size(), set_requests);
}

void test_core_devices::reset_moves_the_row_to_factory_address()
{
    fixture f;
    QVERIFY2(f.sim.start(1), qPrintable(f.sim.error()));
    const QString ident = f.add_all_rows().constFirst();
    f.c->run_on_selection(tasks::names::reset_configuration, { { "network_only", true } });
    QTRY_COMPARE_WITH_TIMEOUT(f.ended, 1, 20000);
    QCOMPARE(f.sim.state(0)["reset_sections"].toArray(), QJsonArray { "NetCommon" });
    const auto l = f.c->task_manager().find(ident);
    QCOMPARE(l->get(tasks::keys::endpoint).value<endpoint>().host, QStringLiteral("192.168.1.10"));
    QCOMPARE(l->get(tasks::keys::device).value<device>().ip, QStringLiteral("192.168.1.10"));
}

void test_core_devices::await_after_reboot_and_device_gone()
{
    fixture f;
    QVERIFY2(f.sim.start(1, QJsonObject { { "reboot_ms", 1500 } }), qPrintable(f.sim.error()));
    const QString ident = f.add_all_rows().constFirst();
    const QHostAddress address = f.sim.address(0);
    f.c->run_on_selection(tasks::names::reboot, {}, [address](const QString&, const tasks::task& made) {
        tasks::task await(tasks::names::await_device, made);
        await.set(tasks::args::address, QVariant::fromValue(address));
        await.set(tasks::args::timeout, 15.0f);
        return std::optional<tasks::task>(await);
    });
    QTRY_COMPARE_WITH_TIMEOUT(f.ended, 1, 30000);
    QVERIFY2(!f.c->task_manager().find(ident)->params().contains(tasks::keys::result), qPrintable(f.log_text()));
    QCOMPARE(f.sim.state(0)["boot_count"].toInt(), 2);

    // Nobody answers at this address: the wait ends with its time.
    f.c->task_manager().find(ident)->set(tasks::keys::selected, true);
    QElapsedTimer timer;
    timer.start();
    f.c->run_on_selection(tasks::names::await_device,
        { { tasks::args::address, QVariant::fromValue(QHostAddress("127.0.0.1")) }, { tasks::args::timeout, 2.0f } });
    QTRY_COMPARE_WITH_TIMEOUT(f.ended, 2, 20000);
    QCOMPARE(f.result(ident).text, QStringLiteral("Error 20: Device is gone"));
    QVERIFY(timer.elapsed() >= 1900);
}

void test_core_devices::failure_cancels_chained_reboot()
{
    fixture f;
    QVERIFY2(f.sim.start(1), qPrintable(f.sim.error()));
    const QString ident = f.add_all_rows().constFirst();
    f.c->run_on_selection(tasks::names::set_language, { { "language", "xx/XX" } }, core::chained_reboot());
    QTRY_COMPARE_WITH_TIMEOUT(f.ended, 1, 20000);
    QCOMPARE(f.result(ident).text, QStringLiteral("Error 11: Unknown device language: xx/XX"));
    QVERIFY(f.log_text().contains("Canceling tasks: reboot"));
    QVERIFY(f.log_text().contains("Tasks canceled 1/1"));
    QCOMPARE(f.sim.state(0)["boot_count"].toInt(), 1);
}

void test_core_devices::limit_holds_running_flows()
{
    fixture f;
    QVERIFY2(f.sim.start(12, QJsonObject { { "faults", QJsonObject { { "delay_ms", 150 } } } }), qPrintable(f.sim.error()));
    f.add_all_rows();
    f.c->task_manager().set_limit(5);
    f.c->run_on_selection(tasks::names::identify, {});
    QTRY_COMPARE_WITH_TIMEOUT(f.ended, 12, 60000);
    QCOMPARE(f.started, 12);
    QCOMPARE(f.peak, 5);
    const int at_devices = peak_at_devices(f.sim);
    QVERIFY2(at_devices >= 2 && at_devices <= 5, qPrintable(QString::number(at_devices)));
}

void test_core_devices::configuration_import_data()
{
    QTest::addColumn<int>("size"); // of the file; -1: no file
    QTest::addColumn<QJsonObject>("faults");
    QTest::addColumn<QString>("result");
    QTest::addColumn<bool>("sent");

    const QString failed = QStringLiteral("Error 9: Error importing configuration");
    QTest::newRow("imported, then rebooted") << 3000 << QJsonObject {} << "Done" << true;
    QTest::newRow("a file that fills a frame") << 32768 << QJsonObject {} << "Done" << true;
    QTest::newRow("a file over a frame is never sent") << 32769 << QJsonObject {} << failed << false;
    QTest::newRow("no such file") << -1 << QJsonObject {} << failed << false;
    QTest::newRow("refused by the device")
        << 3000 << QJsonObject { { "wrong_ret", QJsonObject { { "1540", 607 } } } } << failed << true;
}

void test_core_devices::configuration_import()
{
    QFETCH(int, size);
    QFETCH(QJsonObject, faults);
    QFETCH(QString, result);
    QFETCH(bool, sent);

    fixture f;
    QVERIFY2(f.sim.start(1, QJsonObject { { "reboot_ms", 300 }, { "faults", faults } }), qPrintable(f.sim.error()));
    const QString ident = f.add_all_rows().constFirst();
    const QString path = f.dir.filePath("device.cfg");
    QByteArray content;
    for (int i = 0; content.size() < size; ++i)
        content += QStringLiteral("[Section%1]\nValue=%1\n").arg(i).toUtf8();
    content.truncate(std::max(size, 0));
    if (size >= 0) {
        QFile file(path);
        QVERIFY(file.open(QIODevice::WriteOnly));
        file.write(content);
    }
    // As the menu composes it: a reboot follows, and goes with a failed import.
    f.c->run_on_selection(tasks::names::import_configuration, { { tasks::args::file, path } }, core::chained_reboot());
    QTRY_COMPARE_WITH_TIMEOUT(f.ended, 1, 20000);

    QCOMPARE(f.result(ident).text, result);
    const QJsonArray imports = f.sim.requests_of(0, 1540);
    QCOMPARE(imports.size(), sent ? 1 : 0);
    const QString md5 = QString::fromLatin1(QCryptographicHash::hash(content, QCryptographicHash::Md5).toHex());
    if (sent)
        QCOMPARE(imports.at(0).toObject().value("md5").toString(), md5);
    const QJsonObject state = f.sim.state(0);
    QCOMPARE(state["imports"].toInt(), sent ? 1 : 0);
    if (sent) {
        QCOMPARE(state["imported_size"].toInt(), size);
        QCOMPARE(state["imported_md5"].toString(), md5);
    }
    const bool rebooted = f.result(ident).ok;
    QCOMPARE(f.sim.requests_of(0, 1450).size(), rebooted ? 1 : 0);
    if (rebooted)
        QTRY_COMPARE_WITH_TIMEOUT(f.sim.state(0)["boot_count"].toInt(), 2, 5000);
}

void test_core_devices::many_devices_without_limit()
{
    fixture f;
    QVERIFY2(f.sim.start(50), qPrintable(f.sim.error()));
    f.add_all_rows();
    f.c->run_on_selection(tasks::names::identify, {});
    QTRY_COMPARE_WITH_TIMEOUT(f.ended, 50, 60000);
    QCOMPARE(f.peak, 50);
    QCOMPARE(f.log_text().count("Device serial: "), 50);
}

void test_core_devices::import_opens_encrypted_passwords()
{
    fixture f;
    QVERIFY2(f.sim.start(1, QJsonObject { { "password", "s3cret" } }), qPrintable(f.sim.error()));
    // A list written by the export opens again with the password in clear.
    const QString first = f.add_row(f.sim.address(0).toString(), f.sim.port(0), "s3cret");
    const QString csv = f.dir.filePath("devices.csv");
    QCOMPARE(f.c->export_task_file(csv, false), 1);
    QFile file(csv);
    QVERIFY(file.open(QIODevice::ReadOnly));
    const QString line = QString::fromUtf8(file.readAll());
    QVERIFY2(line.contains(",1,") && !line.contains("s3cret"), qPrintable(line));
    f.c->on_window_delete_element(first);

    QCOMPARE(f.c->import_task_file(csv), 1);
    const QString ident = f.c->task_manager().lines().constFirst();
    QCOMPARE(f.c->task_manager().find(ident)->get(tasks::keys::endpoint).value<endpoint>().password, QStringLiteral("s3cret"));
    f.c->run_on_selection(tasks::names::identify, {});
    QTRY_COMPARE_WITH_TIMEOUT(f.ended, 1, 20000);
    QVERIFY2(f.log_text().contains("Device serial: "), qPrintable(f.log_text()));
    QCOMPARE(f.sim.state(0)["failed_logins"].toInt(), 0);
}

void test_core_devices::batch_run_over_a_task_file()
{
    devsim_harness sim;
    QVERIFY2(sim.start(3), qPrintable(sim.error()));
    QTemporaryDir dir;
    const QString binary = dir.filePath("orvane");
    QVERIFY(QFile::copy(QStringLiteral(ORVANE_BINARY), binary));
    {
        // The service sits on a closed loopback port: the run goes on without it.
        QSettings settings(dir.filePath("ov.config"), QSettings::IniFormat);
        settings.setValue("Service/address", "127.0.0.1");
        settings.setValue("Service/port", closed_port());
    }
    QFile csv(dir.filePath("devices.csv"));
    QVERIFY(csv.open(QIODevice::WriteOnly));
    for (int i = 0; i < 3; ++i)
        csv.write(QStringLiteral("%1,%2,admin,\n").arg(sim.address(i).toString()).arg(sim.port(i)).toUtf8());
    const uint16_t dead_port = closed_port();
    csv.write(QStringLiteral("127.0.0.1,%1,admin,\n").arg(dead_port).toUtf8());
    csv.close();

    QProcess p;
    p.setWorkingDirectory(dir.path());
    p.start(binary, { "--batch", csv.fileName() });
    QVERIFY(p.waitForFinished(60000));
    QCOMPARE(p.exitCode(), 0);
    const QString out = QString::fromUtf8(p.readAllStandardOutput());
    QCOMPARE(out.count("Device serial: "), 3);
    QVERIFY2(out.contains(QStringLiteral("admin@127.0.0.1:%1: Error 1: Error connecting to 127.0.0.1").arg(dead_port)), qPrintable(out));
    QVERIFY(out.contains("Task check_updates started"));
    QVERIFY(out.contains("Disabling server communications due to generic network error"));
    QVERIFY(out.contains("Successfully imported 4 tasks"));
    QVERIFY(out.trimmed().endsWith("[core]: -- all done --"));
    for (int i = 0; i < 3; ++i)
        QCOMPARE(sim.state(i)["logins"].toInt(), 1);
}

QTEST_GUILESS_MAIN(test_core_devices)
#include "test_core_devices.moc"
