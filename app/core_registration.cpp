// Registration of the devices of the update flow with the service, once each flow has ended.
#include "app/core.h"

#include "app/fixed_names.h"

#include <QCoreApplication>

void core::remember_for_registration(const QString& ident)
{
    const auto l = m_manager.find(ident);
    if (!l)
        return;
    const auto ep = l->get(tasks::keys::endpoint).value<endpoint>();
    m_identified.insert(ident,
        registration_item { source_of(ident), l->get(tasks::keys::serial).toString(),
            l->get(tasks::keys::hardware).toString(), l->get(tasks::keys::version).toString(), ep.host, ep.port });
}

bool core::registration_wanted() const
{
    return m_remote_enabled && (m_options.register_devices || m_options.register_macs);
}

void core::queue_registration(const QString& ident)
{
    const registration_item item = m_identified.take(ident);
    if (item.serial.isEmpty() || !registration_wanted())
        return;
    m_registration_queue << item;
    // Run from the event loop, not inside the manager's signal: each call processes events.
    if (!m_registering) {
        m_registering = true;
        QMetaObject::invokeMethod(this, &core::run_registrations, Qt::QueuedConnection);
    }
}

void core::run_registrations()
{
    while (!m_registration_queue.isEmpty()) {
        const registration_item item = m_registration_queue.takeFirst();
        if (!registration_wanted())
            continue;
        if (m_options.register_devices)
            register_device(item);
        if (m_options.register_macs)
            register_mac(item);
    }
    m_registering = false;
    end_if_idle();
}

void core::register_device(const registration_item& item)
{
    if (m_registration.registered(item.serial))
        return;
    if (m_registration.register_new_device(item.serial, item.hardware, item.version))
        log(item.source, tr("Registered the device %1").arg(item.serial), { fixed_names::tags::tasks });
    else
        log(item.source, tr("Registration error for %1").arg(item.serial), { fixed_names::tags::tasks });
}

void core::register_mac(const registration_item& item)
{
    // The operator's machine as the device sees it.
    const QString ip = resolve_variable(QStringLiteral("env/local_ip/%1").arg(item.host));
    const QString mac = resolve_variable(QStringLiteral("env/local_mac/%1").arg(item.host));
    if (ip.isEmpty() || mac.isEmpty()) {
        log(item.source, tr("Unable get IP- or MAC-address: IP %1, MAC %2.").arg(ip, mac), { fixed_names::tags::tasks });
        return;
    }
    const delivery::register_mac_result r = m_registration.register_cloud_mac(item.serial, item.port, mac, QHostAddress(ip));
    if (r.result)
        log(item.source, tr("MAC-address %1 registered for %2").arg(r.operator_mac, item.serial), { fixed_names::tags::tasks });
    else
        log(item.source, tr("MAC-address registration error for %1").arg(item.serial), { fixed_names::tags::tasks });
}
