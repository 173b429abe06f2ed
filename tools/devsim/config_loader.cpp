#include "tools/devsim/config_loader.h"

#include <QFile>
#include <QHostAddress>
#include <QJsonDocument>
#include <QJsonParseError>

namespace devsim
{

namespace
{

    // Members that are objects merge one level down, so a device can change one fault
    // or one network member without repeating the others.
    void merge_into(QJsonObject& target, const QJsonObject& changes)
    {
        for (auto it = changes.begin(); it != changes.end(); ++it) {
            const QJsonValue old = target.value(it.key());
            if (old.isObject() && it.value().isObject()) {
                QJsonObject merged = old.toObject();
                const QJsonObject inner = it.value().toObject();
                for (auto in = inner.begin(); in != inner.end(); ++in)
                    merged.insert(in.key(), in.value());
                target.insert(it.key(), merged);
            } else {
                target.insert(it.key(), it.value());
            }
        }
    }

    QJsonValue with_path(const QJsonValue& base, const QStringList& path, int at, const QJsonValue& value)
    {
        if (at == path.size())
            return value;
        QJsonObject o = base.toObject();
        o.insert(path.at(at), with_path(o.value(path.at(at)), path, at + 1, value));
        return o;
    }

    QJsonValue parse_value(const QString& text)
    {
        // Qt reads only arrays and objects at the top, so a scalar goes in an array.
        QJsonParseError error {};
        const QJsonDocument doc = QJsonDocument::fromJson("[" + text.toUtf8() + "]", &error);
        if (error.error == QJsonParseError::NoError && doc.array().size() == 1)
            return doc.array().at(0);
        return text;
    }

} // namespace

bool config_loader::load_file(const QString& path, QString* error)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) {
        *error = QStringLiteral("can't read %1: %2").arg(path, file.errorString());
        return false;
    }
    QJsonParseError parse_error {};
    const QJsonDocument doc = QJsonDocument::fromJson(file.readAll(), &parse_error);
    if (!doc.isObject()) {
        *error = QStringLiteral("%1 isn't a JSON object: %2").arg(path, parse_error.errorString());
        return false;
    }
    const QJsonObject root = doc.object();
    for (auto it = root.begin(); it != root.end(); ++it) {
        const QString& key = it.key();
        if (key == QLatin1String("count") && it.value().isDouble() && it.value().toInt() >= 0) {
            if (m_count < 0)
                m_count = it.value().toInt();
        } else if (key == QLatin1String("base") && it.value().isString()) {
            if (m_base.isEmpty())
                m_base = it.value().toString();
        } else if (key == QLatin1String("port") && it.value().isDouble()) {
            if (m_port < 0)
                m_port = it.value().toInt();
        } else if (key == QLatin1String("defaults") && it.value().isObject()) {
            m_defaults = it.value().toObject();
        } else if (key == QLatin1String("devices") && it.value().isArray()) {
            m_devices = it.value().toArray();
        } else {
            *error = QStringLiteral("%1: bad or unknown member \"%2\"").arg(path, key);
            return false;
        }
    }
    return true;
}

bool config_loader::add_override(const QString& setting, QString* error)
{
    const int eq = setting.indexOf(QLatin1Char('='));
    const QStringList path = setting.left(eq).split(QLatin1Char('.'));
    if (eq < 0 || path.size() < 2 || path.contains(QString())) {
        *error = QStringLiteral("\"%1\" isn't <index or *>.<member>=<value>").arg(setting);
        return false;
    }
    value_override o;
    if (path.first() == QLatin1String("*")) {
        o.index = -1;
    } else {
        bool ok = false;
        o.index = path.first().toInt(&ok);
        if (!ok || o.index < 0) {
            *error = QStringLiteral("\"%1\": bad device index").arg(setting);
            return false;
        }
    }
    o.path = path.mid(1);
    o.value = parse_value(setting.mid(eq + 1));
    m_overrides << o;
    return true;
}

bool config_loader::descriptions(QList<QJsonObject>* out, QString* error) const
{
    const int count = m_count >= 0 ? m_count : qMax(1, m_devices.size());
    QHostAddress base;
    if (!base.setAddress(m_base.isEmpty() ? QStringLiteral("127.0.0.2") : m_base)
        || base.protocol() != QAbstractSocket::IPv4Protocol) {
        *error = QStringLiteral("bad base address \"%1\"").arg(m_base);
        return false;
    }
    const int port = m_port >= 0 ? m_port : 34567;

    QList<QJsonObject> list;
    for (int i = 0; i < count; ++i) {
        const quint32 address = base.toIPv4Address() + quint32(i);
        QJsonObject d { { "address", QHostAddress(address).toString() }, { "port", port } };
        merge_into(d, m_defaults);
        if (i < m_devices.size()) {
            if (!m_devices.at(i).isObject()) {
                *error = QStringLiteral("device %1 isn't an object").arg(i);
                return false;
            }
            merge_into(d, m_devices.at(i).toObject());
        }
        for (const value_override& o : m_overrides) {
            if (o.index == -1 || o.index == i)
                d = with_path(d, o.path, 0, o.value).toObject();
        }
        list << d;
    }
    for (const value_override& o : m_overrides) {
        if (o.index >= count) {
            *error = QStringLiteral("override for device %1 of %2").arg(o.index).arg(count);
            return false;
        }
    }
    *out = list;
    return true;
}

} // namespace devsim
