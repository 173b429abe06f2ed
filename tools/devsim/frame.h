#pragma once

#include <QByteArray>
#include <QtGlobal>

namespace devsim
{

// One NETIP frame as it travels: a 20-byte little-endian header, then the payload.
struct frame {
    static constexpr int header_size = 20;
    // The largest payload a client builds (a firmware chunk); anything longer is refused.
    static constexpr quint32 max_payload = 32768;

    quint8 head = 0xFF;
    quint8 version = 1;
    quint8 reserved1 = 0;
    quint8 reserved2 = 0;
    quint32 session = 0;
    quint32 sequence = 0;
    quint8 total_packets = 0;
    quint8 current_packet = 0;
    quint16 message_id = 0;
    // The header's length field is the size of this array.
    QByteArray payload;

    QByteArray encode() const;
};

} // namespace devsim
