#pragma once

#include <QStringList>

namespace event
{

class handler;

// The mix-in of a class that raises events and is called when an attachment to one of
// its names fires.
class listener
{
public:
    virtual ~listener() = default;

    // Keeps the handler and registers this listener for the first word of each entry.
    virtual void attach_listener(const QStringList& names, handler* h);
    // Runs in the handler's thread when an attachment fires.
    virtual void on_event(
        const QString& name, const QStringList& args, const QString& action_type, const QString& action_value)
        = 0;

protected:
    // Queues the event on the handler; nothing before attach_listener.
    void raise_event(const QString& name, const QStringList& args = {});

private:
    handler* m_handler = nullptr;
};

} // namespace event
