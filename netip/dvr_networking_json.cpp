// The static converters between device JSON and the client's records; the scanner uses
// them without a client.
#include "netip/dvr_networking.h"

#include <QJsonValue>
#include <QTextCodec>
#include <QtEndian>

#include <algorithm>
#include <cstring>

#include "diagnostics/blackbox.h"

namespace {

const QLatin1String net_common_key("NetWork.NetCommon");
const QLatin1String location_key("General.Location");

// Static code logs under the client's name, through the global blackbox.
const loggable& converter_log()
{
    static const loggable instance("dvr networking");
    return instance;
}

const QStringList& transfer_plans()
{
    static const QStringList list { QStringLiteral("AutoAdapt"), QStringLiteral("Quality"), QStringLiteral("Fluency"),
        QStringLiteral("Transmission") };
    return list;
}

const QStringList& mon_modes()
{
    static const QStringList list { QStringLiteral("TCP"), QStringLiteral("UDP"), QStringLiteral("MCAST") };
    return list;
}

// strncpy semantics: a value of the array's size or longer leaves no terminator.
template <size_t N> void copy_text(char (&array)[N], const QJsonValue& value)
{
    memset(array, 0, N);
    const QByteArray utf8 = value.toString().toUtf8();
    if (utf8.isNull())
        return;
    memcpy(array, utf8.constData(), qstrnlen(utf8.constData(), uint(std::min(size_t(utf8.size()), N))));
}

// The array may lack a terminator; bytes that aren't UTF-8 refuse the conversion.
template <size_t N> bool array_text(const char (&array)[N], QString& out)
{
    QTextCodec::ConverterState state;
    out = QTextCodec::codecForMib(106)->toUnicode(array, int(qstrnlen(array, N)), &state);
    return state.invalidChars == 0 && state.remainingChars == 0;
}

// Devices write addresses as the hex of the byte-reversed value, "0x" prefixed or not.
uint32_t read_address(const QJsonObject& object, QLatin1String key)
{
    if (!object.contains(key))
        return 0;
    QString text = object.value(key).toString();
    if (text.startsWith(QLatin1String("0x"), Qt::CaseInsensitive))
        text.remove(0, 2);
    return qbswap(uint32_t(text.toUInt(nullptr, 16)));
}

QString address_text(uint32_t address)
{
    return QString::number(qbswap(address), 16);
}

// A numeric member is taken as it is; a text is looked up in its table, and an unknown text leaves 0.
int32_t read_enumerated(const QJsonValue& value, const QStringList& table, const char* unknown_format)
{
    if (value.isDouble())
        return value.toInt();
    const int index = table.indexOf(value.toString());
    if (index < 0) {
        converter_log().log(blackbox::error, unknown_format, value.toString().toUtf8().constData());
        return 0;
    }
    return index;
}

QString text_at(const QStringList& table, int32_t index, int32_t fallback)
{
    return table.at(index >= 0 && index < table.size() ? index : fallback);
}

// Absent gives 0, a text outside the list -1.
int32_t list_index(const QJsonObject& object, QLatin1String key, const QStringList& list)
{
    if (!object.contains(key))
        return 0;
    return list.indexOf(object.value(key).toString());
}

location_config::date_record read_date(const QJsonObject& object)
{
    location_config::date_record date;
    date.year = object.value(QLatin1String("Year")).toInt(2000);
    date.month = object.value(QLatin1String("Month")).toInt(1);
    date.week = object.value(QLatin1String("Week")).toInt(0);
    date.day = object.value(QLatin1String("Day")).toInt(1);
    date.hour = object.value(QLatin1String("Hour")).toInt(1);
    date.minute = object.value(QLatin1String("Minute")).toInt(1);
    return date;
}

QJsonObject date_json(const location_config::date_record& date)
{
    return QJsonObject {
        { QStringLiteral("Year"), date.year },
        { QStringLiteral("Month"), date.month },
        { QStringLiteral("Week"), date.week },
        { QStringLiteral("Day"), date.day },
        { QStringLiteral("Hour"), date.hour },
        { QStringLiteral("Minute"), date.minute },
    };
}

} // namespace

template <typename T>
bool dvr_networking::common_json_to_netcommon_X(
    const QString& text, T& record, QJsonDocument& document, bool& text_values)
{
    if (text.isEmpty())
        return false;
    document = QJsonDocument::fromJson(text.toUtf8());
    if (!document.isObject() || !document.object().contains(net_common_key))
        return false;
    memset(&record, 0, sizeof record);
    const QJsonObject net = document.object().value(net_common_key).toObject();

    const QJsonValue plan = net.value(QLatin1String("TransferPlan"));
    text_values = !plan.isUndefined() && !plan.isDouble();
    if (!plan.isUndefined())
        record.TransferPlan = read_enumerated(plan, transfer_plans(), "Unknown TransferPlan value: %s");
    const QJsonValue mode = net.value(QLatin1String("MonMode"));
    if (!mode.isUndefined()) {
        if (!mode.isDouble())
            text_values = true;
        record.MonMode = read_enumerated(mode, mon_modes(), "Unknown MonMode value: %s");
    }

    record.HostIP = read_address(net, QLatin1String("HostIP"));
    record.Submask = read_address(net, QLatin1String("Submask"));
    record.GateWay = read_address(net, QLatin1String("GateWay"));
    copy_text(record.HostName, net.value(QLatin1String("HostName")));
    record.HttpPort = net.value(QLatin1String("HttpPort")).toInt();
    record.MaxBps = net.value(QLatin1String("MaxBps")).toInt();
    record.MaxConn = net.value(QLatin1String("TCPMaxConn")).toInt();
    record.SSLPort = net.value(QLatin1String("SSLPort")).toInt();
    record.TCPPort = net.value(QLatin1String("TCPPort")).toInt();
    record.UDPPort = net.value(QLatin1String("UDPPort")).toInt();
    const QJsonValue hs = net.value(QLatin1String("UseHSDownLoad"));
    record.UseHSDownLoad = hs.isBool() ? hs.toBool() : hs.toInt() != 0;
    copy_text(record.MAC, net.value(QLatin1String("MAC")));
    return true;
}

template bool dvr_networking::common_json_to_netcommon_X<SDK_CONFIG_NET_COMMON_V2>(
    const QString&, SDK_CONFIG_NET_COMMON_V2&, QJsonDocument&, bool&);
template bool dvr_networking::common_json_to_netcommon_X<SDK_CONFIG_NET_COMMON_V3>(
    const QString&, SDK_CONFIG_NET_COMMON_V3&, QJsonDocument&, bool&);

bool dvr_networking::json_to_netcommon_v2(const QString& text, SDK_CONFIG_NET_COMMON_V2& record, bool& text_values)
{
    QJsonDocument document;
    if (!common_json_to_netcommon_X(text, record, document, text_values))
        return false;
    const QJsonObject net = document.object().value(net_common_key).toObject();
    copy_text(record.SN, net.value(QLatin1String("SN")));
    return true;
}

bool dvr_networking::json_to_netcommon_v3(const QString& text, SDK_CONFIG_NET_COMMON_V3& record, bool& text_values)
{
    QJsonDocument document;
    if (!common_json_to_netcommon_X(text, record, document, text_values))
        return false;
    const QJsonObject net = document.object().value(net_common_key).toObject();
    copy_text(record.Username, net.value(QLatin1String("Username")));
    copy_text(record.Password, net.value(QLatin1String("Password")));
    return true;
}

bool dvr_networking::netcommon_to_json(const SDK_CONFIG_NET_COMMON_V2& record, QJsonObject& object)
{
    QString host_name;
    QString mac;
    if (!array_text(record.HostName, host_name) || !array_text(record.MAC, mac))
        return false;
    object = QJsonObject {
        { QStringLiteral("TransferPlan"), text_at(transfer_plans(), record.TransferPlan, 1) },
        { QStringLiteral("HostIP"), address_text(record.HostIP) },
        { QStringLiteral("Submask"), address_text(record.Submask) },
        { QStringLiteral("GateWay"), address_text(record.GateWay) },
        { QStringLiteral("HostName"), host_name },
        { QStringLiteral("HttpPort"), record.HttpPort },
        { QStringLiteral("MaxBps"), record.MaxBps },
        { QStringLiteral("TCPMaxConn"), record.MaxConn },
        { QStringLiteral("MonMode"), text_at(mon_modes(), record.MonMode, 0) },
        { QStringLiteral("SSLPort"), record.SSLPort },
        { QStringLiteral("TCPPort"), record.TCPPort },
        { QStringLiteral("UDPPort"), record.UDPPort },
        { QStringLiteral("UseHSDownLoad"), record.UseHSDownLoad },
        { QStringLiteral("MAC"), mac },
    };
    return true;
}

bool dvr_networking::json_to_location(const QString& text, location_config& record)
{
    const QJsonDocument document = QJsonDocument::fromJson(text.toUtf8());
    if (!document.isObject() || !document.object().contains(location_key))
        return false;
    const QJsonObject location = document.object().value(location_key).toObject();
    record = location_config();
    if (location.contains(QLatin1String("DSTStart")))
        record.dst_start = read_date(location.value(QLatin1String("DSTStart")).toObject());
    if (location.contains(QLatin1String("DSTEnd")))
        record.dst_end = read_date(location.value(QLatin1String("DSTEnd")).toObject());
    record.date_format = list_index(location, QLatin1String("DateFormat"), location_config::date_formats());
    record.date_separator = list_index(location, QLatin1String("DateSeparator"), location_config::date_separators());
    record.language = list_index(location, QLatin1String("Language"), location_config::languages());
    record.time_format = list_index(location, QLatin1String("TimeFormat"), location_config::time_formats());
    record.video_format = list_index(location, QLatin1String("VideoFormat"), location_config::video_formats());
    record.work_day = location.value(QLatin1String("WorkDay")).toInt();
    return true;
}

QJsonObject dvr_networking::location_to_json(const location_config& record)
{
    return QJsonObject {
        { QStringLiteral("DSTStart"), date_json(record.dst_start) },
        { QStringLiteral("DSTEnd"), date_json(record.dst_end) },
        { QStringLiteral("DateFormat"), text_at(location_config::date_formats(), record.date_format, 0) },
        { QStringLiteral("DateSeparator"), text_at(location_config::date_separators(), record.date_separator, 0) },
        { QStringLiteral("Language"), text_at(location_config::languages(), record.language, 0) },
        { QStringLiteral("TimeFormat"), text_at(location_config::time_formats(), record.time_format, 0) },
        { QStringLiteral("VideoFormat"), text_at(location_config::video_formats(), record.video_format, 0) },
        { QStringLiteral("WorkDay"), record.work_day },
    };
}
