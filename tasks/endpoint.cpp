#include "tasks/endpoint.h"

QString endpoint::short_form() const
{
    if (!name.isEmpty())
        return name;
    QString text = user + QLatin1Char('@') + host;
    if (port != default_port)
        text += QStringLiteral(":%1").arg(port);
    return text;
}

QString endpoint::long_form() const
{
    QString pass = password.isEmpty()
        ? QStringLiteral("-none-")
        : QStringLiteral("%1 (%2)").arg(password, password_encrypted ? QStringLiteral("encrypted") : QStringLiteral("plain"));
    return QStringLiteral("%1, password: %2, mac: %3, mtype: %4").arg(short_form(), pass, mac, QString::number(mtype));
}

QMap<QString, QString> endpoint::to_map() const
{
    return {
        { QStringLiteral("user"), user },
        { QStringLiteral("password"), password },
        { QStringLiteral("password_encrypted"), password_encrypted ? QStringLiteral("Yes") : QStringLiteral("No") },
        { QStringLiteral("host"), host },
        { QStringLiteral("port"), QString::number(port) },
        { QStringLiteral("mac"), mac },
        { QStringLiteral("mtype"), QString::number(mtype) },
    };
}

bool endpoint::operator==(const endpoint& other) const
{
    return name == other.name && mac == other.mac && host == other.host && port == other.port && user == other.user
        && password == other.password && password_encrypted == other.password_encrypted && mtype == other.mtype;
}
