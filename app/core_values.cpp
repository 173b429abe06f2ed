// Program values that scripts read through ${$group/...}.
#include "app/core.h"

#include "ui/dynwidgets_controller.h"

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

std::pair<QString, QString> core::facing_address(const QString& host)
{
    QString mac;
    const QNetworkAddressEntry entry = facing_entry(host, &mac);
    return { entry.ip().toString(), mac };
}

void core::set_last_result(bool ok, const QString& result)
{
    m_processor->set_last_result(ok, result);
}

QString core::resolve_variable(const QString& path) const
{
    return resolve_variable(path.split(QLatin1Char('/'))).value_or(QString());
}

std::optional<QString> core::resolve_variable(const QStringList& path) const
{
    const QString group = path.value(0);
    const QString what = path.value(1);

    if (group == QLatin1String("last") && path.size() == 2) {
        const scripting::command_result last = m_processor->last_result();
        if (what == QLatin1String("ok"))
            return last.ok ? QStringLiteral("1") : QStringLiteral("0");
        if (what == QLatin1String("result"))
            return last.result;
        return std::nullopt;
    }
    if (group == QLatin1String("task") && path.size() == 3) {
        QString ident;
        if (what == QLatin1String("selected")) {
            ident = selected_lines().value(0);
        } else {
            bool ok = false;
            const int index = what.toInt(&ok);
            if (ok)
                ident = m_manager.lines().value(index);
        }
        const auto l = m_manager.find(ident);
        if (!l)
            return std::nullopt;
        const QString& field = path[2];
        if (field == QLatin1String("ident"))
            return ident;
        if (field == QLatin1String("ip"))
            return l->get(tasks::keys::endpoint).value<endpoint>().host;
        if (field == QLatin1String("selected"))
            return l->get(tasks::keys::selected).toBool() ? QStringLiteral("yes") : QStringLiteral("no");
        if (field == QLatin1String("sdk"))
            return sdk::type_text(l->get(tasks::keys::sdk_in_use).toInt());
        return std::nullopt;
    }
    if (group == QLatin1String("env")) {
        if (what == QLatin1String("task_limit") && path.size() == 2)
            return QString::number(m_manager.effective_limit());
        if ((what == QLatin1String("local_ip") || what == QLatin1String("local_mac")) && path.size() <= 3) {
            const auto [ip, mac] = facing_address(path.value(2));
            return what == QLatin1String("local_ip") ? ip : mac;
        }
        return std::nullopt;
    }
    if (group == QLatin1String("widget") && path.size() == 3 && m_widgets)
        return m_widgets->value({}, what, path[2]);
    return std::nullopt;
}
