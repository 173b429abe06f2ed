#pragma once

#include <QHash>
#include <QJsonObject>
#include <QJsonValue>
#include <QString>

#include "tools/svcsim/http_reply.h"

namespace svcsim
{

class fault_table;
class request_log;
struct http_request;
struct request_record;

// The registration service's JSON-RPC 2.0 endpoint, POST /inrpcapi/. Every call is
// recorded with its method and params; faults of kind "rpc" (for one serial: the first
// param of register_cloud_mac) replace the answer.
//
//   register_new_device [type, version]            -> true
//   register_cloud_mac  [serial, port, mac, ip]    -> {"result": true, "date": first time
//                          this serial was registered, "operator_mac": mac, "operator_ip": ip}
//
// Bad params, unknown methods and bodies that aren't a call get a JSON-RPC error.
class rpc_service
{
public:
    static inline const QByteArray path = "/inrpcapi/";
    static inline const QString date_format = QStringLiteral("yyyy-MM-dd hh:mm:ss");

    rpc_service(fault_table& faults, request_log& log);

    http_reply handle(const http_request& request);

private:
    // The "result" of a call, or a JSON-RPC error object when the call is wrong.
    QJsonObject outcome(const QString& method, const QJsonValue& params);
    http_reply finish(request_record* r, http_reply reply);

    fault_table& m_faults;
    request_log& m_log;
    QHash<QString, QString> m_mac_dates; // by serial: when it was first registered
};

} // namespace svcsim
