#pragma once

#include "scripting/cmd_processor.h"

#include <QStringList>
#include <QUuid>

// One interpreter command as its handler in the core receives it.
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
