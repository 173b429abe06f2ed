#pragma once

#include <chrono>
#include <string>

namespace updater_tool
{

// Waits until no process runs the executable at `path` (the same file, however it was
// started), polling the process table. False when one still runs at the end of `limit`.
bool wait_until_ended(const std::string& path, std::chrono::milliseconds limit);

} // namespace updater_tool
