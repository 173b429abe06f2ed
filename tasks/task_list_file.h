#pragma once

#include "tasks/endpoint.h"

#include <QString>
#include <QVector>

#include <cstdint>
#include <functional>

namespace tasks {

// A list of devices on disk: CSV, one device a line, no header, no quoting.
// Its format (1: host,port,user,password; 2: name first; 3: name first and an encryption
// flag before the password) is fixed by the first line that isn't blank.
// The password cipher is handed in, so that this layer doesn't depend on delivery.
struct task_list_file
{
    struct message
    {
        uint32_t line = 0; // counted from 1, every line of the file included
        QString text;
    };
    // Password to or from its Base64 column text.
    using password_codec = std::function<QString(const QString&)>;

    static constexpr uint32_t export_format = 3;

    // Parses the file; complaints don't stop the parse. Encrypted passwords stay as they are.
    static task_list_file import_file(const QString& path);
    // The record with its password opened when it was encrypted.
    static endpoint opened(const endpoint& record, const password_codec& decrypt);
    // Why the file couldn't hold this endpoint (it has no quoting: a comma in a field would split it);
    // empty when it can.
    static QString unwritable(const endpoint& ep);
    // One line of format 3 with its line feed, from an endpoint whose password is in clear;
    // encrypt is used only when encrypt_passwords is on.
    static QString export_line(const endpoint& ep, bool encrypt_passwords, const password_codec& encrypt);
    // Writes the whole file anew; the number of lines written, 0 when it can't be opened.
    static int export_file(
        const QString& path, const QVector<endpoint>& endpoints, bool encrypt_passwords, const password_codec& encrypt);

    bool failed = false; // the file couldn't be opened
    QString error;
    QVector<message> messages;
    QVector<endpoint> records; // mac empty, mtype 0
    uint32_t format = 0; // 0 while not fixed
};

} // namespace tasks
