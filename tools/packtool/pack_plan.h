#pragma once

#include <QByteArray>
#include <QPair>
#include <QString>
#include <QVector>

namespace packtool
{

// What goes into a pack: distinct firmware files, and the targets that point at them.
struct pack_plan {
    struct firmware {
        QByteArray data;
        QString sdk_type; // empty: no "SDK type" element (version 3 only)
    };
    struct target {
        QString serial;
        int firmware = 0; // index into firmwares
    };

    int version = 3;
    int kind = 2; // 1 cache, 2 pack
    QVector<firmware> firmwares;
    QVector<target> targets;
    QVector<QPair<QString, quint8>> scripts; // (text, value), version 3 only
};

} // namespace packtool
