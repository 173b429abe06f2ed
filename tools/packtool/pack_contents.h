#pragma once

#include <QByteArray>
#include <QPair>
#include <QString>
#include <QVector>

namespace packtool
{

// A pack or cache as the tool reads it, with idents and serials decrypted.
struct pack_contents {
    struct firmware {
        int block = 0; // position among all blocks
        qint64 offset = 0; // file offset of the block
        QString ident;
        QString sdk_type;
        quint64 session = 0;
        quint32 plain_length = 0;
        QByteArray payload_frame;
        bool has_session = false;
    };
    struct target {
        QString serial;
        quint8 index = 0;
    };

    int version = 0;
    int kind = 0;
    int count = 0;
    quint32 timestamp = 0;
    qint64 size = 0;
    QVector<target> targets;
    QVector<firmware> firmwares; // in file order; version 3 indexes count these
    QVector<QPair<QString, quint8>> scripts;
    qint64 trailing = 0; // bytes past the last counted block
};

} // namespace packtool
