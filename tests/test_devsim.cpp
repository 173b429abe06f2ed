// The device simulator on its own, from the wire: logins and answers as real devices give them, and its UDP side
// (run again in a network namespace of the test's own). Faults, uploads and configuration by broadcast are pinned
// by the client's tests that use them; here only what those can't see.
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

class test_devsim : public QObject
{
    Q_OBJECT
private slots:
    void answers_as_real_devices_data();
    void answers_as_real_devices();
    void delay_and_record();
    void discovery_reply();
};

void test_devsim::answers_as_real_devices_data()
{
    QTest::addColumn<QJsonObject>("device");
    QTest::addColumn<QString>("password"); // the digest the login sends
    QTest::addColumn<int>("id"); // 1000: the login itself
    QTest::addColumn<QJsonObject>("body");
    QTest::addColumn<int>("ret");
    QTest::addColumn<QString>("member"); // a "/" reaches into an object; empty: none checked
    QTest::addColumn<QJsonValue>("value");
    QTest::addColumn<QString>("absent");
    const QJsonObject nvr { { "device_type", "NVR" }, { "hardware", "HI3516EV300" }, { "mac", "02:aa:bb:cc:dd:ee" } };
    const QJsonObject admin { { "password", "admin" } };
    const QJsonObject locked { { "faults", QJsonObject { { "lock_user", true } } } };
    const char* empty = netip_wire::digest_empty;
    const auto add
        = [](const char* name, const QJsonObject& device, const char* password, int id, const QJsonObject& body,
              int ret, const char* member = "", const QJsonValue& value = {}, const char* absent = "") {
              QTest::newRow(name) << device << QString(password) << id << body << ret << QString(member) << value
                                  << QString(absent);
          };
    add("password admin, its digest", admin, netip_wire::digest_admin, 1000, {}, 100);
    add("another password's digest: 203", admin, empty, 1000, {}, 203);
    add("the plain password, not its digest: 203", admin, "admin", 1000, {}, 203);
    add("locked user: 205", locked, empty, 1000, {}, 205);
    add("login names the type with a trailing blank", nvr, empty, 1000, {}, 100, "DeviceType ", "NVR", "DeviceType");
    add("keep-alive is answered with its name", nvr, empty, 1006, { { "Name", "KeepAlive" } }, 100, "Name",
        "KeepAlive");
    add("system information carries the model", nvr, empty, 1020, { { "Name", "SystemInfo" } }, 100,
        "SystemInfo/DeviceModel", "HI3516EV300");
    const QJsonObject wrong_ret { { "faults", QJsonObject { { "wrong_ret", QJsonObject { { "1020", 607 } } } } } };
    add("a wrong Ret replaces the answer's", wrong_ret, empty, 1020, { { "Name", "SystemInfo" } }, 607);
    add("the network record names its MAC as DvrMac too", nvr, empty, 1042, { { "Name", "NetWork.NetCommon" } }, 100,
        "NetWork.NetCommon/DvrMac", "02:aa:bb:cc:dd:ee");
}

void test_devsim::answers_as_real_devices()
{
    QFETCH(QJsonObject, device);
    QFETCH(QString, password);
    QFETCH(int, id);
    QFETCH(QJsonObject, body);
    QFETCH(QString, member);
    QFETCH(QJsonValue, value);
    QFETCH(QString, absent);
    devsim_harness sim;
    QVERIFY2(sim.start(1, device), qPrintable(sim.error()));
    netip_wire w;
    QVERIFY(w.open(sim.address(0), sim.port(0)));
    netip_reply r;
    const QByteArray login = netip_wire::json(
        { { "EncryptType", "MD5" }, { "LoginType", "DVRIP-Web" }, { "UserName", "admin" }, { "PassWord", password } });
    QVERIFY(w.exchange(1000, login, r, 0));
    const QString text = r.body.value("SessionID").toString();
    QVERIFY2(QRegularExpression("^0x[0-9A-F]{8}$").match(text).hasMatch(), qPrintable(text));
    QCOMPARE(text, QString::asprintf("0x%08X", r.session));
    QCOMPARE(r.session != 0, r.ret() == 100);
    if (id != 1000)
        QVERIFY(w.exchange(quint16(id), netip_wire::json(body), r, r.session));
    QCOMPARE(r.head, quint8(0xFF));
    QCOMPARE(r.version, quint8(1));
    QCOMPARE(r.id, quint16(id + 1));
    QVERIFY(r.payload.endsWith(QByteArray("}\n\0", 3)));
    QTEST(r.ret(), "ret");
    if (member.isEmpty())
        return;
    QJsonObject holder = r.body;
    const QStringList path = member.split('/');
    for (int i = 0; i + 1 < path.size(); ++i)
        holder = holder.value(path[i]).toObject();
    QVERIFY2(holder.value(path.last()) == value, qPrintable(QString::fromUtf8(r.payload)));
    QVERIFY(absent.isEmpty() || !holder.contains(absent));
}

// A delay holds the answers of one message id; every request is recorded as sent.
void test_devsim::delay_and_record()
{
    devsim_harness sim;
    QVERIFY2(sim.start(1), qPrintable(sim.error()));
    netip_wire w;
    QVERIFY(w.open(sim.address(0), sim.port(0)));
    const quint32 session = w.login();
    QVERIFY(session != 0);
    QVERIFY2(sim.set_faults(0, { { "delay_at", QJsonObject { { "1020", 600 } } } }), qPrintable(sim.error()));
    const QByteArray system_info = netip_wire::json({ { "Name", "SystemInfo" } });
    QElapsedTimer t;
    t.start();
    netip_reply r;
    QVERIFY(w.exchange(1020, system_info, r, session));
    QVERIFY2(t.elapsed() >= 550, qPrintable(QString::number(t.elapsed())));
    QCOMPARE(r.id, quint16(1021));
    QCOMPARE(r.session, session);
    const QJsonArray log = sim.requests(0);
    QCOMPARE(log.size(), 2);
    const QJsonObject logged = log.at(1).toObject();
    QCOMPARE(logged.value("id").toInt(), 1020);
    QCOMPARE(logged.value("session").toDouble(), double(session));
    QCOMPARE(logged.value("body").toString().toUtf8(), system_info);
    QVERIFY(logged.value("time_ms").toDouble() >= log.at(0).toObject().value("time_ms").toDouble());
}

void test_devsim::discovery_reply()
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

QTEST_GUILESS_MAIN(test_devsim)
#include "test_devsim.moc"
