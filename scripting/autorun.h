#pragma once

#include <QList>
#include <QString>

#include <functional>

class QSettings;

namespace scripting {

// A script file run at start.
struct autorun_entry
{
    QString file;
    bool enabled = true;
    bool type = false; // false OVScript, true Lua

    bool operator==(const autorun_entry& other) const
    {
        return file == other.file && enabled == other.enabled && type == other.type;
    }
};

// The script files the program runs when it starts, kept in the settings under
// Autorun/list as "file;enabled;type" entries joined by ";;".
class autorun
{
public:
    // Given a file, runs it; false stops the run.
    using runner = std::function<bool(const QString& file)>;

    // Entries with fewer than three fields are skipped.
    void load(QSettings& settings);
    void save(QSettings& settings) const;
    const QList<autorun_entry>& entries() const { return m_entries; }
    void set_entries(const QList<autorun_entry>& entries) { m_entries = entries; }
    void set_runner(runner run) { m_run = std::move(run); }

    // Runs each entry's file in order and stops at the first that fails; true when none did.
    bool run() const;

    static QList<autorun_entry> parse(const QString& text);
    static QString format(const QList<autorun_entry>& entries);

private:
    QList<autorun_entry> m_entries;
    runner m_run;
};

} // namespace scripting
