#pragma once

#include "ui/model_structures.h"

#include <QAbstractListModel>
#include <QIcon>
#include <QList>
#include <QString>

// The firmware pack files on offer, one row each, with the targets core found in them.
class pack_list_model final : public QAbstractListModel
{
    Q_OBJECT
public:
    struct record {
        bool ok = false; // no " ⚠" beside the name when set
        QString path;
        model_structures::device_list targets;
    };
    static constexpr int path_role = Qt::UserRole;

    explicit pack_list_model(QObject* parent = nullptr);
    Q_DISABLE_COPY_MOVE(pack_list_model)

    int rowCount(const QModelIndex& parent = {}) const override;
    // Display: base name (+ " ⚠" unless ok); decoration: the pack icon; tool tip and path_role: the path.
    QVariant data(const QModelIndex& index, int role) const override;

    void set_records(const QList<record>& records);
    const QList<record>& records() const { return m_records; }
    // The record of a row; an empty one past the end.
    record at(int row) const { return m_records.value(row); }

private:
    QList<record> m_records;
    QIcon m_icon;
};
