#pragma once

#include "tools/devsim/frame.h"
#include "tools/devsim/frame_reader.h"
#include "tools/devsim/handler_table.h"

#include <QJsonObject>
#include <QObject>
#include <QQueue>

class QTcpSocket;

namespace devsim
{

class device;

// One client's TCP connection to a device: cuts frames from the stream, records
// them, applies the device's faults, hands each request to its handler in order and
// writes the answers. A malformed frame drops the connection.
class connection final : public QObject
{
    Q_OBJECT
public:
    // Takes the socket over; the device is the parent.
    connection(QTcpSocket* socket, device& owner);
    ~connection() override;
    Q_DISABLE_COPY_MOVE(connection)

    device& owner() { return m_device; }
    quint32 session() const { return m_session; }
    void set_session(quint32 session) { m_session = session; }

    // Answers under the request's id plus one.
    void reply(const frame& request, QJsonObject body);
    // Answers under any id; "SessionID" is added, and "Ret" replaced when a fault
    // asks for a wrong one. The header carries the session and the request's sequence.
    void reply(const frame& request, quint16 message_id, QJsonObject body);
    // A message of the device's own (upgrade progress): no fault touches its "Ret".
    void send(quint16 message_id, quint32 sequence, QJsonObject body);
    // Closes after what was written has left.
    void close();
    // Closes at once, dropping what wasn't sent.
    void drop();
    bool closing() const { return m_closing; }

private:
    void on_ready_read();
    void process_queue();
    void handle(const frame& request);
    QString tag() const;

    QTcpSocket* m_socket;
    device& m_device;
    QString m_peer;
    frame_reader m_reader;
    handler_table m_handlers;
    QQueue<frame> m_queue;
    bool m_waiting = false; // a delayed request holds the ones behind it
    bool m_closing = false;
    quint32 m_session = 0;
};

} // namespace devsim
