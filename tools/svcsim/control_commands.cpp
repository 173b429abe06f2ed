#include "tools/svcsim/control_commands.h"

#include "tools/svcsim/fault.h"
#include "tools/svcsim/fault_table.h"
#include "tools/svcsim/firmware_store.h"
#include "tools/svcsim/fleet.h"
#include "tools/svcsim/http_server.h"
#include "tools/svcsim/repository.h"
#include "tools/svcsim/request_log.h"

namespace svcsim
{

namespace
{

    QJsonObject failure(const QString& why)
    {
        return QJsonObject { { "ok", false }, { "error", why } };
    }

    const QJsonObject success { { "ok", true } };

    QJsonObject with(QJsonObject answer, const QString& name, const QJsonValue& value)
    {
        answer.insert(name, value);
        return answer;
    }

} // namespace

control_commands::control_commands(fleet& devices, firmware_store& store, fault_table& faults, request_log& log,
    const http_server& server, repository& builds)
    : m_devices(devices)
    , m_store(store)
    , m_faults(faults)
    , m_log(log)
    , m_server(server)
    , m_builds(builds)
{
}

QJsonObject control_commands::execute(const QJsonObject& command)
{
    const QString cmd = command.value("cmd").toString();
    QJsonObject answer;
    if (cmd == QLatin1String("ping")) {
        answer = success;
    } else if (cmd == QLatin1String("stats")) {
        answer = stats();
    } else if (cmd == QLatin1String("requests")) {
        answer = requests(command);
    } else if (cmd == QLatin1String("clear_requests")) {
        m_log.clear();
        answer = success;
    } else if (cmd == QLatin1String("get_faults")) {
        answer = with(success, "faults", m_faults.to_json());
    } else if (cmd == QLatin1String("set_fault")) {
        answer = set_fault(command);
    } else if (cmd == QLatin1String("clear_faults")) {
        m_faults.clear(command.value("serial").toString());
        answer = success;
    } else if (cmd == QLatin1String("get_verdict")) {
        answer = get_verdict(command);
    } else if (cmd == QLatin1String("set_verdict")) {
        answer = set_verdict(command);
    } else if (cmd == QLatin1String("add_file")) {
        answer = add_file(command);
    } else if (cmd == QLatin1String("firmwares")) {
        answer = with(success, "firmwares", m_store.to_json());
    } else if (cmd == QLatin1String("set_repository")) {
        QJsonObject members = command;
        members.remove("cmd");
        members.remove("tag");
        QString error;
        answer = m_builds.set_from_json(members, &error) ? with(success, "repository", m_builds.to_json()) : failure(error);
    } else if (cmd == QLatin1String("get_repository")) {
        answer = with(success, "repository", m_builds.to_json());
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

QJsonObject control_commands::stats() const
{
    QJsonObject answer = success;
    answer.insert("counts", m_log.counts());
    answer.insert("recorded", m_log.size());
    answer.insert("connections", m_server.open_connections());
    answer.insert("connections_total", double(m_server.total_connections()));
    answer.insert("seals", m_store.seal_count());
    answer.insert("serials", m_devices.count());
    answer.insert("firmwares", m_store.count());
    return answer;
}

QJsonObject control_commands::requests(const QJsonObject& command)
{
    const QString kind = command.value("kind").toString();
    if (!kind.isEmpty() && kind_from_name(kind) == request_kind::other && kind != QLatin1String("other"))
        return failure(QStringLiteral("unknown request kind \"%1\"").arg(kind));
    QJsonObject answer = with(success, "requests", m_log.to_json(kind, command.value("serial").toString()));
    // Clearing drops every record, not only the ones listed.
    if (command.value("clear").toBool())
        m_log.clear();
    return answer;
}

QJsonObject control_commands::set_fault(const QJsonObject& command)
{
    const QString kind = command.value("kind").toString();
    if (!command.value("fault").isObject())
        return failure(QStringLiteral("set_fault needs a \"fault\" object"));
    QString error;
    if (!m_faults.set_from_json(
            QJsonObject { { kind, command.value("fault") } }, command.value("serial").toString(), &error))
        return failure(error);
    return success;
}

QJsonObject control_commands::get_verdict(const QJsonObject& command) const
{
    const QString serial = command.value("serial").toString();
    QJsonObject answer = with(success, "entry", m_devices.entry_for(serial).to_json());
    answer.insert("known", m_devices.contains(serial));
    return answer;
}

QJsonObject control_commands::set_verdict(const QJsonObject& command)
{
    const bool for_default = command.value("default").toBool();
    const QString serial = command.value("serial").toString();
    if (!for_default && !command.value("serial").isString())
        return failure(QStringLiteral("set_verdict needs \"serial\" or \"default\": true"));
    if (command.value("remove").toBool()) {
        if (for_default)
            return failure(QStringLiteral("the default can't be removed"));
        m_devices.remove(serial);
        return success;
    }
    if (for_default && command.contains("faults"))
        return failure(QStringLiteral("faults belong to a serial; use set_fault for all"));
    QJsonObject members = command;
    for (const char* name : { "cmd", "serial", "default", "tag", "faults" })
        members.remove(name);
    fleet_entry entry;
    QString error;
    if (!fleet_entry::from_json(members, m_store, &entry, &error))
        return failure(error);
    if (command.value("faults").isObject()
        && !m_faults.set_from_json(command.value("faults").toObject(), serial, &error))
        return failure(error);
    if (for_default)
        m_devices.set_default(entry);
    else
        m_devices.set(serial, entry);
    return with(success, "entry", entry.to_json());
}

QJsonObject control_commands::add_file(const QJsonObject& command)
{
    QString error;
    const QString firmware = m_store.add_file(command.value("path").toString(), &error);
    if (firmware.isEmpty())
        return failure(error);
    return with(success, "firmware", firmware);
}

} // namespace svcsim
