#include "tools/common/shutdown_watch.h"

#include <QSocketNotifier>

#include <cerrno>
#include <csignal>
#include <sys/socket.h>
#include <unistd.h>

namespace tools
{

namespace
{

    // The write end is all a signal handler may touch.
    int signal_pipe[2] = { -1, -1 };

    void on_unix_signal(int number)
    {
        const char c = char(number);
        [[maybe_unused]] const ssize_t n = ::write(signal_pipe[1], &c, 1);
    }

} // namespace

shutdown_watch::shutdown_watch(bool watch_stdin, QObject* parent)
    : QObject(parent)
{
    if (::socketpair(AF_UNIX, SOCK_STREAM, 0, signal_pipe) == 0) {
        m_signal_notifier = new QSocketNotifier(signal_pipe[0], QSocketNotifier::Read, this);
        connect(m_signal_notifier, &QSocketNotifier::activated, this, &shutdown_watch::on_signal);
        struct sigaction action {
        };
        action.sa_handler = on_unix_signal;
        sigemptyset(&action.sa_mask);
        action.sa_flags = SA_RESTART;
        ::sigaction(SIGTERM, &action, nullptr);
        ::sigaction(SIGINT, &action, nullptr);
    }
    if (watch_stdin) {
        m_stdin_notifier = new QSocketNotifier(STDIN_FILENO, QSocketNotifier::Read, this);
        connect(m_stdin_notifier, &QSocketNotifier::activated, this, &shutdown_watch::on_stdin);
    }
}

shutdown_watch::~shutdown_watch()
{
    ::signal(SIGTERM, SIG_DFL);
    ::signal(SIGINT, SIG_DFL);
}

void shutdown_watch::on_signal()
{
    char c = 0;
    if (::read(signal_pipe[0], &c, 1) == 1)
        emit shutdown_requested(QStringLiteral("signal %1").arg(int(c)));
}

void shutdown_watch::on_stdin()
{
    char buffer[256];
    const ssize_t n = ::read(STDIN_FILENO, buffer, sizeof buffer);
    // Whatever arrives on standard input is ignored; only its end matters.
    if (n == 0 || (n < 0 && errno != EINTR && errno != EAGAIN)) {
        m_stdin_notifier->setEnabled(false);
        emit shutdown_requested(QStringLiteral("end of standard input"));
    }
}

} // namespace tools
