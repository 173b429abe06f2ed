#include "tools/packtool/pack_reader.h"

#include "tools/common/sealing.h"
#include "tools/packtool/target_record.h"

#include <QtEndian>

namespace packtool
{

namespace
{

    // Bounds-checked little-endian cursor over the file image.
    class cursor
    {
    public:
        explicit cursor(const QByteArray& data, qint64 at = 0)
            : m_data(data)
            , m_at(at)
        {
        }
        qint64 at() const { return m_at; }
        qint64 left() const { return m_data.size() - m_at; }
        bool skip_to(qint64 at)
        {
            if (at < 0 || at > m_data.size())
                return false;
            m_at = at;
            return true;
        }
        bool bytes(qint64 n, QByteArray* out)
        {
            if (n < 0 || n > left())
                return false;
            *out = m_data.mid(int(m_at), int(n));
            m_at += n;
            return true;
        }
        template <typename T> bool number(T* out)
        {
            QByteArray raw;
            if (!bytes(sizeof(T), &raw))
                return false;
            *out = qFromLittleEndian<T>(raw.constData());
            return true;
        }

    private:
        const QByteArray& m_data;
        qint64 m_at;
    };

    QString at_offset(const QString& what, qint64 offset)
    {
        return QStringLiteral("%1 at offset %2").arg(what).arg(offset);
    }

} // namespace

pack_reader::pack_reader(tools::service_identity keys)
    : m_keys(std::move(keys))
{
}

bool pack_reader::read(const QByteArray& image, pack_contents* out, QString* error) const
{
    *out = pack_contents();
    out->size = image.size();
    cursor c(image);
    QByteArray magic;
    quint8 version = 0, kind = 0, count = 0;
    if (!c.bytes(4, &magic) || magic != "FFCF") {
        *error = QStringLiteral("not a firmware pack: no \"FFCF\" magic");
        return false;
    }
    if (!c.number(&version) || !c.number(&kind) || !c.number(&count) || !c.number(&out->timestamp)) {
        *error = QStringLiteral("header cut short");
        return false;
    }
    out->version = version;
    out->kind = kind;
    out->count = count;
    if (version == 2)
        return read_v2(image, out, error);
    if (version == 3)
        return read_v3(image, out, error);
    *error = QStringLiteral("unknown version %1").arg(version);
    return false;
}

bool pack_reader::open_target(const QByteArray& record, qint64 offset, QString* serial, QString* error) const
{
    *serial = QString::fromLatin1(open_target_record(record, m_keys.target_key()));
    if (serial->isEmpty()) {
        *error = at_offset(QStringLiteral("target record doesn't decrypt (wrong client id?)"), offset);
        return false;
    }
    return true;
}

bool pack_reader::open_ident(const QByteArray& frame, qint64 offset, QString* ident, QString* error) const
{
    QByteArray plain = tools::unseal(frame, m_keys.version_key());
    if (plain.indexOf('\0') >= 0)
        plain.truncate(plain.indexOf('\0'));
    *ident = QString::fromUtf8(plain);
    if (ident->isEmpty()) {
        *error = at_offset(QStringLiteral("ident doesn't decrypt (wrong client id?)"), offset);
        return false;
    }
    return true;
}

bool pack_reader::read_v2(const QByteArray& image, pack_contents* out, QString* error) const
{
    cursor c(image, 11);
    if (out->kind == 2) {
        quint32 reserved = 0;
        quint8 targets = 0;
        if (!c.number(&reserved) || !c.number(&targets)) {
            *error = at_offset(QStringLiteral("target table header cut short"), c.at());
            return false;
        }
        for (int i = 0; i < targets; ++i) {
            const qint64 row = c.at();
            QByteArray record;
            pack_contents::target t;
            if (!c.bytes(48, &record) || !c.number(&t.index)) {
                *error = at_offset(QStringLiteral("target row cut short"), row);
                return false;
            }
            if (!open_target(record, row, &t.serial, error))
                return false;
            out->targets.append(t);
        }
    }
    for (int i = 0; i < out->count; ++i) {
        const qint64 start = c.at();
        pack_contents::firmware f;
        quint32 length = 0, ident_offset = 0, payload_offset = 0, payload_blocks = 0;
        quint8 ident_blocks = 0;
        quint16 ident_length = 0;
        if (!c.number(&length) || !c.number(&ident_offset) || !c.number(&ident_blocks) || !c.number(&ident_length)
            || !c.number(&payload_offset) || !c.number(&payload_blocks) || !c.number(&f.plain_length)
            || !c.number(&f.session)) {
            *error = at_offset(QStringLiteral("block header cut short"), start);
            return false;
        }
        f.block = i;
        f.offset = start;
        f.has_session = true;
        cursor frames(image);
        QByteArray ident_frame;
        if (!frames.skip_to(ident_offset) || !frames.bytes(qint64(ident_blocks) * 16, &ident_frame)
            || !frames.skip_to(payload_offset) || !frames.bytes(qint64(payload_blocks) * 16, &f.payload_frame)) {
            *error = at_offset(QStringLiteral("block frames run past the end"), start);
            return false;
        }
        if (!open_ident(ident_frame, ident_offset, &f.ident, error))
            return false;
        if (length < 31 || !c.skip_to(start + length)) {
            *error = at_offset(QStringLiteral("block length %1 is wrong").arg(length), start);
            return false;
        }
        out->firmwares.append(f);
    }
    out->trailing = c.left();
    return true;
}

bool pack_reader::read_v3(const QByteArray& image, pack_contents* out, QString* error) const
{
    cursor c(image, 11);
    for (int i = 0; i < out->count; ++i) {
        const qint64 start = c.at();
        quint8 kind = 0;
        quint32 length = 0;
        if (!c.number(&kind) || !c.number(&length)) {
            *error = at_offset(QStringLiteral("block header cut short"), start);
            return false;
        }
        if (kind == 0) {
            QByteArray record;
            pack_contents::target t;
            if (!c.bytes(48, &record) || !c.number(&t.index)) {
                *error = at_offset(QStringLiteral("target block cut short"), start);
                return false;
            }
            if (!open_target(record, start, &t.serial, error))
                return false;
            out->targets.append(t);
        } else if (kind == 1 || kind == 2) {
            quint8 first = 0;
            if (!c.number(&first)) {
                *error = at_offset(QStringLiteral("block cut short"), start);
                return false;
            }
            const int elements = kind == 1 ? first : 1;
            pack_contents::firmware f;
            f.block = i;
            f.offset = start;
            QByteArray ident_frame;
            QString script;
            bool has_ident = false;
            for (int e = 0; e < elements; ++e) {
                const qint64 at = c.at();
                quint16 tag = 0;
                quint32 blocks = 0, plain = 0;
                QByteArray data;
                if (!c.number(&tag) || !c.number(&blocks) || !c.number(&plain)
                    || !c.bytes(blocks ? qint64(blocks) * 16 : qint64(plain), &data)) {
                    *error = at_offset(QStringLiteral("element cut short"), at);
                    return false;
                }
                if (kind == 2) {
                    if (tag != 80) {
                        *error = at_offset(QStringLiteral("script element has tag %1, not 80").arg(tag), at);
                        return false;
                    }
                    script = QString::fromUtf8(data.left(data.indexOf('\0') < 0 ? data.size() : data.indexOf('\0')));
                } else if (tag == 86) {
                    ident_frame = data;
                    has_ident = true;
                } else if (tag == 80) {
                    f.payload_frame = data;
                    f.plain_length = plain;
                } else if (tag == 83 && data.size() >= 8) {
                    f.session = qFromLittleEndian<quint64>(data.constData());
                    f.has_session = true;
                } else if (tag == 21332) {
                    f.sdk_type
                        = QString::fromUtf8(data.left(data.indexOf('\0') < 0 ? data.size() : data.indexOf('\0')));
                }
            }
            if (kind == 2) {
                out->scripts.append({ script, first });
                continue;
            }
            if (!has_ident) {
                *error = at_offset(QStringLiteral("firmware block without \"Version\""), start);
                return false;
            }
            if (!open_ident(ident_frame, start, &f.ident, error))
                return false;
            out->firmwares.append(f);
        } else {
            *error = at_offset(QStringLiteral("unknown block kind %1").arg(kind), start);
            return false;
        }
    }
    out->trailing = c.left();
    return true;
}

} // namespace packtool
