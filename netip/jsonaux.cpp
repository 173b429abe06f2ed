#include "netip/jsonaux.h"

#include <QByteArray>
#include <QJsonValue>
#include <QString>

#include "diagnostics/blackbox.h"
#include "netip/codes.h"
#include "netip/packet.h"

namespace jsonaux {

uint16_t check_ret(const netip::packet& packet)
{
    const size_t held = packet.payload_size();
    // Devices end a body with one terminator byte.
    const QByteArray body = held ? QByteArray::fromRawData(packet.data(), int(held - 1)) : QByteArray();
    const QJsonDocument document = QJsonDocument::fromJson(body);
    if (!document.isObject())
        return netip::ret_missing;
    const QJsonObject object = document.object();
    if (!object.contains(QLatin1String("Ret"))) {
        write_sub("netip", "jsonaux", blackbox::error, "No such member: Ret");
        return netip::ret_missing;
    }
    return uint16_t(object.value(QLatin1String("Ret")).toInt(0));
}

QJsonObject set_session(const QJsonDocument& document, uint32_t session)
{
    QJsonObject object = document.object();
    object.insert(QStringLiteral("SessionID"), QString::number(session, 16));
    return object;
}

} // namespace jsonaux
