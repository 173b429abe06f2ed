#pragma once

#include <QJsonObject>
#include <QList>

namespace devsim
{

class device;
class simulator;

// The commands of the control channel, one JSON object in, one out. Every answer
// has "ok"; a refused command has "error" too. "device" picks the device by index,
// by name, or "*" for all where that makes sense.
//
//   {"cmd":"ping"}
//   {"cmd":"list"}                                   -> "devices": [summary...], "udp": {...}
//   {"cmd":"requests","device":0,"clear":true}       -> "requests": [...]
//   {"cmd":"clear_requests","device":"*"}
//   {"cmd":"get_state","device":0}                   -> "state": {...}
//   {"cmd":"set_state","device":0,"state":{...}}
//   {"cmd":"get_faults","device":0}                  -> "faults": {...}
//   {"cmd":"set_faults","device":"*","faults":{...}}
//   {"cmd":"clear_faults","device":"*"}
//   {"cmd":"reboot","device":0}
//   {"cmd":"quit"}
class control_commands
{
public:
    explicit control_commands(simulator& sim);

    QJsonObject execute(const QJsonObject& command);
    // Set by "quit"; the channel ends the process once the answer has left.
    bool quit_requested() const { return m_quit; }

private:
    QJsonObject list() const;
    QJsonObject for_devices(const QJsonObject& command, bool many_allowed,
        QJsonObject (control_commands::*what)(device&, const QJsonObject&));
    QJsonObject requests(device& d, const QJsonObject& command);
    QJsonObject clear_requests(device& d, const QJsonObject& command);
    QJsonObject get_state(device& d, const QJsonObject& command);
    QJsonObject set_state(device& d, const QJsonObject& command);
    QJsonObject get_faults(device& d, const QJsonObject& command);
    QJsonObject set_faults(device& d, const QJsonObject& command);
    QJsonObject clear_faults(device& d, const QJsonObject& command);
    QJsonObject reboot(device& d, const QJsonObject& command);

    simulator& m_sim;
    bool m_quit = false;
};

} // namespace devsim
