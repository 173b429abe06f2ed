// The updater program: installs the build that the program downloaded beside itself
// (tmp-newer-version.bin) once the program has ended. Started with no arguments from the
// program's folder; it restarts nothing. Whenever it is stopped, the program's file is
// either the old build or the new one, whole: the new one is written beside, forced to
// disk, checked, and renamed over the old in one step.
#include "tools/updater/elf_check.h"
#include "tools/updater/file_steps.h"
#include "tools/updater/program_watch.h"
#include "tools/updater/updater_log.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <string>

namespace
{

using updater_tool::updater_log;

// How long the program gets to end; ORVANE_UPDATER_WAIT_MS changes it.
constexpr long default_wait_ms = 60000;

// Tests stop the updater at a named step with ORVANE_UPDATER_STOP_AT, as a kill would.
void step(const char* name)
{
    const char* stop_at = std::getenv("ORVANE_UPDATER_STOP_AT");
    if (stop_at && std::string(stop_at) == name)
        std::raise(SIGKILL);
}

std::chrono::milliseconds wait_limit()
{
    const char* text = std::getenv("ORVANE_UPDATER_WAIT_MS");
    const long ms = text ? std::strtol(text, nullptr, 10) : default_wait_ms;
    return std::chrono::milliseconds(ms > 0 ? ms : default_wait_ms);
}

// What lies in the program's folder.
struct files {
    explicit files(const std::string& where)
        : folder(where)
    {
    }
    std::string at(const char* name) const { return folder + "/" + name; }

    std::string folder;
    std::string program = at("orvane");
    std::string candidate = at("tmp-newer-version.bin");
    std::string lock = at("client_updating.lock");
    std::string staged = at("orvane.new");
    std::string backup = at("orvane.previous");
    std::string backup_staged = at("orvane.previous.new");
};

// The end of every run: the lock goes, and the download unless the program still runs, so that
// the next start runs the program instead of an updater that fails the same way again.
int finish(const files& f, const updater_log& log, int code, const std::string& text, bool drop_candidate)
{
    log.write(text);
    updater_tool::remove_synced(f.staged, f.folder);
    updater_tool::remove_synced(f.backup_staged, f.folder);
    if (drop_candidate)
        updater_tool::remove_synced(f.candidate, f.folder);
    step("cleaned");
    updater_tool::remove_synced(f.lock, f.folder);
    return code;
}

int install(const files& f, const updater_log& log)
{
    if (!std::filesystem::exists(f.candidate))
        return finish(f, log, 0, "nothing to install", false);

    log.write("waiting for the program to end");
    if (!updater_tool::wait_until_ended(f.program, wait_limit()))
        return finish(f, log, 2, "the program is still running; nothing changed, the next start tries again", false);
    step("waited");

    // Killed after the swap, a second run finds the work done.
    if (updater_tool::same_content(f.candidate, f.program))
        return finish(f, log, 0, "the new build is in place already", true);

    struct stat current {
    };
    const mode_t mode = stat(f.program.c_str(), &current) == 0 ? (current.st_mode & 07777) : 0755;
    std::string why;
    if (!updater_tool::copy_synced(
            f.candidate, f.staged, mode, [] { step("writing"); }, &why))
        return finish(f, log, 3, "can't stage the new build: " + why, true);
    step("written");
    // What is checked is the very file that will be renamed into place.
    if (!updater_tool::native_executable(f.staged, &why))
        return finish(f, log, 4, "the downloaded file is refused, " + why + "; the program stays as it was", true);
    step("checked");

    if (std::filesystem::exists(f.program)) {
        if (!updater_tool::copy_synced(f.program, f.backup_staged, mode, {}, &why)
            || !updater_tool::rename_synced(f.backup_staged, f.backup, f.folder, &why))
            return finish(f, log, 3, "can't keep the previous build: " + why, true);
    }
    step("backed_up");

    if (!updater_tool::rename_synced(f.staged, f.program, f.folder, &why))
        return finish(f, log, 3, "can't put the new build in place: " + why, true);
    step("swapped");
    return finish(f, log, 0, "installed the new build; the previous one is kept as orvane.previous", true);
}

std::string own_folder()
{
    std::error_code error;
    const std::filesystem::path self = std::filesystem::read_symlink("/proc/self/exe", error);
    return error ? std::string() : self.parent_path().string();
}

} // namespace

int main()
{
    // Started detached from a program that is about to end, maybe from a terminal that closes
    // or a pipe whose reader waits for its end: it keeps neither.
    std::signal(SIGHUP, SIG_IGN);
    const int null_fd = open("/dev/null", O_RDWR | O_CLOEXEC);
    for (int fd = 0; fd <= 2 && null_fd >= 0; ++fd)
        dup2(null_fd, fd);
    const std::string folder = own_folder();
    if (folder.empty())
        return 1;
    const updater_log log(folder);
    // One updater at a time: a second one waits and then finds nothing left to do.
    const int folder_fd = open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (folder_fd < 0 || flock(folder_fd, LOCK_EX) != 0) {
        log.write("can't lock " + folder);
        return 1;
    }
    step("started");
    const int code = install(files(folder), log);
    close(folder_fd);
    return code;
}
