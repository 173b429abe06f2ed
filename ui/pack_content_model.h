#pragma once

#include "ui/model_structures.h"

#include <QAbstractListModel>
#include <QIcon>

// The targets of one firmware pack, each with the check mark that includes it.
class pack_content_model final : public QAbstractListModel
{
    Q_OBJECT
public:
    static constexpr int serial_role = Qt::UserRole;

    explicit pack_content_model(QObject* parent = nullptr);
    Q_DISABLE_COPY_MOVE(pack_content_model)

    int rowCount(const QModelIndex& parent = {}) const override;
    // Display: serial in upper case (+ " [sdk_type]"); check state; serial_role: the serial as stored.
    QVariant data(const QModelIndex& index, int role) const override;
    // Takes the check state only.
    bool setData(const QModelIndex& index, const QVariant& value, int role) override;
    Qt::ItemFlags flags(const QModelIndex& index) const override;

    void set_list(const model_structures::device_list& list);
    // With the check marks as the user left them.
    const model_structures::device_list& list() const { return m_list; }

private:
    model_structures::device_list m_list;
    QIcon m_icon;
};
