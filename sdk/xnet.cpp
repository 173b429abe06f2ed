#include "sdk/xnet.h"

#include <cstddef>
#include <cstring>

namespace sdk {

namespace {

using message_fn = int (*)(int id, int message, int p1, int p2, int p3);

struct init_record
{
    void* reserved0;
    message_fn callback;
    void* reserved1;
};
static_assert(sizeof(init_record) == 3 * sizeof(void*), "three pointer-sized members");

struct login_record
{
    char host[128];
    uint16_t port;
    uint16_t reserved0;
    char user[64];
    char password[64];
    uint32_t reserved1;
};
static_assert(sizeof(login_record) == 264, "the library's log-in record");
static_assert(offsetof(login_record, port) == 128 && offsetof(login_record, user) == 132
        && offsetof(login_record, password) == 196 && offsetof(login_record, reserved1) == 260,
    "the library's field offsets");

using init_fn = int (*)(const init_record* record);
using login_fn = int (*)(const login_record* record, int timeout_ms, int flags);
using upgrade_fn = int (*)(int handle, const char* path, int flags, int timeout_ms);

constexpr int timeout_ms = 15000;

// Never destroyed: the library's threads may still call back while the process exits.
library_backend::process_state& state()
{
    static auto* instance = new library_backend::process_state(
        QStringLiteral("XNetSDK"), { "XSDK_Init", "XSDK_DevLogin", "XSDK_DevUpgrade" });
    return *instance;
}

int on_library_message(int id, int message, int p1, int p2, int p3)
{
    return state().registry.dispatch(id, message, p1, p2, p3);
}

// Read by the library at XSDK_Init; it may keep the pointer.
const init_record g_init_record { nullptr, &on_library_message, nullptr };

// Into a zero-filled field, keeping its terminator; a longer text is cut.
template <size_t size> void copy_text(char (&field)[size], const QByteArray& text)
{
    std::strncpy(field, text.constData(), size - 1);
}

} // namespace

xnet::xnet(QObject* parent)
    : library_backend(sdk::type::xnet, state(), parent)
{
}

bool xnet::library_present()
{
    return state().library.load();
}

bool xnet::init(const QString& ident, const device& dev)
{
    prototype::init(ident, dev);
    return init_library([this] { return function<init_fn>("XSDK_Init")(&g_init_record) == 0; });
}

void xnet::run_stage(int code)
{
    if (code == stage_login) {
        login_record record {};
        copy_text(record.host, m_device.ip.toUtf8());
        record.port = m_device.port;
        copy_text(record.user, m_device.user.toUtf8());
        copy_text(record.password, m_device.password.toUtf8());
        const int handle = function<login_fn>("XSDK_DevLogin")(&record, timeout_ms, 0);
        if (handle < 1) {
            fail_stage(stage_login);
            return;
        }
        // The upgrade waits for the library's word that the log-in is done.
        bind_login(handle);
        return;
    }
    const int id = function<upgrade_fn>("XSDK_DevUpgrade")(
        m_sdk_id, m_firmware_path.toLocal8Bit().constData(), 0, timeout_ms);
    if (id > 0)
        bind_upgrade(id);
    else
        fail_stage(stage_upgrade);
}

} // namespace sdk
