#include "tools/devsim/broadcast_config.h"

#include "tools/devsim/device_state.h"
#include "tools/devsim/login_digest.h"
#include "tools/devsim/ret_codes.h"

namespace devsim
{

bool broadcast_config_is_for(const device_state& state, const QJsonObject& body)
{
    const QString mac = body.value("DvrMac").toString();
    return !mac.isEmpty() && mac.compare(state.net.mac, Qt::CaseInsensitive) == 0;
}

int apply_broadcast_config(device_state& state, const QJsonObject& body, bool* moved, QString* why)
{
    *moved = false;
    if (body.value("Username").toString() != state.user
        || body.value("Password").toString() != login_digest(state.password)) {
        *why = QStringLiteral("wrong user or password digest");
        return ret::wrong_password;
    }
    const quint32 old_ip = state.net.host_ip;
    const int old_port = state.net.tcp_port;
    // The credentials and "DvrMac" aren't record members; merge() passes over them,
    // and over "MAC", which a client can't change.
    if (!state.net.merge(body, why))
        return ret::config_parse_error;
    *moved = state.net.host_ip != old_ip || state.net.tcp_port != old_port;
    return ret::ok;
}

} // namespace devsim
