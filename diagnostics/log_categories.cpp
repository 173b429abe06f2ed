#include "diagnostics/log_categories.h"

Q_LOGGING_CATEGORY(lc_core, "orvane.core", QtWarningMsg)
Q_LOGGING_CATEGORY(lc_tasks, "orvane.tasks", QtWarningMsg)
Q_LOGGING_CATEGORY(lc_netip, "orvane.netip", QtWarningMsg)
Q_LOGGING_CATEGORY(lc_sdk, "orvane.sdk", QtWarningMsg)
Q_LOGGING_CATEGORY(lc_delivery, "orvane.delivery", QtWarningMsg)
Q_LOGGING_CATEGORY(lc_plugins, "orvane.plugins", QtWarningMsg)
