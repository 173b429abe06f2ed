#pragma once

#include <QJsonObject>
#include <QJsonValue>
#include <QString>

#include "tools/svcsim/request_kind.h"

namespace svcsim
{

// One request as the service understood it, and what it answered.
struct request_record {
    qint64 sequence = 0; // from 1, over the whole run
    request_kind kind = request_kind::other;
    QString path; // as sent
    QString serial;
    QString version; // file: the firmware identifier asked for
    QJsonValue query = QJsonValue::Null; // update: the query object, null when empty
    bool force = false; // update: flags bit 1
    QString nonce; // decimal, since it doesn't fit a JSON number
    QString method; // rpc: the method called
    QJsonValue params = QJsonValue::Null; // rpc: its parameters as sent
    QJsonValue id = QJsonValue::Null; // rpc: the call's id
    QString answer; // "ok", "E:<n>", "garbage", "drop", "sealed", "http <status>", "none"; rpc: "error <code>"
    bool fault = false; // the answer came from a fault
    int delay_ms = 0;
    qint64 time_ms = 0; // arrival, milliseconds since the epoch

    QJsonObject to_json() const;
};

} // namespace svcsim
