#include "tools/devsim/request_record.h"

#include <QCryptographicHash>
#include <QDateTime>

namespace devsim
{

bool request_record::carries_raw_bytes(quint16 message_id)
{
    return message_id == 1522 || message_id == 1540;
}

request_record request_record::from_frame(const frame& f)
{
    request_record r;
    r.message_id = f.message_id;
    r.session = f.session;
    r.sequence = f.sequence;
    r.current_packet = f.current_packet;
    r.size = f.payload.size();
    if (f.message_id == 1540)
        r.md5 = QCryptographicHash::hash(f.payload, QCryptographicHash::Md5).toHex();
    else if (!carries_raw_bytes(f.message_id))
        r.body = f.payload;
    r.time_ms = QDateTime::currentMSecsSinceEpoch();
    return r;
}

QJsonObject request_record::to_json() const
{
    QJsonObject out {
        { "id", int(message_id) },
        { "session", double(session) },
        { "sequence", double(sequence) },
        { "current_packet", int(current_packet) },
        { "size", size },
        { "time_ms", double(time_ms) },
    };
    if (!md5.isEmpty())
        out.insert("md5", QString::fromLatin1(md5));
    else if (!carries_raw_bytes(message_id))
        out.insert("body", QString::fromUtf8(body));
    if (!peer.isEmpty()) {
        out.insert("udp", true);
        out.insert("peer", peer);
    }
    return out;
}

} // namespace devsim
