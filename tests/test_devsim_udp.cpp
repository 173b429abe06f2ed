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

// Broadcasts are sent only from a network namespace of the test's own: each test runs again in one.

namespace
{

constexpr quint16 udp_port = 34569;

// The answers to one broadcast, by device index, bound the way the program binds.
QMap<int, netip_reply> answers(devsim_harness& sim, const QByteArray& sent)
{
    QUdpSocket socket;
    QMap<int, netip_reply> out;
    if (!socket.bind(QHostAddress::AnyIPv4, udp_port, QUdpSocket::ShareAddress | QUdpSocket::ReuseAddressHint)
        || socket.writeDatagram(sent, QHostAddress::Broadcast, udp_port) != sent.size())
        return { { -1, {} } };
    for (QDeadlineTimer deadline(5000); !deadline.hasExpired() && socket.waitForReadyRead(400);) {
        while (socket.hasPendingDatagrams()) {
            const QNetworkDatagram d = socket.receiveDatagram();
            netip_reply frame;
            for (int i = 0; i < sim.count(); ++i) {
                // Our own broadcast comes back too.
                if (sim.address(i) == QHostAddress(d.senderAddress().toIPv4Address()) && d.senderPort() == udp_port
                    && netip_reply::parse(d.data(), frame))
                    out.insert(out.contains(i) ? -2 : i, frame); // -2: a second answer
            }
        }
    }
    return out;
}

} // namespace

class test_devsim_udp : public QObject
{
    Q_OBJECT
private slots:
    void discovery_reply();
    void configuration_only_for_own_mac();
};

void test_devsim_udp::discovery_reply()
{
    TEST_NETWORK_IN_ISOLATION();
    devsim_harness sim;
    QVERIFY2(sim.start(2), qPrintable(sim.error()));
    QVERIFY(sim.set_faults(1, { { "leading_zeros", true } }));
    const QMap<int, netip_reply> got = answers(sim, netip_wire::header(1530, 0, 0, 0xFF, 0));
    QCOMPARE(got.keys(), (QList<int> { 0, 1 }));
    for (int i : got.keys()) {
        const netip_reply& frame = got.value(i);
        QCOMPARE(frame.id, quint16(1531));
        QVERIFY2(frame.payload.size() + 20 >= 100, qPrintable(QString::number(frame.payload.size())));
        QVERIFY(frame.payload.endsWith('\0'));
        // The program reads up to the first NUL; device 1 writes its ports with a leading zero.
        const QByteArray text = frame.payload.left(frame.payload.indexOf('\0'));
        QCOMPARE(text.contains("\"TCPPort\":0" + QByteArray::number(sim.port(i)) + ','), i == 1);
        const QString fixed = QString::fromUtf8(text).replace(QRegularExpression("\":0(\\d)"), "\":\\1");
        const QJsonObject net = QJsonDocument::fromJson(fixed.toUtf8()).object().value("NetWork.NetCommon").toObject();
        QCOMPARE(net.value("HostIP").toString(), QString::asprintf("0x%08X", qbswap(sim.address(i).toIPv4Address())));
        QCOMPARE(net.value("TCPPort").toInt(), int(sim.port(i)));
        QCOMPARE(net.value("MAC").toString(), sim.state(i).value("mac").toString());
    }
}

void test_devsim_udp::configuration_only_for_own_mac()
{
    TEST_NETWORK_IN_ISOLATION();
    devsim_harness sim;
    QVERIFY2(sim.start(2, { { "password", "admin" } }), qPrintable(sim.error()));
    const QJsonObject net0 = sim.state(0).value("net").toObject(), net1 = sim.state(1).value("net").toObject();
    const auto configure = [&sim, net1](const QString& mac) {
        QJsonObject record = net1;
        const QJsonObject changes { { "HostName", "gate" }, { "DvrMac", mac }, { "EncryptType", 1 },
            { "Username", "admin" }, { "Password", netip_wire::digest_admin } };
        for (auto it = changes.begin(); it != changes.end(); ++it)
            record.insert(it.key(), it.value());
        const QByteArray text = netip_wire::json(record) + QByteArray("\n", 2);
        return answers(sim, netip_wire::header(1532, quint32(text.size()), 0, 0xFF, 0) + text);
    };
    QCOMPARE(configure("02:00:00:00:00:99").keys(), QList<int>());
    QCOMPARE(sim.state(1).value("net").toObject(), net1);
    const QMap<int, netip_reply> got = configure(sim.state(1).value("mac").toString());
    QCOMPARE(got.keys(), QList<int> { 1 });
    QCOMPARE(got.first().id, quint16(1533));
    QVERIFY(got.first().payload.endsWith(QByteArray("}\n\0", 3)));
    QCOMPARE(got.first().ret(), 100);
    QCOMPARE(sim.state(1).value("net").toObject().value("HostName").toString(), QStringLiteral("gate"));
    QCOMPARE(sim.state(0).value("net").toObject(), net0);
    // Both heard both broadcasts.
    QCOMPARE(sim.requests_of(0, 1532).size(), 2);
}

QTEST_GUILESS_MAIN(test_devsim_udp)
#include "test_devsim_udp.moc"
