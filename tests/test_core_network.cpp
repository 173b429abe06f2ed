// Scans and broadcast changes through the core: devices in a namespace network, the core in the program's namespace.
#include "tests/scan_reports.h"
#include "tests/support/broadcast_record.h"
#include "tests/support/fleet_fixture.h"
#include "tests/support/test_network.h"

#include <QtTest>

using namespace fleet;

namespace
{

// A core with no rows, and the events it raised.
struct scanning_core : fixture {
    scanning_core()
    {
        make_core();
        QObject::connect(c.get(), &core::event_raised, [this](const QString& name, const QStringList& args) {
            events << (QStringList { name } + args).join(' ');
        });
    }
    int rows() const { return c->task_manager().lines().size(); }

    QStringList events;
};

} // namespace

class test_core_network : public QObject
{
    Q_OBJECT
private slots:
    void single_pass_fills_the_table_with_working_rows();
    void continuous_scan_follows_the_network_data();
    void continuous_scan_follows_the_network();
    void broadcast_changes_data();
    void broadcast_changes();
};

void test_core_network::single_pass_fills_the_table_with_working_rows()
{
    if (test_network::inside().isEmpty()) {
        BUILD_TEST_NETWORK(net);
        // Devices of every kind discovery meets: ports of their own, other users and passwords, ports written with
        // leading zeros, and a record naming another address (the sender's is the one that counts).
        QJsonArray devices;
        for (int i = 0; i < 30; ++i) {
            QJsonObject d { { "port", 35000 + i }, { "faults", QJsonObject { { "leading_zeros", i % 3 == 0 } } } };
            if (i % 4 == 1)
                d.insert("user", "operator");
            if (i % 5 == 2)
                d.insert("password", "admin");
            if (i == 7)
                d.insert("net", QJsonObject { { "HostIP", "0x0101A8C0" } });
            devices.append(d);
        }
        devsim_harness sim;
        QVERIFY2(net.start_devices(sim, devices.size(), {}, devices), qPrintable(net.error()));
        RUN_INSIDE(net, (QJsonObject { { "control", sim.control_socket() } }));
        for (int i = 0; i < sim.count(); ++i) {
            // One datagram a pass, heard and answered by all; every row logged in with the digest it brought.
            QCOMPARE(sim.state(i).value("discovery_requests").toInt(), 1);
            QCOMPARE(sim.state(i).value("discovery_answers").toInt(), 1);
            QCOMPARE(sim.state(i).value("failed_logins").toInt(), 0);
        }
        return;
    }

    devsim_harness sim;
    QVERIFY2(sim.attach(test_network::inside_arguments().value("control").toString()), qPrintable(sim.error()));
    scanning_core f;
    f.add_row(QStringLiteral("10.213.99.99"), 34567);
    // Rows of a single pass come at its end: none while devices are being found.
    int rows_while_scanning = 0;
    QObject::connect(&f.c->lan_scanner(), &scanner::device_found, f.c.get(),
        [&] { rows_while_scanning = std::max(rows_while_scanning, f.rows()); });
    QVERIFY(f.c->scan());
    QCOMPARE(f.rows(), 0);
    QVERIFY(!f.c->scan());
    QTRY_VERIFY_WITH_TIMEOUT(f.c->scan_finished(), 10000);

    QCOMPARE(rows_while_scanning, 0);
    QCOMPARE(f.events, (QStringList { "scanner_done", "scanner_done autostop" }));

    // The rows reach their devices over TCP; the list isn't cleared under running flows.
    f.c->run_on_selection(tasks::names::identify, {});
    QVERIFY(!f.c->scan());
    QTRY_COMPARE_WITH_TIMEOUT(f.ended, sim.count(), 30000);
    QStringList rows, devices; // "mac host:port user serial", sorted
    for (const QString& ident : f.c->task_manager().lines()) {
        const endpoint ep = f.endpoint_of(ident);
        rows << QStringLiteral("%1 %2:%3 %4 %5").arg(ep.mac, ep.host).arg(ep.port).arg(ep.user,
            f.line(ident)->get(tasks::keys::serial).toString());
        QVERIFY(f.result(ident).ok);
    }
    for (int i = 0; i < sim.count(); ++i) {
        const QJsonObject state = sim.state(i);
        devices << QStringLiteral("%1 %2:%3 %4 %5").arg(state.value("mac").toString(), sim.address(i).toString())
                       .arg(sim.port(i)).arg(state.value("user").toString(), state.value("serial").toString());
    }
    rows.sort();
    devices.sort();
    QCOMPARE(rows, devices);
}

void test_core_network::continuous_scan_follows_the_network_data()
{
    QTest::addColumn<int>("devices");
    QTest::addColumn<quint64>("count");
    QTest::addColumn<int>("silent_in_second"); // a device that skips the second pass; -1 none
    QTest::addColumn<QString>("stop_on"); // stop() from the scanner's thread at the first "found" or "lost"
    QTest::addColumn<int>("found");

    // An autostop at the count cuts the read phase short, without its second of silence.
    QTest::newRow("rows as found, until the count: autostop") << 12 << quint64(10) << -1 << "" << 10;
    QTest::newRow("a device silent in the second pass is lost and leaves the table")
        << 3 << quint64(1000) << 1 << "lost" << 3;
    QTest::newRow("stop() lets the pass finish") << 3 << quint64(1000) << -1 << "found" << 3;
}

void test_core_network::continuous_scan_follows_the_network()
{
    QFETCH(int, devices);
    QFETCH(quint64, count);
    QFETCH(int, silent_in_second);
    QFETCH(QString, stop_on);
    QFETCH(int, found);
    const QString ending = stop_on.isEmpty() ? "autostop" : "manual";
    const int passes = silent_in_second < 0 ? 1 : 2;

    if (test_network::inside().isEmpty()) {
        BUILD_TEST_NETWORK(net);
        devsim_harness sim;
        QVERIFY2(net.start_devices(sim, devices), qPrintable(net.error()));
        RUN_INSIDE(net, (QJsonObject { { "control", sim.control_socket() } }));
        for (int i = 0; i < sim.count(); ++i)
            QCOMPARE(sim.state(i).value("discovery_requests").toInt(), passes);
        return;
    }

    devsim_harness sim;
    QVERIFY2(sim.attach(test_network::inside_arguments().value("control").toString()), qPrintable(sim.error()));
    scanning_core f;
    scanner& s = f.c->lan_scanner();
    scan_reports reports(s);
    if (stop_on == QLatin1String("found"))
        reports.after_found = [&s] { s.stop(); };
    else if (stop_on == QLatin1String("lost"))
        reports.after_lost = [&s] { s.stop(); };
    // The row count each time a found device has been handled: a row at once for each.
    QList<int> rows_seen;
    QObject::connect(&s, &scanner::device_found, f.c.get(), [&] { rows_seen << f.rows(); });

    QVERIFY(f.c->scan(count));
    if (silent_in_second >= 0) {
        // Between the passes: the first one ends a second after its last reply.
        QTRY_COMPARE_WITH_TIMEOUT(reports.found().size(), devices, 10000);
        QVERIFY2(sim.set_faults(silent_in_second, { { "discovery_skip", 1 } }), qPrintable(sim.error()));
    }
    QTRY_VERIFY_WITH_TIMEOUT(f.c->scan_finished(), 30000);

    QCOMPARE(f.events, (QStringList { "scanner_done", "scanner_done " + ending }));
    QCOMPARE(reports.done(), QList<bool> { ending == QLatin1String("manual") });
    const auto reported = reports.found();
    QCOMPARE(reported.size(), found);
    QCOMPARE(rows_seen.size(), found);
    for (int i = 0; i < found; ++i)
        QCOMPARE(rows_seen[i], i + 1);
    QStringList lost_macs;
    for (const auto& l : reports.lost())
        lost_macs << l.address.text();
    QCOMPARE(lost_macs,
        silent_in_second < 0 ? QStringList() : QStringList { sim.state(silent_in_second)["mac"].toString() });
    // The lost device's row is gone.
    QCOMPARE(f.rows(), found - lost_macs.size());
    for (const QString& ident : f.c->task_manager().lines())
        QVERIFY(!lost_macs.contains(f.line(ident)->get(tasks::keys::device).value<device>().address.text()));
    const qint64 tail = reports.done_ms() - reported.last().ms;
    QVERIFY2(stop_on.isEmpty() ? tail < 500 : tail >= 990, qPrintable(QString::number(tail)));
    // Lost at the end of the second pass: two seconds of silence after the last reply of the first.
    for (const auto& l : reports.lost())
        QVERIFY2(l.ms - reported.last().ms >= 1990, qPrintable(QString::number(l.ms - reported.last().ms)));
}

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
        f.make_core();
        const QString address = test_network::device_address(0, 0).toString();
        if (discovered) {
            QVERIFY(f.c->scan());
            QTRY_VERIFY_WITH_TIMEOUT(f.c->scan_finished(), 10000);
            QCOMPARE(f.c->task_manager().lines().size(), 1);
            f.idents << f.c->task_manager().lines().constFirst();
        } else {
            f.idents << f.add_row(address, endpoint::default_port);
        }
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

QTEST_GUILESS_MAIN(test_core_network)
#include "test_core_network.moc"
