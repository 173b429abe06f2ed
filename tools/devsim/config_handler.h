#pragma once

#include "tools/devsim/handler.h"

#include <QJsonObject>

namespace devsim
{

// 1042 (get, answered by 1043) and 1040 (set, answered by 1041) of
// "NetWork.NetCommon" and "General.Location", and the "NetWork.DHCP" request.
class config_handler final : public handler
{
public:
    QList<quint16> message_ids() const override { return { 1040, 1042 }; }
    void handle(connection& conn, const frame& request) override;

private:
    void get(connection& conn, const frame& request, const QString& name);
    void set(connection& conn, const frame& request, const QString& name, const QJsonObject& body);
};

} // namespace devsim
