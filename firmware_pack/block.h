#pragma once

#include <QByteArray>
#include <QtGlobal>

namespace firmware_pack
{

// The fixed 31-byte header of a version 2 block; the ident and payload frames follow it.
struct block {
    static constexpr int header_size = 31;

    virtual ~block() = default;

    // Parses header_size bytes; the caller has checked the size.
    static block parse(const QByteArray& raw);
    QByteArray serialize() const;

    quint32 length = 0; // whole block: both frames + 31
    quint32 ident_offset = 0; // absolute file offset of the ident frame
    quint8 ident_blocks = 0; // ident frame size / 16
    quint16 ident_length = 0; // characters of the plain ident
    quint32 payload_offset = 0; // absolute file offset of the payload frame
    quint32 payload_blocks = 0; // payload frame size / 16
    quint32 payload_length = 0; // bytes of the plain payload
    quint64 session = 0; // nonce of the payload's key
};

} // namespace firmware_pack
