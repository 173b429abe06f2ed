#include "ui/pack_content_model.h"

#include "ui/resource_init.h"

pack_content_model::pack_content_model(QObject* parent)
    : QAbstractListModel(parent)
{
    init_ui_resources();
    m_icon = QIcon(QStringLiteral(":icn/pack"));
}

int pack_content_model::rowCount(const QModelIndex& parent) const
{
    return parent.isValid() ? 0 : m_list.size();
}

QVariant pack_content_model::data(const QModelIndex& index, int role) const
{
    if (!index.isValid() || index.row() >= m_list.size() || index.column() != 0)
        return {};
    const model_structures::pack_target& t = m_list.at(index.row());
    switch (role) {
    case Qt::DisplayRole:
        return t.sdk_type.isEmpty() ? t.serial.toUpper() : t.serial.toUpper() + QStringLiteral(" [%1]").arg(t.sdk_type);
    case Qt::DecorationRole:
        return m_icon;
    case Qt::CheckStateRole:
        return t.checked ? Qt::Checked : Qt::Unchecked;
    case serial_role:
        return t.serial;
    default:
        return {};
    }
}

bool pack_content_model::setData(const QModelIndex& index, const QVariant& value, int role)
{
    if (role != Qt::CheckStateRole || !index.isValid() || index.row() >= m_list.size())
        return false;
    // A view sends Qt::CheckState (2 or 0), a script a bool: both read as a bool.
    m_list[index.row()].checked = value.toBool();
    emit dataChanged(index, index, { Qt::CheckStateRole });
    return true;
}

Qt::ItemFlags pack_content_model::flags(const QModelIndex& index) const
{
    if (!index.isValid())
        return Qt::NoItemFlags;
    return Qt::ItemIsSelectable | Qt::ItemIsEnabled | Qt::ItemIsUserCheckable;
}

void pack_content_model::set_list(const model_structures::device_list& list)
{
    beginResetModel();
    m_list = list;
    endResetModel();
}
