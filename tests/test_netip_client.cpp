#include "diagnostics/blackbox.h"
#include "netip/dvr_networking.h"
#include "tests/support/devsim_harness.h"

#include <QElapsedTimer>
#include <QFile>
#include <QJsonArray>
#include <QMutex>
#include <QTcpServer>
#include <QTcpSocket>
#include <QTemporaryDir>
#include <QThread>
#include <QtEndian>
#include <QtTest>

#include <cstring>
#include <functional>
#include <memory>

namespace {

// A scripted NETIP peer on its own thread, for what the device simulator can't be made to do.
// It takes one connection, reads whole frames and answers each with the frames the script
// gives for it (none: silence).
class fake_device final : public QThread
{
public:
    struct request
    {
        uint16_t message_id = 0;
        uint32_t session = 0;
        QByteArray body;
    };
    using script = std::function<QList<QByteArray>(const request&)>;

    explicit fake_device(script answers)
        : m_answers(std::move(answers))
    {
        m_server.listen(QHostAddress::LocalHost, 0);
        m_port = m_server.serverPort();
        m_server.moveToThread(this);
    }
    ~fake_device() override
    {
        requestInterruption();
        wait(10000);
    }

    uint16_t port() const { return m_port; }
    QList<request> received() const
    {
        QMutexLocker lock(&m_mutex);
        return m_received;
    }

    // A device frame: header, the JSON body and the terminator byte devices send.
    static QByteArray frame(uint16_t message_id, const QByteArray& json, uint32_t session = 0)
    {
        const QByteArray body = json + '\0';
        QByteArray out(20, '\0');
        out[0] = char(0xFF);
        out[1] = 1;
        qToLittleEndian<quint32>(session, out.data() + 4);
        qToLittleEndian<quint16>(message_id, out.data() + 14);
        qToLittleEndian<quint32>(quint32(body.size()), out.data() + 16);
        return out + body;
    }

protected:
    void run() override
    {
        if (!m_server.waitForNewConnection(5000))
            return;
        std::unique_ptr<QTcpSocket> socket(m_server.nextPendingConnection());
        QByteArray pending;
        // Bounded: a minute at most, whatever the client does.
        for (int round = 0; round < 6000 && !isInterruptionRequested(); ++round) {
            if (socket->state() != QAbstractSocket::ConnectedState)
                break;
            socket->waitForReadyRead(10);
            pending += socket->readAll();
            while (pending.size() >= 20) {
                const uint32_t length = qFromLittleEndian<quint32>(pending.constData() + 16);
                if (uint32_t(pending.size()) < 20 + length)
                    break;
                request r;
                r.session = qFromLittleEndian<quint32>(pending.constData() + 4);
                r.message_id = qFromLittleEndian<quint16>(pending.constData() + 14);
                r.body = pending.mid(20, int(length));
                pending.remove(0, int(20 + length));
                {
                    QMutexLocker lock(&m_mutex);
                    m_received << r;
                }
                for (const QByteArray& f : m_answers(r))
                    socket->write(f);
                socket->waitForBytesWritten(1000);
            }
        }
    }

private:
    QTcpServer m_server;
    uint16_t m_port = 0;
    script m_answers;
    mutable QMutex m_mutex; // guards m_received
    QList<request> m_received;
};

QString net_common(const QByteArray& inner)
{
    return QString::fromUtf8("{\"Name\":\"NetWork.NetCommon\",\"NetWork.NetCommon\":{" + inner + "}}");
}

qint64 field_value(const SDK_CONFIG_NET_COMMON_V2& r, const QString& name)
{
    static const QHash<QString, std::function<qint64(const SDK_CONFIG_NET_COMMON_V2&)>> fields {
        { "HostIP", [](const auto& r) { return qint64(r.HostIP); } },
        { "Submask", [](const auto& r) { return qint64(r.Submask); } },
        { "GateWay", [](const auto& r) { return qint64(r.GateWay); } },
        { "TransferPlan", [](const auto& r) { return qint64(r.TransferPlan); } },
        { "MonMode", [](const auto& r) { return qint64(r.MonMode); } },
        { "UseHSDownLoad", [](const auto& r) { return qint64(r.UseHSDownLoad); } },
        { "MaxConn", [](const auto& r) { return qint64(r.MaxConn); } },
        { "TCPPort", [](const auto& r) { return qint64(r.TCPPort); } },
        { "HttpPort", [](const auto& r) { return qint64(r.HttpPort); } },
    };
    return fields.value(name)(r);
}

SDK_CONFIG_NET_COMMON_V2 sample_record()
{
    SDK_CONFIG_NET_COMMON_V2 r;
    memset(&r, 0, sizeof r);
    strcpy(r.HostName, "cam-7");
    r.HostIP = 0xC0A8017B;
    r.Submask = 0xFFFFFF00;
    r.GateWay = 0xC0A80101;
    r.HttpPort = 80;
    r.TCPPort = 34567;
    r.SSLPort = 8443;
    r.UDPPort = 34568;
    r.MaxConn = 10;
    r.MonMode = 1;
    r.MaxBps = 0;
    r.TransferPlan = 2;
    r.UseHSDownLoad = true;
    strcpy(r.MAC, "00:12:41:aa:bb:cc");
    return r;
}

} // namespace

class test_netip_client : public QObject
{
    Q_OBJECT
private slots:
    void init();
    void cleanup();

    void password_digest_data();
    void password_digest();
    void netcommon_reading_data();
    void netcommon_reading();
    void netcommon_refused_data();
    void netcommon_refused();
    void texts_fill_arrays_data();
    void texts_fill_arrays();
    void v3_reads_credentials_from_the_same_object();
    void netcommon_writing_data();
    void netcommon_writing();
    void netcommon_round_trip();
    void netcommon_writing_refuses_broken_text();
    void location_reading_data();
    void location_reading();
    void location_writing_data();
    void location_writing();

    void progress_message_is_skipped_while_waiting();
    void session_taken_once_from_first_accepted_reply();
    void unconnected_client_fails_to_write();

    void login_data();
    void login();
    void system_info_from_device();
    void net_common_read_and_written();
    void location_read_and_written();
    void reboot_is_answered();
    void reset_sends_all_ten_sections_data();
    void reset_sends_all_ten_sections();
    void dhcp_goes_out_as_the_name_alone();
    void import_configuration_data();
    void import_configuration();
    void unanswered_requests_data();
    void unanswered_requests();

private:
    QStringList log_lines() const;
    int log_count(const QString& text) const { return log_lines().filter(text).size(); }
    // One simulated device with `description` overlaid on the simulator's defaults.
    bool start_device(const QJsonObject& description = {});
    // A client connected to the device and logged in with its empty factory password.
    std::unique_ptr<dvr_networking> logged_in_client();
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
}

void test_netip_client::cleanup()
{
    if (m_sim && QTest::currentTestFailed())
        qWarning().noquote() << m_sim->log().right(3000);
    m_sim.reset();
    blackbox::set_global(nullptr);
    m_box.reset();
    m_dir.reset();
}

QStringList test_netip_client::log_lines() const
{
    QFile file(m_box->file_name());
    if (!file.open(QIODevice::ReadOnly))
        return {};
    return QString::fromUtf8(file.readAll()).split('\n', Qt::SkipEmptyParts);
}

bool test_netip_client::start_device(const QJsonObject& description)
{
    m_sim = std::make_unique<devsim_harness>();
    if (m_sim->start(1, description))
        return true;
    qWarning().noquote() << m_sim->error() << m_sim->log();
    return false;
}

std::unique_ptr<dvr_networking> test_netip_client::logged_in_client()
{
    auto client = std::make_unique<dvr_networking>();
    uint16_t ret = 0;
    if (!client->connect_to(m_sim->address(0).toString(), m_sim->port(0))
        || !client->login(QStringLiteral("admin"), dvr_networking::encrypt_password(QString()), &ret)
        || client->session() == 0)
        return nullptr;
    return client;
}

QJsonObject test_netip_client::last_request(int message_id)
{
    const QJsonArray requests = m_sim->requests_of(0, message_id);
    return requests.isEmpty() ? QJsonObject() : requests.last().toObject();
}

void test_netip_client::password_digest_data()
{
    QTest::addColumn<QString>("plain");
    QTest::addColumn<QString>("hash");
    QTest::newRow("empty password") << ""
                                    << "tlJwpbo6";
    QTest::newRow("admin") << "admin"
                           << "6QNMIQGe";
    QTest::newRow("factory password") << "kestr"
                                      << "x541O2xz";
    QTest::newRow("non-ASCII hashed as UTF-8") << QString::fromUtf8("пароль") << "iigYAvIp";
    QTest::newRow("nothing counts past a NUL") << QString::fromUtf8("admin\0tail", 10) << "6QNMIQGe";
}

void test_netip_client::password_digest()
{
    QFETCH(QString, plain);
    QFETCH(QString, hash);
    QCOMPARE(dvr_networking::encrypt_password(plain), hash);
}

void test_netip_client::netcommon_reading_data()
{
    QTest::addColumn<QByteArray>("inner");
    QTest::addColumn<QString>("field");
    QTest::addColumn<qint64>("value");
    QTest::addColumn<bool>("text_values_before");
    QTest::addColumn<bool>("text_values");
    QTest::addColumn<QString>("log");

    QTest::newRow("0x-prefixed address is byte-reversed")
        << QByteArray("\"HostIP\":\"0x0A01A8C0\"") << "HostIP" << qint64(0xC0A8010A) << false << false << "";
    QTest::newRow("unprefixed address") << QByteArray("\"GateWay\":\"101a8c0\"") << "GateWay" << qint64(0xC0A80101)
                                        << false << false << "";
    QTest::newRow("upper-case prefix") << QByteArray("\"Submask\":\"0X00FFFFFF\"") << "Submask" << qint64(0xFFFFFF00)
                                       << false << false << "";
    QTest::newRow("absent address is 0") << QByteArray("\"TCPPort\":1") << "HostIP" << qint64(0) << false << false
                                         << "";
    QTest::newRow("address that isn't hex is 0")
        << QByteArray("\"HostIP\":\"192.168.1.1\"") << "HostIP" << qint64(0) << false << false << "";
    QTest::newRow("TransferPlan number taken as it is")
        << QByteArray("\"TransferPlan\":3") << "TransferPlan" << qint64(3) << true << false << "";
    QTest::newRow("TransferPlan text looked up")
        << QByteArray("\"TransferPlan\":\"Fluency\"") << "TransferPlan" << qint64(2) << false << true << "";
    QTest::newRow("unknown TransferPlan text leaves 0")
        << QByteArray("\"TransferPlan\":\"nr\"") << "TransferPlan" << qint64(0) << false << true
        << "error, Unknown TransferPlan value: nr";
    QTest::newRow("absent TransferPlan clears text_values")
        << QByteArray("\"MonMode\":2") << "MonMode" << qint64(2) << true << false << "";
    QTest::newRow("MonMode text sets text_values")
        << QByteArray("\"TransferPlan\":1,\"MonMode\":\"UDP\"") << "MonMode" << qint64(1) << false << true << "";
    QTest::newRow("unknown MonMode text leaves 0") << QByteArray("\"TransferPlan\":1,\"MonMode\":\"IPX\"") << "MonMode"
                                                   << qint64(0) << false << true << "error, Unknown MonMode value: IPX";
    QTest::newRow("UseHSDownLoad as bool")
        << QByteArray("\"UseHSDownLoad\":true") << "UseHSDownLoad" << qint64(1) << false << false << "";
    QTest::newRow("UseHSDownLoad as integer")
        << QByteArray("\"UseHSDownLoad\":5") << "UseHSDownLoad" << qint64(1) << false << false << "";
    QTest::newRow("UseHSDownLoad 0") << QByteArray("\"UseHSDownLoad\":0") << "UseHSDownLoad" << qint64(0) << false
                                     << false << "";
    QTest::newRow("TCPMaxConn fills MaxConn")
        << QByteArray("\"TCPMaxConn\":24") << "MaxConn" << qint64(24) << false << false << "";
    QTest::newRow("port as text reads 0")
        << QByteArray("\"HttpPort\":\"80\"") << "HttpPort" << qint64(0) << false << false << "";
}

void test_netip_client::netcommon_reading()
{
    QFETCH(QByteArray, inner);
    QFETCH(QString, field);
    QFETCH(qint64, value);
    QFETCH(bool, text_values_before);
    QFETCH(bool, text_values);
    QFETCH(QString, log);

    SDK_CONFIG_NET_COMMON_V2 record;
    memset(&record, 0x5A, sizeof record);
    bool flag = text_values_before;
    QVERIFY(dvr_networking::json_to_netcommon_v2(net_common(inner), record, flag));
    QCOMPARE(field_value(record, field), value);
    QCOMPARE(flag, text_values);
    // The record was zeroed first: nothing of the old contents survives.
    QCOMPARE(record.reserved[0], '\0');
    QCOMPARE(record.SSLPort, 0);
    if (!log.isEmpty())
        QCOMPARE(log_count(log), 1);
    QCOMPARE(log_count(QStringLiteral("Unknown")), log.isEmpty() ? 0 : 1);
}

void test_netip_client::netcommon_refused_data()
{
    QTest::addColumn<QString>("text");
    QTest::newRow("empty text") << "";
    QTest::newRow("not JSON") << "NetWork.NetCommon";
    QTest::newRow("array") << "[{\"NetWork.NetCommon\":{}}]";
    QTest::newRow("object without the member") << "{\"Name\":\"NetWork.NetCommon\",\"Ret\":100}";
}

void test_netip_client::netcommon_refused()
{
    QFETCH(QString, text);
    SDK_CONFIG_NET_COMMON_V2 v2;
    memset(&v2, 0x11, sizeof v2);
    SDK_CONFIG_NET_COMMON_V3 v3;
    bool flag = true;
    QVERIFY(!dvr_networking::json_to_netcommon_v2(text, v2, flag));
    QVERIFY(!dvr_networking::json_to_netcommon_v3(text, v3, flag));
    QCOMPARE(v2.TCPPort, 0x11111111);
    QVERIFY(flag);
}

void test_netip_client::texts_fill_arrays_data()
{
    QTest::addColumn<QString>("member");
    QTest::addColumn<QString>("value");
    QTest::addColumn<QByteArray>("expected");

    const QString mac32 = QStringLiteral("00:12:41:aa:bb:cc-0123456789abcd");
    QTest::newRow("MAC of 32 characters has no terminator") << "MAC" << mac32 << mac32.toLatin1();
    QTest::newRow("longer MAC is cut at 32") << "MAC" << mac32 + "XYZ" << mac32.toLatin1();
    QTest::newRow("short MAC is terminated")
        << "MAC"
        << "00:12:41:aa:bb:cc" << QByteArray("00:12:41:aa:bb:cc").leftJustified(32, '\0');
    QTest::newRow("HostName cut at 64") << "HostName" << QString(70, 'h') << QByteArray(64, 'h');
    QTest::newRow("SN cut at 32") << "SN" << QString(40, '7') << QByteArray(32, '7');
    QTest::newRow("HostName in UTF-8") << "HostName" << QString::fromUtf8("камера")
                                       << QString::fromUtf8("камера").toUtf8().leftJustified(64, '\0');
}

void test_netip_client::texts_fill_arrays()
{
    QFETCH(QString, member);
    QFETCH(QString, value);
    QFETCH(QByteArray, expected);

    const QJsonObject inner { { member, value }, { QStringLiteral("TransferPlan"), 0 } };
    const QJsonObject outer { { QStringLiteral("NetWork.NetCommon"), inner } };
    SDK_CONFIG_NET_COMMON_V2 record;
    bool flag = false;
    QVERIFY(dvr_networking::json_to_netcommon_v2(QString::fromUtf8(QJsonDocument(outer).toJson()), record, flag));
    const char* field = member == "MAC" ? record.MAC : member == "SN" ? record.SN : record.HostName;
    QCOMPARE(QByteArray(field, expected.size()), expected);
    // The array that follows is untouched by an overlong value.
    if (member == "MAC")
        QCOMPARE(record.SN[0], '\0');
}

void test_netip_client::v3_reads_credentials_from_the_same_object()
{
    const QString text = QStringLiteral("{\"NetWork.NetCommon\":{\"HostIP\":\"0x0A01A8C0\",\"TCPPort\":34567,"
                                        "\"Username\":\"operator\",\"Password\":\"6QNMIQGe\",\"SN\":\"abc\"}}");
    SDK_CONFIG_NET_COMMON_V3 v3;
    memset(&v3, 0x33, sizeof v3);
    bool flag = true;
    QVERIFY(dvr_networking::json_to_netcommon_v3(text, v3, flag));
    QCOMPARE(QByteArray(v3.Username), QByteArray("operator"));
    QCOMPARE(QByteArray(v3.Password), QByteArray("6QNMIQGe"));
    QCOMPARE(v3.HostIP, 0xC0A8010Au);
    QCOMPARE(v3.TCPPort, 34567);
    QCOMPARE(v3.flags, 0);
    QVERIFY(!flag);

    SDK_CONFIG_NET_COMMON_V2 v2;
    QVERIFY(dvr_networking::json_to_netcommon_v2(text, v2, flag));
    QCOMPARE(QByteArray(v2.SN), QByteArray("abc"));
}

void test_netip_client::netcommon_writing_data()
{
    QTest::addColumn<QString>("change");
    QTest::addColumn<QString>("member");
    QTest::addColumn<QJsonValue>("expected");

    QTest::newRow("address is reversed lower-case hex") << ""
                                                        << "HostIP" << QJsonValue("7b01a8c0");
    QTest::newRow("address is unpadded") << "ip10"
                                         << "HostIP" << QJsonValue("a01a8c0");
    QTest::newRow("mask") << ""
                          << "Submask" << QJsonValue("ffffff");
    QTest::newRow("gateway") << ""
                             << "GateWay" << QJsonValue("101a8c0");
    QTest::newRow("TransferPlan as text") << ""
                                          << "TransferPlan" << QJsonValue("Fluency");
    QTest::newRow("TransferPlan outside the table writes Quality") << "plan7"
                                                                   << "TransferPlan" << QJsonValue("Quality");
    QTest::newRow("negative TransferPlan writes Quality") << "plan-1"
                                                          << "TransferPlan" << QJsonValue("Quality");
    QTest::newRow("MonMode as text") << ""
                                     << "MonMode" << QJsonValue("UDP");
    QTest::newRow("MonMode 3 writes TCP") << "mode3"
                                          << "MonMode" << QJsonValue("TCP");
    QTest::newRow("MaxConn goes out as TCPMaxConn") << ""
                                                    << "TCPMaxConn" << QJsonValue(10);
    QTest::newRow("bool stays bool") << ""
                                     << "UseHSDownLoad" << QJsonValue(true);
    QTest::newRow("MAC as text") << ""
                                 << "MAC" << QJsonValue("00:12:41:aa:bb:cc");
    QTest::newRow("full-length host name without terminator") << "name64"
                                                              << "HostName" << QJsonValue(QString(64, 'n'));
}

void test_netip_client::netcommon_writing()
{
    QFETCH(QString, change);
    QFETCH(QString, member);
    QFETCH(QJsonValue, expected);

    SDK_CONFIG_NET_COMMON_V2 r = sample_record();
    if (change == "ip10")
        r.HostIP = 0xC0A8010A;
    else if (change == "plan7")
        r.TransferPlan = 7;
    else if (change == "plan-1")
        r.TransferPlan = -1;
    else if (change == "mode3")
        r.MonMode = 3;
    else if (change == "name64")
        memset(r.HostName, 'n', sizeof r.HostName);

    QJsonObject object;
    QVERIFY(dvr_networking::netcommon_to_json(r, object));
    QCOMPARE(object.value(member), expected);
    QCOMPARE(object.size(), 14);
    QVERIFY(!object.contains(QStringLiteral("SN")));
}

void test_netip_client::netcommon_round_trip()
{
    const SDK_CONFIG_NET_COMMON_V2 original = sample_record();
    QJsonObject object;
    QVERIFY(dvr_networking::netcommon_to_json(original, object));
    const QJsonObject outer { { QStringLiteral("NetWork.NetCommon"), object } };
    SDK_CONFIG_NET_COMMON_V2 back;
    bool flag = false;
    QVERIFY(dvr_networking::json_to_netcommon_v2(QString::fromUtf8(QJsonDocument(outer).toJson()), back, flag));
    QVERIFY(flag);
    QCOMPARE(QByteArray(reinterpret_cast<const char*>(&back), sizeof back).toHex(),
        QByteArray(reinterpret_cast<const char*>(&original), sizeof original).toHex());
}

void test_netip_client::netcommon_writing_refuses_broken_text()
{
    SDK_CONFIG_NET_COMMON_V2 r = sample_record();
    strcpy(r.HostName, "cam\xC3");
    QJsonObject object;
    QVERIFY(!dvr_networking::netcommon_to_json(r, object));
    r = sample_record();
    r.MAC[3] = char(0xFF);
    QVERIFY(!dvr_networking::netcommon_to_json(r, object));
}

void test_netip_client::location_reading_data()
{
    QTest::addColumn<QByteArray>("inner");
    QTest::addColumn<QList<int>>("lists"); // date format, separator, language, time format, video format
    QTest::addColumn<QList<int>>("dst_start");
    QTest::addColumn<int>("work_day");

    QTest::newRow("every list member known")
        << QByteArray("\"DateFormat\":\"DDMMYY\",\"DateSeparator\":\"/\",\"Language\":\"Russian\","
                      "\"TimeFormat\":\"24\",\"VideoFormat\":\"NTSC\",\"WorkDay\":62")
        << QList<int> { 2, 2, 6, 1, 1 } << QList<int> { 0, 0, 0, 0, 0, 0 } << 62;
    QTest::newRow("absent members are 0")
        << QByteArray("") << QList<int> { 0, 0, 0, 0, 0 } << QList<int> { 0, 0, 0, 0, 0, 0 } << 0;
    QTest::newRow("texts outside the lists are -1")
        << QByteArray("\"DateFormat\":\"YYYY\",\"Language\":\"Klingon\",\"VideoFormat\":1")
        << QList<int> { -1, 0, -1, 0, -1 } << QList<int> { 0, 0, 0, 0, 0, 0 } << 0;
    QTest::newRow("DST members take their defaults")
        << QByteArray("\"DSTStart\":{\"Month\":3,\"Week\":5}") << QList<int> { 0, 0, 0, 0, 0 }
        << QList<int> { 2000, 3, 5, 1, 1, 1 } << 0;
    QTest::newRow("DST given whole") << QByteArray("\"DSTStart\":{\"Year\":2024,\"Month\":10,\"Week\":-1,"
                                                   "\"Day\":27,\"Hour\":3,\"Minute\":0}")
                                     << QList<int> { 0, 0, 0, 0, 0 } << QList<int> { 2024, 10, -1, 27, 3, 0 } << 0;
}

void test_netip_client::location_reading()
{
    QFETCH(QByteArray, inner);
    QFETCH(QList<int>, lists);
    QFETCH(QList<int>, dst_start);
    QFETCH(int, work_day);

    location_config record;
    record.work_day = 99;
    record.dst_end.year = 1999;
    const QString text = QString::fromUtf8("{\"Name\":\"General.Location\",\"General.Location\":{" + inner + "}}");
    QVERIFY(dvr_networking::json_to_location(text, record));
    QCOMPARE((QList<int> {
                 record.date_format, record.date_separator, record.language, record.time_format, record.video_format }),
        lists);
    const auto& d = record.dst_start;
    QCOMPARE((QList<int> { d.year, d.month, d.week, d.day, d.hour, d.minute }), dst_start);
    QCOMPARE(record.work_day, work_day);
    QCOMPARE(record.dst_end.year, 0);

    QVERIFY(!dvr_networking::json_to_location(QStringLiteral("{\"General\":{}}"), record));
    QVERIFY(!dvr_networking::json_to_location(QStringLiteral("General.Location"), record));
}

void test_netip_client::location_writing_data()
{
    QTest::addColumn<int>("index");
    QTest::addColumn<QString>("language");
    QTest::addColumn<QString>("video_format");
    QTest::newRow("listed index") << 6 << "Russian"
                                  << "SECAM";
    QTest::newRow("first entry") << 0 << "English"
                                 << "PAL";
    QTest::newRow("unknown text read as -1 writes the first entry") << -1 << "English"
                                                                    << "PAL";
    QTest::newRow("index past the end writes the first entry") << 9 << "English"
                                                               << "PAL";
}

void test_netip_client::location_writing()
{
    QFETCH(int, index);
    QFETCH(QString, language);
    QFETCH(QString, video_format);

    location_config record;
    record.language = index;
    record.video_format = index == 6 ? 2 : index;
    record.work_day = 31;
    record.dst_end = { 2025, 3, 5, 0, 2, 30 };
    const QJsonObject object = dvr_networking::location_to_json(record);
    QCOMPARE(object.value(QStringLiteral("Language")).toString(), language);
    QCOMPARE(object.value(QStringLiteral("VideoFormat")).toString(), video_format);
    QCOMPARE(object.value(QStringLiteral("DateFormat")).toString(), QStringLiteral("YYMMDD"));
    QCOMPARE(object.value(QStringLiteral("WorkDay")).toInt(), 31);
    QCOMPARE(object.value(QStringLiteral("DSTEnd")).toObject(),
        (QJsonObject {
            { "Year", 2025 }, { "Month", 3 }, { "Week", 5 }, { "Day", 0 }, { "Hour", 2 }, { "Minute", 30 } }));
    QCOMPARE(object.size(), 8);
}

void test_netip_client::progress_message_is_skipped_while_waiting()
{
    fake_device device([](const fake_device::request& r) -> QList<QByteArray> {
        if (r.message_id != 1020)
            return {};
        return { fake_device::frame(1524, "{\"Ret\":37}"),
            fake_device::frame(1021,
                "{\"Name\":\"SystemInfo\",\"Ret\":100,\"SystemInfo\":{\"SerialNo\":\"abc123\",\"HardWare\":\"H1\","
                "\"SoftWareVersion\":\"V4.02\",\"BuildTime\":\"2020-06-11 11:12:09\"}}") };
    });
    device.start();
    dvr_networking client;
    QVERIFY(client.connect_to(QStringLiteral("127.0.0.1"), device.port()));

    QString serial, hardware, version, build;
    QVERIFY(client.system_info(serial, hardware, version, build));
    QCOMPARE(serial, QStringLiteral("abc123"));
    QCOMPARE(build, QStringLiteral("2020-06-11 11:12:09"));
    QCOMPARE(log_count(QStringLiteral(
                 "error, Not the one we expected for: got Upgrade progress, expected System info response")),
        1);
    QCOMPARE(log_count(QStringLiteral("error, Unexpected response code: -unknown[37]-")), 1);
}

void test_netip_client::session_taken_once_from_first_accepted_reply()
{
    fake_device device([](const fake_device::request& r) -> QList<QByteArray> {
        if (r.message_id == 1000)
            return { fake_device::frame(1001, "{\"Ret\":100,\"SessionID\":\"0x0000abcd\"}", 0xABCD) };
        return { fake_device::frame(uint16_t(r.message_id + 1), "{\"Ret\":100}", 0x9999) };
    });
    device.start();
    dvr_networking client;
    QVERIFY(client.connect_to(QStringLiteral("127.0.0.1"), device.port()));
    QCOMPARE(client.session(), 0u);
    QVERIFY(client.login(QStringLiteral("admin"), dvr_networking::encrypt_password(QString())));
    QCOMPARE(client.session(), 0xABCDu);
    QVERIFY(client.reboot());
    QCOMPARE(client.session(), 0xABCDu);

    const QList<fake_device::request> received = device.received();
    QCOMPARE(received.size(), 2);
    QCOMPARE(received.at(0).session, 0u);
    QCOMPARE(received.at(1).session, 0xABCDu);
    QCOMPARE(received.at(1).body, QByteArray("{\"Name\":\"OPMachine\",\"OPMachine\":{\"Action\":\"Reboot\"}}"));
    const QJsonObject login = QJsonDocument::fromJson(received.at(0).body).object();
    QCOMPARE(login,
        (QJsonObject { { "EncryptType", "MD5" }, { "LoginType", "DVRIP-Web" }, { "UserName", "admin" },
            { "PassWord", "tlJwpbo6" } }));
}

void test_netip_client::unconnected_client_fails_to_write()
{
    dvr_networking client;
    QVERIFY(!client.reboot());
    // Three attempts that each broke off count as a completed login.
    uint16_t ret = 7;
    QVERIFY(client.login(QStringLiteral("admin"), QStringLiteral("tlJwpbo6"), &ret));
    QCOMPARE(ret, uint16_t(0));
    const QStringList lines = log_lines();
    QCOMPARE(lines.filter(QStringLiteral("error, Socket writing failed")).size(), 4);
    QCOMPARE(lines.filter(QStringLiteral("error, Iteration ")).size(), 3);
    QCOMPARE(lines.filter(QStringLiteral("error, Iteration 3 failed: excode=1")).size(), 1);
    QCOMPARE(lines.filter(QStringLiteral("error, No valid answer found")).size(), 1);
}

void test_netip_client::login_data()
{
    QTest::addColumn<QString>("password");
    QTest::addColumn<QJsonObject>("faults");
    QTest::addColumn<int>("ret");
    QTest::addColumn<int>("attempts");
    QTest::addColumn<bool>("session");

    QTest::newRow("right password") << "secret" << QJsonObject() << -1 << 1 << true;
    QTest::newRow("603 counts as good") << "secret" << QJsonObject { { "wrong_ret", QJsonObject { { "1000", 603 } } } }
                                        << -1 << 1 << true;
    // Each attempt reads on after the refusal until the device falls silent (about five seconds).
    QTest::newRow("refused: three attempts, still true") << "wrong" << QJsonObject() << 203 << 3 << false;
}

void test_netip_client::login()
{
    QFETCH(QString, password);
    QFETCH(QJsonObject, faults);
    QFETCH(int, ret);
    QFETCH(int, attempts);
    QFETCH(bool, session);

    QVERIFY(start_device({ { "password", "secret" } }));
    QVERIFY(m_sim->set_faults(0, faults));
    dvr_networking client;
    QVERIFY(client.connect_to(m_sim->address(0).toString(), m_sim->port(0)));
    uint16_t status = 0xBEEF;
    QVERIFY(client.login(QStringLiteral("admin"), dvr_networking::encrypt_password(password), &status));

    QCOMPARE(int(status), ret < 0 ? 0xBEEF : ret);
    QCOMPARE(client.session() != 0, session);
    const QJsonArray requests = m_sim->requests_of(0, 1000);
    QCOMPARE(requests.size(), attempts);
    for (const QJsonValue& r : requests) {
        QCOMPARE(r.toObject().value("session").toDouble(), 0.0);
        QCOMPARE(r.toObject().value("body"), requests.first().toObject().value("body"));
    }
    const QStringList lines = log_lines();
    // A refused login logs each of its three iterations once; a good one logs none.
    for (int i = 1; i <= 3; ++i)
        QCOMPARE(
            lines.filter(QStringLiteral("error, Iteration %1 failed: excode=3").arg(i)).size(), attempts > 1 ? 1 : 0);
    QCOMPARE(lines.filter(QStringLiteral("Unexpected response code: Incorrect password")).size(), ret == 203 ? 3 : 0);
}

void test_netip_client::system_info_from_device()
{
    QVERIFY(start_device({ { "serial", "5f3a0c1b2d4e6f70" }, { "hardware", "HI3516EV300_85H50AI" },
        { "software_version", "V5.00.R02.000807C8.10010.346332.S.ONVIF 21.06" }, { "build_time", "2021-09-13" } }));
    const auto client = logged_in_client();
    QVERIFY(client);
    QString serial, hardware, version, build;
    QVERIFY(client->system_info(serial, hardware, version, build));
    QCOMPARE(serial, QStringLiteral("5f3a0c1b2d4e6f70"));
    QCOMPARE(hardware, QStringLiteral("HI3516EV300_85H50AI"));
    QCOMPARE(version, QStringLiteral("V5.00.R02.000807C8.10010.346332.S.ONVIF 21.06"));
    QCOMPARE(build, QStringLiteral("2021-09-13"));

    const QJsonObject request = last_request(1020);
    QCOMPARE(request.value("body").toString(), QStringLiteral("{\"Name\":\"SystemInfo\"}"));
    QCOMPARE(quint32(request.value("session").toDouble()), client->session());
}

void test_netip_client::net_common_read_and_written()
{
    QVERIFY(start_device({ { "mac", "00:12:41:aa:bb:cc" } }));
    const auto client = logged_in_client();
    QVERIFY(client);

    SDK_CONFIG_NET_COMMON_V2 record;
    QVERIFY(client->get_net_common(record));
    QCOMPARE(QByteArray(record.MAC), QByteArray("00:12:41:aa:bb:cc"));
    // The device writes its addresses byte-reversed with a "0x" prefix.
    QCOMPARE(record.HostIP, m_sim->address(0).toIPv4Address());
    QCOMPARE(record.Submask, 0xFF000000u);
    QCOMPARE(record.GateWay, 0x7F000001u);
    QCOMPARE(record.TCPPort, int(m_sim->port(0)));
    QCOMPARE(record.TransferPlan, 1);

    record.HostIP = 0xC0A8017B;
    record.MaxConn = 12;
    QVERIFY(client->set_net_common(record));
    const QJsonObject sent = QJsonDocument::fromJson(last_request(1040).value("body").toString().toUtf8()).object();
    QCOMPARE(sent.value("Name").toString(), QStringLiteral("NetWork.NetCommon"));
    QCOMPARE(sent.value("NetWork.NetCommon").toObject().value("HostIP").toString(), QStringLiteral("7b01a8c0"));
    QCOMPARE(sent.value("NetWork.NetCommon").toObject().value("TCPMaxConn").toInt(), 12);
    QVERIFY(!sent.contains("SessionID"));

    const QJsonObject net = m_sim->state(0).value("net").toObject();
    QCOMPARE(net.value("HostIP").toString().toLower(), QStringLiteral("0x7b01a8c0"));
    QCOMPARE(net.value("TCPMaxConn").toInt(), 12);
}

void test_netip_client::location_read_and_written()
{
    QVERIFY(start_device({ { "language", "Russian" } }));
    const auto client = logged_in_client();
    QVERIFY(client);

    location_config record;
    QVERIFY(client->get_location(record));
    QCOMPARE(record.language, 6);
    QCOMPARE(record.work_day, 62);

    record.language = 7;
    record.video_format = 1;
    QVERIFY(client->set_location(record));
    const QJsonObject state = m_sim->state(0);
    QCOMPARE(state.value("language").toString(), QStringLiteral("French"));
    QCOMPARE(state.value("location").toObject().value("VideoFormat").toString(), QStringLiteral("NTSC"));
}

void test_netip_client::reboot_is_answered()
{
    QVERIFY(start_device({ { "reboot_ms", 300 } }));
    const auto client = logged_in_client();
    QVERIFY(client);
    QVERIFY(client->reboot());
    QCOMPARE(last_request(1450).value("body").toString(),
        QStringLiteral("{\"Name\":\"OPMachine\",\"OPMachine\":{\"Action\":\"Reboot\"}}"));
    QTRY_COMPARE_WITH_TIMEOUT(m_sim->state(0).value("boot_count").toInt(), 2, 5000);
}

void test_netip_client::reset_sends_all_ten_sections_data()
{
    QTest::addColumn<int>("sections");
    QTest::addColumn<QStringList>("reset");
    QTest::newRow("network only") << 16 << QStringList { "NetCommon" };
    QTest::newRow("everything") << 1023
                                << QStringList { "Account", "Alarm", "CameraPARAM", "CommPtz", "Encode", "General",
                                       "NetCommon", "NetServer", "Preview", "Record" };
    QTest::newRow("lowest and highest bit") << (1 | 512) << QStringList { "CameraPARAM", "General" };
    QTest::newRow("nothing") << 0 << QStringList();
}

void test_netip_client::reset_sends_all_ten_sections()
{
    QFETCH(int, sections);
    QFETCH(QStringList, reset);
    QVERIFY(start_device());
    const auto client = logged_in_client();
    QVERIFY(client);
    QVERIFY(client->reset_configuration(sections));

    const QJsonObject sent = QJsonDocument::fromJson(last_request(1450).value("body").toString().toUtf8()).object();
    const QJsonObject members = sent.value("OPDefaultConfig").toObject();
    QCOMPARE(members.size(), 10);
    QStringList set;
    for (auto it = members.begin(); it != members.end(); ++it) {
        QVERIFY(it.value().isBool());
        if (it.value().toBool())
            set << it.key();
    }
    QCOMPARE(set, reset);
    QCOMPARE(m_sim->state(0).value("resets").toInt(), 1);
}

void test_netip_client::dhcp_goes_out_as_the_name_alone()
{
    QVERIFY(start_device());
    const auto client = logged_in_client();
    QVERIFY(client);
    QVERIFY(client->set_dhcp(true));
    QCOMPARE(last_request(1040).value("body").toString(), QStringLiteral("{\"Name\":\"NetWork.DHCP\"}"));
    const QJsonObject state = m_sim->state(0);
    QCOMPARE(state.value("dhcp_requests").toInt(), 1);
    QVERIFY(state.value("dhcp_config").isNull());
}

void test_netip_client::import_configuration_data()
{
    QTest::addColumn<int>("size"); // -1: no file
    QTest::addColumn<bool>("ok");
    QTest::addColumn<QString>("log");
    QTest::newRow("small file, 603 is success") << 1000 << true << "";
    QTest::newRow("file of exactly 32768 bytes") << 32768 << true << "";
    QTest::newRow("file over 32768 bytes is refused") << 32769 << false << "error, ERROR: Could not assign the data";
    QTest::newRow("missing file") << -1 << false << "error, Failed to open the file \"";
}

void test_netip_client::import_configuration()
{
    QFETCH(int, size);
    QFETCH(bool, ok);
    QFETCH(QString, log);

    QVERIFY(start_device());
    const auto client = logged_in_client();
    QVERIFY(client);
    const QString path = m_dir->filePath(QStringLiteral("config.bin"));
    QByteArray content;
    for (int i = 0; i < size; ++i)
        content.append(char(i * 7));
    if (size >= 0) {
        QFile file(path);
        QVERIFY(file.open(QIODevice::WriteOnly));
        file.write(content);
    }

    QCOMPARE(client->import_configuration(path), ok);
    const QJsonObject state = m_sim->state(0);
    QCOMPARE(state.value("imports").toInt(), ok ? 1 : 0);
    if (ok) {
        QCOMPARE(state.value("imported_size").toInt(), size);
        QCOMPARE(last_request(1540).value("md5").toString(),
            QString::fromLatin1(QCryptographicHash::hash(content, QCryptographicHash::Md5).toHex()));
    } else {
        QCOMPARE(log_count(log), 1);
    }
}

void test_netip_client::unanswered_requests_data()
{
    QTest::addColumn<QString>("operation");
    QTest::addColumn<QJsonObject>("faults");
    QTest::addColumn<bool>("ok");
    QTest::addColumn<int>("min_ms");
    QTest::addColumn<int>("max_ms");
    QTest::addColumn<QStringList>("logged");
    QTest::addColumn<QStringList>("not_logged");

    const QJsonObject silent_1020 { { "silent_at", 1020 } };
    QTest::newRow("silent device: no first reply bytes within 15 s")
        << "system_info" << silent_1020 << false << 14500 << 20000
        << QStringList { "error, No reply", "error, Is open: y, is readable: y, bytes available: 0", "error, ES: \"" }
        << QStringList { "Socket reading failed" };
    QTest::newRow("reset answered by silence within 1 s counts as done")
        << "reset" << QJsonObject { { "silent_at", 1450 } } << true << 900 << 4000 << QStringList { "error, No reply" }
        << QStringList();
    QTest::newRow("config set may go unanswered at send, then the read fails")
        << "dhcp" << QJsonObject { { "silent_at", 1040 } } << false << 19000 << 26000
        << QStringList { "error, Socket reading failed", "Header reading failed" } << QStringList { "No reply" };
    QTest::newRow("refusal holds the wait until the device is silent")
        << "system_info" << QJsonObject { { "wrong_ret", QJsonObject { { "1020", 607 } } } } << false << 4500 << 9000
        << QStringList { "error, Unexpected response code: Configuration does not exist", "Socket reading failed" }
        << QStringList { "No reply" };
    QTest::newRow("dropped connection fails at once")
        << "system_info" << QJsonObject { { "close_at", 1020 } } << false << 0 << 3000
        << QStringList { "error, No reply", "error, Is open: " } << QStringList { "Socket reading failed" };
    QTest::newRow("dropped connection on a config read")
        << "net_common" << QJsonObject { { "close_at", 1042 } } << false << 0 << 3000
        << QStringList { "error, Failed to execute the request" } << QStringList();
    QTest::newRow("dropped connection on reboot")
        << "reboot" << QJsonObject { { "close_at", 1450 } } << false << 0 << 3000
        << QStringList { "error, No valid answer found" } << QStringList();
}

void test_netip_client::unanswered_requests()
{
    QFETCH(QString, operation);
    QFETCH(QJsonObject, faults);
    QFETCH(bool, ok);
    QFETCH(int, min_ms);
    QFETCH(int, max_ms);
    QFETCH(QStringList, logged);
    QFETCH(QStringList, not_logged);

    QVERIFY(start_device());
    const auto client = logged_in_client();
    QVERIFY(client);
    QVERIFY(m_sim->set_faults(0, faults));

    QElapsedTimer timer;
    timer.start();
    bool result = false;
    if (operation == "system_info") {
        QString a, b, c, d;
        result = client->system_info(a, b, c, d);
    } else if (operation == "reset") {
        result = client->reset_configuration(16);
    } else if (operation == "dhcp") {
        result = client->set_dhcp(false);
    } else if (operation == "net_common") {
        SDK_CONFIG_NET_COMMON_V2 record;
        result = client->get_net_common(record);
    } else if (operation == "reboot") {
        result = client->reboot();
    }
    const qint64 elapsed = timer.elapsed();

    QCOMPARE(result, ok);
    QVERIFY2(elapsed >= min_ms && elapsed <= max_ms, qPrintable(QStringLiteral("%1 ms").arg(elapsed)));
    const QStringList lines = log_lines();
    for (const QString& text : logged)
        QVERIFY2(!lines.filter(text).isEmpty(), qPrintable(text));
    for (const QString& text : not_logged)
        QVERIFY2(lines.filter(text).isEmpty(), qPrintable(text));
}

QTEST_GUILESS_MAIN(test_netip_client)
#include "test_netip_client.moc"
