#include "tasks/manager.h"

#include <QRegularExpression>

namespace tasks {

manager::manager(QObject* parent)
    : QObject(parent)
{
}

manager::~manager() = default;

void manager::add_line(const QString& ident)
{
    m_lines.insert(ident, std::make_shared<tasks::line>(ident));
    const QString short_id = make_short_ident(ident);
    if (!short_id.isEmpty()) {
        m_short_by_ident.insert(ident, short_id);
        m_ident_by_short.insert(short_id, ident);
    }
}

QString manager::make_short_ident(const QString& ident) const
{
    static const QRegularExpression strip(QStringLiteral("[\\-\\{\\}]"));
    QString bare = ident;
    bare.remove(strip);
    if (bare.size() == 4)
        return {};
    for (int pos = 0; pos < bare.size() - 4; ++pos) {
        const QString window = bare.mid(pos, 4);
        if (!m_ident_by_short.contains(window))
            return window;
    }
    return {};
}

void manager::remove_line(const QString& ident)
{
    m_lines.remove(ident);
}

std::shared_ptr<tasks::line> manager::line(const QString& ident)
{
    return m_lines[ident];
}

std::shared_ptr<tasks::line> manager::find(const QString& ident) const
{
    return m_lines.value(ident);
}

void manager::add_task(const QString& ident, const task& t)
{
    if (const auto l = line(ident))
        l->add(t);
}

QString manager::resolve(const QString& text) const
{
    if (m_lines.contains(text))
        return text;
    return m_ident_by_short.value(text);
}

void manager::launch(bool use_override, uint override_limit)
{
    if (use_override) {
        m_limiter.override_limit = override_limit;
        m_limiter.override_active = true;
    }
    for (const auto& ident : qAsConst(m_launch_list)) {
        if (m_lines.contains(ident))
            m_pending.append(ident);
    }
    pump();
}

void manager::set_limit(uint limit)
{
    m_limiter.limit = limit;
    if (!m_running.isEmpty())
        pump();
}

uint manager::effective_limit() const
{
    return m_limiter.override_active ? m_limiter.override_limit : m_limiter.limit;
}

bool manager::may_admit() const
{
    const uint limit = effective_limit();
    return limit == 0 || limit > m_limiter.admitted;
}

void manager::pump()
{
    // start_flow() may re-enter through a step that finishes at once, so the
    // queue is tested on every round.
    while (!m_pending.isEmpty() && may_admit()) {
        const QString ident = m_pending.takeFirst();
        start_flow(ident);
    }
    if (m_pending.isEmpty())
        m_limiter.override_active = false;
}

void manager::start_flow(const QString& ident)
{
    const auto l = m_lines.value(ident);
    if (!l)
        return;
    l->advance();
    if (l->pending() == 0)
        return;
    ++m_limiter.admitted;
    m_running.insert(ident);
    emit flow_started(ident);
    // The step may have finished within flow_started's handlers; announce only a live task.
    if (l->has_current()) {
        const task& t = l->current_task();
        const QString name = t.name();
        const QString uuid = t.uuid();
        emit task_running(ident, name, uuid);
    }
}

void manager::task_finished(const QString& ident)
{
    // Only a running flow moves on: a late or repeated report must neither start a line's
    // next tasks nor free the slot of another flow.
    if (!m_running.contains(ident))
        return;
    const auto l = m_lines.value(ident);
    if (l) {
        l->advance();
        if (l->has_current()) {
            const task& t = l->current_task();
            const QString name = t.name();
            const QString uuid = t.uuid();
            emit task_running(ident, name, uuid);
            return;
        }
    }
    m_running.remove(ident);
    --m_limiter.admitted;
    pump();
    emit flow_ended(ident);
}

} // namespace tasks
