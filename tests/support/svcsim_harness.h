#pragma once

#include <QHostAddress>
#include <QJsonArray>
#include <QJsonObject>
#include <QObject>
#include <QTcpSocket>
#include <QTemporaryDir>
#include <QUrl>

#include "tests/support/sim_process.h"

// Runs the update service simulator (orvane-svcsim) for a test: starts it with a
// generated identity and a service file, waits until it is ready, and talks to its
// control channel. The process never outlives the harness.
class svcsim_harness final : public QObject, public sim_process
{
    Q_OBJECT
public:
    explicit svcsim_harness(QObject* parent = nullptr);
    ~svcsim_harness() override;
    Q_DISABLE_COPY_MOVE(svcsim_harness)

    // Writes a file into the harness's folder, where relative firmware paths of the
    // service file point; returns its absolute path, empty on failure.
    QString add_file(const QString& name, const QByteArray& data);

    // Starts the service with this service file (see tools/svcsim/README.md). A fresh
    // identity is drawn unless the file has one; it listens on 127.0.0.1, on a free port
    // unless the file names "address" and "port".
    bool start(const QJsonObject& config = {}, int timeout_ms = 10000);

    QByteArray client_id() const { return m_client_id; }
    QByteArray client_key() const { return m_client_key; }
    QHostAddress address() const { return m_address; }
    quint16 port() const { return m_port; }
    // "http://127.0.0.1:<port>/", what the program's client takes as its base.
    QUrl base_url() const;

    // Recorded requests, optionally of one kind ("update", "file", "confirm", "other")
    // and serial; `clear` empties the whole record afterwards.
    QJsonArray requests(const QString& kind = {}, const QString& serial = {}, bool clear = false);
    bool clear_requests();
    // Polls until at least `count` requests of the kind are recorded.
    bool wait_for_requests(int count, const QString& kind = {}, int timeout_ms = 5000);
    // Counts since the start, which clearing doesn't reset.
    QJsonObject stats();
    // Sets the fault of a kind ("update", "file", "confirm" or "*") for one serial, or
    // for all with an empty serial; an empty fault removes it.
    bool set_fault(const QString& kind, const QJsonObject& fault, const QString& serial = {});
    bool clear_faults(const QString& serial = {});

protected:
    QIODevice* channel() override;
    void close_channel() override { m_control.abort(); }

private:
    QTcpSocket m_control;
    QTemporaryDir m_dir;
    QByteArray m_client_id;
    QByteArray m_client_key;
    QHostAddress m_address;
    quint16 m_port = 0;
};
