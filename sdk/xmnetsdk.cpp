#include "sdk/xmnetsdk.h"

#include "netip/packet.h"
#include "netip/packet_wrapper.h"
#include "netip/password_digest.h"

#include <QDeadlineTimer>
#include <QHash>
#include <QJsonDocument>
#include <QJsonObject>
#include <QMutex>
#include <QNetworkDatagram>
#include <QTcpSocket>
#include <QThread>
#include <QUdpSocket>
#include <QtEndian>

#include <atomic>
#include <cstring>
#include <memory>

namespace {

std::atomic<long> g_connect_ms { 3000 };
std::atomic<long> g_next_handle { 1 };
QMutex g_sessions_mutex; // guards g_sessions
QHash<long, std::shared_ptr<QTcpSocket>> g_sessions;
QMutex g_config_mutex; // one configuration by broadcast in flight per process

// The last byte of the reserved tail is left to the library: it says the password is a digest.
constexpr size_t digest_mark = sizeof(SDK_CONFIG_NET_COMMON_V3::reserved) - 1;

QString text_of(const char* field, size_t size)
{
    return QString::fromUtf8(field, int(strnlen(field, size)));
}

QString hex_field(uint32_t value)
{
    return QString::asprintf("0x%08X", value);
}

// Ones from the top bit down, then zeros.
bool is_contiguous(uint32_t mask)
{
    const uint32_t inverse = ~mask;
    return (inverse & (inverse + 1)) == 0;
}

// The device reads a mask byte-reversed, as it reads the addresses. Some callers hand
// it over in host order; only one of the two orders makes a valid mask, and that
// tells which one came.
uint32_t device_form_mask(uint32_t field)
{
    if (!is_contiguous(qbswap(field)) && is_contiguous(field))
        return qbswap(field);
    return field;
}

// A device that names itself in its answer must be the one asked; most write only "Ret".
bool answers_for(const QJsonObject& answer, const QString& mac)
{
    for (const QString& key : { QStringLiteral("DvrMac"), QStringLiteral("MAC") }) {
        const QString named = answer.value(key).toString();
        if (!named.isEmpty())
            return named.compare(mac, Qt::CaseInsensitive) == 0;
    }
    return true;
}

QByteArray frame(const netip::packet& p)
{
    QByteArray bytes(int(netip::packet::header_size + p.length), Qt::Uninitialized);
    size_t size = size_t(bytes.size());
    p.serialize(bytes.data(), &size);
    bytes.resize(int(size));
    return bytes;
}

} // namespace

long H264_DVR_Init(void*, unsigned long)
{
    return 1;
}

bool H264_DVR_SetConnectTime(long wait_ms, long tries)
{
    g_connect_ms = qMax(1L, wait_ms) * qMax(1L, tries);
    return true;
}

long H264_DVR_Login(const char* ip, uint16_t port, const char* user, const char* password, void*, int* error, int)
{
    QDeadlineTimer deadline(g_connect_ms.load());
    auto socket = std::make_shared<QTcpSocket>();
    socket->connectToHost(QString::fromUtf8(ip), port);
    bool answered = false;
    if (socket->waitForConnected(int(qMax<qint64>(1, deadline.remainingTime())))) {
        QJsonObject body { { QStringLiteral("EncryptType"), QStringLiteral("MD5") },
            { QStringLiteral("LoginType"), QStringLiteral("DVRIP-Web") },
            { QStringLiteral("UserName"), QString::fromUtf8(user) },
            { QStringLiteral("PassWord"), QString::fromLatin1(netip::password_digest(QByteArray(password))) } };
        const QByteArray json = QJsonDocument(body).toJson(QJsonDocument::Compact);
        const netip::packet request(1000, json.constData(), size_t(json.size()));
        socket->write(frame(request));
        socket->waitForBytesWritten(int(qMax<qint64>(1, deadline.remainingTime())));
        // Any reply header counts: the device is there, whatever it thinks of the login.
        while (!answered && deadline.remainingTime() > 0) {
            if (socket->bytesAvailable() >= qint64(netip::packet::header_size))
                answered = true;
            else if (!socket->waitForReadyRead(int(qMax<qint64>(1, deadline.remainingTime()))))
                break;
        }
    }
    if (!answered) {
        if (error)
            *error = -1;
        // A refused connection returns at once; the probe still takes its limit.
        const qint64 left = deadline.remainingTime();
        if (left > 0)
            QThread::msleep(ulong(left));
        return 0;
    }
    const long handle = g_next_handle++;
    QMutexLocker lock(&g_sessions_mutex);
    g_sessions.insert(handle, socket);
    return handle;
}

long H264_DVR_Logout(long handle)
{
    std::shared_ptr<QTcpSocket> socket;
    {
        QMutexLocker lock(&g_sessions_mutex);
        socket = g_sessions.take(handle);
    }
    if (!socket)
        return 0;
    socket->abort();
    return 1;
}

void xmnet_mark_password_digest(SDK_CONFIG_NET_COMMON_V3& record, bool is_digest)
{
    record.reserved[digest_mark] = is_digest ? 1 : 0;
}

long H264_DVR_SetConfigOverNet(unsigned long command, int, char* config, unsigned long size, int wait_ms)
{
    if (command != 20 || !config || size != sizeof(SDK_CONFIG_NET_COMMON_V3))
        return xmnetsdk::invalid_request;
    SDK_CONFIG_NET_COMMON_V3 record;
    std::memcpy(&record, config, sizeof record);

    const QString mac = text_of(record.MAC, sizeof record.MAC);
    // Every device would pass over a request without a MAC, and the silence would read as success.
    if (mac.trimmed().isEmpty())
        return xmnetsdk::no_mac;
    const QByteArray password(record.Password, int(strnlen(record.Password, sizeof record.Password)));
    const bool is_digest = record.reserved[digest_mark] != 0;
    QJsonObject body {
        { QStringLiteral("HostName"), text_of(record.HostName, sizeof record.HostName) },
        { QStringLiteral("HostIP"), hex_field(record.HostIP) },
        { QStringLiteral("Submask"), hex_field(device_form_mask(record.Submask)) },
        { QStringLiteral("GateWay"), hex_field(record.GateWay) },
        { QStringLiteral("HttpPort"), record.HttpPort },
        { QStringLiteral("TCPPort"), record.TCPPort },
        { QStringLiteral("SSLPort"), record.SSLPort },
        { QStringLiteral("UDPPort"), record.UDPPort },
        { QStringLiteral("TCPMaxConn"), record.MaxConn },
        { QStringLiteral("MonMode"), record.MonMode },
        { QStringLiteral("MaxBps"), record.MaxBps },
        { QStringLiteral("TransferPlan"), record.TransferPlan },
        { QStringLiteral("UseHSDownLoad"), record.UseHSDownLoad },
        { QStringLiteral("MAC"), mac },
        { QStringLiteral("DvrMac"), mac },
        { QStringLiteral("EncryptType"), 1 },
        { QStringLiteral("Username"), text_of(record.Username, sizeof record.Username) },
        { QStringLiteral("Password"), QString::fromLatin1(is_digest ? password : netip::password_digest(password)) },
    };
    QByteArray json = QJsonDocument(body).toJson(QJsonDocument::Compact);
    json.append("\n", 2); // a line feed and the NUL, as devices write it
    netip::packet request(xmnetsdk::config_request, json.constData(), size_t(json.size()));
    request.version = 0;

    // Answers come to the shared port, where the socket bound last takes them all: two
    // requests in flight from this process would read each other's answers.
    QMutexLocker one_at_a_time(&g_config_mutex);
    QUdpSocket socket;
    if (!socket.bind(
            QHostAddress::AnyIPv4, xmnetsdk::broadcast_port, QUdpSocket::ShareAddress | QUdpSocket::ReuseAddressHint))
        return xmnetsdk::socket_failed;
    socket.setSocketOption(QAbstractSocket::MulticastLoopbackOption, 1);
    if (socket.writeDatagram(frame(request), QHostAddress::Broadcast, xmnetsdk::broadcast_port) < 0)
        return xmnetsdk::socket_failed;

    QDeadlineTimer deadline(qMax(0, wait_ms));
    while (!deadline.hasExpired()) {
        if (!socket.hasPendingDatagrams() && !socket.waitForReadyRead(int(qMax<qint64>(1, deadline.remainingTime()))))
            break;
        while (socket.hasPendingDatagrams()) {
            const QByteArray datagram = socket.receiveDatagram().data();
            netip::packet reply;
            // Our own broadcast comes back on the shared port; only the answer counts.
            if (!reply.parse(datagram.constData(), size_t(datagram.size())) || reply.message_id != xmnetsdk::config_reply)
                continue;
            const QByteArray text(reply.data(), int(strnlen(reply.data(), reply.payload_size())));
            const QJsonObject answer = QJsonDocument::fromJson(text).object();
            if (!answers_for(answer, mac))
                continue;
            const int ret = answer.value(QStringLiteral("Ret")).toInt(-1);
            return ret == 100 ? 1 : xmnetsdk::refused_base - ret;
        }
    }
    return xmnetsdk::no_answer;
}
