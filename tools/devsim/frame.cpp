#include "tools/devsim/frame.h"

#include <QtEndian>

namespace devsim
{

QByteArray frame::encode() const
{
    QByteArray out(header_size, '\0');
    auto* p = reinterpret_cast<uchar*>(out.data());
    p[0] = head;
    p[1] = version;
    p[2] = reserved1;
    p[3] = reserved2;
    qToLittleEndian<quint32>(session, p + 4);
    qToLittleEndian<quint32>(sequence, p + 8);
    p[12] = total_packets;
    p[13] = current_packet;
    qToLittleEndian<quint16>(message_id, p + 14);
    qToLittleEndian<quint32>(quint32(payload.size()), p + 16);
    out += payload;
    return out;
}

} // namespace devsim
