#pragma once

#include <QHostAddress>
#include <QObject>
#include <QTcpServer>

namespace svcsim
{

class service;

// The service's HTTP listener; each client gets an http_connection.
class http_server final : public QObject
{
    Q_OBJECT
public:
    explicit http_server(service& answers, QObject* parent = nullptr);
    ~http_server() override;
    Q_DISABLE_COPY_MOVE(http_server)

    // Only loopback addresses are taken. Port 0 picks a free one.
    bool listen(const QHostAddress& address, quint16 port, QString* error);
    quint16 port() const { return m_server.serverPort(); }
    QHostAddress address() const { return m_server.serverAddress(); }
    int open_connections() const { return m_open; }
    qint64 total_connections() const { return m_total; }

private:
    void on_new_connection();

    service& m_service;
    QTcpServer m_server;
    int m_open = 0;
    qint64 m_total = 0;
};

} // namespace svcsim
