#pragma once

#include "plugins/cmd_id.h"
#include "plugins/command_argument.h"

#include <QList>
#include <QString>

namespace plugins {

// A command a plugin adds to the command tree, with its subcommands. The plugin keeps it
// alive for as long as it is loaded.
struct plugin_command
{
    // Number 0 marks a pure branch, which only holds subcommands. The plugin identifier
    // is filled in by the program.
    scripting::cmd_id id;
    qint32 min_args = 0;
    qint32 max_args = 0; // -1 for no limit; not enforced
    QList<scripting::command_argument> args;
    // How many trailing parts of the dotted name are arguments (0 or 1).
    qint32 name_arguments = 0;
    // The command's internal name, unique among the plugin's commands.
    QString row_name;
    // The part of the dotted name; the empty name takes any part without a match of its own.
    QString tree_name;
    QList<plugin_command*> children;
};

// A command with a one-line description, as the script-action editor offers it.
struct description_row
{
    scripting::cmd_id id;
    QString name;
    QString text;
};

} // namespace plugins
