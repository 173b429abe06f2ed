#pragma once

#include <QHostAddress>
#include <QJsonArray>
#include <QJsonObject>
#include <QObject>
#include <QTcpSocket>
#include <QTemporaryDir>
#include <QUrl>

#include "tests/support/sim_process.h"

// Runs the update service simulator (orvane-svcsim) for a test and talks to its control channel (see
// tools/svcsim/README.md). The process never outlives the harness.
class svcsim_harness final : public QObject, public sim_process
{
    Q_OBJECT
public:
    explicit svcsim_harness(QObject* parent = nullptr)
        : QObject(parent)
    {
    }
    ~svcsim_harness() override { stop(2000); }
    Q_DISABLE_COPY_MOVE(svcsim_harness)

    // Writes a file into the harness's folder, where relative firmware paths of the service file point; returns
    // its absolute path, empty on failure.
    QString add_file(const QString& name, const QByteArray& data)
    {
        return m_dir.isValid() && write_file(m_dir.filePath(name), data) ? m_dir.filePath(name) : QString();
    }

    // Starts the service with this service file. A fresh identity is drawn unless the file has one; it listens
    // on 127.0.0.1, on a free port unless the file names "address" and "port".
    bool start(const QJsonObject& config = {}, int timeout_ms = 10000);

    QByteArray client_id() const { return m_client_id; }
    QByteArray client_key() const { return m_client_key; }
    QHostAddress address() const { return m_address; }
    quint16 port() const { return m_port; }
    // "http://127.0.0.1:<port>/", what the program's client takes as its base.
    QUrl base_url() const { return QUrl(QStringLiteral("http://%1:%2/").arg(m_address.toString()).arg(m_port)); }

    // Recorded requests, optionally of one kind ("update", "file", "confirm", "other") and serial; `clear`
    // empties the whole record afterwards.
    QJsonArray requests(const QString& kind = {}, const QString& serial = {}, bool clear = false)
    {
        QJsonObject cmd { { "cmd", "requests" }, { "clear", clear } };
        if (!kind.isEmpty())
            cmd.insert("kind", kind);
        return command(for_serial(cmd, serial)).value("requests").toArray();
    }
    bool clear_requests() { return command(QJsonObject { { "cmd", "clear_requests" } }).value("ok").toBool(); }
    // Polls until at least `count` requests of the kind are recorded.
    bool wait_for_requests(int count, const QString& kind = {}, int timeout_ms = 5000);
    // Counts since the start, which clearing doesn't reset.
    QJsonObject stats() { return command(QJsonObject { { "cmd", "stats" } }); }
    // Sets the fault of a kind ("update", "file", "confirm" or "*") for one serial, or for all with an empty
    // serial; an empty fault removes it.
    bool set_fault(const QString& kind, const QJsonObject& fault, const QString& serial = {})
    {
        const QJsonObject cmd { { "cmd", "set_fault" }, { "kind", kind }, { "fault", fault } };
        return command(for_serial(cmd, serial)).value("ok").toBool();
    }
    // The build the repository offers (tools/svcsim/README.md); {} withdraws it.
    bool set_repository(QJsonObject build)
    {
        build.insert("cmd", "set_repository");
        return command(build).value("ok").toBool();
    }
    bool clear_faults(const QString& serial = {})
    {
        return command(for_serial({ { "cmd", "clear_faults" } }, serial)).value("ok").toBool();
    }

protected:
    QIODevice* channel() override
    {
        return m_control.state() == QAbstractSocket::ConnectedState ? &m_control : nullptr;
    }
    void close_channel() override { m_control.abort(); }

private:
    // A command, for one serial when one is named.
    static QJsonObject for_serial(QJsonObject cmd, const QString& serial)
    {
        if (!serial.isEmpty())
            cmd.insert("serial", serial);
        return cmd;
    }

    QTcpSocket m_control;
    QTemporaryDir m_dir;
    QByteArray m_client_id;
    QByteArray m_client_key;
    QHostAddress m_address;
    quint16 m_port = 0;
};
