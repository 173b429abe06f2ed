#pragma once

namespace scripting {

// What an argument position holds; its word names it in "Not enough arguments".
enum class argument_kind {
    file_name = 0,
    host,
    identifier,
    line,
    list,
    password,
    port,
    subnet,
    type,
    url,
    user,
    value
};

struct command_argument
{
    argument_kind kind = argument_kind::value;
    bool required = true;
};

} // namespace scripting
