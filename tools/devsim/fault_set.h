#pragma once

#include <QHash>
#include <QJsonObject>
#include <QSet>
#include <QString>

namespace devsim
{

// Misbehaviour a test asks of one device. Message ids are those of the requests.
struct fault_set {
    bool refuse_login = false; // every login gets Ret 203
    bool lock_user = false; // every login gets Ret 205
    QSet<quint16> silent_at; // read, recorded, never answered
    QSet<quint16> close_at; // the connection is closed instead of answering
    QSet<quint16> close_after; // the connection is closed after the answer
    QHash<quint16, int> wrong_ret; // answered with this "Ret" instead
    int delay_ms = 0; // every answer waits this long
    QHash<quint16, int> delay_at; // and these answers this long instead

    // Takes the members present, replacing each one whole; false on a bad member.
    bool merge(const QJsonObject& members, QString* error);
    QJsonObject to_json() const;
    int delay_for(quint16 message_id) const { return delay_at.value(message_id, delay_ms); }
};

} // namespace devsim
