#include "firmware_pack/pack_files.h"

#include <QDateTime>
#include <QFile>
#include <QFileInfo>

#include "diagnostics/blackbox.h"
#include "firmware_pack/little_endian.h"
#include "firmware_pack/pack_v2.h"
#include "firmware_pack/pack_v3.h"

namespace firmware_pack
{

std::shared_ptr<pack> open(const QString& path, const target_decryptor& targets, const ident_decryptor& idents)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) {
        write_sub("firmware_pack", "open", blackbox::warning, "can't read \"%s\"", qUtf8Printable(path));
        return {};
    }
    const QByteArray head = file.read(5);
    file.close();
    if (head.size() != 5 || !head.startsWith(pack::magic)) {
        write_sub("firmware_pack", "open", blackbox::warning, "\"%s\" is no firmware pack", qUtf8Printable(path));
        return {};
    }

    std::shared_ptr<pack> result;
    switch (quint8(head[4])) {
    case 2:
        result = std::make_shared<pack_v2>();
        break;
    case 3:
        result = std::make_shared<pack_v3>();
        break;
    default:
        write_sub("firmware_pack", "open", blackbox::warning, "\"%s\": unknown version %u", qUtf8Printable(path),
            unsigned(quint8(head[4])));
        return {};
    }
    result->load(path, targets, idents);
    return result;
}

bool create(const QString& path, quint8 version)
{
    if (version != 2 && version != 3)
        return false;
    QByteArray header = pack::magic;
    header.append(char(version));
    header.append(char(pack::kind_cache));
    header.append('\0');
    little_endian::append<quint32>(header, quint32(QDateTime::currentSecsSinceEpoch()));

    QFile file(path);
    if (!file.open(QIODevice::WriteOnly | QIODevice::Truncate) || file.write(header) != header.size()) {
        write_sub("firmware_pack", "create", blackbox::warning, "can't write \"%s\": %s", qUtf8Printable(path),
            qUtf8Printable(file.errorString()));
        return false;
    }
    return file.flush();
}

bool usable(const QString& path)
{
    const QFileInfo info(path);
    return info.exists() && info.permission(QFile::ReadUser);
}

} // namespace firmware_pack
