#include "tests/support/devsim_harness.h"
#include "tests/support/netip_wire.h"

#include <QElapsedTimer>
#include <QRegularExpression>
#include <QtTest>

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

QTEST_GUILESS_MAIN(test_devsim)
#include "test_devsim.moc"
