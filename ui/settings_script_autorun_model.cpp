#include "ui/settings_script_autorun_model.h"

#include <algorithm>

settings_script_autorun_model::settings_script_autorun_model(QObject* parent)
    : QAbstractTableModel(parent)
{
}

void settings_script_autorun_model::set_entries(const QList<scripting::autorun_entry>& entries)
{
    beginResetModel();
    m_entries = entries;
    endResetModel();
}

void settings_script_autorun_model::set_enabled(int row, bool enabled)
{
    if (row < 0 || row >= m_entries.size())
        return;
    m_entries[row].enabled = enabled;
    emit dataChanged(index(row, 0), index(row, 2));
}

void settings_script_autorun_model::remove_rows(QList<int> rows)
{
    std::sort(rows.begin(), rows.end(), std::greater<int>());
    rows.erase(std::unique(rows.begin(), rows.end()), rows.end());
    for (int row : rows) {
        if (row < 0 || row >= m_entries.size())
            continue;
        beginRemoveRows({}, row, row);
        m_entries.removeAt(row);
        endRemoveRows();
    }
}

bool settings_script_autorun_model::move_row(int from, int to)
{
    if (from < 0 || to < 0 || from >= m_entries.size() || to >= m_entries.size() || from == to)
        return false;
    beginMoveRows({}, from, from, {}, to > from ? to + 1 : to);
    m_entries.move(from, to);
    endMoveRows();
    return true;
}

void settings_script_autorun_model::add(const scripting::autorun_entry& entry)
{
    beginInsertRows({}, m_entries.size(), m_entries.size());
    m_entries.append(entry);
    endInsertRows();
}

int settings_script_autorun_model::rowCount(const QModelIndex& parent) const
{
    return parent.isValid() ? 0 : m_entries.size();
}

int settings_script_autorun_model::columnCount(const QModelIndex& parent) const
{
    return parent.isValid() ? 0 : 3;
}

QVariant settings_script_autorun_model::data(const QModelIndex& index, int role) const
{
    if (!index.isValid() || index.row() >= m_entries.size())
        return {};
    const scripting::autorun_entry& e = m_entries[index.row()];
    if (role == Qt::DisplayRole) {
        switch (index.column()) {
        case 0:
            return e.file;
        case 1:
            return e.enabled ? tr("Yes") : tr("No");
        default:
            return e.type ? tr("Lua") : tr("OVScript");
        }
    }
    // The whole path, for a column too narrow to show it.
    if (role == Qt::ToolTipRole && index.column() == 0)
        return e.file;
    if (role == Qt::UserRole) {
        switch (index.column()) {
        case 0:
            return e.file;
        case 1:
            return e.enabled;
        default:
            return e.type;
        }
    }
    return {};
}

QVariant settings_script_autorun_model::headerData(int section, Qt::Orientation orientation, int role) const
{
    if (orientation != Qt::Horizontal || role != Qt::DisplayRole)
        return {};
    switch (section) {
    case 0:
        return tr("Script");
    case 1:
        return tr("Enabled");
    default:
        return tr("Type");
    }
}
