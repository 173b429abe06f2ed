#pragma once

#include "tasks/parameters.h"
#include "tasks/sdk_type.h"

#include <QString>

// What the program says about its own build.
namespace caps {

parameters table();
// Whether a backend can flash here: what xc_support and xn_support say.
bool backend_available(sdk::type type);
// "key: value" pairs joined by ", ", or by line feeds for the console.
QString text(bool multi_line = false);
QString version_text();
QString platform_text();

} // namespace caps
