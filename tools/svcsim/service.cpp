#include "tools/svcsim/service.h"

#include <QDateTime>
#include <QJsonDocument>
#include <QJsonParseError>
#include <QList>

#include "tools/common/sealing.h"
#include "tools/common/service_identity.h"
#include "tools/svcsim/fault.h"
#include "tools/svcsim/fault_table.h"
#include "tools/svcsim/firmware_store.h"
#include "tools/svcsim/fleet.h"
#include "tools/svcsim/http_request.h"
#include "tools/svcsim/plain_fault.h"
#include "tools/svcsim/request_log.h"
#include "tools/svcsim/request_record.h"
#include "tools/svcsim/svcsim_log.h"

namespace svcsim
{

namespace
{

    constexpr int query_format_version = 3;

    bool all_digits(const QByteArray& s)
    {
        if (s.isEmpty() || s.size() > 20)
            return false;
        for (const char c : s) {
            if (c < '0' || c > '9')
                return false;
        }
        return true;
    }

    bool lower_hex(const QByteArray& s)
    {
        QByteArray ignored;
        return tools::decode_hex(s, &ignored);
    }

} // namespace

service::service(const tools::service_identity& id, fleet& devices, firmware_store& store, fault_table& faults, request_log& log)
    : m_id(id)
    , m_devices(devices)
    , m_store(store)
    , m_faults(faults)
    , m_log(log)
{
}

http_reply service::handle(const http_request& request)
{
    for (const auto& route : qAsConst(m_routes)) {
        if (request.path().startsWith(route.first))
            return route.second(request);
    }
    request_record r;
    r.time_ms = QDateTime::currentMSecsSinceEpoch();
    r.path = QString::fromLatin1(request.target);
    if (request.method != "GET") {
        r.answer = QStringLiteral("http 405");
        return finish(&r, plain_reply(405, "only GET\n"));
    }

    // "/update/s/n/q/" gives "", "update", s, n, q, "".
    QList<QByteArray> parts = request.path().split('/');
    parts.removeFirst();
    if (!parts.isEmpty() && parts.last().isEmpty())
        parts.removeLast();
    r.kind = kind_from_name(QString::fromLatin1(parts.value(0)));
    const bool question = r.kind == request_kind::update || r.kind == request_kind::file || r.kind == request_kind::confirm;
    if (!question) {
        r.kind = request_kind::other;
        r.answer = QStringLiteral("http 404");
        return finish(&r, plain_reply(404, "no such service\n"));
    }
    if (parts.size() != (r.kind == request_kind::confirm ? 3 : 4)) {
        qCInfo(lc_svcsim, "%s: wrong number of path pieces", qPrintable(kind_name(r.kind)));
        return error_reply(&r, format_error);
    }

    quint64 nonce = 0;
    const uint session = open_session(parts[1], &r, &nonce);
    if (session != 0)
        return error_reply(&r, session);
    QByteArray serial;
    if (!open_piece(parts[2], m_id.serial_key(), &serial)) {
        qCInfo(lc_svcsim, "%s: the serial doesn't open", qPrintable(kind_name(r.kind)));
        return error_reply(&r, format_error);
    }
    r.serial = QString::fromLatin1(serial);

    // Read before a fault is applied, so the record holds what was asked.
    const uint piece = read_last_piece(&r, parts.value(3));
    const fault f = m_faults.take(r.kind, r.serial);
    http_reply reply;
    if (f.what != fault::action::none) {
        reply = apply(f, &r, nonce);
    } else if (piece != 0) {
        reply = error_reply_body(&r, piece);
    } else {
        const uint error = proper_answer(&r, nonce, &reply);
        if (error != 0)
            reply = error_reply_body(&r, error);
        else
            r.answer = QStringLiteral("ok");
    }
    reply.delay_ms = f.delay_ms;
    r.delay_ms = f.delay_ms;
    return finish(&r, reply);
}

uint service::open_session(const QByteArray& piece, request_record* r, quint64* nonce)
{
    QByteArray plain;
    if (!open_piece(piece, m_id.client_key(), &plain)) {
        qCInfo(lc_svcsim, "%s: the session doesn't open", qPrintable(kind_name(r->kind)));
        return session_error;
    }
    const QList<QByteArray> parts = plain.split('|');
    if (parts.size() != 2 || parts[0].size() != 16 || !lower_hex(parts[0]) || !all_digits(parts[1])) {
        qCInfo(lc_svcsim, "%s: the session reads \"%s\"", qPrintable(kind_name(r->kind)),
            qPrintable(QString::fromLatin1(plain.left(64))));
        return session_error;
    }
    if (QString::fromLatin1(parts[0]) != m_id.id_hex()) {
        qCInfo(lc_svcsim, "%s: unknown client %s", qPrintable(kind_name(r->kind)), parts[0].constData());
        return unknown_client;
    }
    bool ok = false;
    const quint64 n = parts[1].toULongLong(&ok);
    // A nonce is drawn so that it is never zero.
    if (!ok || n == 0) {
        qCInfo(lc_svcsim, "%s: bad session nonce \"%s\"", qPrintable(kind_name(r->kind)), parts[1].constData());
        return session_error;
    }
    r->nonce = QString::fromLatin1(parts[1]);
    *nonce = n;
    return 0;
}

bool service::open_piece(const QByteArray& piece, const QByteArray& key, QByteArray* plain)
{
    QByteArray frame;
    return tools::decode_hex(piece, &frame) && tools::unseal(frame, key, plain);
}

uint service::read_last_piece(request_record* r, const QByteArray& piece)
{
    if (r->kind == request_kind::confirm)
        return 0;
    if (r->kind == request_kind::file) {
        QByteArray version;
        if (!open_piece(piece, m_id.version_key(), &version)) {
            qCInfo(lc_svcsim, "file: the version doesn't open");
            return format_error;
        }
        r->version = QString::fromLatin1(version);
        return 0;
    }

    QByteArray text;
    if (!open_piece(piece, m_id.query_key(), &text)) {
        qCInfo(lc_svcsim, "update: the query doesn't open");
        return format_error;
    }
    // Only some device types send a query; the others send it empty.
    if (text.isEmpty())
        return 0;
    QJsonParseError parse {};
    const QJsonDocument doc = QJsonDocument::fromJson(text, &parse);
    if (!doc.isObject()) {
        qCInfo(lc_svcsim, "update: the query isn't a JSON object: %s", qPrintable(parse.errorString()));
        r->query = QString::fromUtf8(text);
        return format_error;
    }
    const QJsonObject query = doc.object();
    r->query = query;
    r->force = (query.value("request").toObject().value("flags").toInt() & 1) != 0;
    if (query.value("version").toInt() != query_format_version) {
        qCInfo(lc_svcsim, "update: query version %d", query.value("version").toInt());
        return format_error;
    }
    return 0;
}

uint service::proper_answer(request_record* r, quint64 nonce, http_reply* reply)
{
    const fleet_entry& entry = m_devices.entry_for(r->serial);
    switch (r->kind) {
    case request_kind::update:
        if (entry.error != 0)
            return entry.error;
        reply->body = sealed_as(r->kind, QJsonDocument(entry.answer()).toJson(QJsonDocument::Compact), nonce);
        break;
    case request_kind::file:
        if (!m_store.contains(r->version))
            return unknown_firmware;
        reply->body = sealed_as(r->kind, {}, nonce, r->version);
        break;
    case request_kind::confirm:
        if (entry.error != 0)
            return entry.error;
        reply->body = sealed_as(r->kind, "OK", nonce);
        break;
    default:
        return format_error;
    }
    if (reply->body.isEmpty())
        return internal_error;
    if (r->kind == request_kind::file)
        reply->content_type = "application/octet-stream";
    return 0;
}

QByteArray service::sealed_as(request_kind kind, const QByteArray& plain, quint64 nonce, const QString& firmware)
{
    switch (kind) {
    case request_kind::update:
        return tools::seal(plain, m_id.version_key()).toHex();
    case request_kind::confirm:
        return tools::seal(plain, m_id.serial_key()).toHex();
    case request_kind::file:
        // The firmware's frame is cached for the run; a fault's text is not.
        return firmware.isEmpty() ? tools::seal(plain, m_id.file_key(nonce))
                                  : m_store.sealed(firmware, nonce, m_id.file_key(nonce));
    default:
        break;
    }
    return {};
}

http_reply service::apply(const fault& f, request_record* r, quint64 nonce)
{
    r->fault = true;
    http_reply reply;
    switch (f.what) {
    case fault::action::error:
        return error_reply_body(r, f.code);
    case fault::action::garbage:
        r->answer = QStringLiteral("garbage");
        reply.body = f.text;
        break;
    case fault::action::drop:
        r->answer = QStringLiteral("drop");
        reply.drop = true;
        break;
    case fault::action::sealed:
        r->answer = QStringLiteral("sealed");
        reply.body = sealed_as(r->kind, f.text, nonce);
        if (r->kind == request_kind::file)
            reply.content_type = "application/octet-stream";
        break;
    case fault::action::serve:
        // Only a file request has a file to swap, and only a known one can be sent.
        if (r->kind != request_kind::file || !m_store.contains(QString::fromLatin1(f.text)))
            return error_reply_body(r, unknown_firmware);
        r->answer = QStringLiteral("served %1").arg(QString::fromLatin1(f.text));
        reply.body = sealed_as(r->kind, {}, nonce, QString::fromLatin1(f.text));
        reply.content_type = "application/octet-stream";
        break;
    case fault::action::none:
        break;
    }
    qCInfo(lc_svcsim, "%s %s: fault, %s", qPrintable(kind_name(r->kind)), qPrintable(r->serial), qPrintable(r->answer));
    return reply;
}

http_reply service::error_reply(request_record* r, uint code)
{
    return finish(r, error_reply_body(r, code));
}

http_reply service::error_reply_body(request_record* r, uint code)
{
    r->answer = QStringLiteral("E:%1").arg(code);
    return plain_reply(200, r->answer.toLatin1());
}

http_reply service::finish(request_record* r, http_reply reply)
{
    const qint64 sequence = m_log.append(*r);
    qCDebug(lc_svcsim, "#%lld %s %s%s: %s", sequence, qPrintable(kind_name(r->kind)), qPrintable(r->serial),
        r->force ? " (force)" : "", qPrintable(r->answer));
    return reply;
}

} // namespace svcsim
