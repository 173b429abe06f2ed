#include "tools/devsim/handler_table.h"

#include "tools/devsim/config_handler.h"
#include "tools/devsim/config_import_handler.h"
#include "tools/devsim/keep_alive_handler.h"
#include "tools/devsim/login_handler.h"
#include "tools/devsim/system_info_handler.h"
#include "tools/devsim/system_manager_handler.h"
#include "tools/devsim/upgrade_handler.h"

namespace devsim
{

handler_table::handler_table()
{
    add(std::make_unique<login_handler>());
    add(std::make_unique<keep_alive_handler>());
    add(std::make_unique<system_info_handler>());
    add(std::make_unique<config_handler>());
    add(std::make_unique<system_manager_handler>());
    add(std::make_unique<config_import_handler>());
    add(std::make_unique<upgrade_handler>());
}

handler_table::~handler_table() = default;

void handler_table::add(std::unique_ptr<handler> h)
{
    for (quint16 id : h->message_ids())
        m_by_id.insert(id, h.get());
    m_handlers.push_back(std::move(h));
}

} // namespace devsim
