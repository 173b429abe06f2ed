#pragma once

#include <QStringList>

#include <cstdint>

// The client's record of "General.Location". The list members hold indices into the tables
// below; -1 stands for a text the device sent that isn't in the table.
struct location_config
{
    struct date_record
    {
        int32_t year = 0;
        int32_t month = 0;
        int32_t week = 0;
        int32_t day = 0;
        int32_t hour = 0;
        int32_t minute = 0;
    };

    int32_t video_format = 0;
    int32_t language = 0;
    int32_t date_format = 0;
    int32_t date_separator = 0;
    int32_t time_format = 0;
    int32_t work_day = 0;
    date_record dst_start;
    date_record dst_end;

    // The texts of each list member, in index order.
    static const QStringList& date_formats();
    static const QStringList& date_separators();
    static const QStringList& languages();
    static const QStringList& time_formats();
    static const QStringList& video_formats();
};
