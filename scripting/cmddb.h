#pragma once

#include "scripting/cmd_id.h"
#include "scripting/commands.h"

#include <QCoreApplication>
#include <QList>
#include <QMap>
#include <QString>

namespace scripting {

// What an argument position holds; its word names it in "Not enough arguments".
enum class argument_kind { file_name = 0, host, identifier, line, list, password, port, subnet, type, url, user, value };

struct command_argument
{
    argument_kind kind = argument_kind::value;
    bool required = true;
};

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

struct description_row
{
    cmd_id command;
    QString name;
    QString text;
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
    using descriptions = QMap<QString, description_row>; // keyed by the cmd_id's text

    // Replaces all three maps with the built-in vocabulary.
    void build();
    // Fills the descriptions with texts in the current language.
    void describe();

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
