#pragma once

// What a plugin of the program implements. A plugin is a Qt plugin: a shared library with
// one QObject class that derives from plugin_interface as well, names it in Q_INTERFACES
// and declares Q_PLUGIN_METADATA(IID ORVANE_PLUGIN_INTERFACE_IID). These headers are all
// it needs of the program.

#include "plugins/cmd_id.h"
#include "plugins/plugin_command.h"
#include "plugins/sapi_interface.h"

#include <QList>
#include <QMap>
#include <QString>
#include <QStringList>
#include <QtPlugin>

#define ORVANE_PLUGIN_INTERFACE_IID "org.kelmar.services.ov.plugins.interface"

namespace plugins {

// The version of this interface; the program refuses plugins built for an older one.
constexpr int interface_version = 3;

// Plugins are built against this order of operations: an operation is never moved or
// removed, and a new one goes at the end with a new interface_version.
class plugin_interface
{
public:
    // Named parameters of a command ("--name=value").
    using param_list = QMap<QString, QString>;

    virtual ~plugin_interface() = default;

    // The interface version the plugin was built for: return interface_version.
    virtual int version() const = 0;
    // Hands over the program's services, valid until the plugin is unloaded. False when
    // the plugin can't run; its commands then do nothing.
    virtual bool initialize(sapi_interface* api) = 0;
    // The program's language as a locale name ("en_US", "ru_RU"): once before initialize,
    // and again at every change, each time before descriptions() and description().
    virtual void set_language(const QString& locale_name) = 0;
    // Unique among plugins, and free of "/", which separates it from a command's number.
    virtual QString ident() const = 0;
    // The roots of the plugin's command tree; the plugin keeps them alive.
    virtual QList<plugin_command*> commands() = 0;
    // The commands offered for quick actions, with their descriptions.
    virtual QList<description_row> descriptions() = 0;
    // The description of one command in the current language.
    virtual QString description(const scripting::cmd_id& id) = 0;
    // A toolbar button bound to a command was pressed; false when it failed.
    virtual bool toolbar_action(const scripting::cmd_id& id) = 0;
    // Runs a command on the program's main thread; it may use the services and block
    // meanwhile. False when it failed.
    virtual bool execute(const scripting::cmd_id& id, const QStringList& args, const param_list& params) = 0;
};

} // namespace plugins

Q_DECLARE_INTERFACE(plugins::plugin_interface, ORVANE_PLUGIN_INTERFACE_IID)
