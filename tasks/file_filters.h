#pragma once

#include <QString>
#include <QVector>

namespace tasks {

// Kinds of file the program's dialogs open and save.
enum class file_kind : int { all_scripts = 0, orvane_scripts = 1, lua_scripts = 2, csv = 3, configuration = 4 };

// A file dialog's filter text, "Description (patterns)" per kind, joined with ";;".
QString file_filters(const QVector<file_kind>& kinds);

} // namespace tasks
