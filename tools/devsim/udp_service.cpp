#include "tools/devsim/udp_service.h"

#include <QJsonDocument>
#include <QNetworkDatagram>
#include <QTimer>

#include "tools/devsim/address_policy.h"
#include "tools/devsim/broadcast_config.h"
#include "tools/devsim/device.h"
#include "tools/devsim/devsim_log.h"
#include "tools/devsim/discovery_reply.h"
#include "tools/devsim/frame_reader.h"
#include "tools/devsim/request_body.h"
#include "tools/devsim/ret_codes.h"
#include "tools/devsim/simulator.h"

namespace devsim
{

namespace
{

    constexpr quint16 discovery_request = 1530;
    constexpr quint16 config_request = 1532;

    QString peer_text(const QHostAddress& peer, quint16 port)
    {
        bool is_v4 = false;
        const quint32 v4 = peer.toIPv4Address(&is_v4);
        return QStringLiteral("%1:%2").arg(is_v4 ? QHostAddress(v4).toString() : peer.toString()).arg(port);
    }

} // namespace

udp_service::udp_service(simulator& sim, QObject* parent)
    : QObject(parent)
    , m_sim(sim)
{
    connect(&m_socket, &QUdpSocket::readyRead, this, [this] { read_from(m_socket, nullptr); });
}

udp_service::~udp_service() = default;

bool udp_service::start(quint16 port, QString* error)
{
    m_port = port;
    for (int i = 0; i < m_sim.count(); ++i) {
        device* d = m_sim.at(i);
        connect(&d->udp_socket(), &QUdpSocket::readyRead, this, [this, d] { read_from(d->udp_socket(), d); });
    }
    if (!m_socket.bind(QHostAddress::AnyIPv4, port, QUdpSocket::ShareAddress | QUdpSocket::ReuseAddressHint)) {
        *error = QStringLiteral("can't bind UDP 0.0.0.0:%1: %2").arg(port).arg(m_socket.errorString());
        return false;
    }
    return true;
}

void udp_service::read_from(QUdpSocket& socket, device* only)
{
    while (socket.hasPendingDatagrams()) {
        const QNetworkDatagram d = socket.receiveDatagram();
        if (d.isValid())
            handle(d.data(), d.senderAddress(), quint16(d.senderPort()), only);
    }
}

void udp_service::handle(const QByteArray& datagram, const QHostAddress& peer, quint16 peer_port, device* only)
{
    const QString from = peer_text(peer, peer_port);
    frame_reader reader;
    reader.append(datagram);
    frame request;
    if (reader.next(request) != frame_reader::status::ready) {
        qCDebug(lc_devsim, "udp: %d bytes from %s that aren't a NETIP frame", datagram.size(), qPrintable(from));
        return;
    }
    // Answers of its own devices that come back to the shared port.
    if (from_own_device(peer, peer_port))
        return;
    if (!address_policy::may_answer(peer)) {
        // On a real network others talk on this port too; that is no event.
        qCDebug(lc_devsim, "udp: message %u from %s, which isn't answered here", request.message_id, qPrintable(from));
        return;
    }
    qCDebug(lc_devsim, "udp: <- %u from %s %s", request.message_id, qPrintable(from), request.payload.constData());

    QJsonObject body;
    if (request.message_id == config_request) {
        bool ok = false;
        body = parse_request_body(request.payload, &ok);
        if (!ok)
            qCInfo(lc_devsim, "udp: configuration from %s that isn't JSON", qPrintable(from));
    }
    request_record record = request_record::from_frame(request);
    record.peer = from;
    const QList<device*> targets = only ? QList<device*> { only } : m_sim.select(QStringLiteral("*"));
    for (device* d : targets) {
        // A rebooting device is off the network: it receives nothing.
        if (d->rebooting())
            continue;
        // Everything heard is logged; only requests are answered.
        d->requests().append(record);
        if (request.message_id == discovery_request)
            discovery(*d, request, peer, peer_port);
        else if (request.message_id == config_request && broadcast_config_is_for(d->state(), body))
            configuration(*d, request, body, peer, peer_port);
    }
}

void udp_service::discovery(device& d, const frame& request, const QHostAddress& peer, quint16 peer_port)
{
    device_state& s = d.state();
    fault_set& faults = d.faults();
    ++s.discovery_requests;
    if (faults.silent_at.contains(request.message_id)) {
        qCDebug(lc_devsim, "%s: silent to discovery as asked", qPrintable(s.name));
        return;
    }
    if (faults.skip_discovery()) {
        qCInfo(lc_devsim, "%s: skipping a discovery request as asked, %d more to skip", qPrintable(s.name),
            faults.discovery_skip);
        return;
    }
    const auto answer = [this, &d, peer, peer_port] {
        if (d.rebooting())
            return;
        ++d.state().discovery_answers;
        const fault_set& f = d.faults();
        const QByteArray body
            = f.discovery_body.isEmpty() ? discovery_reply(d.state(), f.leading_zeros) : f.discovery_body.toUtf8();
        send(d, quint16(discovery_request + 1), body, peer, peer_port);
    };
    const int delay = faults.delay_for(request.message_id);
    if (delay > 0)
        QTimer::singleShot(delay, &d, answer);
    else
        answer();
}

void udp_service::configuration(
    device& d, const frame& request, const QJsonObject& body, const QHostAddress& peer, quint16 peer_port)
{
    device_state& s = d.state();
    const fault_set& faults = d.faults();
    ++s.broadcast_configs;
    if (faults.silent_at.contains(request.message_id)) {
        qCInfo(lc_devsim, "%s: silent to a configuration by broadcast as asked", qPrintable(s.name));
        return;
    }
    const auto apply = [this, &d, body, peer, peer_port] {
        if (d.rebooting())
            return;
        device_state& state = d.state();
        bool moved = false;
        QString why;
        int code = apply_broadcast_config(state, body, &moved, &why);
        if (code == ret::ok)
            ++state.broadcast_applied;
        else
            qCInfo(lc_devsim, "%s: configuration by broadcast refused with %d: %s", qPrintable(state.name), code,
                qPrintable(why));
        const auto wrong = d.faults().wrong_ret.constFind(config_request);
        if (wrong != d.faults().wrong_ret.constEnd())
            code = *wrong;
        QByteArray reply = QJsonDocument(QJsonObject { { "Ret", code } }).toJson(QJsonDocument::Compact);
        reply.append('\n');
        reply.append('\0');
        send(d, quint16(config_request + 1), reply, peer, peer_port);
        if (moved)
            d.network_changed();
    };
    const int delay = faults.delay_for(request.message_id);
    if (delay > 0)
        QTimer::singleShot(delay, &d, apply);
    else
        apply();
}

void udp_service::send(
    device& d, quint16 message_id, const QByteArray& body, const QHostAddress& peer, quint16 peer_port)
{
    frame out;
    out.version = 0;
    out.message_id = message_id;
    out.payload = body;
    const QByteArray bytes = out.encode();
    qCDebug(lc_devsim, "%s: udp -> %u to %s %s", qPrintable(d.state().name), message_id,
        qPrintable(peer_text(peer, peer_port)), body.constData());
    if (d.send_datagram(bytes, peer, peer_port))
        return;
    if (m_socket.writeDatagram(bytes, peer, peer_port) != bytes.size())
        qCWarning(lc_devsim, "%s: can't send to %s: %s", qPrintable(d.state().name),
            qPrintable(peer_text(peer, peer_port)), qPrintable(m_socket.errorString()));
}

bool udp_service::from_own_device(const QHostAddress& peer, quint16 peer_port) const
{
    if (peer_port != m_port)
        return false;
    const QHostAddress v4(peer.toIPv4Address());
    for (int i = 0; i < m_sim.count(); ++i) {
        if (m_sim.at(i)->listen_address() == v4)
            return true;
    }
    return false;
}

} // namespace devsim
