#include "tasks/task.h"

#include <QUuid>

namespace tasks {

task::task(QString name)
    : m_uuid(QUuid::createUuid().toString())
    , m_name(std::move(name))
{
}

task::task(QString name, const task& parent)
    : task(std::move(name))
{
    m_parent = parent.uuid();
}

} // namespace tasks
