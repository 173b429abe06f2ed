// Device operations: how they are composed on lines and started on workers.
#include "app/core.h"

#include "app/fixed_names.h"

#include <QHostAddress>
#include <QtEndian>

namespace {

template <typename T>
T arg_of(const tasks::task* t, const QString& key, T fallback = T())
{
    if (!t || !t->params().contains(key))
        return fallback;
    return t->params().value(key).value<T>();
}

} // namespace

void core::dt_identify(const QString& ident)
{
    const auto l = m_manager.find(ident);
    if (sdk::prototype* worker = l ? worker_of(*l) : nullptr)
        worker->identify();
    else
        log(source_of(ident), tr("Can't get the device information"), { fixed_names::tags::tasks });
}

void core::dt_await_device(const QString& ident)
{
    const tasks::task* t = running_task(ident);
    const auto address = arg_of<QHostAddress>(t, tasks::args::address);
    const auto seconds = arg_of<float>(t, tasks::args::timeout, 60.0f);
    common_step(ident, tr("Awaiting device..."),
        [&](sdk::prototype* w, tasks::line&) { return w->await_device(address, seconds); }, tr("Device is gone."));
}

void core::dt_change_ip(const QString& ident)
{
    const tasks::task* t = running_task(ident);
    const auto address = arg_of<QHostAddress>(t, tasks::args::address);
    const auto subnet = arg_of<QHostAddress>(t, tasks::args::subnet);
    common_step(
        ident, tr("Changing IP-address..."),
        [&](sdk::prototype* w, tasks::line&) { return w->change_ip(address, subnet); },
        tr("Can't change the IP-address of the device."),
        // The row shows the new address as soon as the worker took the job, before the
        // device confirms it; the worker keeps the old one until its next update.
        [&](bool accepted, tasks::line& l) {
            if (!accepted)
                return;
            auto dev = l.get(tasks::keys::device).value<device>();
            dev.ip = address.toString();
            dev.net.HostIP = address.toIPv4Address();
            if (!subnet.isNull())
                dev.net.Submask = qbswap(subnet.toIPv4Address());
            auto ep = l.get(tasks::keys::endpoint).value<endpoint>();
            ep.host = address.toString();
            l.set(tasks::keys::device, QVariant::fromValue(dev));
            l.set(tasks::keys::endpoint, QVariant::fromValue(ep));
            set_row_address(l.ident());
        });
}

void core::dt_change_port(const QString& ident)
{
    const tasks::task* t = running_task(ident);
    const auto type = arg_of<QString>(t, tasks::args::type);
    const auto value = uint16_t(arg_of<uint>(t, tasks::args::value));
    common_step(ident, tr("Changing port..."),
        [&](sdk::prototype* w, tasks::line&) { return w->change_port(type, value); }, tr("Can't change the port number"));
}

void core::dt_change_subnet(const QString& ident)
{
    const auto subnet = arg_of<QHostAddress>(running_task(ident), tasks::args::subnet);
    common_step(ident, tr("Changing subnet mask..."),
        [&](sdk::prototype* w, tasks::line&) { return w->change_subnet(subnet); }, tr("Can't change the subnet mask"));
}

void core::dt_change_transefer_policy(const QString& ident)
{
    const auto policy = arg_of<QString>(running_task(ident), tasks::args::policy);
    common_step(ident, tr("Changing transfer policy..."),
        [&](sdk::prototype* w, tasks::line&) {
            return w->execute(QStringLiteral("change_transfer_policy"), { policy }, true, true, true, true);
        },
        tr("Can't change the transfer policy"));
}

void core::dt_fix_device(const QString& ident)
{
    const auto force = arg_of<bool>(running_task(ident), tasks::args::force);
    common_step(ident, tr("Fixing..."), [&](sdk::prototype* w, tasks::line&) { return w->fix_device(force); },
        tr("Can't fix the device."));
}

void core::dt_import_configuration(const QString& ident)
{
    const auto file = arg_of<QString>(running_task(ident), tasks::args::file);
    common_step(ident, tr("Configuration import..."),
        [&](sdk::prototype* w, tasks::line&) { return w->import_configuration(file); },
        tr("Can't import device configuration"));
}

void core::dt_reboot(const QString& ident)
{
    common_step(ident, tr("Rebooting..."), [](sdk::prototype* w, tasks::line&) { return w->reboot(); },
        tr("Can't reboot the device."));
}

void core::dt_reset_configuration(const QString& ident)
{
    const tasks::task* t = running_task(ident);
    parameters args;
    if (t && t->params().contains(tasks::args::network_only))
        args.insert(tasks::args::network_only, t->params().value(tasks::args::network_only));
    common_step(ident, tr("Resetting configuration..."),
        [&](sdk::prototype* w, tasks::line&) { return w->reset_configuration(args); },
        tr("Can't reset the device configuration."));
}

void core::dt_set_dhcp(const QString& ident)
{
    const auto enable = arg_of<bool>(running_task(ident), tasks::args::enable);
    common_step(ident, enable ? tr("Enabling DHCP...") : tr("Disabling DHCP..."),
        [&](sdk::prototype* w, tasks::line&) { return w->set_dhcp(enable); },
        enable ? tr("Can't enable DHCP") : tr("Can't disable DHCP"));
}

void core::dt_set_language(const QString& ident)
{
    const auto language = arg_of<QString>(running_task(ident), tasks::args::language);
    common_step(ident, tr("Setting the language..."),
        [&](sdk::prototype* w, tasks::line&) { return w->set_language(language); }, tr("Can't set the language"));
}

void core::add_task_to_selection(const QString& name, const parameters& args, const follow_up& then, bool no_launch)
{
    const QStringList selection = selected_lines();
    for (const QString& ident : selection) {
        tasks::task t(name);
        for (auto it = args.cbegin(); it != args.cend(); ++it)
            t.set(it.key(), it.value());
        m_manager.add_task(ident, t);
        if (then) {
            if (const auto next = then(ident, t))
                m_manager.add_task(ident, *next);
        }
    }
    if (!no_launch) {
        set_running_state(true);
        m_manager.set_launch_list(selection);
        m_manager.launch(false, 0);
        refresh_status_bar();
    }
}

void core::run_on_selection(const QString& name, const parameters& args, const follow_up& then)
{
    add_task_to_selection(name, args, then, !m_options.autorun_tasks);
}

core::follow_up core::chained_reboot()
{
    return [](const QString&, const tasks::task& made) -> std::optional<tasks::task> {
        return tasks::task(tasks::names::reboot, made);
    };
}

void core::assign_addresses(int third_octet, int first_last_octet)
{
    const QStringList selection = selected_lines();
    int last_octet = first_last_octet;
    for (const QString& ident : selection) {
        const auto l = m_manager.find(ident);
        const QString address = QStringLiteral("192.168.%1.%2").arg(third_octet).arg(last_octet++);
        std::optional<tasks::task> identify;
        if (l->get(tasks::keys::device).value<device>().state == device::never_filled) {
            identify.emplace(tasks::names::identify);
            m_manager.add_task(ident, *identify);
        }
        tasks::task change = identify ? tasks::task(tasks::names::change_ip, *identify) : tasks::task(tasks::names::change_ip);
        change.set(tasks::args::address, QVariant::fromValue(QHostAddress(address)));
        if (m_options.check_subnet_on_ip_change)
            change.set(tasks::args::subnet, QVariant::fromValue(m_options.preferred_subnet));
        m_manager.add_task(ident, change);
        tasks::task await(tasks::names::await_device, change);
        await.set(tasks::args::address, QVariant::fromValue(QHostAddress(address)));
        m_manager.add_task(ident, await);
    }
    // One device at a time: an address change is a broadcast and the device must come back first.
    launch(selection, true, false, false, 1u);
}
