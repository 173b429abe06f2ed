#pragma once

#include <QHostAddress>
#include <QJsonArray>
#include <QJsonObject>
#include <QLocalSocket>
#include <QObject>
#include <QTcpSocket>
#include <QTemporaryDir>

#include "tests/support/sim_process.h"

// Runs the device simulator (orvane-devsim) for a test and talks to its control channel (see
// tools/devsim/README.md). The process never outlives the harness.
class devsim_harness final : public QObject, public sim_process
{
    Q_OBJECT
public:
    // In place of a device index: every device.
    static constexpr int all = -1;

    explicit devsim_harness(QObject* parent = nullptr)
        : QObject(parent)
    {
    }
    ~devsim_harness() override { stop(2000); }
    Q_DISABLE_COPY_MOVE(devsim_harness)

    // Set before start() to run the simulator inside a network namespace, its control channel then a Unix socket
    // that reaches across namespaces, and its devices from `base` on (test_network::start_devices does it all).
    void set_namespace(const QString& ns) { m_namespace = ns; }
    void set_base_address(const QHostAddress& base) { m_base = base; }

    // Starts `count` devices; device i is `defaults` overlaid with devices[i]. Without a base address they get
    // consecutive ones in a random 127.x.y.0/24 block, so tests running at once don't collide.
    bool start(int count, const QJsonObject& defaults = {}, const QJsonArray& devices = {}, int timeout_ms = 10000);
    // Talks to a simulator that another harness started, through its control_socket().
    bool attach(const QString& control_socket, int timeout_ms = 5000);

    int count() const { return m_count; }
    // The control channel's Unix socket when the simulator runs in a namespace; empty otherwise.
    QString control_socket() const
    {
        return m_namespace.isEmpty() ? QString() : m_dir.filePath(QStringLiteral("control.sock"));
    }
    // Where the device listens now (it moves after a network change).
    QHostAddress address(int device) { return QHostAddress(summary(device).value("address").toString()); }
    quint16 port(int device) { return quint16(summary(device).value("port").toInt()); }

    QJsonArray requests(int device, bool clear = false)
    {
        return device_command("requests", device, { { "clear", clear } }).value("requests").toArray();
    }
    QJsonArray requests_of(int device, int message_id)
    {
        QJsonArray out;
        for (const QJsonValue& r : requests(device)) {
            if (r.toObject().value("id").toInt() == message_id)
                out.append(r);
        }
        return out;
    }
    QJsonObject state(int device) { return device_command("get_state", device).value("state").toObject(); }
    // Changes the named faults; the others stay.
    bool set_faults(int device, const QJsonObject& faults)
    {
        return device_command("set_faults", device, { { "faults", faults } }).value("ok").toBool();
    }
    bool clear_faults(int device) { return device_command("clear_faults", device).value("ok").toBool(); }

protected:
    QIODevice* channel() override;
    void close_channel() override
    {
        m_control.abort();
        m_local_control.abort();
    }

private:
    enum class attempt { ready, address_taken, failed };

    attempt start_once(const QJsonObject& config, int timeout_ms);
    QJsonObject device_command(const QString& cmd, int device, QJsonObject extra = {})
    {
        extra.insert("cmd", cmd);
        extra.insert("device", device == all ? QJsonValue(QStringLiteral("*")) : QJsonValue(device));
        return command(extra);
    }
    QJsonObject summary(int device)
    {
        return command(QJsonObject { { "cmd", "list" } }).value("devices").toArray().at(device).toObject();
    }

    QTcpSocket m_control;
    QLocalSocket m_local_control;
    QIODevice* m_channel = &m_control;
    QString m_namespace;
    QHostAddress m_base;
    QTemporaryDir m_dir;
    int m_count = 0;
};
