#pragma once

#include <QAbstractEventDispatcher>

namespace sdk {

// The event dispatcher of a worker thread, which never runs an event loop: its sockets are
// waited on directly. Qt still registers a socket's notifiers with the thread's dispatcher,
// and the default one wakes itself through a descriptor at every change, twice for each
// chunk of an upload. This one takes the registrations and does nothing with them.
class worker_dispatcher final : public QAbstractEventDispatcher
{
    Q_OBJECT
public:
    using QAbstractEventDispatcher::QAbstractEventDispatcher;
    Q_DISABLE_COPY_MOVE(worker_dispatcher)

    bool processEvents(QEventLoop::ProcessEventsFlags) override { return false; }
    bool hasPendingEvents() override { return false; }
    void registerSocketNotifier(QSocketNotifier*) override { }
    void unregisterSocketNotifier(QSocketNotifier*) override { }
    void registerTimer(int, int, Qt::TimerType, QObject*) override { }
    bool unregisterTimer(int) override { return true; }
    bool unregisterTimers(QObject*) override { return true; }
    QList<TimerInfo> registeredTimers(QObject*) const override { return {}; }
    int remainingTime(int) override { return -1; }
    void wakeUp() override { }
    void interrupt() override { }
    void flush() override { }
};

} // namespace sdk
