#pragma once

#include <QHostAddress>
#include <QString>
#include <QStringList>

class QSettings;

// The options of the "Options" menu, kept under Extended/menu_options. Menu entries
// and scripts name them by ident, which differs from the key in the file.
struct menu_options
{
    bool reset_only_network_settings = false;
    bool reboot_after_transfer_policy = false;
    bool reboot_after_language = true;
    bool reboot_after_configuration_import = true;
    bool wait_after_reboot = false;
    QHostAddress preferred_subnet { QStringLiteral("255.255.255.0") };
    bool check_subnet_on_ip_change = true;
    bool register_devices = true;
    bool register_macs = true;
    QStringList log_filter { QStringLiteral("core"), QStringLiteral("tasks") };
    bool autorun_tasks = true;
    // After a flash, the device is asked again which version it runs before the confirmation.
    bool verify_after_flash = false;

    // Starts from the defaults and reads what the file has.
    void load(QSettings& settings);
    void save(QSettings& settings) const;

    // The boolean field of an ident, or null when the ident isn't a boolean option.
    bool* flag(const QString& ident);
    static QStringList idents();
};
