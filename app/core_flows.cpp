// Launches, the scheduler's signals, workers and their reports.
#include "app/core.h"

#include "app/fixed_names.h"
#include "app/open_file_limit.h"
#include "sdk/exceptions.h"
#include "ui/main_model.h"

#include <QCoreApplication>

#include <algorithm>

void core::on_window_run_list(bool no_add, bool fetch_only, bool force_update, QStringList idents)
{
    launch(idents, no_add, fetch_only, force_update, std::nullopt);
}

void core::on_window_run_list(bool no_add, bool fetch_only, bool force_update)
{
    launch({}, no_add, fetch_only, force_update, std::nullopt);
}

void core::on_window_run_list(bool no_add)
{
    launch({}, no_add, false, false, std::nullopt);
}

void core::on_window_run_list()
{
    launch({}, false, false, false, std::nullopt);
}

void core::launch(const QStringList& requested, bool no_add, bool fetch_only, bool force_update, std::optional<uint> own_limit)
{
    const QStringList idents = requested.isEmpty() ? selected_lines() : requested;
    if (m_mode == interactive) {
        if (m_manager.count() == 0) {
            warn(tr("The list is empty"), tr("No tasks. Import the task list or add a new one."));
            return;
        }
        if (idents.isEmpty()) {
            warn(tr("Nothing is selected"), tr("Select at least one task before launching."));
            return;
        }
    }
    const int update_mode = fetch_only ? 0 : (force_update ? 2 : 1);
    log(fixed_names::sources::core, tr("Launching %n tasks...", nullptr, idents.size()), { fixed_names::tags::tasks });

    const uint limit = own_limit.value_or(m_manager.limit());
    const quint64 at_once = m_manager.running_count() + quint64(idents.size());
    raise_open_file_limit(limit == 0 ? at_once : std::min<quint64>(at_once, limit));
    set_running_state(true);
    m_manager.set_launch_list(idents);
    begin_outcomes(idents);
    if (!no_add) {
        for (const QString& ident : idents) {
            if (!m_manager.contains(ident))
                continue;
            const tasks::task identify(tasks::names::identify);
            tasks::task check(tasks::names::check_updates, identify);
            check.set(tasks::args::force_update, update_mode == 2);
            m_manager.add_task(ident, identify);
            m_manager.add_task(ident, check);
            if (update_mode != 0) {
                tasks::task last(tasks::names::flash, check);
                m_manager.add_task(ident, last);
                // With the check, the service hears of a flash only once the device runs the new version.
                if (m_options.verify_after_flash) {
                    last = tasks::task(tasks::names::verify_flash, last);
                    m_manager.add_task(ident, last);
                }
                m_manager.add_task(ident, tasks::task(tasks::names::confirm, last));
            }
        }
    }
    m_manager.launch(own_limit.has_value(), own_limit.value_or(0));
    refresh_status_bar();
    // No flow ends to close a batch with nothing to do: it ends once the autorun scripts have run.
    // Queued, as quit() only counts once exec() runs.
    if (m_mode == batch && !m_script_run && !flows_busy()) {
        watch_script_run();
        QMetaObject::invokeMethod(this, [this] { end_if_idle(); }, Qt::QueuedConnection);
    }
}

void core::raise_open_file_limit(quint64 devices)
{
    const quint64 needed = open_file_limit::needed_for(devices);
    const quint64 before = open_file_limit::current();
    const quint64 now = open_file_limit::raise_to(needed);
    if (now > before)
        log(fixed_names::sources::core, tr("The limit of open files is raised from %1 to %2").arg(before).arg(now));
    if (now < needed)
        log(fixed_names::sources::core,
            tr("Only %1 files may be open at once, and %2 devices at work need about %3: some of them may fail to "
               "connect. Raise the limit of open files (ulimit -n) or limit the number of concurrent tasks.")
                .arg(now)
                .arg(devices)
                .arg(needed));
}

QStringList core::selected_lines() const
{
    QStringList idents;
    for (const QString& ident : m_manager.lines()) {
        const auto l = m_manager.find(ident);
        if (l && l->get(tasks::keys::selected).toBool())
            idents << ident;
    }
    return idents;
}

void core::on_task_manager_flow_started(const QString& ident)
{
    const auto l = m_manager.find(ident);
    log(source_of(ident), tr("Started with %n tasks", nullptr, l ? l->pending() : 0), { fixed_names::tags::tasks });
    if (l)
        l->set(tasks::keys::flow_started, QDateTime::currentDateTimeUtc()); // the report shows local time
    refresh_status_bar_soon();
}

void core::on_task_manager_task_running(const QString& flow, const QString& name, const QString& uuid)
{
    Q_UNUSED(uuid)
    const auto l = m_manager.find(flow);
    if (!l)
        return;
    log(source_of(flow), tr("Task %1 started").arg(name), { fixed_names::tags::tasks });
    l->set(tasks::keys::selected, true);
    if (m_model)
        m_model->set_selected(flow, true);

    const auto step = m_dispatch.constFind(name);
    if (step == m_dispatch.constEnd()) {
        log(source_of(flow), tr("Unknown task: %1").arg(name), { fixed_names::tags::tasks });
        return;
    }
    // One device, one flow at a time: a second row of it would answer for the first.
    const auto ep = l->get(tasks::keys::endpoint).value<endpoint>();
    const QString holder = claim_device(QStringLiteral("address %1:%2").arg(ep.host.toLower()).arg(ep.port), flow);
    if (!holder.isEmpty()) {
        refuse_device_in_work(flow, name, holder);
        return;
    }

    // Make sure a worker able to do the task exists; tasks outside a backend's list
    // go to the backend it names.
    if (sdk::prototype* worker = worker_of(*l)) {
        if (!worker->operations().contains(name)) {
            const int wanted = worker->uses_sdk_session(name);
            if (wanted != 0)
                ensure_worker(*l, wanted);
        }
    } else {
        ensure_worker(*l, int(sdk::type::legacy));
    }
    (this->*step.value())(flow);
}

void core::on_task_manager_flow_ended(const QString& ident)
{
    const auto l = m_manager.find(ident);
    log(source_of(ident), tr("Flow ended"), { fixed_names::tags::tasks });
    tasks::common_data result { tr("Done"), true };
    if (l && l->params().contains(tasks::keys::result))
        result = l->get(tasks::keys::result).value<tasks::common_data>();
    set_status(ident, result.text, result.ok ? status_success : status_failure);
    record_outcome(ident, result);
    m_verify_deadlines.remove(ident);
    refresh_status_bar_soon();
    raise_event(QStringLiteral("task_done"), { ident });
    for (const QString& key : m_keys_in_work.take(ident)) {
        if (m_devices_in_work.value(key) == ident)
            m_devices_in_work.remove(key);
    }
    queue_registration(ident);
    end_if_idle();
}

bool core::flows_busy() const
{
    return m_manager.running_count() != 0 || registrations_pending();
}

void core::end_if_idle()
{
    if (flows_busy())
        return;
    log(fixed_names::sources::core, summary().text(), { fixed_names::tags::core });
    log(fixed_names::sources::core, tr("-- all done --"), { fixed_names::tags::core });
    raise_event(QStringLiteral("tasks_done"));
    if (m_script_run)
        end_script_run_if_done();
    else if (m_mode == batch)
        QCoreApplication::quit();
}

sdk::prototype* core::worker_of(const tasks::line& line)
{
    return line.get(tasks::keys::sdk_instance).value<sdk::prototype*>();
}

void core::delete_worker(tasks::line& line)
{
    if (sdk::prototype* worker = worker_of(line)) {
        worker->clean_up();
        delete worker;
    }
    line.remove(tasks::keys::sdk_instance);
    line.remove(tasks::keys::sdk_in_use);
}

void core::retire_worker(tasks::line& line)
{
    sdk::prototype* worker = worker_of(line);
    line.remove(tasks::keys::sdk_instance);
    line.remove(tasks::keys::sdk_in_use);
    if (!worker)
        return;
    // A report may still be on its way; nothing waits for it.
    connect(worker, &QThread::finished, this, &core::drop_finished_workers, Qt::QueuedConnection);
    m_retired_workers.emplace_back(worker);
    drop_finished_workers();
}

void core::drop_finished_workers()
{
    m_retired_workers.erase(std::remove_if(m_retired_workers.begin(), m_retired_workers.end(),
                                [](const auto& worker) { return !worker->isRunning(); }),
        m_retired_workers.end());
}

bool core::ensure_worker(tasks::line& line, int type)
{
    if (worker_of(line) && line.get(tasks::keys::sdk_in_use).toInt() == type)
        return true;
    delete_worker(line);

    std::unique_ptr<sdk::prototype> worker;
    try {
        worker.reset(sdk::prototype::create(type));
    } catch (const sdk::exception& e) {
        log(source_of(line.ident()), e.message(), { fixed_names::tags::tasks });
        return false;
    }
    if (!worker->init(line.ident(), line.get(tasks::keys::device).value<device>()))
        return false;
    connect(worker.get(), &sdk::prototype::done, this, &core::on_sdk_done);
    connect(worker.get(), &sdk::prototype::failed, this, &core::on_sdk_failed);
    connect(worker.get(), &sdk::prototype::data_available, this, &core::on_sdk_data_available);
    // On the worker's thread: the mailbox gathers the reports for the main thread.
    connect(worker.get(), &sdk::prototype::flash_progress, &m_progress, &progress_mailbox::put, Qt::DirectConnection);
    connect(worker.get(), &sdk::prototype::status_update, this, &core::on_sdk_status_update);
    line.set(tasks::keys::sdk_in_use, type);
    line.set(tasks::keys::sdk_instance, QVariant::fromValue(worker.release()));
    return true;
}

void core::common_step(const QString& ident, const QString& status, const operation& op, const QString& failure,
    const operation_follow_up& then)
{
    const auto l = m_manager.find(ident);
    if (!l)
        return;
    if (!status.isEmpty())
        set_status(ident, status, status_progress);
    sdk::prototype* worker = worker_of(*l);
    const bool accepted = worker && op(worker, *l);
    // A worker that refuses also reports failed; the flow waits for that.
    if (!accepted)
        log(source_of(ident), failure, { fixed_names::tags::tasks });
    if (then)
        then(accepted, *l);
}

tasks::task* core::running_task(const QString& ident)
{
    const auto l = m_manager.find(ident);
    if (!l || !l->has_current())
        return nullptr;
    return &l->current_task();
}

bool core::at_step(const QString& ident, const QStringList& steps) const
{
    const auto l = m_manager.find(ident);
    return l && m_manager.is_running(ident) && l->has_current() && steps.contains(l->current_task().name());
}

bool core::fail_step(
    const QString& ident, const QStringList& steps, const QString& log_text, const QString& result_text, bool hold)
{
    if (!at_step(ident, steps))
        return false;
    if (!log_text.isEmpty())
        log(source_of(ident), log_text, { fixed_names::tags::tasks });
    m_manager.find(ident)->set(tasks::keys::result, QVariant::fromValue(tasks::common_data { result_text, false }));
    set_status(ident, result_text, status_failure);
    cancel(ident);
    if (!hold)
        m_manager.task_finished(ident);
    return true;
}

QString core::line_waiting(const QString& serial, const QString& step) const
{
    // One running flow at a time works on a device: the one that claimed its serial, unless
    // the line never made that claim (no serial, or a step composed without identify).
    const QString holder = m_devices_in_work.value(QStringLiteral("serial ") + serial);
    if (!holder.isEmpty() && at_step(holder, { step })
        && m_manager.find(holder)->get(tasks::keys::serial).toString() == serial)
        return holder;
    for (const QString& ident : m_manager.lines()) {
        if (at_step(ident, { step }) && m_manager.find(ident)->get(tasks::keys::serial).toString() == serial)
            return ident;
    }
    return {};
}

QString core::claim_device(const QString& key, const QString& ident)
{
    const QString holder = m_devices_in_work.value(key);
    if (!holder.isEmpty() && holder != ident && m_manager.is_running(holder))
        return holder;
    m_devices_in_work.insert(key, ident);
    m_keys_in_work[ident].insert(key);
    return {};
}

void core::refuse_device_in_work(const QString& ident, const QString& step, const QString& holder)
{
    const QString text = tr("This device is already being worked on in another row (%1)").arg(source_of(holder));
    fail_step(ident, { step }, text, text);
}

void core::cancel(const QString& ident)
{
    const auto l = m_manager.find(ident);
    if (!l)
        return;
    const QMap<QString, QString> dependents = l->dependents();
    if (dependents.isEmpty()) {
        log(source_of(ident), tr("No tasks to cancel"), { fixed_names::tags::tasks });
        return;
    }
    log(source_of(ident), tr("Canceling tasks: %1").arg(dependents.values().join(QStringLiteral(", "))),
        { fixed_names::tags::tasks });
    const int canceled = l->cancel_dependents();
    log(source_of(ident), tr("Tasks canceled %1/%2").arg(canceled).arg(dependents.size()), { fixed_names::tags::tasks });
}

void core::on_sdk_done(const QString& ident)
{
    if (!at_step(ident, m_worker_steps))
        return;
    const auto l = m_manager.find(ident);
    if (l->current_task().name() == tasks::names::reset_configuration) {
        // The device has lost its address and answers on the factory one now.
        auto dev = l->get(tasks::keys::device).value<device>();
        auto ep = l->get(tasks::keys::endpoint).value<endpoint>();
        dev.ip = fixed_names::factory_address;
        ep.host = fixed_names::factory_address;
        l->set(tasks::keys::device, QVariant::fromValue(dev));
        l->set(tasks::keys::endpoint, QVariant::fromValue(ep));
        set_row_address(ident);
    }
    m_manager.task_finished(ident);
}

void core::on_sdk_failed(const QString& ident, signed int error, const QString& description)
{
    if (!at_step(ident, m_worker_steps))
        return;
    if (sdk::prototype* worker = worker_of(*m_manager.find(ident)))
        worker->clean_up();
    const QString text = tr("Error %1: %2").arg(error).arg(description);
    if (at_step(ident, { tasks::names::verify_flash })) {
        retry_verify_flash(ident, text);
        return;
    }
    fail_step(ident, m_worker_steps, text, text);
}

void core::on_sdk_data_available(const QString& ident, const parameters& p)
{
    if (at_step(ident, { tasks::names::verify_flash })) {
        verify_version(ident, p);
        return;
    }
    const QStringList identify { tasks::names::identify };
    if (!at_step(ident, identify))
        return;
    if (p.isEmpty()) {
        set_row_info(ident, QString(), tr("No information"));
        // The line stays at identify and keeps its slot.
        fail_step(ident, identify, tr("Can't get the device information"), tr("Unable to continue"), true);
        return;
    }
    const auto l = m_manager.find(ident);
    const QString build = p.value(QStringLiteral("build")).toString();
    const QString hardware = p.value(QStringLiteral("hardware")).toString();
    const QString mac_text = p.value(QStringLiteral("mac")).toString();
    const QString serial = p.value(QStringLiteral("serial")).toString();
    const QString version = p.value(QStringLiteral("version")).toString();
    log(source_of(ident), tr("Device serial: %1, hardware: %2, version: %3, build time: %4").arg(serial, hardware, version, build),
        { fixed_names::tags::tasks });

    auto ep = l->get(tasks::keys::endpoint).value<endpoint>();
    ep.mac = mac_text;
    l->set(tasks::keys::endpoint, QVariant::fromValue(ep));
    l->set(tasks::keys::version, version);
    l->set(tasks::keys::version_before, version);
    l->set(tasks::keys::serial, serial);
    l->set(tasks::keys::hardware, hardware);
    l->set(tasks::keys::build, build);
    set_row_info(ident, serial.toUpper(), tr("%1 version %2, %3").arg(serial.toUpper(), version, build));
    // The same device may stand in the table under two addresses.
    const QString holder = serial.isEmpty() ? QString() : claim_device(QStringLiteral("serial ") + serial, ident);
    if (!holder.isEmpty()) {
        refuse_device_in_work(ident, tasks::names::identify, holder);
        return;
    }
    m_manager.task_finished(ident);
}

void core::on_sdk_status_update(const QString& ident, const QString& status)
{
    set_status(ident, status, status_progress);
}
