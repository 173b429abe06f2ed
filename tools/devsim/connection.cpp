#include "tools/devsim/connection.h"

#include <QJsonDocument>
#include <QTcpSocket>
#include <QTimer>

#include "tools/devsim/device.h"
#include "tools/devsim/devsim_log.h"
#include "tools/devsim/ret_codes.h"

namespace devsim
{

namespace
{

    // Time a closing connection gets to hand its last answer to a peer that doesn't read.
    constexpr int linger_ms = 3000;
    // A client that streams without waiting for answers is held back by TCP, not by memory.
    constexpr qint64 read_buffer = 1 << 20;

} // namespace

connection::connection(QTcpSocket* socket, device& owner)
    : QObject(&owner)
    , m_socket(socket)
    , m_device(owner)
{
    m_socket->setParent(this);
    m_socket->setReadBufferSize(read_buffer);
    // Answers are small and each one lets the client go on; none may wait for an ACK.
    m_socket->setSocketOption(QAbstractSocket::LowDelayOption, 1);
    m_peer = QStringLiteral("%1:%2").arg(socket->peerAddress().toString()).arg(socket->peerPort());
    connect(m_socket, &QTcpSocket::readyRead, this, &connection::on_ready_read);
    connect(m_socket, &QTcpSocket::disconnected, this, [this] {
        m_closing = true;
        deleteLater();
    });
    qCDebug(lc_devsim, "%s: connected", qPrintable(tag()));
}

connection::~connection() = default;

void connection::reply(const frame& request, QJsonObject body)
{
    reply(request, quint16(request.message_id + 1), std::move(body));
}

void connection::reply(const frame& request, quint16 message_id, QJsonObject body)
{
    const auto wrong = m_device.faults().wrong_ret.constFind(request.message_id);
    if (wrong != m_device.faults().wrong_ret.constEnd())
        body.insert("Ret", *wrong);
    send(message_id, request.sequence, std::move(body));
}

void connection::send(quint16 message_id, quint32 sequence, QJsonObject body)
{
    if (m_closing)
        return;
    body.insert("SessionID", QString::asprintf("0x%08X", m_session));

    frame out;
    out.session = m_session;
    out.sequence = sequence;
    out.message_id = message_id;
    out.payload = QJsonDocument(body).toJson(QJsonDocument::Compact);
    // Devices end a body with a line feed and a NUL.
    out.payload.append('\n');
    out.payload.append('\0');
    m_socket->write(out.encode());
    qCDebug(lc_devsim, "%s: -> %u %s", qPrintable(tag()), message_id, out.payload.constData());
}

void connection::close()
{
    if (m_closing)
        return;
    m_closing = true;
    m_queue.clear();
    m_socket->disconnectFromHost();
    if (m_socket->state() == QAbstractSocket::UnconnectedState)
        deleteLater();
    else
        QTimer::singleShot(linger_ms, this, &connection::drop);
}

void connection::drop()
{
    m_closing = true;
    m_queue.clear();
    m_socket->abort();
    deleteLater();
}

void connection::on_ready_read()
{
    if (m_closing) {
        m_socket->readAll();
        return;
    }
    m_reader.append(m_socket->readAll());
    for (;;) {
        frame f;
        const frame_reader::status st = m_reader.next(f);
        if (st == frame_reader::status::need_more)
            break;
        if (st == frame_reader::status::malformed) {
            ++m_device.state().malformed_frames;
            qCWarning(lc_devsim, "%s: malformed frame (%s), dropping the connection", qPrintable(tag()),
                qPrintable(m_reader.error()));
            drop();
            return;
        }
        qCDebug(lc_devsim, "%s: <- %u session 0x%08X %s", qPrintable(tag()), f.message_id, f.session,
            request_record::carries_raw_bytes(f.message_id) ? "(raw bytes)" : f.payload.constData());
        m_device.requests().append(request_record::from_frame(f));
        m_queue.enqueue(std::move(f));
    }
    process_queue();
}

void connection::process_queue()
{
    while (!m_closing && !m_waiting && !m_queue.isEmpty()) {
        const frame request = m_queue.dequeue();
        const fault_set& faults = m_device.faults();
        if (faults.close_at.contains(request.message_id)) {
            qCInfo(lc_devsim, "%s: closing at %u as asked", qPrintable(tag()), request.message_id);
            close();
            return;
        }
        if (faults.silent_at.contains(request.message_id)) {
            qCInfo(lc_devsim, "%s: staying silent at %u as asked", qPrintable(tag()), request.message_id);
            continue;
        }
        const int delay = faults.delay_for(request.message_id);
        if (delay > 0) {
            m_waiting = true;
            QTimer::singleShot(delay, this, [this, request] {
                m_waiting = false;
                handle(request);
                process_queue();
            });
            return;
        }
        handle(request);
    }
}

void connection::handle(const frame& request)
{
    if (m_closing)
        return;
    handler* h = m_handlers.find(request.message_id);
    if (!h) {
        qCInfo(lc_devsim, "%s: no handler for message %u", qPrintable(tag()), request.message_id);
        reply(request, QJsonObject { { "Ret", ret::not_supported } });
    } else if (h->needs_login() && (m_session == 0 || request.session != m_session)) {
        qCInfo(lc_devsim, "%s: message %u with session 0x%08X, not logged in", qPrintable(tag()), request.message_id,
            request.session);
        reply(request, QJsonObject { { "Ret", ret::not_logged_in } });
    } else {
        h->handle(*this, request);
    }
    if (!m_closing && m_device.faults().close_after.contains(request.message_id)) {
        qCInfo(lc_devsim, "%s: closing after %u as asked", qPrintable(tag()), request.message_id);
        close();
    }
}

QString connection::tag() const
{
    return m_device.state().name + QLatin1Char(' ') + m_peer;
}

} // namespace devsim
