#include "tools/svcsim/http_connection.h"

#include <QTcpSocket>

#include <sys/socket.h>

#include "tools/svcsim/service.h"
#include "tools/svcsim/svcsim_log.h"

namespace svcsim
{

namespace
{

    // Slices of the body put into the socket, and how much may wait there.
    constexpr qint64 slice = 256 * 1024;
    // How long a closing connection waits for the client to close its side.
    constexpr int linger_ms = 2000;

    QByteArray reason(int status)
    {
        switch (status) {
        case 200:
            return "OK";
        case 400:
            return "Bad Request";
        case 404:
            return "Not Found";
        case 405:
            return "Method Not Allowed";
        default:
            return "Error";
        }
    }

} // namespace

http_connection::http_connection(QTcpSocket* socket, service& answers, QObject* parent)
    : QObject(parent)
    , m_socket(socket)
    , m_service(answers)
{
    m_socket->setParent(this);
    m_delay.setSingleShot(true);
    // A coarse timer may fire early, and tests measure the delay.
    m_delay.setTimerType(Qt::PreciseTimer);
    connect(&m_delay, &QTimer::timeout, this, &http_connection::deliver);
    m_linger.setSingleShot(true);
    connect(&m_linger, &QTimer::timeout, m_socket, &QTcpSocket::abort);
    connect(m_socket, &QTcpSocket::readyRead, this, &http_connection::on_ready_read);
    connect(m_socket, &QTcpSocket::bytesWritten, this, [this] {
        if (m_streaming)
            write_more();
        else if (m_closing)
            close_after_writing();
    });
    connect(m_socket, &QTcpSocket::disconnected, this, &http_connection::on_disconnected);
    // Bytes may have come before the connections above were made.
    if (m_socket->bytesAvailable() > 0)
        QMetaObject::invokeMethod(this, &http_connection::on_ready_read, Qt::QueuedConnection);
}

http_connection::~http_connection() = default;

void http_connection::on_ready_read()
{
    if (m_closing) {
        m_socket->readAll();
        return;
    }
    m_parser.feed(m_socket->readAll());
    if (!m_busy)
        serve_next();
}

void http_connection::on_disconnected()
{
    m_delay.stop();
    m_linger.stop();
    m_streaming = false;
    m_reply = {};
    emit closed();
    deleteLater();
}

void http_connection::serve_next()
{
    if (m_busy || m_socket->state() != QAbstractSocket::ConnectedState)
        return;
    http_request request;
    switch (m_parser.next(&request)) {
    case http_parser::result::need_more:
        return;
    case http_parser::result::bad:
        qCInfo(lc_svcsim, "refusing a client: %s", qPrintable(m_parser.error()));
        refuse(400, m_parser.error().toUtf8() + '\n');
        return;
    case http_parser::result::request:
        break;
    }
    m_busy = true;
    m_keep_alive = request.keep_alive();
    m_reply = m_service.handle(request);
    if (m_reply.delay_ms > 0)
        m_delay.start(m_reply.delay_ms);
    else
        deliver();
}

void http_connection::deliver()
{
    if (m_reply.drop) {
        m_reply = {};
        m_socket->disconnectFromHost();
        return;
    }
    QByteArray head = "HTTP/1.1 " + QByteArray::number(m_reply.status) + ' ' + reason(m_reply.status) + "\r\n";
    head += "Content-Type: " + m_reply.content_type + "\r\n";
    head += "Content-Length: " + QByteArray::number(m_reply.body.size()) + "\r\n";
    head += m_keep_alive ? "Connection: keep-alive\r\n\r\n" : "Connection: close\r\n\r\n";
    m_socket->write(head);
    m_offset = 0;
    m_streaming = true;
    write_more();
}

void http_connection::write_more()
{
    if (!m_streaming)
        return;
    const qint64 size = m_reply.body.size();
    while (m_offset < size && m_socket->bytesToWrite() < slice) {
        const qint64 n = qMin(slice, size - m_offset);
        const qint64 written = m_socket->write(m_reply.body.constData() + m_offset, n);
        if (written <= 0) {
            qCWarning(lc_svcsim, "write failed: %s", qPrintable(m_socket->errorString()));
            m_socket->abort();
            return;
        }
        m_offset += written;
    }
    if (m_offset == size)
        done_with_reply();
}

void http_connection::done_with_reply()
{
    m_streaming = false;
    m_reply = {};
    m_busy = false;
    if (!m_keep_alive) {
        close_after_writing();
        return;
    }
    // Queued, so a client that pipelines can't recurse through here.
    QMetaObject::invokeMethod(this, &http_connection::serve_next, Qt::QueuedConnection);
}

void http_connection::refuse(int status, const QByteArray& why)
{
    m_busy = true;
    m_keep_alive = false;
    m_reply = {};
    m_reply.status = status;
    m_reply.body = why;
    deliver();
}

void http_connection::close_after_writing()
{
    m_closing = true;
    m_busy = true;
    if (m_socket->bytesToWrite() > 0 || m_linger.isActive())
        return;
    ::shutdown(int(m_socket->socketDescriptor()), SHUT_WR);
    m_socket->readAll();
    m_linger.start(linger_ms);
}

} // namespace svcsim
