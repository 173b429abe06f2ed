#pragma once

#include "scripting/actions_commands_model.h"
#include "scripting/actions_layout_model.h"
#include "scripting/quick_action.h"

#include <QMap>
#include <QObject>
#include <QStringList>

class QSettings;

namespace scripting
{

// The quick actions of the script toolbar and their order, kept in the settings: the
// layout under QuickActions/layout as a JSON array of identifiers without braces (an empty
// one is a separator), each action under QuickActions/Actions as a JSON object.
class actions_db final : public QObject
{
    Q_OBJECT
public:
    explicit actions_db(QObject* parent = nullptr);
    Q_DISABLE_COPY_MOVE(actions_db)

    // Actions first, then the layout, which drops identifiers of actions that aren't there.
    void load(QSettings& settings);
    // Rewrites the group of actions from scratch, then the layout.
    void save(QSettings& settings) const;

    // Each change below emits actions_altered. Positions are places in the layout; one
    // past its end appends.
    // Adds the action under a fresh identifier; that identifier, with braces.
    QString add_action(const quick_action& action, int position);
    // False when there is no such action.
    bool edit_action(const QString& identifier, const quick_action& action);
    // Removes the layout entry and, for an action, the action itself.
    bool remove_action(int position);
    void add_separator(int position);
    bool move(int from, int to);

    // The record; empty for an unknown identifier.
    quick_action action(const QString& identifier) const;
    bool contains(const QString& identifier) const { return m_actions.contains(identifier); }
    const QMap<QString, quick_action>& actions() const { return m_actions; }
    // Identifiers with braces in toolbar order; an empty one is a separator.
    const QStringList& layout() const { return m_layout; }
    // The layout as the settings window lists it.
    actions_layout_model& layout_model() { return m_layout_model; }
    // The commands an action can run, filled by whoever knows the command table.
    actions_commands_model& commands_model() { return m_commands_model; }

signals:
    void actions_altered();

private:
    void altered();

    QMap<QString, quick_action> m_actions; // by identifier with braces
    QStringList m_layout;
    actions_layout_model m_layout_model;
    actions_commands_model m_commands_model;
};

} // namespace scripting
