#pragma once

#include "tools/devsim/frame.h"

#include <QByteArray>
#include <QJsonObject>

namespace devsim
{

// One request as the device received it. Raw payloads are never kept: a
// configuration file leaves its size and MD5, a firmware chunk its size only (the
// upload hashes the whole image, and a second hash per chunk would halve its speed).
struct request_record {
    quint16 message_id = 0;
    quint32 session = 0; // from the header
    quint32 sequence = 0;
    quint8 current_packet = 0;
    int size = 0;
    QByteArray body; // the text of a JSON request
    QByteArray md5; // hexadecimal, of a configuration file
    qint64 time_ms = 0; // since the epoch
    QString peer; // "address:port" of a UDP sender; empty for TCP

    static request_record from_frame(const frame& f);
    static bool carries_raw_bytes(quint16 message_id);
    QJsonObject to_json() const;
};

} // namespace devsim
