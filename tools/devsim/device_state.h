#pragma once

#include "tools/devsim/location_record.h"
#include "tools/devsim/net_record.h"

#include <QHostAddress>
#include <QJsonObject>
#include <QJsonValue>
#include <QList>
#include <QString>
#include <QStringList>

namespace devsim
{

// Everything one simulated device is and remembers, readable and settable as JSON.
struct device_state {
    QString name;
    QHostAddress address; // where it was told to listen; see address_policy
    quint16 port = 34567; // 0 lets the system pick one
    QString device_type = QStringLiteral("IPC");
    QString serial;
    QString hardware = QStringLiteral("50H20L_S39");
    QString software_version = QStringLiteral("V4.02.R11.00000001.10010.140400.0000000");
    QString build_time = QStringLiteral("2020-06-11 11:12:09");
    QString user = QStringLiteral("admin");
    QString password;
    int channels = 1;
    int reboot_ms = 1500; // time off the network while rebooting
    int net_apply_ms = 300; // time between answering a network change and moving
    // Firmware upload: the pace of the progress messages (a client gives up after
    // about five seconds of silence, so it stays below that), the percentages reported,
    // and the version it comes back with; empty: "V" and the start of the image's MD5.
    int upgrade_step_ms = 100;
    QList<int> upgrade_progress { 0, 25, 50, 75, 100 };
    QString upgrade_version;

    net_record net;
    location_record location;

    // What happened to it, for tests to read back.
    int boot_count = 1;
    qint64 boot_time_ms = 0;
    int logins = 0;
    int failed_logins = 0;
    int dhcp_requests = 0;
    QJsonValue dhcp_config; // "NetWork.NetDHCP" when a request carried it
    int imports = 0;
    int imported_size = -1;
    QString imported_md5;
    int resets = 0;
    QStringList reset_sections; // of the last reset
    int malformed_frames = 0;
    int upgrade_starts = 0;
    int upgrades = 0; // completed: written and rebooted into
    qint64 upgrade_size = -1; // of the last whole image received
    QString upgrade_md5;
    int discovery_requests = 0;
    int discovery_answers = 0;
    int broadcast_configs = 0; // 1532 addressed to its MAC
    int broadcast_applied = 0;

    // A device from its description: "address", "port" and "mac" first, then the
    // network record that follows from them (HostIP and TCPPort where it listens),
    // then every other member. An index fills what the description leaves out.
    static bool create(const QJsonObject& description, int index, device_state* out, QString* error);

    QJsonObject to_json() const;
    // Changes the members present. Unknown members are refused so that a typo in a
    // test shows up. Where it listens ("address", "port") can't change at run time.
    bool apply(const QJsonObject& changes, QString* error);

private:
    bool apply_member(const QString& key, const QJsonValue& value, QString* error);
};

} // namespace devsim
