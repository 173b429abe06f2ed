#pragma once

#include <QJsonObject>
#include <QJsonValue>
#include <QString>

namespace devsim
{

// A device's "NetWork.NetCommon" record. Addresses are kept in host order
// (192.168.1.123 is 0xC0A8017B) and go on the wire as the hexadecimal text of the
// byte-reversed value ("0x7B01A8C0").
struct net_record {
    QString host_name = QStringLiteral("LocalHost");
    quint32 host_ip = 0xC0A8010A;
    quint32 submask = 0xFFFFFF00;
    quint32 gateway = 0xC0A80101;
    int http_port = 80;
    int tcp_port = 34567;
    int ssl_port = 8443;
    int udp_port = 34568;
    int max_conn = 10;
    int max_bps = 0;
    // Kept in the form they were given: devices answer with text, some with numbers.
    QJsonValue mon_mode = QStringLiteral("TCP");
    QJsonValue transfer_plan = QStringLiteral("Quality");
    bool use_hs_download = false;
    QString mac;

    // What a reset to factory settings leaves: 192.168.1.10/24, default ports.
    static net_record factory(const QString& mac);

    // The members as the device sends them.
    QJsonObject to_json() const;
    // Takes the members present. A value the device would refuse leaves the record
    // unchanged and gives false with the reason. The MAC is burnt in, so a client
    // can't change it; the simulator's own settings can (allow_mac).
    bool merge(const QJsonObject& members, QString* error, bool allow_mac = false);

    static QString address_text(quint32 host_order);
    // Accepts "0x7B01A8C0" as devices write it and "7b01a8c0" as clients do.
    static bool parse_address(const QJsonValue& value, quint32* host_order);
};

} // namespace devsim
