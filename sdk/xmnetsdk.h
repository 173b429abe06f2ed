#pragma once

#include "netip/net_common.h"

#include <cstdint>

// The few calls of the device vendor's network library that the legacy backend needs,
// done in the program's own code over NETIP. Same call shapes and result conventions.

// Always succeeds: 1.
long H264_DVR_Init(void* disconnect_callback, unsigned long user);
// The connect limit and attempt count of later logins.
bool H264_DVR_SetConnectTime(long wait_ms, long tries);
// A presence probe: a connection and a login request within the connect limit. A positive
// handle when the device answers the login at all, whatever its verdict; 0 otherwise.
// A failed probe takes the whole connect limit, so callers that loop on it don't spin.
long H264_DVR_Login(const char* ip, uint16_t port, const char* user, const char* password, void* info, int* error,
    int socket_type);
long H264_DVR_Logout(long handle);
// Writes a network record (command 20, a 308-byte V3 record) by UDP broadcast to the
// device whose MAC it holds. Addresses are taken byte-reversed, as they go on the wire;
// a mask in host order is taken as well. 1 when the device accepts, -10005 when no
// answer came within wait_ms, another negative value when it refused or the request
// couldn't go out (a record without a MAC never does). One call at a time per process:
// concurrent callers wait for each other.
long H264_DVR_SetConfigOverNet(unsigned long command, int channel, char* config, unsigned long size, int wait_ms);

// Marks a record whose Password field already holds the login digest rather than the password.
void xmnet_mark_password_digest(SDK_CONFIG_NET_COMMON_V3& record, bool is_digest);

namespace xmnetsdk {
constexpr uint16_t config_request = 1532;
constexpr uint16_t config_reply = 1533;
constexpr uint16_t broadcast_port = 34569;
constexpr long no_answer = -10005;
// A refusal is refused_base less the device's "Ret".
constexpr long refused_base = -20000;
constexpr long invalid_request = refused_base - 1;
constexpr long socket_failed = refused_base - 2;
constexpr long no_mac = refused_base - 3;
} // namespace xmnetsdk
