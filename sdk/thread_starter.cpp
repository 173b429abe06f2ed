#include "sdk/thread_starter.h"

#include <QCoreApplication>

namespace sdk {

thread_starter::thread_starter()
{
    m_timer.setSingleShot(true);
    m_timer.setInterval(0);
    connect(&m_timer, &QTimer::timeout, this, &thread_starter::start_some);
}

thread_starter* thread_starter::instance()
{
    // Owned by the application: a test's next application gets a new one.
    static QPointer<thread_starter> one;
    if (!one) {
        one = new thread_starter();
        one->setParent(QCoreApplication::instance());
    }
    return one;
}

void thread_starter::start(QThread* thread)
{
    const QCoreApplication* app = QCoreApplication::instance();
    if (!app || QThread::currentThread() != app->thread()) {
        thread->start(QThread::InheritPriority);
        return;
    }
    thread_starter* self = instance();
    self->m_waiting.emplace_back(thread);
    if (!self->m_timer.isActive())
        self->m_timer.start();
}

void thread_starter::start_some()
{
    // A worker deleted before its turn is simply skipped.
    for (int started = 0; started < per_turn && !m_waiting.empty();) {
        const QPointer<QThread> next = m_waiting.front();
        m_waiting.pop_front();
        if (next && !next->isRunning()) {
            next->start(QThread::InheritPriority);
            ++started;
        }
    }
    if (!m_waiting.empty())
        m_timer.start();
}

} // namespace sdk
