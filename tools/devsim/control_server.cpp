#include "tools/devsim/control_server.h"

#include <QJsonDocument>
#include <QJsonParseError>
#include <QLocalSocket>
#include <QTcpSocket>

#include "tools/devsim/control_commands.h"
#include "tools/devsim/devsim_log.h"

namespace devsim
{

namespace
{

    // A command line longer than this is garbage, not a command.
    constexpr qint64 max_line = 1 << 20;

} // namespace

control_server::control_server(control_commands& commands, QObject* parent)
    : QObject(parent)
    , m_commands(commands)
{
    connect(&m_server, &QTcpServer::newConnection, this, &control_server::on_new_connection);
    connect(&m_local, &QLocalServer::newConnection, this, &control_server::on_new_local_connection);
}

control_server::~control_server() = default;

bool control_server::listen(quint16 port, QString* error)
{
    if (!m_server.listen(QHostAddress::LocalHost, port)) {
        *error
            = QStringLiteral("control channel can't listen on 127.0.0.1:%1: %2").arg(port).arg(m_server.errorString());
        return false;
    }
    return true;
}

bool control_server::listen_local(const QString& path, QString* error)
{
    // Only this user (root, in a test network) may drive the devices.
    m_local.setSocketOptions(QLocalServer::UserAccessOption);
    QLocalServer::removeServer(path);
    if (!m_local.listen(path)) {
        *error = QStringLiteral("control channel can't listen on %1: %2").arg(path, m_local.errorString());
        return false;
    }
    return true;
}

void control_server::on_new_local_connection()
{
    while (QLocalSocket* socket = m_local.nextPendingConnection()) {
        socket->setParent(this);
        connect(socket, &QLocalSocket::readyRead, this, [this, socket] { on_ready_read(socket); });
        connect(socket, &QLocalSocket::disconnected, socket, &QObject::deleteLater);
    }
}

void control_server::on_new_connection()
{
    while (QTcpSocket* socket = m_server.nextPendingConnection()) {
        socket->setParent(this);
        connect(socket, &QTcpSocket::readyRead, this, [this, socket] { on_ready_read(socket); });
        connect(socket, &QTcpSocket::disconnected, socket, &QObject::deleteLater);
    }
}

void control_server::on_ready_read(QIODevice* socket)
{
    while (socket->canReadLine()) {
        const QByteArray line = socket->readLine(max_line).trimmed();
        if (line.isEmpty())
            continue;
        QJsonParseError error {};
        const QJsonDocument doc = QJsonDocument::fromJson(line, &error);
        QJsonObject answer;
        if (!doc.isObject())
            answer = QJsonObject { { "ok", false }, { "error", QStringLiteral("not a JSON object") } };
        else
            answer = m_commands.execute(doc.object());
        socket->write(QJsonDocument(answer).toJson(QJsonDocument::Compact) + '\n');
        if (m_commands.quit_requested()) {
            if (auto* tcp = qobject_cast<QTcpSocket*>(socket))
                tcp->flush();
            else if (auto* local = qobject_cast<QLocalSocket*>(socket))
                local->flush();
            emit quit_requested();
            return;
        }
    }
    if (socket->bytesAvailable() > max_line) {
        qCWarning(lc_devsim, "control: line too long, closing the client");
        socket->close();
    }
}

} // namespace devsim
