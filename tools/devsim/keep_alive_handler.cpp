#include "tools/devsim/keep_alive_handler.h"

#include "tools/devsim/connection.h"
#include "tools/devsim/ret_codes.h"

namespace devsim
{

void keep_alive_handler::handle(connection& conn, const frame& request)
{
    conn.reply(request, QJsonObject { { "Name", "KeepAlive" }, { "Ret", ret::ok } });
}

} // namespace devsim
