#include "diagnostics/blackbox.h"
#include "netip/dvr_networking.h"
#include "tests/support/devsim_harness.h"

#include <QElapsedTimer>
#include <QFile>
#include <QJsonArray>
#include <QTemporaryDir>
#include <QtTest>

#include <cstring>
#include <memory>

namespace
{

QJsonObject body_of(const QJsonObject& request)
{
    return QJsonDocument::fromJson(request.value("body").toString().toUtf8()).object();
}

} // namespace

class test_netip_client : public QObject
{
    Q_OBJECT
private slots:
    void init();
    void cleanup();

    void password_digest();
    void netcommon_reading_data();
    void netcommon_reading();
    void netcommon_writing_data();
    void netcommon_writing();
    void location_reading();

    void login_data();
    void login();
    void configuration_on_device();
    void reset_sends_one_member_per_bit();
    void unanswered_requests_data();
    void unanswered_requests();

private:
    int log_count(const QString& text) const;
    // A client logged in with the empty factory password to a fresh simulated device.
    std::unique_ptr<dvr_networking> logged_in_client(const QJsonObject& description = {});
    QJsonObject last_request(int message_id);

    std::unique_ptr<QTemporaryDir> m_dir;
    std::shared_ptr<blackbox> m_box;
    std::unique_ptr<devsim_harness> m_sim;
};

void test_netip_client::init()
{
    m_dir = std::make_unique<QTemporaryDir>();
    m_box = std::make_shared<blackbox>(m_dir->filePath(QStringLiteral("blackbox.log")));
    QVERIFY(m_box->open());
    blackbox::set_global(m_box);
    m_sim = std::make_unique<devsim_harness>();
}

void test_netip_client::cleanup()
{
    if (QTest::currentTestFailed())
        qWarning().noquote() << m_sim->error() << (m_sim->running() ? m_sim->log().right(3000) : QString());
    m_sim.reset();
    blackbox::set_global(nullptr);
    m_box.reset();
    m_dir.reset();
}

int test_netip_client::log_count(const QString& text) const
{
    QFile file(m_box->file_name());
    return file.open(QIODevice::ReadOnly) ? QString::fromUtf8(file.readAll()).split('\n').filter(text).size() : -1;
}

std::unique_ptr<dvr_networking> test_netip_client::logged_in_client(const QJsonObject& description)
{
    auto client = std::make_unique<dvr_networking>();
    if (!m_sim->start(1, description) || !client->connect_to(m_sim->address(0).toString(), m_sim->port(0))
        || !client->login(QStringLiteral("admin"), dvr_networking::encrypt_password(QString()))
        || client->session() == 0)
        return nullptr;
    return client;
}

QJsonObject test_netip_client::last_request(int message_id)
{
    const QJsonArray requests = m_sim->requests_of(0, message_id);
    return requests.isEmpty() ? QJsonObject() : requests.last().toObject();
}

void test_netip_client::password_digest()
{
    const QList<QPair<QString, QString>> known { { "", "tlJwpbo6" }, { "admin", "6QNMIQGe" },
        { QString::fromUtf8("пароль"), "iigYAvIp" }, { QString::fromUtf8("admin\0tail", 10), "6QNMIQGe" } };
    for (const auto& k : known)
        QCOMPARE(dvr_networking::encrypt_password(k.first), k.second);
}

void test_netip_client::netcommon_reading_data()
{
    QTest::addColumn<QByteArray>("text");
    QTest::addColumn<QList<qint64>>("fields"); // HostIP, GateWay, TransferPlan, MonMode, UseHSDownLoad
    QTest::addColumn<bool>("text_values");
    const QByteArray head = "{\"Name\":\"NetWork.NetCommon\",\"NetWork.NetCommon\":";
    QTest::newRow("addresses byte-reversed, prefix optional")
        << head + "{\"HostIP\":\"0X0A01A8C0\",\"GateWay\":\"101a8c0\"}}"
        << QList<qint64> { 0xC0A8010A, 0xC0A80101, 0, 0, 0 } << false;
    QTest::newRow("texts looked up, an integer flag is a bool")
        << head + "{\"TransferPlan\":\"Fluency\",\"MonMode\":\"UDP\",\"UseHSDownLoad\":5}}"
        << QList<qint64> { 0, 0, 2, 1, 1 } << true;
    QTest::newRow("an unknown text logs and reads 0") << head + "{\"TransferPlan\":\"nr\",\"HostIP\":\"0x0100000A\"}}"
                                                      << QList<qint64> { 0x0A000001, 0, 0, 0, 0 } << true;
    QTest::newRow("object without the member is refused")
        << QByteArray("{\"Name\":\"NetWork.NetCommon\",\"Ret\":100}") << QList<qint64>() << false;
}

void test_netip_client::netcommon_reading()
{
    QFETCH(QByteArray, text);
    QFETCH(QList<qint64>, fields);
    QFETCH(bool, text_values);
    SDK_CONFIG_NET_COMMON_V2 r;
    memset(&r, 0x5A, sizeof r);
    bool flag = !text_values; // overwritten unless refused
    QCOMPARE(dvr_networking::json_to_netcommon_v2(QString::fromUtf8(text), r, flag), !fields.isEmpty());
    QCOMPARE(r.TCPPort == 0x5A5A5A5A, fields.isEmpty()); // refused: untouched; read: zeroed first
    QCOMPARE(flag == text_values, !fields.isEmpty());
    if (!fields.isEmpty())
        QCOMPARE((QList<qint64> { r.HostIP, r.GateWay, r.TransferPlan, r.MonMode, r.UseHSDownLoad }), fields);
    QCOMPARE(log_count("error, Unknown TransferPlan value: nr"), text.contains("\"nr\"") ? 1 : 0);

    // A MAC text that fills its array is cut there, without a terminator.
    const QByteArray mac(40, 'm');
    QVERIFY(dvr_networking::json_to_netcommon_v2(R"({"NetWork.NetCommon":{"MAC":")" + mac + "\"}}", r, flag));
    QCOMPARE(QByteArray(r.MAC, int(sizeof r.MAC)), mac.left(int(sizeof r.MAC)));
}

void test_netip_client::netcommon_writing_data()
{
    QTest::addColumn<int>("transfer_plan");
    QTest::addColumn<int>("mon_mode");
    QTest::addColumn<QString>("texts"); // TransferPlan, MonMode
    QTest::newRow("first entries") << 0 << 0 << "AutoAdapt TCP";
    QTest::newRow("last entries") << 3 << 2 << "Transmission MCAST";
    QTest::newRow("past the tables: Quality and TCP") << 4 << 3 << "Quality TCP";
}

// Addresses byte-reversed in hexadecimal without padding, the connection limit under its member name.
void test_netip_client::netcommon_writing()
{
    QFETCH(int, transfer_plan);
    QFETCH(int, mon_mode);
    SDK_CONFIG_NET_COMMON_V2 r;
    memset(&r, 0, sizeof r);
    r.HostIP = 0xC0A8010A;
    r.Submask = 0xFFFFFF00;
    r.GateWay = 0x0A000001;
    r.MaxConn = 7;
    r.TransferPlan = transfer_plan;
    r.MonMode = mon_mode;
    QJsonObject o;
    QVERIFY(dvr_networking::netcommon_to_json(r, o));
    QCOMPARE(
        QStringList({ o.value("HostIP").toString(), o.value("Submask").toString(), o.value("GateWay").toString() }),
        QStringList({ "a01a8c0", "ffffff", "100000a" }));
    QCOMPARE(o.value("TCPMaxConn").toInt(), 7);
    QTEST(o.value("TransferPlan").toString() + ' ' + o.value("MonMode").toString(), "texts");
}

// Absent date members take their defaults; a text outside a list reads -1.
void test_netip_client::location_reading()
{
    location_config r;
    QVERIFY(dvr_networking::json_to_location(
        R"({"General.Location":{"DSTStart":{"Year":2024,"Minute":30},"Language":"Klingon","VideoFormat":"SECAM"}})",
        r));
    const auto& s = r.dst_start;
    QCOMPARE((QList<int> { s.year, s.month, s.week, s.day, s.hour, s.minute }), (QList<int> { 2024, 1, 0, 1, 1, 30 }));
    QCOMPARE(r.dst_end.year, 0);
    QCOMPARE((QList<int> { r.language, r.video_format, r.date_format }), (QList<int> { -1, 2, 0 }));
    QVERIFY(!dvr_networking::json_to_location(R"({"General.Locations":{}})", r));
}

void test_netip_client::login_data()
{
    QTest::addColumn<QString>("password");
    QTest::addColumn<QJsonObject>("faults");
    QTest::addColumn<int>("ret"); // -1: left alone
    QTest::addColumn<int>("attempts");
    QTest::newRow("right password") << "secret" << QJsonObject() << -1 << 1;
    // Each attempt reads on after the refusal until the device falls silent (about five seconds).
    QTest::newRow("refused: three attempts, still true") << "wrong" << QJsonObject() << 203 << 3;
}

void test_netip_client::login()
{
    QFETCH(QString, password);
    QFETCH(QJsonObject, faults);
    QFETCH(int, ret);
    QFETCH(int, attempts);
    QVERIFY(m_sim->start(1, { { "password", "secret" } }));
    QVERIFY(m_sim->set_faults(0, faults));
    dvr_networking client;
    QVERIFY(client.connect_to(m_sim->address(0).toString(), m_sim->port(0)));
    uint16_t status = 0xBEEF;
    QVERIFY(client.login(QStringLiteral("admin"), dvr_networking::encrypt_password(password), &status));
    QCOMPARE(int(status), ret < 0 ? 0xBEEF : ret);
    QCOMPARE(client.session() != 0, ret < 0);

    const QJsonArray requests = m_sim->requests_of(0, 1000);
    QCOMPARE(requests.size(), attempts);
    for (const QJsonValue& r : requests) {
        QCOMPARE(r.toObject().value("session").toDouble(), 0.0);
        QCOMPARE(r.toObject().value("body"), requests.first().toObject().value("body"));
    }
    for (int i = 1; i <= 3; ++i)
        QCOMPARE(log_count(QStringLiteral("error, Iteration %1 failed: excode=3").arg(i)), attempts > 1 ? 1 : 0);
    QCOMPARE(log_count("Unexpected response code: Incorrect password"), ret == 203 ? 3 : 0);
}

void test_netip_client::configuration_on_device()
{
    const auto client = logged_in_client(
        { { "mac", "00:12:41:aa:bb:cc" }, { "serial", "5f3a0c1b2d4e6f70" }, { "hardware", "HI3516EV300_85H50AI" },
            { "build_time", "2021-09-13" }, { "language", "Russian" }, { "reboot_ms", 300 } });
    QVERIFY(client);
    QString serial, hardware, version, build;
    QVERIFY(client->system_info(serial, hardware, version, build));
    QCOMPARE(QStringList({ serial, hardware, build }),
        QStringList({ "5f3a0c1b2d4e6f70", "HI3516EV300_85H50AI", "2021-09-13" }));
    QCOMPARE(last_request(1020).value("body").toString(), QStringLiteral("{\"Name\":\"SystemInfo\"}"));
    QCOMPARE(quint32(last_request(1020).value("session").toDouble()), client->session());

    SDK_CONFIG_NET_COMMON_V2 net;
    QVERIFY(client->get_net_common(net));
    QCOMPARE(QByteArray(net.MAC), QByteArray("00:12:41:aa:bb:cc"));
    QCOMPARE(net.HostIP, m_sim->address(0).toIPv4Address());
    net.HostIP = 0xC0A8017B;
    QVERIFY(client->set_net_common(net));
    const QJsonObject sent = body_of(last_request(1040));
    QCOMPARE(sent.value("Name").toString(), QStringLiteral("NetWork.NetCommon"));
    QCOMPARE(sent.value("NetWork.NetCommon").toObject().value("HostIP").toString(), QStringLiteral("7b01a8c0"));
    QCOMPARE(
        m_sim->state(0).value("net").toObject().value("HostIP").toString().toLower(), QStringLiteral("0x7b01a8c0"));

    location_config location;
    QVERIFY(client->get_location(location));
    QCOMPARE(location.language, 6);
    location.language = 7;
    QVERIFY(client->set_location(location));
    QCOMPARE(m_sim->state(0).value("language").toString(), QStringLiteral("French"));

    QVERIFY(client->set_dhcp(true));
    QCOMPARE(last_request(1040).value("body").toString(), QStringLiteral("{\"Name\":\"NetWork.DHCP\"}"));
    QVERIFY(m_sim->state(0).value("dhcp_config").isNull());

    // A configuration file of at most 32768 bytes; the device's 603 is success.
    const QString path = m_dir->filePath(QStringLiteral("config.bin"));
    QFile file(path);
    QVERIFY(file.open(QIODevice::WriteOnly) && file.write(QByteArray(32768, 'c')) == 32768 && file.flush());
    QVERIFY(client->import_configuration(path));
    QCOMPARE(m_sim->state(0).value("imported_size").toInt(), 32768);
    QCOMPARE(last_request(1540).value("md5").toString(),
        QString::fromLatin1(QCryptographicHash::hash(QByteArray(32768, 'c'), QCryptographicHash::Md5).toHex()));
    QVERIFY(file.write("c") == 1 && file.flush());
    QVERIFY(!client->import_configuration(path));
    QCOMPARE(log_count("error, ERROR: Could not assign the data"), 1);
    QCOMPARE(m_sim->state(0).value("imports").toInt(), 1);

    QVERIFY(client->reboot());
    QCOMPARE(last_request(1450).value("body").toString(),
        QStringLiteral("{\"Name\":\"OPMachine\",\"OPMachine\":{\"Action\":\"Reboot\"}}"));
    QTRY_COMPARE_WITH_TIMEOUT(m_sim->state(0).value("boot_count").toInt(), 2, 5000);
}

void test_netip_client::reset_sends_one_member_per_bit()
{
    const QStringList members { "General", "Encode", "Record", "NetServer", "NetCommon", "Alarm", "CommPtz", "Account",
        "Preview", "CameraPARAM" };
    const auto client = logged_in_client();
    QVERIFY(client);
    for (int bit = -1; bit < members.size(); ++bit) { // -1: no bit at all
        QVERIFY(client->reset_configuration(bit < 0 ? 0 : 1 << bit));
        const QJsonObject sent = body_of(last_request(1450)).value("OPDefaultConfig").toObject();
        QCOMPARE(sent.size(), 10);
        for (const QString& name : members)
            QVERIFY2(sent.value(name) == QJsonValue(bit >= 0 && name == members.at(bit)), qPrintable(name));
    }
    QCOMPARE(m_sim->state(0).value("resets").toInt(), 11);
}

void test_netip_client::unanswered_requests_data()
{
    QTest::addColumn<QString>("operation");
    QTest::addColumn<QJsonObject>("faults");
    QTest::addColumn<bool>("ok");
    QTest::addColumn<int>("min_ms");
    QTest::addColumn<int>("max_ms");
    QTest::addColumn<QStringList>("logged"); // "!text": never logged

    QTest::newRow("silent device: no first reply bytes within 15 s")
        << "system_info" << QJsonObject { { "silent_at", 1020 } } << false << 14500 << 20000
        << QStringList { "error, No reply", "error, Is open: y, is readable: y, bytes available: 0", "error, ES: \"",
               "!Socket reading failed" };
    QTest::newRow("reset answered by silence within 1 s counts as done")
        << "reset" << QJsonObject { { "silent_at", 1450 } } << true << 900 << 4000 << QStringList { "error, No reply" };
    QTest::newRow("dropped connection fails at once")
        << "system_info" << QJsonObject { { "close_at", 1020 } } << false << 0 << 3000
        << QStringList { "error, No reply", "error, Is open: ", "!Socket reading failed" };
}

void test_netip_client::unanswered_requests()
{
    QFETCH(QString, operation);
    QFETCH(QJsonObject, faults);
    QFETCH(bool, ok);
    QFETCH(int, min_ms);
    QFETCH(int, max_ms);
    QFETCH(QStringList, logged);
    const auto client = logged_in_client();
    QVERIFY(client);
    QVERIFY(m_sim->set_faults(0, faults));

    QElapsedTimer timer;
    timer.start();
    QString a, b, c, d;
    const bool result = operation == "reset" ? client->reset_configuration(16) : client->system_info(a, b, c, d);
    const qint64 elapsed = timer.elapsed();
    QCOMPARE(result, ok);
    QVERIFY2(elapsed >= min_ms && elapsed <= max_ms, qPrintable(QStringLiteral("%1 ms").arg(elapsed)));
    for (const QString& text : logged) {
        const bool absent = text.startsWith('!');
        QVERIFY2((log_count(absent ? text.mid(1) : text) == 0) == absent, qPrintable(text));
    }
}

QTEST_GUILESS_MAIN(test_netip_client)
#include "test_netip_client.moc"
