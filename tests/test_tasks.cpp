#include "tasks/line.h"
#include "tasks/manager.h"

#include <QtTest>

using tasks::line;
using tasks::manager;
using tasks::task;

namespace
{

// Records the manager's signals in order and finishes tasks on request.
struct recorder {
    explicit recorder(manager& m)
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
    static QString tag(const QString& ident) { return ident.mid(ident.size() - 2, 1); }

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
    void dependents_and_cancel_data();
    void dependents_and_cancel();
    void scheduler_limits_data();
    void scheduler_limits();
    void next_flow_starts_before_the_end_is_announced();
    void launch_limit_lasts_until_the_last_admission();
    void empty_flows_and_late_reports();
    void short_idents();
};

void test_tasks::dependents_and_cancel_data()
{
    QTest::addColumn<int>("chain_length");
    QTest::addColumn<bool>("with_independent");
    QTest::addColumn<int>("dependents");
    QTest::addColumn<int>("cancel_count");
    QTest::addColumn<int>("left");
    QTest::newRow("chain of four cancels its direct child only") << 4 << false << 3 << 1 << 1;
    QTest::newRow("single task has nothing to cancel") << 1 << false << 0 << 0 << 1;
    QTest::newRow("independent task survives cancel") << 3 << true << 2 << 1 << 2;
}

void test_tasks::dependents_and_cancel()
{
    QFETCH(int, chain_length);
    QFETCH(bool, with_independent);
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

    QTEST(l.dependents_count(), "dependents");
    QTEST(l.cancel_dependents(), "cancel_count");
    QTEST(l.pending(), "left");
    QCOMPARE(l.current(), chain.front().uuid());
    l.advance();
    QCOMPARE(l.has_current(), with_independent);
    if (with_independent)
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
    add_lines(m, lines, { "a", "b" });
    m.launch();
    QCOMPARE(int(m.running_count()), started_by_launch);
    QCOMPARE(r.running.size(), started_by_launch);
    QCOMPARE(m.waiting().size(), lines - started_by_launch);

    // Work everything off: never more than the limit at once, every flow ends once.
    for (int round = 0; round < 100 && !r.running.isEmpty(); ++round) {
        QVERIFY(limit == 0 || m.running_count() <= limit);
        m.task_finished(r.running.takeFirst());
    }
    QCOMPARE(r.events.filter("end").size(), lines);
    QCOMPARE(m.running_count(), 0u);

    // A raised limit admits at once while flows run; a lowered one stops nothing.
    manager m2;
    recorder r2(m2);
    m2.set_limit(1);
    add_lines(m2, 4, { "a" });
    m2.launch();
    QCOMPARE(m2.running_count(), 1u);
    m2.set_limit(3);
    QCOMPARE(m2.running_count(), 3u);
    m2.set_limit(1);
    QCOMPARE(m2.running_count(), 3u);
}

void test_tasks::next_flow_starts_before_the_end_is_announced()
{
    manager m;
    recorder r(m);
    m.set_limit(2);
    const QStringList idents = add_lines(m, 3, { "only" });
    m.launch();
    QCOMPARE(r.events, (QStringList { "start 0", "run 0 only", "start 1", "run 1 only" }));
    r.events.clear();
    m.task_finished(idents[0]);
    QCOMPARE(r.events, (QStringList { "start 2", "run 2 only", "end 0" }));
}

void test_tasks::launch_limit_lasts_until_the_last_admission()
{
    // With nothing left waiting, the launch's own limit ends with the launch.
    manager m;
    recorder r(m);
    add_lines(m, 2, { "a" });
    m.launch(true, 3);
    QVERIFY(!m.override_active());
    QCOMPARE(m.effective_limit(), 0u);

    // With flows waiting, it holds until the last is admitted.
    manager m2;
    recorder r2(m2);
    add_lines(m2, 5, { "a" });
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
    const QString busy = add_lines(m, 1, { "a" }).first();
    m.add_line("{empty-e}");
    m.set_launch_list({ "{empty-e}", "{unknown-9}", busy });
    m.launch();
    QCOMPARE(r.events, (QStringList { "start 0", "run 0 a" }));

    // A late report after the flow ended leaves the counters alone.
    m.task_finished(busy);
    QCOMPARE(m.running_count(), 0u);
    r.events.clear();
    m.task_finished(busy);
    m.task_finished("{empty-e}");
    QCOMPARE(m.running_count(), 0u);
    QVERIFY(r.events.isEmpty());

    // Tasks that finish inside task_running re-enter the manager safely.
    manager m3;
    recorder r3(m3);
    r3.finish_at_once = true;
    m3.set_limit(2);
    add_lines(m3, 4, { "a", "b" });
    m3.launch();
    QCOMPARE(r3.events.filter("end").size(), 4);
    QCOMPARE(m3.running_count(), 0u);
    QVERIFY(m3.waiting().isEmpty());
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
    QCOMPARE(m.ident_of_short("abcd"), first);
    QCOMPARE(m.resolve("abcd"), first);

    // Four characters after stripping: no short ident.
    m.add_line("{ab-cd}");
    QCOMPARE(m.short_ident("{ab-cd}"), QString());
}

QTEST_GUILESS_MAIN(test_tasks)
#include "test_tasks.moc"
