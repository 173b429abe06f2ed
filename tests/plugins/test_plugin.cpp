// A plugin with one command, <ident's last part>.probe (number 1), whose interface version comes from its build.
#include "plugins/plugin_interface.h"

#include <QObject>

class test_plugin final : public QObject, public plugins::plugin_interface
{
    Q_OBJECT
    Q_PLUGIN_METADATA(IID ORVANE_PLUGIN_INTERFACE_IID)
    Q_INTERFACES(plugins::plugin_interface)
public:
    test_plugin()
    {
        m_probe.id.number = 1;
        m_probe.row_name = QStringLiteral("probe");
        m_probe.tree_name = QStringLiteral("probe");
        m_branch.tree_name = ident().section(QLatin1Char('.'), -1);
        m_branch.children = { &m_probe };
    }

    int version() const override { return TEST_PLUGIN_VERSION; }
    bool initialize(plugins::sapi_interface*) override { return true; }
    void set_language(const QString&) override {}
    QString ident() const override { return QStringLiteral(TEST_PLUGIN_IDENT); }
    QList<plugins::plugin_command*> commands() override { return { &m_branch }; }
    QList<plugins::description_row> descriptions() override { return {}; }
    QString description(const scripting::cmd_id&) override { return {}; }
    bool toolbar_action(const scripting::cmd_id&) override { return false; }
    bool execute(const scripting::cmd_id&, const QStringList&, const param_list&) override { return false; }

private:
    plugins::plugin_command m_probe;
    plugins::plugin_command m_branch;
};

#include "test_plugin.moc"
