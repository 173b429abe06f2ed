#pragma once

#include "plugins/plugin_interface.h"

#include <QObject>

// A plugin that keeps the name of the site a fleet belongs to, in the program's settings:
//   site.set <name>   stores the name
//   site.show         prints it
//   site.about        prints the plugin, the program's version and the language
class site_plugin final : public QObject, public plugins::plugin_interface
{
    Q_OBJECT
    Q_PLUGIN_METADATA(IID ORVANE_PLUGIN_INTERFACE_IID)
    Q_INTERFACES(plugins::plugin_interface)
public:
    site_plugin();

    int version() const override { return plugins::interface_version; }
    bool initialize(plugins::sapi_interface* api) override;
    void set_language(const QString& locale_name) override { m_language = locale_name; }
    QString ident() const override;
    QList<plugins::plugin_command*> commands() override { return { &m_site }; }
    QList<plugins::description_row> descriptions() override;
    QString description(const scripting::cmd_id& id) override;
    bool toolbar_action(const scripting::cmd_id& id) override;
    bool execute(const scripting::cmd_id& id, const QStringList& args, const param_list& params) override;

private:
    // The numbers of the plugin's commands; 0 is a branch.
    enum command : qint64 { show = 1, set = 2, about = 3 };

    plugins::sapi_interface* m_api = nullptr;
    QString m_language;
    plugins::plugin_command m_show;
    plugins::plugin_command m_set;
    plugins::plugin_command m_about;
    plugins::plugin_command m_site;
};
