#include "firmware_pack/pack.h"

#include <QDateTime>
#include <QFile>

#include "diagnostics/blackbox.h"
#include "firmware_pack/little_endian.h"

namespace firmware_pack
{

const QByteArray pack::magic = QByteArrayLiteral("FFCF");

bool pack::begin_add(QFile& file, const QString& ident, const QByteArray& payload, const ident_encryptor& encrypt_ident,
    const payload_encryptor& encrypt_payload, quint64 session, int max_ident_blocks, QByteArray& ident_frame,
    QByteArray& payload_frame)
{
    if (ident.isEmpty())
        return false;
    // The count is one byte: a 256th block would wrap it to 0, and the file would read as empty.
    if (m_count == max_blocks) {
        log(blackbox::warning, "\"%s\": full with %d blocks, \"%s\" not added", qUtf8Printable(m_path), max_blocks,
            qUtf8Printable(ident));
        return false;
    }
    // A file that went away isn't made anew: without a header it would never load. Unbuffered,
    // so that a failed write shows at once and nothing is left to reach the disk later.
    file.setFileName(m_path);
    if (m_path.isEmpty() || !file.open(QIODevice::ReadWrite | QIODevice::ExistingOnly | QIODevice::Unbuffered))
        return fail(1, -1, "file can't be opened for writing");
    return encrypt_frames(ident, payload, encrypt_ident, encrypt_payload, session, max_ident_blocks, ident_frame,
        payload_frame);
}

bool pack::encrypt_frames(const QString& ident, const QByteArray& payload, const ident_encryptor& encrypt_ident,
    const payload_encryptor& encrypt_payload, quint64 session, int max_ident_blocks, QByteArray& ident_frame,
    QByteArray& payload_frame) const
{
    ident_frame = encrypt_ident ? encrypt_ident(ident.toUtf8()) : QByteArray();
    payload_frame = encrypt_payload ? encrypt_payload(payload, session) : QByteArray();
    if (ident_frame.isEmpty() || payload_frame.isEmpty() || ident_frame.size() % 16 || payload_frame.size() % 16
        || ident_frame.size() / 16 > max_ident_blocks) {
        log(blackbox::warning, "\"%s\": encryption of \"%s\" failed", qUtf8Printable(m_path), qUtf8Printable(ident));
        return false;
    }
    return true;
}

QByteArray pack::up_to_nul(const QByteArray& data)
{
    const int end = data.indexOf('\0');
    return end < 0 ? data : data.left(end);
}

pack::pack()
    : loggable("firmware_pack")
{
}

pack::~pack() = default;

QPair<QString, bool> pack::describe() const
{
    return { QString(), true };
}

QString pack::kind_name(quint8 kind)
{
    switch (kind) {
    case kind_cache:
        return QStringLiteral("cache");
    case kind_pack:
        return QStringLiteral("pack");
    default:
        return QStringLiteral("unknown");
    }
}

bool pack::read_header(const QString& path)
{
    clear_error();
    m_path.clear();
    m_reading = path;
    m_version = m_kind = m_count = 0;
    m_timestamp = 0;

    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) {
        log(blackbox::warning, "can't open \"%s\": %s", qUtf8Printable(path), qUtf8Printable(file.errorString()));
        return false;
    }
    const QByteArray head = file.read(header_size);
    if (head.size() < 4)
        return fail(1, 0, "magic can't be read");
    if (!head.startsWith(magic))
        return fail(2, 0, "wrong magic");
    if (head.size() < 5)
        return fail(3, 4, "version can't be read");
    m_version = quint8(head[4]);
    if (head.size() < 6)
        return fail(4, 5, "kind can't be read");
    m_kind = quint8(head[5]);
    if (head.size() < 7)
        return fail(5, 6, "count can't be read");
    m_count = quint8(head[6]);
    if (head.size() < header_size)
        return fail(6, 7, "timestamp can't be read");
    m_timestamp = little_endian::at<quint32>(head, 7);
    return true;
}

bool pack::fail(quint32 code, qint64 position, const char* what)
{
    m_error = code;
    m_error_position = position;
    log(blackbox::warning, "\"%s\": %s at offset %lld (error code %u)", qUtf8Printable(m_reading), what,
        static_cast<long long>(position), code);
    return false;
}

void pack::clear_error()
{
    m_error = 0;
    m_error_position = -1;
}

bool pack::loaded(const QString& path)
{
    m_path = path;
    clear_error();
    return true;
}

quint32 pack::write_count_and_time(QFile& file)
{
    return write_count_and_time(file, m_count, quint32(QDateTime::currentSecsSinceEpoch()));
}

quint32 pack::write_count_and_time(QFile& file, quint8 count, quint32 timestamp)
{
    m_count = count;
    m_timestamp = timestamp;
    return write_header_fields(file, count, timestamp);
}

quint32 pack::write_header_fields(QFile& file, quint8 count, quint32 timestamp)
{
    QByteArray stamp;
    little_endian::append<quint32>(stamp, timestamp);
    if (!file.seek(6))
        return 2;
    if (file.write(reinterpret_cast<const char*>(&count), 1) != 1)
        return 3;
    if (!file.seek(7) || file.write(stamp) != stamp.size())
        return 4;
    return 0;
}

} // namespace firmware_pack
