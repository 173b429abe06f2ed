#include "support/devsim_harness.h"
#include "support/fleet_fixture.h"
#include "support/test_network.h"
#include "tests/scan_reports.h"

#include <QtTest>

namespace
{

// A core with no rows, and the events it raised.
struct scanning_core : fleet::fixture {
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

class test_core_scan : public QObject
{
    Q_OBJECT
private slots:
    void single_pass_fills_the_table_with_working_rows();
    void continuous_scan_follows_the_network_data();
    void continuous_scan_follows_the_network();
};

void test_core_scan::single_pass_fills_the_table_with_working_rows()
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
        QJsonArray expected;
        for (int i = 0; i < sim.count(); ++i) {
            const QJsonObject state = sim.state(i);
            expected.append(QJsonObject { { "mac", state.value("mac") }, { "address", sim.address(i).toString() },
                { "port", sim.port(i) }, { "user", state.value("user") }, { "serial", state.value("serial") } });
        }
        RUN_INSIDE(net, (QJsonObject { { "devices", expected } }));
        for (int i = 0; i < sim.count(); ++i) {
            // One datagram a pass, heard and answered by all; every row logged in with the digest it brought.
            QCOMPARE(sim.state(i).value("discovery_requests").toInt(), 1);
            QCOMPARE(sim.state(i).value("discovery_answers").toInt(), 1);
            QCOMPARE(sim.state(i).value("failed_logins").toInt(), 0);
        }
        return;
    }

    const QJsonArray expected = test_network::inside_arguments().value("devices").toArray();
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
    QTRY_COMPARE_WITH_TIMEOUT(f.ended, expected.size(), 30000);
    QMap<QString, std::shared_ptr<tasks::line>> by_mac;
    for (const QString& ident : f.c->task_manager().lines())
        by_mac.insert(f.line(ident)->get(tasks::keys::device).value<device>().address.text(), f.line(ident));
    QCOMPARE(f.rows(), expected.size());
    for (const QJsonValue& v : expected) {
        const QJsonObject e = v.toObject();
        const auto l = by_mac.value(e.value("mac").toString());
        QVERIFY2(l, qPrintable(e.value("mac").toString()));
        const endpoint ep = l->get(tasks::keys::endpoint).value<endpoint>();
        QCOMPARE(ep.mac, e.value("mac").toString());
        QCOMPARE(ep.host, e.value("address").toString());
        QCOMPARE(int(ep.port), e.value("port").toInt());
        QCOMPARE(ep.user, e.value("user").toString());
        QCOMPARE(l->get(tasks::keys::serial).toString(), e.value("serial").toString());
        QVERIFY(f.result(l->ident()).ok);
    }
}

void test_core_scan::continuous_scan_follows_the_network_data()
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

void test_core_scan::continuous_scan_follows_the_network()
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
        const QString silent_mac = silent_in_second < 0 ? "" : sim.state(silent_in_second).value("mac").toString();
        RUN_INSIDE(net, (QJsonObject { { "control", sim.control_socket() }, { "silent_mac", silent_mac } }));
        for (int i = 0; i < sim.count(); ++i)
            QCOMPARE(sim.state(i).value("discovery_requests").toInt(), passes);
        return;
    }

    const QJsonObject args = test_network::inside_arguments();
    devsim_harness sim;
    if (silent_in_second >= 0)
        QVERIFY2(sim.attach(args.value("control").toString()), qPrintable(sim.error()));
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
    const QString silent_mac = args.value("silent_mac").toString();
    QCOMPARE(lost_macs, silent_mac.isEmpty() ? QStringList() : QStringList { silent_mac });
    // The lost device's row is gone.
    QCOMPARE(f.rows(), found - lost_macs.size());
    QCOMPARE(s.devices().size(), found - lost_macs.size());
    for (const QString& ident : f.c->task_manager().lines())
        QVERIFY(!lost_macs.contains(f.line(ident)->get(tasks::keys::device).value<device>().address.text()));
    const qint64 tail = reports.done_ms() - reported.last().ms;
    QVERIFY2(stop_on.isEmpty() ? tail < 500 : tail >= 990, qPrintable(QString::number(tail)));
    // Lost at the end of the second pass: two seconds of silence after the last reply of the first.
    for (const auto& l : reports.lost())
        QVERIFY2(l.ms - reported.last().ms >= 1990, qPrintable(QString::number(l.ms - reported.last().ms)));
}

QTEST_GUILESS_MAIN(test_core_scan)
#include "test_core_scan.moc"
