#include "tools/updater/program_watch.h"

#include <dirent.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cctype>
#include <thread>

namespace updater_tool
{

namespace
{

    bool any_runs(dev_t device, ino_t inode)
    {
        DIR* proc = opendir("/proc");
        if (!proc)
            return false;
        bool found = false;
        while (const dirent* entry = readdir(proc)) {
            if (!std::isdigit(static_cast<unsigned char>(entry->d_name[0])))
                continue;
            // The link resolves to the file the process runs; it fails for processes of
            // other users and for ones that have ended, which can't hold the file anyway.
            struct stat st {
            };
            const std::string exe = std::string("/proc/") + entry->d_name + "/exe";
            if (stat(exe.c_str(), &st) == 0 && st.st_dev == device && st.st_ino == inode) {
                found = true;
                break;
            }
        }
        closedir(proc);
        return found;
    }

} // namespace

bool wait_until_ended(const std::string& path, std::chrono::milliseconds limit)
{
    struct stat target {
    };
    if (stat(path.c_str(), &target) != 0)
        return true;
    const auto deadline = std::chrono::steady_clock::now() + limit;
    while (any_runs(target.st_dev, target.st_ino)) {
        if (std::chrono::steady_clock::now() >= deadline)
            return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
    }
    return true;
}

} // namespace updater_tool
