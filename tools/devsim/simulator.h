#pragma once

#include <QJsonObject>
#include <QJsonValue>
#include <QList>
#include <QObject>

#include <memory>

namespace devsim
{

class device;
class udp_service;

// All devices of the process, with their shared UDP side (discovery and
// configuration by broadcast, see udp_service).
class simulator final : public QObject
{
    Q_OBJECT
public:
    explicit simulator(QObject* parent = nullptr);
    ~simulator() override;
    Q_DISABLE_COPY_MOVE(simulator)

    // Makes one device per description; false on the first bad one.
    bool create(const QList<QJsonObject>& descriptions, QString* error);
    // 0 leaves the UDP side off; the default is 34569.
    void set_udp_port(quint16 port) { m_udp_port = port; }
    // Opens every listener; false on the first that can't bind. The UDP side is
    // opened last; when its port is taken that is logged and it stays off.
    bool start(QString* error);
    // The UDP port and whether the shared socket is bound.
    QJsonObject udp_summary() const;

    int count() const { return m_devices.size(); }
    device* at(int index) const { return m_devices.value(index); }
    // An index, a device name, or "*" for all; empty when nothing matches.
    QList<device*> select(const QJsonValue& selector) const;

private:
    QList<device*> m_devices;
    quint16 m_udp_port = 34569;
    std::unique_ptr<udp_service> m_udp;
};

} // namespace devsim
