#include "tools/devsim/upgrade_handler.h"

#include <QTimer>

#include "tools/devsim/connection.h"
#include "tools/devsim/device.h"
#include "tools/devsim/devsim_log.h"
#include "tools/devsim/request_body.h"
#include "tools/devsim/ret_codes.h"

namespace devsim
{

namespace
{

    constexpr quint16 progress_message = 1524;
    const QString upgrade_name = QStringLiteral("OPSystemUpgrade");

} // namespace

upgrade_handler::upgrade_handler()
    : m_md5(QCryptographicHash::Md5)
{
}

void upgrade_handler::handle(connection& conn, const frame& request)
{
    if (request.message_id == 1520)
        start(conn, request);
    else if (request.current_packet == 1)
        end_of_file(conn, request);
    else
        chunk(conn, request);
}

void upgrade_handler::start(connection& conn, const frame& request)
{
    device_state& s = conn.owner().state();
    bool ok = false;
    const QJsonObject body = parse_request_body(request.payload, &ok);
    const QJsonObject op = body.value(upgrade_name).toObject();
    if (!ok || body.value("Name").toString() != upgrade_name
        || op.value("Action").toString() != QLatin1String("Start")) {
        qCInfo(lc_devsim, "%s: upgrade request it doesn't understand: %s", qPrintable(s.name),
            request.payload.left(200).constData());
        conn.reply(request, QJsonObject { { "Name", upgrade_name }, { "Ret", ret::illegal_request } });
        return;
    }
    ++s.upgrade_starts;
    // A start answered with another Ret by a fault is one the device didn't take either.
    const fault_set& faults = conn.owner().faults();
    if (faults.refuse_upgrade || faults.wrong_ret.value(1520, ret::ok) != ret::ok || m_stage == stage::writing) {
        qCInfo(lc_devsim, "%s: upgrade refused", qPrintable(s.name));
        conn.reply(request, QJsonObject { { "Name", upgrade_name }, { "Ret", ret::upgrade_refused } });
        return;
    }
    abandon();
    m_md5.reset();
    m_size = 0;
    m_chunks = 0;
    m_stage = stage::receiving;
    qCInfo(
        lc_devsim, "%s: upgrade of type \"%s\" started", qPrintable(s.name), qPrintable(op.value("Type").toString()));
    conn.reply(request, QJsonObject { { "Name", upgrade_name }, { "Ret", ret::ok } });
}

void upgrade_handler::chunk(connection& conn, const frame& request)
{
    const device_state& s = conn.owner().state();
    const fault_set& faults = conn.owner().faults();
    if (m_stage != stage::receiving) {
        qCInfo(lc_devsim, "%s: firmware chunk %u without an upgrade under way", qPrintable(s.name), request.sequence);
        conn.reply(request, QJsonObject { { "Ret", ret::illegal_request } });
        return;
    }
    if (faults.drop_at_chunk >= 0 && request.sequence == quint32(faults.drop_at_chunk)) {
        qCInfo(lc_devsim, "%s: dropping the connection at chunk %u as asked", qPrintable(s.name), request.sequence);
        abandon();
        conn.drop();
        return;
    }
    if (request.sequence != m_chunks) {
        qCWarning(lc_devsim, "%s: chunk %u where %u was due; upgrade abandoned", qPrintable(s.name), request.sequence,
            m_chunks);
        abandon();
        conn.reply(request, QJsonObject { { "Ret", ret::upgrade_failed } });
        return;
    }
    m_md5.addData(request.payload);
    m_size += request.payload.size();
    ++m_chunks;
    const auto wrong = faults.chunk_ret.constFind(request.sequence);
    if (wrong != faults.chunk_ret.constEnd()) {
        qCInfo(lc_devsim, "%s: answering chunk %u with %d as asked", qPrintable(s.name), request.sequence, *wrong);
        if (*wrong != ret::ok)
            abandon();
        conn.reply(request, QJsonObject { { "Ret", *wrong } });
        return;
    }
    conn.reply(request, QJsonObject { { "Ret", ret::ok } });
}

void upgrade_handler::end_of_file(connection& conn, const frame& request)
{
    device_state& s = conn.owner().state();
    if (m_stage != stage::receiving) {
        qCInfo(lc_devsim, "%s: end of file without an upgrade under way", qPrintable(s.name));
        conn.reply(request, QJsonObject { { "Ret", ret::illegal_request } });
        return;
    }
    if (request.sequence != m_chunks || !request.payload.isEmpty()) {
        qCWarning(lc_devsim, "%s: end of file with sequence %u and %d bytes after %u chunks; upgrade abandoned",
            qPrintable(s.name), request.sequence, request.payload.size(), m_chunks);
        abandon();
        conn.reply(request, QJsonObject { { "Ret", ret::upgrade_failed } });
        return;
    }
    m_image_md5 = QString::fromLatin1(m_md5.result().toHex());
    s.upgrade_md5 = m_image_md5;
    s.upgrade_size = m_size;
    qCInfo(lc_devsim, "%s: image of %lld bytes in %u chunks, MD5 %s", qPrintable(s.name), m_size, m_chunks,
        qPrintable(m_image_md5));
    const int eof_ret = conn.owner().faults().eof_ret;
    if (eof_ret != 0 && eof_ret != ret::ok) {
        qCInfo(lc_devsim, "%s: answering the end of file with %d as asked", qPrintable(s.name), eof_ret);
        abandon();
        conn.reply(request, QJsonObject { { "Ret", eof_ret } });
        return;
    }
    conn.reply(request, QJsonObject { { "Ret", ret::ok } });
    m_stage = stage::writing;
    progress(conn, 0, request.sequence);
}

void upgrade_handler::progress(connection& conn, int step, quint32 sequence)
{
    device& dev = conn.owner();
    device_state& s = dev.state();
    const fault_set& faults = dev.faults();
    if (conn.closing()) {
        abandon();
        return;
    }
    if (step >= s.upgrade_progress.size()) {
        conn.send(progress_message, sequence, QJsonObject { { "Ret", ret::upgrade_written } });
        abandon();
        ++s.upgrades;
        const QString version = faults.keep_version ? s.software_version
            : s.upgrade_version.isEmpty()           ? QStringLiteral("V") + m_image_md5.left(8)
                                                    : s.upgrade_version;
        qCInfo(lc_devsim, "%s: firmware written, rebooting into %s", qPrintable(s.name), qPrintable(version));
        dev.reboot(version);
        return;
    }
    const int percent = s.upgrade_progress.at(step);
    if (faults.progress_drop_at >= 0 && percent >= faults.progress_drop_at) {
        qCInfo(
            lc_devsim, "%s: closing the connection at %d%% as asked; upgrade abandoned", qPrintable(s.name), percent);
        abandon();
        // What was written (the answer to the end of file) leaves first.
        conn.close();
        return;
    }
    if (faults.progress_stall_at >= 0 && percent >= faults.progress_stall_at) {
        qCInfo(lc_devsim, "%s: falling silent at %d%% as asked; upgrade abandoned", qPrintable(s.name), percent);
        abandon();
        return;
    }
    conn.send(progress_message, sequence, QJsonObject { { "Ret", percent } });
    const int run = m_run;
    QTimer::singleShot(s.upgrade_step_ms, &conn, [this, &conn, step, sequence, run] {
        if (run == m_run)
            progress(conn, step + 1, sequence);
    });
}

void upgrade_handler::abandon()
{
    m_stage = stage::idle;
    ++m_run;
}

} // namespace devsim
