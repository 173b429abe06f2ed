// Commands on devices and their tasks.
#include "app/command_context.h"
#include "app/core.h"
#include "app/fixed_names.h"
#include "scripting/sapi.h"
#include "ui/dynwidgets_controller.h"
#include "ui/main_window.h"

#include <QCoreApplication>
#include <QHostAddress>
#include <QMessageBox>

using scripting::command_result;

namespace {

// An address argument; a text that isn't one is refused.
QHostAddress address_of(const QString& text)
{
    const QHostAddress address(text);
    if (address.isNull())
        throw sapi::unsupported_value_exception(text);
    return address;
}

uint16_t port_of(const QString& text)
{
    const uint port = sapi::to_unsigned(text);
    if (port == 0 || port > 0xffff)
        throw sapi::unsupported_value_exception(text);
    return uint16_t(port);
}

float float_of(const QString& text)
{
    bool ok = false;
    const float value = text.toFloat(&ok);
    if (!ok)
        throw sapi::unsupported_value_exception(text);
    return value;
}

// Adds the task, if any, to the line, marks the line for the queue and starts it; the ident.
command_result queue_and_start(command_context& x, const QString& ident, const std::optional<tasks::task>& t = {})
{
    if (t)
        x.c.task_manager().add_task(ident, *t);
    x.c.launch({ ident }, true, false, false, std::nullopt);
    return { true, ident };
}

bool undiscovered(core& c, const QString& ident)
{
    return c.task_manager().find(ident)->get(tasks::keys::device).value<device>().state == device::never_filled;
}

class device_commands
{
    Q_DECLARE_TR_FUNCTIONS(core)
public:
    static void add_to(command_table& t)
    {
        using c = scripting::commands;
        t.insert(qint64(c::add_device), &add_device);
        t.insert(qint64(c::add_task), &add_task);
        t.insert(qint64(c::assign_addresses), &assign_addresses);
        t.insert(qint64(c::change_device_ip), &change_device_ip);
        t.insert(qint64(c::check_devices), &check_devices);
        t.insert(qint64(c::clear_devices), &clear_devices);
        t.insert(qint64(c::dump_task), &dump_task);
        t.insert(qint64(c::export_devices), &export_devices);
        t.insert(qint64(c::export_report), &export_report);
        t.insert(qint64(c::fix_devices), &fix_devices);
        t.insert(qint64(c::import_devices), &import_devices);
        t.insert(qint64(c::limit_tasks), &limit_tasks);
        t.insert(qint64(c::list_tasks), &list_tasks);
        t.insert(qint64(c::reboot_device), &reboot_device);
        t.insert(qint64(c::register_devices), &register_devices);
        t.insert(qint64(c::reset_device_configuration), &reset_device_configuration);
        t.insert(qint64(c::run_task), &run_task);
        t.insert(qint64(c::scan_devices), &scan_devices);
    }

private:
    static command_result add_device(command_context& x)
    {
        const QStringList& a = x.call.args;
        x.api.sapi_devices_add(x.arg(0), a.size() > 1 ? port_of(a[1]) : fixed_names::default_port,
            a.size() > 2 ? a[2] : fixed_names::default_login, x.arg(3));
        return command_result::success();
    }

    static command_result add_task(command_context& x)
    {
        struct shape
        {
            int min;
            int max;
            QStringList labels;
        };
        static const QMap<QString, shape> shapes {
            { tasks::names::await_device, { 1, 1, { QT_TR_NOOP("IP-address") } } },
            { tasks::names::change_ip, { 1, 2, { QT_TR_NOOP("IP-address"), QT_TR_NOOP("Submask") } } },
            { tasks::names::change_port, { 2, 2, { QT_TR_NOOP("Port name"), QT_TR_NOOP("Port value") } } },
        };
        const QString ident = x.task(0);
        if (ident.isEmpty())
            return command_result::failure();
        const QString type = x.arg(1);
        const QStringList values = x.call.args.mid(2);
        tasks::task made(type);
        if (const auto found = shapes.constFind(type); found != shapes.constEnd()) {
            if (values.size() < found->min) {
                QStringList labels;
                for (const QString& label : found->labels)
                    labels << tr(label.toUtf8().constData());
                return x.error(tr("Unsufficient arguments, expected %1-%2: %3")
                                   .arg(found->min)
                                   .arg(found->max)
                                   .arg(labels.join(QStringLiteral(", "))));
            }
            if (type == tasks::names::change_port) {
                made.set(tasks::args::type, values[0]);
                made.set(tasks::args::value, uint(port_of(values[1])));
            } else {
                made.set(tasks::args::address, QVariant::fromValue(address_of(values[0])));
                if (type == tasks::names::await_device && values.size() > 1)
                    made.set(tasks::args::timeout, float_of(values[1]));
                if (type == tasks::names::change_ip && values.size() > 1)
                    made.set(tasks::args::subnet, QVariant::fromValue(address_of(values[1])));
            }
            // An address change needs to know the device first; a failed identify takes it along.
            if (type == tasks::names::change_ip && undiscovered(x.c, ident)) {
                const tasks::task identify(tasks::names::identify);
                x.c.task_manager().add_task(ident, identify);
                made.set_parent(identify);
            }
        }
        x.c.task_manager().add_task(ident, made);
        return { true, ident };
    }

    static command_result assign_addresses(command_context& x)
    {
        const uint third = sapi::to_unsigned(x.arg(0));
        if (third > 255)
            throw sapi::unsupported_value_exception(x.arg(0));
        qint64 start = sapi::to_unsigned(x.arg(1));
        const qint64 count = x.c.selected_lines().size();
        if (count == 0)
            return command_result::success();
        const bool unattended = x.c.mode() == core::batch;
        if (count >= 255) {
            if (unattended)
                return x.error(tr("Too many devices, reduce the number of selected devices by %1.").arg(count - 254));
            QMessageBox::warning(x.c.window(), tr("Too many devices"),
                tr("Reduce the number of selected devices by %1.").arg(count - 254));
        }
        if (count + start - 1 >= 255) {
            if (unattended)
                return x.error(tr("Start address is out of range."));
            const qint64 lowered = qMax<qint64>(0, 255 - count);
            const auto answer = QMessageBox::question(x.c.window(), tr("Out of range"),
                tr("Unable to assign addresses for %1 devices from the specified address range.\nLower the start "
                   "address to %2?")
                    .arg(count)
                    .arg(QStringLiteral("192.168.%1.%2").arg(third).arg(lowered)),
                QMessageBox::Yes | QMessageBox::No, QMessageBox::No);
            if (answer != QMessageBox::Yes)
                return x.error(tr("Start address is out of range."));
            start = lowered;
            // The assignment macro reads its range from this box; it shows what was used.
            if (dynwidgets::controller* widgets = x.c.widgets())
                widgets->edit(QStringLiteral("scripting"), QStringLiteral("subnet2"),
                    { { QStringLiteral("value"), QString::number(start) } });
        }
        x.c.assign_addresses(int(third), int(start));
        return command_result::success();
    }

    static command_result change_device_ip(command_context& x)
    {
        const QString ident = x.task(0);
        if (ident.isEmpty())
            return command_result::failure();
        tasks::task change(tasks::names::change_ip);
        change.set(tasks::args::address, QVariant::fromValue(address_of(x.arg(1))));
        if (x.call.args.size() > 2)
            change.set(tasks::args::subnet, QVariant::fromValue(address_of(x.arg(2))));
        return queue_and_start(x, ident, change);
    }

    static command_result check_devices(command_context& x)
    {
        const QString mode = x.arg(0).toLower();
        QStringList names = x.call.args.mid(1);
        if (names.value(0) == QLatin1String("all"))
            names = x.c.selected_lines() + names.mid(1);
        QStringList idents;
        for (const QString& name : names) {
            const QString ident = x.c.task_manager().resolve(name);
            if (ident.isEmpty() || !x.c.task_manager().contains(ident))
                x.output(QStringLiteral("<div style='font-style: italic; color: gray;'>%1</div>")
                             .arg(tr("Skipping unknown device: %1").arg(name)));
            else
                idents << ident;
        }
        if (idents.isEmpty())
            return command_result::success();
        std::optional<uint> jobs;
        if (x.has_param(QStringLiteral("jobs")))
            jobs = sapi::to_unsigned(x.call.params.value(QStringLiteral("jobs")));
        x.c.launch(idents, false, mode == QLatin1String("fetch"), mode == QLatin1String("force"), jobs);
        const bool active = x.c.flows_busy();
        // Until the run is over, registrations included, so the next line follows "-- all done --".
        x.c.wait_while([&x] { return x.c.flows_busy(); }, tr("Executing..."), scripting::console::spinning);
        if (active && x.plain())
            x.api.sapi_done();
        return command_result::success();
    }

    static command_result clear_devices(command_context& x)
    {
        const int count = x.c.task_manager().count();
        if (!x.api.sapi_devices_clear())
            return x.error(tr("Unable to clear task list: some tasks are still running"));
        return { true, QString::number(count) };
    }

    // What a line holds, key by key.
    static void explain(command_context& x, const QString& ident)
    {
        x.output(QStringLiteral("<div style='color: navyblue;'>%1</div>").arg(tr("Explaining %1 ...").arg(ident)));
        const auto described = x.c.task_manager().find(ident)->describe();
        for (auto it = described.cbegin(); it != described.cend(); ++it) {
            const QString value = it->simple
                ? QStringLiteral("%1 (<span style='color: green;'>%2</span>)").arg(it->value.toHtmlEscaped(), it->type)
                : QStringLiteral("<span style='color: red;'>-complex-</span>");
            x.output(QStringLiteral("<div><span style='color: blue;'>%1</span>: %2</div>").arg(it.key(), value));
        }
    }

    static command_result dump_task(command_context& x)
    {
        if (x.arg(0).toLower() == QLatin1String("all")) {
            for (const QString& ident : x.c.task_manager().lines())
                explain(x, ident);
            return { true, x.arg(0) };
        }
        const QString ident = x.task(0);
        if (ident.isEmpty())
            return command_result::failure();
        explain(x, ident);
        return { true, ident };
    }

    // "<what>: <count>" after an import or export.
    static command_result counted(command_context& x, const QString& what, unsigned long count)
    {
        x.output(QStringLiteral("<div>%1: <span style='color: blue;'>%2</span></div>").arg(what).arg(count));
        return { true, QString::number(count) };
    }

    static command_result export_devices(command_context& x)
    {
        return counted(x, tr("Devices exported"), x.api.sapi_devices_export(x.arg(0), true));
    }

    static command_result export_report(command_context& x)
    {
        const int rows = x.c.export_report(x.arg(0));
        if (rows < 0)
            return x.error(tr("Can't write the report \"%1\"").arg(x.arg(0)));
        return counted(x, tr("Devices in the report"), ulong(rows));
    }

    static command_result import_devices(command_context& x)
    {
        return counted(x, tr("Devices imported"), x.api.sapi_devices_import(x.arg(0)));
    }

    static command_result fix_devices(command_context& x)
    {
        x.c.run_on_selection(tasks::names::fix, { { tasks::args::force, x.has_param(tasks::args::force) } });
        return command_result::success();
    }

    static command_result limit_tasks(command_context& x)
    {
        x.c.task_manager().set_limit(sapi::to_unsigned(x.arg(0)));
        return { true, x.arg(0) };
    }

    static command_result list_tasks(command_context& x)
    {
        const QStringList lines = x.c.task_manager().lines();
        x.output(tr("Total tasks: %1").arg(lines.size()));
        for (const QString& ident : lines) {
            const QString name = x.c.task_manager().find(ident)->get(tasks::keys::endpoint).value<endpoint>().name;
            x.output(name.isEmpty() ? ident : name.toHtmlEscaped());
        }
        return { true, QString::number(lines.size()) };
    }

    // Parses and does nothing: rebooting is an action of the menu.
    static command_result reboot_device(command_context&) { return command_result::failure(); }

    static command_result register_devices(command_context& x)
    {
        const QString type = x.call.params.value(QStringLiteral("type"), QStringLiteral("all")).toLower();
        if (type == QLatin1String("all") || type == QLatin1String("devices"))
            x.output(tr("Device registration is disabled."));
        if (type != QLatin1String("all") && type != QLatin1String("mac") && type != QLatin1String("devices"))
            return x.error(tr("Unknown registration type: %1").arg(type));
        if (type == QLatin1String("devices"))
            return command_result::failure();
        const QHostAddress ip = x.api.sapi_local_ip({});
        const QString mac = x.api.sapi_local_mac({});
        if (ip.isNull() || mac.isEmpty())
            return x.error(tr("Unable get IP- or MAC-address: IP %1, MAC %2.").arg(ip.toString(), mac));
        for (const QString& ident : x.c.selected_lines()) {
            const auto l = x.c.task_manager().find(ident);
            const QString serial = l->get(tasks::keys::serial).toString();
            if (serial.isEmpty())
                continue;
            const auto port = short(l->get(tasks::keys::endpoint).value<endpoint>().port);
            if (!x.api.sapi_register_mac(serial, port, mac, ip).value(QStringLiteral("result")).toBool()) {
                x.error(tr("Registration error for %1").arg(serial));
                return { false, QString() };
            }
        }
        return command_result::success();
    }

    static command_result reset_device_configuration(command_context& x)
    {
        const QString ident = x.task(0);
        if (ident.isEmpty())
            return command_result::failure();
        tasks::task reset(tasks::names::reset_configuration);
        reset.set(tasks::args::network_only, x.c.options().reset_only_network_settings);
        return queue_and_start(x, ident, reset);
    }

    static command_result run_task(command_context& x)
    {
        const QString ident = x.task(0);
        return ident.isEmpty() ? command_result::failure() : queue_and_start(x, ident);
    }

    static command_result scan_devices(command_context& x)
    {
        scanner& s = x.c.lan_scanner();
        if (x.call.args.isEmpty()) {
            if (x.c.task_manager().running_count() > 0)
                return x.error(tr("The queue is busy, unable to scan"));
            if (!x.c.scan())
                return command_result::failure();
            core& c = x.c;
            c.wait_while([&c] { return !c.scan_finished(); }, tr("Scanning..."), scripting::console::scanning);
            const int found = c.task_manager().count();
            x.output(QStringLiteral("%1: <span style='color: blue;'>%2</span>").arg(tr("Devices found")).arg(found));
            return { true, QString::number(found) };
        }
        const QString op = x.arg(0).toLower();
        if (op == QLatin1String("start")) {
            if (s.is_running())
                return x.error(tr("Already scanning"));
            const QString targets = x.call.params.value(QStringLiteral("targets"), QStringLiteral("16"));
            return x.c.scan(sapi::to_unsigned(targets)) ? command_result::success() : command_result::failure();
        }
        if (op == QLatin1String("stop")) {
            if (s.is_running()) {
                if (!s.is_autostop())
                    return x.error(tr("Basic scanning is impossible to stop"));
                s.stop();
                return command_result::success();
            }
            if (x.has_param(tasks::args::force))
                return { false, QString() };
            return x.error(tr("Already stopped"));
        }
        return x.error(tr("Unknown search command: %1").arg(x.arg(0)));
    }
};

} // namespace

void add_device_commands(command_table& table)
{
    device_commands::add_to(table);
}
