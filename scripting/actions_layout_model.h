#pragma once

#include <QAbstractListModel>
#include <functional>

namespace scripting
{

// The toolbar's layout as a list: each entry's title or "-- separator --", then a last row
// "-- end --" that marks where new entries go and is neither moved nor removed.
class actions_layout_model final : public QAbstractListModel
{
    Q_OBJECT
public:
    // The identifier role holds the entry's identifier: empty for a separator and the end row.
    enum roles { identifier_role = Qt::UserRole };
    // The title of an identifier.
    using title_of = std::function<QString(const QString& identifier)>;

    explicit actions_layout_model(title_of titles, QObject* parent = nullptr);

    // Shows this layout now.
    void set_layout(const QStringList& layout);
    // Whether a row is the end row.
    bool is_end(int row) const { return row == m_layout.size(); }

    int rowCount(const QModelIndex& parent = {}) const override;
    QVariant data(const QModelIndex& index, int role = Qt::DisplayRole) const override;
    Qt::ItemFlags flags(const QModelIndex& index) const override;

private:
    title_of m_titles;
    QStringList m_layout;
};

} // namespace scripting
