#pragma once

#include <QObject>
#include <QPointer>
#include <QThread>
#include <QTimer>

#include <deque>

namespace sdk {

// Starts worker threads a few per turn of the main event loop. Creating a thread costs the
// caller a tenth of a millisecond or more; a launch of a thousand rows started them all in
// one go and held the window that long. Called from another thread, or with no event loop
// to come back to, it starts at once.
class thread_starter : public QObject
{
public:
    static constexpr int per_turn = 16;

    static void start(QThread* thread);

private:
    thread_starter();
    static thread_starter* instance();
    void start_some();

    std::deque<QPointer<QThread>> m_waiting;
    QTimer m_timer;
};

} // namespace sdk
