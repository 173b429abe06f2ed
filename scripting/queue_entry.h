#pragma once

#include "plugins/cmd_id.h"
#include "tasks/parameters.h"

#include <QList>
#include <QMetaType>
#include <QStringList>
#include <QUuid>

namespace scripting {

// How a command runs: plain, as a conditional's condition, or as a substitution's
// sub-command, whose output the user doesn't see.
enum class execution_mode { plain = 0, conditional = 1, substitution = 2 };

// What a queue entry is; a kind above print does nothing and is consumed.
enum entry_kind : qint32 { assignment_entry = 0, command_entry = 1, flow_entry = 2, help_entry = 3, print_entry = 4 };

// A line waiting to be parsed. Lines of one script share their group.
struct input_line
{
    QUuid ident;
    QUuid group;
    QString text;
};

// One parsed statement waiting to run.
struct queue_entry
{
    QUuid ident;
    QUuid group;
    qint32 kind = command_entry;
    QString line; // for a print entry, the text to print
    cmd_id command;
    QStringList args;
    // An assignment holds its name and value here as its one pair.
    param_list params;
    // A conditional's condition, then- and else-list; a substitution's sub-commands, one each.
    QList<QList<queue_entry>> branches;
    execution_mode mode = execution_mode::plain;
    quint64 depth = 0;
};

} // namespace scripting

Q_DECLARE_METATYPE(scripting::execution_mode)
