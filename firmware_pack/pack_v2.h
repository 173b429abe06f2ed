#pragma once

#include "firmware_pack/block.h"
#include "firmware_pack/pack.h"

#include <QMap>

namespace firmware_pack
{

// Version 2: a target table (packs only), then blocks with fixed 31-byte headers that point
// at their ident and payload frames. Loading reads headers and idents and seeks past payloads.
class pack_v2 final : public pack
{
public:
    pack_v2();

    // Body errors: 7 reserved word, 8 target count, 9 short target record, 10 missing index
    // byte, 11 target didn't decrypt, 12 block header, 13 ident didn't decrypt.
    bool load(const QString& path, const target_decryptor& targets, const ident_decryptor& idents) override;
    // The count and time are written before the block. Errors: 1 open, 2 seek to 6, 3 count,
    // 4 timestamp.
    bool add(const QString& ident, const QByteArray& payload, const ident_encryptor& encrypt_ident,
        const payload_encryptor& encrypt_payload, quint64 session) override;
    bool contains(const QString& ident) const override;
    QByteArray extract(const QString& ident, const payload_decryptor& decrypt) const override;
    // Always empty: version 2 has no such field.
    QString sdk_type(const QString& ident) const override;
    target_list targets() const override;
    // Counts all blocks.
    QString ident_at(quint8 index) const override;

    quint32 reserved() const { return m_reserved; }
    quint8 target_count() const { return m_target_count; }

private:
    void reset();

    quint32 m_reserved = 0;
    quint8 m_target_count = 0;
    QMap<QString, quint8> m_targets;
    QMap<QString, block> m_blocks; // by ident
    QMap<quint8, QString> m_idents; // by block index
};

} // namespace firmware_pack
