#pragma once

#include <QJsonObject>
#include <QJsonValue>
#include <QList>
#include <QObject>

namespace devsim
{

class device;

// All devices of the process. The discovery side (UDP 34569: 1530 answered by
// 1531, configuration by broadcast 1532 answered by 1533) belongs here as one
// socket for all devices on 0.0.0.0:34569, since a socket bound to one loopback
// address receives no broadcasts; it answers from each device's network record.
class simulator final : public QObject
{
    Q_OBJECT
public:
    explicit simulator(QObject* parent = nullptr);
    ~simulator() override;
    Q_DISABLE_COPY_MOVE(simulator)

    // Makes one device per description; false on the first bad one.
    bool create(const QList<QJsonObject>& descriptions, QString* error);
    // Opens every listener; false on the first that can't bind.
    bool start(QString* error);

    int count() const { return m_devices.size(); }
    device* at(int index) const { return m_devices.value(index); }
    // An index, a device name, or "*" for all; empty when nothing matches.
    QList<device*> select(const QJsonValue& selector) const;

private:
    QList<device*> m_devices;
};

} // namespace devsim
