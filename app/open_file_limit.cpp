#include "app/open_file_limit.h"

#include <sys/resource.h>

#include <algorithm>
#include <limits>

namespace open_file_limit {

quint64 current()
{
    rlimit limit {};
    if (getrlimit(RLIMIT_NOFILE, &limit) != 0)
        return 0;
    return limit.rlim_cur == RLIM_INFINITY ? std::numeric_limits<quint64>::max() : quint64(limit.rlim_cur);
}

quint64 raise_to(quint64 needed)
{
    rlimit limit {};
    if (getrlimit(RLIMIT_NOFILE, &limit) != 0)
        return 0;
    if (limit.rlim_cur == RLIM_INFINITY || limit.rlim_cur >= needed)
        return current();
    limit.rlim_cur = limit.rlim_max == RLIM_INFINITY ? rlim_t(needed) : std::min(rlim_t(needed), limit.rlim_max);
    setrlimit(RLIMIT_NOFILE, &limit);
    return current();
}

} // namespace open_file_limit
