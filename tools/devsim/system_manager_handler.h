#pragma once

#include "tools/devsim/handler.h"

#include <QJsonObject>

namespace devsim
{

// 1450, answered by 1451: "OPMachine" (reboot) and "OPDefaultConfig" (reset of the
// sections asked for).
class system_manager_handler final : public handler
{
public:
    QList<quint16> message_ids() const override { return { 1450 }; }
    void handle(connection& conn, const frame& request) override;

private:
    void machine(connection& conn, const frame& request, const QJsonObject& members);
    void default_config(connection& conn, const frame& request, const QJsonValue& members);
};

} // namespace devsim
