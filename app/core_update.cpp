// The update flow: ask the service, fetch each firmware once, flash it, confirm.
#include "app/core.h"

#include "app/fixed_names.h"
#include "sdk/exceptions.h"

#include <QCryptographicHash>

namespace {

struct verdict
{
    QString log_word;
    QString status;
    bool ok;
};

verdict verdict_of(const QString& resp)
{
    if (resp == QLatin1String("no_binding"))
        return { QStringLiteral("firmwares not assigned"), core::tr("Firmwares not assigned"), true };
    if (resp == QLatin1String("updated"))
        return { QStringLiteral("updates not found"), core::tr("Updates not found"), true };
    if (resp == QLatin1String("denied"))
        return { QStringLiteral("denied in service"), core::tr("Denied in service"), false };
    return { QStringLiteral("E:%1").arg(resp), QStringLiteral("E:%1").arg(resp), true };
}

QString offer_type_word(int type)
{
    switch (type) {
    case 1: return QStringLiteral("IPC");
    case 2: return QStringLiteral("DVR");
    default: return QStringLiteral("Unknown device type");
    }
}

} // namespace

void core::dt_check_updates(const QString& ident)
{
    const auto l = m_manager.find(ident);
    if (!l)
        return;
    set_status(ident, tr("Checking updates..."), status_progress);
    remember_for_registration(ident);
    const tasks::task* t = running_task(ident);
    const auto ep = l->get(tasks::keys::endpoint).value<endpoint>();
    client::device_query query;
    query.type = uint32_t(l->params().contains(tasks::keys::sdk_in_use) ? l->get(tasks::keys::sdk_in_use).toInt() : 1);
    query.hardware = l->get(tasks::keys::hardware).toString();
    query.version = l->get(tasks::keys::version).toString();
    query.build_date = l->get(tasks::keys::build).toString();
    query.mac = ep.mac;
    query.address = ep.host;
    query.port = ep.port;
    query.flags = (t && t->params().value(tasks::args::force_update).toBool()) ? 1 : 0;
    const QString serial = l->get(tasks::keys::serial).toString();
    if (!m_client.check_update(serial, query))
        log(fixed_names::sources::core, tr("Can't check updates for the \"%1\"").arg(serial));
}

void core::on_client_update_found(const QString& serial, const client::update_resp& resp)
{
    const QString ident = line_by_serial(serial);
    const auto l = m_manager.find(ident);
    if (!l)
        return;
    if (resp.resp == QLatin1String("pending")) {
        const client::update_resp::offer first = resp.firmware.value(0);
        log(fixed_names::sources::core,
            tr("Found updated version for %1 (%2, %3 functionality)").arg(serial, offer_type_word(first.type), first.sdk_type));
        l->set(tasks::keys::result, QVariant::fromValue(tasks::common_data { tr("Update available"), true }));
        l->set(tasks::keys::new_version, QVariant::fromValue(resp.firmware));
        m_manager.task_finished(ident);
        return;
    }
    const verdict v = verdict_of(resp.resp);
    log(fixed_names::sources::core, tr("No updates for the %1: %2").arg(serial, v.log_word));
    l->set(tasks::keys::result, QVariant::fromValue(tasks::common_data { v.status, v.ok }));
    // Nothing to flash.
    if (l->dependents_count() > 0)
        cancel(ident);
    m_manager.task_finished(ident);
}

void core::dt_update(const QString& ident)
{
    const auto l = m_manager.find(ident);
    if (!l)
        return;
    set_status(ident, tr("Downloading update..."), status_progress);
    const QString serial = l->get(tasks::keys::serial).toString();
    const QString firmware = l->get(tasks::keys::new_version).value<client::update_resp::firmware_list>().value(0).firmware;

    const QByteArray cached = cached_firmware(firmware);
    if (!cached.isEmpty()) {
        apply_firmware(ident, cached);
        return;
    }
    if (m_requested_versions.contains(firmware))
        return; // a request is under way; its arrival will find this line
    if (!m_client.request_file(serial, firmware)) {
        log(source_of(ident), tr("Can't retrieve file for the requested version"), { fixed_names::tags::tasks });
        return;
    }
    // Offline answers arrive inside the call and have already served this line.
    if (!m_client.offline())
        m_requested_versions << firmware;
}

void core::on_client_file_received(const QString& version, const QByteArray& data)
{
    log(fixed_names::sources::core, tr("Got data for requested version"));
    // Cached before delivery, so that a line reaching flash later finds it there.
    cache_firmware(version, data);
    m_requested_versions.removeAll(version);
    for (const QString& ident : m_manager.lines()) {
        const auto l = m_manager.find(ident);
        if (!l)
            continue;
        const auto offers = l->get(tasks::keys::new_version).value<client::update_resp::firmware_list>();
        const bool wanted = std::any_of(offers.cbegin(), offers.cend(), [&](const auto& o) { return o.firmware == version; });
        if (wanted)
            apply_firmware(ident, data);
    }
}

void core::apply_firmware(const QString& ident, const QByteArray& data)
{
    const auto l = m_manager.find(ident);
    if (!l)
        return;
    const QString wanted_text = l->get(tasks::keys::new_version).value<client::update_resp::firmware_list>().value(0).sdk_type;
    const sdk::type wanted = sdk::type_from_text(wanted_text, sdk::type::legacy);
    log(source_of(ident), tr("Now using %1 functionality").arg(sdk::type_text(int(wanted))), { fixed_names::tags::tasks });

    const int previous = l->get(tasks::keys::sdk_in_use).toInt();
    if (!ensure_worker(*l, int(wanted))) {
        end_step_with_error(ident, tr("SDK init failed"), tr("System error"));
        return;
    }
    if (previous != int(wanted))
        log(source_of(ident),
            tr("Now changing used functionality from %1 to %2").arg(sdk::type_text(previous), sdk::type_text(int(wanted))),
            { fixed_names::tags::tasks });

    sdk::prototype* worker = worker_of(*l);
    if (worker->needs_temporary_file()) {
        try {
            if (!worker->write_temporary_file(data, true)) {
                end_step_with_error(ident, tr("File I/O failed"), tr("Input-output error"));
                return;
            }
        } catch (const sdk::tmp_file_exception&) {
            end_step_with_error(ident, tr("Temporary file data mismatch"), tr("Input-output error"));
            return;
        }
    }
    switch (wanted) {
    case sdk::type::legacy:
        worker->upgrade_firmware(data);
        break;
    case sdk::type::xcloud:
    case sdk::type::xnet:
        worker->upgrade_firmware_file(QString());
        break;
    default:
        log(fixed_names::sources::core, tr("Unknown SDK type: \"%1\"").arg(sdk::type_text(int(wanted))));
        break;
    }
}

void core::end_step_with_error(const QString& ident, const QString& log_text, const QString& result_text)
{
    const auto l = m_manager.find(ident);
    if (!l)
        return;
    log(source_of(ident), log_text, { fixed_names::tags::tasks });
    l->set(tasks::keys::result, QVariant::fromValue(tasks::common_data { result_text, false }));
    if (l->dependents_count() > 0)
        cancel(ident);
    m_manager.task_finished(ident);
}

void core::on_sdk_flash_progress(const QString& ident, sdk::prototype::flash_progress_type stage, uint current, uint total)
{
    using stage_type = sdk::prototype::flash_progress_type;
    const auto l = m_manager.find(ident);
    if (!l)
        return;
    switch (stage) {
    case stage_type::failure:
        finish_flash(ident, false, tr("Error %1").arg(current));
        clean_up_worker(ident, tr("Task failed"));
        return;
    case stage_type::done:
        finish_flash(ident, true, tr("Completed"));
        clean_up_worker(ident, tr("Task completed"));
        return;
    case stage_type::sending:
    case stage_type::upgrading:
        break;
    default:
        log(source_of(ident), tr("Unhandled flash progress code %1: v1=%2, v2=%3").arg(int(stage)).arg(current).arg(total),
            { fixed_names::tags::tasks });
        return;
    }

    const bool xnet = l->get(tasks::keys::sdk_in_use).toInt() == int(sdk::type::xnet);
    const bool sending = stage == stage_type::sending;
    uint percent = total;
    if (xnet)
        percent = sending ? uint(uint8_t(quint64(total ? 100.0f / float(total) * float(current) : 0.0f))) : current;

    // Each stage is announced once: the move happens only from the stage before it.
    if (l->has_current()) {
        tasks::task& t = l->current_task();
        const uint from = sending ? 0 : 1;
        if (t.params().value(tasks::args::upgrade_stage, 0u).toUInt() == from) {
            t.set(tasks::args::upgrade_stage, from + 1);
            log(source_of(ident), sending ? tr("Now uploading the file") : tr("Now upgrading the device"),
                { fixed_names::tags::tasks });
        }
    }
    set_status(ident, (sending ? tr("Uploading: %1%") : tr("Upgrading: %1%")).arg(percent), status_progress);
}

void core::finish_flash(const QString& ident, bool ok, const QString& text)
{
    const auto l = m_manager.find(ident);
    if (!l)
        return;
    if (l->has_current())
        l->current_task().set(tasks::args::upgrade_stage, 0u);
    const QString sentence = ok ? tr("Done upgrading") : tr("Failed to upgrade: %1").arg(text);
    log(source_of(ident), sentence, { fixed_names::tags::tasks });
    l->set(tasks::keys::result, QVariant::fromValue(tasks::common_data { sentence, ok }));
    set_status(ident, sentence, ok ? status_success : status_failure);
    if (ok) {
        l->set(tasks::keys::version, l->get(tasks::keys::new_version).value<client::update_resp::firmware_list>().value(0).firmware);
    } else {
        add_problem(ident, sentence);
        cancel(ident);
    }
    m_manager.task_finished(ident);
}

void core::clean_up_worker(const QString& ident, const QString& log_text)
{
    const auto l = m_manager.find(ident);
    if (!l)
        return;
    if (sdk::prototype* worker = worker_of(*l))
        worker->clean_up();
    log(source_of(ident), log_text, { fixed_names::tags::tasks });
}

void core::dt_confirm(const QString& ident)
{
    const auto l = m_manager.find(ident);
    if (l)
        m_client.confirm_update(l->get(tasks::keys::serial).toString());
}

void core::on_client_confirmed(const QString& serial)
{
    log(fixed_names::sources::core, tr("Confirmed new firmware for %1").arg(serial));
    const QString ident = line_by_serial(serial);
    if (m_manager.contains(ident))
        m_manager.task_finished(ident);
}

void core::on_client_failed(const client::queued_data& qd, client::error_codes code, uint descriptive)
{
    const QString subsequent = descriptive ? client::server_error_text(descriptive, true) : QStringLiteral("none");
    log(fixed_names::sources::core,
        tr("Remote database access failure, code %1, subsequent code is %2: %3, %4")
            .arg(int(code))
            .arg(descriptive)
            .arg(client::error_short_text(code), subsequent));
    if (m_mode == interactive) {
        const QString text = (code == client::transport_error && descriptive == 0)
            ? tr("Failed to access the service, check your Internet connection.")
            : tr("Remote service error, code %1:%2: \"%3: %4\"")
                  .arg(int(code))
                  .arg(descriptive)
                  .arg(client::error_text(code),
                      client::server_error_text(descriptive, !m_current_language.startsWith(QLatin1String("ru"))));
        add_problem(qd, text);
    }
    if (code == client::transport_error && m_remote_enabled) {
        switch_remote(false);
        log(fixed_names::sources::core, tr("Disabling server communications due to generic network error"));
        warn(tr("Communication error"),
            tr("Due to a communication error with the server, further work with it was disabled until the application was restarted."));
    }
    on_client_canceled(qd);
}

void core::on_client_canceled(const client::queued_data& qd)
{
    log(fixed_names::sources::core, tr("Cancelling task %1 for device %2").arg(client::kind_text(qd.type), qd.serial));
    QStringList affected { line_by_serial(qd.serial) };
    if (qd.type == client::file) {
        // Other lines waiting at flash for the same file would otherwise wait for good.
        m_requested_versions.removeAll(qd.version);
        for (const QString& ident : m_manager.lines()) {
            const auto l = m_manager.find(ident);
            if (ident == affected.constFirst() || !l || !l->has_current() || l->current_task().name() != tasks::names::flash)
                continue;
            if (l->get(tasks::keys::new_version).value<client::update_resp::firmware_list>().value(0).firmware == qd.version)
                affected << ident;
        }
    }
    for (const QString& ident : qAsConst(affected)) {
        const auto l = m_manager.find(ident);
        if (!l)
            continue;
        l->set(tasks::keys::result, QVariant::fromValue(tasks::common_data { tr("Execution interrupted"), false }));
        cancel(ident);
        m_manager.task_finished(ident);
    }
}
