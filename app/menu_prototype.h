#pragma once

#include "scripting/commands.h"

#include <QMap>
#include <QObject>
#include <QVariantList>

class QAction;
class QMenu;
class QSettings;

namespace dynmenu
{

// A menu built from data: each entry is a command number with its arguments, so that a
// click reaches the core as the same command a script would name.
class menu_prototype : public QObject
{
    Q_OBJECT
public:
    enum kind { item = 0, separator = 1 };
    struct entry {
        kind type = item;
        scripting::commands command = scripting::commands::null_command;
        QVariantList args;
        int parent = -1; // ident of the submenu holding it; -1 for the top
        QAction* action = nullptr;
        QMenu* menu = nullptr; // set for a submenu
    };

    // Entries go into target, which the caller owns. Texts follow the application's language.
    explicit menu_prototype(QMenu* target, QObject* parent = nullptr);
    Q_DISABLE_COPY_MOVE(menu_prototype)

    // Creates the entries, then sets their texts.
    virtual void build() = 0;
    virtual void retranslate() = 0;
    virtual void load(QSettings& settings);
    virtual void save(QSettings& settings) const;

    const QMap<int, entry>& entries() const { return m_entries; }
    // The action of an entry or submenu; null for an unknown ident.
    QAction* action(int ident) const;

signals:
    void menu_executed(scripting::commands cmd, const QVariantList& args, bool checked);

protected:
    bool eventFilter(QObject* watched, QEvent* event) override;
    // Adds an entry under parent (-1: the top) and returns its action.
    QAction* add_item(int ident, scripting::commands cmd, const QVariantList& args = {}, int parent = -1);
    QAction* add_separator(int ident, int parent = -1);
    QMenu* add_submenu(int ident, int parent = -1);
    void set_text(int ident, const QString& text);
    QMenu* menu_of(int parent) const;

    QMenu* m_target;
    QMap<int, entry> m_entries;

private slots:
    void menu_triggered();
};

} // namespace dynmenu
