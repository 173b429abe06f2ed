#include "tools/devsim/config_import_handler.h"

#include <QCryptographicHash>

#include "tools/devsim/connection.h"
#include "tools/devsim/device.h"
#include "tools/devsim/ret_codes.h"

namespace devsim
{

void config_import_handler::handle(connection& conn, const frame& request)
{
    device_state& s = conn.owner().state();
    ++s.imports;
    s.imported_size = request.payload.size();
    s.imported_md5 = QString::fromLatin1(QCryptographicHash::hash(request.payload, QCryptographicHash::Md5).toHex());
    // A device takes an imported configuration on its next start.
    conn.reply(request, QJsonObject { { "Name", "" }, { "Ret", ret::need_reboot } });
}

} // namespace devsim
