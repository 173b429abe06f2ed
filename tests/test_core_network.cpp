#include "tests/support/broadcast_record.h"
#include "tests/support/fleet_fixture.h"
#include "tests/support/test_network.h"

#include <QtTest>

// Network changes by broadcast, driven through the core. Each test starts the devices in a namespace network and
// runs itself again in the program's namespace, where the core works; the outer run reads what the devices got.

using namespace fleet;

namespace
{

// Inside: a core with a row added by hand for each device where start_devices put it.
void add_rows(fixture& f, int count)
{
    f.make_core();
    for (int i = 0; i < count; ++i)
        f.idents << f.add_row(test_network::device_address(0, i).toString(), endpoint::default_port);
}

} // namespace

class test_core_network : public QObject
{
    Q_OBJECT
private slots:
    void broadcast_changes_data();
    void broadcast_changes();
    void assign_addresses_one_device_at_a_time();
};

void test_core_network::broadcast_changes_data()
{
    QTest::addColumn<bool>("discovered"); // else added by hand and never identified
    QTest::addColumn<QString>("task");
    QTest::addColumn<QVariantMap>("args");
    QTest::addColumn<QJsonObject>("device_net"); // the device's record before
    QTest::addColumn<QJsonObject>("sent"); // members of the broadcast; empty: none may go out
    QTest::addColumn<QString>("result");

    const QHostAddress moved = test_network::device_address(0, 100);
    const QString own = wire_address(test_network::device_address(0, 0));
    const QJsonObject net_24 { { "Submask", "0x00FFFFFF" } };
    const QVariantMap tcp_port { { tasks::args::type, "netip_tcp" }, { tasks::args::value, 34600u } };
    QTest::newRow("address with a /24 mask")
        << true << tasks::names::change_ip
        << QVariantMap { { tasks::args::address, QVariant::fromValue(moved) },
               { tasks::args::subnet, QVariant::fromValue(QHostAddress("255.255.255.0")) } }
        << QJsonObject { { "Submask", "0x0000FFFF" } }
        << QJsonObject { { "HostIP", wire_address(moved) }, { "Submask", "0x00FFFFFF" } } << "Done";
    QTest::newRow("subnet mask /16")
        << true << tasks::names::change_subnet
        << QVariantMap { { tasks::args::subnet, QVariant::fromValue(QHostAddress("255.255.0.0")) } } << net_24
        << QJsonObject { { "HostIP", own }, { "Submask", "0x0000FFFF" } } << "Done";
    QTest::newRow("NETIP TCP port") << true << tasks::names::change_port << tcp_port << net_24
                                    << QJsonObject { { "TCPPort", 34600 }, { "HostIP", own } } << "Done";
    QTest::newRow("a row with no MAC broadcasts nothing")
        << false << tasks::names::change_port << tcp_port << net_24 << QJsonObject {}
        << "Error 8: Can't change the device's port";
}

void test_core_network::broadcast_changes()
{
    QFETCH(QString, task);
    QFETCH(QVariantMap, args);
    QFETCH(QJsonObject, sent);
    if (!test_network::inside().isEmpty()) {
        QFETCH(bool, discovered);
        fixture f;
        if (discovered) {
            f.make_core();
            QVERIFY(f.c->scan());
            QTRY_VERIFY_WITH_TIMEOUT(f.c->scan_finished(), 10000);
            QCOMPARE(f.c->task_manager().lines().size(), 1);
            f.idents << f.c->task_manager().lines().constFirst();
        } else {
            add_rows(f, 1);
        }
        const QString address = test_network::device_address(0, 0).toString();
        QCOMPARE(f.endpoint_of(f.idents[0]).host, address);
        f.c->run_on_selection(task, args);
        QTRY_COMPARE_WITH_TIMEOUT(f.ended, 1, 15000);
        QTEST(f.result(0).text, "result");
        // The row shows the address the device was given.
        const QHostAddress given = args.value(tasks::args::address).value<QHostAddress>();
        QCOMPARE(f.endpoint_of(f.idents[0]).host, given.isNull() ? address : given.toString());
        return;
    }

    QFETCH(QJsonObject, device_net);
    BUILD_TEST_NETWORK(net);
    devsim_harness sim;
    QVERIFY2(net.start_devices(sim, 1, { { "net_apply_ms", 100 }, { "net", device_net } }), qPrintable(net.error()));
    QVERIFY2(
        net.add_addresses(net.device_namespace(), { test_network::device_address(0, 100) }), qPrintable(net.error()));
    const QJsonObject before = sim.state(0).value("net").toObject();
    RUN_INSIDE(net, QJsonObject {});

    const QList<QJsonObject> broadcasts = broadcasts_for(sim, 0);
    QCOMPARE(broadcasts.size(), sent.isEmpty() ? 0 : 1);
    if (sent.isEmpty()) {
        QVERIFY(sim.requests_of(0, 1532).isEmpty());
        QCOMPARE(sim.state(0).value("net").toObject(), before);
        return;
    }
    const QJsonObject& body = broadcasts.at(0);
    for (auto it = sent.constBegin(); it != sent.constEnd(); ++it)
        QCOMPARE(body.value(it.key()), it.value());
    QCOMPARE(body.value("MAC"), body.value("DvrMac"));

    // The device holds what it was sent, and listens where that says.
    const QJsonObject after = sim.state(0).value("net").toObject();
    for (const char* key : { "HostIP", "Submask", "GateWay", "HttpPort", "TCPPort", "SSLPort", "UDPPort" })
        QVERIFY2(after.value(key) == body.value(key), key);
    const QHostAddress listens(qbswap(after.value("HostIP").toString().toUInt(nullptr, 16)));
    QTRY_COMPARE_WITH_TIMEOUT(sim.address(0), listens, 3000);
    QTRY_COMPARE_WITH_TIMEOUT(int(sim.port(0)), after.value("TCPPort").toInt(), 3000);
}

void test_core_network::assign_addresses_one_device_at_a_time()
{
    if (!test_network::inside().isEmpty()) {
        fixture f;
        add_rows(f, 3);
        f.c->assign_addresses(77, 10);
        QTRY_COMPARE_WITH_TIMEOUT(f.ended, 3, 60000);
        QCOMPARE(f.peak, 1);
        QSet<QString> hosts;
        for (int i = 0; i < 3; ++i) {
            QCOMPARE(f.result(i).text, QStringLiteral("Done"));
            hosts.insert(f.endpoint_of(f.idents[i]).host);
        }
        QCOMPARE(hosts, (QSet<QString> { "192.168.77.10", "192.168.77.11", "192.168.77.12" }));
        QCOMPARE(f.log_text().count("Task await_device started"), 3);
        return;
    }

    BUILD_TEST_NETWORK(net);
    devsim_harness sim;
    QVERIFY2(net.start_devices(sim, 3, { { "net_apply_ms", 100 } }), qPrintable(net.error()));
    QList<QHostAddress> targets;
    for (int i = 0; i < 3; ++i)
        targets << QHostAddress(QStringLiteral("192.168.77.%1").arg(10 + i));
    QVERIFY2(net.add_addresses(net.device_namespace(), targets), qPrintable(net.error()));
    RUN_INSIDE(net, QJsonObject {});

    for (int i = 0; i < 3; ++i) {
        const QList<QJsonObject> broadcasts = broadcasts_for(sim, i);
        QCOMPARE(broadcasts.size(), 1);
        const QString host_ip = broadcasts.at(0).value("HostIP").toString();
        const QHostAddress address(qbswap(host_ip.toUInt(nullptr, 16)));
        QVERIFY2(targets.contains(address), qPrintable(host_ip));
        // The mask of the options, /24, as the device reads it.
        QCOMPARE(broadcasts.at(0).value("Submask").toString(), QStringLiteral("0x00FFFFFF"));
        QCOMPARE(sim.address(i), address);
    }
    // Identify, change, await: one device after the other over TCP, never two at once.
    const auto busy = busy_spans(sim);
    QCOMPARE(busy.size(), 3);
    for (int i = 1; i < busy.size(); ++i)
        QVERIFY2(busy.at(i).first >= busy.at(i - 1).second,
            qPrintable(QStringLiteral("%1 starts before %2 ends").arg(busy.at(i).first).arg(busy.at(i - 1).second)));
}

QTEST_GUILESS_MAIN(test_core_network)
#include "test_core_network.moc"
