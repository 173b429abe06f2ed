#pragma once

#include "netip/net_common.h"
#include "tasks/mac.h"

#include <QList>
#include <QMetaType>
#include <QString>

#include <cstdint>

// What discovery and the workers know of a device.
struct device
{
    static constexpr int32_t never_filled = 2989;

    device();

    int32_t state = never_filled;
    mac address;
    SDK_CONFIG_NET_COMMON_V2 net;
    bool text_values = false;
    QString ip;
    uint16_t port = 0;
    QString user;
    QString password;
    bool password_is_hash = false;
};

using device_list = QList<device>;

Q_DECLARE_METATYPE(device)
Q_DECLARE_METATYPE(device_list)
