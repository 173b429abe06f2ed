#pragma once

#include "diagnostics/latched_thread.h"

#include <QList>
#include <QMap>
#include <QMutex>
#include <QStringList>

namespace event
{

class listener;

// A raised event waiting for the handler's thread.
struct event_queue_entry {
    QString name;
    QStringList args;
};

// What a script asked to happen when an event with exactly these arguments is raised.
struct attachment {
    QString event;
    QStringList args;
    QString action_type;
    QString action_value;
};

// Takes raised events off a queue in a thread of its own and calls the listener of the
// event's name for the attachment whose key matches the event exactly. Listeners must
// outlive the thread: their owner stops it before they go.
class handler final : public background::latched_thread
{
    Q_OBJECT
public:
    explicit handler(QObject* parent = nullptr);
    ~handler() override;
    Q_DISABLE_COPY_MOVE(handler)

    // Any thread: queues the event and wakes the thread.
    void post(const QString& name, const QStringList& args);
    // Replaces whatever was attached under the same key.
    void attach(const QString& event, const QStringList& args, const QString& action_type, const QString& action_value);
    // Removes the attachment of this key; whether there was one.
    bool detach(const QString& event, const QStringList& args);
    // Event name -> argument text -> its action lines, for listing.
    QMap<QString, QMap<QString, QStringList>> attachments_by_event() const;
    // One listener per name: a later registration replaces the earlier one.
    void register_listener(const QString& name, listener* l);
    // Nothing queued and no action being run; any thread.
    bool idle() const;
    // Ends the thread once the action it runs has returned; what is still queued is dropped.
    void stop() { stop_and_wait(); }

    // The name, one blank and the arguments joined by blanks: without arguments it ends in a blank.
    static QString key(const QString& name, const QStringList& args);

protected:
    bool process() override;

private:
    // Guards the queue, the maps and m_busy; never held while a listener runs.
    mutable QMutex m_mutex;
    QMap<QString, listener*> m_listeners;
    QMap<QString, attachment> m_attachments;
    QList<event_queue_entry> m_queue;
    bool m_busy = false; // from taking an entry to the round that finds the queue empty
};

} // namespace event
