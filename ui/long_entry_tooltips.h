#pragma once

#include <QObject>

class QAbstractItemView;

// An event filter for item views: the tool tip of an item shows only when its text doesn't
// fit the item, so short entries don't repeat themselves.
class long_entry_tooltips final : public QObject
{
    Q_OBJECT
public:
    explicit long_entry_tooltips(QObject* parent = nullptr);

    // Installs the filter on a view's viewport, where its tool tip events arrive.
    void watch(QAbstractItemView* view);

    // True for every tool tip event on an item, which it answers itself.
    bool eventFilter(QObject* watched, QEvent* event) override;
};
