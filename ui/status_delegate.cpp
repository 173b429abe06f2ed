#include "ui/status_delegate.h"

#include <QAbstractProxyModel>
#include <QApplication>
#include <QPainter>
#include <QRegularExpression>
#include <QStyleOptionProgressBar>

#include "ui/main_model.h"

status_delegate::status_delegate(QObject* parent)
    : QStyledItemDelegate(parent)
{
}

int status_delegate::progress_of(const QString& text)
{
    // Any language: the translated status keeps the number and the sign at its end.
    static const QRegularExpression percent(QStringLiteral("(?<!\\d)(\\d{1,3})\\s*%\\s*$"));
    const QRegularExpressionMatch match = percent.match(text);
    if (!match.hasMatch())
        return -1;
    const int value = match.capturedRef(1).toInt();
    return value <= 100 ? value : -1;
}

int status_delegate::source_column(const QModelIndex& index)
{
    QModelIndex source = index;
    while (const auto* proxy = qobject_cast<const QAbstractProxyModel*>(source.model()))
        source = proxy->mapToSource(source);
    return source.column();
}

void status_delegate::paint(QPainter* painter, const QStyleOptionViewItem& option, const QModelIndex& index) const
{
    const QString text = index.data(Qt::DisplayRole).toString();
    const int progress = source_column(index) == main_model::col_status ? progress_of(text) : -1;
    if (progress < 0) {
        QStyledItemDelegate::paint(painter, option, index);
        return;
    }

    QStyle* style = option.widget ? option.widget->style() : QApplication::style();
    // The item panel first, so a selected row still reads as selected around the bar.
    QStyleOptionViewItem panel = option;
    initStyleOption(&panel, index);
    style->drawPrimitive(QStyle::PE_PanelItemViewItem, &panel, painter, option.widget);

    QStyleOptionProgressBar bar;
    if (option.widget)
        bar.initFrom(option.widget);
    bar.rect = option.rect.adjusted(2, 2, -2, -2);
    bar.state = option.state | QStyle::State_Horizontal;
    bar.direction = option.direction;
    bar.fontMetrics = option.fontMetrics;
    bar.palette = option.palette;
    bar.minimum = 0;
    bar.maximum = 100;
    bar.progress = progress;
    bar.text = text;
    bar.textVisible = true;
    bar.textAlignment = Qt::AlignCenter;
    style->drawControl(QStyle::CE_ProgressBar, &bar, painter, option.widget);
}
