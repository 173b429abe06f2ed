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
    for (const request_kind k :
        { request_kind::update, request_kind::file, request_kind::confirm, request_kind::other })
        json.insert(kind_name(k), double(m_counts[int(k)]));
    return json;
}

} // namespace svcsim
