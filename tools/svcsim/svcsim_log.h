#pragma once

#include <QLoggingCategory>

// Refusals and faults are on; the trace of every request is debug, switched on
// by --verbose.
Q_DECLARE_LOGGING_CATEGORY(lc_svcsim)
