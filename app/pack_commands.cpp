// Commands on firmware packs, plugins and Lua scripts.
#include "app/command_context.h"
#include "app/core.h"
#include "firmware_pack/pack.h"
#include "scripting/sapi.h"

#include <QCoreApplication>
#include <QDir>
#include <QFileInfo>

using scripting::command_result;

namespace {

class pack_commands
{
    Q_DECLARE_TR_FUNCTIONS(core)
public:
    static void add_to(command_table& t)
    {
        using c = scripting::commands;
        t.insert(qint64(c::apply_pack), &apply_pack);
        t.insert(qint64(c::describe_pack), &describe_pack);
        t.insert(qint64(c::list_packs), &list_packs);
        t.insert(qint64(c::list_plugins), &list_plugins);
        t.insert(qint64(c::plugin_load), &plugin_load);
        t.insert(qint64(c::plugin_unload), &plugin_unload);
        t.insert(qint64(c::run_lua_script), &run_lua_script);
        t.insert(qint64(c::runline_lua_script), &runline_lua_script);
    }

private:
    // A pack by name: a path as given, else a pack on offer of that file name.
    static QString pack_file(command_context& x, const QString& name)
    {
        const QString file = name + QStringLiteral(".ovpack");
        if (QFileInfo::exists(file))
            return file;
        for (const QString& path : x.api.sapi_pack_list()) {
            if (QFileInfo(path).fileName() == QFileInfo(file).fileName())
                return path;
        }
        return file;
    }

    static command_result apply_pack(command_context& x)
    {
        const QString name = x.arg(0);
        if (name == QLatin1String("cache"))
            return x.error(tr("Unable to use cache as firmware package"));
        std::shared_ptr<firmware_pack::pack> pack;
        if (!x.c.load_pack(pack, pack_file(x, name)))
            return x.error(tr("Error loading firmware package"));
        const QStringList wanted = x.call.args.mid(1);
        model_structures::device_list targets;
        for (const model_structures::pack_target& target : x.c.pack_targets(pack, true)) {
            if (wanted.isEmpty() || wanted.contains(target.serial, Qt::CaseInsensitive))
                targets << target;
        }
        if (targets.isEmpty())
            return x.error(tr("No target devices available"));
        for (const model_structures::pack_target& target : targets)
            x.output(QStringLiteral("<div style='color: blue;'>%1</div>").arg(target.serial.toUpper().toHtmlEscaped()));
        if (!x.c.apply_firmware_pack(pack, targets))
            return x.error(tr("Error applying firmware package"));
        return { true, name };
    }

    // The capability it needs isn't built in.
    static command_result describe_pack(command_context& x) { return x.error(tr("Command disabled")); }

    static command_result list_packs(command_context& x)
    {
        const bool batch = x.c.mode() == core::batch;
        for (const QString& path : x.api.sapi_pack_list()) {
            const QString file = QFileInfo(path).fileName();
            x.output((batch ? file : QStringLiteral("%1 [%2]").arg(file, path)).toHtmlEscaped());
        }
        return command_result::success();
    }

    static command_result list_plugins(command_context& x)
    {
        for (const QVariantMap& plugin : x.api.sapi_plugin_list()) {
            const QString ident = plugin.value(QStringLiteral("ident")).toString();
            x.output(QStringLiteral("%1 [%2, %3]")
                         .arg(ident.isEmpty() ? QStringLiteral("---") : ident,
                             plugin.value(QStringLiteral("filename")).toString(),
                             plugin.value(QStringLiteral("status")).toString())
                         .toHtmlEscaped());
        }
        return command_result::success();
    }

    // A file as given, else one of that name in the plugin folder.
    static command_result plugin_load(command_context& x)
    {
        const QString name = x.arg(0);
        const QString file
            = QFileInfo::exists(name) || QDir::isAbsolutePath(name) ? name : QDir(x.c.plugin_folder()).filePath(name);
        const QString ident = x.c.plugin_loader().load_file(file);
        if (ident.isEmpty())
            return x.error(tr("Failed to load plugin %1.").arg(name));
        if (!x.has_param(QStringLiteral("no-init")) && !x.c.start_plugin(ident))
            return x.error(tr("Failed to register plugin %1.").arg(ident));
        x.output(tr("Loaded plugin %1.").arg(ident).toHtmlEscaped());
        return { true, name };
    }

    static command_result plugin_unload(command_context& x)
    {
        const QString ident = x.arg(0);
        plugins::loader& loader = x.c.plugin_loader();
        const plugins::plugin_state state = loader.state(ident);
        if (state == plugins::plugin_state::unloaded)
            return x.error(tr("No such plugin: %1.").arg(ident));
        if (state == plugins::plugin_state::ready) {
            plugins::plugin_interface* plugin = loader.instance(ident);
            if (!plugin)
                return x.error(tr("Failed to unregister plugin %1.").arg(ident));
            x.c.command_db().remove_plugin(ident, *plugin);
        }
        if (!loader.unload(ident))
            return x.error(tr("Failed to unload plugin %1.").arg(ident));
        x.output(tr("Unloaded plugin %1.").arg(ident).toHtmlEscaped());
        return command_result::success();
    }

    static command_result run_lua_script(command_context& x)
    {
        x.api.sapi_run_lua_file(x.arg(0));
        return { true, x.arg(0) };
    }

    static command_result runline_lua_script(command_context& x)
    {
        x.api.sapi_run_lua_line(x.arg(0));
        return { true, x.arg(0) };
    }
};

} // namespace

void add_pack_commands(command_table& table)
{
    pack_commands::add_to(table);
}
