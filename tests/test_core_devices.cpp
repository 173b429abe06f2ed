// Operations on devices through the core, and their registration with the service over JSON-RPC.
#include "delivery/registration.h"
#include "delivery/rpc.h"
#include "delivery/service_url.h"
#include "tests/support/fleet_fixture.h"

#include <QtTest>

using namespace fleet;

namespace {

const QString new_device = QStringLiteral("register_new_device");
const QString cloud_mac = QStringLiteral("register_cloud_mac");

QUrl endpoint_of(const svcsim_harness& service)
{
    return QUrl(delivery::service_url(service.address(), service.port(), delivery::rpc::path));
}

QJsonArray calls(svcsim_harness& service, const QString& method)
{
    QJsonArray out;
    for (const QJsonValue& r : service.requests("rpc")) {
        if (r.toObject().value("method").toString() == method)
            out << r;
    }
    return out;
}

} // namespace

class test_core_devices : public QObject
{
    Q_OBJECT
private slots:
    void identify_data();
    void identify();
    void operations_reach_the_device_data();
    void operations_reach_the_device();
    void await_after_reboot_and_device_gone();
    void import_opens_encrypted_passwords();
    void rows_leave_without_waiting_for_their_workers_data();
    void rows_leave_without_waiting_for_their_workers();
    void registration_calls_on_the_wire();
    void a_run_registers_identified_devices_data();
    void a_run_registers_identified_devices();
};

void test_core_devices::identify_data()
{
    QTest::addColumn<int>("devices");
    QTest::addColumn<int>("limit");
    QTest::addColumn<int>("delay_ms"); // of every answer, so that flows overlap
    QTest::newRow("50 devices without a limit all run at once") << 50 << 0 << 0;
    QTest::newRow("a limit of 5 holds") << 12 << 5 << 150;
}

void test_core_devices::identify()
{
    QFETCH(int, devices);
    QFETCH(int, limit);
    QFETCH(int, delay_ms);
    fixture f;
    QVERIFY2(f.start_devices(devices, QJsonObject { { "faults", QJsonObject { { "delay_ms", delay_ms } } } }),
        qPrintable(f.devices.error()));
    f.make_core();
    f.c->task_manager().set_limit(limit);
    f.c->run_on_selection(tasks::names::identify, {});
    QTRY_COMPARE_WITH_TIMEOUT(f.ended, devices, 60000);
    QCOMPARE(f.started, devices);
    QCOMPARE(f.peak, limit ? limit : devices);
    for (int i = 0; i < devices; ++i) {
        const QJsonObject state = f.devices.state(i);
        const auto l = f.line(f.idents[i]);
        QCOMPARE(l->get(tasks::keys::serial).toString(), state["serial"].toString());
        QCOMPARE(l->get(tasks::keys::hardware).toString(), state["hardware"].toString());
        QCOMPARE(f.endpoint_of(f.idents[i]).mac, state["mac"].toString());
        QVERIFY(f.result(i).ok);
    }
    QVERIFY(f.log_text().contains("-- all done --"));
}

void test_core_devices::operations_reach_the_device_data()
{
    QTest::addColumn<QString>("task");
    QTest::addColumn<QVariantMap>("args");
    QTest::addColumn<bool>("chained"); // a reboot follows, as the menus compose it
    QTest::addColumn<QString>("state_key");
    QTest::addColumn<QJsonValue>("expected");
    QTest::addColumn<QString>("requests"); // "message id:count" the device got
    QTest::addColumn<QString>("result");
    QTest::addColumn<QString>("host"); // the row's address after; empty: unchanged
    const auto row = [](const char* name, const QString& task, const QVariantMap& args, bool chained,
                         const QString& key, const QJsonValue& expected, const QString& requests,
                         const QString& result = "Done", const QString& host = {}) {
        QTest::newRow(name) << task << args << chained << key << expected << requests << result << host;
    };
    namespace n = tasks::names;
    row("language is set", n::set_language, { { "language", "ru/RU" } }, false, "location/Language", "Russian",
        "1040:1");
    row("a failure cancels the chained reboot", n::set_language, { { "language", "xx/XX" } }, true, "boot_count", 1,
        "1040:0", "Error 11: Unknown device language: xx/XX");
    row("transfer policy already set sends no 1040", n::change_transfer_policy, { { "policy", "quality" } }, false,
        "net/TransferPlan", "Quality", "1040:0");
    row("dhcp request", n::dhcp, { { "enable", true } }, false, "dhcp_requests", 1, "1040:1");
    row("reboot", n::reboot, {}, false, "boot_count", 2, "1450:1");
    row("network reset moves the row to the factory address", n::reset_configuration, { { "network_only", true } },
        false, "reset_sections", QJsonArray { "NetCommon" }, "1040:0", "Done", "192.168.1.10");
    row("configuration imported, then rebooted", n::import_configuration, { { "file", "device.cfg" } }, true,
        "boot_count", 2, "1540:1");
    // Over the size a device takes: refused before it is sent, and the reboot goes with it.
    row("configuration refused", n::import_configuration, { { "file", "large.cfg" } }, true, "boot_count", 1,
        "1540:0", "Error 9: Error importing configuration");
}

void test_core_devices::operations_reach_the_device()
{
    QFETCH(QString, task);
    QFETCH(QVariantMap, args);
    QFETCH(bool, chained);
    QFETCH(QString, state_key);
    QFETCH(QJsonValue, expected);
    QFETCH(QString, requests);
    QFETCH(QString, result);
    QFETCH(QString, host);

    fixture f;
    QVERIFY2(f.start_devices(1, QJsonObject { { "language", "English" },
                                    { "net", QJsonObject { { "TransferPlan", "Quality" } } } }),
        qPrintable(f.devices.error()));
    f.make_core();
    for (const int size : { 3600, 32769 }) {
        QFile file(f.dir.filePath(size > 32768 ? "large.cfg" : "device.cfg"));
        QVERIFY(file.open(QIODevice::WriteOnly) && file.write(QByteArray(size, 'c')) == size);
    }
    if (args.contains(tasks::args::file))
        args[tasks::args::file] = f.dir.filePath(args.value(tasks::args::file).toString());
    f.c->run_on_selection(task, args, chained ? core::chained_reboot() : core::follow_up());
    QTRY_COMPARE_WITH_TIMEOUT(f.ended, 1, 20000);

    QCOMPARE(f.result(0).text, result);
    const QStringList path = state_key.split('/');
    const auto read = [&]() -> QJsonValue {
        const QJsonObject state = f.devices.state(0);
        return path.size() > 1 ? state[path[0]].toObject()[path[1]] : state[path[0]];
    };
    // A rebooted device counts its boot when it is back.
    QTRY_COMPARE_WITH_TIMEOUT(read(), expected, 5000);
    QCOMPARE(f.devices.requests_of(0, requests.section(':', 0, 0).toInt()).size(), requests.section(':', 1).toInt());
    const bool cancelled = chained && !f.result(0).ok;
    QCOMPARE(f.log_text().contains("Canceling tasks: reboot"), cancelled);
    QCOMPARE(f.endpoint_of(f.idents[0]).host, host.isEmpty() ? f.devices.address(0).toString() : host);
    if (!host.isEmpty())
        QCOMPARE(f.line(f.idents[0])->get(tasks::keys::device).value<device>().ip, host);
}

void test_core_devices::await_after_reboot_and_device_gone()
{
    fixture f;
    QVERIFY2(f.start_devices(1, QJsonObject { { "reboot_ms", 1500 } }), qPrintable(f.devices.error()));
    f.make_core();
    const QString ident = f.idents[0];
    const QHostAddress address = f.devices.address(0);
    f.c->run_on_selection(tasks::names::reboot, {}, [address](const QString&, const tasks::task& made) {
        tasks::task await(tasks::names::await_device, made);
        await.set(tasks::args::address, QVariant::fromValue(address));
        await.set(tasks::args::timeout, 15.0f);
        return std::optional<tasks::task>(await);
    });
    QTRY_COMPARE_WITH_TIMEOUT(f.ended, 1, 30000);
    QVERIFY2(!f.line(ident)->params().contains(tasks::keys::result), qPrintable(f.log_text()));
    QCOMPARE(f.devices.state(0)["boot_count"].toInt(), 2);

    // Nobody answers at this address: the wait ends with its time.
    f.line(ident)->set(tasks::keys::selected, true);
    QElapsedTimer timer;
    timer.start();
    f.c->run_on_selection(tasks::names::await_device,
        { { tasks::args::address, QVariant::fromValue(QHostAddress("127.0.0.1")) }, { tasks::args::timeout, 2.0f } });
    QTRY_COMPARE_WITH_TIMEOUT(f.ended, 2, 20000);
    QCOMPARE(f.result(ident).text, QStringLiteral("Error 20: Device is gone"));
    QVERIFY(timer.elapsed() >= 1900);
}

void test_core_devices::import_opens_encrypted_passwords()
{
    fixture f;
    f.make_core();
    // A list written by the export opens again with the password in clear, the one the device logs in with.
    const QString first = f.add_row("127.0.0.5", 34567, "s3cret");
    const QString csv = f.dir.filePath("devices.csv");
    QCOMPARE(f.c->export_task_file(csv, false), 1);
    QFile file(csv);
    QVERIFY(file.open(QIODevice::ReadOnly));
    const QString line = QString::fromUtf8(file.readAll());
    QVERIFY2(line.contains(",1,") && !line.contains("s3cret"), qPrintable(line));
    f.c->on_window_delete_element(first);
    QCOMPARE(f.c->import_task_file(csv), 1);
    const QString ident = f.c->task_manager().lines().constFirst();
    QCOMPARE(f.endpoint_of(ident).password, QStringLiteral("s3cret"));
    QCOMPARE(f.line(ident)->get(tasks::keys::device).value<device>().password, QStringLiteral("s3cret"));
}

void test_core_devices::rows_leave_without_waiting_for_their_workers_data()
{
    QTest::addColumn<bool>("clear"); // the whole list, else the one row
    QTest::newRow("a deleted row") << false;
    QTest::newRow("a cleared list") << true;
}

// A worker stuck in a device's silence doesn't hold the window when its row goes, and is gone once it gives up.
void test_core_devices::rows_leave_without_waiting_for_their_workers()
{
    QFETCH(bool, clear);
    fixture f;
    QVERIFY2(f.start_devices(1, QJsonObject { { "faults", QJsonObject { { "silent_at", QJsonArray { 1020 } } } } }),
        qPrintable(f.devices.error()));
    f.make_core();
    auto* worker = f.line(f.idents[0])->get(tasks::keys::sdk_instance).value<sdk::prototype*>();
    QVERIFY(worker);
    QSignalSpy gone(worker, &QObject::destroyed);
    worker->identify(); // outside any flow, as a script's own query would be
    QTRY_COMPARE_WITH_TIMEOUT(f.devices.requests_of(0, 1020).size(), 1, 10000);
    QElapsedTimer t;
    t.start();
    if (clear)
        f.c->clear_list();
    else
        f.c->on_window_delete_element(f.idents[0]);
    QVERIFY2(t.elapsed() < 1000, qPrintable(QString::number(t.elapsed())));
    QCOMPARE(f.c->task_manager().count(), 0);
    QVERIFY(gone.isEmpty());
    // The device goes away: the worker's read fails, its thread ends, and it is deleted.
    f.devices.stop();
    QTRY_VERIFY_WITH_TIMEOUT(!gone.isEmpty(), 10000);
}

void test_core_devices::registration_calls_on_the_wire()
{
    svcsim_harness service;
    QVERIFY2(service.start(), qPrintable(service.error()));
    delivery::rpc channel(endpoint_of(service));
    const auto first = channel.call(new_device, { "HI3516EV300", "V4.02.R11" });
    QCOMPARE(first.code, 0);
    QCOMPARE(first.value, QVariant(true));
    const auto second = channel.call(cloud_mac, { "SN1", 34567, "00:11:22:33:44:55", "10.1.2.3" });
    QCOMPARE(second.code, 0);
    QCOMPARE(second.fields.value("operator_ip").toString(), QStringLiteral("10.1.2.3"));

    const QJsonArray recorded = service.requests("rpc");
    QCOMPARE(recorded.size(), 2);
    // The id counts the calls of one object; params go as a JSON array in the order given, the port a number.
    QCOMPARE(recorded[0].toObject()["id"].toInt(), 1);
    QCOMPARE(recorded[1].toObject()["id"].toInt(), 2);
    QCOMPARE(recorded[0].toObject()["params"].toArray(), (QJsonArray { "HI3516EV300", "V4.02.R11" }));
    QCOMPARE(recorded[1].toObject()["params"].toArray(), (QJsonArray { "SN1", 34567, "00:11:22:33:44:55", "10.1.2.3" }));

    // A slow answer keeps the event loop running; a dropped one or a closed port is no answer.
    QVERIFY(service.set_fault("rpc", QJsonObject { { "delay_ms", 300 } }));
    bool fired = false;
    QTimer::singleShot(20, [&] { fired = true; });
    QCOMPARE(channel.call(new_device, { "IPC", "V1" }).value, QVariant(true));
    QVERIFY(fired);
    QVERIFY(service.set_fault("rpc", QJsonObject { { "drop", true } }));
    QCOMPARE(channel.call(new_device, { "IPC", "V1" }).code, -1);
    delivery::rpc nobody(QUrl(delivery::service_url(QHostAddress::LocalHost, closed_port(), delivery::rpc::path)));
    QCOMPARE(nobody.call(new_device, { "IPC", "V1" }).code, -1);

    // A device is registered once per run, and its serial never leaves this side.
    QVERIFY(service.clear_faults() && service.clear_requests());
    delivery::registration reg;
    reg.set_endpoint(endpoint_of(service));
    QVERIFY(reg.register_new_device("SN1", "IPC", "V1") && reg.register_new_device("SN1", "IPC", "V2"));
    QVERIFY(reg.registered("SN1"));
    const QJsonArray sent = calls(service, new_device);
    QCOMPARE(sent.size(), 1);
    QCOMPARE(sent[0].toObject()["params"].toArray(), (QJsonArray { "IPC", "V1" }));
    // A refused one is tried again at the next run.
    QVERIFY(service.set_fault("rpc", QJsonObject { { "error", 17 } }));
    QVERIFY(!reg.register_new_device("SN2", "IPC", "V1") && !reg.registered("SN2"));
}

void test_core_devices::a_run_registers_identified_devices_data()
{
    QTest::addColumn<bool>("devices");
    QTest::addColumn<bool>("macs");
    QTest::addColumn<QJsonObject>("fault");
    QTest::newRow("both, twice") << true << true << QJsonObject();
    QTest::newRow("neither") << false << false << QJsonObject();
    QTest::newRow("the service refuses") << true << true << QJsonObject { { "error", 9 } };
}

void test_core_devices::a_run_registers_identified_devices()
{
    QFETCH(bool, devices);
    QFETCH(bool, macs);
    QFETCH(QJsonObject, fault);
    fixture f;
    QVERIFY2(f.start_devices(3), qPrintable(f.devices.error()));
    QVERIFY2(f.start_service({ { f.serial(0), "updated" }, { f.serial(1), "no_binding" }, { f.serial(2), "denied" } }),
        qPrintable(f.service.error()));
    QVERIFY(f.service.set_fault("rpc", fault));
    f.make_core();
    f.add_row("127.0.0.1", closed_port()); // never identified
    f.c->on_window_option_menu_executed("register_devices", {}, devices);
    f.c->on_window_option_menu_executed("register_macs", {}, macs);
    f.c->on_window_run_list();
    QTRY_VERIFY_WITH_TIMEOUT(f.log_text().contains("-- all done --"), 30000);
    QCOMPARE(f.ended, 4);

    // Every identified device once, the dead row not at all, and the end of the run after the last of them.
    const QJsonArray sent_devices = calls(f.service, new_device);
    QCOMPARE(sent_devices.size(), devices ? 3 : 0);
    QStringList mac_serials;
    for (const QJsonValue& r : calls(f.service, cloud_mac))
        mac_serials << r.toObject()["serial"].toString();
    mac_serials.sort();
    QCOMPARE(mac_serials, macs ? (QStringList { f.serial(0), f.serial(1), f.serial(2) }) : QStringList());
    for (const QJsonValue& r : sent_devices) {
        const QJsonArray params = r.toObject()["params"].toArray();
        QCOMPARE(params.size(), 2);
        QCOMPARE(params[0].toString(), f.devices.state(0)["hardware"].toString());
        QCOMPARE(params[1].toString(), f.devices.state(0)["software_version"].toString());
    }
    const QString log = f.log_text();
    const bool refused = !fault.isEmpty();
    QCOMPARE(log.count("Registration error for"), refused ? 3 : 0);
    QCOMPARE(log.count("Registered the device"), devices && !refused ? 3 : 0);
    QCOMPARE(log.count("MAC-address registration error for"), refused ? 3 : 0);
    QVERIFY2(log.endsWith("-- all done --"), qPrintable(log.right(300)));
    QCOMPARE(log.count("-- all done --"), 1);
    if (!devices || refused)
        return;
    // A second run sends no device again, but MAC addresses each time: the service answers with the first date.
    f.c->on_window_run_list(false, true, false);
    QTRY_COMPARE_WITH_TIMEOUT(f.log_text().count("-- all done --"), 2, 30000);
    QCOMPARE(calls(f.service, new_device).size(), 3);
    QCOMPARE(calls(f.service, cloud_mac).size(), 6);
}

QTEST_GUILESS_MAIN(test_core_devices)
#include "test_core_devices.moc"
