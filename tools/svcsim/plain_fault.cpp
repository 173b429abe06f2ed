#include "tools/svcsim/plain_fault.h"

#include "tools/svcsim/fault.h"
#include "tools/svcsim/request_record.h"

namespace svcsim
{

http_reply plain_fault_reply(const fault& f, request_record* r, const QByteArray& error_body)
{
    r->fault = true;
    r->delay_ms = f.delay_ms;
    http_reply reply;
    switch (f.what) {
    case fault::action::error:
        r->answer = QStringLiteral("E:%1").arg(f.code);
        reply.body = error_body;
        break;
    case fault::action::garbage:
    case fault::action::sealed:
    case fault::action::serve: // no file to swap here: its text is as good as garbage
        r->answer = QStringLiteral("garbage");
        reply.body = f.text;
        break;
    case fault::action::drop:
        r->answer = QStringLiteral("drop");
        reply.drop = true;
        break;
    case fault::action::none:
        break;
    }
    reply.delay_ms = f.delay_ms;
    return reply;
}

http_reply plain_reply(int status, const QByteArray& body, const QByteArray& content_type)
{
    http_reply reply;
    reply.status = status;
    reply.body = body;
    reply.content_type = content_type;
    return reply;
}

} // namespace svcsim
