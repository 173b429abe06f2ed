#pragma once

#include "sdk/prototype.h"

#include <QElapsedTimer>
#include <QMutex>
#include <QObject>
#include <QVector>

// Flash progress from the workers' threads, handed to this object's thread in batches. A fleet's
// workers report a new percentage every few milliseconds each, and waking the main thread for
// every one cost a fleet an eighth of its CPU. Every report arrives, in order: one that ends
// a flash (done, failure) at once with those before it, the others at most interval_ms later.
// A report made on this object's own thread is delivered at once.
class progress_mailbox final : public QObject
{
    Q_OBJECT
public:
    explicit progress_mailbox(int interval_ms, QObject* parent = nullptr);

    // Thread-safe.
    void put(const QString& ident, sdk::prototype::flash_progress_type stage, uint current, uint total);

signals:
    void delivered(const QString& ident, sdk::prototype::flash_progress_type stage, uint current, uint total);

private:
    struct report
    {
        QString ident;
        sdk::prototype::flash_progress_type stage;
        uint current;
        uint total;
    };
    void drain();

    const int m_interval_ms;
    QMutex m_mutex;
    QVector<report> m_reports;
    QElapsedTimer m_since_drain;
};
