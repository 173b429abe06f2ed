#pragma once

#include <QHostAddress>
#include <QJsonArray>
#include <QJsonObject>
#include <QLocalSocket>
#include <QObject>
#include <QTcpSocket>
#include <QTemporaryDir>

#include "tests/support/sim_process.h"

// Runs the device simulator (orvane-devsim) for a test: starts it with device
// descriptions, waits until it is ready, and talks to its control channel. The
// process never outlives the harness.
class devsim_harness final : public QObject, public sim_process
{
    Q_OBJECT
public:
    // In place of a device index: every device.
    static constexpr int all = -1;

    explicit devsim_harness(QObject* parent = nullptr);
    ~devsim_harness() override;
    Q_DISABLE_COPY_MOVE(devsim_harness)

    // Runs the simulator inside this network namespace, its control channel then a Unix
    // socket in the harness's folder, which reaches across namespaces. Set before start();
    // test_network::start_devices does it all.
    void set_namespace(const QString& ns) { m_namespace = ns; }
    // Devices from this address on, in one attempt (no random block). Set before start().
    void set_base_address(const QHostAddress& base) { m_base = base; }

    // Starts `count` devices; device i is `defaults` overlaid with devices[i] (see
    // tools/devsim/README.md). Devices without an "address" get consecutive ones in a
    // random 127.x.y.0/24 block, so tests running at once don't collide.
    bool start(int count, const QJsonObject& defaults = {}, const QJsonArray& devices = {}, int timeout_ms = 10000);
    // Talks to a simulator that another harness started, through its control_socket():
    // a test run inside a namespace reaches the devices its parent run started.
    bool attach(const QString& control_socket, int timeout_ms = 5000);

    int count() const { return m_count; }
    // The control channel's Unix socket when the simulator runs in a namespace; empty otherwise.
    QString control_socket() const;
    // Where the device listens now (it moves after a network change).
    QHostAddress address(int device);
    quint16 port(int device);

    QJsonArray requests(int device, bool clear = false);
    QJsonArray requests_of(int device, int message_id);
    QJsonObject state(int device);
    QJsonObject faults(int device);
    // Changes the named faults; the others stay.
    bool set_faults(int device, const QJsonObject& faults);
    bool clear_faults(int device);
    bool reboot(int device);

protected:
    QIODevice* channel() override;
    void close_channel() override;

private:
    enum class attempt { ready, address_taken, failed };

    attempt start_once(const QJsonObject& config, int timeout_ms);
    QJsonObject device_command(const QString& cmd, int device, QJsonObject extra = {});
    QJsonObject summary(int device);

    QTcpSocket m_control;
    QLocalSocket m_local_control;
    QIODevice* m_channel = &m_control;
    QString m_namespace;
    QHostAddress m_base;
    QTemporaryDir m_dir;
    int m_count = 0;
};
