#pragma once

#include "sdk/scanner.h"

#include <QElapsedTimer>
#include <QList>
#include <QMutex>

#include <functional>

// What a scanner reported, in order, each report timed from the recorder's making. Recorded on the scanner's own
// thread, so that the pacing of a pass can be measured; the hooks run there too, right after their report.
class scan_reports
{
public:
    struct found_report {
        mac address;
        device dev;
        qint64 ms = 0;
    };

    explicit scan_reports(scanner& s)
    {
        m_clock.start();
        // The context ends the connections with us.
        QObject::connect(&s, &scanner::device_found, &m_context, [this](const mac& address, const device& dev) {
            record(m_found, found_report { address, dev, m_clock.elapsed() }, after_found);
        }, Qt::DirectConnection);
        QObject::connect(&s, &scanner::device_lost, &m_context, [this](const mac& address) {
            record(m_lost, found_report { address, device(), m_clock.elapsed() }, after_lost);
        }, Qt::DirectConnection);
        QObject::connect(&s, &scanner::done, &m_context, [this](bool interrupted) {
            QMutexLocker lock(&m_mutex);
            m_done << interrupted;
            m_done_ms = m_clock.elapsed();
        }, Qt::DirectConnection);
    }
    Q_DISABLE_COPY_MOVE(scan_reports)

    QList<found_report> found() const { return locked(m_found); }
    QList<found_report> lost() const { return locked(m_lost); }
    // The interrupted flag of every done, in order.
    QList<bool> done() const { return locked(m_done); }
    qint64 done_ms() const { return locked(m_done_ms); }

    // Set before the scan starts.
    std::function<void()> after_found;
    std::function<void()> after_lost;

private:
    template <typename T>
    T locked(const T& value) const
    {
        QMutexLocker lock(&m_mutex);
        return value;
    }
    void record(QList<found_report>& list, const found_report& report, const std::function<void()>& hook)
    {
        {
            QMutexLocker lock(&m_mutex);
            list << report;
        }
        if (hook)
            hook();
    }

    QElapsedTimer m_clock;
    mutable QMutex m_mutex; // guards the reports below
    QList<found_report> m_found;
    QList<found_report> m_lost;
    QList<bool> m_done;
    qint64 m_done_ms = -1;
    QObject m_context; // last, so that the connections end first
};
