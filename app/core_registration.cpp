// Registration of the devices of the update flow with the service, once each flow has ended.
#include "app/core.h"

#include "app/fixed_names.h"

namespace {

// A fleet's flows end within moments of each other; one call after another, each a round
// trip with its own connection, kept the run going for a minute after the last upload.
constexpr int registrations_at_once = 32;

} // namespace

void core::remember_for_registration(const QString& ident)
{
    const auto l = m_manager.find(ident);
    if (!l)
        return;
    const auto ep = l->get(tasks::keys::endpoint).value<endpoint>();
    registration_item item;
    item.source = source_of(ident);
    item.serial = l->get(tasks::keys::serial).toString();
    item.hardware = l->get(tasks::keys::hardware).toString();
    item.version = l->get(tasks::keys::version).toString();
    item.host = ep.host;
    item.port = ep.port;
    m_identified.insert(ident, item);
}

bool core::registration_wanted() const
{
    return m_remote_enabled && (m_options.register_devices || m_options.register_macs);
}

void core::queue_registration(const QString& ident)
{
    registration_item item = m_identified.take(ident);
    if (item.serial.isEmpty() || !registration_wanted())
        return;
    item.device = m_options.register_devices;
    item.mac = m_options.register_macs;
    m_registration_queue << item;
    run_registrations();
}

bool core::registrations_pending() const
{
    return !m_registration_queue.isEmpty() || !m_serials_registering.isEmpty();
}

void core::run_registrations()
{
    m_registration_threads.setMaxThreadCount(registrations_at_once);
    for (auto it = m_registration_queue.begin();
         it != m_registration_queue.end() && m_serials_registering.size() < registrations_at_once;) {
        if (m_serials_registering.contains(it->serial)) {
            ++it;
            continue;
        }
        const registration_item item = *it;
        it = m_registration_queue.erase(it);
        m_serials_registering.insert(item.serial);
        m_registration_threads.start([this, item] {
            if (item.device)
                register_device(item);
            if (item.mac)
                register_mac(item);
            QMetaObject::invokeMethod(
                this, [this, serial = item.serial] { registration_finished(serial); }, Qt::QueuedConnection);
        });
    }
}

void core::registration_finished(const QString& serial)
{
    m_serials_registering.remove(serial);
    // The service was switched off meanwhile: what still waits goes unsent.
    if (!registration_wanted())
        m_registration_queue.clear();
    run_registrations();
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
    const auto [ip, mac] = facing_address(item.host);
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
