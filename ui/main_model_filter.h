#pragma once

#include <QList>
#include <QSortFilterProxyModel>

// Stands between the device table and its view: hides columns, sorts by a clicked header
// and, on request, shows only the rows that failed or run. Check states and idents stay
// the model's, so neither sorting nor filtering changes the selection.
class main_model_filter final : public QSortFilterProxyModel
{
    Q_OBJECT
public:
    // Which rows show, by the colour of their status cell.
    enum row_filter { all_rows = 0, failed_rows = 1, running_rows = 2 };

    explicit main_model_filter(QObject* parent = nullptr);
    Q_DISABLE_COPY_MOVE(main_model_filter)

    // Replaces the list when it differs; the filter is refreshed in either case.
    void set_hidden_columns(const QList<int>& columns);
    const QList<int>& hidden_columns() const { return m_hidden; }
    // The proxy column of a source column, -1 when hidden; works on an empty table.
    int proxy_column(int source_column) const;
    // The source column of a proxy column, -1 when out of range.
    int source_column(int proxy_column) const;

    void set_row_filter(row_filter filter);
    row_filter current_row_filter() const { return m_rows; }

protected:
    bool filterAcceptsColumn(int source_column, const QModelIndex& source_parent) const override;
    bool filterAcceptsRow(int source_row, const QModelIndex& source_parent) const override;
    // The status column sorts failures, then work in progress, then successes together,
    // each by its text; the others by their text as people read it.
    bool lessThan(const QModelIndex& left, const QModelIndex& right) const override;

private:
    QList<int> m_hidden;
    row_filter m_rows = all_rows;
};
