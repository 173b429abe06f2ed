#include "tasks/line.h"
#include "tasks/manager.h"

#include <QtTest>

using tasks::line;
using tasks::manager;
using tasks::task;

namespace
{

// A manager whose signals are recorded in order; finishes tasks on request.
struct recorder {
    recorder()
    {
        QObject::connect(&m, &manager::flow_started, [this](const QString& f) { events << "start " + tag(f); });
        QObject::connect(&m, &manager::flow_ended, [this](const QString& f) { events << "end " + tag(f); });
        QObject::connect(&m, &manager::task_running, [this](const QString& f, const QString& name, const QString&) {
            events << "run " + tag(f) + " " + name;
            running << f;
            if (finish_at_once)
                m.task_finished(f);
        });
    }
    static QString tag(const QString& ident) { return ident.mid(ident.size() - 2, 1); }

    manager m;
    QStringList events;
    QStringList running;
    bool finish_at_once = false;
};

// Lines "{...-0}".. with a chain of the given task names, in the launch list.
QStringList add_lines(manager& m, int count, const QStringList& chain)
{
    QStringList idents;
    for (int i = 0; i < count; ++i) {
        const QString ident = QStringLiteral("{00000000-0000-0000-0000-00000000000%1}").arg(i);
        m.add_line(ident);
        std::vector<task> made;
        made.reserve(size_t(chain.size()));
        for (const QString& name : chain) {
            made.push_back(made.empty() ? task(name) : task(name, made.back()));
            m.add_task(ident, made.back());
        }
        idents << ident;
    }
    m.set_launch_list(idents);
    return idents;
}

} // namespace

class test_tasks : public QObject
{
    Q_OBJECT
private slots:
    void dependents_and_cancel();
    void scheduler_limits_data();
    void scheduler_limits();
    void next_flow_starts_before_the_end_is_announced();
    void launch_limit_lasts_until_the_last_admission();
    void empty_flows_and_late_reports();
    void short_idents();
};

void test_tasks::dependents_and_cancel()
{
    line l("x");
    const task first("0");
    const task second("1", first);
    for (const task& t : { first, second, task("2", second), task("independent") })
        l.add(t);
    l.advance();
    QCOMPARE(l.dependents_count(), 2);
    QCOMPARE(l.cancel_dependents(), 1); // the direct child only
    QCOMPARE(l.pending(), 2);
    QCOMPARE(l.current(), first.uuid());
    l.advance();
    QCOMPARE(l.current_task().name(), QStringLiteral("independent"));
    l.advance();
    QVERIFY(!l.has_current());
    QVERIFY_EXCEPTION_THROWN(l.current_task(), std::out_of_range);
}

void test_tasks::scheduler_limits_data()
{
    QTest::addColumn<uint>("limit");
    QTest::addColumn<int>("lines");
    QTest::addColumn<int>("started_by_launch");
    QTest::newRow("no limit starts every flow in one call") << 0u << 5 << 5;
    QTest::newRow("limit two starts two") << 2u << 5 << 2;
}

void test_tasks::scheduler_limits()
{
    QFETCH(uint, limit);
    QFETCH(int, lines);
    QFETCH(int, started_by_launch);
    recorder r;
    r.m.set_limit(limit);
    add_lines(r.m, lines, { "a", "b" });
    r.m.launch();
    QCOMPARE(int(r.m.running_count()), started_by_launch);
    QCOMPARE(r.m.waiting().size(), lines - started_by_launch);
    // Work everything off: never more than the limit at once, every flow ends once.
    for (int round = 0; round < 100 && !r.running.isEmpty(); ++round) {
        QVERIFY(limit == 0 || r.m.running_count() <= limit);
        r.m.task_finished(r.running.takeFirst());
    }
    QCOMPARE(r.events.filter("end").size(), lines);
    QCOMPARE(r.m.running_count(), 0u);

    // A raised limit admits at once while flows run; a lowered one stops nothing.
    recorder r2;
    r2.m.set_limit(1);
    add_lines(r2.m, 4, { "a" });
    r2.m.launch();
    QCOMPARE(r2.m.running_count(), 1u);
    r2.m.set_limit(3);
    QCOMPARE(r2.m.running_count(), 3u);
    r2.m.set_limit(1);
    QCOMPARE(r2.m.running_count(), 3u);
}

void test_tasks::next_flow_starts_before_the_end_is_announced()
{
    recorder r;
    r.m.set_limit(2);
    const QStringList idents = add_lines(r.m, 3, { "only" });
    r.m.launch();
    QCOMPARE(r.events, (QStringList { "start 0", "run 0 only", "start 1", "run 1 only" }));
    r.events.clear();
    r.m.task_finished(idents[0]);
    QCOMPARE(r.events, (QStringList { "start 2", "run 2 only", "end 0" }));
}

void test_tasks::launch_limit_lasts_until_the_last_admission()
{
    // With nothing left waiting, the launch's own limit ends with the launch.
    recorder r;
    add_lines(r.m, 2, { "a" });
    r.m.launch(true, 3);
    QVERIFY(!r.m.override_active());
    QCOMPARE(r.m.effective_limit(), 0u);

    // With flows waiting, it holds until the last is admitted.
    recorder r2;
    add_lines(r2.m, 5, { "a" });
    r2.m.launch(true, 1);
    QVERIFY(r2.m.override_active());
    QCOMPARE(r2.m.effective_limit(), 1u);
    for (int i = 0; i < 3; ++i)
        r2.m.task_finished(r2.running.takeFirst());
    QVERIFY(r2.m.override_active());
    r2.m.task_finished(r2.running.takeFirst());
    QVERIFY(!r2.m.override_active());
    QCOMPARE(r2.m.running_count(), 1u);
}

void test_tasks::empty_flows_and_late_reports()
{
    recorder r;
    r.m.set_launch_list({});
    r.m.launch();
    QVERIFY(r.events.isEmpty());

    // A line without tasks is passed over silently, and the next starts in the same pass.
    r.m.set_limit(1);
    const QString busy = add_lines(r.m, 1, { "a" }).first();
    r.m.add_line("{empty-e}");
    r.m.set_launch_list({ "{empty-e}", "{unknown-9}", busy });
    r.m.launch();
    QCOMPARE(r.events, (QStringList { "start 0", "run 0 a" }));

    // A late report after the flow ended leaves the counters alone.
    r.m.task_finished(busy);
    QCOMPARE(r.m.running_count(), 0u);
    r.events.clear();
    r.m.task_finished(busy);
    r.m.task_finished("{empty-e}");
    QCOMPARE(r.m.running_count(), 0u);
    QVERIFY(r.events.isEmpty());

    // Nor does it free the slot of a flow still running, end that flow, or start tasks
    // added to the ended line without a launch.
    recorder r2;
    const QStringList two = add_lines(r2.m, 2, { "a", "b" });
    r2.m.launch();
    for (int report = 0; report < 3; ++report) // the third comes after the flow's end
        r2.m.task_finished(two[0]);
    r2.m.task_finished(two[1]);
    QCOMPARE(r2.events.filter("end"), QStringList { "end 0" });
    QCOMPARE(r2.m.running_count(), 1u);
    r2.m.add_task(two[0], task("later"));
    r2.events.clear();
    r2.m.task_finished(two[0]);
    r2.m.task_finished(two[0]);
    QVERIFY2(r2.events.isEmpty(), qPrintable(r2.events.join(", ")));
    QCOMPARE(r2.m.running_count(), 1u);
    QVERIFY(r2.m.is_running(two[1]) && !r2.m.is_running(two[0]));
    r2.m.task_finished(two[1]);
    QCOMPARE(r2.events, QStringList { "end 1" });
    QCOMPARE(r2.m.running_count(), 0u);

    // Tasks that finish inside task_running re-enter the manager safely.
    recorder r3;
    r3.finish_at_once = true;
    r3.m.set_limit(2);
    add_lines(r3.m, 4, { "a", "b" });
    r3.m.launch();
    QCOMPARE(r3.events.filter("end").size(), 4);
    QCOMPARE(r3.m.running_count(), 0u);
    QVERIFY(r3.m.waiting().isEmpty());
}

void test_tasks::short_idents()
{
    const QString first = QStringLiteral("{abcd1234-0000-0000-0000-000000000000}");
    const QString second = QStringLiteral("{abcd5678-0000-0000-0000-000000000000}");
    manager m;
    m.add_line(first);
    m.add_line(second);
    QCOMPARE(m.short_ident(first), QStringLiteral("abcd"));
    QCOMPARE(m.short_ident(second), QStringLiteral("bcd5"));
    QCOMPARE(m.resolve("bcd5"), second);
    QCOMPARE(m.resolve(first), first);
    QCOMPARE(m.resolve("zzzz"), QString());
    // Removed lines keep their short idents on purpose.
    m.remove_line(first);
    QCOMPARE(m.resolve("abcd"), first);
    // Four characters after stripping: no short ident.
    m.add_line("{ab-cd}");
    QCOMPARE(m.short_ident("{ab-cd}"), QString());
}

QTEST_GUILESS_MAIN(test_tasks)
#include "test_tasks.moc"
