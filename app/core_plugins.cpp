// Plugins: their start, their commands, and what the core tells them.
#include "app/core.h"

#include "app/fixed_names.h"
#include "scripting/sapi.h"

void core::start_plugins()
{
    const QStringList tags { fixed_names::tags::core, fixed_names::tags::plugins };
    stage(tr("Loading plugins"));
    const int loaded = m_plugins->load_directory(plugin_folder());
    log(fixed_names::sources::core, tr("Loaded %1 plugins").arg(loaded), tags);

    stage(tr("Starting plugins"));
    int started = 0;
    for (const plugins::plugin_record& r : m_plugins->records(true)) {
        if (start_plugin(r.ident))
            ++started;
    }
    log(fixed_names::sources::core, tr("Initialized %1 plugins").arg(started), tags);
}

bool core::start_plugin(const QString& ident)
{
    const QStringList tags { fixed_names::tags::core, fixed_names::tags::plugins };
    plugins::plugin_interface* plugin = m_plugins->instance(ident);
    if (!plugin) {
        log(fixed_names::sources::core, tr("Plugin %1 command integration error").arg(ident), tags);
        return false;
    }
    plugin->set_language(m_current_language);
    m_cmddb.add_plugin(ident, *plugin);
    // A plugin that can't start keeps its place and its commands, which then do nothing.
    if (!plugin->initialize(m_sapi.get())) {
        log(fixed_names::sources::core, tr("Plugin %1 initialization error").arg(ident), tags);
        return false;
    }
    m_plugins->mark_ready(ident);
    return true;
}

void core::run_plugin_command(const scripting::cmd_id& command, const QStringList& args, const param_list& params)
{
    plugins::plugin_interface* plugin = m_plugins->instance(command);
    // A line read while the plugin was there may run after its unload.
    if (!plugin) {
        m_sapi->sapi_error(tr("Bad plugin ident: %1").arg(command.plugin), false);
        return;
    }
    bool ok = false;
    // What a plugin lets through of the API's refusals ends its command, not the program.
    try {
        ok = plugin->execute(command, args, params);
    } catch (const sapi::unsupported_value_exception& e) {
        m_sapi->sapi_error(QString::fromUtf8(e.what()), false);
    } catch (const QString& refusal) {
        m_sapi->sapi_error(refusal, false);
    }
    if (!ok)
        m_sapi->sapi_error(tr("Plugin %1 failed to execute command %2").arg(command.plugin).arg(command.number), false);
}

bool core::run_plugin_action(const QString& command_text)
{
    const QStringList tags { fixed_names::tags::core, fixed_names::tags::plugins };
    const scripting::cmd_id command = scripting::cmd_id::from_text(command_text);
    plugins::plugin_interface* plugin = m_plugins->instance(command);
    if (!plugin) {
        log(fixed_names::sources::core, tr("Bad plugin ident: %1").arg(command.plugin), tags);
        return false;
    }
    if (!plugin->toolbar_action(command)) {
        log(fixed_names::sources::core, tr("Plugin action %1 failed").arg(command_text), tags);
        return false;
    }
    return true;
}

void core::on_plugin_loader_message(const QString& message)
{
    log(fixed_names::sources::core, message, { fixed_names::tags::core, fixed_names::tags::plugins });
}
