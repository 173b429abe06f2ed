#pragma once

#include <QList>

namespace devsim
{

class connection;
struct frame;

// Answers one kind of request. Each connection has its own handlers, so one that
// spans several requests (a firmware upload) can keep its state in itself.
class handler
{
public:
    virtual ~handler() = default;

    // The request ids it answers.
    virtual QList<quint16> message_ids() const = 0;
    // False for the requests that come before a session exists.
    virtual bool needs_login() const { return true; }
    virtual void handle(connection& conn, const frame& request) = 0;
};

} // namespace devsim
