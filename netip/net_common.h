#pragma once

#include <cstddef>
#include <cstdint>

// A device's network configuration as the closed device library lays it out; the
// layout is binary and must not change. Integers are little-endian, addresses are
// 32-bit values in host order (192.168.1.10 is 0xC0A8010A).
#pragma pack(push, 1)
struct SDK_CONFIG_NET_COMMON_V2
{
    char HostName[64];
    uint32_t HostIP;
    uint32_t Submask;
    uint32_t GateWay;
    int32_t HttpPort;
    int32_t TCPPort;
    int32_t SSLPort;
    int32_t UDPPort;
    int32_t MaxConn;
    int32_t MonMode;
    int32_t MaxBps;
    int32_t TransferPlan;
    bool UseHSDownLoad;
    char MAC[32];
    char SN[32];
    char reserved[71];
};

struct SDK_CONFIG_NET_COMMON_V3
{
    char HostName[64];
    uint32_t HostIP;
    uint32_t Submask;
    uint32_t GateWay;
    int32_t HttpPort;
    int32_t TCPPort;
    int32_t SSLPort;
    int32_t UDPPort;
    int32_t MaxConn;
    int32_t MonMode;
    int32_t MaxBps;
    int32_t TransferPlan;
    bool UseHSDownLoad;
    char MAC[32];
    char Username[64];
    char Password[64];
    char reserved[35];
    int32_t flags;
};
#pragma pack(pop)

static_assert(sizeof(SDK_CONFIG_NET_COMMON_V2) == 244, "V2 record is 244 bytes");
static_assert(sizeof(SDK_CONFIG_NET_COMMON_V3) == 308, "V3 record is 308 bytes");
static_assert(offsetof(SDK_CONFIG_NET_COMMON_V2, HostIP) == 64);
static_assert(offsetof(SDK_CONFIG_NET_COMMON_V2, Submask) == 68);
static_assert(offsetof(SDK_CONFIG_NET_COMMON_V2, GateWay) == 72);
static_assert(offsetof(SDK_CONFIG_NET_COMMON_V2, HttpPort) == 76);
static_assert(offsetof(SDK_CONFIG_NET_COMMON_V2, TCPPort) == 80);
static_assert(offsetof(SDK_CONFIG_NET_COMMON_V2, SSLPort) == 84);
static_assert(offsetof(SDK_CONFIG_NET_COMMON_V2, UDPPort) == 88);
static_assert(offsetof(SDK_CONFIG_NET_COMMON_V2, MaxConn) == 92);
static_assert(offsetof(SDK_CONFIG_NET_COMMON_V2, MonMode) == 96);
static_assert(offsetof(SDK_CONFIG_NET_COMMON_V2, MaxBps) == 100);
static_assert(offsetof(SDK_CONFIG_NET_COMMON_V2, TransferPlan) == 104);
static_assert(offsetof(SDK_CONFIG_NET_COMMON_V2, UseHSDownLoad) == 108);
static_assert(offsetof(SDK_CONFIG_NET_COMMON_V2, MAC) == 109);
static_assert(offsetof(SDK_CONFIG_NET_COMMON_V2, SN) == 141);
static_assert(offsetof(SDK_CONFIG_NET_COMMON_V2, reserved) == 173);
static_assert(offsetof(SDK_CONFIG_NET_COMMON_V3, HostIP) == 64);
static_assert(offsetof(SDK_CONFIG_NET_COMMON_V3, Submask) == 68);
static_assert(offsetof(SDK_CONFIG_NET_COMMON_V3, GateWay) == 72);
static_assert(offsetof(SDK_CONFIG_NET_COMMON_V3, HttpPort) == 76);
static_assert(offsetof(SDK_CONFIG_NET_COMMON_V3, TCPPort) == 80);
static_assert(offsetof(SDK_CONFIG_NET_COMMON_V3, SSLPort) == 84);
static_assert(offsetof(SDK_CONFIG_NET_COMMON_V3, UDPPort) == 88);
static_assert(offsetof(SDK_CONFIG_NET_COMMON_V3, MaxConn) == 92);
static_assert(offsetof(SDK_CONFIG_NET_COMMON_V3, MonMode) == 96);
static_assert(offsetof(SDK_CONFIG_NET_COMMON_V3, MaxBps) == 100);
static_assert(offsetof(SDK_CONFIG_NET_COMMON_V3, TransferPlan) == 104);
static_assert(offsetof(SDK_CONFIG_NET_COMMON_V3, UseHSDownLoad) == 108);
static_assert(offsetof(SDK_CONFIG_NET_COMMON_V3, MAC) == 109);
static_assert(offsetof(SDK_CONFIG_NET_COMMON_V3, Username) == 141);
static_assert(offsetof(SDK_CONFIG_NET_COMMON_V3, Password) == 205);
static_assert(offsetof(SDK_CONFIG_NET_COMMON_V3, reserved) == 269);
static_assert(offsetof(SDK_CONFIG_NET_COMMON_V3, flags) == 304);
