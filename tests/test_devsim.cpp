// The device simulator on its own, from the wire: logins, faults and the request record, answers as real devices
// give them, a firmware upload, and its UDP side (run again in a network namespace of the test's own).
#include "tests/support/devsim_harness.h"
#include "tests/support/netip_wire.h"
#include "tests/support/test_network.h"

#include <QCryptographicHash>
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
    void login_data();
    void login();
    void faults_and_record_data();
    void faults_and_record();
    void answers_as_real_devices_data();
    void answers_as_real_devices();
    void upload_data();
    void upload();
    void discovery_reply();
    void configuration_only_for_own_mac();
};

void test_devsim::login_data()
{
    QTest::addColumn<QJsonObject>("device");
    QTest::addColumn<QString>("sent");
    QTest::addColumn<int>("ret");
    const auto add = [](const char* name, const QJsonObject& device, const char* sent, int ret) {
        QTest::newRow(name) << device << QString(sent) << ret;
    };
    const QJsonObject admin { { "password", "admin" } };
    add("empty password, its digest", {}, netip_wire::digest_empty, 100);
    add("password admin, its digest", admin, netip_wire::digest_admin, 100);
    add("another password's digest: 203", admin, netip_wire::digest_empty, 203);
    add("the plain password, not its digest: 203", admin, "admin", 203);
    add("locked user: 205", { { "faults", QJsonObject { { "lock_user", true } } } }, netip_wire::digest_empty, 205);
}

void test_devsim::login()
{
    QFETCH(QJsonObject, device);
    QFETCH(QString, sent);
    QFETCH(int, ret);
    devsim_harness sim;
    QVERIFY2(sim.start(1, device), qPrintable(sim.error()));
    netip_wire w;
    QVERIFY(w.open(sim.address(0), sim.port(0)));
    const QByteArray body = netip_wire::json(
        { { "EncryptType", "MD5" }, { "LoginType", "DVRIP-Web" }, { "UserName", "admin" }, { "PassWord", sent } });
    netip_reply r;
    QVERIFY(w.exchange(1000, body, r, 0));
    QCOMPARE(r.head, quint8(0xFF));
    QCOMPARE(r.version, quint8(1));
    QCOMPARE(r.id, quint16(1001));
    QVERIFY(r.payload.endsWith(QByteArray("}\n\0", 3)));
    QCOMPARE(r.ret(), ret);
    const QString text = r.body.value("SessionID").toString();
    QVERIFY2(QRegularExpression("^0x[0-9A-F]{8}$").match(text).hasMatch(), qPrintable(text));
    QCOMPARE(text, QString::asprintf("0x%08X", r.session));
    QCOMPARE(r.session != 0, ret == 100);
}

void test_devsim::faults_and_record_data()
{
    QTest::addColumn<QJsonObject>("faults");
    QTest::addColumn<int>("ret"); // -1: no answer
    QTest::addColumn<bool>("closed");
    QTest::addColumn<int>("min_ms");
    const QJsonArray at { 1020 };
    QTest::newRow("silent: unanswered, still open") << QJsonObject { { "silent_at", at } } << -1 << false << 0;
    QTest::newRow("close: closed without an answer") << QJsonObject { { "close_at", at } } << -1 << true << 0;
    QTest::newRow("wrong Ret replaces the answer's")
        << QJsonObject { { "wrong_ret", QJsonObject { { "1020", 607 } } } } << 607 << false << 0;
    QTest::newRow("delay for one message id")
        << QJsonObject { { "delay_at", QJsonObject { { "1020", 600 } } } } << 100 << false << 550;
}

void test_devsim::faults_and_record()
{
    QFETCH(QJsonObject, faults);
    QFETCH(int, ret);
    QFETCH(bool, closed);
    QFETCH(int, min_ms);
    devsim_harness sim;
    QVERIFY2(sim.start(1), qPrintable(sim.error()));
    netip_wire w;
    QVERIFY(w.open(sim.address(0), sim.port(0)));
    const quint32 session = w.login();
    QVERIFY(session != 0);
    QVERIFY2(sim.set_faults(0, faults), qPrintable(sim.error()));
    const QByteArray system_info = netip_wire::json({ { "Name", "SystemInfo" } });
    QElapsedTimer t;
    t.start();
    netip_reply r;
    w.send_frame(netip_wire::header(1020, quint32(system_info.size()), session) + system_info);
    QCOMPARE(w.read(r, ret < 0 ? 800 : 3000), ret >= 0);
    if (ret >= 0) {
        QCOMPARE(r.id, quint16(1021));
        QCOMPARE(r.ret(), ret);
        QCOMPARE(r.session, session);
        QVERIFY2(t.elapsed() >= min_ms, qPrintable(QString::number(t.elapsed())));
    }
    // Recorded as sent, answered or not.
    const QJsonArray log = sim.requests(0);
    QCOMPARE(log.size(), 2);
    const QJsonObject logged = log.at(1).toObject();
    QCOMPARE(logged.value("id").toInt(), 1020);
    QCOMPARE(logged.value("session").toDouble(), double(session));
    QCOMPARE(logged.value("body").toString().toUtf8(), system_info);
    QVERIFY(logged.value("time_ms").toDouble() >= log.at(0).toObject().value("time_ms").toDouble());
    QCOMPARE(w.closed_within(closed ? 2000 : 200), closed);
    if (!closed) {
        QVERIFY(sim.clear_faults(0));
        QVERIFY(w.exchange(1020, system_info, r, session) && r.ret() == 100);
    }
}

void test_devsim::answers_as_real_devices_data()
{
    QTest::addColumn<int>("id"); // 1000: the login itself
    QTest::addColumn<QJsonObject>("body");
    QTest::addColumn<QString>("member"); // a "/" reaches into an object
    QTest::addColumn<QJsonValue>("value");
    QTest::addColumn<QString>("absent");
    QTest::newRow("login names the type with a trailing blank")
        << 1000 << QJsonObject {} << "DeviceType " << QJsonValue("NVR") << "DeviceType";
    QTest::newRow("keep-alive is answered with its name")
        << 1006 << QJsonObject { { "Name", "KeepAlive" } } << "Name" << QJsonValue("KeepAlive") << "";
    QTest::newRow("system information carries the model")
        << 1020 << QJsonObject { { "Name", "SystemInfo" } } << "SystemInfo/DeviceModel" << QJsonValue("HI3516EV300")
        << "";
    QTest::newRow("the network record names its MAC as DvrMac too")
        << 1042 << QJsonObject { { "Name", "NetWork.NetCommon" } } << "NetWork.NetCommon/DvrMac"
        << QJsonValue("02:aa:bb:cc:dd:ee") << "";
}

void test_devsim::answers_as_real_devices()
{
    QFETCH(int, id);
    QFETCH(QJsonObject, body);
    QFETCH(QString, member);
    QFETCH(QJsonValue, value);
    QFETCH(QString, absent);
    devsim_harness sim;
    QVERIFY2(sim.start(1, { { "device_type", "NVR" }, { "hardware", "HI3516EV300" }, { "mac", "02:aa:bb:cc:dd:ee" } }),
        qPrintable(sim.error()));
    netip_wire w;
    QVERIFY(w.open(sim.address(0), sim.port(0)));
    netip_reply r;
    const QByteArray login = netip_wire::json({ { "EncryptType", "MD5" }, { "LoginType", "DVRIP-Web" },
        { "UserName", "admin" }, { "PassWord", netip_wire::digest_empty } });
    QVERIFY(w.exchange(1000, login, r, 0));
    if (id != 1000)
        QVERIFY(w.exchange(quint16(id), netip_wire::json(body), r, r.session));
    QCOMPARE(r.id, quint16(id + 1));
    QCOMPARE(r.ret(), 100);
    QJsonObject holder = r.body;
    const QStringList path = member.split('/');
    for (int i = 0; i + 1 < path.size(); ++i)
        holder = holder.value(path[i]).toObject();
    QVERIFY2(holder.value(path.last()) == value, qPrintable(QString::fromUtf8(r.payload)));
    QVERIFY(absent.isEmpty() || !holder.contains(absent));
}

void test_devsim::upload_data()
{
    QTest::addColumn<QJsonObject>("faults");
    // Ret of the start | of the chunks after so many answers | of the end of file | progress | connection
    QTest::addColumn<QString>("transcript");
    QTest::newRow("good upload") << QJsonObject {} << "100 | 100 after 4 | 100 | 0 | 25 | 50 | 75 | 100 | 515 | closed";
    QTest::newRow("chunk 1 answered 514")
        << QJsonObject { { "chunk_ret", QJsonObject { { "1", 514 } } } } << "100 | 514 after 2 | open";
    QTest::newRow("dropped at 50%") << QJsonObject { { "progress_drop_at", 50 } }
                                    << "100 | 100 after 4 | 100 | 0 | 25 | closed";
}

void test_devsim::upload()
{
    QFETCH(QJsonObject, faults);
    constexpr int chunk_size = 32768;
    devsim_harness sim;
    QVERIFY2(sim.start(1, { { "reboot_ms", 300 }, { "upgrade_step_ms", 50 }, { "faults", faults } }),
        qPrintable(sim.error()));
    const QString old_version = sim.state(0).value("software_version").toString();
    QByteArray image(3 * chunk_size + 7, Qt::Uninitialized);
    for (int i = 0; i < image.size(); ++i)
        image[i] = char((uint(i) * 131) ^ (uint(i) >> 9));
    const QString md5 = QCryptographicHash::hash(image, QCryptographicHash::Md5).toHex();

    netip_wire w;
    QVERIFY(w.open(sim.address(0), sim.port(0)));
    const quint32 session = w.login();
    const QByteArray start = netip_wire::json({ { "Name", "OPSystemUpgrade" },
        { "OPSystemUpgrade", QJsonObject { { "Action", "Start" }, { "Type", "System" } } } });
    netip_reply r;
    QVERIFY(w.exchange(1520, start, r, session));
    QStringList seen { QString::number(r.ret()) };
    int n = 0, ret = 100;
    for (; ret == 100 && n * chunk_size < image.size(); ++n) {
        const QByteArray part = image.mid(n * chunk_size, chunk_size);
        w.send_frame(netip_wire::header(1522, quint32(part.size()), session, 0xFF, 1, 0, quint32(n)) + part);
        ret = w.read(r, 2000) && r.id == 1523 && r.sequence == quint32(n) ? r.ret() : -1;
    }
    seen << QStringLiteral("%1 after %2").arg(ret).arg(n);
    if (ret == 100) {
        w.send_frame(netip_wire::header(1522, 0, session, 0xFF, 1, 0, quint32(n), 1));
        seen << (w.read(r, 2000) && r.id == 1523 ? QString::number(r.ret()) : QStringLiteral("none"));
        while (seen.last() != "515" && w.read(r, 600))
            seen << (r.id == 1524 ? QString::number(r.ret()) : QStringLiteral("id %1").arg(r.id));
    }
    const bool upgraded = seen.last() == "515";
    QTEST(seen.join(" | ") + (w.closed_within(300) ? " | closed" : " | open"), "transcript");

    // The image is hashed as it arrives; only 515 reboots the device, into a version named by the hash.
    QTest::qWait(300);
    QTRY_COMPARE_WITH_TIMEOUT(sim.state(0).value("boot_count").toInt(), upgraded ? 2 : 1, 3000);
    const QJsonObject state = sim.state(0);
    QCOMPARE(state.value("upgrades").toInt(), int(upgraded));
    QCOMPARE(state.value("software_version").toString(), upgraded ? "V" + md5.left(8) : old_version);
    if (ret == 100)
        QCOMPARE(state.value("upgrade_md5").toString(), md5);
    if (upgraded) {
        netip_wire back;
        QVERIFY(back.open(sim.address(0), sim.port(0)));
        const quint32 again = back.login();
        QVERIFY(back.exchange(1020, netip_wire::json({ { "Name", "SystemInfo" } }), r, again));
        QCOMPARE(r.body.value("SystemInfo").toObject().value("SoftWareVersion").toString(), "V" + md5.left(8));
    }
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

void test_devsim::configuration_only_for_own_mac()
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

QTEST_GUILESS_MAIN(test_devsim)
#include "test_devsim.moc"
