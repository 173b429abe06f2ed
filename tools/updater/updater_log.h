#pragma once

#include <string>

namespace updater_tool
{

// What the updater did, appended to updater.log beside the program's blackbox.log:
// the program's own folder when it runs portable, its data folder when installed.
class updater_log
{
public:
    explicit updater_log(const std::string& program_folder);
    void write(const std::string& text) const;
    const std::string& path() const { return m_path; }

private:
    std::string m_path;
};

} // namespace updater_tool
