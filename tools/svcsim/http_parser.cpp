#include "tools/svcsim/http_parser.h"

#include <QList>

namespace svcsim
{

namespace
{

    // A URL of sealed pieces is some hundreds of bytes; anything near this is
    // not a client of the service.
    constexpr int max_head = 32 * 1024;
    constexpr qint64 max_body = 1 << 20;

    bool is_token(const QByteArray& s)
    {
        if (s.isEmpty())
            return false;
        for (const char c : s) {
            if (c <= ' ' || c >= 127 || c == ':')
                return false;
        }
        return true;
    }

} // namespace

http_parser::result http_parser::next(http_request* out)
{
    if (m_broken)
        return result::bad;
    // Blank lines between requests are allowed before a request line.
    while (m_buffer.startsWith("\r\n"))
        m_buffer.remove(0, 2);
    const int end = m_buffer.indexOf("\r\n\r\n");
    if (end < 0)
        return m_buffer.size() > max_head ? fail(QStringLiteral("request head too long")) : result::need_more;
    if (end > max_head)
        return fail(QStringLiteral("request head too long"));

    const QList<QByteArray> lines = m_buffer.left(end).split('\n');
    const QList<QByteArray> request_line = lines.first().trimmed().split(' ');
    if (request_line.size() != 3 || !is_token(request_line[0]) || !request_line[1].startsWith('/')
        || !request_line[2].startsWith("HTTP/1."))
        return fail(QStringLiteral("bad request line"));

    http_request r;
    r.method = request_line[0];
    r.target = request_line[1];
    r.version = request_line[2];
    for (int i = 1; i < lines.size(); ++i) {
        const QByteArray line = lines[i].endsWith('\r') ? lines[i].chopped(1) : lines[i];
        const int colon = line.indexOf(':');
        if (colon <= 0 || !is_token(line.left(colon)))
            return fail(QStringLiteral("bad header line"));
        r.headers.insert(line.left(colon).toLower(), line.mid(colon + 1).trimmed());
    }
    if (r.headers.contains("transfer-encoding"))
        return fail(QStringLiteral("request bodies in chunks aren't taken"));

    qint64 body = 0;
    if (r.headers.contains("content-length")) {
        bool ok = false;
        body = r.headers.value("content-length").toLongLong(&ok);
        if (!ok || body < 0 || body > max_body)
            return fail(QStringLiteral("bad Content-Length"));
    }
    const qint64 total = end + 4 + body;
    if (m_buffer.size() < total)
        return result::need_more;
    r.body = m_buffer.mid(end + 4, int(body));
    m_buffer.remove(0, int(total));
    *out = r;
    return result::request;
}

http_parser::result http_parser::fail(const QString& why)
{
    m_broken = true;
    m_error = why;
    m_buffer.clear();
    return result::bad;
}

} // namespace svcsim
