#pragma once

#include <QByteArray>
#include <QJsonObject>

namespace devsim
{

// Reads the JSON object of a request the way a forgiving device does: trailing NULs,
// line feeds and blanks are ignored, and a body whose length field counted UTF-16
// units instead of bytes (so its tail is missing) is closed after its last whole
// member. `ok` is false when no object can be had; `repaired` tells that members
// were lost.
QJsonObject parse_request_body(const QByteArray& payload, bool* ok, bool* repaired = nullptr);

} // namespace devsim
