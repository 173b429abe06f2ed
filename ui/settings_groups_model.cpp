#include "ui/settings_groups_model.h"

#include <QCoreApplication>
#include <QIcon>

namespace
{

struct group {
    const char* title;
    const char* icon;
    int parent; // index in groups, -1 at the top
};

// By page number: the order of the window's stacked pages.
const group groups[] = {
    { QT_TRANSLATE_NOOP("settings_groups_model", "General"), ":icn/main", -1 },
    { QT_TRANSLATE_NOOP("settings_groups_model", "Scripting"), ":svg/load", -1 },
    { QT_TRANSLATE_NOOP("settings_groups_model", "Autorun"), ":svg/load", 1 },
    { QT_TRANSLATE_NOOP("settings_groups_model", "Behavior"), ":svg/edit_file", -1 },
    { QT_TRANSLATE_NOOP("settings_groups_model", "Help"), ":svg/question", -1 },
};
constexpr int group_count = int(sizeof(groups) / sizeof(groups[0]));

// The n-th group under parent, or -1.
int nth_child(int parent, int n)
{
    for (int i = 0; i < group_count; ++i) {
        if (groups[i].parent == parent && n-- == 0)
            return i;
    }
    return -1;
}

int row_of(int id)
{
    int row = 0;
    for (int i = 0; i < id; ++i)
        row += groups[i].parent == groups[id].parent ? 1 : 0;
    return row;
}

} // namespace

settings_groups_model::settings_groups_model(QObject* parent)
    : QAbstractItemModel(parent)
{
}

void settings_groups_model::retranslate()
{
    beginResetModel();
    endResetModel();
}

QModelIndex settings_groups_model::index(int row, int column, const QModelIndex& parent) const
{
    if (column != 0)
        return {};
    const int id = nth_child(parent.isValid() ? int(parent.internalId()) : -1, row);
    return id < 0 ? QModelIndex() : createIndex(row, 0, quintptr(id));
}

QModelIndex settings_groups_model::parent(const QModelIndex& child) const
{
    if (!child.isValid())
        return {};
    const int p = groups[child.internalId()].parent;
    return p < 0 ? QModelIndex() : createIndex(row_of(p), 0, quintptr(p));
}

int settings_groups_model::rowCount(const QModelIndex& parent) const
{
    if (parent.column() > 0)
        return 0;
    const int p = parent.isValid() ? int(parent.internalId()) : -1;
    int n = 0;
    for (const group& g : groups)
        n += g.parent == p ? 1 : 0;
    return n;
}

int settings_groups_model::columnCount(const QModelIndex&) const
{
    return 1;
}

QVariant settings_groups_model::data(const QModelIndex& index, int role) const
{
    if (!index.isValid())
        return {};
    const group& g = groups[index.internalId()];
    switch (role) {
    case Qt::DisplayRole:
        return QCoreApplication::translate("settings_groups_model", g.title);
    case Qt::DecorationRole:
        return QIcon(QString::fromLatin1(g.icon));
    case page_role:
        return int(index.internalId());
    default:
        return {};
    }
}
