#include "app/command_context.h"

#include "app/core.h"
#include "scripting/sapi.h"

command_context::command_context(core& c, sapi& api, const command_call& call)
    : c(c)
    , api(api)
    , call(call)
{
}

void command_context::output(const QString& html) const
{
    if (plain())
        api.sapi_output(html, false);
}

scripting::command_result command_context::error(const QString& text) const
{
    if (plain())
        api.sapi_error(text, false);
    return scripting::command_result::failure();
}

QString command_context::task(int index) const
{
    // A short ident outlives its line; only a line that is there counts.
    const QString ident = c.task_manager().resolve(arg(index));
    if (!ident.isEmpty() && c.task_manager().contains(ident))
        return ident;
    error(QCoreApplication::translate("core", "Task not found"));
    return {};
}
