#pragma once

#include <QByteArray>
#include <QHostAddress>
#include <QJsonDocument>
#include <QJsonObject>
#include <QTcpSocket>

// A bare NETIP peer for tests: the framing is written out here, apart from the simulator's
// and the program's, so that a mistake in either shows.
struct netip_reply {
    quint8 head = 0, version = 0;
    quint32 session = 0, sequence = 0;
    quint16 id = 0;
    QByteArray payload;
    QJsonObject body; // the payload less its terminator byte, when that is JSON
    int ret() const { return body.value("Ret").toInt(-1); }
    // Exactly one whole frame (a datagram); false for anything else.
    static bool parse(const QByteArray& bytes, netip_reply& out);
};

class netip_wire
{
public:
    // Digests of "" and "admin" as a client sends them in "PassWord".
    static constexpr char digest_empty[] = "tlJwpbo6";
    static constexpr char digest_admin[] = "6QNMIQGe";

    static QByteArray header(quint16 id, quint32 length, quint32 session = 0, quint8 head = 0xFF, quint8 version = 1,
        quint8 reserved = 0, quint32 sequence = 0, quint8 current_packet = 0);
    static QByteArray json(const QJsonObject& o) { return QJsonDocument(o).toJson(QJsonDocument::Compact); }

    bool open(const QHostAddress& address, quint16 port);
    // Any bytes: firmware chunks carry a sequence, the end of file current_packet 1.
    void send_frame(const QByteArray& bytes);
    // The next frame, within the time; false when none came or the peer closed.
    bool read(netip_reply& out, int timeout_ms = 3000);
    bool exchange(quint16 id, const QByteArray& body, netip_reply& out, quint32 session)
    {
        send_frame(header(id, quint32(body.size()), session) + body);
        return read(out);
    }
    // True once the peer has closed, within the time.
    bool closed_within(int timeout_ms);
    // Logs in as admin; the session handed out, 0 when refused.
    quint32 login(const QString& password_digest = QLatin1String(digest_empty));

private:
    QTcpSocket m_socket;
    QByteArray m_buffer;
};
