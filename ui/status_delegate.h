#pragma once

#include <QStyledItemDelegate>

// Paints a status cell whose text ends in a percentage ("Uploading: 42%") as a
// progress bar carrying that text; other cells as usual, with their background.
// Operators watch a hundred rows: a bar reads faster than a number.
class status_delegate final : public QStyledItemDelegate
{
    Q_OBJECT
public:
    explicit status_delegate(QObject* parent = nullptr);
    Q_DISABLE_COPY_MOVE(status_delegate)

    // The percentage (0..100) that a text ends in; -1 when it ends in none.
    static int progress_of(const QString& text);
    // The column of the model under any proxies, so the delegate finds the status column
    // however the view hides or moves columns.
    static int source_column(const QModelIndex& index);

    void paint(QPainter* painter, const QStyleOptionViewItem& option, const QModelIndex& index) const override;
};
