#include "diagnostics/stall_probe.h"

#include <QDateTime>

#include <algorithm>

std::unique_ptr<stall_probe> stall_probe::from_environment()
{
    const QString file_name = qEnvironmentVariable("ORVANE_STALL_PROBE");
    if (file_name.isEmpty())
        return nullptr;
    return std::make_unique<stall_probe>(file_name);
}

stall_probe::stall_probe(const QString& file_name)
    : m_file(file_name)
{
    m_file.open(QIODevice::WriteOnly | QIODevice::Append | QIODevice::Text);
    m_timer.setTimerType(Qt::PreciseTimer);
    m_timer.setInterval(interval_ms);
    connect(&m_timer, &QTimer::timeout, this, &stall_probe::tick);
    m_clock.start();
    m_timer.start();
}

void stall_probe::tick()
{
    const qint64 now = m_clock.elapsed();
    const qint64 gap = now - m_last - interval_ms;
    m_last = now;
    if (gap <= threshold_ms)
        return;
    m_longest = std::max(m_longest, gap);
    if (m_file.isOpen()) {
        m_file.write(QByteArray::number(QDateTime::currentMSecsSinceEpoch()) + ' ' + QByteArray::number(gap) + '\n');
        m_file.flush();
    }
}
