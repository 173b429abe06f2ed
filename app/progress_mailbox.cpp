#include "app/progress_mailbox.h"

#include <QThread>
#include <QTimer>

progress_mailbox::progress_mailbox(int interval_ms, QObject* parent)
    : QObject(parent)
    , m_interval_ms(interval_ms)
{
}

void progress_mailbox::put(const QString& ident, sdk::prototype::flash_progress_type stage, uint current, uint total)
{
    if (QThread::currentThread() == thread()) {
        drain(); // whatever came before it first
        emit delivered(ident, stage, current, total);
        return;
    }
    using kind = sdk::prototype::flash_progress_type;
    const bool ending = stage == kind::done || stage == kind::failure;
    qint64 wait_ms = 0;
    {
        QMutexLocker lock(&m_mutex);
        // Reports waiting mean a drain is on its way: later ones ride along.
        const bool drain_due = !m_reports.isEmpty();
        m_reports.append({ ident, stage, current, total });
        // An ending doesn't wait for a timer: the worker's next signals must find it delivered.
        if (drain_due && !ending)
            return;
        if (!ending && m_since_drain.isValid())
            wait_ms = std::max<qint64>(0, m_interval_ms - m_since_drain.elapsed());
    }
    if (wait_ms == 0)
        QMetaObject::invokeMethod(this, [this] { drain(); }, Qt::QueuedConnection);
    else
        QMetaObject::invokeMethod(
            this, [this, wait_ms] { QTimer::singleShot(int(wait_ms), this, [this] { drain(); }); },
            Qt::QueuedConnection);
}

void progress_mailbox::drain()
{
    QVector<report> reports;
    {
        QMutexLocker lock(&m_mutex);
        reports.swap(m_reports);
        m_since_drain.start();
    }
    for (const report& r : qAsConst(reports))
        emit delivered(r.ident, r.stage, r.current, r.total);
}
