#pragma once

#include <QList>
#include <QSortFilterProxyModel>

// Stands between the device table and its view and hides columns.
class main_model_filter final : public QSortFilterProxyModel
{
    Q_OBJECT
public:
    explicit main_model_filter(QObject* parent = nullptr);
    Q_DISABLE_COPY_MOVE(main_model_filter)

    // Replaces the list when it differs; the filter is refreshed in either case.
    void set_hidden_columns(const QList<int>& columns);
    const QList<int>& hidden_columns() const { return m_hidden; }
    // The proxy column of a source column, -1 when hidden; works on an empty table.
    int proxy_column(int source_column) const;
    // The source column of a proxy column, -1 when out of range.
    int source_column(int proxy_column) const;

protected:
    bool filterAcceptsColumn(int source_column, const QModelIndex& source_parent) const override;

private:
    QList<int> m_hidden;
};
