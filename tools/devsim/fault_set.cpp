#include "tools/devsim/fault_set.h"

#include <QJsonArray>

#include <algorithm>
#include <limits>

namespace devsim
{

namespace
{

    bool to_id(const QJsonValue& v, quint16* id)
    {
        if (!v.isDouble() || v.toDouble() != v.toInt() || v.toInt() < 0 || v.toInt() > 0xFFFF)
            return false;
        *id = quint16(v.toInt());
        return true;
    }

    bool to_id(const QString& key, quint16* id)
    {
        bool ok = false;
        const uint value = key.toUInt(&ok);
        if (!ok || value > 0xFFFF)
            return false;
        *id = quint16(value);
        return true;
    }

    // A list of ids; a single number is taken as a list of one.
    bool read_ids(const QJsonValue& v, QSet<quint16>* out)
    {
        QSet<quint16> ids;
        const QJsonArray items = v.isArray() ? v.toArray() : QJsonArray { v };
        for (const QJsonValue& item : items) {
            quint16 id = 0;
            if (!to_id(item, &id))
                return false;
            ids.insert(id);
        }
        *out = ids;
        return true;
    }

    // {"1020": 607}: message id to number.
    bool read_map(const QJsonValue& v, QHash<quint16, int>* out)
    {
        if (!v.isObject())
            return false;
        QHash<quint16, int> map;
        const QJsonObject o = v.toObject();
        for (auto it = o.begin(); it != o.end(); ++it) {
            quint16 id = 0;
            if (!to_id(it.key(), &id) || !it.value().isDouble() || it.value().toInt() < 0)
                return false;
            map.insert(id, it.value().toInt());
        }
        *out = map;
        return true;
    }

    // {"3": 514}: chunk number to Ret.
    bool read_chunk_map(const QJsonValue& v, QHash<quint32, int>* out)
    {
        if (!v.isObject())
            return false;
        QHash<quint32, int> map;
        const QJsonObject o = v.toObject();
        for (auto it = o.begin(); it != o.end(); ++it) {
            bool ok = false;
            const uint chunk = it.key().toUInt(&ok);
            if (!ok || !it.value().isDouble() || it.value().toInt() < 0)
                return false;
            map.insert(chunk, it.value().toInt());
        }
        *out = map;
        return true;
    }

    // -1 switches a percentage or chunk fault off.
    bool read_optional(const QJsonValue& v, int* out, int high)
    {
        if (!v.isDouble() || v.toDouble() != v.toInt() || v.toInt() < -1 || v.toInt() > high)
            return false;
        *out = v.toInt();
        return true;
    }

    QJsonArray ids_json(const QSet<quint16>& ids)
    {
        QList<quint16> sorted = ids.values();
        std::sort(sorted.begin(), sorted.end());
        QJsonArray out;
        for (quint16 id : sorted)
            out.append(int(id));
        return out;
    }

    template <typename Key> QJsonObject map_json(const QHash<Key, int>& map)
    {
        QJsonObject out;
        for (auto it = map.begin(); it != map.end(); ++it)
            out.insert(QString::number(it.key()), it.value());
        return out;
    }

} // namespace

bool fault_set::merge(const QJsonObject& members, QString* error)
{
    fault_set f = *this;
    for (auto it = members.begin(); it != members.end(); ++it) {
        const QString& key = it.key();
        const QJsonValue& v = it.value();
        bool good = true;
        if (key == QLatin1String("refuse_login") || key == QLatin1String("lock_user")) {
            good = v.isBool();
            (key == QLatin1String("refuse_login") ? f.refuse_login : f.lock_user) = v.toBool();
        } else if (key == QLatin1String("silent_at")) {
            good = read_ids(v, &f.silent_at);
        } else if (key == QLatin1String("close_at")) {
            good = read_ids(v, &f.close_at);
        } else if (key == QLatin1String("close_after")) {
            good = read_ids(v, &f.close_after);
        } else if (key == QLatin1String("wrong_ret")) {
            good = read_map(v, &f.wrong_ret);
        } else if (key == QLatin1String("delay_ms")) {
            good = v.isDouble() && v.toInt() >= 0;
            f.delay_ms = v.toInt();
        } else if (key == QLatin1String("delay_at")) {
            good = read_map(v, &f.delay_at);
        } else if (key == QLatin1String("refuse_upgrade") || key == QLatin1String("leading_zeros")
            || key == QLatin1String("keep_version")) {
            good = v.isBool();
            (key == QLatin1String("refuse_upgrade")      ? f.refuse_upgrade
                    : key == QLatin1String("keep_version") ? f.keep_version
                                                           : f.leading_zeros)
                = v.toBool();
        } else if (key == QLatin1String("chunk_ret")) {
            good = read_chunk_map(v, &f.chunk_ret);
        } else if (key == QLatin1String("drop_at_chunk")) {
            good = read_optional(v, &f.drop_at_chunk, std::numeric_limits<int>::max());
        } else if (key == QLatin1String("eof_ret")) {
            good = v.isDouble() && v.toInt() >= 0 && v.toInt() <= 0xFFFF;
            f.eof_ret = v.toInt();
        } else if (key == QLatin1String("progress_drop_at")) {
            good = read_optional(v, &f.progress_drop_at, 100);
        } else if (key == QLatin1String("progress_stall_at")) {
            good = read_optional(v, &f.progress_stall_at, 100);
        } else if (key == QLatin1String("discovery_skip")) {
            good = v.isDouble() && v.toDouble() == v.toInt() && v.toInt() >= 0;
            f.discovery_skip = v.toInt();
        } else if (key == QLatin1String("discovery_body")) {
            good = v.isString();
            f.discovery_body = v.toString();
        } else {
            *error = QStringLiteral("unknown fault \"%1\"").arg(key);
            return false;
        }
        if (!good) {
            *error = QStringLiteral("bad value for fault \"%1\"").arg(key);
            return false;
        }
    }
    *this = f;
    return true;
}

QJsonObject fault_set::to_json() const
{
    return QJsonObject {
        { "refuse_login", refuse_login },
        { "lock_user", lock_user },
        { "silent_at", ids_json(silent_at) },
        { "close_at", ids_json(close_at) },
        { "close_after", ids_json(close_after) },
        { "wrong_ret", map_json(wrong_ret) },
        { "delay_ms", delay_ms },
        { "delay_at", map_json(delay_at) },
        { "refuse_upgrade", refuse_upgrade },
        { "chunk_ret", map_json(chunk_ret) },
        { "drop_at_chunk", drop_at_chunk },
        { "eof_ret", eof_ret },
        { "progress_drop_at", progress_drop_at },
        { "progress_stall_at", progress_stall_at },
        { "keep_version", keep_version },
        { "discovery_skip", discovery_skip },
        { "leading_zeros", leading_zeros },
        { "discovery_body", discovery_body },
    };
}

bool fault_set::skip_discovery()
{
    if (discovery_skip <= 0)
        return false;
    --discovery_skip;
    return true;
}

} // namespace devsim
