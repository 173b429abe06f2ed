#pragma once

#include <QByteArray>
#include <QHash>

namespace svcsim
{

// One parsed HTTP/1.x request: its head, and the body a POST carries.
struct http_request {
    QByteArray method;
    QByteArray target; // as sent: path and query, nothing decoded
    QByteArray version; // "HTTP/1.1"
    QHash<QByteArray, QByteArray> headers; // names in lower case, values trimmed
    QByteArray body;

    // HTTP/1.1 keeps the connection unless told "close"; 1.0 only when asked.
    bool keep_alive() const;
    // The target without its query part.
    QByteArray path() const;
};

} // namespace svcsim
