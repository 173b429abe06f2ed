#pragma once

#include "scripting/cmd_processor.h"
#include "scripting/command_result.h"

#include <QHash>
#include <QStringList>
#include <QUuid>

class core;
class sapi;

// One interpreter command as its handler receives it.
struct command_call
{
    QUuid ident;
    uint command_n = 0;
    size_t commands_total = 0;
    QString line;
    scripting::cmd_id command;
    QStringList args;
    param_list params;
    // Only plain commands show messages; the others are seen through their result.
    cmd_processor::execution_mode mode = cmd_processor::execution_mode::plain;
};

// What a command handler works with: the core, the scripting API and the call, with
// messages that show only for a plain command.
class command_context
{
public:
    command_context(core& c, sapi& api, const command_call& call);

    core& c;
    sapi& api;
    const command_call& call;

    QString arg(int index) const { return call.args.value(index); }
    bool has_param(const QString& key) const { return call.params.contains(key); }
    bool plain() const { return call.mode == cmd_processor::execution_mode::plain; }

    // Shows an HTML message in the output form.
    void output(const QString& html) const;
    // Shows an error; the failure outcome.
    scripting::command_result error(const QString& text) const;
    // The flow ident that the argument names (ident or short ident); empty, with "Task not
    // found" shown, when there is no such task.
    QString task(int index) const;
};

using command_handler = scripting::command_result (*)(command_context& context);
using command_table = QHash<qint64, command_handler>;

// The handlers of each area, added to the table by number.
void add_device_commands(command_table& table);
void add_display_commands(command_table& table);
void add_settings_commands(command_table& table);
void add_network_commands(command_table& table);
void add_pack_commands(command_table& table);
