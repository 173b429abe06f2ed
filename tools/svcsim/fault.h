#pragma once

#include <QByteArray>
#include <QJsonObject>

namespace svcsim
{

// How one request is to be answered wrongly. At most one replacement of the
// answer, optionally delayed; a delay alone slows the proper answer.
//
//   {"error": 9}            "E:9" instead of the answer
//   {"garbage": "junk"}     this plain body ("garbage" for true)
//   {"drop": true}          the connection is closed without an answer
//   {"sealed": "text"}      this text, sealed under the key of the proper answer
//   {"not_ok": true}        the same with "FAIL": a confirm that isn't "OK"
//   {"serve": "<md5>"}      a file request answered with that other firmware's file
//   {"delay_ms": 500}       wait before answering
//   {"times": 2}            only the next two matching requests, then gone
struct fault {
    enum class action { none, error, garbage, drop, sealed, serve };

    action what = action::none;
    uint code = 0; // for error
    QByteArray text; // for garbage and sealed; the firmware for serve
    int delay_ms = 0;
    int times = -1; // requests left; negative: no limit

    // An empty object gives the empty fault; false with a reason on a bad member.
    static bool from_json(const QJsonObject& json, fault* out, QString* error);
    QJsonObject to_json() const;
    bool empty() const { return what == action::none && delay_ms <= 0; }
};

} // namespace svcsim
