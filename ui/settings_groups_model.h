#pragma once

#include <QAbstractItemModel>

// The pages of the settings window as a tree of one column: the title, its icon, and the
// number of the page in the role page_role.
class settings_groups_model final : public QAbstractItemModel
{
    Q_OBJECT
public:
    enum roles { page_role = Qt::UserRole };

    explicit settings_groups_model(QObject* parent = nullptr);

    // Takes the titles of the current language.
    void retranslate();

    QModelIndex index(int row, int column, const QModelIndex& parent = {}) const override;
    QModelIndex parent(const QModelIndex& child) const override;
    int rowCount(const QModelIndex& parent = {}) const override;
    int columnCount(const QModelIndex& parent = {}) const override;
    QVariant data(const QModelIndex& index, int role = Qt::DisplayRole) const override;
};
