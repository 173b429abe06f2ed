#pragma once

#include <QHash>
#include <QString>

#include "tools/svcsim/fleet_entry.h"

namespace svcsim
{

// The service's view of every device it knows, by serial, and the answer for a
// serial it doesn't know.
class fleet
{
public:
    const fleet_entry& entry_for(const QString& serial) const
    {
        const auto it = m_entries.constFind(serial);
        return it == m_entries.cend() ? m_default : *it;
    }
    bool contains(const QString& serial) const { return m_entries.contains(serial); }
    void set(const QString& serial, const fleet_entry& entry) { m_entries.insert(serial, entry); }
    // The serial falls back to the default.
    void remove(const QString& serial) { m_entries.remove(serial); }
    void set_default(const fleet_entry& entry) { m_default = entry; }
    const fleet_entry& default_entry() const { return m_default; }
    int count() const { return m_entries.size(); }

private:
    QHash<QString, fleet_entry> m_entries;
    fleet_entry m_default;
};

} // namespace svcsim
