#include "tools/svcsim/firmware_store.h"

#include <QCryptographicHash>
#include <QFile>
#include <QFileInfo>
#include <QJsonObject>

#include "tools/common/sealing.h"
#include "tools/svcsim/svcsim_log.h"

namespace svcsim
{

namespace
{

    // Enough for a few large files of one run; older frames are sealed again if
    // they are ever asked for.
    constexpr qint64 cache_limit = qint64(256) << 20;
    // QByteArray of Qt 5 holds less than 2 GiB, and the frame adds 112 bytes.
    constexpr qint64 max_file_size = (qint64(1) << 31) - 4096;

} // namespace

firmware_store::firmware_store(const QDir& base)
    : m_base(base)
{
}

QString firmware_store::add_file(const QString& path, QString* error)
{
    const QString full = QDir::cleanPath(m_base.absoluteFilePath(path));
    for (auto it = m_files.cbegin(); it != m_files.cend(); ++it) {
        if (it->path == full)
            return it.key();
    }
    QFile file(full);
    if (!file.open(QIODevice::ReadOnly)) {
        *error = QStringLiteral("can't read firmware file \"%1\": %2").arg(full, file.errorString());
        return {};
    }
    if (file.size() > max_file_size) {
        *error = QStringLiteral("firmware file \"%1\" is too large").arg(full);
        return {};
    }
    QCryptographicHash md5(QCryptographicHash::Md5);
    if (!md5.addData(&file)) {
        *error = QStringLiteral("can't read firmware file \"%1\"").arg(full);
        return {};
    }
    const QString firmware = QString::fromLatin1(md5.result().toHex());
    m_files.insert(firmware, file_entry { full, file.size() });
    qCDebug(lc_svcsim, "firmware %s: %s, %lld bytes", qPrintable(firmware), qPrintable(full), file.size());
    return firmware;
}

QByteArray firmware_store::sealed(const QString& firmware, quint64 nonce, const QByteArray& key)
{
    for (const sealed_entry& e : qAsConst(m_cache)) {
        if (e.firmware == firmware && e.nonce == nonce)
            return e.frame;
    }
    const auto found = m_files.constFind(firmware);
    if (found == m_files.cend())
        return {};
    QFile file(found->path);
    if (!file.open(QIODevice::ReadOnly) || file.size() != found->size) {
        qCWarning(lc_svcsim, "firmware file \"%s\" is gone or changed size", qPrintable(found->path));
        return {};
    }
    QByteArray frame;
    {
        // The plain copy lives only while the sealed one is made.
        const QByteArray plain = file.readAll();
        if (plain.size() != found->size) {
            qCWarning(lc_svcsim, "short read of firmware file \"%s\"", qPrintable(found->path));
            return {};
        }
        frame = tools::seal(plain, key);
    }
    if (frame.isEmpty()) {
        qCWarning(lc_svcsim, "sealing firmware %s failed", qPrintable(firmware));
        return {};
    }
    ++m_seals;
    keep(sealed_entry { firmware, nonce, frame });
    return frame;
}

void firmware_store::keep(sealed_entry entry)
{
    qint64 total = entry.frame.size();
    for (const sealed_entry& e : qAsConst(m_cache))
        total += e.frame.size();
    while (!m_cache.isEmpty() && total > cache_limit) {
        total -= m_cache.first().frame.size();
        m_cache.removeFirst();
    }
    m_cache.append(std::move(entry));
}

QJsonArray firmware_store::to_json() const
{
    QJsonArray list;
    for (auto it = m_files.cbegin(); it != m_files.cend(); ++it)
        list.append(QJsonObject { { "firmware", it.key() }, { "path", it->path }, { "size", double(it->size) } });
    return list;
}

} // namespace svcsim
