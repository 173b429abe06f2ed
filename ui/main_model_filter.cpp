#include "ui/main_model_filter.h"

#include "ui/main_model.h"

namespace {

// Failed, in progress, succeeded; a cell of no state comes last.
int status_rank(const QVariant& background)
{
    const QColor colour = background.value<QColor>();
    const int modes_in_order[] = { 0, 2, 1 };
    for (int rank = 0; rank < 3; ++rank) {
        if (colour.isValid() && colour == main_model::status_color(modes_in_order[rank]))
            return rank;
    }
    return 3;
}

// Texts with their runs of digits compared by value: 127.0.0.9 before 127.0.0.10.
int natural_compare(const QString& a, const QString& b)
{
    int i = 0, j = 0;
    while (i < a.size() && j < b.size()) {
        if (a.at(i).isDigit() && b.at(j).isDigit()) {
            // Leading zeros don't count; then the longer run is the larger number.
            while (i < a.size() && a.at(i) == QLatin1Char('0'))
                ++i;
            while (j < b.size() && b.at(j) == QLatin1Char('0'))
                ++j;
            int end_a = i, end_b = j;
            while (end_a < a.size() && a.at(end_a).isDigit())
                ++end_a;
            while (end_b < b.size() && b.at(end_b).isDigit())
                ++end_b;
            if (end_a - i != end_b - j)
                return (end_a - i) - (end_b - j);
            if (const int c = a.midRef(i, end_a - i).compare(b.midRef(j, end_b - j)))
                return c;
            i = end_a;
            j = end_b;
            continue;
        }
        const QChar ca = a.at(i).toCaseFolded(), cb = b.at(j).toCaseFolded();
        if (ca != cb)
            return ca < cb ? -1 : 1;
        ++i;
        ++j;
    }
    return (a.size() - i) - (b.size() - j);
}

} // namespace

main_model_filter::main_model_filter(QObject* parent)
    : QSortFilterProxyModel(parent)
{
}

void main_model_filter::set_hidden_columns(const QList<int>& columns)
{
    if (columns != m_hidden)
        m_hidden = columns;
    invalidateFilter();
}

int main_model_filter::proxy_column(int source_column) const
{
    const int count = sourceModel() ? sourceModel()->columnCount() : 0;
    if (source_column < 0 || source_column >= count || m_hidden.contains(source_column))
        return -1;
    int shown_before = 0;
    for (int c = 0; c < source_column; ++c) {
        if (!m_hidden.contains(c))
            ++shown_before;
    }
    return shown_before;
}

int main_model_filter::source_column(int proxy_column) const
{
    const int count = sourceModel() ? sourceModel()->columnCount() : 0;
    int shown = -1;
    for (int c = 0; c < count; ++c) {
        if (!m_hidden.contains(c) && ++shown == proxy_column)
            return c;
    }
    return -1;
}

bool main_model_filter::filterAcceptsColumn(int source_column, const QModelIndex& source_parent) const
{
    Q_UNUSED(source_parent)
    return !m_hidden.contains(source_column);
}

void main_model_filter::set_row_filter(row_filter filter)
{
    m_rows = filter;
    invalidateFilter();
}

bool main_model_filter::filterAcceptsRow(int source_row, const QModelIndex& source_parent) const
{
    if (m_rows == all_rows)
        return true;
    const QModelIndex status = sourceModel()->index(source_row, main_model::col_status, source_parent);
    const QColor wanted = main_model::status_color(m_rows == failed_rows ? 0 : 2);
    return status.data(Qt::BackgroundRole).value<QColor>() == wanted;
}

bool main_model_filter::lessThan(const QModelIndex& left, const QModelIndex& right) const
{
    if (left.column() == main_model::col_status) {
        const int l = status_rank(left.data(Qt::BackgroundRole));
        const int r = status_rank(right.data(Qt::BackgroundRole));
        if (l != r)
            return l < r;
    }
    return natural_compare(left.data().toString(), right.data().toString()) < 0;
}
