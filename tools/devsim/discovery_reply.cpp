#include "tools/devsim/discovery_reply.h"

#include <QJsonDocument>
#include <QJsonObject>
#include <QRegularExpression>

#include "tools/devsim/device_state.h"
#include "tools/devsim/login_digest.h"

namespace devsim
{

QByteArray discovery_reply(const device_state& state, bool leading_zeros)
{
    QJsonObject net = state.net.to_json();
    net.insert("SN", state.serial);
    net.insert("Username", state.user);
    net.insert("Password", login_digest(state.password));
    net.insert("DeviceType", state.device_type);
    net.insert("ChannelNum", state.channels);
    const QJsonObject body { { "NetWork.NetCommon", net }, { "Ret", 100 }, { "SessionID", "0x00000000" } };
    QByteArray text = QJsonDocument(body).toJson(QJsonDocument::Compact);
    if (leading_zeros) {
        // Members are written in name order, so each port is followed by a comma.
        static const QRegularExpression ports(QStringLiteral("\"(HttpPort|SSLPort|TCPPort|UDPPort)\":(\\d+)"));
        text = QString::fromUtf8(text).replace(ports, QStringLiteral("\"\\1\":0\\2")).toUtf8();
    }
    text.append('\n');
    text.append('\0');
    return text;
}

} // namespace devsim
