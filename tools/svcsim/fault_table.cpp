#include "tools/svcsim/fault_table.h"

namespace svcsim
{

void fault_table::set(request_kind kind, const QString& serial, const fault& f)
{
    const key k(int(kind), serial);
    if (f.empty() || f.times == 0)
        m_faults.remove(k);
    else
        m_faults.insert(k, f);
}

bool fault_table::set_from_json(const QJsonObject& by_kind, const QString& serial, QString* error)
{
    for (auto it = by_kind.begin(); it != by_kind.end(); ++it) {
        const bool every = it.key() == QLatin1String("*");
        const request_kind kind = kind_from_name(it.key());
        if (!every && kind == request_kind::other) {
            *error = QStringLiteral("unknown request kind \"%1\" in faults").arg(it.key());
            return false;
        }
        if (!it.value().isObject()) {
            *error = QStringLiteral("the fault for \"%1\" must be an object").arg(it.key());
            return false;
        }
        fault f;
        if (!fault::from_json(it.value().toObject(), &f, error))
            return false;
        if (every) {
            for (const request_kind k : { request_kind::update, request_kind::file, request_kind::confirm })
                set(k, serial, f);
        } else {
            set(kind, serial, f);
        }
    }
    return true;
}

void fault_table::clear(const QString& serial)
{
    if (serial.isEmpty()) {
        m_faults.clear();
        return;
    }
    for (auto it = m_faults.begin(); it != m_faults.end();) {
        if (it.key().second == serial)
            it = m_faults.erase(it);
        else
            ++it;
    }
}

fault fault_table::take(request_kind kind, const QString& serial)
{
    auto it = m_faults.find(key(int(kind), serial));
    if (it == m_faults.end())
        it = m_faults.find(key(int(kind), QString()));
    if (it == m_faults.end())
        return {};
    const fault f = it.value();
    if (it->times > 0 && --it->times == 0)
        m_faults.erase(it);
    return f;
}

QJsonObject fault_table::to_json() const
{
    QJsonObject all;
    QJsonObject serials;
    for (auto it = m_faults.begin(); it != m_faults.end(); ++it) {
        const QString kind = kind_name(request_kind(it.key().first));
        if (it.key().second.isEmpty()) {
            all.insert(kind, it.value().to_json());
        } else {
            QJsonObject mine = serials.value(it.key().second).toObject();
            mine.insert(kind, it.value().to_json());
            serials.insert(it.key().second, mine);
        }
    }
    return QJsonObject { { "all", all }, { "serials", serials } };
}

} // namespace svcsim
