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

    // Firmware upload. Chunks are numbered from 0, as in the header's sequence.
    bool refuse_upgrade = false; // the start gets Ret 512
    QHash<quint32, int> chunk_ret; // this chunk is answered with this Ret and the upload abandoned
    int drop_at_chunk = -1; // the connection is dropped when this chunk arrives
    int eof_ret = 0; // the end of file is answered with this Ret instead of 100
    int progress_drop_at = -1; // closed instead of reporting the first percentage at or above this
    int progress_stall_at = -1; // silent from the first percentage at or above this on, the connection kept
    bool keep_version = false; // the upgrade runs to its end, and the device comes back on its old version

    // Discovery (silent_at with 1530 silences it altogether).
    int discovery_skip = 0; // the next N discovery requests go unanswered
    bool leading_zeros = false; // ports written as 034567 in the discovery answer
    QString discovery_body; // when set, the discovery answer's body as it stands, instead of the record

    // Takes the members present, replacing each one whole; false on a bad member.
    bool merge(const QJsonObject& members, QString* error);
    QJsonObject to_json() const;
    int delay_for(quint16 message_id) const { return delay_at.value(message_id, delay_ms); }
    // Counts one discovery request down; true when this one is to go unanswered.
    bool skip_discovery();
};

} // namespace devsim
