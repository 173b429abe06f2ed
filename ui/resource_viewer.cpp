#include "ui/resource_viewer.h"

#include <QDialogButtonBox>
#include <QDirIterator>
#include <QEvent>
#include <QIcon>
#include <QItemSelectionModel>
#include <QListView>
#include <QVBoxLayout>

resource_list_model::resource_list_model(QObject* parent)
    : QAbstractListModel(parent)
{
    static const QStringList pictures { QStringLiteral("*.svg"), QStringLiteral("*.png"), QStringLiteral("*.ico") };
    // Aliases hide the suffix: take every file below the icon prefixes, the rest by suffix.
    for (const QString& root : { QStringLiteral(":/icn"), QStringLiteral(":/svg") }) {
        QDirIterator it(root, QDir::Files, QDirIterator::Subdirectories);
        while (it.hasNext())
            m_paths << it.next();
    }
    QDirIterator others(QStringLiteral(":/arts"), pictures, QDir::Files, QDirIterator::Subdirectories);
    while (others.hasNext())
        m_paths << others.next();
    m_paths.sort();
}

int resource_list_model::rowCount(const QModelIndex& parent) const
{
    return parent.isValid() ? 0 : m_paths.size();
}

QVariant resource_list_model::data(const QModelIndex& index, int role) const
{
    if (!index.isValid() || index.row() >= m_paths.size())
        return {};
    const QString& path = m_paths[index.row()];
    switch (role) {
    case Qt::DisplayRole:
    case Qt::ToolTipRole:
    case Qt::UserRole:
        return path;
    case Qt::DecorationRole:
        return QIcon(path);
    default:
        return {};
    }
}

resource_viewer::resource_viewer(QWidget* parent)
    : QDialog(parent)
{
    setObjectName(QStringLiteral("resource_viewer"));
    listView = new QListView(this);
    listView->setObjectName(QStringLiteral("listView"));
    listView->setViewMode(QListView::IconMode);
    listView->setIconSize({ 32, 32 });
    listView->setGridSize({ 96, 64 });
    listView->setResizeMode(QListView::Adjust);
    listView->setModel(new resource_list_model(listView));
    connect(listView, &QListView::doubleClicked, this, &QDialog::accept);

    auto* buttons = new QDialogButtonBox(QDialogButtonBox::Ok | QDialogButtonBox::Cancel, this);
    connect(buttons, &QDialogButtonBox::accepted, this, &QDialog::accept);
    connect(buttons, &QDialogButtonBox::rejected, this, &QDialog::reject);
    auto* layout = new QVBoxLayout(this);
    layout->addWidget(listView);
    layout->addWidget(buttons);
    setWindowTitle(tr("Select resource"));
    resize(480, 360);
}

QString resource_viewer::selected() const
{
    // The current index alone comes with the focus, on the first row: no choice of the user's.
    const QModelIndexList chosen = listView->selectionModel()->selectedIndexes();
    return chosen.isEmpty() ? QString() : chosen.first().data(Qt::UserRole).toString();
}

void resource_viewer::changeEvent(QEvent* event)
{
    if (event->type() == QEvent::LanguageChange)
        setWindowTitle(tr("Select resource"));
    QDialog::changeEvent(event);
}
