#include "tools/svcsim/repository.h"

#include <QDateTime>
#include <QFile>
#include <QJsonDocument>
#include <QList>
#include <QStringList>

#include "tools/svcsim/fault.h"
#include "tools/svcsim/fault_table.h"
#include "tools/svcsim/http_request.h"
#include "tools/svcsim/plain_fault.h"
#include "tools/svcsim/request_log.h"
#include "tools/svcsim/request_record.h"
#include "tools/svcsim/svcsim_log.h"

namespace svcsim
{

namespace
{

    const QStringList known_members { "word", "latest", "time", "changelog", "file" };
    // A build of the program is some megabytes; this is plenty.
    constexpr qint64 max_file = 256LL * 1024 * 1024;

} // namespace

repository::repository(const QDir& base, fault_table& faults, request_log& log)
    : m_base(base)
    , m_faults(faults)
    , m_log(log)
{
}

bool repository::set_from_json(const QJsonObject& json, QString* error)
{
    if (json.isEmpty()) {
        m_build = {};
        m_file.clear();
        return true;
    }
    for (auto it = json.begin(); it != json.end(); ++it) {
        if (!known_members.contains(it.key())) {
            *error = QStringLiteral("unknown repository member \"%1\"").arg(it.key());
            return false;
        }
    }
    if (!json.value("latest").isDouble() || !json.value("time").isString() || !json.value("changelog").isObject()
        || !json.value("file").isString()) {
        *error = QStringLiteral("the repository needs \"latest\" (number), \"time\" (text), \"changelog\" (object) "
                                "and \"file\" (path)");
        return false;
    }
    QFile file(m_base.filePath(json.value("file").toString()));
    if (!file.open(QIODevice::ReadOnly) || file.size() > max_file) {
        *error = QStringLiteral("can't read the build %1: %2").arg(file.fileName(), file.errorString());
        return false;
    }
    m_file = file.readAll();
    m_build = json;
    if (!m_build.contains("word"))
        m_build.insert("word", "l");
    return true;
}

QJsonObject repository::to_json() const
{
    QJsonObject json = m_build;
    if (!json.isEmpty())
        json.insert("size", double(m_file.size()));
    return json;
}

http_reply repository::handle(const http_request& request)
{
    request_record r;
    r.time_ms = QDateTime::currentMSecsSinceEpoch();
    r.path = QString::fromLatin1(request.target);
    // "/repo/check/l/1964/" gives "", "repo", "check", "l", "1964", "".
    QList<QByteArray> parts = request.path().split('/');
    if (!parts.isEmpty() && parts.last().isEmpty())
        parts.removeLast();
    const QByteArray question = parts.value(2);
    r.kind = question == "file" ? request_kind::repo_file : request_kind::repo_check;
    if (request.method != "GET" || parts.size() != 5 || (question != "check" && question != "file")) {
        r.kind = request_kind::other;
        r.answer = QStringLiteral("http 404");
        return finish(&r, plain_reply(404, "no such build\n"));
    }
    const QString word = QString::fromLatin1(parts[3]);
    r.version = QString::fromLatin1(parts[4]);

    const fault f = m_faults.take(r.kind, QString());
    if (f.what != fault::action::none)
        return finish(&r, plain_fault_reply(f, &r, QStringLiteral("E:%1").arg(f.code).toLatin1()));

    const bool offered = !m_build.isEmpty() && word == m_build.value("word").toString();
    http_reply reply;
    if (r.kind == request_kind::repo_check) {
        QJsonObject answer;
        for (const char* member : { "latest", "time", "changelog" }) {
            if (offered)
                answer.insert(member, m_build.value(member));
        }
        r.answer = offered ? QStringLiteral("ok") : QStringLiteral("none");
        reply = plain_reply(200, QJsonDocument(answer).toJson(QJsonDocument::Compact), "application/json");
    } else if (offered && r.version == QString::number(m_build.value("latest").toInt())) {
        r.answer = QStringLiteral("ok");
        reply = plain_reply(200, m_file, "application/octet-stream");
    } else {
        r.answer = QStringLiteral("http 404");
        reply = plain_reply(404, "no such build\n");
    }
    reply.delay_ms = f.delay_ms;
    r.delay_ms = f.delay_ms;
    return finish(&r, reply);
}

http_reply repository::finish(request_record* r, http_reply reply)
{
    const qint64 sequence = m_log.append(*r);
    qCDebug(lc_svcsim, "#%lld %s %s: %s", sequence, qPrintable(kind_name(r->kind)), qPrintable(r->path),
        qPrintable(r->answer));
    return reply;
}

} // namespace svcsim
