#include "diagnostics/log_history.h"

void log_history::add(const QString& text, const QStringList& idents)
{
    m_entries.append({ text, idents });
    for (const auto& listener : qAsConst(m_listeners)) {
        if (listener.on_entry && matches(listener.filter, idents))
            listener.on_entry(m_entries.constLast());
    }
}

void log_history::add_listener(int listener, QStringList filter, callback on_entry, std::function<void()> on_filter_changed)
{
    m_listeners.insert(listener, { std::move(filter), std::move(on_entry), std::move(on_filter_changed) });
}

void log_history::remove_listener(int listener)
{
    m_listeners.remove(listener);
}

void log_history::set_filter(int listener, const QStringList& filter)
{
    auto it = m_listeners.find(listener);
    if (it == m_listeners.end())
        return;
    if (it->filter != filter)
        it->filter = filter;
    if (it->on_filter_changed)
        it->on_filter_changed();
}

QStringList log_history::filter(int listener) const
{
    return m_listeners.value(listener).filter;
}

QVector<log_history::entry> log_history::entries(const QStringList& filter) const
{
    QVector<entry> shown;
    for (const auto& e : m_entries) {
        if (matches(filter, e.idents))
            shown.append(e);
    }
    return shown;
}

bool log_history::matches(const QStringList& filter, const QStringList& idents)
{
    for (const auto& ident : idents) {
        if (filter.contains(ident))
            return true;
    }
    return false;
}
