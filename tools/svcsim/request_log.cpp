#include "tools/svcsim/request_log.h"

namespace svcsim
{

namespace
{

    // A runaway client mustn't exhaust memory; the oldest records go first.
    constexpr int max_records = 200000;

} // namespace

qint64 request_log::append(request_record record)
{
    record.sequence = ++m_total;
    ++m_counts[int(record.kind)];
    if (m_records.size() >= max_records)
        m_records.removeFirst();
    m_records.append(std::move(record));
    return m_total;
}

QJsonArray request_log::to_json(const QString& kind, const QString& serial) const
{
    QJsonArray list;
    for (const request_record& r : m_records) {
        if ((kind.isEmpty() || kind_name(r.kind) == kind) && (serial.isEmpty() || r.serial == serial))
            list.append(r.to_json());
    }
    return list;
}

QJsonObject request_log::counts() const
{
    QJsonObject json { { "total", double(m_total) } };
    for (int k = 0; k < request_kind_count; ++k)
        json.insert(kind_name(request_kind(k)), double(m_counts[k]));
    return json;
}

} // namespace svcsim
