#include "ui/problems.h"

problems::problems(QObject* parent)
    : QAbstractTableModel(parent)
{
}

int problems::rowCount(const QModelIndex& parent) const
{
    return parent.isValid() ? 0 : m_records.size();
}

int problems::columnCount(const QModelIndex& parent) const
{
    return parent.isValid() ? 0 : column_count;
}

QVariant problems::data(const QModelIndex& index, int role) const
{
    if (!index.isValid() || index.row() >= m_records.size())
        return {};
    const record& r = m_records.at(index.row());
    if (role == sequence_role)
        return r.sequence;
    // Descriptions run long: the tool tip shows the whole text of any cell.
    if (role != Qt::DisplayRole && role != Qt::ToolTipRole)
        return {};
    switch (index.column()) {
    case 0:
        return r.when;
    case 1:
        return r.task;
    case 2:
        return r.endpoint;
    case 3:
        return r.serial;
    case 4:
        return r.description;
    default:
        return {};
    }
}

QVariant problems::headerData(int section, Qt::Orientation orientation, int role) const
{
    if (orientation != Qt::Horizontal || role != Qt::DisplayRole)
        return {};
    switch (section) {
    case 0:
        return tr("Time");
    case 1:
        return tr("Task");
    case 2:
        return tr("Endpoint");
    case 3:
        return tr("Serial");
    case 4:
        return tr("Description");
    default:
        return {};
    }
}

void problems::append(const QString& when, const QString& task, const QString& endpoint, const QString& serial,
    const QString& description)
{
    const int row = m_records.size();
    beginInsertRows({}, row, row);
    m_records.append({ quint32(row + 1), when, task, endpoint, serial, description });
    endInsertRows();
}
