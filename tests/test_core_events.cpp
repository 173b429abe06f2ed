// Events as scripts use them: the events.* commands with their messages and outcomes, and the macros that the
// core's own raises (a scan's end, a flow's end, the fleet's end) start through the event thread.
#include "app/core.h"
#include "tests/support/script_session.h"

#include <QtTest>

namespace
{

const QString failure = QStringLiteral("FIXME: dummy result");

} // namespace

class test_core_events : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase() { QStandardPaths::setTestModeEnabled(true); }
    void commands_data();
    void commands();
    void scans_start_macros();
    void a_missing_macro_is_named();
    // Last: the batch core quits the application when its last flow ends, and event loops of this process end at
    // once from then on.
    void the_fleets_end_starts_macros();
};

void test_core_events::commands_data()
{
    QTest::addColumn<QStringList>("setup");
    QTest::addColumn<QString>("line");
    QTest::addColumn<bool>("ok");
    QTest::addColumn<QStringList>("shown");
    // With echo on, the message and the failure outcome; with echo off, silence and success.
    QTest::newRow("attach, echo on") << QStringList {} << "events.attach scanner_done manual --macro=y" << false
                                     << QStringList { "<div>Event handler attached for scanner_done manual</div>" };
    QTest::newRow("attach, echo off") << QStringList { "echo off" } << "events.attach scanner_done --MACRO=y" << true
                                      << QStringList {};
    QTest::newRow("detach with nothing attached")
        << QStringList {} << "events.detach tasks_done" << false
        << QStringList { "error: Failed to detach event tasks_done with arguments <none>." };
    QTest::newRow("detach names the arguments")
        << QStringList { "events.attach task_done a b --macro=m" } << "events.detach task_done a" << false
        << QStringList { "error: Failed to detach event task_done with arguments a." };
    QTest::newRow("detach what is attached") << QStringList { "events.attach task_done a b --macro=m" }
                                             << "events.detach task_done a b" << true << QStringList {};
    QTest::newRow("list: a second attachment with one key replaces the first")
        << QStringList { "events.attach scanner_done --macro=x", "events.attach scanner_done --macro=z",
               "events.attach scanner_done manual --macro=y", "events.attach tasks_done --macro=t" }
        << "events.list" << true
        << QStringList { "<div><span style='color: blue;'>scanner_done</span>:</div>",
               "<div><div style='margin-left: 20px; color: blue;'>&lt;none&gt;</div>:</div>",
               "<div><div style='margin-left: 40px;'>args: &quot;&quot;, type: &quot;macro&quot;, value: "
               "&quot;z&quot;</div></div>",
               "<div><div style='margin-left: 20px; color: blue;'>manual</div>:</div>",
               "<div><div style='margin-left: 40px;'>args: &quot;manual&quot;, type: &quot;macro&quot;, value: "
               "&quot;y&quot;</div></div>",
               "<div><span style='color: blue;'>tasks_done</span>:</div>",
               "<div><div style='margin-left: 20px; color: blue;'>&lt;none&gt;</div>:</div>",
               "<div><div style='margin-left: 40px;'>args: &quot;&quot;, type: &quot;macro&quot;, value: "
               "&quot;t&quot;</div></div>" };
    QTest::newRow("list after detaching")
        << QStringList { "events.attach tasks_done --macro=t", "events.detach tasks_done" } << "events.list" << true
        << QStringList {};
}

void test_core_events::commands()
{
    QFETCH(QStringList, setup);
    QFETCH(QString, line);
    QFETCH(bool, ok);
    QFETCH(QStringList, shown);
    scripted f;
    for (const QString& l : setup)
        QVERIFY(f.s->run(l));
    const scripting::command_result r = f.run(line);
    // As given to the console: errors as plain text, the rest as HTML.
    QCOMPARE(f.console.lines, shown);
    QCOMPARE(r.ok, ok);
    QCOMPARE(r.result, ok ? QString() : failure);
}

void test_core_events::scans_start_macros()
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
}

void test_core_events::a_missing_macro_is_named()
{
    scripted f;
    QVERIFY(f.s->run("events.attach scanner_done --macro=later"));
    f.console.lines.clear();
    QVERIFY(QMetaObject::invokeMethod(f.c.get(), "on_scanner_done", Q_ARG(bool, false)));
    QTRY_COMPARE(f.shown(), QStringList { "error: Specified macro later does not exists." });
    // Looked up when the event fires: recorded afterwards, it runs.
    record_macro(*f.c, "later", { "print fired later" });
    QVERIFY(QMetaObject::invokeMethod(f.c.get(), "on_scanner_done", Q_ARG(bool, false)));
    QTRY_COMPARE(fired(f), QStringList { "fired later" });
    // The fixture's session goes before the core: nothing may still report to it.
    QTRY_VERIFY(f.c->processor().idle());
}

void test_core_events::the_fleets_end_starts_macros()
{
    scripted f;
    // A row whose flow ends at once: nobody listens on its port.
    const QString ident = f.add_row("127.0.0.1", fleet::closed_port());
    for (const QString& name : QStringList { "bare", "flow", "fleet", "gone" })
        record_macro(*f.c, name, { "print fired " + name });
    // A bare task_done never fires: the raise carries the flow's ident.
    for (const QString& a : QStringList { "task_done --macro=bare", "task_done " + ident + " --macro=flow",
             "tasks_done --macro=gone", "tasks_done --macro=fleet" })
        QVERIFY(f.s->run("events.attach " + a));
    QVERIFY(f.s->run("events.attach scanner_done --macro=gone"));
    QVERIFY(f.s->run("events.detach scanner_done"));
    f.console.lines.clear();
    QVERIFY(f.s->run("devices.check fetch all", 20000));
    QTRY_VERIFY(f.c->events().idle() && f.c->processor().idle());
    QVERIFY(QMetaObject::invokeMethod(f.c.get(), "on_scanner_done", Q_ARG(bool, true)));
    QTRY_VERIFY(f.c->events().idle() && f.c->processor().idle());
    QCOMPARE(fired(f), (QStringList { "fired flow", "fired fleet" }));
}

QTEST_GUILESS_MAIN(test_core_events)
#include "test_core_events.moc"
