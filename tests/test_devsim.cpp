#include "tests/support/devsim_harness.h"
#include "tests/support/netip_wire.h"

#include <QElapsedTimer>
#include <QRegularExpression>
#include <QtEndian>
#include <QtTest>

namespace
{

const QByteArray system_info = netip_wire::json({ { "Name", "SystemInfo" } });

const auto json = netip_wire::json;

bool can_connect(const QHostAddress& address, quint16 port)
{
    QTcpSocket s;
    s.connectToHost(address, port);
    return s.waitForConnected(500);
}

QString reversed_hex(const QHostAddress& a)
{
    return QString::asprintf("0x%08X", qbswap(a.toIPv4Address()));
}

// A connection to a device, logged in with the empty password unless told not to.
struct logged_in {
    netip_wire wire;
    quint32 session = 0;

    explicit logged_in(devsim_harness& sim, bool log_in = true)
    {
        if (wire.open(sim.address(0), sim.port(0)) && log_in)
            session = wire.login();
    }
    // The answer; id 0 when none came.
    netip_reply ask(quint16 id, const QByteArray& body)
    {
        netip_reply r;
        wire.exchange(id, body, r, session);
        return r;
    }
};

} // namespace

class test_devsim : public QObject
{
    Q_OBJECT
private slots:
    void login_data();
    void login();
    void answers_data();
    void answers();
    void net_common_data();
    void net_common();
    void reboot_drops_and_comes_back();
    void malformed_frame_drops_only_its_connection_data();
    void malformed_frame_drops_only_its_connection();
    void stream_and_request_log();
};

void test_devsim::login_data()
{
    QTest::addColumn<QJsonObject>("device");
    QTest::addColumn<QString>("user");
    QTest::addColumn<QString>("sent");
    QTest::addColumn<int>("ret");
    const QString empty = netip_wire::digest_empty, admin = netip_wire::digest_admin;
    const QJsonObject password_admin { { "password", "admin" } };
    const auto faults = [](const char* name) { return QJsonObject { { "faults", QJsonObject { { name, true } } } }; };
    QTest::newRow("empty password, its digest") << QJsonObject {} << "admin" << empty << 100;
    QTest::newRow("password admin, its digest") << password_admin << "admin" << admin << 100;
    QTest::newRow("wrong password: 203") << password_admin << "admin" << empty << 203;
    QTest::newRow("plain password instead of its digest: 203") << password_admin << "admin"
                                                               << "admin" << 203;
    QTest::newRow("unknown user: 203") << QJsonObject {} << "root" << empty << 203;
    QTest::newRow("told to refuse: 203") << faults("refuse_login") << "admin" << empty << 203;
    QTest::newRow("locked user: 205") << faults("lock_user") << "admin" << empty << 205;
}

void test_devsim::login()
{
    QFETCH(QJsonObject, device);
    QFETCH(QString, user);
    QFETCH(QString, sent);
    QFETCH(int, ret);
    devsim_harness sim;
    QVERIFY2(sim.start(1, device), qPrintable(sim.error()));
    netip_wire w;
    QVERIFY(w.open(sim.address(0), sim.port(0)));
    const QByteArray body
        = json({ { "EncryptType", "MD5" }, { "LoginType", "DVRIP-Web" }, { "UserName", user }, { "PassWord", sent } });
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
    QCOMPARE(sim.state(0).value(ret == 100 ? "logins" : "failed_logins").toInt(), 1);
    if (ret == 100) // every login gets a fresh session
        QVERIFY(w.exchange(1000, body, r, 0) && r.ret() == 100 && r.session != 0
            && text != QString::asprintf("0x%08X", r.session));
}

void test_devsim::answers_data()
{
    QTest::addColumn<int>("id");
    QTest::addColumn<QByteArray>("body");
    QTest::addColumn<int>("ret"); // -1: no answer
    QTest::addColumn<QJsonObject>("faults");
    QTest::addColumn<int>("session"); // in the header: 0 its own, 1 another, -1 never logged in
    QTest::addColumn<bool>("closed");
    QTest::addColumn<int>("min_ms");
    const auto add = [](const char* name, int id, const QByteArray& body, int ret, const QJsonObject& faults = {},
                         int session = 0, bool closed = false, int min_ms = 0) {
        QTest::newRow(name) << id << body << ret << faults << session << closed << min_ms;
    };
    const QJsonArray at { 1020 };
    add("its session in the header: answered", 1020, system_info, 100);
    add("another session in the header: 105", 1020, system_info, 105, {}, 1);
    add("before login: 105", 1020, system_info, 105, {}, -1);
    add("unknown message id: 102", 1999, json({ { "Name", "X" } }), 102);
    add("unknown configuration name: 607", 1042, json({ { "Name", "General.Foo" } }), 607);
    add("machine action other than reboot: 102", 1450,
        json({ { "Name", "OPMachine" }, { "OPMachine", QJsonObject { { "Action", "Halt" } } } }), 102);
    add("body that isn't JSON: 608", 1042, "[1,", 608);
    add("empty body: 608", 1042, {}, 608);
    add("silent: recorded, unanswered, still open", 1020, system_info, -1, { { "silent_at", at } });
    add("close at: closed without an answer", 1020, system_info, -1, { { "close_at", at } }, 0, true);
    add("close after: answered, then closed", 1020, system_info, 100, { { "close_after", at } }, 0, true);
    add("wrong Ret replaces the answer's", 1020, system_info, 607,
        { { "wrong_ret", QJsonObject { { "1020", 607 } } } });
    add("delay for one message id", 1020, system_info, 100, { { "delay_at", QJsonObject { { "1020", 600 } } } }, 0,
        false, 550);
    add("delay for every message", 1020, system_info, 100, { { "delay_ms", 400 } }, 0, false, 350);
    add("faults of other ids leave it alone", 1020, system_info, 100,
        { { "silent_at", QJsonArray { 1042 } }, { "close_at", QJsonArray { 1040 } },
            { "wrong_ret", QJsonObject { { "1042", 203 } } } });
}

void test_devsim::answers()
{
    QFETCH(int, id);
    QFETCH(QByteArray, body);
    QFETCH(int, ret);
    QFETCH(QJsonObject, faults);
    QFETCH(int, session);
    QFETCH(bool, closed);
    QFETCH(int, min_ms);
    devsim_harness sim;
    QVERIFY2(sim.start(1), qPrintable(sim.error()));
    logged_in c(sim, session >= 0);
    const quint32 own = c.session;
    QCOMPARE(own != 0, session >= 0);
    QVERIFY2(sim.set_faults(0, faults), qPrintable(sim.error()));
    QElapsedTimer t;
    t.start();
    c.wire.send(quint16(id), body, own + quint32(session > 0));
    netip_reply r;
    QCOMPARE(c.wire.read(r, ret < 0 ? 800 : 3000), ret >= 0);
    if (ret >= 0) {
        QCOMPARE(int(r.id), id + 1);
        QCOMPARE(r.ret(), ret);
        QCOMPARE(r.session, own);
        QVERIFY2(t.elapsed() >= min_ms, qPrintable(QString::number(t.elapsed())));
    }
    // Recorded as sent, answered or not.
    const QJsonObject logged = sim.requests(0).last().toObject();
    QCOMPARE(logged.value("id").toInt(), id);
    QCOMPARE(logged.value("body").toString().toUtf8(), body);
    QCOMPARE(c.wire.closed_within(closed ? 2000 : 200), closed);
    if (!closed) {
        QVERIFY(sim.clear_faults(0));
        QCOMPARE(c.ask(1020, system_info).ret(), session < 0 ? 105 : 100);
    }
}

void test_devsim::net_common_data()
{
    QTest::addColumn<QByteArray>("payload");
    QTest::addColumn<int>("ret");
    QTest::addColumn<QString>("host_ip"); // empty: unchanged
    QTest::addColumn<QString>("host_name"); // empty: unchanged
    const auto set = [](const QJsonObject& members) {
        return json({ { "Name", "NetWork.NetCommon" }, { "NetWork.NetCommon", members } });
    };
    const auto add = [](const char* name, const QByteArray& payload, int ret, const char* ip, const QString& host) {
        QTest::newRow(name) << payload << ret << QString(ip) << host;
    };
    add("the client's unprefixed lower-case address", set({ { "HostIP", "7b01a8c0" } }), 100, "0x7B01A8C0", {});
    add("the device's own prefixed form", set({ { "HostIP", "0x7B01A8C0" } }), 100, "0x7B01A8C0", {});
    add("an unpadded short address", set({ { "HostIP", "a01a8c0" } }), 100, "0x0A01A8C0", {});
    add("an address that isn't hexadecimal", set({ { "HostIP", "7g01a8c0" } }), 608, "", {});
    add("an address longer than 32 bits", set({ { "HostIP", "17b01a8c0" } }), 608, "", {});
    add("a bad member refuses the good ones too", set({ { "HostIP", "7b01a8c0" }, { "TCPPort", 70000 } }), 608, "", {});
    // The client counts UTF-16 units: a non-ASCII host name costs the body its tail.
    const QString text = QString::fromUtf8(set({ { "GateWay", "101a8c0" }, { "HostIP", "7b01a8c0" },
        { "HostName", "камера" }, { "HttpPort", 80 }, { "UseHSDownLoad", false } }));
    add("a body cut short by a non-ASCII host name", text.toUtf8().left(text.size()), 100, "0x7B01A8C0", "камера");
}

void test_devsim::net_common()
{
    QFETCH(QByteArray, payload);
    QFETCH(int, ret);
    QFETCH(QString, host_ip);
    QFETCH(QString, host_name);
    devsim_harness sim;
    QVERIFY2(sim.start(1), qPrintable(sim.error()));
    logged_in c(sim);
    const QByteArray get = json({ { "Name", "NetWork.NetCommon" } });
    netip_reply r = c.ask(1042, get);
    QCOMPARE(r.id, quint16(1043));
    const QJsonObject before = r.body.value("NetWork.NetCommon").toObject();
    QCOMPARE(before.value("HostIP").toString(), reversed_hex(sim.address(0)));
    QCOMPARE(before.value("TCPPort").toInt(), int(sim.port(0)));
    QCOMPARE(before, sim.state(0).value("net").toObject());

    r = c.ask(1040, payload);
    QCOMPARE(r.id, quint16(1041));
    QCOMPARE(r.ret(), ret);
    // It reads back what it took; a foreign address doesn't move it.
    const QJsonObject after = c.ask(1042, get).body.value("NetWork.NetCommon").toObject();
    QCOMPARE(after, sim.state(0).value("net").toObject());
    QCOMPARE(after.value("HostIP").toString(), host_ip.isEmpty() ? before.value("HostIP").toString() : host_ip);
    QCOMPARE(after.value("HostName").toString(), host_name.isEmpty() ? before.value("HostName").toString() : host_name);
    if (ret != 100)
        QCOMPARE(after, before);
}

void test_devsim::reboot_drops_and_comes_back()
{
    const int reboot_ms = 1000;
    devsim_harness sim;
    QVERIFY2(sim.start(1, { { "reboot_ms", reboot_ms } }), qPrintable(sim.error()));
    const QHostAddress address = sim.address(0);
    const quint16 port = sim.port(0);
    logged_in c(sim);
    const netip_reply r
        = c.ask(1450, json({ { "Name", "OPMachine" }, { "OPMachine", QJsonObject { { "Action", "Reboot" } } } }));
    QElapsedTimer down;
    down.start();
    QCOMPARE(r.id, quint16(1451));
    QCOMPARE(r.ret(), 100);
    QVERIFY(c.wire.closed_within(2000));
    QVERIFY(!can_connect(address, port));
    QVERIFY(sim.state(0).value("rebooting").toBool());
    QTRY_VERIFY_WITH_TIMEOUT(can_connect(address, port), 5000);
    QVERIFY2(down.elapsed() >= reboot_ms - 150, qPrintable(QString::number(down.elapsed())));
    QCOMPARE(sim.state(0).value("boot_count").toInt(), 2);
    QVERIFY(logged_in(sim).session != 0);
}

void test_devsim::malformed_frame_drops_only_its_connection_data()
{
    QTest::addColumn<QByteArray>("bytes");
    QTest::newRow("head byte not 0xff") << netip_wire::header(1020, 2, 0, 0xFE) + "{}";
    QTest::newRow("version above 1") << netip_wire::header(1020, 2, 0, 0xFF, 2) + "{}";
    QTest::newRow("reserved byte set") << netip_wire::header(1020, 2, 0, 0xFF, 1, 1) + "{}";
    QTest::newRow("length beyond 32768") << netip_wire::header(1522, 40000);
}

void test_devsim::malformed_frame_drops_only_its_connection()
{
    QFETCH(QByteArray, bytes);
    devsim_harness sim;
    QVERIFY2(sim.start(1), qPrintable(sim.error()));
    logged_in good(sim);
    netip_wire bad;
    QVERIFY(bad.open(sim.address(0), sim.port(0)));
    bad.send_frame(bytes);
    QVERIFY(bad.closed_within(2000));
    QCOMPARE(good.ask(1020, system_info).ret(), 100);
    QVERIFY(logged_in(sim).session != 0);
    QCOMPARE(sim.state(0).value("malformed_frames").toInt(), 1);
}

void test_devsim::stream_and_request_log()
{
    devsim_harness sim;
    QVERIFY2(sim.start(2, { { "password", "admin" } }), qPrintable(sim.error()));
    netip_wire w;
    QVERIFY(w.open(sim.address(0), sim.port(0)));
    QCOMPARE(w.login(netip_wire::digest_empty), 0u);
    const quint32 session = w.login(netip_wire::digest_admin);
    QVERIFY(session);
    // Two requests dribbled a few bytes at a time, one piece holding the end of one and the start of the other.
    const QByteArray get = json({ { "Name", "NetWork.NetCommon" } });
    const QByteArray both = netip_wire::header(1042, quint32(get.size()), session) + get
        + netip_wire::header(1020, quint32(system_info.size()), session) + system_info;
    for (int at = 0; at < both.size(); at += 7) {
        w.socket.write(both.mid(at, 7));
        QVERIFY(w.socket.waitForBytesWritten(1000));
    }
    netip_reply r1, r2;
    QVERIFY(w.read(r1) && w.read(r2));
    QVERIFY(r1.body.contains("NetWork.NetCommon"));
    QCOMPARE(r2.id, quint16(1021));
    QCOMPARE(r2.ret(), 100);

    // The request log: id, header session, body, time; cleared on request, per device.
    const QJsonArray log = sim.requests(0, true);
    QCOMPARE(log.size(), 4);
    QCOMPARE(log.at(0).toObject().value("id").toInt(), 1000);
    QVERIFY(log.at(1).toObject().value("body").toString().contains(netip_wire::digest_admin));
    QCOMPARE(log.at(2).toObject().value("body").toString().toUtf8(), get);
    QCOMPARE(log.at(3).toObject().value("session").toDouble(), double(session));
    QVERIFY(log.at(3).toObject().value("time_ms").toDouble() >= log.at(0).toObject().value("time_ms").toDouble());
    QCOMPARE(sim.requests(0).size(), 0);
    QCOMPARE(sim.requests(1).size(), 0);
    // A refused change changes nothing; "*" reaches every device.
    QVERIFY(!sim.set_faults(0, { { "silent_at", "soon" } }));
    QCOMPARE(sim.faults(0).value("silent_at").toArray().size(), 0);
    QVERIFY(sim.set_faults(devsim_harness::all, { { "delay_ms", 5 } }));
    QCOMPARE(sim.faults(1).value("delay_ms").toInt(), 5);
    // The end of standard input ends it with 0.
    QVERIFY(sim.stop());
}

QTEST_GUILESS_MAIN(test_devsim)
#include "test_devsim.moc"
