#include "ui/resource_init.h"

#include <QtGlobal>

// Outside any namespace, as Q_INIT_RESOURCE requires; registering twice is harmless.
void init_ui_resources()
{
    Q_INIT_RESOURCE(icons);
    Q_INIT_RESOURCE(arts);
    Q_INIT_RESOURCE(docs);
}
