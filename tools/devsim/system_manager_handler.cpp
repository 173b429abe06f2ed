#include "tools/devsim/system_manager_handler.h"

#include "tools/devsim/connection.h"
#include "tools/devsim/device.h"
#include "tools/devsim/devsim_log.h"
#include "tools/devsim/request_body.h"
#include "tools/devsim/ret_codes.h"

namespace devsim
{

void system_manager_handler::handle(connection& conn, const frame& request)
{
    bool ok = false;
    const QJsonObject body = parse_request_body(request.payload, &ok);
    const QString name = body.value("Name").toString();
    if (!ok)
        conn.reply(request, QJsonObject { { "Ret", ret::illegal_request } });
    else if (name == QLatin1String("OPMachine"))
        machine(conn, request, body.value(name).toObject());
    else if (name == QLatin1String("OPDefaultConfig"))
        default_config(conn, request, body.value(name));
    else
        conn.reply(request, QJsonObject { { "Name", name }, { "Ret", ret::no_such_config } });
}

void system_manager_handler::machine(connection& conn, const frame& request, const QJsonObject& members)
{
    const QString action = members.value("Action").toString();
    if (action != QLatin1String("Reboot")) {
        conn.reply(request, QJsonObject { { "Name", "OPMachine" }, { "Ret", ret::not_supported } });
        return;
    }
    conn.reply(request, QJsonObject { { "Name", "OPMachine" }, { "Ret", ret::ok } });
    // The answer is written before the reboot closes the connection behind it.
    conn.owner().reboot();
}

void system_manager_handler::default_config(connection& conn, const frame& request, const QJsonValue& members)
{
    if (!members.isObject()) {
        conn.reply(request, QJsonObject { { "Name", "OPDefaultConfig" }, { "Ret", ret::config_parse_error } });
        return;
    }
    device_state& s = conn.owner().state();
    const QJsonObject sections = members.toObject();
    QStringList reset;
    for (auto it = sections.begin(); it != sections.end(); ++it) {
        if (it.value().toBool())
            reset << it.key();
    }
    ++s.resets;
    s.reset_sections = reset;
    // Only the records the simulator keeps change; the others are just noted. The
    // factory address is written to the record, but the listener stays where it is,
    // so a test keeps reaching the device on loopback.
    if (reset.contains(QLatin1String("NetCommon")))
        s.net = net_record::factory(s.net.mac);
    if (reset.contains(QLatin1String("General")))
        s.location = location_record();
    qCInfo(lc_devsim, "%s: reset of %s", qPrintable(s.name), qPrintable(reset.join(',')));
    conn.reply(request, QJsonObject { { "Name", "OPDefaultConfig" }, { "Ret", ret::ok } });
}

} // namespace devsim
