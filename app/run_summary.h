#pragma once

#include <QCoreApplication>
#include <QString>

#include <array>

// How the devices of a launch stand, counted by outcome: what the status bar shows during
// and after a run, and the batch log's line before its end.
struct run_summary
{
    Q_DECLARE_TR_FUNCTIONS(run_summary)
public:
    enum outcome { waiting = 0, running, done, up_to_date, failed };
    static constexpr int outcome_count = 5;

    // The outcome of a flow that has ended: failed when its result is, up to date when the
    // service had nothing to flash, done otherwise.
    static outcome of_result(bool ok, bool up_to_date);

    void add(outcome o) { ++m_counts[o]; }
    int count(outcome o) const { return m_counts[o]; }
    // "Done: 55, up to date: 0, failed: 5, running: 0, waiting: 0", translated.
    QString text() const;

private:
    std::array<int, outcome_count> m_counts {};
};
