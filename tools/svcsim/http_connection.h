#pragma once

#include <QByteArray>
#include <QObject>
#include <QTimer>

#include "tools/svcsim/http_parser.h"
#include "tools/svcsim/http_reply.h"

class QTcpSocket;

namespace svcsim
{

class service;

// One client connection: requests are answered one at a time and in order, as
// HTTP/1.1 keep-alive wants. Bodies are written in slices as the socket drains,
// so that a large file shared by many connections is never copied per client.
class http_connection final : public QObject
{
    Q_OBJECT
public:
    // Takes the socket over.
    http_connection(QTcpSocket* socket, service& answers, QObject* parent = nullptr);
    ~http_connection() override;
    Q_DISABLE_COPY_MOVE(http_connection)

signals:
    // The client is gone; the object deletes itself afterwards.
    void closed();

private:
    void on_ready_read();
    void on_disconnected();
    void serve_next();
    void deliver();
    void write_more();
    void done_with_reply();
    void refuse(int status, const QByteArray& why);
    // Sends the end once the answer has left, then reads until the client
    // closes too: closing with its bytes unread would reset the connection and
    // could destroy the answer on the way.
    void close_after_writing();

    QTcpSocket* m_socket;
    service& m_service;
    http_parser m_parser;
    QTimer m_delay;
    QTimer m_linger;
    bool m_busy = false; // a request is being answered
    bool m_keep_alive = true;
    http_reply m_reply;
    qint64 m_offset = 0; // of the body being written
    bool m_streaming = false;
    bool m_closing = false;
};

} // namespace svcsim
