#pragma once

#include <QLocalServer>
#include <QObject>
#include <QTcpServer>

class QIODevice;

namespace devsim
{

class control_commands;

// The control channel on 127.0.0.1, and on a Unix socket when asked (that one
// reaches a simulator inside another network namespace): one JSON command per line
// in, one JSON answer per line out, for any number of clients.
class control_server final : public QObject
{
    Q_OBJECT
public:
    explicit control_server(control_commands& commands, QObject* parent = nullptr);
    ~control_server() override;
    Q_DISABLE_COPY_MOVE(control_server)

    // Port 0 picks a free one.
    bool listen(quint16 port, QString* error);
    quint16 port() const { return m_server.serverPort(); }
    // A Unix socket at this path as well; a stale file there is replaced.
    bool listen_local(const QString& path, QString* error);

signals:
    // A client asked the process to end; its answer has been written.
    void quit_requested();

private:
    void on_new_connection();
    void on_new_local_connection();
    void on_ready_read(QIODevice* socket);

    control_commands& m_commands;
    QTcpServer m_server;
    QLocalServer m_local;
};

} // namespace devsim
