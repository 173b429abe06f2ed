// Device and MAC registration over JSON-RPC, alone and by the update flow for the devices it identified.
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

class test_registration : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase();
    void cleanup();
    void answers_data();
    void answers();
    void call_on_the_wire();
    void device_registered_once_per_run();
    void device_refusals_data();
    void device_refusals();
    void mac_answers_data();
    void mac_answers();
    void fleet_run_registers_identified_devices_data();
    void fleet_run_registers_identified_devices();
    void second_run_sends_no_device_again();

private:
    svcsim_harness m_service;
};

void test_registration::initTestCase()
{
    QVERIFY2(m_service.start(), qPrintable(m_service.error()));
}

void test_registration::cleanup()
{
    QVERIFY(m_service.clear_faults());
    QVERIFY(m_service.clear_requests());
}

void test_registration::answers_data()
{
    QTest::addColumn<QByteArray>("body");
    QTest::addColumn<int>("code");
    QTest::addColumn<QVariant>("value");
    QTest::addColumn<QVariantMap>("fields");
    QTest::newRow("no jsonrpc") << QByteArray(R"({"id":1,"result":true})") << -1 << QVariant() << QVariantMap();
    QTest::newRow("no id") << QByteArray(R"({"jsonrpc":"2.0","result":true})") << -1 << QVariant() << QVariantMap();
    QTest::newRow("an array") << QByteArray(R"([{"jsonrpc":"2.0","id":1}])") << -1 << QVariant() << QVariantMap();
    QTest::newRow("plain true") << QByteArray(R"({"jsonrpc":"2.0","id":1,"result":true})") << 0 << QVariant(true)
                                << QVariantMap();
    QTest::newRow("object result") << QByteArray(R"({"jsonrpc":"2.0","id":2,"result":{"result":true,"n":3}})") << 0
                                   << QVariant() << QVariantMap { { "result", true }, { "n", 3.0 } };
    // An error without a result is a success with nothing in it, which callers read as false.
    QTest::newRow("error member") << QByteArray(R"({"jsonrpc":"2.0","id":3,"error":{"code":-1,"message":"no"}})") << 0
                                  << QVariant() << QVariantMap();
}

void test_registration::answers()
{
    QFETCH(QByteArray, body);
    QFETCH(QVariant, value);
    const delivery::rpc::response r = delivery::rpc::parse(body);
    QTEST(int(r.code), "code");
    QCOMPARE(r.message, r.code == -1 ? QStringLiteral("Not a valid JsonRPC response") : QString());
    QCOMPARE(r.value.isValid(), value.isValid());
    if (value.isValid())
        QCOMPARE(r.value, value);
    QTEST(r.fields, "fields");
}

void test_registration::call_on_the_wire()
{
    delivery::rpc channel(endpoint_of(m_service));
    const auto first = channel.call(new_device, { "HI3516EV300", "V4.02.R11" });
    QCOMPARE(first.code, 0);
    QCOMPARE(first.value, QVariant(true));
    const auto second = channel.call(cloud_mac, { "SN1", 34567, "00:11:22:33:44:55", "10.1.2.3" });
    QCOMPARE(second.code, 0);
    QCOMPARE(second.fields.value("operator_ip").toString(), QStringLiteral("10.1.2.3"));

    const QJsonArray recorded = m_service.requests("rpc");
    QCOMPARE(recorded.size(), 2);
    // The id counts the calls of one object; params go as a JSON array in the order given, the port a number.
    QCOMPARE(recorded[0].toObject()["id"].toInt(), 1);
    QCOMPARE(recorded[1].toObject()["id"].toInt(), 2);
    QCOMPARE(recorded[0].toObject()["params"].toArray(), (QJsonArray { "HI3516EV300", "V4.02.R11" }));
    QCOMPARE(recorded[1].toObject()["params"].toArray(), (QJsonArray { "SN1", 34567, "00:11:22:33:44:55", "10.1.2.3" }));

    // A slow answer keeps the event loop running; a dropped one or a closed port is no answer.
    QVERIFY(m_service.set_fault("rpc", QJsonObject { { "delay_ms", 300 } }));
    bool fired = false;
    QTimer::singleShot(20, [&] { fired = true; });
    QCOMPARE(channel.call(new_device, { "IPC", "V1" }).value, QVariant(true));
    QVERIFY(fired);
    QVERIFY(m_service.set_fault("rpc", QJsonObject { { "drop", true } }));
    QCOMPARE(channel.call(new_device, { "IPC", "V1" }).code, -1);
    delivery::rpc nobody(QUrl(delivery::service_url(QHostAddress::LocalHost, closed_port(), delivery::rpc::path)));
    QCOMPARE(nobody.call(new_device, { "IPC", "V1" }).code, -1);
}

void test_registration::device_registered_once_per_run()
{
    delivery::registration reg;
    reg.set_endpoint(endpoint_of(m_service));
    QVERIFY(reg.register_new_device("SN1", "IPC", "V1"));
    QVERIFY(reg.registered("SN1"));
    QVERIFY(reg.register_new_device("SN1", "IPC", "V2"));
    QVERIFY(reg.register_new_device("SN2", "IPC", "V1"));
    // The second call for SN1 made no request, and the serial never leaves this side.
    const QJsonArray sent = calls(m_service, new_device);
    QCOMPARE(sent.size(), 2);
    for (const QJsonValue& r : sent)
        QCOMPARE(r.toObject()["params"].toArray(), (QJsonArray { "IPC", "V1" }));
}

void test_registration::device_refusals_data()
{
    QTest::addColumn<QString>("type");
    QTest::addColumn<QString>("version");
    QTest::addColumn<QJsonObject>("fault");
    QTest::addColumn<int>("sent");
    QTest::newRow("no type") << "" << "V1" << QJsonObject() << 0;
    QTest::newRow("no version") << "IPC" << "" << QJsonObject() << 0;
    QTest::newRow("service error") << "IPC" << "V1" << QJsonObject { { "error", 17 } } << 1;
    QTest::newRow("empty object") << "IPC" << "V1" << QJsonObject { { "garbage", "{}" } } << 1;
    QTest::newRow("result false") << "IPC" << "V1"
                                  << QJsonObject { { "garbage", R"({"jsonrpc":"2.0","id":1,"result":false})" } } << 1;
}

void test_registration::device_refusals()
{
    QFETCH(QString, type);
    QFETCH(QString, version);
    QFETCH(QJsonObject, fault);
    QVERIFY(m_service.set_fault("rpc", fault));
    delivery::registration reg;
    reg.set_endpoint(endpoint_of(m_service));
    QVERIFY(!reg.register_new_device("SN1", type, version));
    QVERIFY(!reg.registered("SN1"));
    QTEST(calls(m_service, new_device).size(), "sent");
}

void test_registration::mac_answers_data()
{
    QTest::addColumn<QJsonObject>("fault");
    QTest::addColumn<bool>("result");
    QTest::addColumn<bool>("dated");
    QTest::addColumn<QString>("operator_mac");
    QTest::addColumn<QString>("operator_ip");
    QTest::newRow("registered") << QJsonObject() << true << true << "00:11:22:33:44:55" << "10.1.2.3";
    QTest::newRow("service error") << QJsonObject { { "error", 3 } } << false << false << "00:11:22:33:44:55"
                                   << "10.1.2.3";
    QTest::newRow("not JSON-RPC") << QJsonObject { { "garbage", "{}" } } << false << false << "" << "";
    QTest::newRow("accepted, nothing else said")
        << QJsonObject { { "garbage", R"({"jsonrpc":"2.0","id":1,"result":{"result":true}})" } } << true << false
        << "00:11:22:33:44:55" << "10.1.2.3";
    QTest::newRow("the service's own view")
        << QJsonObject { { "garbage",
               R"({"jsonrpc":"2.0","id":1,"result":{"result":1,"date":"2024-02-29 23:59:58","operator_mac":"aa:bb:cc:dd:ee:ff","operator_ip":"192.0.2.7"}})" } }
        << true << true << "aa:bb:cc:dd:ee:ff" << "192.0.2.7";
}

void test_registration::mac_answers()
{
    QFETCH(QJsonObject, fault);
    QVERIFY(m_service.set_fault("rpc", fault));
    delivery::registration reg;
    reg.set_endpoint(endpoint_of(m_service));
    const delivery::register_mac_result r
        = reg.register_cloud_mac("SN7", 34567, "00:11:22:33:44:55", QHostAddress("10.1.2.3"));
    QTEST(r.result, "result");
    QTEST(r.date.isValid(), "dated");
    QTEST(r.operator_mac, "operator_mac");
    QTEST(r.operator_ip.toString(), "operator_ip");
    const QJsonArray sent = calls(m_service, cloud_mac);
    QCOMPARE(sent.size(), 1);
    QCOMPARE(sent[0].toObject()["serial"].toString(), QStringLiteral("SN7"));
}

void test_registration::fleet_run_registers_identified_devices_data()
{
    QTest::addColumn<bool>("devices");
    QTest::addColumn<bool>("macs");
    QTest::addColumn<QJsonObject>("fault");
    QTest::newRow("devices only") << true << false << QJsonObject();
    QTest::newRow("neither") << false << false << QJsonObject();
    QTest::newRow("the service refuses") << true << true << QJsonObject { { "error", 9 } };
}

void test_registration::fleet_run_registers_identified_devices()
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
}

void test_registration::second_run_sends_no_device_again()
{
    fixture f;
    QVERIFY2(f.start_devices(2), qPrintable(f.devices.error()));
    QVERIFY2(f.start_service({ { f.serial(0), "updated" }, { f.serial(1), "updated" } }), qPrintable(f.service.error()));
    f.make_core();
    f.c->on_window_run_list();
    QTRY_COMPARE_WITH_TIMEOUT(f.log_text().count("-- all done --"), 1, 30000);
    f.c->on_window_run_list(false, true, false);
    QTRY_COMPARE_WITH_TIMEOUT(f.log_text().count("-- all done --"), 2, 30000);
    QCOMPARE(calls(f.service, new_device).size(), 2);
    QVERIFY(f.c->registrations().registered(f.serial(0)));
    // MAC addresses are registered at each run: the service answers with the first date.
    QCOMPARE(calls(f.service, cloud_mac).size(), 4);
}

QTEST_GUILESS_MAIN(test_registration)
#include "test_registration.moc"
