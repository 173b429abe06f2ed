#pragma once

#include <QMap>
#include <QMutex>
#include <QString>
#include <QStringList>
#include <QVector>

#include <functional>

// The user log's memory: every line with its idents, and listeners (the window's
// log pane) that see the lines their filter lets through. Any thread may add; the
// listeners are called outside the lock, on the adding thread.
class log_history final
{
public:
    struct entry
    {
        QString text;
        QStringList idents;
    };
    using callback = std::function<void(const entry&)>;

    // Appends and tells each listener whose filter matches one of the idents.
    void add(const QString& text, const QStringList& idents);
    void add_listener(int listener, QStringList filter, callback on_entry, std::function<void()> on_filter_changed = {});
    void remove_listener(int listener);
    // Stores the filter when it differs; tells the listener to rebuild in either case.
    void set_filter(int listener, const QStringList& filter);
    QStringList filter(int listener) const;

    // The entries any of whose idents are in the filter.
    QVector<entry> entries(const QStringList& filter) const;
    int size() const;

    static bool matches(const QStringList& filter, const QStringList& idents);

private:
    struct listener_data
    {
        QStringList filter;
        callback on_entry;
        std::function<void()> on_filter_changed;
    };
    mutable QMutex m_mutex; // guards m_entries and m_listeners
    QVector<entry> m_entries;
    QMap<int, listener_data> m_listeners;
};
