#pragma once

#include <QByteArray>

#include "tools/svcsim/http_reply.h"

namespace svcsim
{

struct fault;
struct request_record;

// A fault's reply where nothing is sealed (JSON-RPC, the build repository): the text
// of garbage, sealed and serve goes out plain, an error as `error_body`, with its delay.
// The record notes the answer.
http_reply plain_fault_reply(const fault& f, request_record* r, const QByteArray& error_body);

// A reply with this status and body.
http_reply plain_reply(int status, const QByteArray& body, const QByteArray& content_type = "text/plain");

} // namespace svcsim
