// Program values that scripts read through ${$group/...}.
#include "app/core.h"

#include <QNetworkInterface>

namespace {

// The local interface whose subnet holds the target, else the first non-loopback IPv4 one.
QNetworkAddressEntry facing_entry(const QString& target, QString* mac)
{
    const QHostAddress peer(target);
    QNetworkAddressEntry fallback;
    QString fallback_mac;
    for (const QNetworkInterface& iface : QNetworkInterface::allInterfaces()) {
        if (!(iface.flags() & QNetworkInterface::IsUp))
            continue;
        for (const QNetworkAddressEntry& entry : iface.addressEntries()) {
            if (entry.ip().protocol() != QAbstractSocket::IPv4Protocol)
                continue;
            if (!peer.isNull() && peer.isInSubnet(entry.ip(), entry.prefixLength())) {
                *mac = iface.hardwareAddress().toLower();
                return entry;
            }
            if (fallback.ip().isNull() && !entry.ip().isLoopback()) {
                fallback = entry;
                fallback_mac = iface.hardwareAddress().toLower();
            }
        }
    }
    *mac = fallback_mac;
    return fallback;
}

} // namespace

void core::set_last_result(int ok, const QString& result)
{
    m_last_ok = ok;
    m_last_result = result;
}

QString core::resolve_variable(const QString& path) const
{
    const QStringList parts = path.split(QLatin1Char('/'));
    const QString group = parts.value(0);

    if (group == QLatin1String("task") && parts.size() == 3) {
        const QStringList idents = m_manager.lines();
        QString ident;
        if (parts[1] == QLatin1String("selected")) {
            const QStringList selected = selected_lines();
            ident = selected.value(0);
        } else {
            bool ok = false;
            const int index = parts[1].toInt(&ok);
            if (ok)
                ident = idents.value(index);
        }
        const auto l = m_manager.find(ident);
        if (!l)
            return {};
        const QString& field = parts[2];
        if (field == QLatin1String("ident"))
            return ident;
        if (field == QLatin1String("ip"))
            return l->get(tasks::keys::endpoint).value<endpoint>().host;
        if (field == QLatin1String("selected"))
            return l->get(tasks::keys::selected).toBool() ? QStringLiteral("yes") : QStringLiteral("no");
        if (field == QLatin1String("sdk"))
            return sdk::type_text(l->get(tasks::keys::sdk_in_use).toInt());
        return {};
    }
    if (group == QLatin1String("env") && parts.size() >= 2) {
        const QString& what = parts[1];
        if (what == QLatin1String("task_limit"))
            return QString::number(m_manager.effective_limit());
        if (what == QLatin1String("local_ip") || what == QLatin1String("local_mac")) {
            QString mac;
            const QNetworkAddressEntry entry = facing_entry(parts.value(2), &mac);
            return what == QLatin1String("local_ip") ? entry.ip().toString() : mac;
        }
        return {};
    }
    if (group == QLatin1String("last") && parts.size() == 2) {
        if (parts[1] == QLatin1String("ok"))
            return QString::number(m_last_ok);
        if (parts[1] == QLatin1String("result"))
            return m_last_result;
    }
    return {};
}
