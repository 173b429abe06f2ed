#pragma once

#include <QByteArray>
#include <QList>
#include <QString>

#include <functional>

#include "tools/svcsim/http_reply.h"
#include "tools/svcsim/request_kind.h"

namespace tools
{
class service_identity;
}

namespace svcsim
{

class fault_table;
class firmware_store;
class fleet;
class request_log;
struct fault;
struct http_request;
struct request_record;

// The update service's answers, one request at a time. Every answer to the
// three questions is 200 with a body: a sealed answer, or "E:<n>" when the
// request can't be read. Every request is recorded.
//
//   GET /update/<session>/<serial>/<query>/   hex of the verdict under version_key
//   GET /file/<session>/<serial>/<version>    the raw frame of the file under file_key
//   GET /confirm/<session>/<serial>/          hex of "OK" under serial_key
class service
{
public:
    // Error numbers of the "E:<n>" answers.
    enum error_code : uint {
        format_error = 1, // a piece isn't hexadecimal or doesn't open, or the path is wrong
        session_error = 2, // the session doesn't open or doesn't read "<id>|<nonce>"
        internal_error = 3, // the answer couldn't be sealed
        unknown_client = 6, // the session names another client
        unknown_firmware = 10, // no file for that identifier
    };

    service(const tools::service_identity& id, fleet& devices, firmware_store& store, fault_table& faults, request_log& log);

    http_reply handle(const http_request& request);
    // Requests whose path starts with the prefix go to the handler instead.
    using handler = std::function<http_reply(const http_request&)>;
    void add_route(const QByteArray& prefix, handler h) { m_routes.append({ prefix, std::move(h) }); }

private:
    // Each returns 0 or the error number to answer.
    uint open_session(const QByteArray& piece, request_record* r, quint64* nonce);
    uint read_last_piece(request_record* r, const QByteArray& piece);
    uint proper_answer(request_record* r, quint64 nonce, http_reply* reply);

    // False for text that isn't lower-case hexadecimal of a frame that opens.
    bool open_piece(const QByteArray& piece, const QByteArray& key, QByteArray* plain);
    // Sealed under the key of the kind's answer; for a file, `firmware` names the
    // file to send in place of `plain`.
    QByteArray sealed_as(request_kind kind, const QByteArray& plain, quint64 nonce, const QString& firmware = {});
    http_reply apply(const fault& f, request_record* r, quint64 nonce);
    http_reply error_reply(request_record* r, uint code);
    http_reply error_reply_body(request_record* r, uint code);
    http_reply finish(request_record* r, http_reply reply);

    const tools::service_identity& m_id;
    fleet& m_devices;
    firmware_store& m_store;
    fault_table& m_faults;
    request_log& m_log;
    QList<QPair<QByteArray, handler>> m_routes;
};

} // namespace svcsim
