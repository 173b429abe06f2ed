#pragma once

#include <QJsonDocument>
#include <QJsonObject>

#include <cstdint>

namespace netip {
class packet;
}

namespace jsonaux {

// "Ret" of a reply, truncated to 16 bits. The body is the payload less its terminator byte.
// 65534 (netip::ret_missing) when the body isn't a JSON object or has no "Ret".
uint16_t check_ret(const netip::packet& packet);

// A copy of the document's object with "SessionID" (lower-case hex) added. The client
// builds it for every request and drops it: the session travels in the header only.
QJsonObject set_session(const QJsonDocument& document, uint32_t session);

} // namespace jsonaux
