#pragma once

#include "tools/devsim/frame.h"

#include <QByteArray>
#include <QJsonObject>

namespace devsim
{

// One request as the device received it. Raw payloads (firmware data, configuration
// files) are kept as size and MD5 only, so a long upload doesn't pile up in memory.
struct request_record {
    quint16 message_id = 0;
    quint32 session = 0; // from the header
    quint32 sequence = 0;
    quint8 current_packet = 0;
    int size = 0;
    QByteArray body; // the text of a JSON request
    QByteArray md5; // hexadecimal, of a raw payload
    qint64 time_ms = 0; // since the epoch

    static request_record from_frame(const frame& f);
    static bool carries_raw_bytes(quint16 message_id);
    QJsonObject to_json() const;
};

} // namespace devsim
