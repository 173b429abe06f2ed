#include "tools/devsim/request_log.h"

namespace devsim
{

void request_log::append(request_record record)
{
    m_records.push_back(std::move(record));
    while (m_records.size() > capacity) {
        m_records.pop_front();
        ++m_dropped;
    }
}

void request_log::clear()
{
    m_records.clear();
    m_dropped = 0;
}

QJsonArray request_log::to_json() const
{
    QJsonArray out;
    for (const request_record& r : m_records)
        out.append(r.to_json());
    return out;
}

} // namespace devsim
