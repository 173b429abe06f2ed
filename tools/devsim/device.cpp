#include "tools/devsim/device.h"

#include <QDateTime>
#include <QTcpSocket>

#include "tools/devsim/address_policy.h"
#include "tools/devsim/connection.h"
#include "tools/devsim/devsim_log.h"

namespace devsim
{

namespace
{

    // A device that can't get its address back after a reboot keeps trying for a while.
    constexpr int comeback_retry_ms = 500;
    constexpr int comeback_tries = 20;

} // namespace

device::device(device_state state, fault_set faults, QObject* parent)
    : QObject(parent)
    , m_state(std::move(state))
    , m_faults(std::move(faults))
    , m_address(m_state.address)
    , m_port(m_state.port)
{
    m_server.setMaxPendingConnections(64);
    connect(&m_server, &QTcpServer::newConnection, this, &device::on_new_connection);
    m_reboot_timer.setSingleShot(true);
    connect(&m_reboot_timer, &QTimer::timeout, this, &device::come_back);
    m_apply_timer.setSingleShot(true);
    connect(&m_apply_timer, &QTimer::timeout, this, &device::apply_network);
}

device::~device() = default;

bool device::start(QString* error)
{
    if (!listen_on(m_address, m_port, error))
        return false;
    // Port 0 asked the system for one: from now on that is the device's port.
    if (m_state.port == 0) {
        m_state.port = m_port;
        m_state.net.tcp_port = m_port;
    }
    bind_udp();
    return true;
}

bool device::send_datagram(const QByteArray& datagram, const QHostAddress& to, quint16 port)
{
    if (m_udp.state() != QAbstractSocket::BoundState)
        return false;
    if (m_udp.writeDatagram(datagram, to, port) != datagram.size())
        qCWarning(lc_devsim, "%s: can't send to %s:%u: %s", qPrintable(m_state.name), qPrintable(to.toString()), port,
            qPrintable(m_udp.errorString()));
    return true;
}

quint32 device::next_session()
{
    static quint32 last = 0x100;
    ++last;
    if (last == 0)
        last = 1;
    return last;
}

void device::reboot(const QString& new_version)
{
    if (m_rebooting)
        return;
    qCInfo(lc_devsim, "%s: rebooting for %d ms", qPrintable(m_state.name), m_state.reboot_ms);
    m_rebooting = true;
    m_pending_version = new_version;
    m_apply_timer.stop();
    close_connections();
    m_server.close();
    m_udp.close();
    m_comeback_tries = 0;
    m_reboot_timer.start(m_state.reboot_ms);
}

void device::network_changed()
{
    m_apply_timer.start(m_state.net_apply_ms);
}

QJsonObject device::summary() const
{
    return QJsonObject {
        { "name", m_state.name },
        { "address", m_address.toString() },
        { "port", int(m_port) },
        { "listening", listening() },
        { "rebooting", m_rebooting },
        { "serial", m_state.serial },
        { "mac", m_state.net.mac },
    };
}

QJsonObject device::to_json() const
{
    QJsonObject out = m_state.to_json();
    out.insert("listen_address", m_address.toString());
    out.insert("listen_port", int(m_port));
    out.insert("listening", listening());
    out.insert("rebooting", m_rebooting);
    out.insert("connections", findChildren<connection*>(QString(), Qt::FindDirectChildrenOnly).size());
    out.insert("requests_dropped", double(m_requests.dropped()));
    return out;
}

void device::on_new_connection()
{
    while (QTcpSocket* socket = m_server.nextPendingConnection())
        new connection(socket, *this);
}

bool device::listen_on(const QHostAddress& address, quint16 port, QString* error)
{
    if (!m_server.listen(address, port)) {
        *error = QStringLiteral("%1: can't listen on %2:%3: %4")
                     .arg(m_state.name, address.toString())
                     .arg(port)
                     .arg(m_server.errorString());
        return false;
    }
    m_address = address;
    m_port = m_server.serverPort();
    return true;
}

void device::come_back()
{
    QString error;
    if (!listen_on(m_address, m_port, &error)) {
        if (++m_comeback_tries < comeback_tries) {
            m_reboot_timer.start(comeback_retry_ms);
            return;
        }
        qCWarning(lc_devsim, "%s", qPrintable(error));
    }
    bind_udp();
    m_rebooting = false;
    ++m_state.boot_count;
    m_state.boot_time_ms = QDateTime::currentMSecsSinceEpoch();
    if (!m_pending_version.isEmpty())
        m_state.software_version = m_pending_version;
    m_pending_version.clear();
    qCInfo(lc_devsim, "%s: back on %s:%u", qPrintable(m_state.name), qPrintable(m_address.toString()), m_port);
}

void device::apply_network()
{
    if (m_rebooting)
        return;
    QHostAddress address = m_address;
    const QHostAddress wanted(m_state.net.host_ip);
    if (address_policy::may_listen_on(wanted))
        address = wanted;
    else if (wanted != m_address)
        qCInfo(lc_devsim, "%s: stays on %s, %s is neither loopback nor a local address it may take",
            qPrintable(m_state.name), qPrintable(m_address.toString()), qPrintable(wanted.toString()));
    const quint16 port
        = m_state.net.tcp_port > 0 && m_state.net.tcp_port <= 65535 ? quint16(m_state.net.tcp_port) : m_port;
    if (address == m_address && port == m_port)
        return;

    const QHostAddress old_address = m_address;
    const quint16 old_port = m_port;
    close_connections();
    m_server.close();
    QString error;
    if (listen_on(address, port, &error)) {
        qCInfo(lc_devsim, "%s: moved to %s:%u", qPrintable(m_state.name), qPrintable(address.toString()), port);
    } else {
        qCWarning(lc_devsim, "%s; staying where it was", qPrintable(error));
        if (!listen_on(old_address, old_port, &error))
            qCWarning(lc_devsim, "%s", qPrintable(error));
    }
    if (m_address != old_address)
        bind_udp();
}

void device::bind_udp()
{
    m_udp.close();
    if (m_udp_port == 0)
        return;
    // Shared with the simulator's socket on 0.0.0.0 and with other processes' devices.
    if (!m_udp.bind(m_address, m_udp_port, QUdpSocket::ShareAddress | QUdpSocket::ReuseAddressHint))
        qCWarning(lc_devsim, "%s: no UDP socket on %s:%u (%s); answers leave by the shared one",
            qPrintable(m_state.name), qPrintable(m_address.toString()), m_udp_port, qPrintable(m_udp.errorString()));
}

void device::close_connections()
{
    const QList<connection*> all = findChildren<connection*>(QString(), Qt::FindDirectChildrenOnly);
    for (connection* c : all)
        c->close();
}

} // namespace devsim
