#include "app/menu_options.h"

#include <QSettings>

namespace {
const QString group = QStringLiteral("Extended/menu_options");
}

void menu_options::load(QSettings& settings)
{
    *this = menu_options();
    settings.beginGroup(group);
    reset_only_network_settings = settings.value(QStringLiteral("reset_only_network"), reset_only_network_settings).toBool();
    reboot_after_transfer_policy = settings.value(QStringLiteral("reboot_after/transfer_policy"), reboot_after_transfer_policy).toBool();
    reboot_after_language = settings.value(QStringLiteral("reboot_after/language"), reboot_after_language).toBool();
    reboot_after_configuration_import = settings.value(QStringLiteral("reboot_after/config"), reboot_after_configuration_import).toBool();
    wait_after_reboot = settings.value(QStringLiteral("wait_after_reboot"), wait_after_reboot).toBool();
    // A text that isn't an address gives a null address, on purpose.
    preferred_subnet = QHostAddress(settings.value(QStringLiteral("subnet_mask"), preferred_subnet.toString()).toString());
    check_subnet_on_ip_change = settings.value(QStringLiteral("check_mask"), check_subnet_on_ip_change).toBool();
    register_devices = settings.value(QStringLiteral("register_devices"), register_devices).toBool();
    register_macs = settings.value(QStringLiteral("register_macs"), register_macs).toBool();
    log_filter = settings.value(QStringLiteral("log_filter"), log_filter).toStringList();
    autorun_tasks = settings.value(QStringLiteral("autorun_tasks"), autorun_tasks).toBool();
    verify_after_flash = settings.value(QStringLiteral("verify_after_flash"), verify_after_flash).toBool();
    settings.endGroup();
}

void menu_options::save(QSettings& settings) const
{
    settings.beginGroup(group);
    settings.setValue(QStringLiteral("reset_only_network"), reset_only_network_settings);
    settings.setValue(QStringLiteral("reboot_after/transfer_policy"), reboot_after_transfer_policy);
    settings.setValue(QStringLiteral("reboot_after/language"), reboot_after_language);
    settings.setValue(QStringLiteral("reboot_after/config"), reboot_after_configuration_import);
    settings.setValue(QStringLiteral("wait_after_reboot"), wait_after_reboot);
    settings.setValue(QStringLiteral("subnet_mask"), preferred_subnet.toString());
    settings.setValue(QStringLiteral("check_mask"), check_subnet_on_ip_change);
    settings.setValue(QStringLiteral("register_devices"), register_devices);
    settings.setValue(QStringLiteral("register_macs"), register_macs);
    settings.setValue(QStringLiteral("log_filter"), log_filter);
    settings.setValue(QStringLiteral("autorun_tasks"), autorun_tasks);
    settings.setValue(QStringLiteral("verify_after_flash"), verify_after_flash);
    settings.endGroup();
}

bool* menu_options::flag(const QString& ident)
{
    if (ident == QLatin1String("reset_only_network_settings")) return &reset_only_network_settings;
    if (ident == QLatin1String("reboot_after_transfer_policy")) return &reboot_after_transfer_policy;
    if (ident == QLatin1String("reboot_after_language")) return &reboot_after_language;
    if (ident == QLatin1String("reboot_after_configuration_import")) return &reboot_after_configuration_import;
    if (ident == QLatin1String("wait_after_reboot")) return &wait_after_reboot;
    if (ident == QLatin1String("check_subnet_on_ip_change")) return &check_subnet_on_ip_change;
    if (ident == QLatin1String("register_devices")) return &register_devices;
    if (ident == QLatin1String("register_macs")) return &register_macs;
    if (ident == QLatin1String("autorun_tasks")) return &autorun_tasks;
    if (ident == QLatin1String("verify_after_flash")) return &verify_after_flash;
    return nullptr;
}

QStringList menu_options::idents()
{
    return { QStringLiteral("reset_only_network_settings"), QStringLiteral("reboot_after_transfer_policy"),
        QStringLiteral("reboot_after_language"), QStringLiteral("reboot_after_configuration_import"),
        QStringLiteral("wait_after_reboot"), QStringLiteral("preferred_subnet"),
        QStringLiteral("check_subnet_on_ip_change"), QStringLiteral("register_devices"),
        QStringLiteral("register_macs"), QStringLiteral("log_filter"), QStringLiteral("autorun_tasks"),
        QStringLiteral("verify_after_flash") };
}
