#pragma once

#include "diagnostics/background_state.h"

#include <QMutex>
#include <QThread>
#include <QWaitCondition>

namespace background {

// A thread that loops on process() and sleeps until woken whenever a round finds
// nothing to do. The destructor stops and joins it, so subclasses need no stop code.
class latched_thread : public QThread
{
    Q_OBJECT
public:
    explicit latched_thread(QObject* parent = nullptr);
    ~latched_thread() override;

    // Restarts the round of a sleeping thread; a wake while it works is harmless.
    void wake();
    // Tells the loop to end after its current round, without waiting for it; for owners
    // that must keep something else going until the thread has ended.
    void request_stop();

protected:
    // One round of work; true when it did something.
    virtual bool process() = 0;
    // Subclass destructors call this first, so process() is never called on a half-destroyed object.
    void stop_and_wait();
    void run() override;

    background::state m_state;

private:
    QMutex m_mutex; // guards m_woken and the wait
    QWaitCondition m_condition;
    bool m_woken = false; // a wake that came while the round ran is kept, not lost
};

} // namespace background
