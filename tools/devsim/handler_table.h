#pragma once

#include "tools/devsim/handler.h"

#include <QHash>

#include <memory>
#include <vector>

namespace devsim
{

// The handlers of one connection, found by request id.
class handler_table
{
public:
    handler_table();
    ~handler_table();
    handler_table(const handler_table&) = delete;
    handler_table& operator=(const handler_table&) = delete;

    // Null for an id no handler answers.
    handler* find(quint16 message_id) const { return m_by_id.value(message_id); }

private:
    void add(std::unique_ptr<handler> h);

    std::vector<std::unique_ptr<handler>> m_handlers;
    QHash<quint16, handler*> m_by_id;
};

} // namespace devsim
