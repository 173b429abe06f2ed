#pragma once

#include "tools/devsim/request_record.h"

#include <QJsonArray>

#include <deque>

namespace devsim
{

// The requests a device received, oldest first. Bounded, so a long firmware run
// can't eat the memory; what fell off the front is counted.
class request_log
{
public:
    static constexpr size_t capacity = 20000;

    void append(request_record record);
    void clear();
    QJsonArray to_json() const;
    size_t size() const { return m_records.size(); }
    quint64 dropped() const { return m_dropped; }

private:
    std::deque<request_record> m_records;
    quint64 m_dropped = 0;
};

} // namespace devsim
