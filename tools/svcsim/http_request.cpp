#include "tools/svcsim/http_request.h"

namespace svcsim
{

bool http_request::keep_alive() const
{
    const QByteArray connection = headers.value("connection").toLower();
    if (version == "HTTP/1.0")
        return connection.contains("keep-alive");
    return !connection.contains("close");
}

QByteArray http_request::path() const
{
    const int q = target.indexOf('?');
    return q < 0 ? target : target.left(q);
}

} // namespace svcsim
