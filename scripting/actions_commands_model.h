#pragma once

#include "plugins/plugin_command.h"

#include <QAbstractListModel>
#include <QList>

namespace scripting
{

// The commands a quick action can run, as the action editor lists them: the name shown,
// the description as its tooltip, and the command's text in the value role.
class actions_commands_model final : public QAbstractListModel
{
    Q_OBJECT
public:
    enum roles { value_role = Qt::UserRole };

    explicit actions_commands_model(QObject* parent = nullptr);

    // Lists these commands now, in the order given.
    void set_commands(const QList<plugins::description_row>& commands);
    // A row labelled "/" heads a group of the command tree and can't be taken away.
    bool removable(int row) const;

    int rowCount(const QModelIndex& parent = {}) const override;
    QVariant data(const QModelIndex& index, int role = Qt::DisplayRole) const override;

private:
    QList<plugins::description_row> m_commands;
};

} // namespace scripting
