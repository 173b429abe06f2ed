#include "scripting/actions_commands_model.h"

namespace scripting
{

actions_commands_model::actions_commands_model(QObject* parent)
    : QAbstractListModel(parent)
{
}

void actions_commands_model::set_commands(const QList<plugins::description_row>& commands)
{
    beginResetModel();
    m_commands = commands;
    endResetModel();
}

bool actions_commands_model::removable(int row) const
{
    return row >= 0 && row < m_commands.size() && m_commands[row].name != QLatin1String("/");
}

int actions_commands_model::rowCount(const QModelIndex& parent) const
{
    return parent.isValid() ? 0 : m_commands.size();
}

QVariant actions_commands_model::data(const QModelIndex& index, int role) const
{
    if (!index.isValid() || index.row() >= m_commands.size())
        return {};
    const plugins::description_row& row = m_commands[index.row()];
    switch (role) {
    case Qt::DisplayRole:
        return row.name;
    case Qt::ToolTipRole:
        return row.text;
    case value_role:
        return row.id.text();
    default:
        return {};
    }
}

} // namespace scripting
