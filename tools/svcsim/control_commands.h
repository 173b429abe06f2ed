#pragma once

#include <QJsonObject>

namespace svcsim
{

class fault_table;
class firmware_store;
class fleet;
class http_server;
class repository;
class request_log;

// The commands of the control channel, one JSON object in, one out. Every answer
// has "ok"; a refused command has "error" too. A "tag" member is echoed back.
//
//   {"cmd":"ping"}
//   {"cmd":"stats"}                                    -> "counts", "connections", "seals", ...
//   {"cmd":"requests","kind":"update","serial":"S","clear":true}  -> "requests": [...]
//   {"cmd":"clear_requests"}
//   {"cmd":"get_faults"}                               -> "faults": {"all": ..., "serials": ...}
//   {"cmd":"set_fault","kind":"confirm","serial":"S","fault":{"not_ok":true}}
//   {"cmd":"clear_faults","serial":"S"}
//   {"cmd":"get_verdict","serial":"S"}                 -> "entry", "known"
//   {"cmd":"set_verdict","serial":"S","verdict":"pending","offers":[...]}
//   {"cmd":"set_verdict","default":true,"error":9}
//   {"cmd":"set_verdict","serial":"S","remove":true}
//   {"cmd":"add_file","path":"fw.bin"}                 -> "firmware"
//   {"cmd":"firmwares"}                                -> "firmwares": [...]
//   {"cmd":"set_repository","latest":1965,"time":"...","changelog":{...},"file":"b.bin"}
//   {"cmd":"get_repository"}                           -> "repository"
//   {"cmd":"quit"}
class control_commands
{
public:
    control_commands(fleet& devices, firmware_store& store, fault_table& faults, request_log& log,
        const http_server& server, repository& builds);

    QJsonObject execute(const QJsonObject& command);
    // Set by "quit"; the channel ends the process once the answer has left.
    bool quit_requested() const { return m_quit; }

private:
    QJsonObject stats() const;
    QJsonObject requests(const QJsonObject& command);
    QJsonObject set_fault(const QJsonObject& command);
    QJsonObject get_verdict(const QJsonObject& command) const;
    QJsonObject set_verdict(const QJsonObject& command);
    QJsonObject add_file(const QJsonObject& command);

    fleet& m_devices;
    firmware_store& m_store;
    fault_table& m_faults;
    request_log& m_log;
    const http_server& m_server;
    repository& m_builds;
    bool m_quit = false;
};

} // namespace svcsim
