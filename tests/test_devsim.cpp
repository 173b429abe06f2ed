#include "tests/support/devsim_harness.h"
#include "tests/support/netip_wire.h"

#include <QCryptographicHash>
#include <QElapsedTimer>
#include <QJsonDocument>
#include <QRegularExpression>
#include <QSet>
#include <QTcpSocket>
#include <QtEndian>
#include <QtTest>

namespace
{

const QString digest_empty = QLatin1String(netip_wire::digest_empty);
const QString digest_admin = QLatin1String(netip_wire::digest_admin);
using reply = netip_reply;
using wire = netip_wire;

QByteArray header(
    quint16 id, quint32 length, quint32 session = 0, quint8 head = 0xFF, quint8 version = 1, quint8 reserved = 0)
{
    return netip_wire::header(id, length, session, head, version, reserved);
}

QByteArray json(const QJsonObject& o)
{
    return netip_wire::json(o);
}

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

} // namespace

class test_devsim : public QObject
{
    Q_OBJECT
private slots:
    void login_data();
    void login();
    void every_login_gets_a_fresh_session();
    void requests_need_the_session_data();
    void requests_need_the_session();
    void system_info_per_device();
    void net_common_get();
    void net_common_set_data();
    void net_common_set();
    void net_common_change_moves_the_listener();
    void location_get_set();
    void unanswerable_requests_data();
    void unanswerable_requests();
    void dhcp_and_import_are_recorded();
    void default_config_resets_data();
    void default_config_resets();
    void reboot_drops_and_comes_back();
    void faults_data();
    void faults();
    void login_faults_from_config_and_at_run_time();
    void malformed_frame_drops_only_its_connection_data();
    void malformed_frame_drops_only_its_connection();
    void frames_split_and_joined_in_the_stream();
    void control_channel();
    void two_hundred_devices();
    void ends_cleanly_data();
    void ends_cleanly();
};

void test_devsim::login_data()
{
    QTest::addColumn<QJsonObject>("device");
    QTest::addColumn<QString>("user");
    QTest::addColumn<QString>("sent");
    QTest::addColumn<int>("ret");

    QTest::newRow("empty password, its digest") << QJsonObject {} << "admin" << digest_empty << 100;
    QTest::newRow("password admin, its digest")
        << QJsonObject { { "password", "admin" } } << "admin" << digest_admin << 100;
    QTest::newRow("wrong password refused with 203")
        << QJsonObject { { "password", "admin" } } << "admin" << digest_empty << 203;
    QTest::newRow("plain password instead of digest refused") << QJsonObject { { "password", "admin" } } << "admin"
                                                              << "admin" << 203;
    QTest::newRow("unknown user refused") << QJsonObject {} << "root" << digest_empty << 203;
    QTest::newRow("own user name accepted") << QJsonObject { { "user", "op" } } << "op" << digest_empty << 100;
    QTest::newRow("locked user refused with 205")
        << QJsonObject { { "faults", QJsonObject { { "lock_user", true } } } } << "admin" << digest_empty << 205;
}

void test_devsim::login()
{
    QFETCH(QJsonObject, device);
    QFETCH(QString, user);
    QFETCH(QString, sent);
    QFETCH(int, ret);

    devsim_harness sim;
    QVERIFY2(sim.start(1, device), qPrintable(sim.error()));
    wire w;
    QVERIFY(w.open(sim.address(0), sim.port(0)));
    reply r;
    const QJsonObject body { { "EncryptType", "MD5" }, { "LoginType", "DVRIP-Web" }, { "UserName", user },
        { "PassWord", sent } };
    QVERIFY(w.exchange(1000, json(body), r, 0));

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
}

void test_devsim::every_login_gets_a_fresh_session()
{
    devsim_harness sim;
    QVERIFY2(sim.start(2), qPrintable(sim.error()));
    QSet<quint32> sessions;
    for (int i = 0; i < 4; ++i) {
        wire w;
        QVERIFY(w.open(sim.address(i % 2), sim.port(i % 2)));
        const quint32 s = w.login();
        QVERIFY(s != 0);
        sessions.insert(s);
    }
    QCOMPARE(sessions.size(), 4);
}

void test_devsim::requests_need_the_session_data()
{
    QTest::addColumn<bool>("log_in");
    QTest::addColumn<int>("session_offset");
    QTest::addColumn<int>("ret");

    QTest::newRow("no login: refused") << false << 0 << 105;
    QTest::newRow("login, another session in the header: refused") << true << 1 << 105;
    QTest::newRow("login, its session in the header: answered") << true << 0 << 100;
}

void test_devsim::requests_need_the_session()
{
    QFETCH(bool, log_in);
    QFETCH(int, session_offset);
    QFETCH(int, ret);

    devsim_harness sim;
    QVERIFY2(sim.start(1), qPrintable(sim.error()));
    wire w;
    QVERIFY(w.open(sim.address(0), sim.port(0)));
    const quint32 session = log_in ? w.login() : 0;
    QCOMPARE(session != 0, log_in);
    reply r;
    QVERIFY(w.exchange(1020, json({ { "Name", "SystemInfo" } }), r, session + quint32(session_offset)));
    QCOMPARE(r.id, quint16(1021));
    QCOMPARE(r.ret(), ret);
    QCOMPARE(r.session, session);
}

void test_devsim::system_info_per_device()
{
    devsim_harness sim;
    const QJsonArray devices { QJsonObject {},
        QJsonObject { { "serial", "ABC123" }, { "hardware", "HI3516_NVR" }, { "software_version", "V5.00.R02" },
            { "build_time", "2023-01-02 03:04:05" }, { "device_type", "NVR" }, { "channels", 8 } } };
    QVERIFY2(sim.start(2, {}, devices), qPrintable(sim.error()));

    QStringList serials;
    for (int i = 0; i < 2; ++i) {
        wire w;
        QVERIFY(w.open(sim.address(i), sim.port(i)));
        const quint32 session = w.login();
        QVERIFY(session);
        reply r;
        QVERIFY(w.exchange(1020, json({ { "Name", "SystemInfo" } }), r, session));
        QCOMPARE(r.id, quint16(1021));
        QCOMPARE(r.session, session);
        QVERIFY(r.payload.endsWith(QByteArray("}\n\0", 3)));
        QCOMPARE(r.payload.count('\0'), 1);
        const QJsonObject info = r.body.value("SystemInfo").toObject();
        for (const char* key : { "SerialNo", "HardWare", "SoftWareVersion", "BuildTime" })
            QVERIFY2(info.value(key).isString() && !info.value(key).toString().isEmpty(), key);
        serials << info.value("SerialNo").toString();
        if (i == 1) {
            QCOMPARE(info.value("HardWare").toString(), QStringLiteral("HI3516_NVR"));
            QCOMPARE(info.value("SoftWareVersion").toString(), QStringLiteral("V5.00.R02"));
            QCOMPARE(info.value("BuildTime").toString(), QStringLiteral("2023-01-02 03:04:05"));
            QCOMPARE(info.value("VideoInChannel").toInt(), 8);
        }
    }
    QCOMPARE(serials.at(1), QStringLiteral("ABC123"));
    QVERIFY(serials.at(0) != serials.at(1));
    QVERIFY(sim.state(0).value("mac").toString() != sim.state(1).value("mac").toString());
}

void test_devsim::net_common_get()
{
    devsim_harness sim;
    QVERIFY2(sim.start(1), qPrintable(sim.error()));
    wire w;
    QVERIFY(w.open(sim.address(0), sim.port(0)));
    const quint32 session = w.login();
    reply r;
    QVERIFY(w.exchange(1042, json({ { "Name", "NetWork.NetCommon" } }), r, session));
    QCOMPARE(r.id, quint16(1043));
    QCOMPARE(r.ret(), 100);
    const QJsonObject net = r.body.value("NetWork.NetCommon").toObject();
    QCOMPARE(net.value("HostIP").toString(), reversed_hex(sim.address(0)));
    QCOMPARE(net.value("TCPPort").toInt(), int(sim.port(0)));
    QCOMPARE(net.value("MAC").toString(), sim.state(0).value("mac").toString());
    QCOMPARE(net, sim.state(0).value("net").toObject());
}

void test_devsim::net_common_set_data()
{
    QTest::addColumn<QByteArray>("payload");
    QTest::addColumn<int>("ret");
    QTest::addColumn<QString>("host_ip"); // empty: unchanged
    QTest::addColumn<QString>("host_name"); // empty: unchanged

    const auto body = [](const QJsonObject& members) {
        return json({ { "Name", "NetWork.NetCommon" }, { "NetWork.NetCommon", members } });
    };
    QTest::newRow("client's unprefixed lower-case address") << body({ { "HostIP", "7b01a8c0" } }) << 100 << "0x7B01A8C0"
                                                            << "";
    QTest::newRow("device's own prefixed form") << body({ { "HostIP", "0x7B01A8C0" } }) << 100 << "0x7B01A8C0"
                                                << "";
    QTest::newRow("unpadded short address") << body({ { "HostIP", "a01a8c0" } }) << 100 << "0x0A01A8C0"
                                            << "";
    QTest::newRow("address that isn't hexadecimal") << body({ { "HostIP", "7g01a8c0" } }) << 608 << ""
                                                    << "";
    QTest::newRow("address longer than 32 bits") << body({ { "HostIP", "17b01a8c0" } }) << 608 << ""
                                                 << "";
    QTest::newRow("bad member refuses the good ones too")
        << body({ { "HostIP", "7b01a8c0" }, { "TCPPort", 70000 } }) << 608 << ""
        << "";
    QTest::newRow("TransferPlan outside the table") << body({ { "TransferPlan", "nr" } }) << 608 << ""
                                                    << "";
    QTest::newRow("no NetCommon object") << json({ { "Name", "NetWork.NetCommon" } }) << 608 << ""
                                         << "";
    QTest::newRow("body that isn't JSON") << QByteArray("HostIP=1") << 608 << ""
                                          << "";

    // The client counts UTF-16 units: a non-ASCII host name costs the body its tail.
    const QJsonObject full { { "GateWay", "101a8c0" }, { "HostIP", "7b01a8c0" }, { "HostName", "камера" },
        { "HttpPort", 80 }, { "UseHSDownLoad", false } };
    const QString text = QString::fromUtf8(body(full));
    const QByteArray cut = text.toUtf8().left(text.size());
    QTest::newRow("body cut short by a non-ASCII host name") << cut << 100 << "0x7B01A8C0"
                                                             << "камера";
}

void test_devsim::net_common_set()
{
    QFETCH(QByteArray, payload);
    QFETCH(int, ret);
    QFETCH(QString, host_ip);
    QFETCH(QString, host_name);

    devsim_harness sim;
    QVERIFY2(sim.start(1), qPrintable(sim.error()));
    const QJsonObject before = sim.state(0).value("net").toObject();
    wire w;
    QVERIFY(w.open(sim.address(0), sim.port(0)));
    const quint32 session = w.login();
    reply r;
    QVERIFY(w.exchange(1040, payload, r, session));
    QCOMPARE(r.id, quint16(1041));
    QCOMPARE(r.ret(), ret);

    const QJsonObject after = sim.state(0).value("net").toObject();
    QCOMPARE(after.value("HostIP").toString(), host_ip.isEmpty() ? before.value("HostIP").toString() : host_ip);
    QCOMPARE(after.value("HostName").toString(), host_name.isEmpty() ? before.value("HostName").toString() : host_name);
    if (ret != 100)
        QCOMPARE(after, before);

    // The device reads back what it took, and a foreign address doesn't move it.
    reply back;
    QVERIFY(w.exchange(1042, json({ { "Name", "NetWork.NetCommon" } }), back, session));
    QCOMPARE(back.body.value("NetWork.NetCommon").toObject(), after);
}

void test_devsim::net_common_change_moves_the_listener()
{
    devsim_harness sim;
    QVERIFY2(sim.start(1, { { "net_apply_ms", 100 } }), qPrintable(sim.error()));
    const QHostAddress old_address = sim.address(0);
    const quint16 old_port = sim.port(0);
    const QHostAddress new_address(old_address.toIPv4Address() + 200);
    const quint16 new_port = quint16(old_port + 11);

    wire w;
    QVERIFY(w.open(old_address, old_port));
    const quint32 session = w.login();
    const QString hex = QString::number(qbswap(new_address.toIPv4Address()), 16);
    reply r;
    QVERIFY(w.exchange(1040,
        json({ { "Name", "NetWork.NetCommon" },
            { "NetWork.NetCommon", QJsonObject { { "HostIP", hex }, { "TCPPort", new_port } } } }),
        r, session));
    QCOMPARE(r.ret(), 100);
    QVERIFY(w.closed_within(3000));

    QTRY_COMPARE_WITH_TIMEOUT(sim.address(0), new_address, 3000);
    QCOMPARE(sim.port(0), new_port);
    QVERIFY(!can_connect(old_address, old_port));
    wire moved;
    QVERIFY(moved.open(new_address, new_port));
    QVERIFY(moved.login() != 0);
    QCOMPARE(sim.state(0).value("net").toObject().value("HostIP").toString(), reversed_hex(new_address));
}

void test_devsim::location_get_set()
{
    devsim_harness sim;
    QVERIFY2(sim.start(1, { { "language", "German" } }), qPrintable(sim.error()));
    wire w;
    QVERIFY(w.open(sim.address(0), sim.port(0)));
    const quint32 session = w.login();

    reply r;
    QVERIFY(w.exchange(1042, json({ { "Name", "General.Location" } }), r, session));
    QCOMPARE(r.id, quint16(1043));
    QJsonObject location = r.body.value("General.Location").toObject();
    QCOMPARE(location.value("Language").toString(), QStringLiteral("German"));
    QVERIFY(location.value("DSTStart").isObject());

    location.insert("Language", "Russian");
    location.insert("VideoFormat", "NTSC");
    QVERIFY(w.exchange(1040, json({ { "Name", "General.Location" }, { "General.Location", location } }), r, session));
    QCOMPARE(r.ret(), 100);
    QCOMPARE(sim.state(0).value("language").toString(), QStringLiteral("Russian"));
    QCOMPARE(sim.state(0).value("location").toObject(), location);

    QVERIFY(w.exchange(1040,
        json({ { "Name", "General.Location" }, { "General.Location", QJsonObject { { "Language", 6 } } } }), r,
        session));
    QCOMPARE(r.ret(), 608);
    QCOMPARE(sim.state(0).value("language").toString(), QStringLiteral("Russian"));
}

void test_devsim::unanswerable_requests_data()
{
    QTest::addColumn<int>("id");
    QTest::addColumn<QByteArray>("body");
    QTest::addColumn<int>("reply_id");
    QTest::addColumn<int>("ret");

    QTest::newRow("unknown config name on get") << 1042 << json({ { "Name", "General.Foo" } }) << 1043 << 607;
    QTest::newRow("unknown config name on set")
        << 1040 << json({ { "Name", "General.Foo" }, { "General.Foo", QJsonObject {} } }) << 1041 << 607;
    QTest::newRow("unknown message id") << 1999 << json({ { "Name", "X" } }) << 2000 << 102;
    QTest::newRow("unknown system manager name") << 1450 << json({ { "Name", "OPFoo" } }) << 1451 << 607;
    QTest::newRow("machine action other than reboot")
        << 1450 << json({ { "Name", "OPMachine" }, { "OPMachine", QJsonObject { { "Action", "Halt" } } } }) << 1451
        << 102;
    QTest::newRow("system info under another name") << 1020 << json({ { "Name", "Foo" } }) << 1021 << 607;
    QTest::newRow("config get with a body that isn't JSON") << 1042 << QByteArray("[1,") << 1043 << 608;
    QTest::newRow("empty body") << 1042 << QByteArray() << 1043 << 608;
}

void test_devsim::unanswerable_requests()
{
    QFETCH(int, id);
    QFETCH(QByteArray, body);
    QFETCH(int, reply_id);
    QFETCH(int, ret);

    devsim_harness sim;
    QVERIFY2(sim.start(1), qPrintable(sim.error()));
    wire w;
    QVERIFY(w.open(sim.address(0), sim.port(0)));
    const quint32 session = w.login();
    reply r;
    QVERIFY(w.exchange(quint16(id), body, r, session));
    QCOMPARE(int(r.id), reply_id);
    QCOMPARE(r.ret(), ret);

    // The connection and the device carry on.
    QVERIFY(w.exchange(1020, json({ { "Name", "SystemInfo" } }), r, session));
    QCOMPARE(r.ret(), 100);
    const QJsonArray log = sim.requests(0);
    QCOMPARE(log.size(), 3);
    QCOMPARE(log.at(1).toObject().value("id").toInt(), id);
    QCOMPARE(log.at(1).toObject().value("body").toString().toUtf8(), body);
}

void test_devsim::dhcp_and_import_are_recorded()
{
    devsim_harness sim;
    QVERIFY2(sim.start(1), qPrintable(sim.error()));
    wire w;
    QVERIFY(w.open(sim.address(0), sim.port(0)));
    const quint32 session = w.login();

    reply r;
    QVERIFY(w.exchange(1040, json({ { "Name", "NetWork.DHCP" } }), r, session));
    QCOMPARE(r.id, quint16(1041));
    QCOMPARE(r.ret(), 100);
    QCOMPARE(sim.state(0).value("dhcp_requests").toInt(), 1);

    QByteArray file(5000, '\0');
    for (int i = 0; i < file.size(); ++i)
        file[i] = char(i * 7);
    QVERIFY(w.exchange(1540, file, r, session));
    QCOMPARE(r.id, quint16(1541));
    QCOMPARE(r.ret(), 603);
    const QString md5 = QString::fromLatin1(QCryptographicHash::hash(file, QCryptographicHash::Md5).toHex());
    const QJsonObject state = sim.state(0);
    QCOMPARE(state.value("imported_md5").toString(), md5);
    QCOMPARE(state.value("imported_size").toInt(), file.size());
    const QJsonObject logged = sim.requests_of(0, 1540).at(0).toObject();
    QCOMPARE(logged.value("md5").toString(), md5);
    QCOMPARE(logged.value("session").toDouble(), double(session));
}

void test_devsim::default_config_resets_data()
{
    QTest::addColumn<QJsonObject>("sections");
    QTest::addColumn<bool>("net_reset");
    QTest::addColumn<bool>("location_reset");

    const auto sections = [](bool general, bool net_common) {
        QJsonObject o;
        for (const char* name :
            { "Encode", "Record", "NetServer", "Alarm", "CommPtz", "Account", "Preview", "CameraPARAM" })
            o.insert(name, false);
        o.insert("General", general);
        o.insert("NetCommon", net_common);
        return o;
    };
    QTest::newRow("NetCommon alone: factory address, location kept") << sections(false, true) << true << false;
    QTest::newRow("General alone: location reset, address kept") << sections(true, false) << false << true;
    QTest::newRow("nothing asked: nothing changes") << sections(false, false) << false << false;
}

void test_devsim::default_config_resets()
{
    QFETCH(QJsonObject, sections);
    QFETCH(bool, net_reset);
    QFETCH(bool, location_reset);

    devsim_harness sim;
    QVERIFY2(sim.start(1, { { "language", "Russian" } }), qPrintable(sim.error()));
    const QJsonObject before = sim.state(0);
    wire w;
    QVERIFY(w.open(sim.address(0), sim.port(0)));
    const quint32 session = w.login();
    reply r;
    QVERIFY(w.exchange(1450, json({ { "Name", "OPDefaultConfig" }, { "OPDefaultConfig", sections } }), r, session));
    QCOMPARE(r.id, quint16(1451));
    QCOMPARE(r.ret(), 100);

    const QJsonObject after = sim.state(0);
    const QJsonObject net = after.value("net").toObject();
    QCOMPARE(net.value("HostIP").toString() == QLatin1String("0x0A01A8C0"), net_reset);
    QCOMPARE(net == before.value("net").toObject(), !net_reset);
    QCOMPARE(net.value("MAC"), before.value("net").toObject().value("MAC"));
    QCOMPARE(
        after.value("language").toString(), location_reset ? QStringLiteral("English") : QStringLiteral("Russian"));
    QCOMPARE(after.value("resets").toInt(), 1);

    // It keeps listening on loopback whatever its record says.
    wire again;
    QVERIFY(again.open(sim.address(0), sim.port(0)));
    QVERIFY(again.login() != 0);
}

void test_devsim::reboot_drops_and_comes_back()
{
    const int reboot_ms = 1000;
    devsim_harness sim;
    QVERIFY2(sim.start(1, { { "reboot_ms", reboot_ms } }), qPrintable(sim.error()));
    const QHostAddress address = sim.address(0);
    const quint16 port = sim.port(0);
    wire w;
    QVERIFY(w.open(address, port));
    const quint32 session = w.login();
    reply r;
    QVERIFY(w.exchange(
        1450, json({ { "Name", "OPMachine" }, { "OPMachine", QJsonObject { { "Action", "Reboot" } } } }), r, session));
    QElapsedTimer down;
    down.start();
    QCOMPARE(r.id, quint16(1451));
    QCOMPARE(r.ret(), 100);
    QVERIFY(w.closed_within(2000));
    QVERIFY(!can_connect(address, port));
    QVERIFY(sim.state(0).value("rebooting").toBool());

    QTRY_VERIFY_WITH_TIMEOUT(can_connect(address, port), 5000);
    QVERIFY2(down.elapsed() >= reboot_ms - 150, qPrintable(QString::number(down.elapsed())));
    QCOMPARE(sim.state(0).value("boot_count").toInt(), 2);
    wire back;
    QVERIFY(back.open(address, port));
    QVERIFY(back.login() != 0);
}

void test_devsim::faults_data()
{
    QTest::addColumn<QJsonObject>("faults");
    QTest::addColumn<bool>("answered");
    QTest::addColumn<bool>("closed");
    QTest::addColumn<int>("ret");
    QTest::addColumn<int>("min_ms");

    QTest::newRow("silent: recorded, unanswered, still open")
        << QJsonObject { { "silent_at", QJsonArray { 1020 } } } << false << false << 0 << 0;
    QTest::newRow("close at: closed without an answer")
        << QJsonObject { { "close_at", QJsonArray { 1020 } } } << false << true << 0 << 0;
    QTest::newRow("close after: answered, then closed")
        << QJsonObject { { "close_after", QJsonArray { 1020 } } } << true << true << 100 << 0;
    QTest::newRow("wrong Ret replaces the answer's")
        << QJsonObject { { "wrong_ret", QJsonObject { { "1020", 607 } } } } << true << false << 607 << 0;
    QTest::newRow("delay for one message id")
        << QJsonObject { { "delay_at", QJsonObject { { "1020", 600 } } } } << true << false << 100 << 550;
    QTest::newRow("delay for every message") << QJsonObject { { "delay_ms", 400 } } << true << false << 100 << 350;
    QTest::newRow("faults of other ids leave it alone") << QJsonObject { { "silent_at", QJsonArray { 1042 } },
        { "close_at", QJsonArray { 1040 } }, { "wrong_ret", QJsonObject { { "1042", 203 } } } }
                                                        << true << false << 100 << 0;
}

void test_devsim::faults()
{
    QFETCH(QJsonObject, faults);
    QFETCH(bool, answered);
    QFETCH(bool, closed);
    QFETCH(int, ret);
    QFETCH(int, min_ms);

    devsim_harness sim;
    QVERIFY2(sim.start(1), qPrintable(sim.error()));
    wire w;
    QVERIFY(w.open(sim.address(0), sim.port(0)));
    const quint32 session = w.login();
    QVERIFY(session);
    QVERIFY2(sim.set_faults(0, faults), qPrintable(sim.error()));

    QElapsedTimer t;
    t.start();
    w.send(1020, json({ { "Name", "SystemInfo" } }), session);
    reply r;
    QCOMPARE(w.read(r, answered ? 3000 : 800), answered);
    if (answered) {
        QCOMPARE(r.id, quint16(1021));
        QCOMPARE(r.ret(), ret);
        QVERIFY2(t.elapsed() >= min_ms, qPrintable(QString::number(t.elapsed())));
    }
    QCOMPARE(sim.requests_of(0, 1020).size(), 1);
    QCOMPARE(w.closed_within(closed ? 2000 : 200), closed);
    if (!closed) {
        QVERIFY(sim.clear_faults(0));
        QVERIFY(w.exchange(1020, json({ { "Name", "SystemInfo" } }), r, session));
        QCOMPARE(r.ret(), 100);
    }
}

void test_devsim::login_faults_from_config_and_at_run_time()
{
    devsim_harness sim;
    QVERIFY2(sim.start(1, { { "faults", QJsonObject { { "refuse_login", true } } } }), qPrintable(sim.error()));
    const auto ret_of_login = [&sim] {
        wire w;
        reply r;
        if (!w.open(sim.address(0), sim.port(0)))
            return -1;
        const QJsonObject body { { "EncryptType", "MD5" }, { "LoginType", "DVRIP-Web" }, { "UserName", "admin" },
            { "PassWord", digest_empty } };
        return w.exchange(1000, json(body), r, 0) ? r.ret() : -1;
    };
    QCOMPARE(ret_of_login(), 203);
    QVERIFY(sim.clear_faults(0));
    QCOMPARE(ret_of_login(), 100);
    QVERIFY(sim.set_faults(0, { { "lock_user", true } }));
    QCOMPARE(ret_of_login(), 205);
    QVERIFY(sim.faults(0).value("lock_user").toBool());
}

void test_devsim::malformed_frame_drops_only_its_connection_data()
{
    QTest::addColumn<QByteArray>("bytes");

    QTest::newRow("head byte not 0xff") << header(1020, 2, 0, 0xFE) + "{}";
    QTest::newRow("version above 1") << header(1020, 2, 0, 0xFF, 2) + "{}";
    QTest::newRow("reserved byte set") << header(1020, 2, 0, 0xFF, 1, 1) + "{}";
    QTest::newRow("length beyond 32768") << header(1522, 40000);
    QTest::newRow("text instead of a frame") << QByteArray("GET / HTTP/1.0\r\n\r\n");
}

void test_devsim::malformed_frame_drops_only_its_connection()
{
    QFETCH(QByteArray, bytes);

    devsim_harness sim;
    QVERIFY2(sim.start(1), qPrintable(sim.error()));
    wire good;
    QVERIFY(good.open(sim.address(0), sim.port(0)));
    const quint32 session = good.login();

    wire bad;
    QVERIFY(bad.open(sim.address(0), sim.port(0)));
    bad.socket.write(bytes);
    QVERIFY(bad.closed_within(2000));

    reply r;
    QVERIFY(good.exchange(1020, json({ { "Name", "SystemInfo" } }), r, session));
    QCOMPARE(r.ret(), 100);
    wire fresh;
    QVERIFY(fresh.open(sim.address(0), sim.port(0)));
    QVERIFY(fresh.login() != 0);
    QCOMPARE(sim.state(0).value("malformed_frames").toInt(), 1);
    QVERIFY(sim.log().contains("malformed frame"));
}

void test_devsim::frames_split_and_joined_in_the_stream()
{
    devsim_harness sim;
    QVERIFY2(sim.start(1), qPrintable(sim.error()));
    wire w;
    QVERIFY(w.open(sim.address(0), sim.port(0)));
    const quint32 session = w.login();

    // Two requests in one write are answered in order.
    const QByteArray a = json({ { "Name", "NetWork.NetCommon" } });
    const QByteArray b = json({ { "Name", "General.Location" } });
    w.socket.write(header(1042, quint32(a.size()), session) + a + header(1042, quint32(b.size()), session) + b);
    reply r1, r2;
    QVERIFY(w.read(r1));
    QVERIFY(w.read(r2));
    QVERIFY(r1.body.contains("NetWork.NetCommon"));
    QVERIFY(r2.body.contains("General.Location"));

    // One request dribbled a few bytes at a time is still one request.
    const QByteArray body = json({ { "Name", "SystemInfo" } });
    const QByteArray whole = header(1020, quint32(body.size()), session) + body;
    for (int at = 0; at < whole.size(); at += 5) {
        w.socket.write(whole.mid(at, 5));
        QVERIFY(w.socket.waitForBytesWritten(1000));
    }
    reply r3;
    QVERIFY(w.read(r3));
    QCOMPARE(r3.id, quint16(1021));
    QCOMPARE(r3.ret(), 100);
    QCOMPARE(sim.requests_of(0, 1020).size(), 1);
}

void test_devsim::control_channel()
{
    devsim_harness sim;
    QVERIFY2(sim.start(2, {}, { QJsonObject { { "name", "front door" } } }), qPrintable(sim.error()));

    const QJsonObject list = sim.command({ { "cmd", "list" } });
    QCOMPARE(list.value("devices").toArray().size(), 2);
    QCOMPARE(list.value("devices").toArray().at(0).toObject().value("name").toString(), QStringLiteral("front door"));
    QCOMPARE(
        sim.command({ { "cmd", "get_state" }, { "device", "front door" } }).value("state").toObject().value("serial"),
        sim.state(0).value("serial"));
    QCOMPARE(sim.command({ { "cmd", "ping" }, { "tag", 7 } }).value("tag").toInt(), 7);

    // Refusals say why and change nothing.
    QVERIFY(!sim.command({ { "cmd", "dance" } }).value("ok").toBool());
    QVERIFY(!sim.command({ { "cmd", "get_state" }, { "device", 5 } }).value("ok").toBool());
    QVERIFY(!sim.command({ { "cmd", "get_state" }, { "device", "*" } }).value("ok").toBool());
    QVERIFY(!sim.set_state(0, { { "colour", "red" } }));
    QVERIFY(sim.error().contains("colour"));
    QVERIFY(!sim.set_state(0, { { "port", 1 } }));
    QVERIFY(!sim.set_faults(0, { { "silent_at", "soon" } }));
    QVERIFY(!sim.set_faults(0, { { "explode", true } }));
    QCOMPARE(sim.faults(0).value("silent_at").toArray().size(), 0);

    // State set through the channel is what the device then reports.
    QVERIFY(sim.set_state(0, { { "software_version", "V9.99" }, { "password", "admin" } }));
    wire w;
    QVERIFY(w.open(sim.address(0), sim.port(0)));
    QCOMPARE(w.login(digest_empty), 0u);
    const quint32 session = w.login(digest_admin);
    QVERIFY(session);
    reply r;
    QVERIFY(w.exchange(1020, json({ { "Name", "SystemInfo" } }), r, session));
    QCOMPARE(r.body.value("SystemInfo").toObject().value("SoftWareVersion").toString(), QStringLiteral("V9.99"));

    // The request log: id, header session, body; cleared on request.
    const QJsonArray log = sim.requests(0, true);
    QCOMPARE(log.size(), 3);
    QCOMPARE(log.at(0).toObject().value("id").toInt(), 1000);
    QVERIFY(log.at(1).toObject().value("body").toString().contains(digest_admin));
    QCOMPARE(log.at(2).toObject().value("session").toDouble(), double(session));
    QVERIFY(log.at(2).toObject().value("time_ms").toDouble() >= log.at(0).toObject().value("time_ms").toDouble());
    QCOMPARE(sim.requests(0).size(), 0);
    QCOMPARE(sim.requests(1).size(), 0);

    // "*" reaches every device.
    QVERIFY(sim.set_faults(devsim_harness::all, { { "delay_ms", 5 } }));
    QCOMPARE(sim.faults(1).value("delay_ms").toInt(), 5);
    QVERIFY(sim.clear_faults(devsim_harness::all));
    QCOMPARE(sim.faults(0).value("delay_ms").toInt(), 0);
}

void test_devsim::two_hundred_devices()
{
    const int count = 200;
    devsim_harness sim;
    QVERIFY2(sim.start(count, {}, {}, 20000), qPrintable(sim.error()));
    const QJsonArray list = sim.command({ { "cmd", "list" } }).value("devices").toArray();
    QCOMPARE(list.size(), count);

    QSet<quint32> sessions;
    QSet<QString> macs;
    QElapsedTimer t;
    t.start();
    for (const QJsonValue& v : list) {
        const QJsonObject d = v.toObject();
        QVERIFY(d.value("listening").toBool());
        wire w;
        QVERIFY2(w.open(QHostAddress(d.value("address").toString()), quint16(d.value("port").toInt())),
            qPrintable(d.value("address").toString()));
        sessions.insert(w.login());
        macs.insert(d.value("mac").toString());
    }
    QCOMPARE(sessions.size(), count);
    QVERIFY(!sessions.contains(0));
    QCOMPARE(macs.size(), count);
    QCOMPARE(sim.requests(count - 1).size(), 1);
    QVERIFY2(t.elapsed() < 20000, qPrintable(QString::number(t.elapsed())));
}

void test_devsim::ends_cleanly_data()
{
    QTest::addColumn<QString>("how");
    QTest::newRow("standard input closed") << "stdin";
    QTest::newRow("SIGTERM") << "sigterm";
    QTest::newRow("quit command") << "quit";
}

void test_devsim::ends_cleanly()
{
    QFETCH(QString, how);
    devsim_harness sim;
    QVERIFY2(sim.start(3), qPrintable(sim.error()));
    if (how == QLatin1String("stdin")) {
        QVERIFY(sim.stop());
        return;
    }
    if (how == QLatin1String("sigterm"))
        sim.process().terminate();
    else
        QVERIFY(sim.command({ { "cmd", "quit" } }).value("ok").toBool());
    QVERIFY(sim.process().waitForFinished(5000));
    QCOMPARE(sim.process().exitStatus(), QProcess::NormalExit);
    QCOMPARE(sim.process().exitCode(), 0);
}

QTEST_GUILESS_MAIN(test_devsim)
#include "test_devsim.moc"
