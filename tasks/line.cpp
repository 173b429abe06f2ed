#include "tasks/line.h"

#include "tasks/endpoint.h"

namespace tasks {

line::line(QString ident)
    : m_ident(std::move(ident))
{
}

void line::add(const task& t)
{
    m_tasks.insert_or_assign(t.uuid(), t);
    m_queue.append(t.uuid());
}

void line::advance()
{
    if (m_queue.isEmpty())
        return;
    if (!m_current.isEmpty()) {
        m_queue.removeOne(m_current);
        m_tasks.erase(m_current);
        if (m_queue.isEmpty()) {
            m_current.clear();
            return;
        }
    }
    m_current = m_queue.constFirst();
}

task& line::current_task()
{
    return m_tasks.at(m_current);
}

QMap<QString, QString> line::dependents() const
{
    QMap<QString, QString> out;
    if (!m_current.isEmpty())
        collect_dependents(m_current, out);
    return out;
}

void line::collect_dependents(const QString& uuid, QMap<QString, QString>& out) const
{
    for (const auto& [key, t] : m_tasks) {
        if (t.parent() == uuid && !out.contains(key)) {
            out.insert(key, t.name());
            collect_dependents(key, out);
        }
    }
}

int line::cancel_dependents()
{
    if (m_current.isEmpty())
        return 0;
    return cancel_below(m_current);
}

int line::cancel_below(const QString& uuid)
{
    QStringList children;
    for (const auto& [key, t] : m_tasks) {
        if (t.parent() == uuid && key != uuid)
            children << key;
    }
    for (const auto& child : qAsConst(children))
        cancel_below(child);
    for (const auto& child : qAsConst(children)) {
        m_tasks.erase(child);
        m_queue.removeAll(child);
    }
    // Only the direct children are counted, so the log reads "1/3" for a failed chain of four.
    return children.size();
}

QMap<QString, line::description> line::describe() const
{
    QMap<QString, description> out;
    for (auto it = m_parameters.cbegin(); it != m_parameters.cend(); ++it) {
        const QVariant& v = it.value();
        description d;
        if (v.userType() == QMetaType::QString) {
            d = { true, QStringLiteral("string"), v.toString() };
        } else if (v.userType() == QMetaType::Bool) {
            d = { true, QStringLiteral("bool"), v.toBool() ? QStringLiteral("true") : QStringLiteral("false") };
        } else if (v.userType() == qMetaTypeId<endpoint>()) {
            d = { true, QStringLiteral("endpoint"), v.value<endpoint>().long_form() };
        } else {
            d = { false, QString::fromLatin1(v.typeName()), QStringLiteral("---") };
        }
        out.insert(it.key(), d);
    }
    return out;
}

} // namespace tasks
