#include "tests/core_fixture.h"

core_fixture::core_fixture()
{
    c = std::make_unique<core>(QString(), dir.path());
    c->operate(core::batch, false);
    // The manager starts the next flow before it announces the end of the last one,
    // so its own count is the one that must stay within the limit.
    QObject::connect(&c->task_manager(), &tasks::manager::flow_started, [this] {
        ++started;
        peak = std::max(peak, int(c->task_manager().running_count()));
    });
    QObject::connect(&c->task_manager(), &tasks::manager::flow_ended, [this] { ++ended; });
}

core_fixture::~core_fixture() = default;

QString core_fixture::add_row(const QString& host, uint16_t port, const QString& password)
{
    endpoint ep;
    ep.host = host;
    ep.port = port;
    ep.password = password;
    const task_element element(ep, device());
    c->introduce(element);
    return element.ident;
}

void core_fixture::select_only(const QStringList& idents)
{
    for (const QString& ident : c->task_manager().lines())
        c->task_manager().find(ident)->set(tasks::keys::selected, idents.contains(ident));
}

tasks::common_data core_fixture::result(const QString& ident) const
{
    const auto l = c->task_manager().find(ident);
    if (!l || !l->params().contains(tasks::keys::result))
        return { QStringLiteral("Done"), true };
    return l->get(tasks::keys::result).value<tasks::common_data>();
}

QString core_fixture::log_text() const
{
    QStringList lines;
    for (const auto& e :
        c->history().entries({ QStringLiteral("core"), QStringLiteral("tasks"), QStringLiteral("sapi") }))
        lines << e.text;
    return lines.join(QLatin1Char('\n'));
}
