#include "scripting/event_handler.h"

#include "scripting/event_listener.h"

namespace event
{

handler::handler(QObject* parent)
    : background::latched_thread(parent)
{
}

handler::~handler()
{
    stop_and_wait();
}

QString handler::key(const QString& name, const QStringList& args)
{
    return name + QLatin1Char(' ') + args.join(QLatin1Char(' '));
}

void handler::post(const QString& name, const QStringList& args)
{
    {
        QMutexLocker lock(&m_mutex);
        m_queue.append({ name, args });
    }
    wake();
}

void handler::attach(
    const QString& event, const QStringList& args, const QString& action_type, const QString& action_value)
{
    QMutexLocker lock(&m_mutex);
    m_attachments.insert(key(event, args), { event, args, action_type, action_value });
}

bool handler::detach(const QString& event, const QStringList& args)
{
    QMutexLocker lock(&m_mutex);
    return m_attachments.remove(key(event, args)) > 0;
}

QMap<QString, QMap<QString, QStringList>> handler::attachments_by_event() const
{
    QMutexLocker lock(&m_mutex);
    QMap<QString, QMap<QString, QStringList>> listing;
    for (const attachment& a : m_attachments) {
        const QString args = a.args.join(QLatin1Char(' '));
        listing[a.event][args]
            << tr("args: \"%1\", type: \"%2\", value: \"%3\"").arg(args, a.action_type, a.action_value);
    }
    return listing;
}

void handler::register_listener(const QString& name, listener* l)
{
    QMutexLocker lock(&m_mutex);
    m_listeners.insert(name, l);
}

bool handler::idle() const
{
    QMutexLocker lock(&m_mutex);
    return !m_busy && m_queue.isEmpty();
}

bool handler::process()
{
    listener* target = nullptr;
    event_queue_entry entry;
    attachment action;
    {
        QMutexLocker lock(&m_mutex);
        m_busy = !m_queue.isEmpty();
        if (!m_busy)
            return false;
        entry = m_queue.takeFirst();
        target = m_listeners.value(entry.name);
        if (!target)
            return true;
        const auto found = m_attachments.constFind(key(entry.name, entry.args));
        if (found == m_attachments.cend())
            return true;
        action = *found;
    }
    target->on_event(entry.name, entry.args, action.action_type, action.action_value);
    return true;
}

} // namespace event
