#pragma once

#include <QHostAddress>
#include <QMap>
#include <QMetaType>
#include <QString>
#include <QVariant>

// The bag of values between steps and across threads.
using parameters = QMap<QString, QVariant>;
// The named parameters of a script command.
using param_list = QMap<QString, QString>;

Q_DECLARE_METATYPE(QHostAddress)

namespace tasks {

// Keys of a line's parameters.
namespace keys {
inline const QString selected = QStringLiteral("selected");
inline const QString endpoint = QStringLiteral("endpoint");
inline const QString ident = QStringLiteral("ident");
inline const QString device = QStringLiteral("device");
inline const QString sdk_instance = QStringLiteral("sdk_instance");
inline const QString sdk_in_use = QStringLiteral("sdk_in_use");
inline const QString serial = QStringLiteral("serial");
inline const QString hardware = QStringLiteral("hardware");
inline const QString version = QStringLiteral("version");
inline const QString build = QStringLiteral("build");
inline const QString new_version = QStringLiteral("new_version");
inline const QString pack_firmware = QStringLiteral("pack_firmware");
inline const QString result = QStringLiteral("result");
inline const QString iface = QStringLiteral("iface");
inline const QString tmp_file = QStringLiteral("tmp_file");
inline const QString tmp_file_size = QStringLiteral("tmp_file_size");
// What the handover report and the run summary read of a line's last flow.
inline const QString version_before = QStringLiteral("version_before");
inline const QString flow_started = QStringLiteral("flow_started");
inline const QString flow_ended = QStringLiteral("flow_ended");
inline const QString outcome = QStringLiteral("outcome");
inline const QString up_to_date = QStringLiteral("up_to_date");
} // namespace keys

// Task names, and the names of their arguments.
namespace names {
inline const QString identify = QStringLiteral("identify");
inline const QString check_updates = QStringLiteral("check_updates");
inline const QString get_firmware = QStringLiteral("get_firmware");
inline const QString flash = QStringLiteral("flash");
inline const QString confirm = QStringLiteral("confirm");
inline const QString apply_pack_firmware = QStringLiteral("apply_pack_firmware");
inline const QString await_device = QStringLiteral("await_device");
inline const QString change_ip = QStringLiteral("change_ip");
inline const QString change_port = QStringLiteral("change_port");
inline const QString change_subnet = QStringLiteral("change_subnet");
inline const QString change_transfer_policy = QStringLiteral("change_transfer_policy");
inline const QString dhcp = QStringLiteral("dhcp");
inline const QString fix = QStringLiteral("fix");
inline const QString import_configuration = QStringLiteral("import_configuration");
inline const QString reboot = QStringLiteral("reboot");
inline const QString reset_configuration = QStringLiteral("reset_configuration");
inline const QString set_language = QStringLiteral("set_language");
inline const QString verify_flash = QStringLiteral("verify_flash");
} // namespace names

namespace args {
inline const QString force_update = QStringLiteral("force_update");
inline const QString upgrade_stage = QStringLiteral("upgrade_stage");
inline const QString address = QStringLiteral("address");
inline const QString timeout = QStringLiteral("timeout");
inline const QString subnet = QStringLiteral("subnet");
inline const QString type = QStringLiteral("type");
inline const QString value = QStringLiteral("value");
inline const QString policy = QStringLiteral("policy");
inline const QString enable = QStringLiteral("enable");
inline const QString force = QStringLiteral("force");
inline const QString file = QStringLiteral("file");
inline const QString network_only = QStringLiteral("network_only");
inline const QString language = QStringLiteral("language");
} // namespace args

} // namespace tasks
