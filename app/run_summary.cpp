#include "app/run_summary.h"

run_summary::outcome run_summary::of_result(bool ok, bool up_to_date)
{
    if (!ok)
        return failed;
    return up_to_date ? run_summary::up_to_date : done;
}

QString run_summary::text() const
{
    return tr("Done: %1, up to date: %2, failed: %3, running: %4, waiting: %5")
        .arg(m_counts[done])
        .arg(m_counts[up_to_date])
        .arg(m_counts[failed])
        .arg(m_counts[running])
        .arg(m_counts[waiting]);
}
