#include "sdk/xcloud.h"

#include <QTimer>

namespace sdk {

namespace {

// The library's calls, as this program uses them.
using message_fn = int (*)(int message, int p1, int p2, int p3, int id);
using init_fn = int (*)(const char* config);
using register_fn = int (*)(message_fn callback, void* user);
using credentials_fn = int (*)(const char* host, const char* user, const char* password);
using upgrade_fn = int (*)(int id, const char* host, const char* path, int timeout_ms, int flags);

// No cloud account: the library serves local devices only.
const char* const init_config
    = "{\"LogLevel\":0,\"TempPath\":\"\",\"ConfigPath\":\"\",\"PlatUUID\":\"\",\"PlatAppKey\":\"\","
      "\"PlatAppSecret\":\"\",\"PlatMovedCard\":0,\"ServerIP\":\"\",\"ServerPort\":34567}";
constexpr int timeout_ms = 15000;
constexpr int login_settle_ms = 100;

// Never destroyed: the library's threads may still call back while the process exits.
library_backend::process_state& state()
{
    static auto* instance = new library_backend::process_state(QStringLiteral("XCloudSDK"),
        { "XCloudSDK_Init", "XCloudSDK_RegisterCallback", "XCloudSDK_Device_SetLocalUserNameAndPwd",
            "XCloudSDK_Device_UpgradeByFile" });
    return *instance;
}

int on_library_message(int message, int p1, int p2, int p3, int id)
{
    return state().registry.dispatch(id, message, p1, p2, p3);
}

} // namespace

xcloud::xcloud(QObject* parent)
    : library_backend(sdk::type::xcloud, state(), parent)
{
}

bool xcloud::library_present()
{
    return state().library.load();
}

bool xcloud::init(const QString& ident, const device& dev)
{
    prototype::init(ident, dev);
    return init_library([this] { return function<init_fn>("XCloudSDK_Init")(init_config) >= 0; });
}

void xcloud::run_stage(int code)
{
    if (code == stage_login) {
        const int id = function<register_fn>("XCloudSDK_RegisterCallback")(&on_library_message, this);
        if (id < 0) {
            fail_stage(stage_login);
            return;
        }
        function<credentials_fn>("XCloudSDK_Device_SetLocalUserNameAndPwd")(m_device.ip.toUtf8().constData(),
            m_device.user.toUtf8().constData(), m_device.password.toUtf8().constData());
        bind_login(id);
        // The library sends no log-in reply worth waiting for.
        QTimer::singleShot(login_settle_ms, this, [this] { next_stage(); });
        return;
    }
    const int id = function<upgrade_fn>("XCloudSDK_Device_UpgradeByFile")(
        m_sdk_id, m_device.ip.toLocal8Bit().constData(), m_firmware_path.toLocal8Bit().constData(), timeout_ms, 0);
    if (id > 0)
        bind_upgrade(id);
    else
        fail_stage(stage_upgrade);
}

} // namespace sdk
