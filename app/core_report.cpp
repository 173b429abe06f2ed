// What a run leaves behind: its summary by outcome and the handover report.
#include "app/core.h"

#include "app/fixed_names.h"

#include <QHostAddress>

#include <algorithm>

run_summary core::summary() const
{
    run_summary s;
    for (const QString& ident : m_manager.launch_list()) {
        const auto l = m_manager.find(ident);
        if (!l)
            continue;
        if (m_manager.is_running(ident))
            s.add(run_summary::running);
        else if (l->params().contains(tasks::keys::outcome))
            s.add(run_summary::of_result(
                l->get(tasks::keys::outcome).value<tasks::common_data>().ok, l->get(tasks::keys::up_to_date).toBool()));
        else
            s.add(run_summary::waiting);
    }
    return s;
}

void core::begin_outcomes(const QStringList& idents)
{
    // A row counts as waiting from its launch until its flow has ended again.
    for (const QString& ident : idents) {
        if (const auto l = m_manager.find(ident)) {
            l->remove(tasks::keys::outcome);
            l->remove(tasks::keys::up_to_date);
        }
    }
}

void core::record_outcome(const QString& ident, const tasks::common_data& result)
{
    const auto l = m_manager.find(ident);
    if (!l)
        return;
    l->set(tasks::keys::flow_ended, QDateTime::currentDateTimeUtc());
    // What the row ended with, as the report tells it.
    l->set(tasks::keys::outcome, QVariant::fromValue(result));
}

QList<run_report::row> core::report_rows() const
{
    QList<std::pair<endpoint, run_report::row>> rows;
    for (const QString& ident : m_manager.lines()) {
        const auto l = m_manager.find(ident);
        const auto ep = l->get(tasks::keys::endpoint).value<endpoint>();
        run_report::row r;
        r.device = ep.short_form();
        r.serial = l->get(tasks::keys::serial).toString().toUpper();
        r.mac = ep.mac;
        r.hardware = l->get(tasks::keys::hardware).toString();
        r.version_before = l->get(tasks::keys::version_before).toString();
        r.version_after = l->get(tasks::keys::version).toString();
        if (m_manager.is_running(ident))
            r.outcome = tr("Running");
        else if (l->params().contains(tasks::keys::outcome))
            r.outcome = l->get(tasks::keys::outcome).value<tasks::common_data>().text;
        else
            r.outcome = tr("Not run");
        r.started = l->get(tasks::keys::flow_started).toDateTime();
        r.ended = m_manager.is_running(ident) ? QDateTime() : l->get(tasks::keys::flow_ended).toDateTime();
        rows.append({ ep, r });
    }
    // By address, as an installer walks the site; the manager keeps its lines by ident.
    std::sort(rows.begin(), rows.end(), [](const auto& a, const auto& b) {
        const quint32 ha = QHostAddress(a.first.host).toIPv4Address();
        const quint32 hb = QHostAddress(b.first.host).toIPv4Address();
        if (ha != hb)
            return ha < hb;
        if (a.first.host != b.first.host)
            return a.first.host < b.first.host;
        return a.first.port < b.first.port;
    });
    QList<run_report::row> result;
    for (const auto& [ep, r] : rows)
        result << r;
    return result;
}

int core::export_report(const QString& path)
{
    const QList<run_report::row> rows = report_rows();
    QString error;
    if (!run_report::write(path, rows, &error)) {
        log(fixed_names::sources::core, tr("Can't write the report \"%1\": %2").arg(path, error));
        return -1;
    }
    log(fixed_names::sources::core, tr("Report of %n devices written to \"%1\"", nullptr, rows.size()).arg(path));
    return rows.size();
}

void core::on_window_export_report(const QString& file)
{
    if (export_report(file) < 0)
        warn(tr("Report"), tr("Can't write the report \"%1\".").arg(file));
}
