#include "site_plugin.h"

namespace {

const QString settings_key = QStringLiteral("Site/name");

} // namespace

site_plugin::site_plugin()
{
    m_show.id.number = show;
    m_show.row_name = QStringLiteral("site_show");
    m_show.tree_name = QStringLiteral("show");

    m_set.id.number = set;
    m_set.min_args = 1;
    m_set.max_args = 1;
    m_set.args = { { scripting::argument_kind::value, true } };
    m_set.row_name = QStringLiteral("site_set");
    m_set.tree_name = QStringLiteral("set");

    m_about.id.number = about;
    m_about.row_name = QStringLiteral("site_about");
    m_about.tree_name = QStringLiteral("about");

    m_site.tree_name = QStringLiteral("site");
    m_site.children = { &m_show, &m_set, &m_about };
}

bool site_plugin::initialize(plugins::sapi_interface* api)
{
    m_api = api;
    return m_api != nullptr;
}

QString site_plugin::ident() const
{
    return QStringLiteral("org.kelmar.examples.site");
}

QList<plugins::description_row> site_plugin::descriptions()
{
    return { { { ident(), show }, m_show.row_name, description({ ident(), show }) },
        { { ident(), set }, m_set.row_name, description({ ident(), set }) } };
}

QString site_plugin::description(const scripting::cmd_id& id)
{
    // A plugin with translations would install its own QTranslator in set_language.
    switch (id.number) {
    case show:
        return QStringLiteral("Print the site name");
    case set:
        return QStringLiteral("Set the site name");
    default:
        return {};
    }
}

bool site_plugin::toolbar_action(const scripting::cmd_id& id)
{
    return execute(id, {}, {});
}

bool site_plugin::execute(const scripting::cmd_id& id, const QStringList& args, const param_list&)
{
    if (!m_api)
        return false;
    switch (id.number) {
    case show: {
        const QString name = m_api->sapi_settings_get(settings_key, QString()).toString();
        m_api->sapi_output(
            name.isEmpty() ? QStringLiteral("No site is set") : QStringLiteral("Site: %1").arg(name.toHtmlEscaped()),
            false);
        return true;
    }
    case set:
        if (args.value(0).trimmed().isEmpty()) {
            m_api->sapi_error(QStringLiteral("A site needs a name"), false);
            return false;
        }
        m_api->sapi_settings_set(settings_key, args.value(0).trimmed());
        m_api->sapi_output(QStringLiteral("Site set to %1").arg(args.value(0).trimmed().toHtmlEscaped()), false);
        return true;
    case about:
        m_api->sapi_output(QStringLiteral("Site plugin (interface %1) in Orvane %2, language %3")
                               .arg(plugins::interface_version)
                               .arg(m_api->sapi_version(), m_language),
            false);
        return true;
    default:
        return false;
    }
}
