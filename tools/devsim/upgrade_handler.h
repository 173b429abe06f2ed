#pragma once

#include "tools/devsim/handler.h"

#include <QCryptographicHash>

namespace devsim
{

// The firmware upload of one connection: 1520 starts it (1521), 1522 carries the
// chunks (each answered by 1523) and then an empty end-of-file packet (1523 too),
// after which the device reports its writing progress in 1524 messages, ends with
// Ret 515 and reboots into the new version. The image is hashed as it arrives and
// never kept. A connection lost before 515 abandons the upgrade.
class upgrade_handler final : public handler
{
public:
    upgrade_handler();

    QList<quint16> message_ids() const override { return { 1520, 1522 }; }
    void handle(connection& conn, const frame& request) override;

private:
    enum class stage { idle, receiving, writing };

    void start(connection& conn, const frame& request);
    void chunk(connection& conn, const frame& request);
    void end_of_file(connection& conn, const frame& request);
    // Sends progress step `step` (past the list: 515 and the reboot), then schedules the next.
    void progress(connection& conn, int step, quint32 sequence);
    void abandon();

    stage m_stage = stage::idle;
    QCryptographicHash m_md5;
    qint64 m_size = 0;
    quint32 m_chunks = 0;
    QString m_image_md5;
    // Bumped by every start and abandon, so a progress timer of an older run does nothing.
    int m_run = 0;
};

} // namespace devsim
