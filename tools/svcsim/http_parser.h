#pragma once

#include <QByteArray>
#include <QString>

#include "tools/svcsim/http_request.h"

namespace svcsim
{

// Cuts requests out of the bytes of one connection, in order. Pipelined
// requests are kept until asked for.
class http_parser
{
public:
    enum class result { need_more, request, bad };

    void feed(const QByteArray& data) { m_buffer += data; }
    // The next whole request; `bad` once the stream can't be read any further,
    // with the reason in error().
    result next(http_request* out);
    const QString& error() const { return m_error; }
    // Bytes held that belong to no finished request yet.
    int pending() const { return m_buffer.size(); }

private:
    result fail(const QString& why);

    QByteArray m_buffer;
    QString m_error;
    bool m_broken = false;
};

} // namespace svcsim
