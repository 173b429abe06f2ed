#include "scripting/actions_layout_model.h"

#include <QCoreApplication>

namespace scripting
{

actions_layout_model::actions_layout_model(title_of titles, QObject* parent)
    : QAbstractListModel(parent)
    , m_titles(std::move(titles))
{
}

void actions_layout_model::set_layout(const QStringList& layout)
{
    beginResetModel();
    m_layout = layout;
    endResetModel();
}

int actions_layout_model::rowCount(const QModelIndex& parent) const
{
    return parent.isValid() ? 0 : m_layout.size() + 1;
}

QVariant actions_layout_model::data(const QModelIndex& index, int role) const
{
    if (!index.isValid() || index.row() > m_layout.size())
        return {};
    const QString identifier = m_layout.value(index.row());
    if (role == identifier_role)
        return identifier;
    if (role != Qt::DisplayRole)
        return {};
    // The texts belong to the store whose layout this is.
    if (is_end(index.row()))
        return QCoreApplication::translate("scripting::actions_db", "-- end --");
    return identifier.isEmpty() ? QCoreApplication::translate("scripting::actions_db", "-- separator --")
                                : m_titles(identifier);
}

Qt::ItemFlags actions_layout_model::flags(const QModelIndex& index) const
{
    return index.isValid() ? Qt::ItemIsEnabled | Qt::ItemIsSelectable : Qt::NoItemFlags;
}

} // namespace scripting
