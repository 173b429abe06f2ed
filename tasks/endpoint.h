#pragma once

#include <QMap>
#include <QMetaType>
#include <QString>

#include <cstdint>

// How to reach a device and log in to it.
struct endpoint
{
    static constexpr uint16_t default_port = 34567;

    QString name;
    QString mac;
    QString host;
    uint16_t port = default_port;
    QString user = QStringLiteral("admin");
    QString password;
    bool password_encrypted = false;
    uint16_t mtype = 0;

    // The tag of every log line of a flow: the name, else "user@host[:port]".
    QString short_form() const;
    QString long_form() const;
    // The form scripts see.
    QMap<QString, QString> to_map() const;

    bool operator==(const endpoint& other) const;
};

Q_DECLARE_METATYPE(endpoint)
