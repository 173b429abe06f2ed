#pragma once

#include <QLoggingCategory>

// Events worth seeing (reboots, moves, refused frames) are on; the trace of every
// request is debug, switched on by --verbose.
Q_DECLARE_LOGGING_CATEGORY(lc_devsim)
