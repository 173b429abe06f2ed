#pragma once

#include <QElapsedTimer>
#include <QFile>
#include <QObject>
#include <QTimer>

#include <memory>

// Measures how long the event loop of the thread it lives on goes without getting round to
// a short timer: how long a window stops answering. Each gap over the threshold is written
// at once as "<ms since the epoch at its end> <gap in ms>", so a run killed at its end still
// leaves its record. A developer's diagnostic, off unless ORVANE_STALL_PROBE names the file.
class stall_probe final : public QObject
{
    Q_OBJECT
public:
    static constexpr int interval_ms = 5;
    static constexpr int threshold_ms = 20;

    // A running probe when the environment names its file; null otherwise.
    static std::unique_ptr<stall_probe> from_environment();

    // Fails silently when the file can't be written: a probe must not stop the program.
    explicit stall_probe(const QString& file_name);
    Q_DISABLE_COPY_MOVE(stall_probe)

    // The longest gap seen so far, beyond the timer's own interval.
    qint64 longest_ms() const { return m_longest; }

private:
    void tick();

    QFile m_file;
    QTimer m_timer;
    QElapsedTimer m_clock;
    qint64 m_last = 0;
    qint64 m_longest = 0;
};
