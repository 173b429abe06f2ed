#include "ui/long_entry_tooltips.h"

#include <QAbstractItemView>
#include <QEvent>
#include <QFontMetrics>
#include <QHelpEvent>
#include <QToolTip>

long_entry_tooltips::long_entry_tooltips(QObject* parent)
    : QObject(parent)
{
}

void long_entry_tooltips::watch(QAbstractItemView* view)
{
    view->viewport()->installEventFilter(this);
}

bool long_entry_tooltips::eventFilter(QObject* watched, QEvent* event)
{
    if (event->type() != QEvent::ToolTip)
        return false;
    auto* viewport = qobject_cast<QWidget*>(watched);
    auto* view = viewport ? qobject_cast<QAbstractItemView*>(viewport->parentWidget()) : nullptr;
    if (!view)
        return false;
    const auto* help = static_cast<QHelpEvent*>(event);
    const QModelIndex index = view->indexAt(help->pos());
    if (!index.isValid())
        return false;
    // A list lays an item out as wide as its text: what counts is the part in sight.
    const QRect rect = view->visualRect(index).intersected(view->viewport()->rect());
    const QString tip = index.data(Qt::ToolTipRole).toString();
    const int wanted = view->fontMetrics().horizontalAdvance(index.data(Qt::DisplayRole).toString());
    if (wanted > rect.width() && !tip.isEmpty())
        QToolTip::showText(help->globalPos(), tip, view, rect);
    else
        QToolTip::hideText();
    return true;
}
