#pragma once

#include "sdk/scanner.h"
#include "tests/support/devsim_harness.h"
#include "tests/support/netip_wire.h"

#include <QElapsedTimer>
#include <QList>
#include <QMutex>

#include <functional>

// Thirty devices of every kind discovery meets: ports of their own, other users and
// passwords, ports written with leading zeros, and a record naming another address
// (the sender's is the one that counts).
inline QJsonArray thirty_devices()
{
    QJsonArray devices;
    for (int i = 0; i < 30; ++i) {
        QJsonObject d { { "port", 35000 + i } };
        if (i % 3 == 0)
            d.insert("faults", QJsonObject { { "leading_zeros", true } });
        if (i % 4 == 1)
            d.insert("user", "operator");
        if (i % 5 == 2)
            d.insert("password", "admin");
        if (i == 7)
            d.insert("net", QJsonObject { { "HostIP", "0x0101A8C0" } });
        devices.append(d);
    }
    return devices;
}

// What discovery must tell of each device the simulator runs.
inline QJsonArray expected_devices(devsim_harness& sim)
{
    QJsonArray expected;
    for (int i = 0; i < sim.count(); ++i) {
        const QJsonObject state = sim.state(i);
        const bool admin = state.value("password").toString() == QLatin1String("admin");
        expected.append(QJsonObject { { "mac", state.value("mac") }, { "address", sim.address(i).toString() },
            { "port", sim.port(i) }, { "user", state.value("user") }, { "serial", state.value("serial") },
            { "name", state.value("net").toObject().value("HostName") },
            { "password", QLatin1String(admin ? netip_wire::digest_admin : netip_wire::digest_empty) } });
    }
    return expected;
}

// What a scanner reported, in order, each report timed from the recorder's making on
// the scanner's own thread, so that the pacing of a pass can be measured. The hooks
// run there too, right after their report is recorded.
class scan_reports
{
public:
    struct found_report {
        mac address;
        device dev;
        qint64 ms = 0;
    };
    struct lost_report {
        mac address;
        qint64 ms = 0;
    };

    explicit scan_reports(scanner& s)
    {
        m_clock.start();
        m_connections << QObject::connect(
            &s, &scanner::device_found, &s,
            [this](const mac& address, const device& dev) {
                {
                    QMutexLocker lock(&m_mutex);
                    m_found.append({ address, dev, m_clock.elapsed() });
                }
                if (after_found)
                    after_found();
            },
            Qt::DirectConnection);
        m_connections << QObject::connect(
            &s, &scanner::device_lost, &s,
            [this](const mac& address) {
                {
                    QMutexLocker lock(&m_mutex);
                    m_lost.append({ address, m_clock.elapsed() });
                }
                if (after_lost)
                    after_lost();
            },
            Qt::DirectConnection);
        m_connections << QObject::connect(
            &s, &scanner::done, &s,
            [this](bool interrupted) {
                QMutexLocker lock(&m_mutex);
                m_done << interrupted;
                m_done_ms = m_clock.elapsed();
            },
            Qt::DirectConnection);
    }
    ~scan_reports()
    {
        for (const QMetaObject::Connection& c : qAsConst(m_connections))
            QObject::disconnect(c);
    }
    scan_reports(const scan_reports&) = delete;
    scan_reports& operator=(const scan_reports&) = delete;

    QList<found_report> found() const
    {
        QMutexLocker lock(&m_mutex);
        return m_found;
    }
    QList<lost_report> lost() const
    {
        QMutexLocker lock(&m_mutex);
        return m_lost;
    }
    // The interrupted flag of every done, in order.
    QList<bool> done() const
    {
        QMutexLocker lock(&m_mutex);
        return m_done;
    }
    qint64 done_ms() const
    {
        QMutexLocker lock(&m_mutex);
        return m_done_ms;
    }

    // Set before the scan starts.
    std::function<void()> after_found;
    std::function<void()> after_lost;

private:
    QElapsedTimer m_clock;
    QList<QMetaObject::Connection> m_connections;
    mutable QMutex m_mutex; // guards the reports below
    QList<found_report> m_found;
    QList<lost_report> m_lost;
    QList<bool> m_done;
    qint64 m_done_ms = -1;
};
