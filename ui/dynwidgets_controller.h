#pragma once

#include "scripting/event_listener.h"

#include <QList>
#include <QMap>
#include <QObject>
#include <QPointer>

#include <optional>

class QAction;
class QLabel;
class QMainWindow;
class QToolBar;
class QWidget;

namespace dynwidgets
{

// Labels, buttons, number and text boxes that scripts put on toolbars of the main window,
// one toolbar per group name. A change by the user raises "widget_changed".
class controller final : public QObject, public event::listener
{
    Q_OBJECT
public:
    enum kind { label = 0, button = 1, numeric = 2, separator = 3, text = 4 };
    struct widget {
        QString ident;
        QToolBar* toolbar = nullptr;
        kind type = label;
        QWidget* widget = nullptr; // null for a separator
        QLabel* caption = nullptr; // before a number or text box
        QMap<QString, QString> properties;
        QList<QAction*> actions; // what the widget occupies on its toolbar, caption first
    };

    // The toolbars go into host, which owns them.
    explicit controller(QMainWindow* host, QObject* parent = nullptr);
    ~controller() override;
    Q_DISABLE_COPY_MOVE(controller)

    // params must hold "type"; the identifier is the first argument, else a made-up one.
    // The error text, empty on success.
    QString add(const QString& toolbar, const QStringList& args, const QMap<QString, QString>& params);
    QString edit(const QString& toolbar, const QString& ident, const QMap<QString, QString>& params);
    QString remove(const QString& toolbar, const QString& ident);
    // A property of a widget; an empty toolbar name searches every group.
    std::optional<QString> value(const QString& toolbar, const QString& ident, const QString& key) const;
    // Creates the group's toolbar when it doesn't exist yet.
    void set_visible(const QString& toolbar, bool visible);

    // The group's widgets in toolbar order.
    QList<widget> widgets(const QString& toolbar) const { return m_groups.value(toolbar); }
    // The group's toolbar; null until something made it.
    QToolBar* existing_toolbar(const QString& name) const;

    // Answers no attachment: the core serves widget_changed.
    void on_event(const QString& name, const QStringList& args, const QString& action_type,
        const QString& action_value) override;

signals:
    void button_clicked(const QString& action);

private:
    QToolBar* toolbar(const QString& name);
    widget* find(const QString& toolbar, const QString& ident);
    void apply(widget& w, const QMap<QString, QString>& params);
    void changed(const QString& toolbar, const QString& ident, const QString& value);

    QPointer<QMainWindow> m_host;
    QMap<QString, QPointer<QToolBar>> m_toolbars;
    QMap<QString, QList<widget>> m_groups;
    int m_made_up = 0; // for widgets added without an identifier
};

} // namespace dynwidgets
