#include "tests/support/devsim_harness.h"
#include "tests/support/netip_wire.h"
#include "tests/support/test_network.h"

#include <QDeadlineTimer>
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
const QByteArray discovery = netip_wire::header(1530, 0, 0, 0xFF, 0);

struct datagram {
    QHostAddress from;
    netip_reply frame;
};

int index_of(devsim_harness& sim, const QHostAddress& address)
{
    for (int i = 0; i < sim.count(); ++i) {
        if (sim.address(i) == address)
            return i;
    }
    return -1;
}

// The program's side of the exchange, bound the way the program binds: the answers
// of the devices to one broadcast, until 400 ms pass without one.
QList<datagram> answers(devsim_harness& sim, const QByteArray& sent)
{
    QUdpSocket socket;
    if (!socket.bind(QHostAddress::AnyIPv4, udp_port, QUdpSocket::ShareAddress | QUdpSocket::ReuseAddressHint)
        || socket.writeDatagram(sent, QHostAddress::Broadcast, udp_port) != sent.size())
        return { datagram {} }; // no device's
    QList<datagram> out;
    QDeadlineTimer deadline(5000);
    while (!deadline.hasExpired() && socket.waitForReadyRead(400)) {
        while (socket.hasPendingDatagrams()) {
            const QNetworkDatagram d = socket.receiveDatagram();
            datagram got { QHostAddress(d.senderAddress().toIPv4Address()), {} };
            // Our own broadcast comes back too.
            if (index_of(sim, got.from) >= 0 && d.senderPort() == udp_port && netip_reply::parse(d.data(), got.frame))
                out << got;
        }
    }
    return out;
}

QString reversed_hex(const QHostAddress& a)
{
    return QString::asprintf("0x%08X", qbswap(a.toIPv4Address()));
}

bool can_log_in(const QHostAddress& address, quint16 port)
{
    netip_wire w;
    return w.open(address, port) && w.login(netip_wire::digest_admin) != 0;
}

} // namespace

class test_devsim_udp : public QObject
{
    Q_OBJECT
private slots:
    void discovery_answer_carries_the_record();
    void who_answers_data();
    void who_answers();
    void broadcast_config_data();
    void broadcast_config();
    void network_leaves_the_machine_alone();
};

void test_devsim_udp::discovery_answer_carries_the_record()
{
    TEST_NETWORK_IN_ISOLATION();
    devsim_harness sim;
    const QJsonArray devices { QJsonObject {}, QJsonObject { { "password", "admin" }, { "serial", "ABC123" } },
        QJsonObject { { "port", 0 }, { "faults", QJsonObject { { "leading_zeros", true } } } } };
    QVERIFY2(sim.start(3, { { "user", "admin" } }, devices), qPrintable(sim.error()));
    const QList<datagram> got = answers(sim, discovery);
    QCOMPARE(got.size(), 3);
    QSet<int> from;
    for (const datagram& d : got) {
        const int i = index_of(sim, d.from);
        from.insert(i);
        const QJsonObject state = sim.state(i);
        QCOMPARE(d.frame.id, quint16(1531));
        QVERIFY2(d.frame.payload.size() + 20 >= 100, qPrintable(QString::number(d.frame.payload.size())));
        QVERIFY(d.frame.payload.endsWith('\0'));
        // The program reads up to the first NUL; device 2 writes its ports with a leading zero.
        QByteArray text = d.frame.payload;
        text.truncate(text.indexOf('\0'));
        const QByteArray port = QByteArray::number(sim.port(i));
        QCOMPARE(text.contains("\"TCPPort\":0" + port + ','), i == 2);
        const QString fixed = QString::fromUtf8(text).replace(QRegularExpression("\":0(\\d)"), "\":\\1");
        const QJsonObject net = QJsonDocument::fromJson(fixed.toUtf8()).object().value("NetWork.NetCommon").toObject();
        QCOMPARE(net.value("HostIP").toString(), reversed_hex(d.from));
        QCOMPARE(net.value("TCPPort").toInt(), int(sim.port(i)));
        QCOMPARE(net.value("MAC").toString(), state.value("mac").toString());
        QCOMPARE(net.value("SN").toString(), state.value("serial").toString());
        QCOMPARE(net.value("Username").toString(), QStringLiteral("admin"));
        QCOMPARE(net.value("Password").toString(), i == 1 ? netip_wire::digest_admin : netip_wire::digest_empty);
        QCOMPARE(state.value("discovery_answers").toInt(), 1);
    }
    QCOMPARE(from, (QSet<int> { 0, 1, 2 }));
    const QJsonObject logged = sim.requests_of(1, 1530).at(0).toObject();
    QVERIFY(logged.value("udp").toBool());
    QVERIFY(logged.value("peer").toString().endsWith(":34569"));
}

void test_devsim_udp::who_answers_data()
{
    QTest::addColumn<QJsonObject>("faults"); // of device 0
    QTest::addColumn<QByteArray>("sent");
    QTest::addColumn<QStringList>("passes"); // the devices that answer each pass
    const auto faults = [](const char* name, const QJsonValue& v) { return QJsonObject { { name, v } }; };
    QTest::newRow("silent to discovery") << faults("silent_at", QJsonArray { 1530 }) << discovery
                                         << QStringList { "1", "1" };
    QTest::newRow("silent for the next two passes")
        << faults("discovery_skip", 2) << discovery << QStringList { "1", "1", "0 1" };
    QTest::newRow("another device's answer")
        << QJsonObject {} << netip_wire::header(1531, 2, 0, 0xFF, 0) + "{}" << QStringList { "" };
    QTest::newRow("shorter than a header") << QJsonObject {} << QByteArray("\xff\x00\x00", 3) << QStringList { "" };
    QTest::newRow("head byte not 0xff") << QJsonObject {} << netip_wire::header(1530, 0, 0, 0xFE, 0)
                                        << QStringList { "" };
    QTest::newRow("length beyond the datagram")
        << QJsonObject {} << netip_wire::header(1530, 100, 0, 0xFF, 0) << QStringList { "" };
    QTest::newRow("configuration that isn't JSON")
        << QJsonObject {} << netip_wire::header(1532, 3, 0, 0xFF, 0) + "{{{" << QStringList { "" };
}

void test_devsim_udp::who_answers()
{
    TEST_NETWORK_IN_ISOLATION();
    QFETCH(QJsonObject, faults);
    QFETCH(QByteArray, sent);
    QFETCH(QStringList, passes);
    devsim_harness sim;
    QVERIFY2(sim.start(2, {}, { QJsonObject { { "faults", faults } } }), qPrintable(sim.error()));
    for (const QString& expected : passes) {
        QStringList from;
        for (const datagram& d : answers(sim, sent))
            from << QString::number(index_of(sim, d.from));
        from.sort();
        QCOMPARE(from.join(' '), expected);
    }
    // Every device heard every discovery, answered or not; none was upset by the others.
    QCOMPARE(sim.state(0).value("discovery_requests").toInt(), sent == discovery ? passes.size() : 0);
    if (faults.isEmpty())
        QCOMPARE(answers(sim, discovery).size(), 2);
}

void test_devsim_udp::broadcast_config_data()
{
    QTest::addColumn<QString>("mac"); // "own", "OWN" in upper case, or another
    QTest::addColumn<QString>("user");
    QTest::addColumn<QString>("digest");
    QTest::addColumn<QJsonObject>("faults");
    QTest::addColumn<int>("ret"); // -1: no answer
    const QString admin = netip_wire::digest_admin;
    QTest::newRow("right credentials: applied, moved") << "own"
                                                       << "admin" << admin << QJsonObject {} << 100;
    QTest::newRow("MAC in upper case selects too") << "OWN"
                                                   << "admin" << admin << QJsonObject {} << 100;
    QTest::newRow("wrong password digest: 203, unchanged")
        << "own"
        << "admin" << QString(netip_wire::digest_empty) << QJsonObject {} << 203;
    QTest::newRow("wrong user: 203, unchanged") << "own"
                                                << "root" << admin << QJsonObject {} << 203;
    QTest::newRow("another MAC: nobody answers") << "02:00:00:00:00:99"
                                                 << "admin" << admin << QJsonObject {} << -1;
    QTest::newRow("silent at 1532: unanswered, unchanged")
        << "own"
        << "admin" << admin << QJsonObject { { "silent_at", QJsonArray { 1532 } } } << -1;
}

void test_devsim_udp::broadcast_config()
{
    TEST_NETWORK_IN_ISOLATION();
    QFETCH(QString, mac);
    QFETCH(QString, user);
    QFETCH(QString, digest);
    QFETCH(QJsonObject, faults);
    QFETCH(int, ret);
    devsim_harness sim;
    const QJsonObject device { { "password", "admin" }, { "net_apply_ms", 100 } };
    QVERIFY2(sim.start(3, device, { QJsonObject {}, QJsonObject { { "faults", faults } } }), qPrintable(sim.error()));
    const QHostAddress old_address = sim.address(1), new_address(old_address.toIPv4Address() + 100);
    const quint16 old_port = sim.port(1), new_port = quint16(old_port + 7);
    const QJsonObject old_net = sim.state(1).value("net").toObject();
    const QString own_mac = sim.state(1).value("mac").toString();

    // The record as the program sends it: the device's own with the changes, and the credentials.
    QJsonObject record = old_net;
    const QJsonObject changes { { "HostIP", reversed_hex(new_address) }, { "TCPPort", new_port },
        { "HostName", "gate" },
        { "DvrMac",
            mac == "own"       ? own_mac
                : mac == "OWN" ? own_mac.toUpper()
                               : mac },
        { "EncryptType", 1 }, { "Username", user }, { "Password", digest } };
    for (auto it = changes.begin(); it != changes.end(); ++it)
        record.insert(it.key(), it.value());
    const QByteArray text = netip_wire::json(record) + QByteArray("\n", 2);
    const QList<datagram> got = answers(sim, netip_wire::header(1532, quint32(text.size()), 0, 0xFF, 0) + text);
    QCOMPARE(got.size(), ret < 0 ? 0 : 1);
    if (ret >= 0) {
        QCOMPARE(got.at(0).from, old_address);
        QCOMPARE(got.at(0).frame.id, quint16(1533));
        QVERIFY(got.at(0).frame.payload.endsWith(QByteArray("}\n\0", 3)));
        QCOMPARE(got.at(0).frame.ret(), ret);
    }
    const QJsonObject net = sim.state(1).value("net").toObject();
    if (ret == 100) {
        QCOMPARE(net.value("HostIP").toString(), reversed_hex(new_address));
        QCOMPARE(net.value("HostName").toString(), QStringLiteral("gate"));
        QTRY_VERIFY_WITH_TIMEOUT(can_log_in(new_address, new_port), 3000);
        QVERIFY(!can_log_in(old_address, old_port));
    } else {
        QCOMPARE(net, old_net);
        QVERIFY(can_log_in(old_address, old_port));
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
    const auto ip = [](const QStringList& args) {
        QProcess p;
        p.start("ip", args);
        p.waitForFinished(5000);
        return QString::fromUtf8(p.readAllStandardOutput());
    };
    const auto snapshot = [&ip] {
        return ip({ "-o", "link" }) + ip({ "-o", "addr" }) + ip({ "route", "show", "table", "all" });
    };
    const QString before = snapshot();
    {
        test_network net;
        QVERIFY2(net.build(2), qPrintable(net.error()));
        const QString during = ip({ "netns", "list" });
        for (const QString& ns : { net.program_namespace(), net.device_namespace(0), net.device_namespace(1) })
            QVERIFY2(during.contains(ns), qPrintable(during));
        QCOMPARE(snapshot(), before);
    }
    QCOMPARE(snapshot(), before);
    QVERIFY(!ip({ "netns", "list" }).contains(QStringLiteral("orvt%1x").arg(QCoreApplication::applicationPid())));
}

QTEST_GUILESS_MAIN(test_devsim_udp)
#include "test_devsim_udp.moc"
