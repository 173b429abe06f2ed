// The event thread, the events.* commands, and the macros a scan's end starts.
#include "app/core.h"
#include "scripting/event_handler.h"
#include "scripting/event_listener.h"
#include "tests/support/script_session.h"

#include <QtTest>

#include <QMutex>
#include <QSemaphore>
#include <QThread>

namespace
{

// Keeps what fired, as "name args | type value"; optionally held inside on_event until released.
struct recording_listener : event::listener {
    void on_event(
        const QString& name, const QStringList& args, const QString& action_type, const QString& action_value) override
    {
        entered.release();
        if (hold)
            release.acquire();
        QMutexLocker lock(&mutex);
        fired << QStringLiteral("%1 | %2 %3").arg((QStringList { name } + args).join(' '), action_type, action_value);
    }
    QStringList seen()
    {
        QMutexLocker lock(&mutex);
        return fired;
    }
    using event::listener::raise_event;

    QMutex mutex;
    QStringList fired;
    bool hold = false;
    QSemaphore entered;
    QSemaphore release;
};

// Runs until every posted event has been looked at.
bool drained(event::handler& h)
{
    return QTest::qWaitFor([&h] { return h.idle(); }, 5000);
}

const QString failure = QStringLiteral("FIXME: dummy result");

} // namespace

class test_events : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase() { QStandardPaths::setTestModeEnabled(true); }
    void keys_match_exactly_data();
    void keys_match_exactly();
    void listeners_by_name();
    void busy_while_an_action_runs();
    void events_from_many_threads();
    void commands_data();
    void commands();
    void scans_start_macros_and_name_a_missing_one();
};

void test_events::keys_match_exactly_data()
{
    QTest::addColumn<QString>("keys"); // attached, then raised: an event and its arguments each
    QTest::addColumn<bool>("fires");
    const QString ident = "{6f1b0c4e-0000-4000-8000-000000000001}";
    QTest::newRow("bare attachment, bare raise") << "scanner_done / scanner_done" << true;
    QTest::newRow("bare attachment ignores the raise with a reason") << "scanner_done / scanner_done manual" << false;
    QTest::newRow("manual fires for a scan stopped by hand") << "scanner_done manual / scanner_done manual" << true;
    QTest::newRow("manual ignores autostop") << "scanner_done manual / scanner_done autostop" << false;
    QTest::newRow("manual ignores the bare raise") << "scanner_done manual / scanner_done" << false;
    QTest::newRow("task_done needs the ident") << "task_done / task_done " + ident << false;
    QTest::newRow("task_done with the ident") << "task_done " + ident + " / task_done " + ident << true;
    QTest::newRow("no patterns") << "scanner_.* / scanner_done" << false;
    QTest::newRow("names are case sensitive") << "Tasks_done / tasks_done" << false;
    QTest::newRow("a name nobody listens to") << "widget_changed w 1 / widget_changed w 1" << false;
}

void test_events::keys_match_exactly()
{
    QFETCH(QString, keys);
    QFETCH(bool, fires);
    const QString attached = keys.section(" / ", 0, 0), raised = keys.section(" / ", 1);
    event::handler h;
    recording_listener l;
    l.attach_listener({ "scanner_done", "task_done", "tasks_done", "Tasks_done", "marker" }, &h);
    const QStringList a = attached.split(' ');
    h.attach(a.first(), a.mid(1), "macro", "m");
    h.start();
    const QStringList r = raised.split(' ');
    l.raise_event(r.first(), r.mid(1));
    // A bare event behind it tells when the one under test has been looked at.
    h.attach("marker", {}, "macro", "marker");
    l.raise_event("marker");
    QTRY_COMPARE(l.seen().size() >= 1 && l.seen().last().endsWith("marker"), true);
    QCOMPARE(l.seen().size(), fires ? 2 : 1);
    if (fires)
        QCOMPARE(l.seen().first(), QStringLiteral("%1 | macro m").arg(raised));
}

void test_events::listeners_by_name()
{
    event::handler h;
    recording_listener first, second;
    // The name is the first word of an entry; a later registration takes the name over.
    first.attach_listener({ "scanner_done manual", "tasks_done" }, &h);
    second.attach_listener({ "tasks_done" }, &h);
    h.attach("scanner_done", {}, "macro", "a");
    h.attach("tasks_done", {}, "macro", "b");
    h.start();
    // Either may raise: the listener registered under the name is called.
    second.raise_event("scanner_done");
    first.raise_event("tasks_done");
    QVERIFY(drained(h));
    QCOMPARE(first.seen(), QStringList { "scanner_done | macro a" });
    QCOMPARE(second.seen(), QStringList { "tasks_done | macro b" });

    // Not attached to a handler: raising does nothing and doesn't crash.
    recording_listener alone;
    alone.raise_event("tasks_done");
    QVERIFY(drained(h));
    QCOMPARE(second.seen().size(), 1);
}

void test_events::busy_while_an_action_runs()
{
    event::handler h;
    recording_listener l;
    l.hold = true;
    l.attach_listener({ "tasks_done" }, &h);
    h.attach("tasks_done", {}, "macro", "m");
    // Posted before the thread runs: kept, not lost.
    l.raise_event("tasks_done");
    QVERIFY(!h.idle());
    h.start();
    QVERIFY(l.entered.tryAcquire(1, 5000));
    // The queue is empty now, but the action still runs: a run must not end here.
    QVERIFY(!h.idle());
    l.release.release();
    QVERIFY(drained(h));
    QCOMPARE(l.seen().size(), 1);
}

void test_events::events_from_many_threads()
{
    event::handler h;
    recording_listener l;
    l.attach_listener({ "task_done" }, &h);
    constexpr int threads = 4;
    constexpr int per_thread = 200;
    for (int t = 0; t < threads; ++t)
        h.attach("task_done", { QString::number(t) }, "macro", QString::number(t));
    h.start();
    QList<QThread*> posters;
    for (int t = 0; t < threads; ++t) {
        posters << QThread::create([&l, t] {
            for (int i = 0; i < per_thread; ++i)
                l.raise_event("task_done", { QString::number(i % 2 ? t : t + threads) });
        });
        posters.last()->start();
    }
    // Attachments change while events are being handled.
    for (int i = 0; i < 100; ++i) {
        h.attach("task_done", { "spare" }, "macro", "s");
        h.detach("task_done", { "spare" });
    }
    for (QThread* t : posters) {
        QVERIFY(t->wait(10000));
        delete t;
    }
    QVERIFY(drained(h));
    // Only the odd rounds name an attached ident.
    QCOMPARE(l.seen().size(), threads * per_thread / 2);
    for (int t = 0; t < threads; ++t)
        QCOMPARE(l.seen().count(QStringLiteral("task_done %1 | macro %1").arg(t)), per_thread / 2);
}

void test_events::commands_data()
{
    QTest::addColumn<QStringList>("setup");
    QTest::addColumn<QString>("line");
    QTest::addColumn<bool>("ok");
    QTest::addColumn<QStringList>("shown");
    const auto row = [](const char* name, const QStringList& setup, const QString& line, bool ok,
                         const QStringList& shown) { QTest::newRow(name) << setup << line << ok << shown; };
    const QStringList attached { "events.attach task_done a b --macro=m" };
    // With echo on, the message and the failure outcome; with echo off, silence and success.
    row("attach, echo on", {}, "events.attach scanner_done manual --macro=y", false,
        { "<div>Event handler attached for scanner_done manual</div>" });
    row("attach, echo off", { "echo off" }, "events.attach scanner_done --MACRO=y", true, {});
    row("detach with nothing attached", {}, "events.detach tasks_done", false,
        { "error: Failed to detach event tasks_done with arguments <none>." });
    row("detach names the arguments", attached, "events.detach task_done a", false,
        { "error: Failed to detach event task_done with arguments a." });
    row("detach what is attached", attached, "events.detach task_done a b", true, {});
    row("list: a second attachment with one key replaces the first",
        { "events.attach scanner_done --macro=x", "events.attach scanner_done --macro=z",
            "events.attach scanner_done manual --macro=y", "events.attach tasks_done --macro=t" },
        "events.list", true,
        { "<div><span style='color: blue;'>scanner_done</span>:</div>",
            "<div><div style='margin-left: 20px; color: blue;'>&lt;none&gt;</div>:</div>",
            "<div><div style='margin-left: 40px;'>args: &quot;&quot;, type: &quot;macro&quot;, value: "
            "&quot;z&quot;</div></div>",
            "<div><div style='margin-left: 20px; color: blue;'>manual</div>:</div>",
            "<div><div style='margin-left: 40px;'>args: &quot;manual&quot;, type: &quot;macro&quot;, value: "
            "&quot;y&quot;</div></div>",
            "<div><span style='color: blue;'>tasks_done</span>:</div>",
            "<div><div style='margin-left: 20px; color: blue;'>&lt;none&gt;</div>:</div>",
            "<div><div style='margin-left: 40px;'>args: &quot;&quot;, type: &quot;macro&quot;, value: "
            "&quot;t&quot;</div></div>" });
    row("list after detaching", { "events.attach tasks_done --macro=t", "events.detach tasks_done" }, "events.list",
        true, {});
}

void test_events::commands()
{
    QFETCH(QStringList, setup);
    QFETCH(QString, line);
    QFETCH(bool, ok);
    scripted f;
    for (const QString& l : setup)
        QVERIFY(f.s->run(l));
    const scripting::command_result r = f.run(line);
    // As given to the console: errors as plain text, the rest as HTML.
    QTEST(f.console.lines, "shown");
    QCOMPARE(r.ok, ok);
    QCOMPARE(r.result, ok ? QString() : failure);
}

void test_events::scans_start_macros_and_name_a_missing_one()
{
    scripted f;
    for (const QString& name : QStringList { "bare", "manual", "autostop" })
        record_macro(*f.c, name, { "print fired " + name });
    for (const QString& a : QStringList { "scanner_done --macro=bare", "scanner_done manual --macro=manual",
             "scanner_done autostop --macro=autostop" })
        QVERIFY(f.s->run("events.attach " + a));
    f.console.lines.clear();
    // A scan stopped by hand, then one that ended by itself: the bare attachment fires once for each.
    for (const bool interrupted : { true, false }) {
        QVERIFY(QMetaObject::invokeMethod(f.c.get(), "on_scanner_done", Q_ARG(bool, interrupted)));
        QTRY_VERIFY(f.c->events().idle() && f.c->processor().idle());
    }
    QCOMPARE(fired(f), (QStringList { "fired bare", "fired manual", "fired bare", "fired autostop" }));

    // A missing macro is named; looked up when the event fires, one recorded afterwards runs.
    QVERIFY(f.s->run("events.attach scanner_done --macro=later") && f.s->run("events.detach scanner_done autostop"));
    f.console.lines.clear();
    QVERIFY(QMetaObject::invokeMethod(f.c.get(), "on_scanner_done", Q_ARG(bool, false)));
    QTRY_COMPARE(f.shown(), QStringList { "error: Specified macro later does not exists." });
    record_macro(*f.c, "later", { "print fired later" });
    QVERIFY(QMetaObject::invokeMethod(f.c.get(), "on_scanner_done", Q_ARG(bool, false)));
    QTRY_COMPARE(fired(f), QStringList { "fired later" });
    // The fixture's session goes before the core: nothing may still report to it.
    QTRY_VERIFY(f.c->processor().idle());
}

QTEST_GUILESS_MAIN(test_events)
#include "test_events.moc"
