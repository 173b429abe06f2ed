#include "tools/updater/updater_log.h"

#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <system_error>

namespace updater_tool
{

namespace
{

    // Where the program keeps blackbox.log: beside itself unless installed under /usr.
    std::string log_folder(const std::string& program_folder)
    {
        if (program_folder.rfind("/usr/", 0) != 0)
            return program_folder;
        const char* data_home = std::getenv("XDG_DATA_HOME");
        const char* home = std::getenv("HOME");
        std::string base;
        if (data_home && *data_home)
            base = data_home;
        else if (home && *home)
            base = std::string(home) + "/.local/share";
        else
            return {};
        const std::string folder = base + "/orvane";
        std::error_code ignored;
        std::filesystem::create_directories(folder, ignored);
        return folder;
    }

} // namespace

updater_log::updater_log(const std::string& program_folder)
{
    const std::string folder = log_folder(program_folder);
    if (!folder.empty())
        m_path = folder + "/updater.log";
}

void updater_log::write(const std::string& text) const
{
    if (m_path.empty())
        return;
    std::FILE* f = std::fopen(m_path.c_str(), "a");
    if (!f)
        return;
    char stamp[32] = {};
    const std::time_t now = std::time(nullptr);
    std::tm local {};
    localtime_r(&now, &local);
    std::strftime(stamp, sizeof stamp, "%d.%m.%y, %H:%M:%S", &local);
    std::fprintf(f, "%s, updater: %s\n", stamp, text.c_str());
    std::fclose(f);
}

} // namespace updater_tool
