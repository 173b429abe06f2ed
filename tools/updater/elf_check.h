#pragma once

#include <string>

namespace updater_tool
{

// True when the file is a whole ELF executable for this machine: the same class, byte
// order and machine as this program, with its header tables inside the file. `why` says
// what is wrong otherwise.
bool native_executable(const std::string& path, std::string* why);

} // namespace updater_tool
