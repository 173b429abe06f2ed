#include "diagnostics/latched_thread.h"

namespace background {

latched_thread::latched_thread(QObject* parent)
    : QThread(parent)
{
    m_state.set_running();
}

latched_thread::~latched_thread()
{
    stop_and_wait();
}

void latched_thread::stop_and_wait()
{
    request_stop();
    wait();
}

void latched_thread::request_stop()
{
    // Holding the mutex while clearing the flag means a worker between its
    // flag test and its wait can't miss the wake below.
    QMutexLocker lock(&m_mutex);
    m_state.set_stopped();
    m_condition.wakeAll();
}

void latched_thread::wake()
{
    QMutexLocker lock(&m_mutex);
    m_woken = true;
    m_condition.wakeAll();
}

void latched_thread::run()
{
    while (m_state.running()) {
        while (!process()) {
            QMutexLocker lock(&m_mutex);
            if (m_state.stopped())
                return;
            if (!m_woken)
                m_condition.wait(&m_mutex);
            m_woken = false;
            if (m_state.stopped())
                return;
        }
    }
}

} // namespace background
