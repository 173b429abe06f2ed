#pragma once

#include <QJsonObject>

namespace devsim
{

struct device_state;

// Configuration by broadcast (1532): a flat network record with "DvrMac" naming the
// device, "Username" and "Password" (the login digest).

// True when "DvrMac" is this device's MAC (in any letter case).
bool broadcast_config_is_for(const device_state& state, const QJsonObject& body);
// Checks the credentials and applies the record; the "Ret" to answer with: 100,
// 203 for wrong credentials, 608 for a record it refuses (nothing changes then).
// *moved tells that HostIP or TCPPort changed.
int apply_broadcast_config(device_state& state, const QJsonObject& body, bool* moved, QString* why);

} // namespace devsim
