#include "tools/svcsim/fault.h"

#include <QStringList>

namespace svcsim
{

namespace
{

    const QStringList known_members { "error", "garbage", "drop", "sealed", "not_ok", "serve", "delay_ms", "times" };

    bool set_action(fault* f, fault::action what, QString* error)
    {
        if (f->what != fault::action::none) {
            *error = QStringLiteral("a fault takes one of error, garbage, drop, sealed, not_ok, serve");
            return false;
        }
        f->what = what;
        return true;
    }

    bool read_count(const QJsonObject& json, const QString& name, int* out, QString* error)
    {
        const QJsonValue v = json.value(name);
        if (v.isUndefined())
            return true;
        const double d = v.toDouble(-1);
        if (!v.isDouble() || d < 0 || d > 3600000 || d != int(d)) {
            *error = QStringLiteral("fault member \"%1\" must be a whole number from 0").arg(name);
            return false;
        }
        *out = int(d);
        return true;
    }

    // True or a text; false for anything else, which the caller refuses.
    bool text_or_true(const QJsonValue& v, const char* fallback, QByteArray* out)
    {
        if (v.isString()) {
            *out = v.toString().toUtf8();
            return true;
        }
        if (v.isBool() && v.toBool()) {
            *out = fallback;
            return true;
        }
        return false;
    }

} // namespace

bool fault::from_json(const QJsonObject& json, fault* out, QString* error)
{
    for (auto it = json.begin(); it != json.end(); ++it) {
        if (!known_members.contains(it.key())) {
            *error = QStringLiteral("unknown fault member \"%1\"").arg(it.key());
            return false;
        }
    }
    fault f;
    if (json.contains("error")) {
        const double code = json.value("error").toDouble(-1);
        if (code < 0 || code > 4294967295.0 || code != double(uint(code))) {
            *error = QStringLiteral("fault \"error\" must be a number from 0");
            return false;
        }
        if (!set_action(&f, action::error, error))
            return false;
        f.code = uint(code);
    }
    if (json.contains("garbage")) {
        if (!set_action(&f, action::garbage, error))
            return false;
        if (!text_or_true(json.value("garbage"), "garbage", &f.text)) {
            *error = QStringLiteral("fault \"garbage\" must be true or a text");
            return false;
        }
    }
    if (json.contains("drop")) {
        if (!json.value("drop").isBool()) {
            *error = QStringLiteral("fault \"drop\" must be true or false");
            return false;
        }
        if (json.value("drop").toBool() && !set_action(&f, action::drop, error))
            return false;
    }
    for (const char* name : { "sealed", "not_ok" }) {
        if (!json.contains(name))
            continue;
        if (!set_action(&f, action::sealed, error))
            return false;
        const bool sealed = qstrcmp(name, "sealed") == 0;
        if (!text_or_true(json.value(name), "FAIL", &f.text) || (!sealed && !json.value(name).isBool())) {
            *error = QStringLiteral("fault \"%1\" must be %2").arg(name, sealed ? "true or a text" : "true");
            return false;
        }
    }
    if (json.contains("serve")) {
        if (!set_action(&f, action::serve, error))
            return false;
        f.text = json.value("serve").toString().toLatin1();
        if (f.text.isEmpty()) {
            *error = QStringLiteral("fault \"serve\" must name a firmware");
            return false;
        }
    }
    if (!read_count(json, QStringLiteral("delay_ms"), &f.delay_ms, error)
        || !read_count(json, QStringLiteral("times"), &f.times, error))
        return false;
    if (!json.contains("times"))
        f.times = -1;
    *out = f;
    return true;
}

QJsonObject fault::to_json() const
{
    QJsonObject json;
    switch (what) {
    case action::error:
        json.insert("error", double(code));
        break;
    case action::garbage:
        json.insert("garbage", QString::fromUtf8(text));
        break;
    case action::drop:
        json.insert("drop", true);
        break;
    case action::sealed:
        json.insert("sealed", QString::fromUtf8(text));
        break;
    case action::serve:
        json.insert("serve", QString::fromLatin1(text));
        break;
    case action::none:
        break;
    }
    if (delay_ms > 0)
        json.insert("delay_ms", delay_ms);
    if (times >= 0)
        json.insert("times", times);
    return json;
}

} // namespace svcsim
