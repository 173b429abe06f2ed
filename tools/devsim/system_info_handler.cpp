#include "tools/devsim/system_info_handler.h"

#include <QDateTime>

#include "tools/devsim/connection.h"
#include "tools/devsim/device.h"
#include "tools/devsim/request_body.h"
#include "tools/devsim/ret_codes.h"

namespace devsim
{

void system_info_handler::handle(connection& conn, const frame& request)
{
    bool ok = false;
    const QJsonObject body = parse_request_body(request.payload, &ok);
    const QString name = body.value("Name").toString();
    if (!ok) {
        conn.reply(request, QJsonObject { { "Ret", ret::illegal_request } });
        return;
    }
    if (name != QLatin1String("SystemInfo")) {
        conn.reply(request, QJsonObject { { "Name", name }, { "Ret", ret::no_such_config } });
        return;
    }

    const device_state& s = conn.owner().state();
    const qint64 minutes_up = (QDateTime::currentMSecsSinceEpoch() - s.boot_time_ms) / 60000;
    const QJsonObject info {
        { "AlarmInChannel", s.channels },
        { "AlarmOutChannel", 1 },
        { "AudioInChannel", s.channels },
        { "BuildTime", s.build_time },
        { "CombineSwitch", 0 },
        { "DeviceModel", s.hardware },
        { "DeviceRunTime", QString::asprintf("0x%08X", quint32(minutes_up)) },
        { "DigChannel", 0 },
        { "EncryptVersion", "Unknown" },
        { "ExtraChannel", 0 },
        { "HardWare", s.hardware },
        { "HardWareVersion", "Unknown" },
        { "SerialNo", s.serial },
        { "SoftWareVersion", s.software_version },
        { "TalkInChannel", 1 },
        { "TalkOutChannel", 1 },
        { "UpdataTime", "" },
        { "UpdataType", "0x00000000" },
        { "VideoInChannel", s.channels },
        { "VideoOutChannel", 1 },
    };
    conn.reply(request, QJsonObject { { "Name", name }, { "Ret", ret::ok }, { "SystemInfo", info } });
}

} // namespace devsim
