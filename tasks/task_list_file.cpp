#include "tasks/task_list_file.h"

#include <QCoreApplication>
#include <QFile>
#include <QStringList>
#include <QTextStream>

namespace tasks {

namespace {

const QString default_user = QStringLiteral("admin");
const QChar separator = QLatin1Char(',');

// Formats 1, 2 and 3 have 4, 5 and 6 fields; any other count fixes nothing.
uint32_t format_of(const QString& line)
{
    const QString trimmed = line.trimmed();
    if (trimmed.isEmpty())
        return 0;
    const int fields = trimmed.split(separator).size();
    return fields >= 4 && fields <= 6 ? uint32_t(fields - 3) : 0;
}

} // namespace

task_list_file task_list_file::import_file(const QString& path)
{
    task_list_file list;
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) {
        list.failed = true;
        list.error = QCoreApplication::translate("task_list_file", "File not found");
        return list;
    }

    QTextStream stream(&file);
    uint32_t number = 1;
    QString line;
    for (; stream.readLineInto(&line); ++number) {
        const auto complain = [&list, number](const QString& message) { list.messages.append({ number, message }); };

        if (list.format == 0)
            list.format = format_of(line);
        // A line of blanks is not empty here: it falls through to the field count.
        if (line.isEmpty()) {
            complain(QCoreApplication::translate("task_list_file", "Empty line, skipping..."));
            continue;
        }
        QStringList fields = line.split(separator);
        if (list.format == 0 || uint32_t(fields.size()) != list.format + 3) {
            complain(QCoreApplication::translate("task_list_file", "Malformed line, skipping..."));
            continue;
        }

        endpoint record;
        if (list.format > 1)
            record.name = fields.takeFirst();
        record.host = fields.at(0);
        if (record.host.isEmpty()) {
            complain(QCoreApplication::translate("task_list_file", "Address field is empty"));
            continue;
        }
        if (fields.at(1).isEmpty()) {
            complain(QCoreApplication::translate("task_list_file", "Empty port, assuming default (\"%1\") value")
                         .arg(endpoint::default_port));
            record.port = endpoint::default_port;
        } else {
            // Out-of-range ports wrap to 16 bits; a text that isn't a number gives 0.
            record.port = uint16_t(fields.at(1).toUInt(nullptr, 10));
        }
        if (fields.at(2).isEmpty()) {
            complain(QCoreApplication::translate("task_list_file", "Empty user, assuming default (\"%1\") value")
                         .arg(default_user));
            record.user = default_user;
        } else {
            record.user = fields.at(2);
        }
        if (list.format > 2)
            record.password_encrypted = fields.takeAt(3).toUInt(nullptr, 10) != 0;
        record.password = fields.at(3);
        if (record.password.isEmpty())
            complain(
                QCoreApplication::translate("task_list_file", "Empty password, assuming default (no password) value"));
        list.records.append(record);
    }
    return list;
}

endpoint task_list_file::opened(const endpoint& record, const password_codec& decrypt)
{
    endpoint plain = record;
    if (record.password_encrypted && decrypt) {
        plain.password = decrypt(record.password);
        plain.password_encrypted = false;
    }
    return plain;
}

QString task_list_file::unwritable(const endpoint& ep)
{
    // An encrypted password is Base64, which has no comma.
    for (const QString& field : { ep.name, ep.host, ep.user, ep.password_encrypted ? QString() : ep.password }) {
        if (field.contains(separator))
            return QCoreApplication::translate("task_list_file",
                "A name, address, user or password can't hold a comma: the task list file couldn't keep it.");
    }
    return {};
}

QString task_list_file::export_line(const endpoint& ep, bool encrypt_passwords, const password_codec& encrypt)
{
    const bool encrypted = encrypt_passwords && encrypt;
    const QString password = encrypted ? encrypt(ep.password) : ep.password;
    const QStringList fields {
        ep.name,
        ep.host,
        ep.port == endpoint::default_port ? QString() : QString::number(ep.port),
        ep.user == default_user ? QString() : ep.user,
        encrypted ? QStringLiteral("1") : QStringLiteral("0"),
        password,
    };
    return fields.join(separator) + QLatin1Char('\n');
}

int task_list_file::export_file(
    const QString& path, const QVector<endpoint>& endpoints, bool encrypt_passwords, const password_codec& encrypt)
{
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly | QIODevice::Truncate | QIODevice::Text))
        return 0;
    QTextStream stream(&file);
    for (const endpoint& ep : endpoints)
        stream << export_line(ep, encrypt_passwords, encrypt);
    stream.flush();
    if (stream.status() != QTextStream::Ok || !file.flush())
        return 0;
    return endpoints.size();
}

} // namespace tasks
