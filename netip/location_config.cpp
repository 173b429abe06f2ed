#include "netip/location_config.h"

const QStringList& location_config::date_formats()
{
    static const QStringList list { QStringLiteral("YYMMDD"), QStringLiteral("MMDDYY"), QStringLiteral("DDMMYY") };
    return list;
}

const QStringList& location_config::date_separators()
{
    static const QStringList list { QStringLiteral("."), QStringLiteral("-"), QStringLiteral("/") };
    return list;
}

const QStringList& location_config::languages()
{
    static const QStringList list { QStringLiteral("English"), QStringLiteral("SimpChinese"),
        QStringLiteral("TradChinese"), QStringLiteral("Italian"), QStringLiteral("Spanish"), QStringLiteral("Japanese"),
        QStringLiteral("Russian"), QStringLiteral("French"), QStringLiteral("German") };
    return list;
}

const QStringList& location_config::time_formats()
{
    static const QStringList list { QStringLiteral("12"), QStringLiteral("24") };
    return list;
}

const QStringList& location_config::video_formats()
{
    static const QStringList list { QStringLiteral("PAL"), QStringLiteral("NTSC"), QStringLiteral("SECAM") };
    return list;
}
