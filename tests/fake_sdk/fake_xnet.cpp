// Stands in for libXNetSDK in tests (see fake_sdk.h); records are read at their offsets, not through the program's.
#include "fake_sdk.h"

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <cstring>

namespace {

using message_fn = int (*)(int id, int message, int p1, int p2, int p3);

std::atomic<message_fn> g_callback { nullptr };

int deliver(int id, int message, int p1, int p2, int p3)
{
    const message_fn callback = g_callback.load();
    return callback ? callback(id, message, p1, p2, p3) : -1;
}

// A char array of the record, up to its first zero.
std::string field(const unsigned char* record, size_t offset, size_t size)
{
    const char* start = reinterpret_cast<const char*>(record + offset);
    return std::string(start, strnlen(start, size));
}

bool zero(const unsigned char* record, size_t offset, size_t size)
{
    return std::all_of(record + offset, record + offset + size, [](unsigned char c) { return c == 0; });
}

} // namespace

FAKE_SDK_EXPORT int XSDK_Init(const void* record)
{
    void* members[3];
    std::memcpy(members, record, sizeof(members));
    fake().note(std::string("init ") + (members[0] ? "set" : "0") + ' ' + (members[1] ? "callback" : "0") + ' '
        + (members[2] ? "set" : "0"));
    if (mode() == "refuse_init")
        return 1;
    message_fn callback;
    std::memcpy(&callback, &members[1], sizeof(callback));
    g_callback = callback;
    return 0;
}

FAKE_SDK_EXPORT int XSDK_DevLogin(const void* record, int timeout_ms, int flags)
{
    const auto* bytes = static_cast<const unsigned char*>(record);
    uint16_t port = 0;
    std::memcpy(&port, bytes + 128, sizeof(port));
    const std::string call = "login " + field(bytes, 0, 128) + ' ' + std::to_string(port) + ' ' + field(bytes, 132, 64)
        + ' ' + field(bytes, 196, 64)
        + (zero(bytes, 130, 2) && zero(bytes, 260, 4) ? " reserved zero " : " reserved set ")
        + std::to_string(timeout_ms) + ' ' + std::to_string(flags);
    if (mode() == "refuse_login") {
        fake().note(call + " refused");
        return 0;
    }
    const int handle = fake().next_id();
    fake().note(call + " as " + std::to_string(handle));
    if (mode() != "manual")
        send_later(handle, { { 12500, 6, 0, 0 } });
    return handle;
}

FAKE_SDK_EXPORT int XSDK_DevUpgrade(int handle, const char* path, int flags, int timeout_ms)
{
    const long size = take_firmware(path);
    const std::string call = "upgrade " + std::to_string(handle) + ' ' + (path ? path : "(null)") + ' '
        + std::to_string(flags) + ' ' + std::to_string(timeout_ms) + " size " + std::to_string(size);
    return upgrade(call, size, false, { 13006, 6, 100, 100 });
}
