#pragma once

#include <QMap>
#include <QString>
#include <QStringList>
#include <QVector>

#include <functional>

// The user log's memory: every line with its idents, and listeners (the window's
// log pane) that see the lines their filter lets through. Not locked: the caller
// (core's log) serialises access.
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
    int size() const { return m_entries.size(); }

    static bool matches(const QStringList& filter, const QStringList& idents);

private:
    struct listener_data
    {
        QStringList filter;
        callback on_entry;
        std::function<void()> on_filter_changed;
    };
    QVector<entry> m_entries;
    QMap<int, listener_data> m_listeners;
};
