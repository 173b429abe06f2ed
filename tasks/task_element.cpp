#include "tasks/task_element.h"

#include <QUuid>

task_element::task_element()
    : ident(QUuid::createUuid().toString())
{
}

task_element::task_element(const endpoint& ep, const device& dev)
    : ident(QUuid::createUuid().toString())
    , dev(dev)
    , ep(ep)
{
}
