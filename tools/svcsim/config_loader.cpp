#include "tools/svcsim/config_loader.h"

#include <QFile>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonParseError>
#include <QStringList>

#include "tools/svcsim/fault_table.h"
#include "tools/svcsim/firmware_store.h"
#include "tools/svcsim/fleet.h"
#include "tools/svcsim/repository.h"

namespace svcsim
{

namespace
{

    const QStringList known_members { "client_id", "client_key", "address", "port", "default", "files", "fleet",
        "faults", "repository" };

} // namespace

bool config_loader::load_file(const QString& path, QString* error)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) {
        *error = QStringLiteral("can't read %1: %2").arg(path, file.errorString());
        return false;
    }
    QJsonParseError parse {};
    const QJsonDocument doc = QJsonDocument::fromJson(file.readAll(), &parse);
    if (!doc.isObject()) {
        *error = QStringLiteral("%1 isn't a JSON object: %2").arg(path, parse.errorString());
        return false;
    }
    m_config = doc.object();
    for (auto it = m_config.begin(); it != m_config.end(); ++it) {
        if (!known_members.contains(it.key())) {
            *error = QStringLiteral("%1: unknown member \"%2\"").arg(path, it.key());
            return false;
        }
    }
    const bool bad_shape = (m_config.contains("files") && !m_config.value("files").isArray())
        || (m_config.contains("fleet") && !m_config.value("fleet").isObject())
        || (m_config.contains("faults") && !m_config.value("faults").isObject())
        || (m_config.contains("repository") && !m_config.value("repository").isObject());
    if (bad_shape) {
        *error = QStringLiteral("%1: \"files\" must be an array, \"fleet\", \"faults\" and \"repository\" objects")
                     .arg(path);
        return false;
    }
    m_base = QFileInfo(path).absoluteDir();
    return true;
}

bool config_loader::apply(fleet& devices, firmware_store& store, fault_table& faults, QString* error) const
{
    if (m_config.contains("default")) {
        fleet_entry entry;
        if (!fleet_entry::from_json(m_config.value("default"), store, &entry, error)) {
            *error = QStringLiteral("default: %1").arg(*error);
            return false;
        }
        devices.set_default(entry);
    }

    const QJsonArray files = m_config.value("files").toArray();
    for (const QJsonValue& f : files) {
        if (store.add_file(f.toString(), error).isEmpty())
            return false;
    }

    const QJsonObject list = m_config.value("fleet").toObject();
    for (auto it = list.begin(); it != list.end(); ++it) {
        fleet_entry entry;
        QJsonValue value = it.value();
        if (value.isObject()) {
            QJsonObject members = value.toObject();
            if (!faults.set_from_json(members.take("faults").toObject(), it.key(), error)) {
                *error = QStringLiteral("fleet \"%1\": %2").arg(it.key(), *error);
                return false;
            }
            value = members;
        }
        if (!fleet_entry::from_json(value, store, &entry, error)) {
            *error = QStringLiteral("fleet \"%1\": %2").arg(it.key(), *error);
            return false;
        }
        devices.set(it.key(), entry);
    }

    if (!faults.set_from_json(m_config.value("faults").toObject(), QString(), error)) {
        *error = QStringLiteral("faults: %1").arg(*error);
        return false;
    }
    return true;
}

bool config_loader::apply(repository& builds, QString* error) const
{
    if (builds.set_from_json(m_config.value("repository").toObject(), error))
        return true;
    *error = QStringLiteral("repository: %1").arg(*error);
    return false;
}

} // namespace svcsim
