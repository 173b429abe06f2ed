#pragma once

#include "scripting/autorun.h"

#include <QAbstractTableModel>

// The autorun list as the settings window edits it: script, enabled, type. The user role
// gives the file and the two flags as bool.
class settings_script_autorun_model final : public QAbstractTableModel
{
    Q_OBJECT
public:
    explicit settings_script_autorun_model(QObject* parent = nullptr);

    void set_entries(const QList<scripting::autorun_entry>& entries);
    const QList<scripting::autorun_entry>& entries() const { return m_entries; }

    void set_enabled(int row, bool enabled);
    // Removes these rows, in any order.
    void remove_rows(QList<int> rows);
    // False when either row is out of range.
    bool move_row(int from, int to);
    void add(const scripting::autorun_entry& entry);

    int rowCount(const QModelIndex& parent = {}) const override;
    int columnCount(const QModelIndex& parent = {}) const override;
    QVariant data(const QModelIndex& index, int role = Qt::DisplayRole) const override;
    QVariant headerData(int section, Qt::Orientation orientation, int role = Qt::DisplayRole) const override;

private:
    QList<scripting::autorun_entry> m_entries;
};
