#include "scripting/wait.h"

#include <QEventLoop>
#include <QTimer>

namespace scripting {

bool wait_while(const std::function<bool()>& condition, int poll_ms)
{
    if (!condition())
        return true;
    // A local loop rather than sleeps: timers and sockets are served the moment they fire,
    // and an exit of the application ends this loop too.
    QEventLoop loop;
    QTimer poll;
    poll.setInterval(poll_ms);
    bool ended = false;
    QObject::connect(&poll, &QTimer::timeout, &loop, [&] {
        if (!condition()) {
            ended = true;
            loop.quit();
        }
    });
    poll.start();
    loop.exec();
    return ended;
}

} // namespace scripting
