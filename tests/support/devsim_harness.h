#pragma once

#include <QByteArray>
#include <QHostAddress>
#include <QJsonArray>
#include <QJsonObject>
#include <QLocalSocket>
#include <QObject>
#include <QProcess>
#include <QStringList>
#include <QTcpSocket>
#include <QTemporaryDir>

// Runs the device simulator (orvane-devsim) for a test: starts it with device
// descriptions, waits until it is ready, and talks to its control channel. The
// simulator's binary is found through ORVANE_TOOLS_DIR. Every wait is bounded; the
// process never outlives the harness.
class devsim_harness final : public QObject
{
    Q_OBJECT
public:
    // In place of a device index: every device.
    static constexpr int all = -1;

    explicit devsim_harness(QObject* parent = nullptr);
    ~devsim_harness() override;
    Q_DISABLE_COPY_MOVE(devsim_harness)

    // Runs the simulator inside this network namespace (`ip netns exec`) with local
    // addresses allowed. Its control channel is then a Unix socket in the harness's
    // temporary folder, which reaches across namespaces, so the test needn't run in
    // there itself. Set before start(); test_network::start_devices does it all.
    void set_namespace(const QString& ns) { m_namespace = ns; }
    // Devices from this address on, in one attempt (no random block). Set before start().
    void set_base_address(const QHostAddress& base) { m_base = base; }
    // More options for the simulator ("--udp-port", "0"). Set before start().
    void set_extra_arguments(const QStringList& args) { m_extra_arguments = args; }

    // Starts `count` devices; device i is `defaults` overlaid with devices[i] (the
    // members of the devices file, see tools/devsim/README.md). Devices without an
    // "address" get consecutive ones in a random 127.x.y.0/24 block, so tests that
    // run at the same time don't collide; a block found taken is replaced.
    bool start(int count, const QJsonObject& defaults = {}, const QJsonArray& devices = {}, int timeout_ms = 10000);
    // Talks to a simulator that another harness started, through its control_socket():
    // a test run inside a namespace reaches the devices its parent run started. The
    // process stays the other harness's.
    bool attach(const QString& control_socket, int timeout_ms = 5000);
    // Closes the simulator's standard input and waits for it to end, killing it
    // when it won't. True when it ended by itself with exit code 0.
    bool stop(int timeout_ms = 5000);
    bool running() const { return m_process.state() != QProcess::NotRunning; }
    QProcess& process() { return m_process; }
    // Why the last failed call failed.
    const QString& error() const { return m_error; }
    // What the simulator wrote to its standard error so far.
    QString log();

    int count() const { return m_count; }
    quint16 control_port() const { return m_control_port; }
    // The control channel's Unix socket when the simulator runs in a namespace; empty otherwise.
    QString control_socket() const;
    // Where the device listens now (it moves after a network change).
    QHostAddress address(int device);
    quint16 port(int device);

    QJsonArray requests(int device, bool clear = false);
    QJsonArray requests_of(int device, int message_id);
    bool clear_requests(int device);
    // Polls the request log until a request with this id has arrived.
    bool wait_for_request(int device, int message_id, int timeout_ms = 5000);
    QJsonObject state(int device);
    bool set_state(int device, const QJsonObject& changes);
    QJsonObject faults(int device);
    // Changes the named faults; the others stay.
    bool set_faults(int device, const QJsonObject& faults);
    bool clear_faults(int device);
    bool reboot(int device);

    // Any control command; its answer, or {"ok": false, "error": ...} when the
    // channel failed.
    QJsonObject command(const QJsonObject& cmd, int timeout_ms = 5000);

private:
    enum class attempt { ready, address_taken, failed };

    attempt start_once(const QJsonObject& config, int timeout_ms);
    QJsonObject device_command(const QString& cmd, int device, QJsonObject extra = {});
    QJsonObject summary(int device);
    void kill_process();

    bool channel_open() const;

    QProcess m_process;
    QTcpSocket m_control;
    QLocalSocket m_local_control;
    QIODevice* m_channel = &m_control;
    QString m_namespace;
    QHostAddress m_base;
    QStringList m_extra_arguments;
    QTemporaryDir m_dir;
    QByteArray m_stderr;
    QString m_error;
    int m_count = 0;
    quint16 m_control_port = 0;
};
