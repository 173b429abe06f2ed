#include "tools/devsim/simulator.h"

#include "tools/devsim/device.h"
#include "tools/devsim/devsim_log.h"
#include "tools/devsim/udp_service.h"

namespace devsim
{

simulator::simulator(QObject* parent)
    : QObject(parent)
{
}

simulator::~simulator() = default;

bool simulator::create(const QList<QJsonObject>& descriptions, QString* error)
{
    for (int i = 0; i < descriptions.size(); ++i) {
        QJsonObject description = descriptions.at(i);
        const QJsonValue faults_json = description.take("faults");
        device_state state;
        fault_set faults;
        QString why;
        if (!device_state::create(description, i, &state, &why)
            || (!faults_json.isUndefined() && !faults.merge(faults_json.toObject(), &why))) {
            *error = QStringLiteral("device %1: %2").arg(i).arg(why);
            return false;
        }
        for (const device* d : qAsConst(m_devices)) {
            if (d->state().name == state.name) {
                *error = QStringLiteral("device %1: the name \"%2\" is taken").arg(i).arg(state.name);
                return false;
            }
        }
        m_devices << new device(std::move(state), std::move(faults), this);
    }
    return true;
}

bool simulator::start(QString* error)
{
    for (device* d : qAsConst(m_devices)) {
        d->set_udp_port(m_udp_port);
        if (!d->start(error))
            return false;
    }
    if (m_udp_port == 0)
        return true;
    m_udp = std::make_unique<udp_service>(*this);
    QString why;
    if (!m_udp->start(m_udp_port, &why))
        qCWarning(lc_devsim, "%s; no discovery nor configuration by broadcast", qPrintable(why));
    return true;
}

QJsonObject simulator::udp_summary() const
{
    return QJsonObject { { "port", int(m_udp_port) }, { "bound", m_udp && m_udp->bound() } };
}

QList<device*> simulator::select(const QJsonValue& selector) const
{
    if (selector.isString() && selector.toString() == QLatin1String("*"))
        return m_devices;
    if (selector.isDouble()) {
        const int index = selector.toInt(-1);
        if (index >= 0 && index < m_devices.size() && selector.toDouble() == index)
            return { m_devices.at(index) };
        return {};
    }
    for (device* d : m_devices) {
        if (selector.isString() && d->state().name == selector.toString())
            return { d };
    }
    return {};
}

} // namespace devsim
