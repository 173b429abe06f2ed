#include "tools/svcsim/svcsim_log.h"

Q_LOGGING_CATEGORY(lc_svcsim, "orvane.svcsim", QtInfoMsg)
