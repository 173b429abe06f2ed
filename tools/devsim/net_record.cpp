#include "tools/devsim/net_record.h"

#include <QStringList>
#include <QtEndian>

namespace devsim
{

namespace
{

    const QStringList transfer_plans { "AutoAdapt", "Quality", "Fluency", "Transmission" };
    const QStringList mon_modes { "TCP", "UDP", "MCAST" };

    bool valid_choice(const QJsonValue& v, const QStringList& names)
    {
        if (v.isString())
            return names.contains(v.toString());
        if (v.isDouble())
            return v.toDouble() >= 0 && v.toDouble() < names.size() && v.toDouble() == v.toInt();
        return false;
    }

    bool read_port(const QJsonObject& members, const char* key, int* out, QString* error)
    {
        const QJsonValue v = members.value(QLatin1String(key));
        if (v.isUndefined())
            return true;
        if (!v.isDouble() || v.toDouble() != v.toInt() || v.toInt() < 0 || v.toInt() > 65535) {
            *error = QStringLiteral("%1 isn't a port number").arg(key);
            return false;
        }
        *out = v.toInt();
        return true;
    }

    bool read_int(const QJsonObject& members, const char* key, int* out, QString* error)
    {
        const QJsonValue v = members.value(QLatin1String(key));
        if (v.isUndefined())
            return true;
        if (!v.isDouble() || v.toDouble() != v.toInt()) {
            *error = QStringLiteral("%1 isn't an integer").arg(key);
            return false;
        }
        *out = v.toInt();
        return true;
    }

    bool read_address(const QJsonObject& members, const char* key, quint32* out, QString* error)
    {
        const QJsonValue v = members.value(QLatin1String(key));
        if (v.isUndefined())
            return true;
        if (!net_record::parse_address(v, out)) {
            *error = QStringLiteral("%1 isn't a hexadecimal address").arg(key);
            return false;
        }
        return true;
    }

} // namespace

net_record net_record::factory(const QString& mac)
{
    net_record r;
    r.mac = mac;
    return r;
}

QJsonObject net_record::to_json() const
{
    return QJsonObject {
        { "GateWay", address_text(gateway) },
        { "HostIP", address_text(host_ip) },
        { "HostName", host_name },
        { "HttpPort", http_port },
        { "MAC", mac },
        { "MaxBps", max_bps },
        { "MonMode", mon_mode },
        { "SSLPort", ssl_port },
        { "Submask", address_text(submask) },
        { "TCPMaxConn", max_conn },
        { "TCPPort", tcp_port },
        { "TransferPlan", transfer_plan },
        { "UDPPort", udp_port },
        { "UseHSDownLoad", use_hs_download },
    };
}

bool net_record::merge(const QJsonObject& members, QString* error, bool allow_mac)
{
    net_record r = *this;
    if (!read_address(members, "HostIP", &r.host_ip, error) || !read_address(members, "Submask", &r.submask, error)
        || !read_address(members, "GateWay", &r.gateway, error))
        return false;
    if (!read_port(members, "HttpPort", &r.http_port, error) || !read_port(members, "TCPPort", &r.tcp_port, error)
        || !read_port(members, "SSLPort", &r.ssl_port, error) || !read_port(members, "UDPPort", &r.udp_port, error)
        || !read_int(members, "TCPMaxConn", &r.max_conn, error) || !read_int(members, "MaxBps", &r.max_bps, error))
        return false;
    if (r.tcp_port == 0 && members.contains("TCPPort")) {
        *error = QStringLiteral("TCPPort 0");
        return false;
    }

    if (members.contains("HostName")) {
        if (!members.value("HostName").isString()) {
            *error = QStringLiteral("HostName isn't text");
            return false;
        }
        r.host_name = members.value("HostName").toString();
    }
    if (members.contains("MonMode")) {
        if (!valid_choice(members.value("MonMode"), mon_modes)) {
            *error = QStringLiteral("unknown MonMode");
            return false;
        }
        r.mon_mode = members.value("MonMode");
    }
    if (members.contains("TransferPlan")) {
        if (!valid_choice(members.value("TransferPlan"), transfer_plans)) {
            *error = QStringLiteral("unknown TransferPlan");
            return false;
        }
        r.transfer_plan = members.value("TransferPlan");
    }
    if (members.contains("UseHSDownLoad")) {
        const QJsonValue v = members.value("UseHSDownLoad");
        if (!v.isBool() && !v.isDouble()) {
            *error = QStringLiteral("UseHSDownLoad isn't a flag");
            return false;
        }
        r.use_hs_download = v.isBool() ? v.toBool() : v.toInt() != 0;
    }
    if (allow_mac && members.contains("MAC"))
        r.mac = members.value("MAC").toString();

    *this = r;
    return true;
}

QString net_record::address_text(quint32 host_order)
{
    return QString::asprintf("0x%08X", qbswap(host_order));
}

bool net_record::parse_address(const QJsonValue& value, quint32* host_order)
{
    if (!value.isString())
        return false;
    QString text = value.toString().trimmed();
    if (text.startsWith(QLatin1String("0x"), Qt::CaseInsensitive))
        text.remove(0, 2);
    if (text.isEmpty() || text.size() > 8)
        return false;
    bool ok = false;
    const quint32 wire = text.toUInt(&ok, 16);
    if (!ok)
        return false;
    *host_order = qbswap(wire);
    return true;
}

} // namespace devsim
