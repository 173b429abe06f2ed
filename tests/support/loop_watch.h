#pragma once

// Ticks on the event loop of the thread that makes it and keeps the gaps between ticks: a loop blocked for a
// while shows as a long gap. Header-only.
#include <QElapsedTimer>
#include <QList>
#include <QTimer>

#include <algorithm>

class loop_watch
{
public:
    explicit loop_watch(int interval_ms = 10)
    {
        QObject::connect(&m_timer, &QTimer::timeout, [this] {
            const qint64 now = m_clock.elapsed();
            m_gaps << now - m_last;
            m_last = now;
        });
        m_timer.setTimerType(Qt::PreciseTimer);
        m_timer.start(interval_ms);
        m_clock.start();
    }

    qint64 elapsed() const { return m_clock.elapsed(); }
    int ticks() const { return m_gaps.size(); }
    qint64 longest() const
    {
        return m_gaps.isEmpty() ? m_clock.elapsed() : *std::max_element(m_gaps.begin(), m_gaps.end());
    }
    // Gaps longer than a time: a scheduler's hiccup makes one now and then, a loop that blocks makes many.
    int gaps_over(qint64 ms) const
    {
        return int(std::count_if(m_gaps.begin(), m_gaps.end(), [ms](qint64 g) { return g > ms; }));
    }

private:
    QTimer m_timer;
    QElapsedTimer m_clock;
    qint64 m_last = 0;
    QList<qint64> m_gaps;
};
