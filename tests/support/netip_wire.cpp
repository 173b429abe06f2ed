#include "tests/support/netip_wire.h"

#include <QDeadlineTimer>
#include <QJsonDocument>
#include <QtEndian>

namespace
{

constexpr int header_size = 20;

quint32 length_of(const QByteArray& bytes)
{
    return bytes.size() < header_size ? 0 : qFromLittleEndian<quint32>(bytes.constData() + 16);
}

} // namespace

bool netip_reply::parse(const QByteArray& bytes, netip_reply& out)
{
    if (bytes.size() < header_size || quint32(bytes.size()) != header_size + length_of(bytes))
        return false;
    const auto* p = reinterpret_cast<const uchar*>(bytes.constData());
    out.head = p[0];
    out.version = p[1];
    out.session = qFromLittleEndian<quint32>(p + 4);
    out.sequence = qFromLittleEndian<quint32>(p + 8);
    out.id = qFromLittleEndian<quint16>(p + 14);
    out.payload = bytes.mid(header_size);
    out.body = QJsonDocument::fromJson(out.payload.left(out.payload.size() - 1)).object();
    return true;
}

QByteArray netip_wire::header(quint16 id, quint32 length, quint32 session, quint8 head, quint8 version, quint8 reserved,
    quint32 sequence, quint8 current_packet)
{
    QByteArray h(header_size, '\0');
    auto* p = reinterpret_cast<uchar*>(h.data());
    p[0] = head;
    p[1] = version;
    p[2] = reserved;
    qToLittleEndian<quint32>(session, p + 4);
    qToLittleEndian<quint32>(sequence, p + 8);
    p[13] = current_packet;
    qToLittleEndian<quint16>(id, p + 14);
    qToLittleEndian<quint32>(length, p + 16);
    return h;
}

QByteArray netip_wire::json(const QJsonObject& o)
{
    return QJsonDocument(o).toJson(QJsonDocument::Compact);
}

bool netip_wire::open(const QHostAddress& address, quint16 port)
{
    socket.connectToHost(address, port);
    return socket.waitForConnected(2000);
}

void netip_wire::send(quint16 id, const QByteArray& body, quint32 session)
{
    send_frame(header(id, quint32(body.size()), session) + body);
}

void netip_wire::send_frame(const QByteArray& header_and_body)
{
    socket.write(header_and_body);
    socket.flush();
}

bool netip_wire::read(netip_reply& out, int timeout_ms)
{
    const QDeadlineTimer deadline(timeout_ms);
    while (m_buffer.size() < header_size || quint32(m_buffer.size()) < header_size + length_of(m_buffer)) {
        if (deadline.hasExpired() || socket.state() != QAbstractSocket::ConnectedState)
            return false;
        socket.waitForReadyRead(50);
        m_buffer += socket.readAll();
    }
    const int size = header_size + int(length_of(m_buffer));
    netip_reply::parse(m_buffer.left(size), out);
    m_buffer.remove(0, size);
    return true;
}

bool netip_wire::exchange(quint16 id, const QByteArray& body, netip_reply& out, quint32 session)
{
    send(id, body, session);
    return read(out);
}

bool netip_wire::closed_within(int timeout_ms)
{
    const QDeadlineTimer deadline(timeout_ms);
    while (socket.state() == QAbstractSocket::ConnectedState && !deadline.hasExpired()) {
        socket.waitForReadyRead(50);
        m_buffer += socket.readAll();
    }
    return socket.state() != QAbstractSocket::ConnectedState;
}

quint32 netip_wire::login(const QString& password_digest)
{
    netip_reply r;
    const QJsonObject body { { "EncryptType", "MD5" }, { "LoginType", "DVRIP-Web" }, { "UserName", "admin" },
        { "PassWord", password_digest } };
    return exchange(1000, json(body), r, 0) && r.ret() == 100 ? r.session : 0;
}
