#include "tools/packtool/pack_writer.h"

#include "tools/common/sealing.h"
#include "tools/packtool/target_record.h"

#include <QCryptographicHash>
#include <QDataStream>
#include <QDateTime>
#include <QtEndian>

namespace packtool
{

namespace
{

    constexpr int v2_block_header = 31;

    quint64 random_session()
    {
        const QByteArray raw = tools::random_bytes(8);
        return raw.size() == 8 ? qFromLittleEndian<quint64>(raw.constData()) : 0;
    }

    QString ident_of(const QByteArray& data)
    {
        return QString::fromLatin1(QCryptographicHash::hash(data, QCryptographicHash::Md5).toHex());
    }

    // Little-endian stream over a growing array; raw bytes go in with writeRawData.
    class image
    {
    public:
        image()
            : m_stream(&m_bytes, QIODevice::WriteOnly)
        {
            m_stream.setByteOrder(QDataStream::LittleEndian);
        }
        template <typename T> image& operator<<(T value)
        {
            m_stream << value;
            return *this;
        }
        image& raw(const QByteArray& data)
        {
            m_stream.writeRawData(data.constData(), data.size());
            return *this;
        }
        // An element of a version 3 block: tag, blocks (0 for plain data), length, data.
        image& element(quint16 tag, const QByteArray& data, quint32 length, bool framed)
        {
            return (*this << tag << quint32(framed ? data.size() / 16 : 0) << length).raw(data);
        }
        const QByteArray& bytes() const { return m_bytes; }

    private:
        QByteArray m_bytes;
        QDataStream m_stream;
    };

} // namespace

pack_writer::pack_writer(tools::service_identity keys)
    : m_keys(std::move(keys))
{
}

QByteArray pack_writer::write(const pack_plan& plan, QString* error) const
{
    error->clear();
    if (plan.version != 2 && plan.version != 3) {
        *error = QStringLiteral("version must be 2 or 3");
        return {};
    }
    if (plan.kind == 1 && !plan.targets.isEmpty()) {
        *error = QStringLiteral("a cache holds no targets");
        return {};
    }
    if (plan.version == 2 && !plan.scripts.isEmpty()) {
        *error = QStringLiteral("scripts need version 3");
        return {};
    }
    for (const auto& f : plan.firmwares) {
        if (plan.version == 2 && !f.sdk_type.isEmpty()) {
            *error = QStringLiteral("an SDK type needs version 3: version 2 has no field for it");
            return {};
        }
    }
    // Counts are single bytes in the format.
    const int blocks
        = plan.version == 2 ? plan.firmwares.size() : plan.firmwares.size() + plan.targets.size() + plan.scripts.size();
    if (blocks > 255 || plan.targets.size() > 255 || plan.firmwares.size() > 256) {
        *error = QStringLiteral("too many blocks or targets: the format counts them in one byte");
        return {};
    }
    const QByteArray body = plan.version == 2 ? body_v2(plan, error) : body_v3(plan, error);
    if (body.isEmpty() && !error->isEmpty())
        return {};
    return header(plan, blocks) + body;
}

bool pack_writer::seal_firmware(const QByteArray& data, sealed_firmware* out, QString* error) const
{
    out->session = random_session();
    out->ident = ident_of(data);
    out->ident_frame = tools::seal(out->ident.toUtf8(), m_keys.version_key());
    out->payload_frame = tools::seal(data, m_keys.file_key(out->session));
    if (out->ident_frame.isEmpty() || out->payload_frame.isEmpty()) {
        *error = QStringLiteral("encryption failed");
        return false;
    }
    return true;
}

bool pack_writer::target_record(const QString& serial, QByteArray* record, QString* error) const
{
    *record = make_target_record(serial.toLatin1(), m_keys.target_key());
    if (record->isEmpty())
        *error = QStringLiteral("serial \"%1\" can't be written (1 to 31 characters)").arg(serial);
    return !record->isEmpty();
}

QByteArray pack_writer::header(const pack_plan& plan, int blocks) const
{
    image out;
    out.raw("FFCF") << quint8(plan.version) << quint8(plan.kind) << quint8(blocks)
                    << quint32(QDateTime::currentSecsSinceEpoch());
    return out.bytes();
}

QByteArray pack_writer::body_v2(const pack_plan& plan, QString* error) const
{
    image out;
    if (plan.kind == 2) {
        out << quint32(0) << quint8(plan.targets.size());
        for (const auto& t : plan.targets) {
            QByteArray record;
            if (!target_record(t.serial, &record, error))
                return {};
            out.raw(record) << quint8(t.firmware);
        }
    }
    qint64 offset = 11 + out.bytes().size();
    for (const auto& f : plan.firmwares) {
        sealed_firmware s;
        if (!seal_firmware(f.data, &s, error))
            return {};
        const qint64 length = v2_block_header + s.ident_frame.size() + s.payload_frame.size();
        if (offset + length > 0xffffffffLL) {
            *error = QStringLiteral("pack too large for 32-bit offsets");
            return {};
        }
        out << quint32(length) << quint32(offset + v2_block_header) << quint8(s.ident_frame.size() / 16)
            << quint16(s.ident.size()) << quint32(offset + v2_block_header + s.ident_frame.size())
            << quint32(s.payload_frame.size() / 16) << quint32(f.data.size()) << s.session;
        out.raw(s.ident_frame).raw(s.payload_frame);
        offset += length;
    }
    return out.bytes();
}

QByteArray pack_writer::body_v3(const pack_plan& plan, QString* error) const
{
    image out;
    for (const auto& t : plan.targets) {
        QByteArray record;
        if (!target_record(t.serial, &record, error))
            return {};
        out << quint8(0) << quint32(49);
        out.raw(record) << quint8(t.firmware);
    }
    for (const auto& f : plan.firmwares) {
        sealed_firmware s;
        if (!seal_firmware(f.data, &s, error))
            return {};
        QByteArray nonce(8, '\0');
        qToLittleEndian<quint64>(s.session, nonce.data());
        const QByteArray sdk = f.sdk_type.toUtf8();

        // Written in another order than the program's cache writer: the reader looks elements up by tag.
        image elements;
        if (!sdk.isEmpty())
            elements.element(21332, sdk, quint32(sdk.size()), false);
        elements.element(86, s.ident_frame, quint32(s.ident.size()), true);
        elements.element(83, nonce, 8, false);
        elements.element(80, s.payload_frame, quint32(f.data.size()), true);
        out << quint8(1) << quint32(elements.bytes().size()) << quint8(sdk.isEmpty() ? 3 : 4);
        out.raw(elements.bytes());
    }
    for (const auto& s : plan.scripts) {
        const QByteArray text = s.first.toUtf8() + '\0';
        out << quint8(2) << quint32(1 + 10 + text.size()) << s.second;
        out.element(80, text, quint32(text.size()), false);
    }
    return out.bytes();
}

} // namespace packtool
