// Script commands and events: the event thread, the events.* and toolbar commands, the macros that events
// start, and the address assignment's questions.
#include "scripting/event_handler.h"
#include "scripting/event_listener.h"
#include "tests/support/box_answers.h"
#include "tests/support/script_session.h"
#include "ui/dynwidgets_controller.h"
#include "ui/main_window.h"

#include <QtTest>
#include <QtWidgets>

namespace {

// An interactive core, and the addresses its tasks were given.
struct window_core : scripted
{
    window_core()
        : scripted(core::interactive)
    {
    }

    // Addresses of the change_ip tasks composed, in selection order.
    QStringList assigned() const
    {
        QStringList addresses;
        for (const QString& ident : c->selected_lines()) {
            for (const auto& [uuid, t] : line(ident)->tasks()) {
                if (t.name() == tasks::names::change_ip)
                    addresses << t.params().value(tasks::args::address).value<QHostAddress>().toString();
            }
        }
        return addresses;
    }
};

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

} // namespace

class test_window_commands : public QObject
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
    void events_start_macros();
    void assign_addresses_asks_data();
    void assign_addresses_asks();
};

void test_window_commands::keys_match_exactly_data()
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
}

void test_window_commands::keys_match_exactly()
{
    QFETCH(QString, keys);
    QFETCH(bool, fires);
    const QString attached = keys.section(" / ", 0, 0), raised = keys.section(" / ", 1);
    event::handler h;
    recording_listener l;
    l.attach_listener({ "scanner_done", "task_done", "tasks_done", "marker" }, &h);
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

void test_window_commands::listeners_by_name()
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
}

void test_window_commands::busy_while_an_action_runs()
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

void test_window_commands::events_from_many_threads()
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

void test_window_commands::commands_data()
{
    QTest::addColumn<QStringList>("setup");
    QTest::addColumn<QString>("line");
    QTest::addColumn<bool>("ok");
    QTest::addColumn<QStringList>("shown");
    QTest::addColumn<int>("widgets"); // in the toolbar group x afterwards
    const auto row = [](const char* name, const QStringList& setup, const QString& line, bool ok,
                         const QStringList& shown, int widgets = 0) {
        QTest::newRow(name) << setup << line << ok << shown << widgets;
    };
    const QStringList attached { "events.attach task_done a b --macro=m" };
    const QString add = "display.toolbar.x add w ";
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
        { "events.attach scanner_done --macro=x", "events.attach scanner_done --macro=z" },
        "events.list", true,
        { "<div><span style='color: blue;'>scanner_done</span>:</div>",
            "<div><div style='margin-left: 20px; color: blue;'>&lt;none&gt;</div>:</div>",
            "<div><div style='margin-left: 40px;'>args: &quot;&quot;, type: &quot;macro&quot;, value: "
            "&quot;z&quot;</div></div>" });
    row("log shows its text", {}, "log \"shown in the console\"", true,
        { "<div style='font-style: italic; color: green;'>shown in the console</div>" });
    row("an unknown widget type adds nothing", {}, add + "--type=slider", false,
        { "error: Unknown widget type: slider" });
    row("no widget type adds nothing", {}, add + "--label=A", false, { "error: Missing widget type" });
    row("one widget identifier per group", { add + "--type=label" }, add + "--type=button", false,
        { "error: Widget w already exists" }, 1);
    row("a widget edit is clamped to the range",
        { add + "--type=numeric --value=5 --min=1 --max=9", "display.toolbar.x edit w --value=12" },
        "print [${$widget/w/value}]", true, { "<div>[9]</div>" }, 1);
    row("delete takes the caption too", { add + "--type=separator", "display.toolbar.x add v --type=text --label=V" },
        "display.toolbar.x delete v", true, {}, 1);
}

void test_window_commands::commands()
{
    QFETCH(QStringList, setup);
    QFETCH(QString, line);
    QFETCH(bool, ok);
    QFETCH(int, widgets);
    window_core f;
    for (const QString& l : setup)
        QVERIFY(f.s->run(l));
    QCOMPARE(f.run(line).ok, ok);
    QTEST(f.console.lines, "shown"); // as given to the console: errors as plain text, the rest as HTML
    const QList<dynwidgets::controller::widget> group = f.c->widgets()->widgets("x");
    QCOMPARE(group.size(), widgets);
    // What stands on the toolbar is what the group holds: a delete took its widgets away.
    int actions = 0;
    for (const dynwidgets::controller::widget& w : group)
        actions += w.actions.size();
    if (QToolBar* bar = f.c->widgets()->existing_toolbar("x"))
        QCOMPARE(bar->actions().size(), actions);
}

// A scan's end and the user's changes to toolbar widgets start the macros attached to them.
void test_window_commands::events_start_macros()
{
    window_core f;
    for (const QString& name : QStringList { "bare", "manual", "autostop", "mask", "go" })
        record_macro(*f.c, name, { "print fired " + name });
    record_macro(*f.c, "port", { "print fired port ${$widget/widget1/value}" });
    for (const QString& a : QStringList { "scanner_done --macro=bare", "scanner_done manual --macro=manual",
             "scanner_done autostop --macro=autostop", "widget_changed widget1 7 --macro=port",
             "widget_changed widget1 8 --macro=port", "widget_changed mask ab --macro=mask" })
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

    QVERIFY(f.run("display.toolbar.x add --type=numeric --label=Port --value=5 --min=1 --max=9").ok);
    QVERIFY(f.run("display.toolbar.x add mask --type=text").ok);
    QVERIFY(f.run("display.toolbar.x add go --type=button --label=Go --action=macro:go").ok);
    QToolBar* bar = f.c->widgets()->existing_toolbar("x");
    QVERIFY(bar && bar->isVisibleTo(f.c->window()));
    auto* spin = bar->findChild<QSpinBox*>();
    QVERIFY(spin);
    f.console.lines.clear();
    spin->stepBy(2);
    QTRY_COMPARE(fired(f), QStringList { "fired port 7" });
    // A script setting the value is no change by the user.
    QVERIFY(f.s->run("display.toolbar.x edit widget1 --value=8"));
    QTRY_COMPARE(spin->value(), 8); // the run may return on the end of the macro the change fired
    QTest::keyClicks(bar->findChild<QLineEdit*>(), "ab");
    // Changes go through the event thread, a button doesn't: one at a time keeps the order.
    QTRY_COMPARE(fired(f), (QStringList { "fired port 7", "fired mask" }));
    // The toolbar's own extension arrow is a tool button too.
    for (QToolButton* button : bar->findChildren<QToolButton*>()) {
        if (button->text() == "Go")
            button->click();
    }
    QTRY_COMPARE(fired(f), (QStringList { "fired port 7", "fired mask", "fired go" }));
    QTRY_VERIFY(f.c->events().idle() && f.c->processor().idle());
    QCOMPARE(fired(f).size(), 3);
}

void test_window_commands::assign_addresses_asks_data()
{
    QTest::addColumn<int>("rows");
    QTest::addColumn<QList<int>>("answers");
    QTest::addColumn<QStringList>("boxes");
    QTest::addColumn<QString>("error");
    QTest::addColumn<QString>("first");
    const QString lower = "Out of range: Unable to assign addresses for %1 devices from the specified address "
                          "range.\nLower the start address to 192.168.1.%2?";
    QTest::newRow("lowered") << 10 << QList<int> { QMessageBox::Yes } << QStringList { lower.arg(10).arg(245) } << ""
                             << "192.168.1.245";
    QTest::newRow("not lowered") << 10 << QList<int> { QMessageBox::No } << QStringList { lower.arg(10).arg(245) }
                                 << "Start address is out of range." << "";
    QTest::newRow("too many, then out of range")
        << 256 << QList<int> { QMessageBox::Ok, QMessageBox::No }
        << QStringList { "Too many devices: Reduce the number of selected devices by 2.", lower.arg(256).arg(0) }
        << "Start address is out of range." << "";
}

void test_window_commands::assign_addresses_asks()
{
    QFETCH(int, rows);
    QFETCH(QList<int>, answers);
    QFETCH(QString, error);
    QFETCH(QString, first);
    window_core f;
    QVERIFY2(f.rows_at_one_slow_device(rows), qPrintable(f.devices.error()));
    // The box the assignment macro reads its start from.
    QVERIFY(f.run("display.toolbar.scripting add subnet2 --type=numeric --max=255 --value=250").ok);
    box_answers answering([&answers](const QMessageBox&) {
        return answers.isEmpty() ? QMessageBox::NoButton : QMessageBox::StandardButton(answers.takeFirst());
    });
    const scripting::command_result r = f.run("devices.assign_addresses 1 250");
    QTEST(answering.texts(), "boxes");
    QCOMPARE(r.ok, error.isEmpty());
    QCOMPARE(f.shown(), error.isEmpty() ? QStringList {} : QStringList { "error: " + error });
    const QStringList addresses = f.assigned();
    QCOMPARE(addresses.size(), first.isEmpty() ? 0 : rows);
    QCOMPARE(f.c->resolve_variable("widget/subnet2/value"), first.isEmpty() ? "250" : first.section('.', 3));
    if (!first.isEmpty()) {
        QCOMPARE(addresses.first(), first);
        QCOMPARE(addresses.last(), QStringLiteral("192.168.1.254"));
    }
}

QTEST_MAIN(test_window_commands)
#include "test_window_commands.moc"
