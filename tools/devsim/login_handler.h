#pragma once

#include "tools/devsim/handler.h"

namespace devsim
{

// 1000, answered by 1001: checks user and password digest and hands out a session.
class login_handler final : public handler
{
public:
    QList<quint16> message_ids() const override { return { 1000 }; }
    bool needs_login() const override { return false; }
    void handle(connection& conn, const frame& request) override;
};

} // namespace devsim
