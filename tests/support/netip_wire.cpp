#include "tests/support/netip_wire.h"

#include <QDataStream>
#include <QDeadlineTimer>
#include <QJsonDocument>
#include <QtEndian>

namespace
{

constexpr int header_size = 20;

// The whole frame's size as its header gives it; 0 before a whole header.
int frame_size(const QByteArray& bytes)
{
    return bytes.size() < header_size ? 0 : header_size + int(qFromLittleEndian<quint32>(bytes.constData() + 16));
}

} // namespace

bool netip_reply::parse(const QByteArray& bytes, netip_reply& out)
{
    if (bytes.size() < header_size || bytes.size() != frame_size(bytes))
        return false;
    QDataStream s(bytes);
    s.setByteOrder(QDataStream::LittleEndian);
    quint8 skip = 0;
    s >> out.head >> out.version >> skip >> skip >> out.session >> out.sequence >> skip >> skip >> out.id;
    out.payload = bytes.mid(header_size);
    out.body = QJsonDocument::fromJson(out.payload.left(out.payload.size() - 1)).object();
    return true;
}

QByteArray netip_wire::header(quint16 id, quint32 length, quint32 session, quint8 head, quint8 version, quint8 reserved,
    quint32 sequence, quint8 current_packet)
{
    QByteArray h;
    QDataStream s(&h, QIODevice::WriteOnly);
    s.setByteOrder(QDataStream::LittleEndian);
    s << head << version << reserved << quint8(0) << session << sequence << quint8(0) << current_packet << id << length;
    return h;
}

bool netip_wire::open(const QHostAddress& address, quint16 port)
{
    m_socket.connectToHost(address, port);
    return m_socket.waitForConnected(2000);
}

void netip_wire::send_frame(const QByteArray& bytes)
{
    m_socket.write(bytes);
    m_socket.flush();
}

bool netip_wire::read(netip_reply& out, int timeout_ms)
{
    const QDeadlineTimer deadline(timeout_ms);
    while (frame_size(m_buffer) == 0 || m_buffer.size() < frame_size(m_buffer)) {
        if (deadline.hasExpired() || m_socket.state() != QAbstractSocket::ConnectedState)
            return false;
        m_socket.waitForReadyRead(50);
        m_buffer += m_socket.readAll();
    }
    const int size = frame_size(m_buffer);
    netip_reply::parse(m_buffer.left(size), out);
    m_buffer.remove(0, size);
    return true;
}

bool netip_wire::closed_within(int timeout_ms)
{
    const QDeadlineTimer deadline(timeout_ms);
    while (m_socket.state() == QAbstractSocket::ConnectedState && !deadline.hasExpired())
        m_buffer += m_socket.waitForReadyRead(50) ? m_socket.readAll() : QByteArray();
    return m_socket.state() != QAbstractSocket::ConnectedState;
}

quint32 netip_wire::login(const QString& password_digest)
{
    netip_reply r;
    const QJsonObject body { { "EncryptType", "MD5" }, { "LoginType", "DVRIP-Web" }, { "UserName", "admin" },
        { "PassWord", password_digest } };
    return exchange(1000, json(body), r, 0) && r.ret() == 100 ? r.session : 0;
}
