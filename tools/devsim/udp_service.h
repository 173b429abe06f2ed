#pragma once

#include <QHostAddress>
#include <QJsonObject>
#include <QObject>
#include <QUdpSocket>

namespace devsim
{

class device;
class simulator;
struct frame;

// The UDP side of every device of the process on one port (34569): discovery (1530,
// answered by 1531 from each device) and configuration by broadcast (1532, answered
// by 1533 from the device whose MAC it names). Broadcasts arrive on one socket bound
// to 0.0.0.0, since a socket bound to one address receives none; answers leave by
// each device's own socket so that they come from its address. Only peers that
// address_policy allows are answered; the simulator's own datagrams are ignored.
class udp_service final : public QObject
{
    Q_OBJECT
public:
    explicit udp_service(simulator& sim, QObject* parent = nullptr);
    ~udp_service() override;
    Q_DISABLE_COPY_MOVE(udp_service)

    // Binds the shared socket and listens on every device's own socket too.
    bool start(quint16 port, QString* error);
    bool bound() const { return m_socket.state() == QAbstractSocket::BoundState; }
    quint16 port() const { return m_port; }

private:
    // `only` is the device whose own socket it came in on; null for the shared one.
    void read_from(QUdpSocket& socket, device* only);
    void handle(const QByteArray& datagram, const QHostAddress& peer, quint16 peer_port, device* only);
    void discovery(device& d, const frame& request, const QHostAddress& peer, quint16 peer_port);
    void configuration(
        device& d, const frame& request, const QJsonObject& body, const QHostAddress& peer, quint16 peer_port);
    void send(device& d, quint16 message_id, const QByteArray& body, const QHostAddress& peer, quint16 peer_port);
    bool from_own_device(const QHostAddress& peer, quint16 peer_port) const;

    simulator& m_sim;
    QUdpSocket m_socket;
    quint16 m_port = 0;
};

} // namespace devsim
