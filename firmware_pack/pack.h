#pragma once

#include "diagnostics/loggable.h"
#include "firmware_pack/crypto_functions.h"

#include <QPair>
#include <QString>
#include <QVector>

class QFile;

namespace firmware_pack
{

// (serial, block index) rows of a pack, sorted by serial.
using target_list = QVector<QPair<QString, quint8>>;

// A firmware pack or the cache on disk, read and extended in place, never rewritten.
// Loading reads the index; errors are kept as a code and a file position for the caller.
// Not locked: one thread uses it, and each call opens the file anew.
class pack : public loggable
{
public:
    enum file_kind : quint8 { kind_cache = 1, kind_pack = 2 };
    static constexpr int header_size = 11;
    // The header counts blocks in one byte; an add past this is refused.
    static constexpr int max_blocks = 255;
    static const QByteArray magic; // "FFCF"

    virtual ~pack();
    Q_DISABLE_COPY_MOVE(pack)

    // Reads the file's header and index. False with error() set; a file that can't be
    // opened gives false and no error code. On success path() is the file.
    virtual bool load(const QString& path, const target_decryptor& targets, const ident_decryptor& idents) = 0;

    // Appends a firmware block under ident and bumps the header's count and time.
    virtual bool add(const QString& ident, const QByteArray& payload, const ident_encryptor& encrypt_ident,
        const payload_encryptor& encrypt_payload, quint64 session)
        = 0;
    virtual bool contains(const QString& ident) const = 0;
    // Decrypted payload of ident; empty when absent, unreadable or not decrypting.
    // The caller checks the MD5: a wrong key can pass the padding check.
    virtual QByteArray extract(const QString& ident, const payload_decryptor& decrypt) const = 0;
    // Functionality named for flashing ident; empty when the pack doesn't say.
    virtual QString sdk_type(const QString& ident) const = 0;
    virtual target_list targets() const = 0;
    // Ident of the firmware block a target's index names; empty past the end.
    virtual QString ident_at(quint8 index) const = 0;
    // Diagnostic dump; empty text and true while the pack_diag capability isn't built in.
    virtual QPair<QString, bool> describe() const;

    QString path() const { return m_path; }
    quint32 error() const { return m_error; }
    // File offset where the error arose, -1 when there is none.
    qint64 error_position() const { return m_error_position; }
    quint8 version() const { return m_version; }
    quint8 kind() const { return m_kind; }
    // Blocks the header announces; one byte, so at most max_blocks.
    quint8 count() const { return m_count; }
    // Seconds since 1970 at the last change.
    quint32 timestamp() const { return m_timestamp; }

    // "cache", "pack" or "unknown".
    static QString kind_name(quint8 kind);

protected:
    pack();

    // The first half of an add, before anything is written: room for a block in the count, the
    // file opened for writing (error 1 when it can't be) and both frames encrypted in whole
    // 16-byte units, the ident's in at most max_ident_blocks of them. False when any fails,
    // the file left as it was.
    bool begin_add(QFile& file, const QString& ident, const QByteArray& payload, const ident_encryptor& encrypt_ident,
        const payload_encryptor& encrypt_payload, quint64 session, int max_ident_blocks, QByteArray& ident_frame,
        QByteArray& payload_frame);
    // Both frames of an add, encrypted in whole 16-byte units, the ident's in at most
    // max_ident_blocks of them; false (logged) when either fails. Reads nothing of the pack.
    bool encrypt_frames(const QString& ident, const QByteArray& payload, const ident_encryptor& encrypt_ident,
        const payload_encryptor& encrypt_payload, quint64 session, int max_ident_blocks, QByteArray& ident_frame,
        QByteArray& payload_frame) const;
    // A decrypted serial or ident ends at its first NUL.
    static QByteArray up_to_nul(const QByteArray& data);

    // Header reading common to both versions: codes 1 to 6. Forgets the old path.
    bool read_header(const QString& path);
    // Sets error and position, logs, and gives false for the caller to return.
    bool fail(quint32 code, qint64 position, const char* what);
    void clear_error();
    // After a load that went through to the end.
    bool loaded(const QString& path);
    // Writes count and timestamp at offsets 6 and 7 of a file open for writing: 0, or the
    // add error of the step that failed (2 seek to 6, 3 count, 4 timestamp).
    quint32 write_count_and_time(QFile& file);
    // The same with given values, which become the pack's own.
    quint32 write_count_and_time(QFile& file, quint8 count, quint32 timestamp);
    // The same, leaving the pack's own values as they are.
    static quint32 write_header_fields(QFile& file, quint8 count, quint32 timestamp);

    quint8 m_version = 0;
    quint8 m_kind = 0;
    quint8 m_count = 0;
    quint32 m_timestamp = 0;

private:
    QString m_path;
    QString m_reading; // the file of the current call, for the log
    quint32 m_error = 0;
    qint64 m_error_position = -1;
};

} // namespace firmware_pack
