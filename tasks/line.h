#pragma once

#include "tasks/parameters.h"
#include "tasks/task.h"

#include <QMap>
#include <QStringList>

#include <map>

namespace tasks {

// One device's flow: tasks in execution order and everything known about the device.
// A finished task leaves no trace; the front of the queue is the running task.
class line
{
public:
    struct description
    {
        bool simple = false;
        QString type;
        QString value;
    };

    explicit line(QString ident);
    virtual ~line() = default;

    void add(const task& t);
    // Drops the finished current task and makes the next one current.
    void advance();
    bool has_current() const { return !m_current.isEmpty(); }
    int pending() const { return m_queue.size(); }
    // Throws std::out_of_range when nothing runs.
    task& current_task();
    const QString& current() const { return m_current; }
    const QStringList& queue() const { return m_queue; }
    const std::map<QString, task>& tasks() const { return m_tasks; }
    const QString& ident() const { return m_ident; }

    parameters& params() { return m_parameters; }
    const parameters& params() const { return m_parameters; }
    void set(const QString& key, const QVariant& value) { m_parameters.insert(key, value); }
    QVariant get(const QString& key) const { return m_parameters.value(key); }
    void remove(const QString& key) { m_parameters.remove(key); }

    // uuid -> name of every direct and indirect dependent of the running task.
    QMap<QString, QString> dependents() const;
    int dependents_count() const { return dependents().size(); }
    // Removes the running task's subtree; returns the number of its direct children.
    int cancel_dependents();

    QMap<QString, description> describe() const;

private:
    void collect_dependents(const QString& uuid, QMap<QString, QString>& out) const;
    int cancel_below(const QString& uuid);

    QString m_ident;
    QStringList m_queue;
    std::map<QString, task> m_tasks;
    QString m_current;
    parameters m_parameters;
};

} // namespace tasks
