#include "tests/support/http_server.h"

#include <QTcpSocket>

http_server::http_server(QObject* parent)
    : QObject(parent)
{
    connect(&m_server, &QTcpServer::newConnection, this, [this] {
        while (QTcpSocket* socket = m_server.nextPendingConnection()) {
            connect(socket, &QTcpSocket::disconnected, socket, &QObject::deleteLater);
            connect(socket, &QTcpSocket::readyRead, this, [this, socket] { serve(socket); });
        }
    });
}

bool http_server::start()
{
    return m_server.listen(QHostAddress::LocalHost, 0);
}

QUrl http_server::url(const QString& path) const
{
    return QUrl(QStringLiteral("http://127.0.0.1:%1%2").arg(m_server.serverPort()).arg(path));
}

void http_server::serve(QTcpSocket* socket)
{
    // Waits for the whole request: the head, then as much body as it announces.
    const QByteArray data = socket->peek(socket->bytesAvailable());
    const int head_end = data.indexOf("\r\n\r\n");
    if (head_end < 0)
        return;
    request r;
    const QList<QByteArray> lines = data.left(head_end).split('\n');
    const QList<QByteArray> first = lines.value(0).trimmed().split(' ');
    r.method = first.value(0);
    r.path = first.value(1);
    for (int i = 1; i < lines.size(); ++i) {
        const int colon = lines[i].indexOf(':');
        if (colon > 0)
            r.headers.insert(lines[i].left(colon).trimmed().toLower(), lines[i].mid(colon + 1).trimmed());
    }
    const int length = r.headers.value("content-length").toInt();
    if (data.size() < head_end + 4 + length)
        return;
    r.body = data.mid(head_end + 4, length);
    socket->readAll();
    m_requests.append(r);

    const auto found = m_answers.constFind(r.path);
    const answer a = found != m_answers.constEnd() ? *found : answer { 404, "not found" };
    socket->write("HTTP/1.1 " + QByteArray::number(a.status) + " X\r\nContent-Type: " + a.content_type
        + "\r\nContent-Length: " + QByteArray::number(a.body.size()) + "\r\nConnection: close\r\n\r\n" + a.body);
    socket->disconnectFromHost();
}
