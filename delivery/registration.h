#pragma once

#include "delivery/rpc.h"

#include <QDateTime>
#include <QHash>
#include <QHostAddress>
#include <QMutex>
#include <QString>
#include <QUrl>

#include <cstdint>

namespace delivery {

// What the service says of a registered MAC address.
struct register_mac_result
{
    bool result = false; // accepted
    QDateTime date; // when it was registered; invalid when the service didn't say
    QString operator_mac;
    QHostAddress operator_ip;
};

// Registers devices and the operator's MAC addresses with the factory's service over
// JSON-RPC. Each call blocks its thread while processing its events (see rpc); calls may
// come from several threads at once. Devices registered in this run are remembered and
// never sent again.
class registration
{
public:
    static inline const QString date_format = QStringLiteral("yyyy-MM-dd hh:mm:ss");

    // The service's JSON-RPC endpoint; the default host until one is configured.
    void set_endpoint(const QUrl& endpoint) { m_endpoint = endpoint; }
    QUrl endpoint() const { return m_endpoint; }

    // True at once for a serial registered in this run; false for an empty type or version.
    bool register_new_device(const QString& serial, const QString& type, const QString& version);
    bool registered(const QString& serial) const;
    register_mac_result register_cloud_mac(
        const QString& serial, uint16_t port, const QString& mac, const QHostAddress& address);

private:
    QUrl m_endpoint { rpc::default_endpoint };
    mutable QMutex m_mutex; // guards m_registered
    QHash<QString, bool> m_registered; // by serial
};

} // namespace delivery
