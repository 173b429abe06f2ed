#include "ui/pack_list_model.h"

#include <QFileInfo>

#include "ui/resource_init.h"

pack_list_model::pack_list_model(QObject* parent)
    : QAbstractListModel(parent)
{
    init_ui_resources();
    m_icon = QIcon(QStringLiteral(":icn/pack"));
}

int pack_list_model::rowCount(const QModelIndex& parent) const
{
    return parent.isValid() ? 0 : m_records.size();
}

QVariant pack_list_model::data(const QModelIndex& index, int role) const
{
    if (!index.isValid() || index.row() >= m_records.size() || index.column() != 0)
        return {};
    const record& r = m_records.at(index.row());
    switch (role) {
    case Qt::DisplayRole: {
        const QString name = QFileInfo(r.path).baseName();
        return r.ok ? name : name + QStringLiteral(" ⚠");
    }
    case Qt::DecorationRole:
        return m_icon;
    case Qt::ToolTipRole:
    case path_role:
        return r.path;
    default:
        return {};
    }
}

void pack_list_model::set_records(const QList<record>& records)
{
    beginResetModel();
    m_records = records;
    endResetModel();
}
