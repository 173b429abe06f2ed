#pragma once

#include <QByteArray>
#include <QString>
#include <QtGlobal>

class QIODevice;

namespace firmware_pack
{

// One tagged piece of a version 3 block: 10 bytes of header, then its data.
struct element {
    enum tag_code : quint16 { payload_tag = 80, session_tag = 83, version_tag = 86, sdk_type_tag = 21332 };
    static constexpr int header_size = 10;

    quint16 tag = 0;
    quint32 blocks = 0; // data size in 16-byte units, or 0 when length is the stored size
    quint32 length = 0; // plain size
    QByteArray data;

    // "Session", "Version", "Payload", "SDK type" or "-Unknown-".
    static QString tag_name(quint16 tag);

    // An element of stored data; blocks is the frame's size / 16, or 0 for plain data.
    static element framed(quint16 tag, const QByteArray& frame, quint32 plain_length);
    static element plain(quint16 tag, const QByteArray& data);

    // Bytes the element takes in the file.
    qint64 stored_size() const { return header_size + data.size(); }
    // Data size that the header announces.
    qint64 announced_size() const { return blocks ? qint64(blocks) * 16 : qint64(length); }

    // Reads one element at the device's position. A short read or a size beyond the end of
    // the device fails and leaves the position at the end, as a short read would.
    bool read(QIODevice& device);
    QByteArray serialize() const;

    // Text of the data up to the first NUL.
    QString text() const;
};

} // namespace firmware_pack
