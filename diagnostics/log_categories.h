#pragma once

#include <QLoggingCategory>

// Developer traces, off by default; QT_LOGGING_RULES="orvane.*.debug=true" turns them on.
Q_DECLARE_LOGGING_CATEGORY(lc_core)
Q_DECLARE_LOGGING_CATEGORY(lc_tasks)
Q_DECLARE_LOGGING_CATEGORY(lc_netip)
Q_DECLARE_LOGGING_CATEGORY(lc_sdk)
Q_DECLARE_LOGGING_CATEGORY(lc_delivery)
Q_DECLARE_LOGGING_CATEGORY(lc_plugins)
