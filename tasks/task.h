#pragma once

#include "tasks/parameters.h"

#include <QString>

namespace tasks {

// One step of a flow. Its parent is the task it depends on.
class task
{
public:
    explicit task(QString name);
    task(QString name, const task& parent);
    virtual ~task() = default;
    task(const task&) = default;
    task& operator=(const task&) = default;

    const QString& uuid() const { return m_uuid; }
    const QString& name() const { return m_name; }
    const QString& parent() const { return m_parent; }
    void set_parent(const task& parent) { m_parent = parent.uuid(); }

    parameters& params() { return m_parameters; }
    const parameters& params() const { return m_parameters; }
    void set(const QString& key, const QVariant& value) { m_parameters.insert(key, value); }

private:
    QString m_uuid;
    QString m_name;
    QString m_parent;
    parameters m_parameters;
};

} // namespace tasks
