#pragma once

#include <QString>

namespace scripting
{

// A button of the script toolbar and what it runs.
struct quick_action {
    // What value holds.
    enum action_mode { command = 0, script = 1, file = 2 };

    QString icon;
    QString title;
    int mode = command;
    QString value; // a cmd_id's text, OVScript lines, or a path

    bool operator==(const quick_action& other) const
    {
        return icon == other.icon && title == other.title && mode == other.mode && value == other.value;
    }
};

} // namespace scripting
