#pragma once

#include "tasks/device.h"
#include "tasks/endpoint.h"

#include <QString>

// What introduces a device to the table: from the scanner, an import or the edit dialog.
struct task_element
{
    task_element();
    task_element(const endpoint& ep, const device& dev);

    QString ident;
    device dev;
    endpoint ep;
};
