#pragma once

#include <QJsonArray>
#include <QJsonObject>
#include <QList>

#include "tools/svcsim/request_record.h"

namespace svcsim
{

// Every request of the run, for tests to read. The list can be cleared; the
// counts run from the start.
class request_log
{
public:
    // Numbers the record, keeps it, and returns its number.
    qint64 append(request_record record);
    void clear() { m_records.clear(); }
    int size() const { return m_records.size(); }

    // The records of one kind and serial; an empty filter takes all.
    QJsonArray to_json(const QString& kind, const QString& serial) const;
    // {"update": n, "file": n, "confirm": n, "other": n, "total": n}
    QJsonObject counts() const;

private:
    QList<request_record> m_records;
    qint64 m_counts[request_kind_count] = {};
    qint64 m_total = 0;
};

} // namespace svcsim
