#pragma once

#include <QByteArray>

#include <cstdint>

namespace netip {

// Message codes the client sends; each reply comes under the request code plus one.
enum message_code : uint16_t {
    msg_login = 1000,
    msg_system_info = 1020,
    msg_config_set = 1040,
    msg_config_get = 1042,
    msg_system_manager = 1450,
    msg_upgrade = 1520,
    msg_upgrade_data = 1522,
    msg_upgrade_data_reply = 1523,
    msg_upgrade_progress = 1524,
    msg_discovery = 1530,
    msg_config_import = 1540,
};

// Values of "Ret" the client acts on.
enum return_code : uint16_t {
    ret_ok = 100,
    ret_incorrect_password = 203,
    ret_user_locked = 205,
    ret_upgrade_written = 515,
    ret_need_reboot = 603,
    ret_missing = 65534, // no JSON object, or no "Ret" in it
};

// Log texts of the two code tables; unknown codes read "-unknown[<code>]-".
// The message labels stand one step below the login codes on purpose: the log has always printed them so.
QByteArray describe_message(uint16_t code);
QByteArray describe_return_code(uint16_t code);

} // namespace netip
