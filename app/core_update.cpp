// The update flow: ask the service, fetch each firmware once, flash it, confirm.
#include "app/core.h"

#include "app/fixed_names.h"
#include "sdk/exceptions.h"

#include <QCryptographicHash>
#include <QTimer>

namespace {

struct verdict
{
    QString log_word;
    QString status;
    bool ok;
    bool up_to_date = false; // the device needs nothing
};

verdict verdict_of(const QString& resp)
{
    if (resp == QLatin1String("no_binding"))
        return { QStringLiteral("firmwares not assigned"), core::tr("Firmwares not assigned"), true, true };
    if (resp == QLatin1String("updated"))
        return { QStringLiteral("updates not found"), core::tr("Updates not found"), true, true };
    if (resp == QLatin1String("denied"))
        return { QStringLiteral("denied in service"), core::tr("Denied in service"), false };
    return { QStringLiteral("E:%1").arg(resp), QStringLiteral("E:%1").arg(resp), true };
}

// How long a device may take to come back from a flash, how long it is given to go
// first (a device still up on its old firmware would fail the check), and the pause
// between attempts.
constexpr int verify_limit_ms = 180000;
constexpr int verify_settle_ms = 3000;
constexpr int verify_retry_ms = 2000;

// The steps that flash: a firmware from the service, or from a pack.
QStringList flash_steps()
{
    return { tasks::names::flash, tasks::names::apply_pack_firmware };
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
    const QString ident = line_waiting(serial, tasks::names::check_updates);
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
    l->set(tasks::keys::up_to_date, v.up_to_date);
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
    const QString firmware = offer_of(*l).firmware;

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
    // Still requested until it is checked and cached, so that a line reaching flash meanwhile
    // waits for it rather than asking again.
    m_files_to_store.append({ version, data });
    store_next_file();
}

client::update_resp::offer core::offer_of(const tasks::line& line)
{
    return line.get(tasks::keys::new_version).value<client::update_resp::firmware_list>().value(0);
}

QStringList core::lines_waiting_for(const QString& firmware) const
{
    QStringList idents;
    for (const QString& ident : m_manager.lines()) {
        if (at_step(ident, { tasks::names::flash }) && offer_of(*m_manager.find(ident)).firmware == firmware
            && !m_to_serve.contains(ident))
            idents << ident;
    }
    return idents;
}

void core::apply_firmware(const QString& ident, const QByteArray& data)
{
    const auto l = m_manager.find(ident);
    if (!l)
        return;
    const client::update_resp::offer offer = offer_of(*l);
    // Wherever the bytes came from, they are checked right before a device gets them.
    if (!checked_firmware(offer.firmware, data)) {
        fail_step(ident, flash_steps(),
            tr("Firmware %1 is empty or not the file it names: the device isn't flashed").arg(offer.firmware),
            tr("Damaged firmware"));
        return;
    }
    const sdk::type wanted = sdk::type_from_text(offer.sdk_type, sdk::type::legacy);
    log(source_of(ident), tr("Now using %1 functionality").arg(sdk::type_text(int(wanted))), { fixed_names::tags::tasks });

    const int previous = l->get(tasks::keys::sdk_in_use).toInt();
    if (!ensure_worker(*l, int(wanted))) {
        fail_step(ident, flash_steps(), tr("SDK init failed"), tr("System error"));
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
                fail_step(ident, flash_steps(), tr("File I/O failed"), tr("Input-output error"));
                return;
            }
        } catch (const sdk::tmp_file_exception&) {
            fail_step(ident, flash_steps(), tr("Temporary file data mismatch"), tr("Input-output error"));
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

void core::on_sdk_flash_progress(const QString& ident, sdk::prototype::flash_progress_type stage, uint current, uint total)
{
    using stage_type = sdk::prototype::flash_progress_type;
    // Progress of a flash that has ended (or of none) paints nothing and ends nothing.
    if (!at_step(ident, flash_steps()))
        return;
    const auto l = m_manager.find(ident);
    // The worker's session ends before the flow moves on, so that nothing is told after a flow's end.
    switch (stage) {
    case stage_type::failure:
        clean_up_worker(ident, tr("Task failed"));
        finish_flash(ident, false, tr("Error %1").arg(current));
        return;
    case stage_type::done:
        clean_up_worker(ident, tr("Task completed"));
        finish_flash(ident, true, tr("Completed"));
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
    tasks::task& t = l->current_task();
    const uint from = sending ? 0 : 1;
    if (t.params().value(tasks::args::upgrade_stage, 0u).toUInt() == from) {
        t.set(tasks::args::upgrade_stage, from + 1);
        log(source_of(ident), sending ? tr("Now uploading the file") : tr("Now upgrading the device"),
            { fixed_names::tags::tasks });
    }
    set_status(ident, (sending ? tr("Uploading: %1%") : tr("Upgrading: %1%")).arg(percent), status_progress);
}

void core::finish_flash(const QString& ident, bool ok, const QString& text)
{
    const auto l = m_manager.find(ident);
    l->current_task().set(tasks::args::upgrade_stage, 0u);
    if (!ok) {
        const QString sentence = tr("Failed to upgrade: %1").arg(text);
        fail_step(ident, flash_steps(), sentence, sentence);
        return;
    }
    const QString sentence = tr("Done upgrading");
    log(source_of(ident), sentence, { fixed_names::tags::tasks });
    l->set(tasks::keys::result, QVariant::fromValue(tasks::common_data { sentence, true }));
    set_status(ident, sentence, status_success);
    l->set(tasks::keys::version, offer_of(*l).firmware);
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

void core::dt_verify_flash(const QString& ident)
{
    set_status(ident, tr("Checking the version after the flash..."), status_progress);
    m_verify_deadlines.insert(ident, QDeadlineTimer(verify_limit_ms));
    QTimer::singleShot(verify_settle_ms, this, [this, ident] { try_verify_flash(ident); });
}

void core::try_verify_flash(const QString& ident)
{
    if (!at_step(ident, { tasks::names::verify_flash }))
        return;
    const auto l = m_manager.find(ident);
    // Identification is the legacy backend's, whichever backend flashed.
    if (!ensure_worker(*l, int(sdk::type::legacy))) {
        fail_step(ident, { tasks::names::verify_flash }, tr("SDK init failed"), tr("System error"));
        return;
    }
    worker_of(*l)->identify();
}

void core::retry_verify_flash(const QString& ident, const QString& reason)
{
    if (m_verify_deadlines.value(ident).hasExpired()) {
        const QString text = tr("The device didn't come back after the flash: %1").arg(reason);
        fail_step(ident, { tasks::names::verify_flash }, text, text);
        return;
    }
    log(source_of(ident), tr("Waiting for the device to come back: %1").arg(reason), { fixed_names::tags::tasks });
    QTimer::singleShot(verify_retry_ms, this, [this, ident] { try_verify_flash(ident); });
}

void core::verify_version(const QString& ident, const parameters& p)
{
    const QString version = p.value(QStringLiteral("version")).toString();
    if (version.isEmpty()) {
        retry_verify_flash(ident, tr("Can't get the device information"));
        return;
    }
    const auto l = m_manager.find(ident);
    const QString before = l->get(tasks::keys::version_before).toString();
    // What the device says it runs, rather than the identifier of what it was sent.
    l->set(tasks::keys::version, version);
    if (version == before) {
        // The device took the image and kept its firmware: the service isn't told of a flash.
        fail_step(ident, { tasks::names::verify_flash },
            tr("The device came back from the flash still on version %1; the update is not confirmed").arg(before),
            tr("Still on %1 after the flash").arg(before));
        return;
    }
    log(source_of(ident), tr("The device runs version %1 after the flash (it had %2)").arg(version, before),
        { fixed_names::tags::tasks });
    const QString serial = l->get(tasks::keys::serial).toString().toUpper();
    set_row_info(ident, serial, tr("%1 version %2, %3").arg(serial, version, p.value(QStringLiteral("build")).toString()));
    m_verify_deadlines.remove(ident);
    m_manager.task_finished(ident);
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
    const QString ident = line_waiting(serial, tasks::names::confirm);
    if (!ident.isEmpty())
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
    const QString step = qd.type == client::update ? tasks::names::check_updates
        : qd.type == client::file                  ? tasks::names::flash
                                                   : tasks::names::confirm;
    // A file is awaited by every line at flash for it, or they would wait for good.
    const QStringList affected
        = qd.type == client::file ? lines_waiting_for(qd.version) : QStringList { line_waiting(qd.serial, step) };
    if (qd.type == client::file)
        m_requested_versions.removeAll(qd.version);
    for (const QString& ident : qAsConst(affected))
        fail_step(ident, { step }, QString(), tr("Execution interrupted"));
}
