#pragma once

#include "tools/devsim/handler.h"

namespace devsim
{

// 1006, answered by 1007: the client's sign of life, which keeps a session open.
class keep_alive_handler final : public handler
{
public:
    QList<quint16> message_ids() const override { return { 1006 }; }
    void handle(connection& conn, const frame& request) override;
};

} // namespace devsim
