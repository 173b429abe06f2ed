#include "tools/devsim/location_record.h"

#include <QStringList>

namespace devsim
{

namespace
{

    QJsonObject dst_date(int month)
    {
        return QJsonObject { { "Year", 2021 }, { "Month", month }, { "Week", 0 }, { "Day", 1 }, { "Hour", 1 },
            { "Minute", 1 } };
    }

    bool valid_date(const QJsonValue& v)
    {
        if (!v.isObject())
            return false;
        const QJsonObject o = v.toObject();
        for (auto it = o.begin(); it != o.end(); ++it) {
            if (!it.value().isDouble())
                return false;
        }
        return true;
    }

} // namespace

QJsonObject location_record::factory()
{
    return QJsonObject {
        { "DSTEnd", dst_date(10) },
        { "DSTRule", "Off" },
        { "DSTStart", dst_date(5) },
        { "DateFormat", "YYMMDD" },
        { "DateSeparator", "-" },
        { "IranCalendarEnable", 0 },
        { "Language", "English" },
        { "TimeFormat", "24" },
        { "VideoFormat", "PAL" },
        { "WorkDay", 62 },
    };
}

bool location_record::merge(const QJsonObject& changes, QString* error)
{
    static const QStringList texts { "DateFormat", "DateSeparator", "Language", "TimeFormat", "VideoFormat",
        "DSTRule" };
    for (auto it = changes.begin(); it != changes.end(); ++it) {
        const QString& key = it.key();
        bool good = true;
        if (texts.contains(key))
            good = it.value().isString() && !it.value().toString().isEmpty();
        else if (key == QLatin1String("DSTStart") || key == QLatin1String("DSTEnd"))
            good = valid_date(it.value());
        else if (key == QLatin1String("WorkDay"))
            good = it.value().isDouble();
        if (!good) {
            *error = QStringLiteral("bad value for %1").arg(key);
            return false;
        }
    }
    for (auto it = changes.begin(); it != changes.end(); ++it)
        members.insert(it.key(), it.value());
    return true;
}

} // namespace devsim
