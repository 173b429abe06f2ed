#pragma once

#include "tasks/line.h"

#include <QMap>
#include <QObject>
#include <QSet>
#include <QStringList>

#include <memory>

namespace tasks {

// Owns the task lines and decides which flows run, under an optional limit.
// It knows nothing of devices: it announces the front task of a flow and is told
// when that task is over. Signals are delivered directly, so a task that finishes
// at once re-enters task_finished() from inside task_running.
class manager final : public QObject
{
    Q_OBJECT
public:
    explicit manager(QObject* parent = nullptr);
    ~manager() override;
    Q_DISABLE_COPY_MOVE(manager)

    // Makes (or replaces) the line under ident and gives it a short ident.
    void add_line(const QString& ident);
    // Short idents of a removed line keep resolving to its old ident.
    void remove_line(const QString& ident);
    // An unknown ident leaves a null entry behind; callers hold valid idents.
    std::shared_ptr<tasks::line> line(const QString& ident);
    std::shared_ptr<tasks::line> find(const QString& ident) const;
    bool contains(const QString& ident) const { return m_lines.contains(ident); }
    int count() const { return m_lines.size(); }
    QStringList lines() const { return m_lines.keys(); }
    void add_task(const QString& ident, const task& t);

    // A flow ident, or the flow ident of a short ident; empty when neither.
    QString resolve(const QString& text) const;
    QString short_ident(const QString& ident) const { return m_short_by_ident.value(ident); }
    QString ident_of_short(const QString& short_ident) const { return m_ident_by_short.value(short_ident); }

    void set_launch_list(const QStringList& idents) { m_launch_list = idents; }
    const QStringList& launch_list() const { return m_launch_list; }
    // Queues the launch list behind whatever waits and starts what the limit allows.
    void launch(bool use_override = false, uint override_limit = 0);
    // A raised limit takes effect at once while flows run; a lowered one stops nothing.
    void set_limit(uint limit);
    uint limit() const { return m_limiter.limit; }
    uint effective_limit() const;
    uint running_count() const { return uint(m_running.size()); }
    // Whether the flow of this line has started and not yet ended.
    bool is_running(const QString& ident) const { return m_running.contains(ident); }
    int launch_count() const { return m_launch_list.size(); }
    const QStringList& waiting() const { return m_pending; }
    bool override_active() const { return m_limiter.override_active; }

    // The one way a finished task (good or failed) comes back. A report for a line whose
    // flow isn't running (late, or repeated) is told to nobody and frees no slot.
    void task_finished(const QString& ident);

signals:
    void flow_started(const QString& flow_ident);
    void flow_ended(const QString& flow_ident);
    void task_running(const QString& flow, const QString& name, const QString& uuid);

private:
    struct limiter
    {
        bool override_active = false;
        uint limit = 0;
        uint override_limit = 0;
        uint admitted = 0;
    };

    bool may_admit() const;
    void pump();
    void start_flow(const QString& ident);
    QString make_short_ident(const QString& ident) const;

    limiter m_limiter;
    QMap<QString, std::shared_ptr<tasks::line>> m_lines;
    QMap<QString, QString> m_short_by_ident;
    QMap<QString, QString> m_ident_by_short;
    QSet<QString> m_running; // flows started and not yet ended
    QStringList m_launch_list;
    QStringList m_pending;
};

} // namespace tasks
