#include "support/devsim_harness.h"
#include "support/fleet_fixture.h"
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
        RUN_INSIDE(net, (QJsonObject { { "devices", expected_devices(sim) } }));
        // Every row logged in with the digest that discovery brought.
        for (int i = 0; i < sim.count(); ++i)
            QCOMPARE(sim.state(i).value("failed_logins").toInt(), 0);
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
    QVERIFY(f.log_text().contains("Already launched: Wait for the scan to finish or cancel it."));
    QTRY_VERIFY_WITH_TIMEOUT(f.c->scan_finished(), 10000);

    QCOMPARE(rows_while_scanning, 0);
    QCOMPARE(f.events, (QStringList { done_event, done_event + " autostop" }));
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
    QTest::addColumn<int>("silent_in_second"); // skips the second pass, and the scan is stopped when it is lost
    QTest::addColumn<int>("rows");
    QTest::addColumn<QString>("ending");

    QTest::newRow("rows as found, until the count: autostop") << 12 << quint64(10) << -1 << 10 << "autostop";
    QTest::newRow("a lost device leaves the table; stop() is manual") << 3 << quint64(1000) << 1 << 2 << "manual";
}

void test_core_scan::continuous_scan_follows_the_network()
{
    QFETCH(int, devices);
    QFETCH(quint64, count);
    QFETCH(int, silent_in_second);
    QFETCH(QString, ending);

    if (test_network::inside().isEmpty()) {
        BUILD_TEST_NETWORK(net);
        devsim_harness sim;
        QVERIFY2(net.start_devices(sim, devices), qPrintable(net.error()));
        const QString silent_mac = silent_in_second < 0 ? QString() : sim.state(silent_in_second).value("mac").toString();
        RUN_INSIDE(net, (QJsonObject { { "control", sim.control_socket() }, { "silent_mac", silent_mac } }));
        return;
    }

    const QJsonObject args = test_network::inside_arguments();
    devsim_harness sim;
    if (silent_in_second >= 0)
        QVERIFY2(sim.attach(args.value("control").toString()), qPrintable(sim.error()));
    scanning_core f;
    scan_reports reports(f.c->lan_scanner());
    reports.after_lost = [&f] { f.c->lan_scanner().stop(); };
    // The row count each time a found device has been handled: a row at once for each.
    QList<int> rows_seen;
    QObject::connect(&f.c->lan_scanner(), &scanner::device_found, f.c.get(), [&] { rows_seen << f.rows(); });

    QVERIFY(f.c->scan(count));
    if (silent_in_second >= 0) {
        QTRY_COMPARE_WITH_TIMEOUT(reports.found().size(), devices, 10000);
        QVERIFY2(sim.set_faults(silent_in_second, { { "discovery_skip", 1 } }), qPrintable(sim.error()));
    }
    QTRY_VERIFY_WITH_TIMEOUT(f.c->scan_finished(), 15000);

    QList<int> one_by_one;
    for (int i = 1; i <= reports.found().size(); ++i)
        one_by_one << i;
    QCOMPARE(rows_seen, one_by_one);
    QTEST(f.rows(), "rows");
    QCOMPARE(f.events, (QStringList { done_event, done_event + ' ' + ending }));
    const QString silent_mac = args.value("silent_mac").toString();
    if (!silent_mac.isEmpty()) {
        QCOMPARE(reports.lost().size(), 1);
        QCOMPARE(reports.lost().at(0).address.text(), silent_mac);
        for (const QString& ident : f.c->task_manager().lines())
            QVERIFY(f.line(ident)->get(tasks::keys::device).value<device>().address.text() != silent_mac);
    }
    // The found list is logged by single passes only.
    QVERIFY(!f.log_text().contains("Found "));
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
