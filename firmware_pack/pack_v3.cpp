#include "firmware_pack/pack_v3.h"

#include <QDateTime>
#include <QFile>

#include <climits>

#include "diagnostics/blackbox.h"
#include "firmware_pack/ate_block.h"
#include "firmware_pack/firmware_block.h"
#include "firmware_pack/little_endian.h"
#include "firmware_pack/not_found.h"
#include "firmware_pack/script_block.h"

namespace firmware_pack
{

pack_v3::pack_v3() = default;

void pack_v3::reset()
{
    m_blocks.clear();
    m_targets.clear();
    m_positions.clear();
    m_ident_list.clear();
    m_scripts.clear();
}

bool pack_v3::load(const QString& path, const target_decryptor& targets, const ident_decryptor& idents)
{
    reset();
    if (!read_header(path))
        return false;
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return fail(7, -1, "file can't be reopened");
    if (!file.seek(header_size))
        return fail(8, header_size, "seek to the first block failed");

    // Short reads inside a block body aren't errors of their own: the element or record comes
    // up short and the check after it (decryption, a missing element) reports it.
    for (int position = 0; position < m_count; ++position) {
        const qint64 start = file.pos();
        const QByteArray head = file.read(block_v3::header_size);
        if (head.size() != block_v3::header_size)
            return fail(9, start, "block header can't be read");
        const quint8 kind = quint8(head[0]);
        const quint32 length = little_endian::at<quint32>(head, 1);

        switch (kind) {
        case block_v3::firmware: {
            auto fw = std::make_shared<firmware_block>();
            fw->length = length;
            const QByteArray count = file.read(1);
            const int elements = count.isEmpty() ? 0 : quint8(count[0]);
            for (int i = 0; i < elements; ++i) {
                element e;
                if (!e.read(file))
                    break;
                fw->elements.append(e);
            }
            m_blocks.insert(position, fw);
            QByteArray ident;
            try {
                const element& version = fw->get(element::version_tag);
                ident = up_to_nul(idents ? idents(version.data) : QByteArray());
            } catch (const not_found&) {
                return fail(13, start, "firmware block has no \"Version\" element");
            }
            if (ident.isEmpty())
                return fail(12, start, "ident didn't decrypt");
            const QString text = QString::fromUtf8(ident);
            m_positions.insert(text, position);
            m_ident_list.append(text);
            break;
        }
        case block_v3::script: {
            auto sc = std::make_shared<script_block>();
            sc->length = length;
            const QByteArray value = file.read(1);
            sc->value = value.isEmpty() ? 0 : quint8(value[0]);
            sc->has_element = sc->text_element.read(file) && sc->text_element.tag == element::payload_tag;
            if (!sc->has_element)
                sc->text_element = element();
            m_blocks.insert(position, sc);
            m_scripts.insert({ sc->text_element.text(), sc->value });
            break;
        }
        case block_v3::ate: {
            auto row = std::make_shared<ate_block>();
            row->length = length;
            row->target = file.read(ate_block::record_size);
            const QByteArray index = file.read(1);
            row->index = index.isEmpty() ? 0 : quint8(index[0]);
            m_blocks.insert(position, row);
            const QByteArray target = up_to_nul(targets ? targets(row->target) : QByteArray());
            if (target.isEmpty())
                return fail(11, start, "target didn't decrypt");
            m_targets.insert(QString::fromLatin1(target), row->index);
            break;
        }
        default:
            return fail(10, start, "unknown block kind");
        }
    }
    return loaded(path);
}

bool pack_v3::add(const QString& ident, const QByteArray& payload, const ident_encryptor& encrypt_ident,
    const payload_encryptor& encrypt_payload, quint64 session)
{
    pending_add pending = start_add(ident, session);
    write_add(pending, payload, encrypt_ident, encrypt_payload);
    return finish_add(pending);
}

pack_v3::pending_add pack_v3::start_add(const QString& ident, quint64 session) const
{
    pending_add pending;
    pending.ident = ident;
    pending.session = session;
    pending.count = m_count;
    pending.timestamp = m_timestamp;
    // The count is one byte: a 256th block would wrap it to 0, and the file would read as empty.
    if (m_count == max_blocks)
        log(blackbox::warning, "\"%s\": full with %d blocks, \"%s\" not added", qUtf8Printable(path()), max_blocks,
            qUtf8Printable(ident));
    else if (path().isEmpty())
        pending.error = 1; // never loaded
    else
        pending.path = path();
    return pending;
}

bool pack_v3::write_add(pending_add& pending, const QByteArray& payload, const ident_encryptor& encrypt_ident,
    const payload_encryptor& encrypt_payload) const
{
    if (pending.error != 0 || pending.path.isEmpty() || pending.ident.isEmpty())
        return false;
    // A file that went away isn't made anew: without a header it would never load. Unbuffered,
    // so that a failed write shows at once and nothing is left to reach the disk later.
    QFile file(pending.path);
    if (!file.open(QIODevice::ReadWrite | QIODevice::ExistingOnly | QIODevice::Unbuffered)) {
        pending.error = 1;
        return false;
    }
    QByteArray ident_frame, payload_frame;
    if (!encrypt_frames(pending.ident, payload, encrypt_ident, encrypt_payload, pending.session, INT_MAX, ident_frame,
            payload_frame))
        return false;

    QByteArray nonce;
    little_endian::append<quint64>(nonce, pending.session);
    auto fw = std::make_shared<firmware_block>();
    fw->elements = { element::plain(element::session_tag, nonce),
        element::framed(element::version_tag, ident_frame, quint32(pending.ident.size())),
        element::framed(element::payload_tag, payload_frame, quint32(payload.size())) };
    const QByteArray bytes = fw->serialize();
    fw->length = little_endian::at<quint32>(bytes, 1);

    // The block first, then the count that takes it in. A failure on the way (a full disk)
    // puts the file back as it was, so that the next load doesn't meet a torn block.
    const qint64 end = file.size();
    if (!file.seek(end) || file.write(bytes) != bytes.size()) {
        log(blackbox::warning, "\"%s\": block of \"%s\" not written: %s", qUtf8Printable(pending.path),
            qUtf8Printable(pending.ident), qUtf8Printable(file.errorString()));
        if (!file.resize(end))
            log(blackbox::error, "\"%s\": the torn block can't be taken off", qUtf8Printable(pending.path));
        return false;
    }
    const quint32 now = quint32(QDateTime::currentSecsSinceEpoch());
    if (write_header_fields(file, quint8(pending.count + 1), now) != 0) {
        log(blackbox::warning, "\"%s\": header not updated: %s", qUtf8Printable(pending.path),
            qUtf8Printable(file.errorString()));
        if (write_header_fields(file, pending.count, pending.timestamp) != 0 || !file.resize(end))
            log(blackbox::error, "\"%s\": the file can't be put back as it was", qUtf8Printable(pending.path));
        return false;
    }
    pending.timestamp = now;
    pending.block = fw;
    return true;
}

bool pack_v3::finish_add(const pending_add& pending)
{
    if (pending.error != 0)
        return fail(pending.error, -1, "file can't be opened for writing");
    if (!pending.block || pending.path != path() || pending.count != m_count)
        return false;
    m_count = quint8(pending.count + 1);
    m_timestamp = pending.timestamp;
    const int position = m_blocks.size();
    m_blocks.insert(position, pending.block);
    m_positions.insert(pending.ident, position);
    m_ident_list.append(pending.ident);
    clear_error();
    return true;
}

bool pack_v3::contains(const QString& ident) const
{
    return m_positions.contains(ident);
}

const firmware_block& pack_v3::find_firmware(const QString& ident) const
{
    const auto position = m_positions.constFind(ident);
    if (position == m_positions.cend())
        throw not_found();
    const std::shared_ptr<block_v3> b = m_blocks.value(*position);
    if (!b || b->kind != block_v3::firmware)
        throw not_found();
    return static_cast<const firmware_block&>(*b);
}

QByteArray pack_v3::extract(const QString& ident, const payload_decryptor& decrypt) const
{
    if (!decrypt)
        return {};
    try {
        const firmware_block& fw = find_firmware(ident);
        const element& session = fw.get(element::session_tag);
        const element& payload = fw.get(element::payload_tag);
        if (session.data.size() < 8)
            return {};
        return decrypt(payload.data, little_endian::at<quint64>(session.data, 0));
    } catch (const not_found&) {
        log(blackbox::warning, "\"%s\": no payload for \"%s\"", qUtf8Printable(path()), qUtf8Printable(ident));
        return {};
    }
}

QString pack_v3::sdk_type(const QString& ident) const
{
    try {
        const element* e = find_firmware(ident).find(element::sdk_type_tag);
        return e ? e->text() : QString();
    } catch (const not_found&) {
        return {};
    }
}

target_list pack_v3::targets() const
{
    target_list list;
    for (auto it = m_targets.cbegin(); it != m_targets.cend(); ++it)
        list.append({ it.key(), it.value() });
    return list;
}

QString pack_v3::ident_at(quint8 index) const
{
    return index < m_ident_list.size() ? m_ident_list.at(index) : QString();
}

} // namespace firmware_pack
