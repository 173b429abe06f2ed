#include "scripting/cmddb.h"

#include "plugins/plugin_interface.h"

#include <utility>

namespace scripting {

namespace {

using kind = argument_kind;
using c = commands;

command_argument req(kind k)
{
    return { k, true };
}

command_argument opt(kind k)
{
    return { k, false };
}

std::pair<cmd_id, command_row> row(c number, const QString& name, qint32 min, qint32 max,
    QList<command_argument> args = {}, qint32 name_arguments = 0)
{
    return { cmd_id { QString(), qint64(number) }, command_row { min, max, std::move(args), name_arguments, name } };
}

constexpr qint32 any = -1;

QList<std::pair<cmd_id, command_row>> builtin_rows()
{
    return {
        row(c::add_device, "add_device", 1, 4, { req(kind::host), opt(kind::port), opt(kind::user), opt(kind::password) }),
        row(c::add_task, "add_task", 2, any, { req(kind::identifier), req(kind::type) }),
        row(c::aliases, "aliases", 0, 0),
        row(c::apply_pack, "apply_pack", 1, any, { req(kind::identifier), opt(kind::list) }),
        // The trailing comma is the row's name as it has always been; the tree name has none.
        row(c::assign_addresses, "assign_addresses,", 2, 2, { req(kind::value), req(kind::value) }),
        row(c::attach_event, "attach_event", 1, any, { req(kind::identifier) }),
        row(c::caps, "caps", 0, 0),
        row(c::change_device_ip, "change_device_ip", 2, 3, { req(kind::identifier), req(kind::host), opt(kind::subnet) }),
        row(c::check_devices, "check_devices", 2, any, { req(kind::type), req(kind::list) }),
        row(c::clear, "clear", 0, 0),
        row(c::clear_devices, "clear_devices", 0, 0),
        row(c::clear_log, "clear_log", 0, 0),
        row(c::console_mono_font, "console_mono_font", 1, 1, { req(kind::value) }),
        row(c::delete_variable, "delete_variable", 1, 1, { req(kind::identifier) }),
        row(c::describe_pack, "describe_pack", 1, 1, { req(kind::identifier) }),
        row(c::detach_event, "detach_event", 1, any, { req(kind::identifier) }),
        row(c::disable_client, "disable_client", 0, 0),
        row(c::display_columns, "display_columns", 1, any, { req(kind::list) }),
        row(c::download_file, "download_file", 2, 2, { req(kind::url), req(kind::file_name) }),
        row(c::dump_task, "dump_task", 1, 1, { req(kind::identifier) }),
        row(c::echo, "echo", 1, 1, { req(kind::value) }),
        row(c::enable_client, "enable_client", 0, 0),
        row(c::exit, "exit", 0, 0),
        row(c::export_devices, "export_devices", 1, 1, { req(kind::file_name) }),
        row(c::export_report, "export_report", 1, 1, { req(kind::file_name) }),
        row(c::fix_devices, "fix_devices", 0, 0),
        row(c::import_devices, "import_devices", 1, 1, { req(kind::file_name) }),
        row(c::limit_tasks, "limit_tasks", 1, 1, { req(kind::value) }),
        row(c::list_attached_events, "list_attached_events", 0, 0),
        row(c::list_packs, "list_packs", 0, 0),
        row(c::list_plugins, "list_plugins", 0, 0),
        row(c::list_tasks, "list_tasks", 0, 0),
        row(c::log, "log", 1, 1, { req(kind::line) }),
        row(c::log_filters, "log_filters", 0, 0),
        row(c::macro_delete, "macro_delete", 1, 1, { req(kind::identifier) }),
        row(c::macro_list, "macro_list", 0, 0),
        row(c::macro_record, "macro_record", 1, 1, { req(kind::identifier) }),
        row(c::macro_run, "macro_run", 1, 1, { req(kind::identifier) }),
        row(c::macro_show, "macro_show", 1, 1, { req(kind::identifier) }),
        row(c::macro_stop, "macro_stop", 0, 0),
        row(c::network_get, "network_get", 1, 1, { req(kind::url) }),
        row(c::network_post, "network_post", 1, 2, { req(kind::url), opt(kind::value) }),
        row(c::notify_beep, "notify_beep", 2, any, { req(kind::value), req(kind::value) }),
        row(c::notify_sound, "notify_sound", 1, 1, { req(kind::file_name) }),
        row(c::play_video, "play_video", 1, 1, { req(kind::url) }),
        row(c::plugin_load, "plugin_load", 1, 1, { req(kind::file_name) }),
        row(c::plugin_unload, "plugin_unload", 1, 1, { req(kind::identifier) }),
        row(c::print, "print", 1, any, { req(kind::value) }),
        row(c::reboot_device, "reboot_device", 1, 1, { req(kind::identifier) }),
        row(c::register_devices, "register_devices", 1, any, { req(kind::identifier) }),
        row(c::remove_alias, "remove_alias", 1, 1, { req(kind::identifier) }),
        row(c::reset_columns, "reset_columns", 0, 0),
        row(c::reset_device_configuration, "reset_device_configuration", 1, 1, { req(kind::identifier) }),
        row(c::run_lua_script, "run_lua_script", 1, 1, { req(kind::file_name) }),
        row(c::run_task, "run_task", 1, 1, { req(kind::identifier) }),
        row(c::runline_lua_script, "runline_lua_script", 1, 1, { req(kind::line) }),
        row(c::scan_devices, "scan_devices", 0, 1, { opt(kind::value) }),
        row(c::set_log_filters, "set_log_filters", 0, any),
        row(c::settings_get, "settings_get", 1, 2, { req(kind::identifier), opt(kind::value) }, 1),
        row(c::settings_set, "settings_set", 2, 2, { req(kind::identifier), req(kind::value) }, 1),
        row(c::sleep, "sleep", 1, 1, { req(kind::value) }),
        row(c::stop, "stop", 0, 0),
        row(c::toggle_log_display, "toggle_log_display", 1, 1, { req(kind::value) }),
        row(c::toggle_menu, "toggle_menu", 2, 2, { req(kind::identifier), req(kind::value) }, 1),
        row(c::toolbar, "toolbar", 2, 2, { req(kind::identifier), req(kind::value) }, 1),
        row(c::url_contents, "url_contents", 1, 1, { req(kind::url) }),
        row(c::vars, "vars", 0, 0),
        row(c::version, "version", 0, 0),
        row(c::view_image, "view_image", 1, 1, { req(kind::url) }),
    };
}

tree_node run(c number, cmddb::tree children = {})
{
    return { cmd_id { QString(), qint64(number) }, std::move(children), false };
}

tree_node hidden_run(c number, cmddb::tree children = {})
{
    return { cmd_id { QString(), qint64(number) }, std::move(children), true };
}

tree_node branch(cmddb::tree children, bool hidden = false)
{
    return { cmd_id {}, std::move(children), hidden };
}

// The empty name: a free-form last part, such as a settings key.
const QString any_part;

cmddb::tree builtin_tree()
{
    return {
        { "aliases", run(c::aliases, { { "remove", run(c::remove_alias) } }) },
        { "caps", run(c::caps) },
        { "clean", run(c::clear) },
        { "clear", run(c::clear) },
        { "client", branch({ { "disable", run(c::disable_client) }, { "enable", run(c::enable_client) } }) },
        { "devices",
            branch({
                { "add", run(c::add_device) },
                { "assign_addresses", run(c::assign_addresses) },
                { "change_ip", run(c::change_device_ip) },
                { "check", run(c::check_devices) },
                { "clear", run(c::clear_devices) },
                { "export", run(c::export_devices) },
                { "fix", hidden_run(c::fix_devices) },
                { "import", run(c::import_devices) },
                { "reboot", run(c::reboot_device) },
                { "register", hidden_run(c::register_devices) },
                { "reset_configuration", run(c::reset_device_configuration) },
                { "scan", run(c::scan_devices) },
            }) },
        { "display",
            branch(
                {
                    { "columns", run(c::display_columns, { { "reset", run(c::reset_columns) } }) },
                    { "console", branch({ { "font", branch({ { "mono", run(c::console_mono_font) } }) } }) },
                    { "log",
                        branch({
                            { "clear", run(c::clear_log) },
                            { "filters", branch({ { "get", run(c::log_filters) }, { "set", run(c::set_log_filters) } }) },
                            { "toggle", run(c::toggle_log_display) },
                        }) },
                    { "menu", branch({ { any_part, hidden_run(c::toggle_menu) } }) },
                    { "toolbar", branch({ { any_part, hidden_run(c::toolbar) } }) },
                },
                true) },
        { "download_file", run(c::download_file) },
        { "echo", run(c::echo) },
        { "events",
            branch({ { "attach", run(c::attach_event) }, { "detach", run(c::detach_event) },
                { "list", run(c::list_attached_events) } }) },
        { "exit", run(c::exit) },
        { "log", run(c::log) },
        { "macro",
            branch({
                { "delete", run(c::macro_delete) },
                { "list", run(c::macro_list) },
                { "record", run(c::macro_record) },
                { "run", run(c::macro_run) },
                { "show", run(c::macro_show) },
                { "stop", run(c::macro_stop) },
            }) },
        { "network", branch({ { "get", hidden_run(c::network_get) }, { "post", hidden_run(c::network_post) } }, true) },
        { "notify", branch({ { "beep", run(c::notify_beep) }, { "sound", run(c::notify_sound) } }) },
        { "pack",
            branch({ { "apply", run(c::apply_pack) }, { "describe", run(c::describe_pack) }, { "list", run(c::list_packs) } }) },
        { "play", hidden_run(c::play_video) },
        { "plugins",
            branch({ { "list", run(c::list_plugins) }, { "load", run(c::plugin_load) }, { "unload", run(c::plugin_unload) } }) },
        { "print", run(c::print) },
        { "report", branch({ { "export", run(c::export_report) } }) },
        { "script",
            branch({ { "lua", branch({ { "run", run(c::run_lua_script) }, { "runline", run(c::runline_lua_script) } }) } }) },
        { "settings",
            branch({ { "get", branch({ { any_part, hidden_run(c::settings_get) } }) },
                { "set", branch({ { any_part, hidden_run(c::settings_set) } }) } }) },
        { "sleep", run(c::sleep) },
        { "stop", run(c::stop) },
        { "task",
            branch({
                { "add", run(c::add_task) },
                { "dump", run(c::dump_task) },
                { "limit", run(c::limit_tasks) },
                { "list", run(c::list_tasks) },
                { "run", run(c::run_task) },
            }) },
        { "url_contents", run(c::url_contents) },
        { "vars", run(c::vars, { { "delete", run(c::delete_variable) } }) },
        { "version", run(c::version) },
        { "view_image", hidden_run(c::view_image) },
    };
}

// The commands that the script-action editor offers, with their texts in the current language.
QMap<c, QString> description_texts()
{
    return {
        { c::caps, cmddb::tr("Print software capabilities") },
        { c::clear, cmddb::tr("Clear output") },
        { c::clear_devices, cmddb::tr("Clear device list") },
        { c::scan_devices, cmddb::tr("Scan for devices") },
        { c::version, cmddb::tr("Print software version") },
    };
}

// A plugin's tree is its own data: a cycle in it must not run away.
constexpr int deepest_plugin_command = 16;

// A copy of a plugin's text in the program's own memory: a literal's data lies in the
// plugin's library, which may be unloaded while the copy lives on.
QString own(const QString& text)
{
    return QString(text.constData(), text.size());
}

// The identity of a plugin's command in the program: a pure branch has none.
cmd_id plugin_id(const QString& ident, const plugins::plugin_command& command)
{
    return command.id.number == 0 ? cmd_id() : cmd_id { ident, command.id.number };
}

void add_commands(cmddb::table& rows, cmddb::tree& level, const QString& ident,
    const QList<plugins::plugin_command*>& commands, int depth = 0)
{
    if (depth > deepest_plugin_command)
        return;
    for (const plugins::plugin_command* command : commands) {
        if (!command)
            continue;
        const cmd_id id = plugin_id(ident, *command);
        auto node = level.find(command->tree_name);
        if (node == level.end())
            node = level.insert(own(command->tree_name), tree_node { id, {}, false });
        if (!id.is_null())
            rows.insert(id,
                command_row { command->min_args, command->max_args, command->args, command->name_arguments,
                    own(command->row_name) });
        add_commands(rows, node->children, ident, command->children, depth + 1);
    }
}

void remove_commands(cmddb::table& rows, cmddb::tree& level, const QString& ident,
    const QList<plugins::plugin_command*>& commands, int depth = 0)
{
    if (depth > deepest_plugin_command)
        return;
    for (const plugins::plugin_command* command : commands) {
        if (!command)
            continue;
        const cmd_id id = plugin_id(ident, *command);
        if (!id.is_null())
            rows.remove(id);
        auto node = level.find(command->tree_name);
        if (node == level.end())
            continue;
        remove_commands(rows, node->children, ident, command->children, depth + 1);
        // A node of the program or of another plugin stays, and so does a branch that still holds theirs.
        if (node->command.plugin == ident)
            node->command = cmd_id();
        if (node->command.is_null() && node->children.isEmpty())
            level.erase(node);
    }
}

} // namespace

void cmddb::build()
{
    table rows;
    for (const auto& [id, r] : builtin_rows())
        rows.insert(id, r);
    m_table = rows;
    m_tree = builtin_tree();
    m_descriptions.clear();
    for (const c number : description_texts().keys()) {
        const cmd_id id { QString(), qint64(number) };
        m_descriptions.insert(id.text(), { id, command_name(id), QString() });
    }
    describe();
}

void cmddb::describe()
{
    const QMap<c, QString> texts = description_texts();
    for (auto it = texts.cbegin(); it != texts.cend(); ++it) {
        const cmd_id id { QString(), qint64(it.key()) };
        auto found = m_descriptions.find(id.text());
        if (found != m_descriptions.end())
            found->text = it.value();
    }
}

void cmddb::describe(const QString& ident, plugins::plugin_interface& plugin)
{
    for (const plugins::description_row& row : plugin.descriptions()) {
        const cmd_id id { ident, row.id.number };
        m_descriptions.insert(id.text(), { id, own(row.name), own(plugin.description(id)) });
    }
}

void cmddb::add_plugin(const QString& ident, plugins::plugin_interface& plugin)
{
    add_commands(m_table, m_tree, ident, plugin.commands());
    describe(ident, plugin);
}

void cmddb::remove_plugin(const QString& ident, plugins::plugin_interface& plugin)
{
    remove_commands(m_table, m_tree, ident, plugin.commands());
    for (auto it = m_descriptions.begin(); it != m_descriptions.end();) {
        if (it->id.plugin == ident)
            it = m_descriptions.erase(it);
        else
            ++it;
    }
}

QString cmddb::command_name(const cmd_id& command) const
{
    return m_table.value(command).name;
}

QString cmddb::argument_word(argument_kind kind)
{
    switch (kind) {
    case argument_kind::file_name:
        return tr("file name");
    case argument_kind::host:
        return tr("host");
    case argument_kind::identifier:
        return tr("identifier");
    case argument_kind::line:
        return tr("line");
    case argument_kind::list:
        return tr("list");
    case argument_kind::password:
        return tr("password");
    case argument_kind::port:
        return tr("port");
    case argument_kind::subnet:
        return tr("subnet");
    case argument_kind::type:
        return tr("type");
    case argument_kind::url:
        return tr("URL");
    case argument_kind::user:
        return tr("user");
    case argument_kind::value:
        return tr("value");
    }
    return {};
}

} // namespace scripting
