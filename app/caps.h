#pragma once

#include "tasks/parameters.h"

#include <QString>

// What the program says about its own build.
namespace caps {

parameters table();
// "key: value" pairs joined by ", ", or by line feeds for the console.
QString text(bool multi_line = false);
QString version_text();
QString platform_text();

} // namespace caps
