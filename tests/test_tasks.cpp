#include "tasks/endpoint.h"
#include "tasks/line.h"
#include "tasks/manager.h"
#include "tasks/sdk_type.h"

#include <QSignalSpy>
#include <QtTest>

using tasks::line;
using tasks::manager;
using tasks::task;

namespace {

// Records the manager's signals in order and finishes tasks on request.
struct recorder
{
    explicit recorder(manager& m)
        : m(m)
    {
        QObject::connect(&m, &manager::flow_started, [this](const QString& f) { events << "start " + tag(f); });
        QObject::connect(&m, &manager::flow_ended, [this](const QString& f) { events << "end " + tag(f); });
        QObject::connect(&m, &manager::task_running, [this, &m](const QString& f, const QString& name, const QString&) {
            events << "run " + tag(f) + " " + name;
            running << f;
            if (finish_at_once)
                m.task_finished(f);
        });
    }
    QString tag(const QString& ident) const { return ident.mid(ident.size() - 2, 1); }

    manager& m;
    QStringList events;
    QStringList running;
    bool finish_at_once = false;
};

// Adds lines "{...-0}".. with a chain of the given task names.
QStringList add_lines(manager& m, int count, const QStringList& chain)
{
    QStringList idents;
    for (int i = 0; i < count; ++i) {
        const QString ident = QStringLiteral("{00000000-0000-0000-0000-00000000000%1}").arg(i);
        m.add_line(ident);
        const task* parent = nullptr;
        std::vector<task> made;
        made.reserve(size_t(chain.size()));
        for (const QString& name : chain) {
            made.push_back(parent ? task(name, *parent) : task(name));
            parent = &made.back();
            m.add_task(ident, made.back());
        }
        idents << ident;
    }
    return idents;
}

} // namespace

class test_tasks : public QObject
{
    Q_OBJECT
private slots:
    void advance_consumes_the_flow();
    void dependents_and_cancel_data();
    void dependents_and_cancel();
    void describe_reports_types();
    void endpoint_forms_data();
    void endpoint_forms();
    void sdk_type_texts();

    void scheduler_limits_data();
    void scheduler_limits();
    void limit_two_starts_next_before_announcing_end();
    void launch_override_lives_as_long_as_the_launch();
    void empty_flows_and_late_reports();
    void raised_limit_takes_effect_while_running();
    void short_idents();
};

void test_tasks::advance_consumes_the_flow()
{
    line l("x");
    l.advance();
    QCOMPARE(l.pending(), 0);
    QVERIFY(!l.has_current());

    l.add(task("identify"));
    l.advance();
    QVERIFY(l.has_current());
    QCOMPARE(l.current_task().name(), QStringLiteral("identify"));
    l.advance();
    QVERIFY(!l.has_current());
    QCOMPARE(l.pending(), 0);
    QVERIFY(l.tasks().empty());
    QVERIFY_EXCEPTION_THROWN(l.current_task(), std::out_of_range);
}

void test_tasks::dependents_and_cancel_data()
{
    QTest::addColumn<int>("chain_length");
    QTest::addColumn<bool>("with_independent");
    QTest::addColumn<int>("dependents");
    QTest::addColumn<int>("cancel_count");
    QTest::addColumn<int>("left");

    QTest::newRow("chain of four counts direct children only") << 4 << false << 3 << 1 << 1;
    QTest::newRow("single task has nothing to cancel") << 1 << false << 0 << 0 << 1;
    QTest::newRow("independent task survives cancel") << 3 << true << 2 << 1 << 2;
}

void test_tasks::dependents_and_cancel()
{
    QFETCH(int, chain_length);
    QFETCH(bool, with_independent);
    QFETCH(int, dependents);
    QFETCH(int, cancel_count);
    QFETCH(int, left);

    line l("x");
    std::vector<task> chain;
    chain.reserve(size_t(chain_length));
    for (int i = 0; i < chain_length; ++i) {
        chain.push_back(i == 0 ? task(QString::number(i)) : task(QString::number(i), chain.back()));
        l.add(chain.back());
    }
    if (with_independent)
        l.add(task("independent"));
    l.advance();

    QCOMPARE(l.dependents_count(), dependents);
    QCOMPARE(l.cancel_dependents(), cancel_count);
    QCOMPARE(l.pending(), left);
    QCOMPARE(int(l.tasks().size()), left);
    QCOMPARE(l.current(), chain.front().uuid());
    l.advance();
    QCOMPARE(l.has_current(), with_independent);
    if (with_independent)
        QCOMPARE(l.current_task().name(), QStringLiteral("independent"));
}

void test_tasks::describe_reports_types()
{
    line l("x");
    endpoint ep;
    ep.host = "10.1.1.1";
    l.set("name", QStringLiteral("text"));
    l.set("flag", true);
    l.set("ep", QVariant::fromValue(ep));
    l.set("number", 5);
    l.remove("not there");
    const auto d = l.describe();
    QCOMPARE(d.size(), 4);
    QCOMPARE(d["name"].type, QStringLiteral("string"));
    QCOMPARE(d["flag"].value, QStringLiteral("true"));
    QCOMPARE(d["ep"].value, ep.long_form());
    QVERIFY(!d["number"].simple);
    QCOMPARE(d["number"].value, QStringLiteral("---"));
    QCOMPARE(d["number"].type, QStringLiteral("int"));
}

void test_tasks::endpoint_forms_data()
{
    QTest::addColumn<QString>("name");
    QTest::addColumn<int>("port");
    QTest::addColumn<QString>("password");
    QTest::addColumn<bool>("encrypted");
    QTest::addColumn<QString>("short_form");
    QTest::addColumn<QString>("long_form");

    QTest::newRow("default port is left out") << "" << 34567 << "" << false << "admin@10.0.0.1"
                                              << "admin@10.0.0.1, password: -none-, mac: , mtype: 0";
    QTest::newRow("other port is shown") << "" << 80 << "pw" << false << "admin@10.0.0.1:80"
                                         << "admin@10.0.0.1:80, password: pw (plain), mac: , mtype: 0";
    QTest::newRow("name wins") << "cam" << 80 << "QUJD" << true << "cam" << "cam, password: QUJD (encrypted), mac: , mtype: 0";
}

void test_tasks::endpoint_forms()
{
    QFETCH(QString, name);
    QFETCH(int, port);
    QFETCH(QString, password);
    QFETCH(bool, encrypted);
    endpoint ep;
    ep.name = name;
    ep.host = "10.0.0.1";
    ep.port = uint16_t(port);
    ep.password = password;
    ep.password_encrypted = encrypted;
    QTEST(ep.short_form(), "short_form");
    QTEST(ep.long_form(), "long_form");
    QCOMPARE(ep.to_map().value("password_encrypted"), encrypted ? QStringLiteral("Yes") : QStringLiteral("No"));
}

void test_tasks::sdk_type_texts()
{
    QCOMPARE(sdk::type_text(0), QStringLiteral("-unknown-"));
    QCOMPARE(sdk::type_text(7), QStringLiteral("-unknown-"));
    QCOMPARE(sdk::type_from_text("xnet", sdk::type::legacy), sdk::type::xnet);
    QCOMPARE(sdk::type_from_text("XNet", sdk::type::legacy), sdk::type::legacy);
    QCOMPARE(sdk::type_from_text("", sdk::type::unknown), sdk::type::unknown);
}

void test_tasks::scheduler_limits_data()
{
    QTest::addColumn<uint>("limit");
    QTest::addColumn<int>("lines");
    QTest::addColumn<int>("started_by_launch");

    QTest::newRow("no limit starts every flow in one call") << 0u << 5 << 5;
    QTest::newRow("limit two starts two") << 2u << 5 << 2;
    QTest::newRow("limit above count starts all") << 9u << 3 << 3;
}

void test_tasks::scheduler_limits()
{
    QFETCH(uint, limit);
    QFETCH(int, lines);
    QFETCH(int, started_by_launch);

    manager m;
    recorder r(m);
    m.set_limit(limit);
    const QStringList idents = add_lines(m, lines, { "a", "b" });
    m.set_launch_list(idents);
    m.launch();
    QCOMPARE(int(m.running_count()), started_by_launch);
    QCOMPARE(r.running.size(), started_by_launch);
    QCOMPARE(m.waiting().size(), lines - started_by_launch);

    // Work everything off: never more than the limit at once, every flow ends once.
    int ended = 0;
    QObject::connect(&m, &manager::flow_ended, [&] { ++ended; });
    for (int round = 0; round < 100 && !r.running.isEmpty(); ++round) {
        QVERIFY(limit == 0 || m.running_count() <= limit);
        m.task_finished(r.running.takeFirst());
    }
    QCOMPARE(ended, lines);
    QCOMPARE(m.running_count(), 0u);
}

void test_tasks::limit_two_starts_next_before_announcing_end()
{
    manager m;
    recorder r(m);
    m.set_limit(2);
    const QStringList idents = add_lines(m, 3, { "only" });
    m.set_launch_list(idents);
    m.launch();
    r.events.clear();
    m.task_finished(idents[0]);
    QCOMPARE(r.events, (QStringList { "start 2", "run 2 only", "end 0" }));
}

void test_tasks::launch_override_lives_as_long_as_the_launch()
{
    manager m;
    recorder r(m);
    m.set_limit(0);
    const QStringList idents = add_lines(m, 2, { "a" });
    m.set_launch_list(idents);
    m.launch(true, 3);
    QVERIFY(!m.override_active());
    QCOMPARE(m.effective_limit(), 0u);

    // With flows waiting, the launch's own limit holds until the last is admitted.
    manager m2;
    recorder r2(m2);
    const QStringList five = add_lines(m2, 5, { "a" });
    m2.set_launch_list(five);
    m2.launch(true, 1);
    QVERIFY(m2.override_active());
    QCOMPARE(m2.effective_limit(), 1u);
    QCOMPARE(m2.running_count(), 1u);
    for (int i = 0; i < 3; ++i)
        m2.task_finished(r2.running.takeFirst());
    QVERIFY(m2.override_active());
    m2.task_finished(r2.running.takeFirst());
    QVERIFY(!m2.override_active());
    QCOMPARE(m2.running_count(), 1u);
}

void test_tasks::empty_flows_and_late_reports()
{
    manager m;
    recorder r(m);
    m.set_launch_list({});
    m.launch();
    QVERIFY(r.events.isEmpty());

    // A line without tasks is passed over silently, and the next starts in the same pass.
    m.set_limit(1);
    m.add_line("{empty-e}");
    const QStringList busy = add_lines(m, 1, { "a" });
    m.set_launch_list({ "{empty-e}", "{unknown-9}", busy[0] });
    m.launch();
    QCOMPARE(r.events, (QStringList { "start 0", "run 0 a" }));

    // A late report after the flow ended leaves the counters alone.
    m.task_finished(busy[0]);
    QCOMPARE(m.running_count(), 0u);
    r.events.clear();
    m.task_finished(busy[0]);
    m.task_finished("{empty-e}");
    QCOMPARE(m.running_count(), 0u);
    QVERIFY(r.events.isEmpty());

    // Tasks that finish inside task_running re-enter the manager safely.
    manager m3;
    recorder r3(m3);
    r3.finish_at_once = true;
    m3.set_limit(2);
    const QStringList idents = add_lines(m3, 4, { "a", "b" });
    m3.set_launch_list(idents);
    m3.launch();
    QCOMPARE(r3.events.filter("end").size(), 4);
    QCOMPARE(m3.running_count(), 0u);
    QVERIFY(m3.waiting().isEmpty());
}

void test_tasks::raised_limit_takes_effect_while_running()
{
    manager m;
    recorder r(m);
    m.set_limit(1);
    const QStringList idents = add_lines(m, 4, { "a" });
    m.set_launch_list(idents);
    m.launch();
    QCOMPARE(m.running_count(), 1u);
    m.set_limit(3);
    QCOMPARE(m.running_count(), 3u);
    m.set_limit(1);
    QCOMPARE(m.running_count(), 3u);
}

void test_tasks::short_idents()
{
    manager m;
    m.add_line("{abcd1234-0000-0000-0000-000000000000}");
    m.add_line("{abcd5678-0000-0000-0000-000000000000}");
    QCOMPARE(m.short_ident("{abcd1234-0000-0000-0000-000000000000}"), QStringLiteral("abcd"));
    QCOMPARE(m.short_ident("{abcd5678-0000-0000-0000-000000000000}"), QStringLiteral("bcd5"));
    QCOMPARE(m.resolve("bcd5"), QStringLiteral("{abcd5678-0000-0000-0000-000000000000}"));
    QCOMPARE(m.resolve("{abcd1234-0000-0000-0000-000000000000}"), QStringLiteral("{abcd1234-0000-0000-0000-000000000000}"));
    QCOMPARE(m.resolve("zzzz"), QString());

    // Removed lines keep their short idents on purpose.
    m.remove_line("{abcd1234-0000-0000-0000-000000000000}");
    QCOMPARE(m.ident_of_short("abcd"), QStringLiteral("{abcd1234-0000-0000-0000-000000000000}"));
    QCOMPARE(m.resolve("abcd"), QStringLiteral("{abcd1234-0000-0000-0000-000000000000}"));

    // Four characters after stripping: no short ident.
    m.add_line("{ab-cd}");
    QCOMPARE(m.short_ident("{ab-cd}"), QString());
}

QTEST_GUILESS_MAIN(test_tasks)
#include "test_tasks.moc"
