#include "diagnostics/blackbox.h"
#include "sdk/scanner.h"
#include "support/devsim_harness.h"
#include "support/test_network.h"
#include "tests/scan_reports.h"

#include <QJsonArray>
#include <QTemporaryDir>
#include <QtTest>

#include <memory>

namespace
{

// A scanner in a test network's program namespace, logging to a file of its own.
struct scanner_inside {
    scanner_inside()
    {
        box = std::make_shared<blackbox>(dir.filePath(QStringLiteral("scanner.log")));
        box->open();
        s.attach(box);
    }
    // How often a text stands in the scanner's log.
    int logged(const QString& text) const
    {
        QFile file(box->file_name());
        return file.open(QIODevice::ReadOnly) ? QString::fromUtf8(file.readAll()).count(text) : -1;
    }

    QTemporaryDir dir;
    std::shared_ptr<blackbox> box;
    scanner s;
    scan_reports reports { s };
};

const QString too_short = QStringLiteral("Входящая датаграмма слишком мала");
const QString json_failed = QStringLiteral("JSON assignment failed");
const QString new_device = QStringLiteral("Новое устройство");

} // namespace

class test_scanner : public QObject
{
    Q_OBJECT
private slots:
    void discovery_datagram_bytes();
    void repair_numbers_data();
    void repair_numbers();
    void parse_device_data();
    void parse_device();
    void single_pass_finds_every_device();
    void single_pass_skips_what_it_cannot_use_data();
    void single_pass_skips_what_it_cannot_use();
    void continuous_scan_data();
    void continuous_scan();
};

void test_scanner::discovery_datagram_bytes()
{
    QCOMPARE(scanner::discovery_datagram().toHex(), QByteArray("ff00000000000000000000000000fa0500000000"));
}

void test_scanner::repair_numbers_data()
{
    QTest::addColumn<QString>("in");
    QTest::addColumn<QString>("out");
    QTest::newRow("leading zero") << R"({"TCPPort": 034567, "X": 1})" << R"({"TCPPort": 34567, "X": 1})";
    QTest::newRow("no space") << R"({"A":007,"B":0010,)" << R"({"A":7,"B":10,)";
    QTest::newRow("plain numbers untouched") << R"({"A": 5, "B": 12})" << R"({"A": 5, "B": 12})";
    QTest::newRow("last member has no comma") << R"({"A": 05})" << R"({"A": 05})";
    QTest::newRow("all zeros") << R"({"A": 000,)" << R"({"A": 0,)";
    QTest::newRow("text is not touched") << R"({"A": "0042",)" << R"({"A": "0042",)";
}

void test_scanner::repair_numbers()
{
    QFETCH(QString, in);
    QTEST(scanner::repair_numbers(in), "out");
}

void test_scanner::parse_device_data()
{
    QTest::addColumn<QString>("json");
    QTest::addColumn<bool>("ok");
    QTest::addColumn<QString>("mac");
    QTest::addColumn<QString>("user");
    QTest::addColumn<QString>("password");

    const QString common = R"({"NetWork.NetCommon":{"HostIP":"0x0A01A8C0","TCPPort":34567,%1}})";
    QTest::newRow("full reply") << common.arg(R"("MAC":"00:12:31:ab:cd:ef","Username":"root","Password":"6QNMIQGe")")
                                << true << "00:12:31:ab:cd:ef" << "root" << "6QNMIQGe";
    QTest::newRow("empty user is admin, no password") << common.arg(R"("MAC":"00:12:31:ab:cd:ef","Username":"")")
                                                      << true << "00:12:31:ab:cd:ef" << "admin" << "";
    QTest::newRow("16-character MAC gives zeros")
        << common.arg(R"("MAC":"00:12:31:ab:cd:e")") << true << "00:00:00:00:00:00" << "admin" << "";
    QTest::newRow("empty") << "" << false << "" << "" << "";
}

void test_scanner::parse_device()
{
    QFETCH(QString, json);
    QFETCH(bool, ok);
    scanner s;
    device d;
    QCOMPARE(s.parse_device(json, d), ok);
    if (!ok)
        return;
    QTEST(d.address.text(), "mac");
    QTEST(d.user, "user");
    QTEST(d.password, "password");
    QCOMPARE(d.password_is_hash, !d.password.isEmpty());
    QCOMPARE(int(d.port), 34567);
    QCOMPARE(d.net.HostIP, 0xC0A8010Au);
}

void test_scanner::single_pass_finds_every_device()
{
    if (test_network::inside().isEmpty()) {
        BUILD_TEST_NETWORK(net);
        devsim_harness sim;
        const QJsonArray devices = thirty_devices();
        QVERIFY2(net.start_devices(sim, devices.size(), {}, devices), qPrintable(net.error()));
        RUN_INSIDE(net, (QJsonObject { { "devices", expected_devices(sim) } }));
        // One pass is one datagram, heard and answered by every device.
        for (int i = 0; i < sim.count(); ++i) {
            QCOMPARE(sim.state(i).value("discovery_requests").toInt(), 1);
            QCOMPARE(sim.state(i).value("discovery_answers").toInt(), 1);
        }
        return;
    }

    const QJsonArray expected = test_network::inside_arguments().value("devices").toArray();
    scanner_inside in;
    in.s.start_single_pass();
    QVERIFY(in.s.wait(20000));

    QCOMPARE(in.reports.done(), QList<bool> { false });
    QVERIFY(in.reports.lost().isEmpty());
    const auto found = in.reports.found();
    QMap<QString, device> by_mac;
    for (const auto& f : found) {
        QCOMPARE(f.address, f.dev.address);
        by_mac.insert(f.address.text(), f.dev);
    }
    QCOMPARE(found.size(), expected.size());
    QCOMPARE(by_mac.size(), expected.size());
    for (const QJsonValue& v : expected) {
        const QJsonObject e = v.toObject();
        QVERIFY2(by_mac.contains(e.value("mac").toString()), qPrintable(e.value("mac").toString()));
        const device d = by_mac.value(e.value("mac").toString());
        QCOMPARE(d.ip, e.value("address").toString());
        QCOMPARE(int(d.port), e.value("port").toInt());
        QCOMPARE(d.user, e.value("user").toString());
        QCOMPARE(d.password, e.value("password").toString());
        QVERIFY(d.password_is_hash);
        QCOMPARE(d.state, 0);
    }
    QCOMPARE(in.s.devices().size(), expected.size());
    // The pass waits out one second of silence after the last reply, and no more.
    const qint64 tail = in.reports.done_ms() - found.last().ms;
    QVERIFY2(tail >= 990 && tail < 1900, qPrintable(QString::number(tail)));
    // Its own broadcast comes back to the bound port and is dropped as too short.
    QCOMPARE(in.logged(too_short), 1);
    QCOMPARE(in.logged(new_device), expected.size());
}

void test_scanner::single_pass_skips_what_it_cannot_use_data()
{
    QTest::addColumn<QJsonArray>("devices");
    QTest::addColumn<int>("answers"); // discovery answers sent by the devices
    QTest::addColumn<int>("found");
    QTest::addColumn<QString>("line"); // in the scanner's log...
    QTest::addColumn<int>("times"); // ...this often

    const auto with_body = [](const QString& text) {
        return QJsonArray { QJsonObject {}, QJsonObject { { "faults", QJsonObject { { "discovery_body", text } } } },
            QJsonObject {} };
    };
    const QString filler(120, QLatin1Char('a'));
    QTest::newRow("a reply shorter than 100 bytes") << with_body("{\"NetWork.NetCommon\":{}}") << 3 << 2 << too_short << 2;
    QTest::newRow("a reply that isn't JSON") << with_body("{\"NetWork.NetCommon\":" + filler) << 3 << 2 << json_failed << 1;
    QTest::newRow("a reply without NetWork.NetCommon")
        << with_body("{\"NetWork.Wireless\":{\"SSID\":\"" + filler + "\"}}") << 3 << 2 << json_failed << 1;
    const QJsonObject twin { { "mac", "02:4f:56:aa:bb:cc" } };
    QTest::newRow("two replies from one MAC count once")
        << QJsonArray { twin, twin, QJsonObject {} } << 3 << 2 << new_device << 2;
    QTest::newRow("nobody answers: only the own broadcast comes back")
        << QJsonArray { QJsonObject { { "faults", QJsonObject { { "silent_at", QJsonArray { 1530 } } } } } } << 0 << 0
        << too_short << 1;
}

void test_scanner::single_pass_skips_what_it_cannot_use()
{
    QFETCH(QJsonArray, devices);
    QFETCH(int, found);
    QFETCH(QString, line);

    if (test_network::inside().isEmpty()) {
        BUILD_TEST_NETWORK(net);
        devsim_harness sim;
        QVERIFY2(net.start_devices(sim, devices.size(), {}, devices), qPrintable(net.error()));
        RUN_INSIDE(net, QJsonObject {});
        int sent = 0;
        for (int i = 0; i < sim.count(); ++i)
            sent += sim.state(i).value("discovery_answers").toInt();
        QTEST(sent, "answers");
        return;
    }

    scanner_inside in;
    in.s.start_single_pass();
    QVERIFY(in.s.wait(20000));
    QCOMPARE(in.reports.done(), QList<bool> { false });
    QCOMPARE(in.reports.found().size(), found);
    QCOMPARE(in.s.devices().size(), found);
    QTEST(in.logged(line), "times");
}

void test_scanner::continuous_scan_data()
{
    QTest::addColumn<int>("devices");
    QTest::addColumn<quint64>("count");
    QTest::addColumn<int>("silent_in_second"); // a device that skips the second pass; -1 none
    QTest::addColumn<QString>("stop_on"); // stop() from the scanner's thread at the first "found" or "lost"
    QTest::addColumn<int>("found");
    QTest::addColumn<bool>("interrupted");
    QTest::addColumn<int>("passes");
    QTest::addColumn<bool>("cut_short"); // the read phase ends at the count, without its second of silence

    QTest::newRow("stops as soon as the count is known") << 30 << quint64(10) << -1 << "" << 10 << false << 1 << true;
    QTest::newRow("a device silent in the second pass is lost at its end")
        << 3 << quint64(1000) << 1 << "lost" << 3 << true << 2 << false;
    QTest::newRow("stop() lets the pass finish") << 3 << quint64(1000) << -1 << "found" << 3 << true << 1 << false;
    QTest::newRow("a count past 32 bits is no small count")
        << 3 << ((quint64(1) << 32) + 2) << 0 << "lost" << 3 << true << 2 << false;
    QTest::newRow("a count of 0 runs no pass") << 3 << quint64(0) << -1 << "" << 0 << false << 0 << false;
}

void test_scanner::continuous_scan()
{
    QFETCH(int, devices);
    QFETCH(quint64, count);
    QFETCH(int, silent_in_second);
    QFETCH(QString, stop_on);
    QFETCH(int, found);
    QFETCH(bool, interrupted);
    QFETCH(int, passes);
    QFETCH(bool, cut_short);

    if (test_network::inside().isEmpty()) {
        BUILD_TEST_NETWORK(net);
        devsim_harness sim;
        QVERIFY2(net.start_devices(sim, devices), qPrintable(net.error()));
        const QString silent_mac = silent_in_second < 0 ? QString() : sim.state(silent_in_second).value("mac").toString();
        RUN_INSIDE(net, (QJsonObject { { "silent_mac", silent_mac }, { "control", sim.control_socket() } }));
        for (int i = 0; i < sim.count(); ++i)
            QCOMPARE(sim.state(i).value("discovery_requests").toInt(), passes);
        return;
    }

    const QJsonObject args = test_network::inside_arguments();
    devsim_harness sim;
    if (silent_in_second >= 0)
        QVERIFY2(sim.attach(args.value("control").toString()), qPrintable(sim.error()));
    scanner_inside in;
    if (stop_on == QLatin1String("found"))
        in.reports.after_found = [&in] { in.s.stop(); };
    else if (stop_on == QLatin1String("lost"))
        in.reports.after_lost = [&in] { in.s.stop(); };
    in.s.start_for_count(count);
    if (silent_in_second >= 0) {
        // Between the passes: the first one ends a second after its last reply.
        QTRY_COMPARE_WITH_TIMEOUT(in.reports.found().size(), devices, 10000);
        QVERIFY2(sim.set_faults(silent_in_second, { { "discovery_skip", 1 } }), qPrintable(sim.error()));
    }
    QVERIFY(in.s.wait(30000));

    QCOMPARE(in.reports.done(), QList<bool> { interrupted });
    const auto reported = in.reports.found();
    QCOMPARE(reported.size(), found);
    QStringList lost_macs;
    for (const auto& l : in.reports.lost())
        lost_macs << l.address.text();
    const QString silent_mac = args.value("silent_mac").toString();
    QCOMPARE(lost_macs, silent_mac.isEmpty() ? QStringList() : QStringList { silent_mac });
    QCOMPARE(in.s.devices().size(), found - lost_macs.size());
    if (found == 0)
        return;
    const qint64 tail = in.reports.done_ms() - reported.last().ms;
    QVERIFY2(cut_short ? tail < 500 : tail >= 990, qPrintable(QString::number(tail)));
    // Lost at the end of the second pass: two seconds of silence after the last reply of the first.
    for (const auto& l : in.reports.lost())
        QVERIFY2(l.ms - reported.last().ms >= 1990, qPrintable(QString::number(l.ms - reported.last().ms)));
}

QTEST_GUILESS_MAIN(test_scanner)
#include "test_scanner.moc"
