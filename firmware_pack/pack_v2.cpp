#include "firmware_pack/pack_v2.h"

#include <QFile>

#include "diagnostics/blackbox.h"
#include "firmware_pack/ate_block.h"
#include "firmware_pack/little_endian.h"

namespace firmware_pack
{

pack_v2::pack_v2() = default;

void pack_v2::reset()
{
    m_reserved = 0;
    m_target_count = 0;
    m_targets.clear();
    m_blocks.clear();
    m_idents.clear();
}

bool pack_v2::load(const QString& path, const target_decryptor& targets, const ident_decryptor& idents)
{
    reset();
    if (!read_header(path))
        return false;
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly) || !file.seek(header_size))
        return false;

    if (m_kind == kind_pack) {
        const QByteArray reserved = file.read(4);
        if (reserved.size() != 4)
            return fail(7, header_size, "reserved word can't be read");
        m_reserved = little_endian::at<quint32>(reserved, 0);
        const QByteArray count = file.read(1);
        if (count.size() != 1)
            return fail(8, header_size + 4, "target count can't be read");
        m_target_count = quint8(count[0]);

        for (int i = 0; i < m_target_count; ++i) {
            const qint64 row = file.pos();
            const QByteArray record = file.read(ate_block::record_size);
            if (record.size() != ate_block::record_size)
                return fail(9, row, "target record too short");
            const QByteArray index = file.read(1);
            if (index.size() != 1)
                return fail(10, row + ate_block::record_size, "index byte missing");
            const QByteArray target = up_to_nul(targets ? targets(record) : QByteArray());
            if (target.isEmpty())
                return fail(11, row, "target didn't decrypt");
            m_targets.insert(QString::fromLatin1(target), quint8(index[0]));
        }
    }

    for (int i = 0; i < m_count; ++i) {
        const qint64 start = file.pos();
        const QByteArray raw = file.read(block::header_size);
        if (raw.size() != block::header_size)
            return fail(12, start, "block header can't be read");
        const block header = block::parse(raw);

        // The ident frame is at most 255 blocks: its read needs no size check of its own.
        QByteArray frame;
        if (file.seek(header.ident_offset))
            frame = file.read(qint64(header.ident_blocks) * 16);
        const QByteArray ident = up_to_nul(idents ? idents(frame) : QByteArray());
        if (ident.isEmpty())
            return fail(13, start, "ident didn't decrypt");
        const QString text = QString::fromUtf8(ident);
        m_blocks.insert(text, header);
        m_idents.insert(quint8(i), text);
        // A hostile length at worst rereads a block or runs off the end: the count bounds the loop.
        if (!file.seek(start + header.length))
            return fail(12, start + header.length, "block header can't be read");
    }
    return loaded(path);
}

bool pack_v2::add(const QString& ident, const QByteArray& payload, const ident_encryptor& encrypt_ident,
    const payload_encryptor& encrypt_payload, quint64 session)
{
    QFile file;
    QByteArray ident_frame, payload_frame;
    // The header counts the ident's 16-byte units in one byte, which also keeps the ident
    // far below its 16-bit length field.
    if (!begin_add(file, ident, payload, encrypt_ident, encrypt_payload, session, 255, ident_frame, payload_frame))
        return false;

    const quint8 index = m_count++;
    if (const quint32 code = write_count_and_time(file))
        return fail(code, code == 2 ? -1 : (code == 3 ? 6 : 7), "header can't be updated");
    const qint64 start = file.size();
    if (!file.seek(start))
        return false;

    block header;
    header.length = quint32(block::header_size + ident_frame.size() + payload_frame.size());
    header.ident_offset = quint32(start + block::header_size);
    header.ident_blocks = quint8(ident_frame.size() / 16);
    header.ident_length = quint16(ident.size());
    header.payload_offset = quint32(header.ident_offset + ident_frame.size());
    header.payload_blocks = quint32(payload_frame.size() / 16);
    header.payload_length = quint32(payload.size());
    header.session = session;
    const QByteArray bytes = header.serialize() + ident_frame + payload_frame;
    if (file.write(bytes) != bytes.size()) {
        log(blackbox::warning, "\"%s\": block of \"%s\" not written: %s", qUtf8Printable(path()), qUtf8Printable(ident),
            qUtf8Printable(file.errorString()));
        return false;
    }
    m_blocks.insert(ident, header);
    m_idents.insert(index, ident);
    clear_error();
    return true;
}

bool pack_v2::contains(const QString& ident) const
{
    return m_blocks.contains(ident);
}

QByteArray pack_v2::extract(const QString& ident, const payload_decryptor& decrypt) const
{
    const auto found = m_blocks.constFind(ident);
    if (found == m_blocks.cend() || !decrypt)
        return {};
    QFile file(path());
    if (!file.open(QIODevice::ReadOnly))
        return {};
    const qint64 size = qint64(found->payload_blocks) * 16;
    if (qint64(found->payload_offset) + size > file.size() || !file.seek(found->payload_offset)) {
        log(blackbox::warning, "\"%s\": payload of \"%s\" runs past the end", qUtf8Printable(path()),
            qUtf8Printable(ident));
        return {};
    }
    const QByteArray frame = file.read(size);
    if (frame.size() != size)
        return {};
    return decrypt(frame, found->session);
}

QString pack_v2::sdk_type(const QString&) const
{
    return {};
}

target_list pack_v2::targets() const
{
    target_list list;
    for (auto it = m_targets.cbegin(); it != m_targets.cend(); ++it)
        list.append({ it.key(), it.value() });
    return list;
}

QString pack_v2::ident_at(quint8 index) const
{
    return m_idents.value(index);
}

} // namespace firmware_pack
