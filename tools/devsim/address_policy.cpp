#include "tools/devsim/address_policy.h"

#include <QNetworkInterface>

#include <sys/stat.h>

namespace devsim
{

namespace
{

    bool local_allowed = false;

} // namespace

bool address_policy::in_named_namespace(const QString& name)
{
    if (name.isEmpty() || name.contains(QLatin1Char('/')) || name.startsWith(QLatin1Char('.')))
        return false;
    struct stat own {
    };
    if (::stat("/proc/self/ns/net", &own) != 0)
        return false;
    for (const char* dir : { "/run/netns/", "/var/run/netns/" }) {
        struct stat named {
        };
        if (::stat(QByteArray(dir + name.toLocal8Bit()).constData(), &named) == 0)
            return named.st_dev == own.st_dev && named.st_ino == own.st_ino;
    }
    return false;
}

bool address_policy::allow_local_addresses(const QString& namespace_name, QString* error)
{
    if (!in_named_namespace(namespace_name)) {
        *error = QStringLiteral("not running in network namespace \"%1\"; only loopback addresses are allowed")
                     .arg(namespace_name);
        return false;
    }
    local_allowed = true;
    return true;
}

bool address_policy::local_addresses_allowed()
{
    return local_allowed;
}

bool address_policy::may_listen_on(const QHostAddress& address)
{
    if (address.protocol() != QAbstractSocket::IPv4Protocol)
        return false;
    if (address.isLoopback())
        return true;
    return local_allowed && QNetworkInterface::allAddresses().contains(address);
}

bool address_policy::may_answer(const QHostAddress& peer)
{
    bool is_v4 = false;
    const QHostAddress v4(peer.toIPv4Address(&is_v4));
    return is_v4 && (v4.isLoopback() || local_allowed);
}

} // namespace devsim
