#include "firmware_pack/firmware_block.h"

#include "firmware_pack/little_endian.h"
#include "firmware_pack/not_found.h"

namespace firmware_pack
{

const element* firmware_block::find(quint16 tag) const
{
    for (const element& e : elements) {
        if (e.tag == tag)
            return &e;
    }
    return nullptr;
}

const element& firmware_block::get(quint16 tag) const
{
    const element* e = find(tag);
    if (!e)
        throw not_found();
    return *e;
}

QByteArray firmware_block::serialize() const
{
    quint32 size = 0;
    for (const element& e : elements)
        size += quint32(e.stored_size());
    QByteArray out;
    out.reserve(header_size + 1 + int(size));
    out.append(char(kind));
    little_endian::append<quint32>(out, size);
    out.append(char(quint8(elements.size())));
    for (const element& e : elements)
        out.append(e.serialize());
    return out;
}

} // namespace firmware_pack
