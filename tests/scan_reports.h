#pragma once

#include "sdk/scanner.h"

#include <QElapsedTimer>
#include <QList>
#include <QMutex>

#include <functional>

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
