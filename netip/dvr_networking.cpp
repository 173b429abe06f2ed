#include "netip/dvr_networking.h"

#include <QFile>
#include <QJsonArray>
#include <QTcpSocket>

#include <utility>

#include "diagnostics/blackbox.h"
#include "netip/codes.h"
#include "netip/jsonaux.h"
#include "netip/packet_wrapper.h"
#include "netip/password_digest.h"

namespace {

QJsonDocument named(const QString& name)
{
    return QJsonDocument(QJsonObject { { QStringLiteral("Name"), name } });
}

QJsonDocument named(const QString& name, const QJsonObject& inner)
{
    return QJsonDocument(QJsonObject { { QStringLiteral("Name"), name }, { name, inner } });
}

// The length of a JSON request is its count of UTF-16 units, not of UTF-8 bytes: a body with
// non-ASCII text loses its tail on the wire. Devices have always been sent it this way.
netip::packet json_packet(uint16_t message_id, const QJsonDocument& document)
{
    const QString text = QString::fromUtf8(document.toJson(QJsonDocument::Compact));
    const QByteArray bytes = text.toUtf8();
    return netip::packet(message_id, bytes.constData(), size_t(text.size()));
}

} // namespace

dvr_networking::dvr_networking(QObject* parent)
    : QObject(parent)
    , loggable("dvr networking")
    , m_socket(new QTcpSocket)
{
}

dvr_networking::~dvr_networking()
{
    // The owner deletes the client on the socket's thread or after that thread has ended,
    // where no event loop would ever run a deleteLater.
    delete m_socket;
}

bool dvr_networking::connect_to(const QString& host, uint16_t port)
{
    // Unbuffered: a frame goes from our buffer to the kernel without a copy in between, which
    // a fleet's upload feels, and replies are read in the sizes their headers give anyway.
    m_socket->connectToHost(host, port, QIODevice::ReadWrite | QIODevice::Unbuffered, QAbstractSocket::AnyIPProtocol);
    return m_socket->waitForConnected(connect_ms);
}

bool dvr_networking::close()
{
    m_socket->close();
    return true;
}

QString dvr_networking::encrypt_password(const QString& plain)
{
    // The device hashes its password as a C string: nothing past a NUL counts.
    const QByteArray utf8 = plain.toUtf8();
    return QString::fromUtf8(netip::password_digest(QByteArray(utf8.constData())));
}

bool dvr_networking::login(const QString& user, const QString& password_hash, uint16_t* ret)
{
    const QJsonObject body {
        { QStringLiteral("EncryptType"), QStringLiteral("MD5") },
        { QStringLiteral("LoginType"), QStringLiteral("DVRIP-Web") },
        { QStringLiteral("UserName"), user },
        { QStringLiteral("PassWord"), password_hash },
    };
    netip::packet request = json_packet(netip::msg_login, QJsonDocument(body));
    if (request.bad()) {
        log(blackbox::error, "Data assignment failed");
        return false;
    }

    netip::packet reply;
    uint16_t status = 0;
    for (unsigned iteration = 0;;) {
        int32_t excode = 0;
        if (try_exchange(request, &reply, &status, &excode, 0))
            return true;
        ++iteration;
        log(blackbox::error, "Iteration %u failed: excode=%d", iteration, -excode);
        if (ret)
            *ret = status;
        if (excode == 0) {
            log(blackbox::error, "No valid answer found");
            return false;
        }
        // Three attempts that each broke off count as a completed login; *ret tells of a
        // refused password, and the first real request fails if the device didn't let us in.
        if (iteration == login_attempts)
            return true;
    }
}

bool dvr_networking::system_info(QString& serial, QString& hardware, QString& version, QString& build)
{
    netip::packet request = build_request(netip::msg_system_info, named(QStringLiteral("SystemInfo")));
    if (request.bad())
        return false;
    netip::packet reply;
    if (!try_exchange(request, &reply, nullptr, nullptr, 0))
        return false;

    // The body ends in a terminator byte.
    const size_t held = reply.payload_size();
    const QString text = held ? QString::fromUtf8(reply.data(), int(held - 1)) : QString();
    if (text.isEmpty()) {
        log(blackbox::error, "Empty system information");
        return false;
    }
    const QJsonDocument document = QJsonDocument::fromJson(text.toUtf8());
    const QJsonObject info = document.object().value(QLatin1String("SystemInfo")).toObject();
    static const char* const members[] = { "SerialNo", "HardWare", "SoftWareVersion", "BuildTime" };
    bool complete = document.isObject() && document.object().contains(QLatin1String("SystemInfo"));
    for (const char* member : members)
        complete = complete && info.contains(QLatin1String(member));
    if (!complete) {
        log(blackbox::error, "Malformed system information: %s", text.left(256).toUtf8().constData());
        return false;
    }
    serial = info.value(QLatin1String("SerialNo")).toString();
    hardware = info.value(QLatin1String("HardWare")).toString();
    version = info.value(QLatin1String("SoftWareVersion")).toString();
    build = info.value(QLatin1String("BuildTime")).toString();
    return true;
}

bool dvr_networking::get_net_common(SDK_CONFIG_NET_COMMON_V2& record)
{
    QString text;
    if (!get_config(QStringLiteral("NetWork.NetCommon"), text))
        return false;
    bool text_values = false;
    if (!json_to_netcommon_v2(text, record, text_values)) {
        log(blackbox::error, "Malformed network configuration: %s", text.left(256).toUtf8().constData());
        return false;
    }
    return true;
}

bool dvr_networking::set_net_common(const SDK_CONFIG_NET_COMMON_V2& record)
{
    QJsonObject inner;
    if (!netcommon_to_json(record, inner)) {
        log(blackbox::error, "Failed to convert");
        return false;
    }
    return set_config(QStringLiteral("NetWork.NetCommon"), inner);
}

bool dvr_networking::get_location(location_config& record)
{
    QString text;
    if (!get_config(QStringLiteral("General.Location"), text))
        return false;
    if (!json_to_location(text, record)) {
        log(blackbox::error, "Malformed location configuration: %s", text.left(256).toUtf8().constData());
        return false;
    }
    return true;
}

bool dvr_networking::set_location(const location_config& record)
{
    return set_config(QStringLiteral("General.Location"), location_to_json(record));
}

bool dvr_networking::reboot()
{
    netip::packet request = build_request(netip::msg_system_manager,
        named(QStringLiteral("OPMachine"), QJsonObject { { QStringLiteral("Action"), QStringLiteral("Reboot") } }));
    if (request.bad())
        return false;
    if (!try_exchange(request, nullptr, nullptr, nullptr, 0)) {
        log(blackbox::error, "No valid answer found");
        return false;
    }
    return true;
}

bool dvr_networking::reset_configuration(int32_t sections)
{
    static const std::pair<int32_t, const char*> bits[] = {
        { 1, "General" },
        { 2, "Encode" },
        { 4, "Record" },
        { 8, "NetServer" },
        { 16, "NetCommon" },
        { 32, "Alarm" },
        { 64, "CommPtz" },
        { 128, "Account" },
        { 256, "Preview" },
        { 512, "CameraPARAM" },
    };
    QJsonObject inner;
    for (const auto& bit : bits)
        inner.insert(QLatin1String(bit.second), (sections & bit.first) != 0);
    netip::packet request = build_request(netip::msg_system_manager, named(QStringLiteral("OPDefaultConfig"), inner));
    if (request.bad())
        return false;
    int32_t excode = 0;
    if (try_exchange(request, nullptr, nullptr, &excode, reset_reply_ms))
        return true;
    // A device that falls silent after this request has begun to reset.
    return excode == no_reply;
}

bool dvr_networking::set_dhcp(bool enable)
{
    QJsonArray interfaces;
    for (const char* name : { "eth0", "eth1", "eth2", "eth3" })
        interfaces.append(QJsonObject { { QStringLiteral("Enable"), enable }, { QStringLiteral("Interface"), name } });
    const QJsonDocument document = named(QStringLiteral("NetWork.DHCP"));
    // The interface list is put into a copy that is dropped: the request has always gone out
    // with the name alone, and that is what devices get.
    QJsonObject with_interfaces = document.object();
    with_interfaces.insert(QStringLiteral("NetWork.NetDHCP"), interfaces);

    netip::packet request = build_request(netip::msg_config_set, document);
    if (request.bad())
        return false;
    return try_exchange(request, nullptr, nullptr, nullptr, 0);
}

bool dvr_networking::import_configuration(const QString& path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) {
        log(blackbox::error, "Failed to open the file \"%s\"", path.toUtf8().constData());
        return false;
    }
    const QByteArray content = file.readAll();
    netip::packet request(netip::msg_config_import);
    if (!request.assign(content.constData(), size_t(content.size()))) {
        log(blackbox::error, "ERROR: %s", "Could not assign the data");
        return false;
    }
    bool ok = false;
    try {
        ok = exchange(request, netip::ret_need_reboot, nullptr, nullptr, 0);
    } catch (int) {
        ok = false;
    }
    if (!ok) {
        log(blackbox::error, "ERROR: %s", "Could not execute the request");
        return false;
    }
    return true;
}

netip::packet dvr_networking::build_request(uint16_t message_id, const QJsonDocument& document) const
{
    // Computed and dropped: no request body carries the session, it travels in the header.
    jsonaux::set_session(document, m_session);
    netip::packet request = json_packet(message_id, document);
    if (request.bad())
        log(blackbox::error, "Failed to assign the data");
    return request;
}

bool dvr_networking::send(netip::packet& packet, int timeout_ms)
{
    if (packet.session == 0 && m_session != 0)
        packet.session = m_session;
    if (!packet_wrapper::write_to(m_socket, packet)) {
        log(blackbox::error, "Socket writing failed");
        throw int(write_failed);
    }
    return await_reply(packet.message_id, timeout_ms);
}

bool dvr_networking::await_reply(uint16_t message_id, int timeout_ms)
{
    m_socket->waitForBytesWritten(written_ms);
    // A config set may go unanswered here: the device can drop the connection while it applies the change.
    // Unbuffered, a dropped connection also wakes the wait, with nothing to read.
    if ((m_socket->waitForReadyRead(timeout_ms ? timeout_ms : reply_ms) && m_socket->bytesAvailable() > 0)
        || message_id == netip::msg_config_set)
        return true;
    log(blackbox::error, "No reply");
    log(blackbox::error, "Is open: %c, is readable: %c, bytes available: %lli", m_socket->isOpen() ? 'y' : 'n',
        m_socket->isReadable() ? 'y' : 'n', static_cast<long long>(m_socket->bytesAvailable()));
    log(blackbox::error, "ES: \"%s\"", m_socket->errorString().toUtf8().constData());
    throw int(no_reply);
}

bool dvr_networking::wait_reply(uint16_t expected_id, uint16_t ok_code, netip::packet* reply, uint16_t* ret)
{
    netip::packet local;
    netip::packet& received = reply ? *reply : local;
    for (;;) {
        uint16_t code = 0;
        if (!packet_wrapper::read_from(m_socket, received, &code)) {
            log(blackbox::error, "Socket reading failed");
            throw int(read_failed);
        }
        if (expected_id != 0 && received.message_id != expected_id) {
            log(blackbox::error, "Not the one we expected for: got %s, expected %s",
                netip::describe_message(received.message_id).constData(),
                netip::describe_message(expected_id).constData());
            if (received.message_id == netip::msg_upgrade_progress && code != ok_code)
                log(blackbox::error, "Unexpected response code: %s", netip::describe_return_code(code).constData());
            continue;
        }
        if (code == ok_code || code == netip::ret_need_reboot)
            break;
        // A refusal doesn't end the wait: reading goes on until the device falls silent.
        log(blackbox::error, "Unexpected response code: %s", netip::describe_return_code(code).constData());
        if (ret)
            *ret = code;
    }
    if (m_session == 0)
        m_session = received.session;
    return true;
}

bool dvr_networking::exchange(
    netip::packet& packet, uint16_t ok_code, netip::packet* reply, uint16_t* ret, int timeout_ms)
{
    send(packet, timeout_ms);
    return wait_reply(uint16_t(packet.message_id + 1), ok_code, reply, ret);
}

bool dvr_networking::try_exchange(
    netip::packet& packet, netip::packet* reply, uint16_t* ret, int32_t* excode, int timeout_ms)
{
    try {
        return exchange(packet, netip::ret_ok, reply, ret, timeout_ms);
    } catch (int code) {
        if (excode)
            *excode = code;
        return false;
    }
}

bool dvr_networking::set_config(const QString& name, const QJsonObject& inner)
{
    netip::packet request = build_request(netip::msg_config_set, named(name, inner));
    if (request.bad())
        return false;
    if (!try_exchange(request, nullptr, nullptr, nullptr, 0)) {
        log(blackbox::error, "Failed to execute");
        return false;
    }
    return true;
}

bool dvr_networking::get_config(const QString& name, QString& text)
{
    netip::packet request = build_request(netip::msg_config_get, named(name));
    if (request.bad())
        return false;
    netip::packet reply;
    if (!try_exchange(request, &reply, nullptr, nullptr, 0)) {
        log(blackbox::error, "Failed to execute the request");
        return false;
    }
    // Configuration bodies are read as a NUL-terminated string.
    const size_t held = reply.payload_size();
    text = held ? QString::fromUtf8(reply.data(), int(qstrnlen(reply.data(), uint(held)))) : QString();
    return true;
}
