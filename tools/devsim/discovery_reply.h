#pragma once

#include <QByteArray>

namespace devsim
{

struct device_state;

// The body of a device's answer to discovery (1531): {"NetWork.NetCommon":{...}}
// with its network record, "SN", "Username" and "Password" (the login digest),
// ending in a line feed and a NUL. Some devices write numbers with leading zeros
// ("TCPPort": 034567), which isn't JSON; `leading_zeros` does the same to the ports.
QByteArray discovery_reply(const device_state& state, bool leading_zeros);

} // namespace devsim
