#include "app/script_toolbar.h"

#include "scripting/actions_db.h"

#include <QAction>
#include <QIcon>
#include <QPixmap>
#include <QToolBar>

void fill_toolbar(QToolBar& toolbar, const scripting::actions_db& actions)
{
    // Cleared by hand: QToolBar::clear() leaves the actions it owns alive until the bar goes.
    for (QAction* old : toolbar.actions()) {
        toolbar.removeAction(old);
        if (old->parent() == &toolbar)
            delete old;
    }
    for (const QString& identifier : actions.layout()) {
        if (identifier.isEmpty()) {
            toolbar.addSeparator();
            continue;
        }
        const scripting::quick_action a = actions.action(identifier);
        // A null pixmap is the sure sign of a file that isn't an image.
        const QIcon icon = QPixmap(a.icon).isNull() ? QIcon(QStringLiteral(":/svg/question")) : QIcon(a.icon);
        QAction* button = toolbar.addAction(icon, a.title);
        button->setData(identifier);
    }
}
