#pragma once

#include "firmware_pack/block_v3.h"
#include "firmware_pack/pack.h"

#include <QMap>
#include <QSet>
#include <QStringList>

#include <memory>

namespace firmware_pack
{

struct firmware_block;

// Version 3: a sequence of tagged blocks (target rows, firmware, scripts). The cache is one
// of kind 1 with firmware blocks only. Loading reads every element, payloads included.
class pack_v3 final : public pack
{
public:
    using script_set = QSet<QPair<QString, quint8>>;

    pack_v3();

    // Body errors: 7 reopen, 8 seek to 11, 9 block header, 10 unknown block kind, 11 target
    // didn't decrypt, 12 ident didn't decrypt, 13 firmware block without "Version".
    bool load(const QString& path, const target_decryptor& targets, const ident_decryptor& idents) override;
    // Appends a Session/Version/Payload block. A failed write leaves a partial block that the
    // old count keeps out of later loads. Error 1 when the file can't be opened.
    bool add(const QString& ident, const QByteArray& payload, const ident_encryptor& encrypt_ident,
        const payload_encryptor& encrypt_payload, quint64 session) override;

    // An add in three steps, for an owner that keeps the slow middle off its own thread.
    struct pending_add
    {
        QString path;
        QString ident;
        quint64 session = 0;
        quint8 count = 0; // the blocks before this one
        quint32 timestamp = 0; // the header's, before this one
        quint32 error = 0; // 1 when the file couldn't be opened
        std::shared_ptr<firmware_block> block; // set once written
    };
    // What the write needs, taken on the owner's thread. Without a path when the pack is full.
    pending_add start_add(const QString& ident, quint64 session) const;
    // Encrypts and appends the block, or leaves the file as it was. Changes nothing of the pack,
    // so it may run on another thread while the owner reads the pack; one add at a time.
    bool write_add(pending_add& add, const QByteArray& payload, const ident_encryptor& encrypt_ident,
        const payload_encryptor& encrypt_payload) const;
    // Takes a written block in, on the owner's thread; false (with error() set for an open
    // failure) when the write failed or the pack has been loaded anew meanwhile.
    bool finish_add(const pending_add& add);
    bool contains(const QString& ident) const override;
    QByteArray extract(const QString& ident, const payload_decryptor& decrypt) const override;
    QString sdk_type(const QString& ident) const override;
    target_list targets() const override;
    // Counts firmware blocks only.
    QString ident_at(quint8 index) const override;

    // Idents of the firmware blocks in file order.
    QStringList idents() const { return m_ident_list; }
    // (script text, value) pairs of the script blocks.
    script_set scripts() const { return m_scripts; }

private:
    void reset();
    // The firmware block of ident; raises not_found.
    const firmware_block& find_firmware(const QString& ident) const;

    QMap<int, std::shared_ptr<block_v3>> m_blocks; // by position among all blocks
    QMap<QString, quint8> m_targets;
    QMap<QString, int> m_positions; // ident to position
    QStringList m_ident_list;
    script_set m_scripts;
};

} // namespace firmware_pack
