#include "diagnostics/log_history.h"

#include <QMutexLocker>

void log_history::add(const QString& text, const QStringList& idents)
{
    QVector<callback> told;
    entry e { text, idents };
    {
        QMutexLocker lock(&m_mutex);
        m_entries.append(e);
        for (const auto& listener : qAsConst(m_listeners)) {
            if (listener.on_entry && matches(listener.filter, idents))
                told.append(listener.on_entry);
        }
    }
    // Outside the lock: a listener may read the history back.
    for (const auto& on_entry : qAsConst(told))
        on_entry(e);
}

void log_history::add_listener(int listener, QStringList filter, callback on_entry, std::function<void()> on_filter_changed)
{
    QMutexLocker lock(&m_mutex);
    m_listeners.insert(listener, { std::move(filter), std::move(on_entry), std::move(on_filter_changed) });
}

void log_history::remove_listener(int listener)
{
    QMutexLocker lock(&m_mutex);
    m_listeners.remove(listener);
}

void log_history::set_filter(int listener, const QStringList& filter)
{
    std::function<void()> rebuild;
    {
        QMutexLocker lock(&m_mutex);
        auto it = m_listeners.find(listener);
        if (it == m_listeners.end())
            return;
        it->filter = filter;
        rebuild = it->on_filter_changed;
    }
    if (rebuild)
        rebuild();
}

QStringList log_history::filter(int listener) const
{
    QMutexLocker lock(&m_mutex);
    return m_listeners.value(listener).filter;
}

QVector<log_history::entry> log_history::entries(const QStringList& filter) const
{
    QMutexLocker lock(&m_mutex);
    QVector<entry> shown;
    for (const auto& e : m_entries) {
        if (matches(filter, e.idents))
            shown.append(e);
    }
    return shown;
}

int log_history::size() const
{
    QMutexLocker lock(&m_mutex);
    return m_entries.size();
}

bool log_history::matches(const QStringList& filter, const QStringList& idents)
{
    for (const auto& ident : idents) {
        if (filter.contains(ident))
            return true;
    }
    return false;
}
