#include "delivery/registration.h"

namespace delivery {

bool registration::registered(const QString& serial) const
{
    QMutexLocker lock(&m_mutex);
    return m_registered.contains(serial);
}

bool registration::register_new_device(const QString& serial, const QString& type, const QString& version)
{
    if (registered(serial))
        return true;
    if (type.isEmpty() || version.isEmpty())
        return false;
    // The serial stays on this side: the service keys devices by what they are.
    rpc channel(m_endpoint);
    const rpc::response r = channel.call(QStringLiteral("register_new_device"), { type, version });
    if (r.code != 0 || !r.value.toBool())
        return false;
    QMutexLocker lock(&m_mutex);
    m_registered.insert(serial, true);
    return true;
}

register_mac_result registration::register_cloud_mac(
    const QString& serial, uint16_t port, const QString& mac, const QHostAddress& address)
{
    rpc channel(m_endpoint);
    const rpc::response r
        = channel.call(QStringLiteral("register_cloud_mac"), { serial, port, mac, address.toString() });
    register_mac_result out;
    if (r.code != 0)
        return out;
    out.result = r.fields.value(QStringLiteral("result"), false).toBool();
    out.date = QDateTime::fromString(
        r.fields.value(QStringLiteral("date"), QStringLiteral("0000-00-00 00:00:00")).toString(), date_format);
    out.operator_mac = r.fields.value(QStringLiteral("operator_mac"), mac).toString();
    out.operator_ip = QHostAddress(r.fields.value(QStringLiteral("operator_ip"), address.toString()).toString());
    return out;
}

} // namespace delivery
