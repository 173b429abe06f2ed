#pragma once

#include <QAbstractListModel>
#include <QDialog>
#include <QStringList>

class QListView;

// The pictures among the program's own resources, by path (":/...").
class resource_list_model final : public QAbstractListModel
{
    Q_OBJECT
public:
    explicit resource_list_model(QObject* parent = nullptr);

    int rowCount(const QModelIndex& parent = {}) const override;
    QVariant data(const QModelIndex& index, int role = Qt::DisplayRole) const override;

private:
    QStringList m_paths;
};

// Picks one of the program's pictures.
class resource_viewer final : public QDialog
{
    Q_OBJECT
public:
    explicit resource_viewer(QWidget* parent = nullptr);
    Q_DISABLE_COPY_MOVE(resource_viewer)

    // The chosen picture's path; empty when none is selected.
    QString selected() const;

protected:
    void changeEvent(QEvent* event) override;

private:
    QListView* listView = nullptr;
};
