#include "app/options_menu.h"

#include "app/fixed_names.h"
#include "app/menu_options.h"

#include <QAction>
#include <QActionGroup>
#include <QMenu>
#include <QSettings>

namespace dynmenu
{

namespace
{

    enum ident {
        main_section,
        reset_only_network,
        reboot_after,
        reboot_transfer_policy,
        reboot_language,
        reboot_config,
        wait_after_reboot,
        subnet_mask,
        mask_24,
        mask_16,
        check_mask,
        register_devices,
        register_macs,
        log_filter,
        tasks_section,
        autorun_tasks,
        verify_after_flash,
        first_filter // one item per log tag from here on
    };

    const QString mask_24_text = QStringLiteral("255.255.255.0");
    const QString mask_16_text = QStringLiteral("255.255.0.0");

} // namespace

QAction* options_menu::add_option(int ident, const QString& option, const QVariantList& value, int parent)
{
    QAction* a = add_item(ident, scripting::commands::null_command, QVariantList { option } + value, parent);
    a->setCheckable(true);
    return a;
}

QAction* options_menu::add_section(int ident)
{
    QAction* a = m_target->addSection(QString());
    m_entries.insert(ident, entry { separator, scripting::commands::null_command, {}, -1, a, nullptr });
    return a;
}

void options_menu::build()
{
    add_section(main_section);
    add_option(reset_only_network, QStringLiteral("reset_only_network_settings"));
    add_submenu(reboot_after);
    add_option(reboot_transfer_policy, QStringLiteral("reboot_after_transfer_policy"), {}, reboot_after);
    add_option(reboot_language, QStringLiteral("reboot_after_language"), {}, reboot_after);
    add_option(reboot_config, QStringLiteral("reboot_after_configuration_import"), {}, reboot_after);
    add_option(wait_after_reboot, QStringLiteral("wait_after_reboot"));
    add_submenu(subnet_mask);
    auto* masks = new QActionGroup(this);
    // The core takes a prefix length for the mask.
    masks->addAction(add_option(mask_24, QStringLiteral("preferred_subnet"), { 24 }, subnet_mask));
    masks->addAction(add_option(mask_16, QStringLiteral("preferred_subnet"), { 16 }, subnet_mask));
    add_option(check_mask, QStringLiteral("check_subnet_on_ip_change"));
    add_option(register_devices, QStringLiteral("register_devices"));
    add_option(register_macs, QStringLiteral("register_macs"));
    add_submenu(log_filter);
    m_filter_tags = QStringList { fixed_names::tags::core, fixed_names::tags::tasks, fixed_names::tags::diagnostics,
        fixed_names::tags::lua, fixed_names::tags::plugins, fixed_names::tags::sapi, fixed_names::tags::scripting,
        fixed_names::tags::ovscript };
    for (int i = 0; i < m_filter_tags.size(); ++i)
        add_option(first_filter + i, QStringLiteral("log_filter"), { m_filter_tags.at(i) }, log_filter);
    add_section(tasks_section);
    add_option(autorun_tasks, QStringLiteral("autorun_tasks"));
    add_option(verify_after_flash, QStringLiteral("verify_after_flash"));
    retranslate();
}

void options_menu::retranslate()
{
    set_text(main_section, tr("Main"));
    set_text(reset_only_network, tr("Reset only network settings"));
    set_text(reboot_after, tr("Reboot after:"));
    set_text(reboot_transfer_policy, tr("Transfer policy changed"));
    set_text(reboot_language, tr("Language changed"));
    set_text(reboot_config, tr("Configuration import"));
    set_text(wait_after_reboot, tr("Wait for device after reboot"));
    set_text(subnet_mask, tr("Preferred subnet mask:"));
    set_text(mask_24, mask_24_text);
    set_text(mask_16, mask_16_text);
    set_text(check_mask, tr("Check after changing IP-address"));
    set_text(register_devices, tr("Register devices"));
    set_text(register_macs, tr("Register MAC-addresses"));
    set_text(log_filter, tr("Log filtering:"));
    for (int i = 0; i < m_filter_tags.size(); ++i)
        set_text(first_filter + i, m_filter_tags.at(i));
    set_text(tasks_section, tr("Tasks"));
    set_text(autorun_tasks, tr("Autorun tasks"));
    set_text(verify_after_flash, tr("Check the version after flashing"));
}

void options_menu::load(QSettings& settings)
{
    menu_options options;
    options.load(settings);
    show_options(options);
}

void options_menu::show_options(const menu_options& o)
{
    const auto show = [this](int ident, bool on) {
        if (QAction* a = action(ident))
            a->setChecked(on);
    };
    show(reset_only_network, o.reset_only_network_settings);
    show(reboot_transfer_policy, o.reboot_after_transfer_policy);
    show(reboot_language, o.reboot_after_language);
    show(reboot_config, o.reboot_after_configuration_import);
    show(wait_after_reboot, o.wait_after_reboot);
    // Another stored mask shows neither choice.
    show(mask_24, o.preferred_subnet == QHostAddress(mask_24_text));
    show(mask_16, o.preferred_subnet == QHostAddress(mask_16_text));
    show(check_mask, o.check_subnet_on_ip_change);
    show(register_devices, o.register_devices);
    show(register_macs, o.register_macs);
    for (int i = 0; i < m_filter_tags.size(); ++i)
        show(first_filter + i, o.log_filter.contains(m_filter_tags.at(i)));
    show(autorun_tasks, o.autorun_tasks);
    show(verify_after_flash, o.verify_after_flash);
}

bool options_menu::checked(int ident) const
{
    const QAction* a = action(ident);
    return a && a->isChecked();
}

void options_menu::save(QSettings& settings) const
{
    // Tags the menu doesn't offer stay as stored.
    menu_options o;
    o.load(settings);
    o.reset_only_network_settings = checked(reset_only_network);
    o.reboot_after_transfer_policy = checked(reboot_transfer_policy);
    o.reboot_after_language = checked(reboot_language);
    o.reboot_after_configuration_import = checked(reboot_config);
    o.wait_after_reboot = checked(wait_after_reboot);
    if (checked(mask_24) || checked(mask_16))
        o.preferred_subnet = QHostAddress(checked(mask_16) ? mask_16_text : mask_24_text);
    o.check_subnet_on_ip_change = checked(check_mask);
    o.register_devices = checked(register_devices);
    o.register_macs = checked(register_macs);
    for (int i = 0; i < m_filter_tags.size(); ++i) {
        const QString& tag = m_filter_tags.at(i);
        o.log_filter.removeAll(tag);
        if (checked(first_filter + i))
            o.log_filter << tag;
    }
    o.autorun_tasks = checked(autorun_tasks);
    o.verify_after_flash = checked(verify_after_flash);
    o.save(settings);
}

} // namespace dynmenu
