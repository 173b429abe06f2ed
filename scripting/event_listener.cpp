#include "scripting/event_listener.h"

#include "scripting/event_handler.h"

namespace event
{

void listener::attach_listener(const QStringList& names, handler* h)
{
    m_handler = h;
    for (const QString& name : names)
        h->register_listener(name.section(QLatin1Char(' '), 0, 0, QString::SectionSkipEmpty), this);
}

void listener::raise_event(const QString& name, const QStringList& args)
{
    if (m_handler)
        m_handler->post(name, args);
}

} // namespace event
