// Stands in for libXCloudSDK in tests; see fake_sdk.h.
#include "fake_sdk.h"

#include <atomic>

namespace {

using message_fn = int (*)(int message, int p1, int p2, int p3, int id);

std::atomic<message_fn> g_callback { nullptr };

int deliver(int id, int message, int p1, int p2, int p3)
{
    const message_fn callback = g_callback.load();
    return callback ? callback(message, p1, p2, p3, id) : -1;
}

std::string text(const char* value) { return value ? value : "(null)"; }

} // namespace

FAKE_SDK_EXPORT int XCloudSDK_Init(const char* config)
{
    fake().note("init " + text(config));
    return mode() == "refuse_init" ? -1 : 0;
}

FAKE_SDK_EXPORT int XCloudSDK_RegisterCallback(message_fn callback, void* user)
{
    if (mode() == "refuse_login") {
        fake().note("register refused");
        return -1;
    }
    g_callback = callback;
    const int id = fake().next_id();
    fake().note("register " + std::to_string(id) + (user ? " with user data" : " without user data"));
    return id;
}

FAKE_SDK_EXPORT int XCloudSDK_Device_SetLocalUserNameAndPwd(const char* host, const char* user, const char* password)
{
    fake().note("credentials " + text(host) + ' ' + text(user) + ' ' + text(password));
    return 0;
}

FAKE_SDK_EXPORT int XCloudSDK_Device_UpgradeByFile(
    int id, const char* host, const char* path, int timeout_ms, int flags)
{
    const long size = take_firmware(path);
    const std::string call = "upgrade " + std::to_string(id) + ' ' + text(host) + ' ' + text(path) + ' '
        + std::to_string(timeout_ms) + ' ' + std::to_string(flags) + " size " + std::to_string(size);
    return upgrade(call, size, true, { 13006, 4, 515, 0 });
}
