#include "app/actions_menu.h"

#include <QMenu>

namespace dynmenu
{

void actions_menu::build()
{
    using c = scripting::commands;
    add_item(16, c::scan_devices);
    add_item(0, c::add_device);
    add_item(4, c::assign_addresses, { QStringLiteral("seq") });
    add_item(19, c::reset_device_configuration);
    add_separator(20);
    add_item(12, c::clear_devices);
    add_separator(21);
    add_submenu(1);
    add_item(2, c::assign_addresses, { QStringLiteral("192.168.1.9") }, 1);
    add_item(3, c::assign_addresses, { QStringLiteral("192.168.1.10") }, 1);
    add_submenu(10);
    add_item(11, c::change_transfer_policy, { QStringLiteral("quality") }, 10);
    add_submenu(23);
    add_item(25, c::set_language, { QStringLiteral("ru/RU") }, 23);
    add_item(24, c::set_language, { QStringLiteral("en/US") }, 23);
    add_item(26, c::change_subnet);
    add_submenu(5);
    add_item(7, c::change_port, { QStringLiteral("NETIP TCP") }, 5);
    add_item(8, c::change_port, { QStringLiteral("NETIP UDP") }, 5);
    add_item(9, c::change_port, { QStringLiteral("SSL") }, 5);
    add_item(6, c::change_port, { QStringLiteral("HTTP") }, 5);
    add_submenu(13);
    add_item(15, c::set_dhcp, { true }, 13);
    add_item(14, c::set_dhcp, { false }, 13);
    add_item(18, c::reboot_device);
    add_separator(22);
    add_item(17, c::import_configuration);
    retranslate();
}

void actions_menu::retranslate()
{
    set_text(16, tr("Find devices"));
    set_text(0, tr("Add device..."));
    set_text(4, tr("Assign addresses"));
    set_text(19, tr("Reset configuration"));
    set_text(12, tr("Clear"));
    set_text(1, tr("Assign addresses:"));
    // Addresses read the same in every language.
    set_text(2, QStringLiteral("192.168.1.9"));
    set_text(3, QStringLiteral("192.168.1.10"));
    set_text(10, tr("Set transfer policy"));
    set_text(11, tr("Quality"));
    set_text(23, tr("Set language to:"));
    set_text(25, tr("1. Russian"));
    set_text(24, tr("2. English"));
    set_text(26, tr("Set subnet mask"));
    set_text(5, tr("Change port"));
    set_text(7, tr("NETIP TCP port"));
    set_text(8, tr("NETIP UDP port"));
    set_text(9, tr("SSL port"));
    set_text(6, tr("HTTP port"));
    set_text(13, tr("DHCP management"));
    set_text(15, tr("Enable"));
    set_text(14, tr("Disable"));
    set_text(18, tr("Reboot"));
    set_text(17, tr("Import configuration..."));
}

} // namespace dynmenu
