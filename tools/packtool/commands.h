#pragma once

#include <QString>
#include <QStringList>

namespace packtool
{

// Exit codes of the tool.
enum exit_code : int { success = 0, check_failed = 1, usage_error = 2, input_error = 3 };

struct build_options {
    QString client_id;
    QString output;
    int version = 3;
    bool cache = false;
    bool force = false;
    QStringList entries; // positional entries
    QStringList entry_files;
    QStringList scripts; // FILE or FILE:VALUE
};

int run_build(const build_options& options);
// Prints header, targets, blocks and scripts of a pack or cache.
int run_list(const QString& client_id, const QString& path);
// Decrypts every payload and compares its MD5 with the ident; checks every target's index.
int run_check(const QString& client_id, const QString& path);

} // namespace packtool
