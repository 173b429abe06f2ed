#include "tools/devsim/config_handler.h"

#include "tools/devsim/connection.h"
#include "tools/devsim/device.h"
#include "tools/devsim/devsim_log.h"
#include "tools/devsim/request_body.h"
#include "tools/devsim/ret_codes.h"

namespace devsim
{

namespace
{

    const QString net_common = QStringLiteral("NetWork.NetCommon");
    const QString location = QStringLiteral("General.Location");
    const QString dhcp = QStringLiteral("NetWork.DHCP");

} // namespace

void config_handler::handle(connection& conn, const frame& request)
{
    bool ok = false;
    bool repaired = false;
    const QJsonObject body = parse_request_body(request.payload, &ok, &repaired);
    if (!ok) {
        conn.reply(request, QJsonObject { { "Ret", ret::config_parse_error } });
        return;
    }
    if (repaired)
        qCInfo(lc_devsim, "%s: request %u was cut short; read up to its last whole member",
            qPrintable(conn.owner().state().name), request.message_id);

    const QString name = body.value("Name").toString();
    if (request.message_id == 1042)
        get(conn, request, name);
    else
        set(conn, request, name, body);
}

void config_handler::get(connection& conn, const frame& request, const QString& name)
{
    const device_state& s = conn.owner().state();
    QJsonObject reply { { "Name", name }, { "Ret", ret::ok } };
    if (name == net_common) {
        // Devices name their MAC a second time here; a set that sends it back changes nothing.
        QJsonObject record = s.net.to_json();
        record.insert("DvrMac", s.net.mac);
        reply.insert(name, record);
    } else if (name == location) {
        reply.insert(name, s.location.members);
    } else {
        reply.insert("Ret", ret::no_such_config);
    }
    conn.reply(request, reply);
}

void config_handler::set(connection& conn, const frame& request, const QString& name, const QJsonObject& body)
{
    device& dev = conn.owner();
    device_state& s = dev.state();
    QString error;
    int code = ret::ok;
    bool moved = false;

    if (name == net_common) {
        const quint32 old_ip = s.net.host_ip;
        const int old_port = s.net.tcp_port;
        if (!body.value(name).isObject()) {
            error = QStringLiteral("no \"%1\" object").arg(name);
            code = ret::config_parse_error;
        } else if (!s.net.merge(body.value(name).toObject(), &error)) {
            code = ret::config_parse_error;
        }
        moved = s.net.host_ip != old_ip || s.net.tcp_port != old_port;
    } else if (name == location) {
        if (!body.value(name).isObject()) {
            error = QStringLiteral("no \"%1\" object").arg(name);
            code = ret::config_parse_error;
        } else if (!s.location.merge(body.value(name).toObject(), &error)) {
            code = ret::config_parse_error;
        }
    } else if (name == dhcp) {
        ++s.dhcp_requests;
        if (body.contains("NetWork.NetDHCP"))
            s.dhcp_config = body.value("NetWork.NetDHCP");
    } else {
        code = ret::no_such_config;
        error = QStringLiteral("unknown configuration \"%1\"").arg(name);
    }

    if (code != ret::ok)
        qCInfo(lc_devsim, "%s: refused to set \"%s\": %s", qPrintable(s.name), qPrintable(name), qPrintable(error));
    conn.reply(request, QJsonObject { { "Name", name }, { "Ret", code } });
    if (moved)
        dev.network_changed();
}

} // namespace devsim
