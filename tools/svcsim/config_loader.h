#pragma once

#include <QDir>
#include <QJsonObject>
#include <QString>

namespace svcsim
{

class fault_table;
class firmware_store;
class fleet;
class repository;

// Reads the service's configuration file (see README.md): identity, where to
// listen, the fleet's verdicts and files, and the faults to start with.
class config_loader
{
public:
    // Without a file every value is its default.
    bool load_file(const QString& path, QString* error);

    // Relative firmware paths are taken from here: the file's folder.
    const QDir& base() const { return m_base; }
    QString client_id() const { return m_config.value("client_id").toString(); }
    QString client_key() const { return m_config.value("client_key").toString(); }
    QString address() const { return m_config.value("address").toString(QStringLiteral("127.0.0.1")); }
    int port() const { return m_config.value("port").toInt(8088); }

    // Fills the tables; files are hashed here, so this takes a while for large ones.
    bool apply(fleet& devices, firmware_store& store, fault_table& faults, QString* error) const;
    // The build repository's offer, when the file has one.
    bool apply(repository& builds, QString* error) const;

private:
    QJsonObject m_config;
    QDir m_base = QDir::current();
};

} // namespace svcsim
