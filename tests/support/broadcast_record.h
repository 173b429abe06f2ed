#pragma once

// What simulated devices heard of configurations by broadcast. Header-only.
#include "tests/support/devsim_harness.h"

#include <QHostAddress>
#include <QJsonDocument>
#include <QtEndian>

// An address as the NETIP record carries it: "0x%08X" of the byte-reversed address.
inline QString wire_address(const QHostAddress& a)
{
    return QString::asprintf("0x%08X", qbswap(a.toIPv4Address()));
}

// The configurations by broadcast that named this device (every device hears them all).
inline QList<QJsonObject> broadcasts_for(devsim_harness& sim, int device)
{
    const QString mac = sim.state(device).value("mac").toString();
    QList<QJsonObject> out;
    for (const QJsonValue& r : sim.requests_of(device, 1532)) {
        const QString text = r.toObject().value("body").toString().section(QChar(0), 0, 0);
        const QJsonObject body = QJsonDocument::fromJson(text.trimmed().toUtf8()).object();
        if (body.value("DvrMac").toString().compare(mac, Qt::CaseInsensitive) == 0)
            out << body;
    }
    return out;
}
