#include "tools/devsim/frame_reader.h"

#include <QtEndian>

namespace devsim
{

void frame_reader::append(const QByteArray& bytes)
{
    if (!m_error.isEmpty())
        return;
    if (m_pos > 0 && m_pos >= m_buffer.size() / 2) {
        m_buffer.remove(0, m_pos);
        m_pos = 0;
    }
    m_buffer += bytes;
}

frame_reader::status frame_reader::next(frame& out)
{
    if (!m_error.isEmpty())
        return status::malformed;
    const auto* p = reinterpret_cast<const uchar*>(m_buffer.constData()) + m_pos;
    // Garbage shows in the first bytes; no need to wait for a whole header.
    const int have = m_buffer.size() - m_pos;
    if ((have >= 1 && p[0] != 0xFF) || (have >= 2 && p[1] > 1) || (have >= 3 && p[2] != 0)) {
        if (have < frame::header_size)
            return fail(QStringLiteral("bad start of header"));
    } else if (have < frame::header_size) {
        return status::need_more;
    }

    frame f;
    f.head = p[0];
    f.version = p[1];
    f.reserved1 = p[2];
    f.reserved2 = p[3];
    f.session = qFromLittleEndian<quint32>(p + 4);
    f.sequence = qFromLittleEndian<quint32>(p + 8);
    f.total_packets = p[12];
    f.current_packet = p[13];
    f.message_id = qFromLittleEndian<quint16>(p + 14);
    const quint32 length = qFromLittleEndian<quint32>(p + 16);

    if (f.head != 0xFF)
        return fail(QStringLiteral("head byte 0x%1 instead of 0xff").arg(f.head, 2, 16, QLatin1Char('0')));
    if (f.version > 1)
        return fail(QStringLiteral("version %1").arg(f.version));
    if (f.reserved1 != 0)
        return fail(QStringLiteral("reserved byte %1").arg(f.reserved1));
    if (length > frame::max_payload)
        return fail(QStringLiteral("payload of %1 bytes").arg(length));
    if (quint32(have) < frame::header_size + length)
        return status::need_more;

    f.payload = m_buffer.mid(m_pos + frame::header_size, int(length));
    m_pos += frame::header_size + int(length);
    if (m_pos == m_buffer.size()) {
        m_buffer.clear();
        m_pos = 0;
    }
    out = std::move(f);
    return status::ready;
}

frame_reader::status frame_reader::fail(const QString& why)
{
    m_error = why;
    m_buffer.clear();
    m_pos = 0;
    return status::malformed;
}

} // namespace devsim
