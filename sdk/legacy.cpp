#include "sdk/legacy.h"

#include "netip/dvr_networking.h"
#include "sdk/xmnetsdk.h"

#include <QCoreApplication>
#include <QDeadlineTimer>
#include <QElapsedTimer>
#include <QFile>
#include <QHash>
#include <QMutex>
#include <QThread>
#include <QtEndian>

#include <atomic>
#include <cstring>

namespace sdk {

namespace {

std::atomic<bool> g_library_ready { false };
QMutex g_library_mutex;

// Address changes go out one at a time: two devices configured by broadcast at once
// may answer each other's request.
QMutex g_gate_mutex;
bool g_gate_busy = false;

QMutex g_factory_mutex; // guards g_factory_password
QString g_factory_password = QStringLiteral("kestr");

uint32_t reversed(const QHostAddress& address)
{
    return qbswap(address.toIPv4Address());
}

void copy_text(char* target, size_t size, const QByteArray& text)
{
    // A full-length text keeps no terminator, as the record's other text fields.
    std::memset(target, 0, size);
    std::memcpy(target, text.constData(), std::min(size, size_t(text.size())));
}

} // namespace

legacy::legacy(QObject* parent)
    : prototype(sdk::type::legacy, parent)
{
}

legacy::~legacy()
{
    stop_queue();
    wait();
    delete m_client;
}

dvr_networking& legacy::client()
{
    // A step run outside a queue, or after a failure dropped the create step, still finds one.
    if (!m_client)
        m_client = new dvr_networking();
    return *m_client;
}

void legacy::set_factory_password(const QString& password)
{
    QMutexLocker lock(&g_factory_mutex);
    g_factory_password = password;
}

QString legacy::factory_password()
{
    QMutexLocker lock(&g_factory_mutex);
    return g_factory_password;
}

QStringList legacy::operations() const
{
    return { QStringLiteral("await"), QStringLiteral("change_ip"), QStringLiteral("change_port"),
        QStringLiteral("change_subnet"), QStringLiteral("change_transfer_policy"), QStringLiteral("dhcp"),
        QStringLiteral("fix"), QStringLiteral("flash"), QStringLiteral("identify"),
        QStringLiteral("import_configuration"), QStringLiteral("reboot"), QStringLiteral("reset_configuration"),
        QStringLiteral("set_language") };
}

int legacy::uses_sdk_session(const QString&) const
{
    return 0;
}

bool legacy::init(const QString& ident, const device& dev)
{
    prototype::init(ident, dev);
    QMutexLocker lock(&g_library_mutex);
    if (g_library_ready)
        return true;
    if (H264_DVR_Init(nullptr, 0) != 1)
        return false;
    g_library_ready = true;
    return true;
}

bool legacy::change_ip(const QHostAddress& address, const QHostAddress& mask)
{
    enqueue({ step_change_ip, { QVariant::fromValue(address), QVariant::fromValue(mask) } }, false, false, true);
    return true;
}

bool legacy::change_port(const QString& kind, uint16_t port)
{
    enqueue({ step_change_port, { kind, uint(port) } }, false, false, true);
    return true;
}

bool legacy::change_subnet(const QHostAddress& mask)
{
    enqueue({ step_change_subnet, { QVariant::fromValue(mask) } }, false, false, true);
    return true;
}

bool legacy::set_dhcp(bool enable)
{
    enqueue({ step_dhcp, { enable } }, true, true, true);
    return true;
}

bool legacy::upgrade_firmware_file(const QString& path)
{
    enqueue({ step_flash_file, { path } }, true, true, false);
    return true;
}

bool legacy::fix_device(bool force)
{
    enqueue({ step_fix, { force } }, true, false, true);
    return true;
}

bool legacy::upgrade_firmware(const QByteArray& data)
{
    enqueue({ step_flash_memory, { data } }, true, true, false);
    return true;
}

bool legacy::import_configuration(const QString& path)
{
    enqueue({ step_import_configuration, { path } }, true, true, true);
    return true;
}

bool legacy::reboot()
{
    enqueue({ step_reboot, {} }, true, true, true);
    return true;
}

bool legacy::identify()
{
    enqueue({ step_identify, {} }, true, true, false);
    return true;
}

bool legacy::reset_configuration(const parameters& args)
{
    enqueue({ step_reset_configuration, { args.value(QStringLiteral("network_only"), QVariant(1)).toBool() } }, true, true, true);
    return true;
}

bool legacy::set_language(const QString& language)
{
    enqueue({ step_set_language, { language } }, true, true, true);
    return true;
}

bool legacy::await_device(const QHostAddress& address, float seconds)
{
    enqueue({ step_await, { QVariant::fromValue(address), seconds } }, true, false, true);
    return true;
}

bool legacy::execute(const QString& name, const QVariantList& arguments, bool queued, bool with_client, bool with_login,
    bool with_done)
{
    const QString key = name.toLower();
    const int address_type = qMetaTypeId<QHostAddress>();
    if (key == QLatin1String("change_ip")) {
        if (arguments.isEmpty() || arguments[0].userType() != address_type)
            return false;
        if (arguments.size() > 1 && arguments[1].userType() != address_type)
            return false;
        const QHostAddress address = arguments[0].value<QHostAddress>();
        const QHostAddress mask = arguments.size() > 1 ? arguments[1].value<QHostAddress>() : QHostAddress(QStringLiteral("0.0.0.0"));
        if (!queued)
            return op_change_ip(address, mask);
        return change_ip(address, mask);
    }
    if (key == QLatin1String("change_transfer_policy")) {
        const QString policy = arguments.value(0).toString();
        if (!queued)
            return op_change_transfer_policy(policy);
        enqueue({ step_change_transfer_policy, { policy } }, with_client, with_login, with_done);
        return true;
    }
    if (key == QLatin1String("fix")) {
        const bool force = arguments.value(0).toBool();
        return queued ? fix_device(force) : op_fix(force);
    }
    if (key == QLatin1String("reboot"))
        return queued ? reboot() : op_reboot();
    return false;
}

void legacy::fail(int code, const QString& text)
{
    emit failed(m_ident, code, text);
}

bool legacy::run_step(const step& s)
{
    const QVariantList& a = s.args;
    switch (s.code) {
    case step_await: return op_await(a.value(0).value<QHostAddress>(), a.value(1).toFloat());
    case step_change_ip: return op_change_ip(a.value(0).value<QHostAddress>(), a.value(1).value<QHostAddress>());
    case step_change_port: return op_change_port(a.value(0).toString(), uint16_t(a.value(1).toUInt()));
    case step_change_subnet: return op_change_subnet(a.value(0).value<QHostAddress>());
    case step_change_transfer_policy: return op_change_transfer_policy(a.value(0).toString());
    case step_destroy_client:
        delete m_client;
        m_client = nullptr;
        return true;
    case step_dhcp: return op_dhcp(a.value(0).toBool());
    case step_identify: return op_identify();
    case step_fix: return op_fix(a.value(0).toBool());
    case step_import_configuration: return op_import_configuration(a.value(0).toString());
    case step_create_client:
        delete m_client;
        m_client = new dvr_networking();
        return true;
    case step_login: return op_login();
    case step_close:
        if (m_client)
            m_client->close();
        return true;
    case step_reboot: return op_reboot();
    case step_reset_configuration: return op_reset_configuration(a.value(0).toBool());
    case step_set_language: return op_set_language(a.value(0).toString());
    case step_flash_memory: return op_upgrade_firmware(a.value(0).toByteArray());
    case step_flash_file: return op_upgrade_firmware_file(a.value(0).toString());
    default: return prototype::run_step(s);
    }
}

bool legacy::op_login()
{
    if (!client().connect_to(m_device.ip, m_device.port)) {
        fail(1, tr("Error connecting to %1").arg(m_device.ip));
        return false;
    }
    const QString first = m_device.password_is_hash ? m_device.password : client().encrypt_password(m_device.password);
    const QString second = client().encrypt_password(factory_password());
    if (client().login(m_device.user, first, nullptr))
        return true;
    uint16_t ret = 0;
    if (client().login(m_device.user, second, &ret))
        return true;
    const QString text = (ret == 203 || ret == 205) ? tr("Incorrect login or password") : tr("Can't login");
    fail(2, text + tr(" when connecting to %1").arg(m_device.ip));
    return false;
}

bool legacy::op_identify()
{
    QString serial, hardware, version, build;
    if (!client().system_info(serial, hardware, version, build)) {
        fail(3, tr("Error requesting system data"));
        return false;
    }
    if (m_device.address.is_null()) {
        SDK_CONFIG_NET_COMMON_V2 fetched;
        if (!client().get_net_common(fetched)) {
            fail(19, tr("Error requesting system data"));
            return false;
        }
        m_device.net = fetched;
        const QByteArray text(fetched.MAC, int(strnlen(fetched.MAC, sizeof fetched.MAC)));
        if (text.size() > 16) {
            std::array<uint8_t, 6> bytes {};
            for (int i = 0; i < 6; ++i)
                bytes[size_t(i)] = uint8_t(text.mid(i * 3, 2).toUInt(nullptr, 16));
            m_device.address = mac(bytes);
        }
    }
    parameters p;
    p.insert(QStringLiteral("build"), build);
    p.insert(QStringLiteral("hardware"), hardware);
    p.insert(QStringLiteral("mac"), m_device.address.text());
    p.insert(QStringLiteral("serial"), serial);
    p.insert(QStringLiteral("version"), version);
    emit data_available(m_ident, p);
    return true;
}

bool legacy::broadcast_config(const SDK_CONFIG_NET_COMMON_V2& record)
{
    SDK_CONFIG_NET_COMMON_V3 copy;
    std::memset(&copy, 0, sizeof copy);
    std::memcpy(copy.HostName, record.HostName, sizeof copy.HostName);
    copy.HostIP = qbswap(record.HostIP);
    copy.Submask = qbswap(record.Submask);
    copy.GateWay = qbswap(record.GateWay);
    copy.HttpPort = record.HttpPort;
    copy.TCPPort = record.TCPPort;
    copy.SSLPort = record.SSLPort;
    copy.UDPPort = record.UDPPort;
    copy.MaxConn = record.MaxConn;
    copy.MonMode = record.MonMode;
    copy.MaxBps = record.MaxBps;
    copy.TransferPlan = record.TransferPlan;
    copy.UseHSDownLoad = record.UseHSDownLoad;
    std::memcpy(copy.MAC, record.MAC, sizeof copy.MAC);
    copy.flags = 1;
    copy_text(copy.Username, sizeof copy.Username, m_device.user.toUtf8());
    // A password known only as its digest goes out as the digest; the mark tells the library so.
    copy_text(copy.Password, sizeof copy.Password, m_device.password.toUtf8());
    std::memset(copy.reserved, 0, 32);
    xmnet_mark_password_digest(copy, m_device.password_is_hash);

    const long result = H264_DVR_SetConfigOverNet(20, -1, reinterpret_cast<char*>(&copy), sizeof copy, 1000);
    return result == 0 || result == 1 || result == -10005 || result == -11401;
}

bool legacy::op_change_ip(const QHostAddress& address, const QHostAddress& mask)
{
    SDK_CONFIG_NET_COMMON_V2 copy = m_device.net;
    copy.HostIP = address.toIPv4Address();
    // Stored in the opposite byte order to op_change_subnet; the library reads both.
    if (!mask.isNull())
        copy.Submask = reversed(mask);
    if (copy.Submask == 0)
        copy.Submask = reversed(QHostAddress(QStringLiteral("255.255.255.0")));

    g_gate_mutex.lock();
    while (g_gate_busy) {
        g_gate_mutex.unlock();
        QThread::msleep(50);
        g_gate_mutex.lock();
    }
    g_gate_busy = true;
    g_gate_mutex.unlock();

    const bool ok = broadcast_config(copy);

    g_gate_mutex.lock();
    g_gate_busy = false;
    g_gate_mutex.unlock();

    if (!ok) {
        fail(5, tr("Can't change the device's address"));
        return false;
    }
    m_device.ip = address.toString();
    m_device.net.HostIP = copy.HostIP;
    if (!mask.isNull())
        m_device.net.Submask = copy.Submask;
    return true;
}

bool legacy::op_change_port(const QString& kind, uint16_t port)
{
    SDK_CONFIG_NET_COMMON_V2 copy = m_device.net;
    if (kind == QLatin1String("netip_tcp"))
        copy.TCPPort = port;
    else if (kind == QLatin1String("netip_udp"))
        copy.UDPPort = port;
    else if (kind == QLatin1String("http"))
        copy.HttpPort = port;
    else if (kind == QLatin1String("ssl"))
        copy.SSLPort = port;
    else
        return false;
    if (!broadcast_config(copy)) {
        fail(8, tr("Can't change the device's port"));
        return false;
    }
    return true;
}

bool legacy::op_change_subnet(const QHostAddress& mask)
{
    m_device.net.Submask = mask.toIPv4Address();
    if (!broadcast_config(m_device.net)) {
        fail(17, tr("Error changing the subnet mask"));
        return false;
    }
    return true;
}

bool legacy::op_change_transfer_policy(const QString& policy)
{
    static const QHash<QString, int> policies { { QStringLiteral("auto"), 0 }, { QStringLiteral("quality"), 1 },
        { QStringLiteral("fluency"), 2 }, { QStringLiteral("transmission"), 3 }, { QStringLiteral("nr"), 4 } };
    const auto found = policies.constFind(policy);
    if (found == policies.constEnd()) {
        fail(14, tr("Unknown device transfer policy: %1").arg(policy));
        return false;
    }
    SDK_CONFIG_NET_COMMON_V2 current;
    if (!client().get_net_common(current)) {
        fail(15, tr("Error requesting current configuration"));
        return false;
    }
    if (current.TransferPlan == found.value())
        return true;
    current.TransferPlan = found.value();
    if (!client().set_net_common(current)) {
        fail(16, tr("Error setting the transfer policy"));
        return false;
    }
    return true;
}

bool legacy::op_dhcp(bool enable)
{
    if (!client().set_dhcp(enable)) {
        fail(10, tr("Error setting DHCP"));
        return false;
    }
    return true;
}

bool legacy::op_fix(bool force)
{
    SDK_CONFIG_NET_COMMON_V2 copy = m_device.net;
    const uint32_t default_mask = reversed(QHostAddress(QStringLiteral("255.255.255.0")));
    if (force) {
        copy.HostIP = QHostAddress(QStringLiteral("192.168.1.123")).toIPv4Address();
        copy.Submask = default_mask;
        copy.GateWay = QHostAddress(QStringLiteral("192.168.1.1")).toIPv4Address();
    } else if (copy.Submask == 0 || (copy.Submask & 0xFFFF) == 0) {
        copy.Submask = default_mask;
    }
    if (!broadcast_config(copy)) {
        fail(18, tr("Can't fix the device"));
        return false;
    }
    return true;
}

bool legacy::op_import_configuration(const QString& path)
{
    if (!client().import_configuration(path)) {
        fail(9, tr("Error importing configuration"));
        return false;
    }
    return true;
}

bool legacy::op_reboot()
{
    if (!client().reboot()) {
        fail(4, tr("Unable to reboot the device"));
        return false;
    }
    return true;
}

bool legacy::op_reset_configuration(bool network_only)
{
    if (!client().reset_configuration(network_only ? 16 : 1023))
        fail(7, tr("Unable to reset device configuration"));
    // The device falls back to its factory address whatever it answered.
    m_device.net.HostIP = QHostAddress(QStringLiteral("192.168.1.10")).toIPv4Address();
    return true;
}

bool legacy::op_set_language(const QString& language)
{
    int index = -1;
    if (language == QLatin1String("ru/RU"))
        index = 6;
    else if (language == QLatin1String("en/US"))
        index = 0;
    if (index < 0) {
        fail(11, tr("Unknown device language: %1").arg(language));
        return false;
    }
    location_config current;
    if (!client().get_location(current)) {
        fail(12, tr("Error requesting current configuration"));
        return false;
    }
    if (current.language == index)
        return true;
    current.language = index;
    if (!client().set_location(current)) {
        fail(13, tr("Error setting the language"));
        return false;
    }
    return true;
}

bool legacy::op_await(const QHostAddress& address, float seconds)
{
    const qint64 limit_ms = qint64(seconds * 1000.0f);
    QDeadlineTimer deadline(limit_ms);
    H264_DVR_SetConnectTime(1000, 1);
    QElapsedTimer elapsed;
    elapsed.start();
    const QByteArray host = address.toString().toUtf8();
    // A device never asked for its network record has no port in it; the row's port stands in.
    const uint16_t port = m_device.net.TCPPort != 0 ? uint16_t(m_device.net.TCPPort & 0xFFFF) : m_device.port;
    while (limit_ms > 0 && deadline.remainingTime() >= 1) {
        int error = 0;
        const long handle = H264_DVR_Login(host.constData(), port, "admin", "",
            nullptr, &error, 0);
        if (handle > 0) {
            H264_DVR_Logout(handle);
            return true;
        }
        emit status_update(m_ident, tr("Awaiting, %1s / %2s").arg(elapsed.elapsed() / 1000).arg(limit_ms / 1000));
    }
    fail(20, tr("Device is gone"));
    return false;
}

bool legacy::op_upgrade_firmware(const QByteArray& data)
{
    // A chunk moves the percentage by a fifth of a point: repeats are dropped here, so that
    // a fleet's workers don't wake the main thread for every chunk with nothing new to paint.
    int last = -1;
    const dvr_networking::progress_callback progress = [this, &last](
                                                           const dvr_networking::upgrade_task_progress_type& stage,
                                                           const unsigned char& percent) {
        flash_progress_type kind = flash_progress_type::misinterpreted;
        if (stage == dvr_networking::sending)
            kind = flash_progress_type::sending;
        else if (stage == dvr_networking::upgrading)
            kind = flash_progress_type::upgrading;
        const int key = int(kind) << 8 | percent;
        if (key == last)
            return;
        last = key;
        // The core reads a legacy percentage from the total; it goes in both.
        emit flash_progress(m_ident, kind, percent, percent);
    };
    const bool ok = client().upgrade(dvr_networking::reader_of(data), progress);
    emit flash_progress(m_ident, ok ? flash_progress_type::done : flash_progress_type::failure, 0, 0);
    return ok;
}

bool legacy::op_upgrade_firmware_file(const QString& path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) {
        fail(6, tr("Error opening firmware file"));
        return false;
    }
    return op_upgrade_firmware(file.readAll());
}

} // namespace sdk
