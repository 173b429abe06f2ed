#pragma once

#include <QJsonArray>
#include <QJsonObject>
#include <QList>
#include <QString>

namespace devsim
{

// Turns the devices file and the command line into one description per device.
// Device i is made of, in rising precedence: its generated address (base + i) and
// port, the file's "defaults", the file's devices[i], then the command line's
// "--set" overrides in their order ("*" before the index they name).
class config_loader
{
public:
    // {"count": N, "base": "127.0.0.2", "port": 34567, "defaults": {...}, "devices": [{...}, ...]}
    bool load_file(const QString& path, QString* error);
    void set_count(int count) { m_count = count; }
    void set_base(const QString& base) { m_base = base; }
    void set_port(int port) { m_port = port; }
    // "<index or *>.<member>[.<member>...]=<value>"; the value is JSON when it reads
    // as JSON (300, true, {"delay_ms":5}), text otherwise.
    bool add_override(const QString& setting, QString* error);

    // Descriptions, each with a "faults" member when faults were given.
    bool descriptions(QList<QJsonObject>* out, QString* error) const;

private:
    struct value_override {
        int index; // -1 for every device
        QStringList path;
        QJsonValue value;
    };

    int m_count = -1;
    QString m_base;
    int m_port = -1;
    QJsonObject m_defaults;
    QJsonArray m_devices;
    QList<value_override> m_overrides;
};

} // namespace devsim
