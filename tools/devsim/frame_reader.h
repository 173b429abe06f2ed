#pragma once

#include "tools/devsim/frame.h"

#include <QByteArray>
#include <QString>

namespace devsim
{

// Cuts whole frames out of a TCP byte stream. Once a header is found malformed the
// stream can't be resynchronised, so the reader stays failed.
class frame_reader
{
public:
    enum class status { need_more, ready, malformed };

    void append(const QByteArray& bytes);
    // The next whole frame, if the buffer holds one.
    status next(frame& out);
    // Why the stream was refused; empty while it is good.
    const QString& error() const { return m_error; }
    int buffered() const { return m_buffer.size() - m_pos; }

private:
    status fail(const QString& why);

    // Frames are taken from m_pos on; the consumed front is dropped only now and then,
    // so a client that streams many frames at once costs no quadratic copying.
    QByteArray m_buffer;
    int m_pos = 0;
    QString m_error;
};

} // namespace devsim
