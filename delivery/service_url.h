#pragma once

#include <QHostAddress>
#include <QString>

#include <cstdint>

namespace delivery {

// The plain http URL of a path on a configured service host: "http://<address>:<port>/<path>".
inline QString service_url(const QHostAddress& address, uint16_t port, const QString& path)
{
    return QStringLiteral("http://%1:%2/%3").arg(address.toString()).arg(port).arg(path);
}

} // namespace delivery
