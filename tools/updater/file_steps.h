#pragma once

#include <sys/types.h>

#include <functional>
#include <string>

namespace updater_tool
{

// Copies `from` into a new file `to` with the given mode and forces it to disk before
// returning; `halfway` runs once part of the data is written (the step hook of tests).
// False, with the reason in `why`, on any failure; `to` may then hold part of the data.
bool copy_synced(const std::string& from, const std::string& to, mode_t mode, const std::function<void()>& halfway,
    std::string* why);
// Renames within one folder and forces the folder to disk, so the change survives a crash.
bool rename_synced(const std::string& from, const std::string& to, const std::string& folder, std::string* why);
bool remove_synced(const std::string& path, const std::string& folder);
// True when both files hold the same bytes.
bool same_content(const std::string& a, const std::string& b);

} // namespace updater_tool
