#include "tests/support/devsim_harness.h"
#include "tests/support/netip_wire.h"
#include "tests/support/test_network.h"

#include <QDeadlineTimer>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QNetworkDatagram>
#include <QRegularExpression>
#include <QUdpSocket>
#include <QtEndian>
#include <QtTest>

// Broadcasts are sent only from a network namespace of the test's own: each test
// below runs its row again in one.

namespace
{

constexpr quint16 udp_port = 34569;

struct datagram {
    QHostAddress from;
    quint16 port = 0;
    QByteArray bytes;
    netip_reply frame;
};

// The program's side of the UDP exchange, bound the way the program binds.
class udp_peer
{
public:
    bool bind(const QHostAddress& address = QHostAddress::AnyIPv4)
    {
        return socket.bind(address, udp_port, QUdpSocket::ShareAddress | QUdpSocket::ReuseAddressHint);
    }
    bool broadcast(const QByteArray& bytes)
    {
        return socket.writeDatagram(bytes, QHostAddress::Broadcast, udp_port) == bytes.size();
    }
    // Frames with this id that arrive until `quiet_ms` pass without one.
    QList<datagram> collect(quint16 id, int quiet_ms = 400, int max_ms = 5000)
    {
        QList<datagram> out;
        QDeadlineTimer deadline(max_ms);
        QDeadlineTimer quiet(quiet_ms);
        while (!quiet.hasExpired() && !deadline.hasExpired()) {
            if (!socket.hasPendingDatagrams() && !socket.waitForReadyRead(int(qMax<qint64>(1, quiet.remainingTime()))))
                continue;
            while (socket.hasPendingDatagrams()) {
                const QNetworkDatagram d = socket.receiveDatagram();
                datagram got { QHostAddress(d.senderAddress().toIPv4Address()), quint16(d.senderPort()), d.data(), {} };
                // Our own broadcast comes back too; only the answers count.
                if (netip_reply::parse(got.bytes, got.frame) && got.frame.id == id) {
                    out << got;
                    quiet.setRemainingTime(quiet_ms);
                }
            }
        }
        return out;
    }

    QUdpSocket socket;
};

QByteArray discovery_request()
{
    return netip_wire::header(1530, 0, 0, 0xFF, 0);
}

QByteArray config_request(const QJsonObject& record, const QString& mac, const QString& user, const QString& digest)
{
    QJsonObject body = record;
    body.insert("DvrMac", mac);
    body.insert("EncryptType", 1);
    body.insert("Username", user);
    body.insert("Password", digest);
    QByteArray text = netip_wire::json(body);
    text.append("\n", 2);
    return netip_wire::header(1532, quint32(text.size()), 0, 0xFF, 0) + text;
}

QString reversed_hex(const QHostAddress& a)
{
    return QString::asprintf("0x%08X", qbswap(a.toIPv4Address()));
}

// The reply text as the program reads it: from byte 20 to the first NUL, with the
// numbers some devices write with leading zeros repaired.
QJsonObject net_common_of(const QByteArray& datagram, QByteArray* raw = nullptr)
{
    QByteArray bytes = datagram.mid(20);
    bytes.truncate(bytes.indexOf('\0'));
    if (raw)
        *raw = bytes;
    static const QRegularExpression number(QStringLiteral(":\\s?(\\d+),"));
    const QString text = QString::fromUtf8(bytes);
    QString fixed;
    int at = 0;
    QRegularExpressionMatchIterator it = number.globalMatch(text);
    while (it.hasNext()) {
        const QRegularExpressionMatch m = it.next();
        fixed += text.mid(at, m.capturedStart(1) - at) + QString::number(m.captured(1).toLongLong());
        at = m.capturedEnd(1);
    }
    fixed += text.mid(at);
    return QJsonDocument::fromJson(fixed.toUtf8()).object().value("NetWork.NetCommon").toObject();
}

QSet<int> senders(const QList<datagram>& answers, devsim_harness& sim)
{
    QSet<int> out;
    for (const datagram& d : answers) {
        for (int i = 0; i < sim.count(); ++i) {
            if (d.from == sim.address(i) && d.port == udp_port)
                out.insert(i);
        }
    }
    return out;
}

QSet<int> indices(const QString& list)
{
    QSet<int> out;
    for (const QString& n : list.split(QLatin1Char(','), Qt::SkipEmptyParts))
        out.insert(n.toInt());
    return out;
}

bool can_log_in(const QHostAddress& address, quint16 port, const char* digest = netip_wire::digest_empty)
{
    netip_wire w;
    return w.open(address, port) && w.login(QLatin1String(digest)) != 0;
}

} // namespace

class test_devsim_udp : public QObject
{
    Q_OBJECT
private slots:
    void discovery_answer_carries_the_record();
    void discovery_faults_data();
    void discovery_faults();
    void not_answered_data();
    void not_answered();
    void broadcast_config_data();
    void broadcast_config();
    void network_leaves_the_machine_alone();
    void discovery_and_config_across_the_bridge();
};

void test_devsim_udp::discovery_answer_carries_the_record()
{
    TEST_NETWORK_IN_ISOLATION();
    devsim_harness sim;
    const QJsonArray devices { QJsonObject {}, QJsonObject { { "password", "admin" }, { "serial", "ABC123" } },
        QJsonObject { { "port", 0 }, { "faults", QJsonObject { { "leading_zeros", true } } } } };
    QVERIFY2(sim.start(3, { { "user", "admin" } }, devices), qPrintable(sim.error()));
    udp_peer peer;
    QVERIFY(peer.bind());
    QVERIFY(peer.broadcast(discovery_request()));
    const QList<datagram> answers = peer.collect(1531);

    QCOMPARE(answers.size(), 3);
    QCOMPARE(senders(answers, sim), (QSet<int> { 0, 1, 2 }));
    for (const datagram& d : answers) {
        const int i = *senders({ d }, sim).begin();
        const QJsonObject state = sim.state(i);
        QVERIFY2(d.bytes.size() >= 100, qPrintable(QString::number(d.bytes.size())));
        QVERIFY(d.frame.payload.endsWith('\0'));
        QByteArray raw;
        const QJsonObject net = net_common_of(d.bytes, &raw);
        // Device 2 writes its ports with a leading zero, which only the repair makes JSON.
        QCOMPARE(raw.contains(QStringLiteral("\"TCPPort\":0%1,").arg(sim.port(i)).toUtf8()), i == 2);
        QCOMPARE(QJsonDocument::fromJson(raw).isObject(), i != 2);
        QCOMPARE(net.value("HostIP").toString(), reversed_hex(d.from));
        QCOMPARE(net.value("TCPPort").toInt(), int(sim.port(i)));
        QCOMPARE(net.value("MAC").toString(), state.value("mac").toString());
        QCOMPARE(net.value("SN").toString(), state.value("serial").toString());
        QCOMPARE(net.value("Username").toString(), QStringLiteral("admin"));
        QCOMPARE(net.value("Password").toString(),
            QLatin1String(i == 1 ? netip_wire::digest_admin : netip_wire::digest_empty));
        for (const char* key : { "Submask", "GateWay" })
            QVERIFY2(QRegularExpression("^0x[0-9A-F]{8}$").match(net.value(key).toString()).hasMatch(), key);
        QCOMPARE(state.value("discovery_answers").toInt(), 1);
    }
    // Each device logged the request with its sender.
    const QJsonObject logged = sim.requests_of(1, 1530).at(0).toObject();
    QVERIFY(logged.value("udp").toBool());
    QVERIFY(logged.value("peer").toString().endsWith(QStringLiteral(":34569")));
}

void test_devsim_udp::discovery_faults_data()
{
    QTest::addColumn<QJsonArray>("devices");
    QTest::addColumn<QStringList>("passes"); // the devices that answer each pass

    const auto faults = [](const QJsonObject& f) { return QJsonObject { { "faults", f } }; };
    QTest::newRow("silent to discovery altogether")
        << QJsonArray { QJsonObject {}, faults({ { "silent_at", QJsonArray { 1530 } } }) } << QStringList { "0", "0" };
    QTest::newRow("silent for the next two passes")
        << QJsonArray { faults({ { "discovery_skip", 2 } }), QJsonObject {} } << QStringList { "1", "1", "0,1" };
    QTest::newRow("a slow answer still comes")
        << QJsonArray { faults({ { "delay_at", QJsonObject { { "1530", 150 } } } }), QJsonObject {} }
        << QStringList { "0,1" };
    QTest::newRow("a silent configuration fault leaves discovery alone")
        << QJsonArray { faults({ { "silent_at", QJsonArray { 1532 } } }), QJsonObject {} } << QStringList { "0,1" };
}

void test_devsim_udp::discovery_faults()
{
    TEST_NETWORK_IN_ISOLATION();
    QFETCH(QJsonArray, devices);
    QFETCH(QStringList, passes);

    devsim_harness sim;
    QVERIFY2(sim.start(devices.size(), {}, devices), qPrintable(sim.error()));
    udp_peer peer;
    QVERIFY(peer.bind());
    for (int pass = 0; pass < passes.size(); ++pass) {
        QVERIFY(peer.broadcast(discovery_request()));
        QCOMPARE(senders(peer.collect(1531), sim), indices(passes.at(pass)));
    }
    // Every device heard every pass, answered or not.
    QCOMPARE(sim.state(0).value("discovery_requests").toInt(), passes.size());
}

void test_devsim_udp::not_answered_data()
{
    QTest::addColumn<QByteArray>("bytes");

    QTest::newRow("another device's answer") << netip_wire::header(1531, 2, 0, 0xFF, 0) + "{}";
    QTest::newRow("a configuration answer") << netip_wire::header(1533, 2, 0, 0xFF, 0) + "{}";
    QTest::newRow("shorter than a header") << QByteArray("\xff\x00\x00", 3);
    QTest::newRow("head byte not 0xff") << netip_wire::header(1530, 0, 0, 0xFE, 0);
    QTest::newRow("length beyond the datagram") << netip_wire::header(1530, 100, 0, 0xFF, 0);
    QTest::newRow("configuration that isn't JSON") << netip_wire::header(1532, 3, 0, 0xFF, 0) + "{{{";
}

void test_devsim_udp::not_answered()
{
    TEST_NETWORK_IN_ISOLATION();
    QFETCH(QByteArray, bytes);

    devsim_harness sim;
    QVERIFY2(sim.start(2), qPrintable(sim.error()));
    udp_peer peer;
    QVERIFY(peer.bind());
    QVERIFY(peer.broadcast(bytes));
    // The datagram itself comes back to the peer; no device may add to it.
    QVERIFY(senders(peer.collect(1531, 300), sim).isEmpty());
    QVERIFY(senders(peer.collect(1533, 1), sim).isEmpty());
    // Still there for a good request.
    QVERIFY(peer.broadcast(discovery_request()));
    QCOMPARE(peer.collect(1531).size(), 2);
    QVERIFY(sim.running());
}

void test_devsim_udp::broadcast_config_data()
{
    QTest::addColumn<int>("target"); // whose MAC is named; -1 nobody's
    QTest::addColumn<bool>("upper_case_mac");
    QTest::addColumn<QString>("user");
    QTest::addColumn<QString>("digest");
    QTest::addColumn<int>("address_offset"); // new HostIP: the device's own plus this
    QTest::addColumn<QJsonObject>("faults");
    QTest::addColumn<int>("ret"); // -1: no answer
    QTest::addColumn<bool>("moves");

    const QString admin = QLatin1String(netip_wire::digest_admin);
    const QString empty = QLatin1String(netip_wire::digest_empty);
    QTest::newRow("right credentials: applied, moved")
        << 1 << false << "admin" << admin << 100 << QJsonObject {} << 100 << true;
    QTest::newRow("MAC in upper case selects too")
        << 1 << true << "admin" << admin << 100 << QJsonObject {} << 100 << true;
    QTest::newRow("wrong password digest: 203, unchanged")
        << 1 << false << "admin" << empty << 100 << QJsonObject {} << 203 << false;
    QTest::newRow("wrong user: 203, unchanged")
        << 1 << false << "root" << admin << 100 << QJsonObject {} << 203 << false;
    QTest::newRow("unknown MAC: nobody answers")
        << -1 << false << "admin" << admin << 100 << QJsonObject {} << -1 << false;
    QTest::newRow("silent at 1532: unanswered, unchanged")
        << 1 << false << "admin" << admin << 100 << QJsonObject { { "silent_at", QJsonArray { 1532 } } } << -1 << false;
    QTest::newRow("wrong Ret on the answer")
        << 1 << false << "admin" << admin << 100 << QJsonObject { { "wrong_ret", QJsonObject { { "1532", 101 } } } }
        << 101 << true;
}

void test_devsim_udp::broadcast_config()
{
    TEST_NETWORK_IN_ISOLATION();
    QFETCH(int, target);
    QFETCH(bool, upper_case_mac);
    QFETCH(QString, user);
    QFETCH(QString, digest);
    QFETCH(int, address_offset);
    QFETCH(QJsonObject, faults);
    QFETCH(int, ret);
    QFETCH(bool, moves);

    devsim_harness sim;
    const QJsonObject device { { "password", "admin" }, { "net_apply_ms", 100 } };
    QVERIFY2(sim.start(3, device, { QJsonObject {}, QJsonObject { { "faults", faults } } }), qPrintable(sim.error()));
    const int who = target < 0 ? 1 : target;
    const QHostAddress old_address = sim.address(who);
    const quint16 old_port = sim.port(who);
    const QJsonObject old_net = sim.state(who).value("net").toObject();
    const QHostAddress new_address(old_address.toIPv4Address() + quint32(address_offset));
    const quint16 new_port = quint16(old_port + 7);
    QString mac = target < 0 ? QStringLiteral("02:00:00:00:00:99") : sim.state(who).value("mac").toString();
    if (upper_case_mac)
        mac = mac.toUpper();

    // The record as the program sends it: the device's own, with the changes.
    QJsonObject record = old_net;
    record.insert("HostIP", reversed_hex(new_address));
    record.insert("TCPPort", new_port);
    record.insert("HostName", "gate");
    udp_peer peer;
    QVERIFY(peer.bind());
    QVERIFY(peer.broadcast(config_request(record, mac, user, digest)));
    const QList<datagram> answers = peer.collect(1533);

    QCOMPARE(answers.size(), ret < 0 ? 0 : 1);
    if (ret >= 0) {
        QCOMPARE(answers.at(0).from, old_address);
        QVERIFY(answers.at(0).frame.payload.endsWith(QByteArray("}\n\0", 3)));
        QCOMPARE(answers.at(0).frame.ret(), ret);
    }
    const QJsonObject net = sim.state(who).value("net").toObject();
    QCOMPARE(net.value("HostIP").toString(), moves ? reversed_hex(new_address) : old_net.value("HostIP").toString());
    QCOMPARE(net.value("HostName").toString(), moves ? QStringLiteral("gate") : old_net.value("HostName").toString());
    if (moves) {
        QTRY_VERIFY_WITH_TIMEOUT(can_log_in(new_address, new_port, netip_wire::digest_admin), 3000);
        QVERIFY(!can_log_in(old_address, old_port, netip_wire::digest_admin));
    } else {
        QCOMPARE(net, old_net);
        QVERIFY(can_log_in(old_address, old_port, netip_wire::digest_admin));
    }
    // Every device heard the broadcast; the others didn't change.
    for (int i = 0; i < 3; ++i)
        QCOMPARE(sim.requests_of(i, 1532).size(), 1);
    QCOMPARE(sim.state(2).value("broadcast_configs").toInt(), 0);
}

void test_devsim_udp::network_leaves_the_machine_alone()
{
    QString why;
    if (!test_network::available(&why))
        QSKIP(qPrintable(why));
    const auto snapshot = [] {
        QString all;
        for (const QStringList& args : { QStringList { "-o", "link" }, QStringList { "-o", "addr" },
                 QStringList { "route", "show", "table", "all" } }) {
            QProcess p;
            p.start("ip", args);
            p.waitForFinished(5000);
            all += QString::fromUtf8(p.readAllStandardOutput());
        }
        return all;
    };
    const auto namespaces = [] {
        QProcess p;
        p.start("ip", { "netns", "list" });
        p.waitForFinished(5000);
        return QString::fromUtf8(p.readAllStandardOutput());
    };

    // A namespace left by a test process that no longer runs is cleaned away.
    qint64 dead = 0;
    for (qint64 pid = 4190000; pid < 4190100 && dead == 0; ++pid) {
        if (!QFileInfo::exists(QStringLiteral("/proc/%1").arg(pid)))
            dead = pid;
    }
    QVERIFY(dead != 0);
    const QString stale = QStringLiteral("orvt%1x0br").arg(dead);
    QProcess add;
    add.start("ip", { "netns", "add", stale });
    QVERIFY(add.waitForFinished(5000) && add.exitCode() == 0);

    const QString before = snapshot();
    {
        test_network net;
        QVERIFY2(net.build(2), qPrintable(net.error()));
        QVERIFY(!namespaces().contains(stale));
        const QString during = namespaces();
        for (const QString& ns : { net.program_namespace(), net.device_namespace(0), net.device_namespace(1) })
            QVERIFY2(during.contains(ns), qPrintable(during));
        QCOMPARE(snapshot(), before);

        // The program's side reaches both device namespaces across the bridge.
        QString output;
        QVERIFY2(net.run(net.program_namespace(), "ip", { "-o", "addr", "show", "dev", "eth0" }, &output),
            qPrintable(net.error()));
        QVERIFY2(output.contains(test_network::program_address().toString() + "/16"), qPrintable(output));
        QVERIFY2(net.run(net.program_namespace(), "ip", { "route", "get", "255.255.255.255" }, &output),
            qPrintable(net.error()));
        QVERIFY2(output.contains("dev eth0"), qPrintable(output));
        QVERIFY(!net.run(net.program_namespace(), "false", {}));
    }
    QCOMPARE(snapshot(), before);
    QVERIFY(!namespaces().contains(QStringLiteral("orvt%1x").arg(QCoreApplication::applicationPid())));
}

void test_devsim_udp::discovery_and_config_across_the_bridge()
{
    const QString inside = test_network::inside();
    if (inside.isEmpty()) {
        QString why;
        if (!test_network::available(&why))
            QSKIP(qPrintable(why));
        test_network net;
        QVERIFY2(net.build(), qPrintable(net.error()));
        devsim_harness sim;
        QVERIFY2(net.start_devices(sim, 3, { { "net_apply_ms", 100 } }), qPrintable(net.error()));
        const QHostAddress move_to = test_network::device_address(0, 100);
        const QHostAddress foreign(QStringLiteral("10.213.200.1")); // on no interface
        QVERIFY2(net.add_addresses(net.device_namespace(), { move_to }), qPrintable(net.error()));

        QJsonArray devices;
        for (int i = 0; i < 3; ++i) {
            QCOMPARE(sim.address(i), test_network::device_address(0, i));
            devices.append(QJsonObject { { "address", sim.address(i).toString() }, { "port", sim.port(i) },
                { "mac", sim.state(i).value("mac").toString() }, { "net", sim.state(i).value("net") } });
        }
        const QJsonObject args { { "devices", devices }, { "move_to", move_to.toString() },
            { "foreign", foreign.toString() } };
        QString output;
        QVERIFY2(
            net.run_self(net.program_namespace(), QTest::currentTestFunction(), {}, args, &output), qPrintable(output));

        // Device 1 moved to the address its namespace carries; device 2 was told to
        // take one that no interface has, and stayed.
        QCOMPARE(sim.address(1), move_to);
        QCOMPARE(sim.address(2), test_network::device_address(0, 2));
        QCOMPARE(sim.state(2).value("net").toObject().value("HostIP").toString(), reversed_hex(foreign));
        const QJsonObject logged = sim.requests_of(0, 1530).at(0).toObject();
        QCOMPARE(logged.value("peer").toString(), test_network::program_address().toString() + ":34569");
        return;
    }

    // Inside the program's namespace.
    const QJsonObject args = test_network::inside_arguments();
    const QJsonArray devices = args.value("devices").toArray();
    QCOMPARE(devices.size(), 3);
    udp_peer peer;
    QVERIFY(peer.bind());
    QVERIFY(peer.broadcast(discovery_request()));
    const QList<datagram> answers = peer.collect(1531);
    QCOMPARE(answers.size(), 3);
    QSet<QString> from;
    for (const datagram& d : answers) {
        from.insert(d.from.toString());
        QCOMPARE(net_common_of(d.bytes).value("HostIP").toString(), reversed_hex(d.from));
    }
    for (const QJsonValue& v : devices)
        QVERIFY2(from.contains(v.toObject().value("address").toString()),
            qPrintable(v.toObject().value("address").toString()));

    const auto configure = [&peer](const QJsonObject& device, const QHostAddress& to, int port) {
        QJsonObject record = device.value("net").toObject();
        record.insert("HostIP", reversed_hex(to));
        record.insert("TCPPort", port);
        peer.broadcast(config_request(record, device.value("mac").toString(), "admin", netip_wire::digest_empty));
        return peer.collect(1533);
    };
    const QJsonObject one = devices.at(1).toObject();
    const QList<datagram> moved = configure(one, QHostAddress(args.value("move_to").toString()), 34600);
    QCOMPARE(moved.size(), 1);
    QCOMPARE(moved.at(0).from.toString(), one.value("address").toString());
    QCOMPARE(moved.at(0).frame.ret(), 100);
    QTRY_VERIFY_WITH_TIMEOUT(can_log_in(QHostAddress(args.value("move_to").toString()), 34600), 3000);

    const QJsonObject two = devices.at(2).toObject();
    const QList<datagram> stayed
        = configure(two, QHostAddress(args.value("foreign").toString()), two.value("port").toInt());
    QCOMPARE(stayed.size(), 1);
    QCOMPARE(stayed.at(0).frame.ret(), 100);
    QTest::qWait(300); // past net_apply_ms: it would have moved by now
    QVERIFY(can_log_in(QHostAddress(two.value("address").toString()), quint16(two.value("port").toInt())));
}

QTEST_GUILESS_MAIN(test_devsim_udp)
#include "test_devsim_udp.moc"
