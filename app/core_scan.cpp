// Discovery: starting a scan and turning what it finds into rows.
#include "app/core.h"

#include "app/fixed_names.h"
#include "ui/main_model.h"

#include <cstring>

bool core::scan(std::optional<quint64> count)
{
    if (m_manager.running_count() > 0) {
        warn(tr("The queue is busy"), tr("Unable to run scan while the queue is active. Wait for the queue to finish and try again."));
        return false;
    }
    // A run counts until its end has been handled here, so the rows of one scan never
    // meet the clearing of the next.
    if (m_scanner.is_running() || !m_scan_finished) {
        warn(tr("Already launched"), tr("Wait for the scan to finish or cancel it."));
        return false;
    }
    clear_list();
    m_scan_finished = false;
    if (count) {
        m_scanner.start_for_count(*count);
        show_status_message(tr("Searching for %1 devices...").arg(*count));
    } else {
        m_scanner.start_single_pass();
        show_status_message(tr("Searching for devices..."));
    }
    return true;
}

void core::on_window_scan()
{
    scan();
}

void core::on_window_clear_list()
{
    clear_list();
}

void core::clear_list()
{
    if (m_manager.running_count() > 0)
        return;
    for (const QString& ident : m_manager.lines()) {
        if (auto l = m_manager.find(ident))
            retire_worker(*l);
        m_manager.remove_line(ident);
    }
    if (m_model)
        m_model->clear();
}

task_element core::element_of(const device& dev)
{
    endpoint ep;
    ep.host = dev.ip;
    ep.port = dev.port;
    ep.user = dev.user;
    ep.password = dev.password;
    ep.mac = dev.address.text();
    return task_element(ep, dev);
}

void core::on_scanner_device_found(const mac& address, const device& dev)
{
    Q_UNUSED(address)
    if (m_scanner.is_autostop())
        introduce(element_of(dev));
}

void core::on_scanner_device_lost(const mac& address)
{
    for (const QString& ident : m_manager.lines()) {
        const auto l = m_manager.find(ident);
        if (l && l->get(tasks::keys::device).value<device>().address == address) {
            on_window_delete_element(ident);
            return;
        }
    }
}

void core::on_scanner_done(bool interrupted)
{
    // The thread emits done as its last act; once it has returned, a handler of the
    // events below may start the next scan.
    m_scanner.wait();
    if (!m_scanner.is_autostop()) {
        const QMap<mac, device> found = m_scanner.devices();
        for (const device& dev : found)
            introduce(element_of(dev));
        log(fixed_names::sources::core, tr("Found %n devices:", nullptr, found.size()));
        for (const device& dev : found) {
            const QString name = QString::fromUtf8(dev.net.HostName, int(strnlen(dev.net.HostName, sizeof dev.net.HostName)));
            log(fixed_names::sources::core, tr("* Device %1: %2").arg(dev.address.text(), name));
        }
        show_status_message(tr("Imported %n found devices", nullptr, found.size()));
    }
    m_scan_finished = true;
    raise_event(QStringLiteral("scanner_done"));
    raise_event(QStringLiteral("scanner_done"), { interrupted ? QStringLiteral("manual") : QStringLiteral("autostop") });
}

void core::raise_event(const QString& name, const QStringList& args)
{
    emit event_raised(name, args);
    event::listener::raise_event(name, args);
}
