#include "firmware_pack/block.h"

#include "firmware_pack/little_endian.h"

namespace firmware_pack
{

block block::parse(const QByteArray& raw)
{
    block b;
    b.length = little_endian::at<quint32>(raw, 0);
    b.ident_offset = little_endian::at<quint32>(raw, 4);
    b.ident_blocks = quint8(raw[8]);
    b.ident_length = little_endian::at<quint16>(raw, 9);
    b.payload_offset = little_endian::at<quint32>(raw, 11);
    b.payload_blocks = little_endian::at<quint32>(raw, 15);
    b.payload_length = little_endian::at<quint32>(raw, 19);
    b.session = little_endian::at<quint64>(raw, 23);
    return b;
}

QByteArray block::serialize() const
{
    QByteArray out;
    out.reserve(header_size);
    little_endian::append<quint32>(out, length);
    little_endian::append<quint32>(out, ident_offset);
    out.append(char(ident_blocks));
    little_endian::append<quint16>(out, ident_length);
    little_endian::append<quint32>(out, payload_offset);
    little_endian::append<quint32>(out, payload_blocks);
    little_endian::append<quint32>(out, payload_length);
    little_endian::append<quint64>(out, session);
    return out;
}

} // namespace firmware_pack
