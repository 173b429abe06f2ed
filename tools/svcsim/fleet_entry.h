#pragma once

#include <QJsonObject>
#include <QJsonValue>
#include <QList>
#include <QString>

namespace svcsim
{

class firmware_store;

// What the service says about one serial: a verdict with its offers, or a plain
// error in place of any answer ("E:9" for a device that isn't registered).
struct fleet_entry {
    struct offer {
        QString firmware; // identifier: lower-case hexadecimal MD5
        int type = 1; // 1 IPC, 2 DVR
        QJsonValue sdk_type = QJsonValue::Null; // "legacy", "xcloud", "xnet" or null
        QString file; // where it came from, when the configuration named a file
    };

    QString verdict = QStringLiteral("no_binding");
    QList<offer> offers;
    uint error = 0; // non-zero: update and confirm answer "E:<error>"

    // {"verdict": "pending", "offers": [offer...]} or {"error": 9}; a bare text is
    // a verdict. An offer is {"file": path | "firmware": md5, "type": 1,
    // "sdk_type": "legacy" | null} or a path alone. Files are registered with
    // `store`, which hashes them.
    static bool from_json(const QJsonValue& json, firmware_store& store, fleet_entry* out, QString* error);
    QJsonObject to_json() const;
    // {"resp": ..., "updates": [...]}, the plain text of the update answer.
    QJsonObject answer() const;
};

} // namespace svcsim
