#pragma once

#include "tools/devsim/handler.h"

namespace devsim
{

// 1540, answered by 1541 with Ret 603: a raw configuration file, of which the
// device keeps size and MD5.
class config_import_handler final : public handler
{
public:
    QList<quint16> message_ids() const override { return { 1540 }; }
    void handle(connection& conn, const frame& request) override;
};

} // namespace devsim
