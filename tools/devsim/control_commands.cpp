#include "tools/devsim/control_commands.h"

#include <QJsonArray>

#include "tools/devsim/device.h"
#include "tools/devsim/simulator.h"

namespace devsim
{

namespace
{

    QJsonObject failure(const QString& why)
    {
        return QJsonObject { { "ok", false }, { "error", why } };
    }

    const QJsonObject success { { "ok", true } };

} // namespace

control_commands::control_commands(simulator& sim)
    : m_sim(sim)
{
}

QJsonObject control_commands::execute(const QJsonObject& command)
{
    const QString cmd = command.value("cmd").toString();
    QJsonObject answer;
    if (cmd == QLatin1String("ping")) {
        answer = success;
    } else if (cmd == QLatin1String("list")) {
        answer = list();
    } else if (cmd == QLatin1String("requests")) {
        answer = for_devices(command, false, &control_commands::requests);
    } else if (cmd == QLatin1String("clear_requests")) {
        answer = for_devices(command, true, &control_commands::clear_requests);
    } else if (cmd == QLatin1String("get_state")) {
        answer = for_devices(command, false, &control_commands::get_state);
    } else if (cmd == QLatin1String("set_state")) {
        answer = for_devices(command, true, &control_commands::set_state);
    } else if (cmd == QLatin1String("get_faults")) {
        answer = for_devices(command, false, &control_commands::get_faults);
    } else if (cmd == QLatin1String("set_faults")) {
        answer = for_devices(command, true, &control_commands::set_faults);
    } else if (cmd == QLatin1String("clear_faults")) {
        answer = for_devices(command, true, &control_commands::clear_faults);
    } else if (cmd == QLatin1String("reboot")) {
        answer = for_devices(command, true, &control_commands::reboot);
    } else if (cmd == QLatin1String("quit")) {
        m_quit = true;
        answer = success;
    } else {
        answer = failure(QStringLiteral("unknown command \"%1\"").arg(cmd));
    }
    // Lets a client match answers to commands when it pipelines them.
    if (command.contains("tag"))
        answer.insert("tag", command.value("tag"));
    return answer;
}

QJsonObject control_commands::list() const
{
    QJsonArray devices;
    for (int i = 0; i < m_sim.count(); ++i) {
        QJsonObject s = m_sim.at(i)->summary();
        s.insert("index", i);
        devices.append(s);
    }
    QJsonObject answer = success;
    answer.insert("devices", devices);
    answer.insert("udp", m_sim.udp_summary());
    return answer;
}

QJsonObject control_commands::for_devices(
    const QJsonObject& command, bool many_allowed, QJsonObject (control_commands::*what)(device&, const QJsonObject&))
{
    const QJsonValue selector = command.value("device");
    const QList<device*> devices = m_sim.select(selector);
    if (devices.isEmpty())
        return failure(QStringLiteral("no such device"));
    if (devices.size() > 1 && !many_allowed)
        return failure(QStringLiteral("one device at a time"));
    // Every device gets the same change, and whether it is taken depends on the
    // change alone, so a bad one is refused at the first device, before any changed.
    QJsonObject answer;
    for (device* d : devices) {
        answer = (this->*what)(*d, command);
        if (!answer.value("ok").toBool())
            return answer;
    }
    return answer;
}

QJsonObject control_commands::requests(device& d, const QJsonObject& command)
{
    QJsonObject answer = success;
    answer.insert("requests", d.requests().to_json());
    answer.insert("dropped", double(d.requests().dropped()));
    if (command.value("clear").toBool())
        d.requests().clear();
    return answer;
}

QJsonObject control_commands::clear_requests(device& d, const QJsonObject&)
{
    d.requests().clear();
    return success;
}

QJsonObject control_commands::get_state(device& d, const QJsonObject&)
{
    QJsonObject answer = success;
    answer.insert("state", d.to_json());
    return answer;
}

QJsonObject control_commands::set_state(device& d, const QJsonObject& command)
{
    if (!command.value("state").isObject())
        return failure(QStringLiteral("\"state\" must be an object"));
    QString error;
    if (!d.state().apply(command.value("state").toObject(), &error))
        return failure(error);
    return success;
}

QJsonObject control_commands::get_faults(device& d, const QJsonObject&)
{
    QJsonObject answer = success;
    answer.insert("faults", d.faults().to_json());
    return answer;
}

QJsonObject control_commands::set_faults(device& d, const QJsonObject& command)
{
    if (!command.value("faults").isObject())
        return failure(QStringLiteral("\"faults\" must be an object"));
    QString error;
    if (!d.faults().merge(command.value("faults").toObject(), &error))
        return failure(error);
    return success;
}

QJsonObject control_commands::clear_faults(device& d, const QJsonObject&)
{
    d.faults() = fault_set();
    return success;
}

QJsonObject control_commands::reboot(device& d, const QJsonObject&)
{
    d.reboot();
    return success;
}

} // namespace devsim
