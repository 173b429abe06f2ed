#pragma once

#include <QtGlobal>

// The process's limit of open descriptors. Every device at work holds a socket and its
// worker thread a wake-up descriptor, so a fleet of a thousand outgrows the 1024 a desktop
// session usually grants.
namespace open_file_limit {

// Descriptors a device at work may hold, and those the rest of the program keeps open.
constexpr quint64 per_device = 3;
constexpr quint64 reserve = 128;

// What a launch of this many devices at once needs.
constexpr quint64 needed_for(quint64 devices)
{
    return devices * per_device + reserve;
}

// The soft limit in force now.
quint64 current();
// Raises the soft limit to `needed` when it is lower, as far as the hard limit allows; the
// soft limit in force afterwards, below `needed` when the hard limit is.
quint64 raise_to(quint64 needed);

} // namespace open_file_limit
