#pragma once

#include <QString>

namespace scripting {

// What a command gives back: ok is what if(...) tests, result what $(...) substitutes.
struct command_result
{
    bool ok = false;
    QString result;

    static command_result success() { return { true, QString() }; }
    // The visible form of failure, which a substitution after a failed command sees.
    static command_result failure() { return { false, QStringLiteral("FIXME: dummy result") }; }
};

} // namespace scripting
