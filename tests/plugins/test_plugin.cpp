// A plugin with one command, <ident's last part>.probe (number 1), whose interface version
// and answer to initialize come from its build.
#include "plugins/plugin_interface.h"

#include <QObject>

// Unnamed: the test plugins share the class, and literals in its inline functions would
// otherwise be one process-wide object, the first library's, in all of them.
namespace {

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
    bool initialize(plugins::sapi_interface* api) override
    {
        m_api = api;
        return TEST_PLUGIN_STARTS;
    }
    void set_language(const QString&) override {}
    QString ident() const override { return QStringLiteral(TEST_PLUGIN_IDENT); }
    QList<plugins::plugin_command*> commands() override { return { &m_branch }; }
    QList<plugins::description_row> descriptions() override { return {}; }
    QString description(const scripting::cmd_id&) override { return {}; }
    bool toolbar_action(const scripting::cmd_id&) override { return false; }
    // Works only once started.
    bool execute(const scripting::cmd_id&, const QStringList& args, const param_list&) override
    {
        if (!TEST_PLUGIN_STARTS || !m_api)
            return false;
        m_api->sapi_output(QStringLiteral("probed %1").arg(args.join(QLatin1Char(' '))), false);
        return true;
    }

private:
    plugins::sapi_interface* m_api = nullptr;
    plugins::plugin_command m_probe;
    plugins::plugin_command m_branch;
};

} // namespace

#include "test_plugin.moc"
