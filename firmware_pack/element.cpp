#include "firmware_pack/element.h"

#include <QIODevice>

#include <limits>

#include "firmware_pack/little_endian.h"

namespace firmware_pack
{

QString element::tag_name(quint16 tag)
{
    switch (tag) {
    case session_tag:
        return QStringLiteral("Session");
    case version_tag:
        return QStringLiteral("Version");
    case payload_tag:
        return QStringLiteral("Payload");
    case sdk_type_tag:
        return QStringLiteral("SDK type");
    default:
        return QStringLiteral("-Unknown-");
    }
}

element element::framed(quint16 tag, const QByteArray& frame, quint32 plain_length)
{
    return { tag, quint32(frame.size() / 16), plain_length, frame };
}

element element::plain(quint16 tag, const QByteArray& data)
{
    return { tag, 0, quint32(data.size()), data };
}

bool element::read(QIODevice& device)
{
    const QByteArray head = device.read(header_size);
    if (head.size() != header_size)
        return false;
    tag = little_endian::at<quint16>(head, 0);
    blocks = little_endian::at<quint32>(head, 2);
    length = little_endian::at<quint32>(head, 6);

    // A size field is only believed as far as the file goes: nothing is allocated for more.
    const qint64 size = announced_size();
    const qint64 left = device.size() - device.pos();
    if (size > left || size > std::numeric_limits<int>::max()) {
        device.seek(device.size());
        return false;
    }
    data = device.read(size);
    return data.size() == size;
}

QByteArray element::serialize() const
{
    QByteArray out;
    out.reserve(header_size + data.size());
    little_endian::append<quint16>(out, tag);
    little_endian::append<quint32>(out, blocks);
    little_endian::append<quint32>(out, length);
    out.append(data);
    return out;
}

QString element::text() const
{
    const int end = data.indexOf('\0');
    return QString::fromUtf8(end < 0 ? data : data.left(end));
}

} // namespace firmware_pack
