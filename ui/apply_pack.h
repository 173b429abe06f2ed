#pragma once

#include "ui/model_structures.h"
#include "ui/pack_list_model.h"

#include <QDialog>
#include <QMap>

class QDialogButtonBox;
class QLabel;
class QListView;
class QModelIndex;
class pack_content_model;

// Chooses a firmware pack and the devices it is applied to. Check marks survive switching
// between packs: each pack's list is kept by path while another one is shown.
class apply_pack final : public QDialog
{
    Q_OBJECT
public:
    explicit apply_pack(QWidget* parent = nullptr);
    Q_DISABLE_COPY_MOVE(apply_pack)

    // Offers the packs; the first one is chosen and its targets shown.
    void set_packs(const QList<pack_list_model::record>& packs);
    // The pack in use, for core to load again on acceptance; empty when there is none.
    QString current_path() const { return m_current; }
    // Its targets with the check marks as they stand.
    model_structures::device_list current_targets() const;

    pack_list_model* packs() const { return m_packs; }
    pack_content_model* content() const { return m_content; }

signals:
    // The checked targets of the pack in use.
    void pack_accepted(model_structures::device_list targets);

public slots:
    void on_l_packs_activated(const QModelIndex& index);
    void on_buttonBox_accepted();

protected:
    void changeEvent(QEvent* event) override;

private:
    void retranslate();
    void show_pack(int row);
    // Puts the shown list, with its marks, back in the map.
    void store_current();

    QLabel* l_packs_head = nullptr;
    QListView* l_packs = nullptr;
    QLabel* l_devices_head = nullptr;
    QListView* l_devices = nullptr;
    QDialogButtonBox* buttonBox = nullptr;
    pack_list_model* m_packs = nullptr;
    pack_content_model* m_content = nullptr;
    QMap<QString, model_structures::device_list> m_lists; // by pack path
    QString m_current;
};
