#pragma once

#include <QByteArray>
#include <QHash>
#include <QList>
#include <QObject>
#include <QTcpServer>
#include <QUrl>

class QTcpSocket;

// A small HTTP/1.1 server on 127.0.0.1 for tests of the program's web requests: fixed answers by path, every
// request recorded. One request per connection, answered with Connection: close.
class http_server final : public QObject
{
    Q_OBJECT
public:
    struct answer
    {
        int status = 200;
        QByteArray body;
        QByteArray content_type = "text/plain";
    };
    struct request
    {
        QByteArray method;
        QByteArray path;
        QHash<QByteArray, QByteArray> headers; // names in lower case
        QByteArray body;
    };

    explicit http_server(QObject* parent = nullptr);
    Q_DISABLE_COPY_MOVE(http_server)

    // Listens on a free loopback port; false when it can't.
    bool start();
    // The answer for a path; a path without one gets 404.
    void set_answer(const QByteArray& path, const answer& a) { m_answers.insert(path, a); }
    QUrl url(const QString& path) const;
    const QList<request>& requests() const { return m_requests; }

private:
    void serve(QTcpSocket* socket);

    QTcpServer m_server;
    QHash<QByteArray, answer> m_answers;
    QList<request> m_requests;
};
