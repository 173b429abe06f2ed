#pragma once

#include <QByteArray>
#include <QHostAddress>
#include <QJsonArray>
#include <QJsonObject>
#include <QObject>
#include <QProcess>
#include <QTcpSocket>
#include <QTemporaryDir>
#include <QUrl>

// Runs the update service simulator (orvane-svcsim) for a test: starts it with a
// generated identity and a service file, waits until it is ready, and talks to its
// control channel. The binary is found through ORVANE_TOOLS_DIR. Every wait is
// bounded; the process never outlives the harness.
class svcsim_harness final : public QObject
{
    Q_OBJECT
public:
    explicit svcsim_harness(QObject* parent = nullptr);
    ~svcsim_harness() override;
    Q_DISABLE_COPY_MOVE(svcsim_harness)

    // Writes a file into the harness's folder, where relative firmware paths of
    // the service file point; returns its absolute path, empty on failure.
    QString add_file(const QString& name, const QByteArray& data);
    QString folder() const { return m_dir.path(); }

    // Starts the service with this service file (see tools/svcsim/README.md). A
    // fresh identity is drawn unless the file has one; it listens on 127.0.0.1,
    // on a free port unless the file names "address" and "port".
    bool start(const QJsonObject& config = {}, int timeout_ms = 10000);
    // Closes the simulator's standard input and waits for it to end, killing it
    // when it won't. True when it ended by itself with exit code 0.
    bool stop(int timeout_ms = 5000);
    bool running() const { return m_process.state() != QProcess::NotRunning; }
    QProcess& process() { return m_process; }
    const QString& error() const { return m_error; }
    // What the simulator wrote to its standard error so far.
    QString log();

    QByteArray client_id() const { return m_client_id; }
    QByteArray client_key() const { return m_client_key; }
    QHostAddress address() const { return m_address; }
    quint16 port() const { return m_port; }
    // "http://127.0.0.1:<port>/", what the program's client takes as its base.
    QUrl base_url() const;
    quint16 control_port() const { return m_control_port; }

    // Recorded requests, optionally of one kind ("update", "file", "confirm",
    // "other") and serial; `clear` empties the whole record afterwards.
    QJsonArray requests(const QString& kind = {}, const QString& serial = {}, bool clear = false);
    bool clear_requests();
    // Polls until at least `count` requests of the kind are recorded.
    bool wait_for_requests(int count, const QString& kind = {}, int timeout_ms = 5000);
    // Counts since the start, which clearing doesn't reset.
    QJsonObject stats();
    // Sets the fault of a kind ("update", "file", "confirm" or "*") for one serial,
    // or for all with an empty serial; an empty fault removes it.
    bool set_fault(const QString& kind, const QJsonObject& fault, const QString& serial = {});
    bool clear_faults(const QString& serial = {});
    // Replaces a serial's entry: {"verdict": ..., "offers": [...]} or {"error": n}.
    bool set_verdict(const QString& serial, const QJsonObject& entry);
    bool set_default_verdict(const QJsonObject& entry);

    // Any control command; its answer, or {"ok": false, "error": ...} when the
    // channel failed.
    QJsonObject command(const QJsonObject& cmd, int timeout_ms = 5000);

private:
    void kill_process();

    QProcess m_process;
    QTcpSocket m_control;
    QTemporaryDir m_dir;
    QByteArray m_stderr;
    QString m_error;
    QByteArray m_client_id;
    QByteArray m_client_key;
    QHostAddress m_address;
    quint16 m_port = 0;
    quint16 m_control_port = 0;
};
