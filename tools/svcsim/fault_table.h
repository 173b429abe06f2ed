#pragma once

#include <QHash>
#include <QJsonObject>
#include <QPair>
#include <QString>

#include "tools/svcsim/fault.h"
#include "tools/svcsim/request_kind.h"

namespace svcsim
{

// The faults in force, by request kind and optionally by serial. A serial's own
// fault for a kind wins over the fault of that kind for every serial.
class fault_table
{
public:
    // An empty serial means every serial; an empty fault removes the entry.
    void set(request_kind kind, const QString& serial, const fault& f);
    // Reads {"update": {...}, "file": {...}, "confirm": {...}} for one serial or,
    // with an empty one, for all; "*" as a key stands for the three kinds.
    bool set_from_json(const QJsonObject& by_kind, const QString& serial, QString* error);
    // Every fault of this serial, or all of them when it is empty.
    void clear(const QString& serial = {});

    // The fault that applies to this request, counted as used: a fault with a
    // number of times wears off.
    fault take(request_kind kind, const QString& serial);

    // {"all": {kind: fault}, "serials": {serial: {kind: fault}}}
    QJsonObject to_json() const;

private:
    using key = QPair<int, QString>;
    QHash<key, fault> m_faults;
};

} // namespace svcsim
