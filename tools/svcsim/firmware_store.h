#pragma once

#include <QByteArray>
#include <QDir>
#include <QHash>
#include <QJsonArray>
#include <QList>
#include <QString>

namespace svcsim
{

// The firmware files the service can send, keyed by their identifier (the
// lower-case hexadecimal MD5 of the file). Files stay on disk; a file is read
// and sealed once per session nonce, and the sealed frame is kept for every
// later request of that run.
class firmware_store
{
public:
    // Relative paths are taken from `base`, the configuration's folder.
    explicit firmware_store(const QDir& base = QDir::current());

    // Registers a file and returns its identifier; empty, with a reason, when it
    // can't be read. Hashes the file as a stream, never whole in memory.
    QString add_file(const QString& path, QString* error);
    bool contains(const QString& firmware) const { return m_files.contains(firmware); }
    int count() const { return m_files.size(); }

    // The file sealed under `key`, the file key of `nonce`: from the cache, or
    // read and sealed now. Empty when the identifier is unknown or the file is
    // gone or changed size.
    QByteArray sealed(const QString& firmware, quint64 nonce, const QByteArray& key);
    // How many times a file was sealed, i.e. missed the cache.
    int seal_count() const { return m_seals; }

    // [{"firmware", "path", "size"}]
    QJsonArray to_json() const;

private:
    struct file_entry {
        QString path;
        qint64 size = 0;
    };
    struct sealed_entry {
        QString firmware;
        quint64 nonce = 0;
        QByteArray frame;
    };

    void keep(sealed_entry entry);

    QDir m_base;
    QHash<QString, file_entry> m_files;
    // Oldest first; bounded by total size, the newest always kept.
    QList<sealed_entry> m_cache;
    int m_seals = 0;
};

} // namespace svcsim
