#pragma once

#include "tools/devsim/device_state.h"
#include "tools/devsim/fault_set.h"
#include "tools/devsim/request_log.h"

#include <QHostAddress>
#include <QJsonObject>
#include <QObject>
#include <QTcpServer>
#include <QTimer>
#include <QUdpSocket>

namespace devsim
{

class connection;

// One simulated camera or recorder: its state, its faults, the log of what it was
// asked, its TCP listener with the connections on it, and a UDP socket on its own
// address for the answers to discovery. Reboots and network changes move or pause
// both the way a real device goes off the network.
class device final : public QObject
{
    Q_OBJECT
public:
    device(device_state state, fault_set faults, QObject* parent = nullptr);
    ~device() override;
    Q_DISABLE_COPY_MOVE(device)

    // Starts listening where the state says; false with the reason when the bind fails.
    // With a UDP port set before, its UDP socket is bound there too (a failure is only
    // logged: answers then leave by the simulator's shared socket).
    bool start(QString* error);
    void set_udp_port(quint16 port) { m_udp_port = port; }

    device_state& state() { return m_state; }
    const device_state& state() const { return m_state; }
    fault_set& faults() { return m_faults; }
    const fault_set& faults() const { return m_faults; }
    request_log& requests() { return m_requests; }

    // A fresh, non-zero session, unique in the process.
    static quint32 next_session();

    // Drops every connection, stays off the network for reboot_ms and comes back,
    // with the new software version when one is given.
    void reboot(const QString& new_version = {});
    bool rebooting() const { return m_rebooting; }
    // After the network record changed: moves the listener to the new HostIP and
    // TCPPort after net_apply_ms. An address address_policy doesn't allow is
    // recorded but not taken; the device stays where it is.
    void network_changed();

    bool listening() const { return m_server.isListening(); }
    QHostAddress listen_address() const { return m_address; }
    quint16 listen_port() const { return m_port; }

    // Its own UDP socket; datagrams sent to its address arrive here.
    QUdpSocket& udp_socket() { return m_udp; }
    // Sends from its own address; false when its socket isn't bound.
    bool send_datagram(const QByteArray& datagram, const QHostAddress& to, quint16 port);

    // Name, address and identity, for the device list.
    QJsonObject summary() const;
    // The whole state with where it listens now.
    QJsonObject to_json() const;

private:
    void on_new_connection();
    bool listen_on(const QHostAddress& address, quint16 port, QString* error);
    void come_back();
    void apply_network();
    void close_connections();
    void bind_udp();

    device_state m_state;
    fault_set m_faults;
    request_log m_requests;
    QTcpServer m_server;
    QUdpSocket m_udp;
    quint16 m_udp_port = 0;
    QHostAddress m_address;
    quint16 m_port = 0;
    QTimer m_reboot_timer;
    QTimer m_apply_timer;
    bool m_rebooting = false;
    QString m_pending_version;
    int m_comeback_tries = 0;
};

} // namespace devsim
