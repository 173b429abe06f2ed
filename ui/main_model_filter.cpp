#include "ui/main_model_filter.h"

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
