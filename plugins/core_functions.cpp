#include "plugins/core_functions.h"

#include "scripting/cmddb.h"

#include <utility>

namespace plugins {

core_functions::core_functions(const scripting::cmddb& db, runner run)
    : m_db(db)
    , m_run(std::move(run))
{
}

QString core_functions::display_name()
{
    return tr("Core functions");
}

QList<description_row> core_functions::descriptions()
{
    QList<description_row> rows;
    for (const description_row& row : m_db.commands_descriptions()) {
        if (row.id.plugin.isEmpty())
            rows << row;
    }
    return rows;
}

QString core_functions::description(const scripting::cmd_id& id)
{
    return id.plugin.isEmpty() ? m_db.commands_descriptions().value(id.text()).text : QString();
}

bool core_functions::execute(const scripting::cmd_id& id, const QStringList& args, const param_list& params)
{
    if (!id.plugin.isEmpty() || !m_db.commands_descriptions().contains(id.text()))
        return false;
    return m_run(id, args, params);
}

} // namespace plugins
