#include "tools/svcsim/http_server.h"

#include <QTcpSocket>

#include "tools/svcsim/http_connection.h"

namespace svcsim
{

http_server::http_server(service& answers, QObject* parent)
    : QObject(parent)
    , m_service(answers)
{
    connect(&m_server, &QTcpServer::newConnection, this, &http_server::on_new_connection);
}

http_server::~http_server() = default;

bool http_server::listen(const QHostAddress& address, quint16 port, QString* error)
{
    if (!address.isLoopback()) {
        *error = QStringLiteral("refusing to listen on %1: only loopback addresses").arg(address.toString());
        return false;
    }
    // A fleet of clients may connect at once.
    m_server.setMaxPendingConnections(1000);
    if (!m_server.listen(address, port)) {
        *error
            = QStringLiteral("can't listen on %1:%2: %3").arg(address.toString()).arg(port).arg(m_server.errorString());
        return false;
    }
    return true;
}

void http_server::on_new_connection()
{
    while (QTcpSocket* socket = m_server.nextPendingConnection()) {
        ++m_open;
        ++m_total;
        auto* connection = new http_connection(socket, m_service, this);
        connect(connection, &http_connection::closed, this, [this] { --m_open; });
    }
}

} // namespace svcsim
