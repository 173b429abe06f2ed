#pragma once

#include <QString>

// Where the program keeps its files: beside itself when portable, in the user's
// standard locations when installed under /usr.
namespace app_paths {

bool is_portable(const QString& application_dir);
QString settings_file(bool portable, const QString& application_dir);
QString cache_file(bool portable, const QString& application_dir);
QString log_file(bool portable, const QString& application_dir);
QString plugin_folder(bool portable, const QString& application_dir);
// A file named in the autorun list; empty when an installed program can't find it.
QString autorun_file(bool portable, const QString& application_dir, const QString& name);

} // namespace app_paths
