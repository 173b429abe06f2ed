#include "tools/devsim/devsim_log.h"

Q_LOGGING_CATEGORY(lc_devsim, "orvane.devsim", QtInfoMsg)
