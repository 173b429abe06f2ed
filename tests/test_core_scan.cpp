#include "support/devsim_harness.h"
#include "support/fleet_fixture.h"
#include "support/netip_wire.h"
#include "support/test_network.h"
#include "tests/scan_reports.h"

#include <QJsonArray>
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

// Thirty devices of every kind discovery meets: ports of their own, other users and
// passwords, ports written with leading zeros, and a record naming another address
// (the sender's is the one that counts).
QJsonArray thirty_devices()
{
    QJsonArray devices;
    for (int i = 0; i < 30; ++i) {
        QJsonObject d { { "port", 35000 + i } };
        if (i % 3 == 0)
            d.insert("faults", QJsonObject { { "leading_zeros", true } });
        if (i % 4 == 1)
            d.insert("user", "operator");
        if (i % 5 == 2)
            d.insert("password", "admin");
        if (i == 7)
            d.insert("net", QJsonObject { { "HostIP", "0x0101A8C0" } });
        devices.append(d);
    }
    return devices;
}

const QString done_event = QStringLiteral("scanner_done");

} // namespace

class test_core_scan : public QObject
{
    Q_OBJECT
private slots:
    void single_pass_fills_the_table_with_working_rows();
    void continuous_scan_follows_the_network_data();
    void continuous_scan_follows_the_network();
    void next_scan_waits_for_the_end_of_the_last();
};

void test_core_scan::single_pass_fills_the_table_with_working_rows()
{
    if (test_network::inside().isEmpty()) {
        BUILD_TEST_NETWORK(net);
        devsim_harness sim;
        const QJsonArray devices = thirty_devices();
        QVERIFY2(net.start_devices(sim, devices.size(), {}, devices), qPrintable(net.error()));
        QJsonArray expected;
        for (int i = 0; i < sim.count(); ++i) {
            const QJsonObject state = sim.state(i);
            const bool admin = state.value("password").toString() == QLatin1String("admin");
            expected.append(QJsonObject { { "mac", state.value("mac") }, { "address", sim.address(i).toString() },
                { "port", sim.port(i) }, { "user", state.value("user") }, { "serial", state.value("serial") },
                { "name", state.value("net").toObject().value("HostName") },
                { "password", QLatin1String(admin ? netip_wire::digest_admin : netip_wire::digest_empty) } });
        }
        RUN_INSIDE(net, (QJsonObject { { "devices", expected } }));
        for (int i = 0; i < sim.count(); ++i) {
            // One pass is one datagram, heard and answered by every device...
            QCOMPARE(sim.state(i).value("discovery_requests").toInt(), 1);
            QCOMPARE(sim.state(i).value("discovery_answers").toInt(), 1);
            // ...and every row logged in with the digest that discovery brought.
            QCOMPARE(sim.state(i).value("failed_logins").toInt(), 0);
        }
        return;
    }

    const QJsonArray expected = test_network::inside_arguments().value("devices").toArray();
    scanning_core f;
    f.add_row(QStringLiteral("10.213.99.99"), 34567);
    scan_reports reports(f.c->lan_scanner());
    // Rows of a single pass come at its end: none while devices are being found.
    int rows_while_scanning = 0;
    QObject::connect(&f.c->lan_scanner(), &scanner::device_found, f.c.get(),
        [&] { rows_while_scanning = std::max(rows_while_scanning, f.rows()); });

    QVERIFY(f.c->scan());
    QCOMPARE(f.rows(), 0);
    QVERIFY(!f.c->scan());
    QVERIFY(f.log_text().contains("Already launched: Wait for the scan to finish or cancel it."));
    QTRY_VERIFY_WITH_TIMEOUT(f.c->scan_finished(), 10000);

    QCOMPARE(rows_while_scanning, 0);
    QCOMPARE(f.events, (QStringList { done_event, done_event + " autostop" }));
    QCOMPARE(reports.done(), QList<bool> { false });
    // Each device found once, and the pass waits out one second of silence after the last reply.
    const auto found = reports.found();
    QCOMPARE(found.size(), expected.size());
    const qint64 tail = reports.done_ms() - found.last().ms;
    QVERIFY2(tail >= 990 && tail < 1900, qPrintable(QString::number(tail)));
    QMap<QString, device> found_by_mac;
    for (const auto& r : found)
        found_by_mac.insert(r.address.text(), r.dev);
    QCOMPARE(found_by_mac.size(), expected.size());
    QCOMPARE(f.rows(), expected.size());
    QMap<QString, std::shared_ptr<tasks::line>> by_mac;
    for (const QString& ident : f.c->task_manager().lines())
        by_mac.insert(f.endpoint_of(ident).mac, f.line(ident));
    const QString log = f.log_text();
    QVERIFY2(log.contains(QStringLiteral("Found %1 devices:").arg(expected.size())), qPrintable(log));
    for (const QJsonValue& v : expected) {
        const QJsonObject e = v.toObject();
        const QString mac_text = e.value("mac").toString();
        QVERIFY2(by_mac.contains(mac_text), qPrintable(mac_text));
        const endpoint ep = by_mac.value(mac_text)->get(tasks::keys::endpoint).value<endpoint>();
        QCOMPARE(ep.host, e.value("address").toString());
        QCOMPARE(int(ep.port), e.value("port").toInt());
        QCOMPARE(ep.user, e.value("user").toString());
        QCOMPARE(by_mac.value(mac_text)->get(tasks::keys::device).value<device>().address.text(), mac_text);
        const device d = found_by_mac.value(mac_text);
        QCOMPARE(d.ip, e.value("address").toString());
        QCOMPARE(d.password, e.value("password").toString());
        QVERIFY(d.password_is_hash);
        QVERIFY2(log.contains(QStringLiteral("* Device %1: %2").arg(mac_text, e.value("name").toString())),
            qPrintable(mac_text));
    }

    // The rows reach their devices over TCP; the list isn't cleared under running flows.
    f.c->run_on_selection(tasks::names::identify, {});
    QVERIFY(!f.c->scan());
    QVERIFY(f.log_text().contains("The queue is busy: Unable to run scan while the queue is active."));
    QCOMPARE(f.rows(), expected.size());
    QTRY_COMPARE_WITH_TIMEOUT(f.ended, expected.size(), 30000);
    for (const QJsonValue& v : expected) {
        const auto l = by_mac.value(v.toObject().value("mac").toString());
        QCOMPARE(l->get(tasks::keys::serial).toString(), v.toObject().value("serial").toString());
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
    QTest::addColumn<QString>("ending");
    QTest::addColumn<int>("passes");
    QTest::addColumn<bool>("cut_short"); // the read phase ends at the count, without its second of silence

    QTest::newRow("rows as found, until the count: autostop")
        << 12 << quint64(10) << -1 << "" << 10 << "autostop" << 1 << true;
    QTest::newRow("a device silent in the second pass is lost and leaves the table")
        << 3 << quint64(1000) << 1 << "lost" << 3 << "manual" << 2 << false;
    QTest::newRow("stop() lets the pass finish") << 3 << quint64(1000) << -1 << "found" << 3 << "manual" << 1 << false;
    QTest::newRow("a count past 32 bits is no small count")
        << 3 << ((quint64(1) << 32) + 2) << 0 << "lost" << 3 << "manual" << 2 << false;
    QTest::newRow("a count of 0 runs no pass") << 3 << quint64(0) << -1 << "" << 0 << "autostop" << 0 << false;
}

void test_core_scan::continuous_scan_follows_the_network()
{
    QFETCH(int, devices);
    QFETCH(quint64, count);
    QFETCH(int, silent_in_second);
    QFETCH(QString, stop_on);
    QFETCH(int, found);
    QFETCH(QString, ending);
    QFETCH(int, passes);
    QFETCH(bool, cut_short);

    if (test_network::inside().isEmpty()) {
        BUILD_TEST_NETWORK(net);
        devsim_harness sim;
        QVERIFY2(net.start_devices(sim, devices), qPrintable(net.error()));
        const QString silent_mac = silent_in_second < 0 ? QString() : sim.state(silent_in_second).value("mac").toString();
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

    QCOMPARE(f.events, (QStringList { done_event, done_event + ' ' + ending }));
    QCOMPARE(reports.done(), QList<bool> { ending == QLatin1String("manual") });
    const auto reported = reports.found();
    QCOMPARE(reported.size(), found);
    QList<int> one_by_one;
    for (int i = 1; i <= found; ++i)
        one_by_one << i;
    QCOMPARE(rows_seen, one_by_one);
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
    // The found list is logged by single passes only.
    QVERIFY(!f.log_text().contains("Found "));
    if (found == 0)
        return;
    const qint64 tail = reports.done_ms() - reported.last().ms;
    QVERIFY2(cut_short ? tail < 500 : tail >= 990, qPrintable(QString::number(tail)));
    // Lost at the end of the second pass: two seconds of silence after the last reply of the first.
    for (const auto& l : reports.lost())
        QVERIFY2(l.ms - reported.last().ms >= 1990, qPrintable(QString::number(l.ms - reported.last().ms)));
}

void test_core_scan::next_scan_waits_for_the_end_of_the_last()
{
    if (test_network::inside().isEmpty()) {
        BUILD_TEST_NETWORK(net);
        devsim_harness sim;
        QVERIFY2(net.start_devices(sim, 2), qPrintable(net.error()));
        RUN_INSIDE(net, QJsonObject {});
        QCOMPARE(sim.state(0).value("discovery_requests").toInt(), 2);
        return;
    }

    scanning_core f;
    // The thread lingers after its done, as it may on a busy machine, while the core
    // already handles it.
    QObject::connect(
        &f.c->lan_scanner(), &scanner::done, &f.c->lan_scanner(), [] { QThread::msleep(300); }, Qt::DirectConnection);
    QList<bool> again;
    QObject::connect(f.c.get(), &core::event_raised, [&](const QString&, const QStringList& args) {
        if (again.isEmpty() && args == QStringList { "autostop" })
            again << f.c->scan();
    });

    QVERIFY(f.c->scan());
    // The thread has ended, but its end hasn't been handled: still refused.
    QVERIFY(f.c->lan_scanner().wait(10000));
    QVERIFY(!f.c->scan());
    QVERIFY(f.log_text().contains("Already launched"));
    // Accepted from the handler of its end.
    QTRY_COMPARE_WITH_TIMEOUT(f.events.size(), 4, 10000);
    QCOMPARE(again, QList<bool> { true });
    QVERIFY(f.c->scan_finished());
    QCOMPARE(f.rows(), 2);
    QCOMPARE(f.log_text().count("Already launched"), 1);
}

QTEST_GUILESS_MAIN(test_core_scan)
#include "test_core_scan.moc"
