#pragma once

#include <QtGlobal>

namespace devsim::ret
{

constexpr int ok = 100;
constexpr int unknown_error = 101;
constexpr int not_supported = 102;
constexpr int illegal_request = 103;
constexpr int not_logged_in = 105;
constexpr int wrong_password = 203;
constexpr int user_locked = 205;
constexpr int upgrade_refused = 512;
constexpr int upgrade_failed = 514;
constexpr int upgrade_written = 515; // the last progress message
constexpr int need_reboot = 603;
constexpr int no_such_config = 607;
constexpr int config_parse_error = 608;

} // namespace devsim::ret
