#include "tools/svcsim/rpc_service.h"

#include <QDateTime>
#include <QJsonArray>
#include <QJsonDocument>

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

    // The standard JSON-RPC 2.0 error codes.
    constexpr int parse_error = -32700;
    constexpr int invalid_request = -32600;
    constexpr int method_not_found = -32601;
    constexpr int invalid_params = -32602;

    QJsonObject error_object(int code, const QString& message)
    {
        return QJsonObject { { "code", code }, { "message", message } };
    }

    QByteArray envelope(const QJsonValue& id, const QString& member, const QJsonValue& value)
    {
        return QJsonDocument(QJsonObject { { "jsonrpc", "2.0" }, { "id", id }, { member, value } })
            .toJson(QJsonDocument::Compact);
    }

    bool texts(const QJsonArray& params, int count)
    {
        for (int i = 0; i < count; ++i) {
            if (!params.at(i).isString() || params.at(i).toString().isEmpty())
                return false;
        }
        return true;
    }

} // namespace

rpc_service::rpc_service(fault_table& faults, request_log& log)
    : m_faults(faults)
    , m_log(log)
{
}

http_reply rpc_service::handle(const http_request& request)
{
    request_record r;
    r.kind = request_kind::rpc;
    r.time_ms = QDateTime::currentMSecsSinceEpoch();
    r.path = QString::fromLatin1(request.target);
    if (request.method != "POST") {
        r.answer = QStringLiteral("http 405");
        return finish(&r, plain_reply(405, "only POST\n"));
    }
    const QJsonObject call = QJsonDocument::fromJson(request.body).object();
    const QJsonValue id = call.value("id");
    if (call.isEmpty() || !call.value("method").isString()
        || call.value("jsonrpc").toString() != QLatin1String("2.0")) {
        const int code = call.isEmpty() ? parse_error : invalid_request;
        r.answer = QStringLiteral("error %1").arg(code);
        return finish(&r,
            plain_reply(
                200, envelope(QJsonValue::Null, "error", error_object(code, "not a call")), "application/json"));
    }
    r.method = call.value("method").toString();
    r.params = call.value("params");
    r.id = id;
    if (r.method == QLatin1String("register_cloud_mac"))
        r.serial = r.params.toArray().at(0).toString();

    const fault f = m_faults.take(request_kind::rpc, r.serial);
    if (f.what != fault::action::none)
        return finish(
            &r, plain_fault_reply(f, &r, envelope(id, "error", error_object(int(f.code), "simulated error"))));

    const QJsonObject result = outcome(r.method, r.params);
    http_reply reply;
    if (result.contains("error")) {
        r.answer = QStringLiteral("error %1").arg(result.value("error").toObject().value("code").toInt());
        reply = plain_reply(200, envelope(id, "error", result.value("error")), "application/json");
    } else {
        r.answer = QStringLiteral("ok");
        reply = plain_reply(200, envelope(id, "result", result.value("result")), "application/json");
    }
    reply.delay_ms = f.delay_ms;
    r.delay_ms = f.delay_ms;
    return finish(&r, reply);
}

QJsonObject rpc_service::outcome(const QString& method, const QJsonValue& params_value)
{
    const QJsonArray params = params_value.toArray();
    if (method == QLatin1String("register_new_device")) {
        if (params.size() != 2 || !texts(params, 2))
            return { { "error", error_object(invalid_params, "expected [type, version]") } };
        return { { "result", true } };
    }
    if (method == QLatin1String("register_cloud_mac")) {
        if (params.size() != 4 || !texts(params, 1) || !params.at(1).isDouble() || !params.at(2).isString()
            || !params.at(3).isString())
            return { { "error", error_object(invalid_params, "expected [serial, port, mac, address]") } };
        const QString serial = params.at(0).toString();
        if (!m_mac_dates.contains(serial))
            m_mac_dates.insert(serial, QDateTime::currentDateTime().toString(date_format));
        return { { "result",
            QJsonObject { { "result", true }, { "date", m_mac_dates.value(serial) }, { "operator_mac", params.at(2) },
                { "operator_ip", params.at(3) } } } };
    }
    return { { "error", error_object(method_not_found, QStringLiteral("no method %1").arg(method)) } };
}

http_reply rpc_service::finish(request_record* r, http_reply reply)
{
    const qint64 sequence = m_log.append(*r);
    qCDebug(lc_svcsim, "#%lld rpc %s: %s", sequence, qPrintable(r->method), qPrintable(r->answer));
    return reply;
}

} // namespace svcsim
