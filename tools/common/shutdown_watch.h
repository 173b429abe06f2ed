#pragma once

#include <QObject>

class QSocketNotifier;

namespace tools
{

// Turns SIGTERM, SIGINT and, when asked, the end of standard input into a signal in
// the event loop, so the process ends cleanly and an orphaned one doesn't linger.
class shutdown_watch final : public QObject
{
    Q_OBJECT
public:
    explicit shutdown_watch(bool watch_stdin, QObject* parent = nullptr);
    ~shutdown_watch() override;
    Q_DISABLE_COPY_MOVE(shutdown_watch)

    bool valid() const { return m_signal_notifier != nullptr; }

signals:
    void shutdown_requested(const QString& reason);

private:
    void on_signal();
    void on_stdin();

    QSocketNotifier* m_signal_notifier = nullptr;
    QSocketNotifier* m_stdin_notifier = nullptr;
};

} // namespace tools
