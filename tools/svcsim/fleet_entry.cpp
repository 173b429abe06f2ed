#include "tools/svcsim/fleet_entry.h"

#include <QJsonArray>
#include <QRegularExpression>

#include "tools/svcsim/firmware_store.h"
#include "tools/svcsim/svcsim_log.h"

namespace svcsim
{

namespace
{

    bool read_offer(const QJsonValue& json, firmware_store& store, fleet_entry::offer* out, QString* error)
    {
        static const QRegularExpression md5_form(QStringLiteral("^[0-9a-f]{32}$"));
        fleet_entry::offer o;
        QJsonObject members;
        if (json.isString())
            members.insert("file", json);
        else if (json.isObject())
            members = json.toObject();
        else {
            *error = QStringLiteral("an offer must be a file path or an object");
            return false;
        }
        if (members.contains("file")) {
            o.file = members.value("file").toString();
            o.firmware = store.add_file(o.file, error);
            if (o.firmware.isEmpty())
                return false;
        } else {
            // An identifier the service has no file for: update offers it, file fails.
            o.firmware = members.value("firmware").toString();
            if (!md5_form.match(o.firmware).hasMatch()) {
                *error = QStringLiteral("an offer needs \"file\" or a lower-case MD5 \"firmware\"");
                return false;
            }
        }
        const QJsonValue type = members.value("type");
        if (!type.isUndefined()) {
            if (!type.isDouble() || type.toDouble() != double(type.toInt())) {
                *error = QStringLiteral("offer \"type\" must be a whole number");
                return false;
            }
            o.type = type.toInt();
        }
        const QJsonValue sdk = members.value("sdk_type");
        if (sdk.isString())
            o.sdk_type = sdk;
        else if (!sdk.isUndefined() && !sdk.isNull()) {
            *error = QStringLiteral("offer \"sdk_type\" must be a text or null");
            return false;
        }
        *out = o;
        return true;
    }

} // namespace

bool fleet_entry::from_json(const QJsonValue& json, firmware_store& store, fleet_entry* out, QString* error)
{
    fleet_entry e;
    if (json.isString()) {
        e.verdict = json.toString();
        *out = e;
        return true;
    }
    if (!json.isObject()) {
        *error = QStringLiteral("a fleet entry must be a verdict text or an object");
        return false;
    }
    const QJsonObject o = json.toObject();
    if (o.contains("error")) {
        const double code = o.value("error").toDouble(-1);
        if (code < 1 || code > 4294967295.0 || code != double(uint(code))) {
            *error = QStringLiteral("entry \"error\" must be a number from 1");
            return false;
        }
        e.error = uint(code);
    }
    if (o.contains("verdict")) {
        if (!o.value("verdict").isString()) {
            *error = QStringLiteral("\"verdict\" must be a text");
            return false;
        }
        e.verdict = o.value("verdict").toString();
    }
    const QJsonValue offers = o.value("offers");
    if (!offers.isUndefined() && !offers.isArray()) {
        *error = QStringLiteral("\"offers\" must be an array");
        return false;
    }
    const QJsonArray list = offers.toArray();
    for (const QJsonValue& v : list) {
        offer one;
        if (!read_offer(v, store, &one, error))
            return false;
        e.offers.append(one);
    }
    // Kept, since a test may want exactly this, but a real service never says it.
    if (e.error == 0 && e.verdict == QLatin1String("pending") && e.offers.isEmpty())
        qCWarning(lc_svcsim, "verdict \"pending\" without offers");
    *out = e;
    return true;
}

QJsonObject fleet_entry::to_json() const
{
    QJsonObject json = answer();
    json.insert("verdict", json.take("resp"));
    json.insert("offers", json.take("updates"));
    if (error != 0)
        json.insert("error", double(error));
    return json;
}

QJsonObject fleet_entry::answer() const
{
    QJsonArray updates;
    for (const offer& o : offers) {
        QJsonObject u { { "firmware", o.firmware }, { "type", o.type }, { "sdk_type", o.sdk_type } };
        updates.append(u);
    }
    return QJsonObject { { "resp", verdict }, { "updates", updates } };
}

} // namespace svcsim
