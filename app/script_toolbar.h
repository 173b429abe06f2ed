#pragma once

class QToolBar;

namespace scripting
{
class actions_db;
}

// Rebuilds the script toolbar from the stored layout: a separator for each empty entry,
// otherwise a button with the action's title and icon (":/svg/question" when the icon
// can't be loaded), whose data is the action's identifier.
void fill_toolbar(QToolBar& toolbar, const scripting::actions_db& actions);
