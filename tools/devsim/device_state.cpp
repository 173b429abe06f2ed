#include "tools/devsim/device_state.h"

#include <QDateTime>
#include <QJsonArray>

#include "tools/devsim/address_policy.h"

namespace devsim
{

namespace
{

    QString derived_mac(int index)
    {
        const int n = index + 1;
        // Locally administered, so it can't collide with a real vendor's range.
        return QString::asprintf("02:4f:56:%02x:%02x:%02x", (n >> 16) & 0xFF, (n >> 8) & 0xFF, n & 0xFF);
    }

    QString derived_serial(int index)
    {
        return QString::asprintf("4f56%012x", index + 1);
    }

    bool read_text(const QJsonValue& v, QString* out)
    {
        if (!v.isString())
            return false;
        *out = v.toString();
        return true;
    }

    bool read_number(const QJsonValue& v, int* out, int low, int high)
    {
        if (!v.isDouble() || v.toDouble() != v.toInt() || v.toInt() < low || v.toInt() > high)
            return false;
        *out = v.toInt();
        return true;
    }

    bool read_percentages(const QJsonValue& v, QList<int>* out)
    {
        if (!v.isArray())
            return false;
        QList<int> list;
        const QJsonArray items = v.toArray();
        for (const QJsonValue& item : items) {
            int percent = 0;
            if (!read_number(item, &percent, 0, 100))
                return false;
            list << percent;
        }
        *out = list;
        return true;
    }

    QJsonArray numbers_json(const QList<int>& list)
    {
        QJsonArray out;
        for (int n : list)
            out.append(n);
        return out;
    }

    // The longest pause a client waiting for progress puts up with is about five seconds.
    constexpr int max_upgrade_step_ms = 4500;

} // namespace

bool device_state::create(const QJsonObject& description, int index, device_state* out, QString* error)
{
    device_state s;
    s.name = QStringLiteral("dev%1").arg(index);
    s.serial = derived_serial(index);
    s.boot_time_ms = QDateTime::currentMSecsSinceEpoch();

    const QString address_text = description.value("address").toString(QStringLiteral("127.0.0.2"));
    if (!s.address.setAddress(address_text) || s.address.protocol() != QAbstractSocket::IPv4Protocol) {
        *error = QStringLiteral("bad address \"%1\"").arg(address_text);
        return false;
    }
    // Simulated devices must never be reachable from outside this machine.
    if (!address_policy::may_listen_on(s.address)) {
        *error = address_policy::local_addresses_allowed()
            ? QStringLiteral("address %1 isn't loopback nor assigned to a local interface").arg(address_text)
            : QStringLiteral("address %1 isn't a loopback address").arg(address_text);
        return false;
    }
    int port = 34567;
    if (description.contains("port") && !read_number(description.value("port"), &port, 0, 65535)) {
        *error = QStringLiteral("bad port");
        return false;
    }
    s.port = quint16(port);

    s.net = net_record::factory(description.value("mac").toString(derived_mac(index)));
    s.net.host_ip = s.address.toIPv4Address();
    if (s.address.isLoopback()) {
        s.net.submask = 0xFF000000;
        s.net.gateway = 0x7F000001;
    } else {
        // On a test network: a /16 with the gateway at its first address.
        s.net.submask = 0xFFFF0000;
        s.net.gateway = (s.net.host_ip & 0xFFFF0000) | 1;
    }
    s.net.tcp_port = s.port;

    QJsonObject rest = description;
    rest.remove("address");
    rest.remove("port");
    rest.remove("mac");
    for (auto it = rest.begin(); it != rest.end(); ++it) {
        if (!s.apply_member(it.key(), it.value(), error))
            return false;
    }
    *out = s;
    return true;
}

QJsonObject device_state::to_json() const
{
    return QJsonObject {
        { "name", name },
        { "address", address.toString() },
        { "port", int(port) },
        { "mac", net.mac },
        { "device_type", device_type },
        { "serial", serial },
        { "hardware", hardware },
        { "software_version", software_version },
        { "build_time", build_time },
        { "user", user },
        { "password", password },
        { "channels", channels },
        { "reboot_ms", reboot_ms },
        { "net_apply_ms", net_apply_ms },
        { "upgrade_step_ms", upgrade_step_ms },
        { "upgrade_progress", numbers_json(upgrade_progress) },
        { "upgrade_version", upgrade_version },
        { "net", net.to_json() },
        { "location", location.members },
        { "language", location.language() },
        { "boot_count", boot_count },
        { "boot_time_ms", double(boot_time_ms) },
        { "logins", logins },
        { "failed_logins", failed_logins },
        { "dhcp_requests", dhcp_requests },
        { "dhcp_config", dhcp_config.isUndefined() ? QJsonValue() : dhcp_config },
        { "imports", imports },
        { "imported_size", imported_size },
        { "imported_md5", imported_md5 },
        { "resets", resets },
        { "reset_sections", QJsonArray::fromStringList(reset_sections) },
        { "malformed_frames", malformed_frames },
        { "upgrade_starts", upgrade_starts },
        { "upgrades", upgrades },
        { "upgrade_size", double(upgrade_size) },
        { "upgrade_md5", upgrade_md5 },
        { "discovery_requests", discovery_requests },
        { "discovery_answers", discovery_answers },
        { "broadcast_configs", broadcast_configs },
        { "broadcast_applied", broadcast_applied },
    };
}

bool device_state::apply(const QJsonObject& changes, QString* error)
{
    device_state s = *this;
    for (auto it = changes.begin(); it != changes.end(); ++it) {
        if (it.key() == QLatin1String("address") || it.key() == QLatin1String("port")) {
            *error = QStringLiteral("\"%1\" moves only through a NetCommon change").arg(it.key());
            return false;
        }
        if (!s.apply_member(it.key(), it.value(), error))
            return false;
    }
    *this = s;
    return true;
}

bool device_state::apply_member(const QString& key, const QJsonValue& value, QString* error)
{
    bool good = true;
    if (key == QLatin1String("name"))
        good = read_text(value, &name);
    else if (key == QLatin1String("device_type"))
        good = read_text(value, &device_type);
    else if (key == QLatin1String("serial"))
        good = read_text(value, &serial);
    else if (key == QLatin1String("hardware"))
        good = read_text(value, &hardware);
    else if (key == QLatin1String("software_version"))
        good = read_text(value, &software_version);
    else if (key == QLatin1String("build_time"))
        good = read_text(value, &build_time);
    else if (key == QLatin1String("user"))
        good = read_text(value, &user);
    else if (key == QLatin1String("password"))
        good = read_text(value, &password);
    else if (key == QLatin1String("mac"))
        good = read_text(value, &net.mac);
    else if (key == QLatin1String("channels"))
        good = read_number(value, &channels, 0, 256);
    else if (key == QLatin1String("reboot_ms"))
        good = read_number(value, &reboot_ms, 0, 600000);
    else if (key == QLatin1String("net_apply_ms"))
        good = read_number(value, &net_apply_ms, 0, 600000);
    else if (key == QLatin1String("upgrade_step_ms"))
        good = read_number(value, &upgrade_step_ms, 0, max_upgrade_step_ms);
    else if (key == QLatin1String("upgrade_progress"))
        good = read_percentages(value, &upgrade_progress);
    else if (key == QLatin1String("upgrade_version"))
        good = read_text(value, &upgrade_version);
    else if (key == QLatin1String("language")) {
        QString language;
        good = read_text(value, &language);
        location.set_language(language);
    } else if (key == QLatin1String("net")) {
        if (!value.isObject() || !net.merge(value.toObject(), error, true)) {
            if (error->isEmpty())
                *error = QStringLiteral("\"net\" isn't an object");
            return false;
        }
    } else if (key == QLatin1String("location")) {
        if (!value.isObject() || !location.merge(value.toObject(), error)) {
            if (error->isEmpty())
                *error = QStringLiteral("\"location\" isn't an object");
            return false;
        }
    } else {
        *error = QStringLiteral("unknown member \"%1\"").arg(key);
        return false;
    }
    if (!good)
        *error = QStringLiteral("bad value for \"%1\"").arg(key);
    return good;
}

} // namespace devsim
