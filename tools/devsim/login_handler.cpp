#include "tools/devsim/login_handler.h"

#include "tools/devsim/connection.h"
#include "tools/devsim/device.h"
#include "tools/devsim/devsim_log.h"
#include "tools/devsim/login_digest.h"
#include "tools/devsim/request_body.h"
#include "tools/devsim/ret_codes.h"

namespace devsim
{

void login_handler::handle(connection& conn, const frame& request)
{
    device& dev = conn.owner();
    device_state& state = dev.state();
    bool ok = false;
    const QJsonObject body = parse_request_body(request.payload, &ok);
    if (!ok) {
        conn.reply(request, QJsonObject { { "Ret", ret::illegal_request } });
        return;
    }

    int code = ret::ok;
    if (dev.faults().lock_user)
        code = ret::user_locked;
    else if (dev.faults().refuse_login)
        code = ret::wrong_password;
    else if (body.value("UserName").toString() != state.user
        || body.value("PassWord").toString() != login_digest(state.password))
        code = ret::wrong_password;

    if (code != ret::ok) {
        ++state.failed_logins;
        qCInfo(lc_devsim, "%s: login of \"%s\" refused with %d", qPrintable(state.name),
            qPrintable(body.value("UserName").toString()), code);
        conn.reply(request, QJsonObject { { "Ret", code } });
        return;
    }

    ++state.logins;
    conn.set_session(device::next_session());
    conn.reply(request,
        QJsonObject {
            { "Ret", ret::ok },
            { "AliveInterval", 20 },
            { "ChannelNum", state.channels },
            { "DataUseAES", false },
            // With the trailing blank, as real devices name it.
            { "DeviceType ", state.device_type },
            { "ExtraChannel", 0 },
        });
}

} // namespace devsim
