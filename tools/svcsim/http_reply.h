#pragma once

#include <QByteArray>

namespace svcsim
{

// What a connection is to do with one request.
struct http_reply {
    bool drop = false; // close the connection instead of answering
    int status = 200;
    QByteArray content_type = "text/plain";
    QByteArray body; // implicitly shared: a large frame isn't copied per request
    int delay_ms = 0;
};

} // namespace svcsim
