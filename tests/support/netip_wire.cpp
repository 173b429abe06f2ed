#include "tests/support/netip_wire.h"

#include <QElapsedTimer>
#include <QJsonDocument>
#include <QtEndian>

namespace
{

constexpr int header_size = 20;

void fill(netip_reply& out, const QByteArray& bytes, int length)
{
    const auto* p = reinterpret_cast<const uchar*>(bytes.constData());
    out.head = p[0];
    out.version = p[1];
    out.session = qFromLittleEndian<quint32>(p + 4);
    out.sequence = qFromLittleEndian<quint32>(p + 8);
    out.current_packet = p[13];
    out.id = qFromLittleEndian<quint16>(p + 14);
    out.payload = bytes.mid(header_size, length);
    out.body = QJsonDocument::fromJson(out.payload.left(out.payload.size() - 1)).object();
}

} // namespace

bool netip_reply::parse(const QByteArray& bytes, netip_reply& out)
{
    if (bytes.size() < header_size)
        return false;
    const quint32 length = qFromLittleEndian<quint32>(reinterpret_cast<const uchar*>(bytes.constData()) + 16);
    if (quint32(bytes.size()) != header_size + length)
        return false;
    fill(out, bytes, int(length));
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
    QElapsedTimer t;
    t.start();
    while (!has_frame()) {
        if (t.elapsed() > timeout_ms || socket.state() != QAbstractSocket::ConnectedState)
            return false;
        socket.waitForReadyRead(50);
        m_buffer += socket.readAll();
    }
    const int length = int(qFromLittleEndian<quint32>(reinterpret_cast<const uchar*>(m_buffer.constData()) + 16));
    fill(out, m_buffer, length);
    m_buffer.remove(0, header_size + length);
    return true;
}

bool netip_wire::exchange(quint16 id, const QByteArray& body, netip_reply& out, quint32 session)
{
    send(id, body, session);
    return read(out);
}

bool netip_wire::closed_within(int timeout_ms)
{
    QElapsedTimer t;
    t.start();
    while (socket.state() == QAbstractSocket::ConnectedState && t.elapsed() < timeout_ms) {
        socket.waitForReadyRead(50);
        m_buffer += socket.readAll();
    }
    return socket.state() != QAbstractSocket::ConnectedState;
}

quint32 netip_wire::login(const QString& password_digest, const QString& user)
{
    netip_reply r;
    const QJsonObject body { { "EncryptType", "MD5" }, { "LoginType", "DVRIP-Web" }, { "UserName", user },
        { "PassWord", password_digest } };
    if (!exchange(1000, json(body), r, 0) || r.ret() != 100)
        return 0;
    return r.session;
}

bool netip_wire::has_frame() const
{
    if (m_buffer.size() < header_size)
        return false;
    const quint32 length = qFromLittleEndian<quint32>(reinterpret_cast<const uchar*>(m_buffer.constData()) + 16);
    return quint32(m_buffer.size()) >= header_size + length;
}
