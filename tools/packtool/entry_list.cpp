#include "tools/packtool/entry_list.h"

#include <QCryptographicHash>
#include <QFile>
#include <QHash>
#include <QSet>
#include <QTextStream>

namespace packtool
{

bool entry_list::add_argument(const QString& text, bool cache, QString* error)
{
    if (cache)
        return add({ text }, true, text, error);
    const QStringList fields = text.split(QLatin1Char(':'));
    if (fields.size() < 2 || fields.size() > 3) {
        *error = QStringLiteral("\"%1\": expected SERIAL:FILE[:SDK] (use --entries for paths with ':')").arg(text);
        return false;
    }
    return add(fields, false, text, error);
}

bool entry_list::add_file(const QString& path, bool cache, QString* error)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly | QIODevice::Text)) {
        *error = QStringLiteral("can't read \"%1\": %2").arg(path, file.errorString());
        return false;
    }
    QTextStream in(&file);
    in.setCodec("UTF-8");
    int number = 0;
    while (!in.atEnd()) {
        ++number;
        QString line = in.readLine();
        const int comment = line.indexOf(QLatin1Char('#'));
        if (comment >= 0)
            line.truncate(comment);
        if (line.trimmed().isEmpty())
            continue;
        QStringList fields = line.split(QLatin1Char('\t'));
        for (QString& f : fields)
            f = f.trimmed();
        if ((cache && fields.size() != 1) || (!cache && (fields.size() < 2 || fields.size() > 3))) {
            *error = QStringLiteral("%1:%2: expected %3")
                         .arg(path)
                         .arg(number)
                         .arg(cache ? QStringLiteral("a file name") : QStringLiteral("SERIAL<TAB>FILE[<TAB>SDK]"));
            return false;
        }
        if (!add(fields, cache, QStringLiteral("%1:%2").arg(path).arg(number), error))
            return false;
    }
    return true;
}

bool entry_list::add(const QStringList& fields, bool cache, const QString& where, QString* error)
{
    entry e;
    if (cache) {
        e.file = fields.value(0);
    } else {
        e.serial = fields.value(0);
        e.file = fields.value(1);
        e.sdk_type = fields.value(2);
        // The serial is stored in a 32-byte block with at least one byte of padding, as Latin-1.
        if (e.serial.isEmpty() || e.serial.size() > 31 || e.serial.toLatin1() != e.serial.toUtf8()) {
            *error = QStringLiteral("%1: a serial is 1 to 31 ASCII characters").arg(where);
            return false;
        }
    }
    if (e.file.isEmpty()) {
        *error = QStringLiteral("%1: no firmware file").arg(where);
        return false;
    }
    m_entries.append(e);
    return true;
}

bool entry_list::make_plan(int version, bool cache, pack_plan* plan, QString* error) const
{
    *plan = pack_plan();
    plan->version = version;
    plan->kind = cache ? 1 : 2;
    QHash<QByteArray, int> by_md5;
    QSet<QString> serials;
    for (const entry& e : m_entries) {
        QFile file(e.file);
        if (!file.open(QIODevice::ReadOnly)) {
            *error = QStringLiteral("can't read \"%1\": %2").arg(e.file, file.errorString());
            return false;
        }
        const QByteArray data = file.readAll();
        const QByteArray md5 = QCryptographicHash::hash(data, QCryptographicHash::Md5);
        int index = by_md5.value(md5, -1);
        if (index < 0) {
            index = plan->firmwares.size();
            by_md5.insert(md5, index);
            plan->firmwares.append({ data, e.sdk_type });
        } else if (plan->firmwares[index].sdk_type != e.sdk_type) {
            // The SDK type belongs to the firmware block, not to the target.
            *error = QStringLiteral("\"%1\" is named with two SDK types (\"%2\" and \"%3\")")
                         .arg(e.file, plan->firmwares[index].sdk_type, e.sdk_type);
            return false;
        } else if (cache) {
            continue;
        }
        if (!cache) {
            if (serials.contains(e.serial)) {
                *error = QStringLiteral("serial \"%1\" is listed twice").arg(e.serial);
                return false;
            }
            serials.insert(e.serial);
            plan->targets.append({ e.serial, index });
        }
    }
    return true;
}

} // namespace packtool
