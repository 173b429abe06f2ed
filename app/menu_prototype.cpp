#include "app/menu_prototype.h"

#include <QAction>
#include <QEvent>
#include <QMenu>

namespace dynmenu
{

menu_prototype::menu_prototype(QMenu* target, QObject* parent)
    : QObject(parent)
    , m_target(target)
{
    // The menu gets the application's language changes; a plain QObject doesn't.
    m_target->installEventFilter(this);
}

void menu_prototype::load(QSettings& settings)
{
    Q_UNUSED(settings)
}

void menu_prototype::save(QSettings& settings) const
{
    Q_UNUSED(settings)
}

QAction* menu_prototype::action(int ident) const
{
    const auto it = m_entries.constFind(ident);
    return it == m_entries.cend() ? nullptr : it->action;
}

bool menu_prototype::eventFilter(QObject* watched, QEvent* event)
{
    if (watched == m_target && event->type() == QEvent::LanguageChange)
        retranslate();
    return QObject::eventFilter(watched, event);
}

QMenu* menu_prototype::menu_of(int parent) const
{
    const auto it = m_entries.constFind(parent);
    return it != m_entries.cend() && it->menu ? it->menu : m_target;
}

QAction* menu_prototype::add_item(int ident, scripting::commands cmd, const QVariantList& args, int parent)
{
    QAction* a = menu_of(parent)->addAction(QString());
    a->setObjectName(QStringLiteral("menu_entry_%1").arg(ident));
    connect(a, &QAction::triggered, this, &menu_prototype::menu_triggered);
    m_entries.insert(ident, entry { item, cmd, args, parent, a, nullptr });
    return a;
}

QAction* menu_prototype::add_separator(int ident, int parent)
{
    QAction* a = menu_of(parent)->addSeparator();
    m_entries.insert(ident, entry { separator, scripting::commands::null_command, {}, parent, a, nullptr });
    return a;
}

QMenu* menu_prototype::add_submenu(int ident, int parent)
{
    QMenu* sub = menu_of(parent)->addMenu(QString());
    sub->setObjectName(QStringLiteral("menu_entry_%1").arg(ident));
    m_entries.insert(ident, entry { item, scripting::commands::null_command, {}, parent, sub->menuAction(), sub });
    return sub;
}

void menu_prototype::set_text(int ident, const QString& text)
{
    if (QAction* a = action(ident))
        a->setText(text);
}

void menu_prototype::menu_triggered()
{
    const auto* sender_action = qobject_cast<QAction*>(sender());
    for (const entry& e : qAsConst(m_entries)) {
        if (e.action == sender_action && e.type == item && !e.menu) {
            emit menu_executed(e.command, e.args, sender_action->isChecked());
            return;
        }
    }
}

} // namespace dynmenu
