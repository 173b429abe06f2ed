#pragma once

#include <QByteArray>
#include <QDir>
#include <QJsonObject>
#include <QString>

#include "tools/svcsim/http_reply.h"

namespace svcsim
{

class fault_table;
class request_log;
struct http_request;
struct request_record;

// The program's build repository: one newer build for one platform word, with its notes.
//
//   GET /repo/check/<word>/<build>/   {"latest", "time", "changelog"} for the configured
//                                     word, whatever the build asking; "{}" otherwise
//   GET /repo/file/<word>/<build>/    the build's file, raw, when word and build are the
//                                     configured ones; 404 otherwise
//
// Faults of kinds "repo_check" and "repo_file" replace the answers.
class repository
{
public:
    static inline const QByteArray path = "/repo/";

    repository(const QDir& base, fault_table& faults, request_log& log);

    // {"word": "l", "latest": 1965, "time": "dd.MM.yyyy HH:mm:ss", "changelog": {...},
    // "file": path}; the file is read now, a relative path from `base`. {} empties it.
    bool set_from_json(const QJsonObject& json, QString* error);
    QJsonObject to_json() const;

    http_reply handle(const http_request& request);

private:
    http_reply finish(request_record* r, http_reply reply);

    QDir m_base;
    fault_table& m_faults;
    request_log& m_log;
    QJsonObject m_build; // as configured, without the file's bytes
    QByteArray m_file;
};

} // namespace svcsim
