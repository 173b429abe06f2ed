#pragma once

#include "plugins/plugin_interface.h"

#include <QCoreApplication>

#include <functional>

namespace scripting {
class cmddb;
}

namespace plugins {

// The built-in commands that quick actions offer (those with a description), seen through
// the plugin interface, so that whatever lists or runs the commands of plugins treats them
// alike. Its identifier is the empty one of built-in commands.
class core_functions final : public plugin_interface
{
    Q_DECLARE_TR_FUNCTIONS(plugins::core_functions)
public:
    // Runs a built-in command on the main thread; false when it failed.
    using runner = std::function<bool(const scripting::cmd_id& id, const QStringList& args, const param_list& params)>;

    core_functions(const scripting::cmddb& db, runner run);

    // "Core functions", in the current language.
    static QString display_name();

    int version() const override { return interface_version; }
    bool initialize(sapi_interface* api) override { return true; }
    // The built-in texts follow the program's own translator.
    void set_language(const QString& locale_name) override {}
    QString ident() const override { return {}; }
    // They are in the command tree from the start.
    QList<plugin_command*> commands() override { return {}; }
    QList<description_row> descriptions() override;
    QString description(const scripting::cmd_id& id) override;
    // False for a command it doesn't offer.
    bool toolbar_action(const scripting::cmd_id& id) override { return execute(id, {}, {}); }
    bool execute(const scripting::cmd_id& id, const QStringList& args, const param_list& params) override;

private:
    const scripting::cmddb& m_db;
    runner m_run;
};

} // namespace plugins
