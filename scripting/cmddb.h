#pragma once

#include "plugins/cmd_id.h"
#include "plugins/command_argument.h"
#include "plugins/plugin_command.h"
#include "scripting/commands.h"

#include <QCoreApplication>
#include <QList>
#include <QMap>
#include <QString>

namespace plugins {
class plugin_interface;
}

namespace scripting {

struct command_row
{
    qint32 min_args = 0;
    qint32 max_args = 0; // -1 for no limit; not enforced
    QList<command_argument> args;
    // How many trailing parts of the dotted name are arguments.
    qint32 name_arguments = 0;
    QString name;
};

// A part of a dotted name. The empty name as a key matches any part without an exact match.
struct tree_node
{
    cmd_id command; // null for a pure branch
    QMap<QString, tree_node> children;
    bool hidden = false; // works, but "?" doesn't list it
};

// The vocabulary of OVScript: command rows, the tree of dotted names and the few
// described commands. Built once before the interpreter; plugins add to and remove from
// it while the interpreter stands still, so it has no lock.
class cmddb
{
    Q_DECLARE_TR_FUNCTIONS(scripting::cmddb)
public:
    using table = QMap<cmd_id, command_row>;
    using tree = QMap<QString, tree_node>;
    using descriptions = QMap<QString, plugins::description_row>; // keyed by the cmd_id's text

    // Replaces all three maps with the built-in vocabulary.
    void build();
    // Fills the descriptions of the built-in commands with texts in the current language.
    void describe();
    // Adds or refreshes the descriptions of a plugin's commands, in its current language.
    void describe(const QString& ident, plugins::plugin_interface& plugin);

    // Joins a plugin's commands to the tree and the table, under its identifier, and
    // describes them. A name the tree has already keeps its node.
    void add_plugin(const QString& ident, plugins::plugin_interface& plugin);
    // Takes a plugin's commands and descriptions out again; the nodes of others stay.
    void remove_plugin(const QString& ident, plugins::plugin_interface& plugin);

    table& commands_table() { return m_table; }
    const table& commands_table() const { return m_table; }
    tree& commands_tree() { return m_tree; }
    const tree& commands_tree() const { return m_tree; }
    descriptions& commands_descriptions() { return m_descriptions; }
    const descriptions& commands_descriptions() const { return m_descriptions; }

    // The row's name; empty for an id without a row.
    QString command_name(const cmd_id& command) const;
    // The translated word for an argument kind.
    static QString argument_word(argument_kind kind);

private:
    table m_table;
    tree m_tree;
    descriptions m_descriptions;
};

} // namespace scripting
