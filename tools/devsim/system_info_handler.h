#pragma once

#include "tools/devsim/handler.h"

namespace devsim
{

// 1020, answered by 1021: "SystemInfo" with serial, hardware, version and build time.
class system_info_handler final : public handler
{
public:
    QList<quint16> message_ids() const override { return { 1020 }; }
    void handle(connection& conn, const frame& request) override;
};

} // namespace devsim
