#include "tools/updater/file_steps.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <vector>

namespace updater_tool
{

namespace
{

    bool fail(std::string* why, const std::string& what)
    {
        *why = what + ": " + std::strerror(errno);
        return false;
    }

    bool sync_folder(const std::string& folder)
    {
        const int fd = open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
        if (fd < 0)
            return false;
        const bool ok = fsync(fd) == 0;
        close(fd);
        return ok;
    }

    bool write_all(int fd, const char* data, size_t size)
    {
        while (size > 0) {
            const ssize_t n = write(fd, data, size);
            if (n < 0 && errno == EINTR)
                continue;
            if (n <= 0)
                return false;
            data += n;
            size -= size_t(n);
        }
        return true;
    }

} // namespace

bool copy_synced(
    const std::string& from, const std::string& to, mode_t mode, const std::function<void()>& halfway, std::string* why)
{
    const int in = open(from.c_str(), O_RDONLY | O_CLOEXEC);
    if (in < 0)
        return fail(why, "can't read " + from);
    const int out = open(to.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
    if (out < 0) {
        close(in);
        return fail(why, "can't create " + to);
    }
    std::vector<char> buffer(64 * 1024);
    bool ok = true;
    bool first = true;
    for (;;) {
        const ssize_t n = read(in, buffer.data(), buffer.size());
        if (n < 0 && errno == EINTR)
            continue;
        if (n < 0) {
            ok = fail(why, "can't read " + from);
            break;
        }
        if (n == 0)
            break;
        if (!write_all(out, buffer.data(), size_t(n))) {
            ok = fail(why, "can't write " + to);
            break;
        }
        if (first && halfway)
            halfway();
        first = false;
    }
    if (ok && fchmod(out, mode) != 0)
        ok = fail(why, "can't set the mode of " + to);
    if (ok && fsync(out) != 0)
        ok = fail(why, "can't flush " + to);
    close(in);
    if (close(out) != 0 && ok)
        ok = fail(why, "can't close " + to);
    return ok;
}

bool rename_synced(const std::string& from, const std::string& to, const std::string& folder, std::string* why)
{
    if (std::rename(from.c_str(), to.c_str()) != 0)
        return fail(why, "can't rename " + from + " to " + to);
    if (!sync_folder(folder))
        return fail(why, "can't flush " + folder);
    return true;
}

bool remove_synced(const std::string& path, const std::string& folder)
{
    const bool gone = std::remove(path.c_str()) == 0 || errno == ENOENT;
    return sync_folder(folder) && gone;
}

bool same_content(const std::string& a, const std::string& b)
{
    std::ifstream x(a, std::ios::binary | std::ios::ate);
    std::ifstream y(b, std::ios::binary | std::ios::ate);
    if (!x || !y || x.tellg() != y.tellg())
        return false;
    x.seekg(0);
    y.seekg(0);
    std::vector<char> p(64 * 1024);
    std::vector<char> q(p.size());
    while (x && y) {
        x.read(p.data(), std::streamsize(p.size()));
        y.read(q.data(), std::streamsize(q.size()));
        if (x.gcount() != y.gcount() || std::memcmp(p.data(), q.data(), size_t(x.gcount())) != 0)
            return false;
    }
    return true;
}

} // namespace updater_tool
