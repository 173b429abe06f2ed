#pragma once

#include <QString>
#include <QStringList>

#include <cstdint>

// Names and values the program holds as constants.
namespace fixed_names {
inline const QString display_name = QStringLiteral("Orvane");
inline const QString organisation_domain = QStringLiteral("kelmar.org");
inline constexpr int version_major = 0;
inline constexpr int version_minor = 5;
inline constexpr int version_build = 1964;
// Linux, as the build repository numbers platforms.
inline constexpr int platform = 1;

inline const QString settings_file = QStringLiteral("ov.config");
inline const QString cache_file = QStringLiteral("cache.ovpack");
inline const QString log_file = QStringLiteral("blackbox.log");
inline const QString default_login = QStringLiteral("admin");
inline constexpr uint16_t default_port = 34567;
inline const QString factory_address = QStringLiteral("192.168.1.10");
inline const QString default_subnet = QStringLiteral("255.255.255.0");

namespace tags {
inline const QString core = QStringLiteral("core");
inline const QString tasks = QStringLiteral("tasks");
inline const QString diagnostics = QStringLiteral("diagnostics");
inline const QString lua = QStringLiteral("lua");
inline const QString plugins = QStringLiteral("plugins");
inline const QString sapi = QStringLiteral("sapi");
inline const QString scripting = QStringLiteral("scripting");
inline const QString ovscript = QStringLiteral("ovscript");
} // namespace tags

namespace sources {
inline const QString core = QStringLiteral("[core]");
inline const QString ovscript = QStringLiteral("[ovscript]");
inline const QString lua = QStringLiteral("[lua]");
inline const QString sapi = QStringLiteral("[sapi]");
} // namespace sources

inline const QString seq_assign_macro = QStringLiteral("__seq_assign_macro");
inline const QString continuous_scan_macro = QStringLiteral("__continuous_scan_macro");
} // namespace fixed_names
