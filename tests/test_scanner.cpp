#include "diagnostics/blackbox.h"
#include "sdk/scanner.h"
#include "support/devsim_harness.h"
#include "support/test_network.h"
#include "tests/scan_reports.h"

#include <QUdpSocket>
#include <QtTest>

#include <memory>

// Scans over many devices, of every kind of reply they make, run through the core in test_core_scan.
class test_scanner : public QObject
{
    Q_OBJECT
private slots:
    void discovery_datagram();
    void repair_numbers_data();
    void repair_numbers();
    void parse_device_data();
    void parse_device();
    void single_pass_skips_what_it_cannot_use_data();
    void single_pass_skips_what_it_cannot_use();
    void count_of_zero_sends_nothing();
    void reply_socket_has_room_for_a_lan();
};

void test_scanner::discovery_datagram()
{
    QCOMPARE(scanner::discovery_datagram().toHex(' '),
        QByteArray("ff 00 00 00 00 00 00 00 00 00 00 00 00 00 fa 05 00 00 00 00"));
}

void test_scanner::repair_numbers_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<QString>("repaired");
    QTest::newRow("leading zeros, one space kept") << R"({"TCPPort": 034567,"UDPPort":0034568,"A":1})"
                                                   << R"({"TCPPort": 34567,"UDPPort":34568,"A":1})";
    QTest::newRow("a number without a comma behind stays") << R"({"TCPPort":034567})"
                                                           << R"({"TCPPort":034567})";
    QTest::newRow("two spaces are not one") << R"({"TCPPort":  034567,"A":1})"
                                            << R"({"TCPPort":  034567,"A":1})";
    // The search goes on behind the shortened number, not behind where the long one ended.
    QTest::newRow("many zeros, then the next number") << R"({"A":0000000001,"B":02,"C":3})"
                                                      << R"({"A":1,"B":2,"C":3})";
    QTest::newRow("zero alone") << R"({"A":000,"B":0,)"
                                << R"({"A":0,"B":0,)";
}

void test_scanner::repair_numbers()
{
    QFETCH(QString, text);
    QTEST(scanner::repair_numbers(text), "repaired");
}

void test_scanner::parse_device_data()
{
    QTest::addColumn<QString>("members"); // of "NetWork.NetCommon"; empty: not a reply at all
    QTest::addColumn<QString>("device"); // mac port user password hash text_values, or "refused"
    QTest::newRow("port, user and hashed password from the record")
        << R"("MAC":"00:12:41:aa:bb:cc","TCPPort":34600,"HttpPort":80,"Username":"operator","Password":"6QNMIQGe")"
        << "00:12:41:aa:bb:cc 34600 operator 6QNMIQGe 1 0";
    QTest::newRow("empty user is admin, empty password no hash")
        << R"("MAC":"00:12:41:aa:bb:cc","TCPPort":34567,"Username":"","Password":"")"
        << "00:12:41:aa:bb:cc 34567 admin  0 0";
    QTest::newRow("MAC digits at every third place, any separator")
        << R"("MAC":"0A-1B-2C-3D-4E-5F","TransferPlan":"Quality")"
        << "0a:1b:2c:3d:4e:5f 0 admin  0 1";
    QTest::newRow("MAC of 16 characters is all zeros") << R"("MAC":"00:12:41:aa:bb:c")"
                                                       << "00:00:00:00:00:00 0 admin  0 0";
    QTest::newRow("not a NetCommon reply") << ""
                                           << "refused";
}

void test_scanner::parse_device()
{
    QFETCH(QString, members);
    QTemporaryDir dir;
    auto box = std::make_shared<blackbox>(dir.filePath(QStringLiteral("scanner.log")));
    QVERIFY(box->open());
    scanner s;
    s.attach(box);
    device d;
    const QString text = members.isEmpty() ? R"({"Ret":100})" : R"({"NetWork.NetCommon":{)" + members + "}}";
    const bool parsed = s.parse_device(text, d);
    QTEST(parsed ? QStringLiteral("%1 %2 %3 %4 %5 %6")
                       .arg(d.address.text())
                       .arg(d.port)
                       .arg(d.user, d.password)
                       .arg(int(d.password_is_hash))
                       .arg(int(d.text_values))
                 : QStringLiteral("refused"),
        "device");
    QFile log(box->file_name());
    QVERIFY(log.open(QIODevice::ReadOnly));
    QCOMPARE(log.readAll().count("error, JSON assignment failed"), parsed ? 0 : 1);
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
    const QString too_short = QStringLiteral("Входящая датаграмма слишком мала");
    QTest::newRow("a reply shorter than 100 bytes") << with_body("{\"NetWork.NetCommon\":{}}") << 3 << 2 << too_short
                                                    << 2;
    QTest::newRow("a reply of exactly 100 bytes is read")
        << with_body(R"({"NetWork.NetCommon":{"MAC":"02:00:5e:10:00:64",               "TCPPort":34567}})") << 3 << 3
        << too_short << 1;
    const QJsonObject twin { { "mac", "02:00:5e:10:00:65" } };
    QTest::newRow("two replies of one MAC are one device")
        << QJsonArray { twin, twin } << 2 << 1 << "Новое устройство" << 1;
    QTest::newRow("a reply that isn't JSON") << with_body("{\"NetWork.NetCommon\":" + QString(120, 'a')) << 3 << 2
                                             << "JSON assignment failed" << 1;
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
        QJsonArray addresses;
        for (int i = 0; i < sim.count(); ++i)
            addresses.append(sim.address(i).toString());
        RUN_INSIDE(net, (QJsonObject { { "addresses", addresses } }));
        int sent = 0;
        for (int i = 0; i < sim.count(); ++i)
            sent += sim.state(i).value("discovery_answers").toInt();
        QTEST(sent, "answers");
        return;
    }

    QTemporaryDir dir;
    auto box = std::make_shared<blackbox>(dir.filePath(QStringLiteral("scanner.log")));
    QVERIFY(box->open());
    scanner s;
    s.attach(box);
    scan_reports reports(s);
    s.start_single_pass();
    QVERIFY(s.wait(20000));
    QCOMPARE(reports.done(), QList<bool> { false });
    QCOMPARE(reports.found().size(), found);
    QCOMPARE(s.devices().size(), found);
    // Each device carries the address its reply came from, and a state filled in.
    const QJsonArray addresses = test_network::inside_arguments().value("addresses").toArray();
    for (const auto& r : reports.found()) {
        QVERIFY2(addresses.contains(r.dev.ip), qPrintable(r.dev.ip));
        QCOMPARE(r.dev.state, 0);
    }
    QFile log(box->file_name());
    QVERIFY(log.open(QIODevice::ReadOnly));
    QTEST(QString::fromUtf8(log.readAll()).count(line), "times");
}

// The loop checks the count before the first pass: done at once, without a broadcast or its second of waiting.
void test_scanner::count_of_zero_sends_nothing()
{
    TEST_NETWORK_IN_ISOLATION();
    scanner s;
    scan_reports reports(s);
    QElapsedTimer timer;
    timer.start();
    s.start_for_count(0);
    QVERIFY(s.wait(5000));
    QVERIFY2(timer.elapsed() < 900, qPrintable(QString::number(timer.elapsed())));
    QCOMPARE(reports.done(), QList<bool> { false });
}

// Replies that find the socket's queue full are lost: at the system's default a pass over 1000 devices found 434.
void test_scanner::reply_socket_has_room_for_a_lan()
{
    TEST_NETWORK_IN_ISOLATION();
    QUdpSocket socket;
    scanner::open_reply_socket(socket);
    QCOMPARE(socket.state(), QAbstractSocket::BoundState);
    QCOMPARE(socket.localPort(), scanner::discovery_port);
    const auto setting = [](const char* name) {
        QFile file(QStringLiteral("/proc/sys/net/core/") + QLatin1String(name));
        return file.open(QIODevice::ReadOnly) ? file.readAll().trimmed().toInt() : -1;
    };
    const int most = setting("rmem_max");
    QVERIFY(most > 0);
    // Linux grants at most rmem_max, and reports twice what it grants.
    const int granted = socket.socketOption(QAbstractSocket::ReceiveBufferSizeSocketOption).toInt();
    QCOMPARE(granted, 2 * std::min(scanner::reply_buffer_bytes, most));
    QVERIFY2(granted > setting("rmem_default"), qPrintable(QString::number(granted)));
}

QTEST_GUILESS_MAIN(test_scanner)
#include "test_scanner.moc"
