// The Actions menu: each entry composes its operation on the selected rows.
#include "app/core.h"
#include "app/fixed_names.h"
#include "scripting/sapi.h"
#include "tasks/file_filters.h"
#include "ui/main_window.h"
#include "ui/port_setup.h"

#include <QFileDialog>

namespace
{

struct port_kind {
    QString entry;
    QString type;
    quint16 default_port;
};

const QList<port_kind>& port_kinds()
{
    static const QList<port_kind> kinds {
        { QStringLiteral("NETIP TCP"), QStringLiteral("netip_tcp"), 34567 },
        { QStringLiteral("NETIP UDP"), QStringLiteral("netip_udp"), 34568 },
        { QStringLiteral("SSL"), QStringLiteral("ssl"), 8443 },
        { QStringLiteral("HTTP"), QStringLiteral("http"), 80 },
    };
    return kinds;
}

} // namespace

void core::on_window_action_menu_executed(scripting::commands cmd, const QVariantList& args)
{
    using c = scripting::commands;
    const auto reboot_if = [](bool wanted) { return wanted ? chained_reboot() : follow_up(); };
    // The entry's argument as the task's one parameter; an entry without one does nothing.
    const auto with_argument = [&](const QString& task, const QString& key, bool reboot_after) {
        if (!args.isEmpty())
            run_on_selection(task, { { key, args.constFirst() } }, reboot_if(reboot_after));
    };
    switch (cmd) {
    case c::add_device:
        on_window_add_element();
        return;
    case c::assign_addresses: {
        if (args.isEmpty())
            return;
        const QString target = args.constFirst().toString();
        if (target == QLatin1String("seq")) {
            play_menu_macro(fixed_names::seq_assign_macro,
                tr("Variable %1, containing name of the address assignment macro, required"));
            return;
        }
        parameters p { { tasks::args::address, QVariant::fromValue(QHostAddress(target)) } };
        if (m_options.check_subnet_on_ip_change)
            p.insert(tasks::args::subnet, QVariant::fromValue(m_options.preferred_subnet));
        run_on_selection(tasks::names::change_ip, p);
        return;
    }
    case c::change_port:
        if (!args.isEmpty())
            change_port_of_selection(args.constFirst().toString());
        return;
    case c::change_transfer_policy:
        with_argument(
            tasks::names::change_transfer_policy, tasks::args::policy, m_options.reboot_after_transfer_policy);
        return;
    case c::clear_devices:
        m_sapi->sapi_devices_clear();
        return;
    case c::import_configuration: {
        const QString file = QFileDialog::getOpenFileName(m_window.get(), tr("Select configuration file"), QString(),
            tasks::file_filters({ tasks::file_kind::configuration }));
        if (!file.isEmpty())
            run_on_selection(tasks::names::import_configuration, { { tasks::args::file, file } },
                reboot_if(m_options.reboot_after_configuration_import));
        return;
    }
    case c::reboot_device:
        run_on_selection(tasks::names::reboot, {});
        return;
    case c::reset_device_configuration:
        run_on_selection(tasks::names::reset_configuration,
            { { tasks::args::network_only, m_options.reset_only_network_settings } });
        return;
    case c::scan_devices:
        play_menu_macro(fixed_names::continuous_scan_macro,
            tr("Variable %1, containing name of the continuous scan macro, requied"));
        return;
    case c::set_language:
        with_argument(tasks::names::set_language, tasks::args::language, m_options.reboot_after_language);
        return;
    case c::set_dhcp:
        with_argument(tasks::names::dhcp, tasks::args::enable, false);
        return;
    case c::change_subnet:
        run_on_selection(
            tasks::names::change_subnet, { { tasks::args::subnet, QVariant::fromValue(m_options.preferred_subnet) } });
        return;
    default:
        log(fixed_names::sources::core, tr("Unknown action menu ident: %1").arg(qint64(cmd)));
        return;
    }
}

void core::change_port_of_selection(const QString& entry)
{
    const auto kind = std::find_if(
        port_kinds().cbegin(), port_kinds().cend(), [&entry](const port_kind& k) { return k.entry == entry; });
    if (kind == port_kinds().cend()) {
        log(fixed_names::sources::core, tr("Unknown port type: %1").arg(entry));
        return;
    }
    if (!m_port_setup)
        return;
    if (m_port_setup->ask(tr("Specify port value for %1").arg(entry), kind->default_port, kind->default_port, true)
        != QDialog::Accepted)
        return;
    const int chosen = m_port_setup->port();
    const uint value = chosen == 0 ? kind->default_port : uint(chosen);
    // A port asked for is meant now, whatever autorun_tasks says.
    add_task_to_selection(
        tasks::names::change_port, { { tasks::args::type, kind->type }, { tasks::args::value, value } }, {}, false);
}

void core::play_menu_macro(const QString& variable, const QString& missing_text)
{
    const QString name = m_processor->variable(variable).value;
    if (name.isEmpty()) {
        const QString text = missing_text.arg(variable);
        if (console())
            m_sapi->sapi_error(text, false);
        else
            log(fixed_names::sources::core, text);
        return;
    }
    m_processor->recorder().play(name);
}
