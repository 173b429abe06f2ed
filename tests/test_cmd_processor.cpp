// The OVScript interpreter on its thread, with a stand-in for the core behind a blocking connection.
#include "scripting/cmd_processor.h"
#include "scripting/cmddb.h"

#include <QtTest>

#include <functional>

using scripting::command_result;
using execution_mode = cmd_processor::execution_mode;

namespace {

const QString end_marker = QStringLiteral("-- end --");

} // namespace

// Records each command it is given, the interpreter's messages in between, and stores
// the outcome set for the command's name, as the core does.
class stand_in : public QObject
{
    Q_OBJECT
public:
    struct call
    {
        uint n = 0;
        size_t total = 0;
        QString name;
        QStringList args;
    };

    stand_in(cmd_processor& p, const scripting::cmddb& db)
        : m_p(p)
        , m_db(db)
    {
        connect(&p, &cmd_processor::command, this, &stand_in::on_command, Qt::BlockingQueuedConnection);
        connect(&p, &cmd_processor::output, this, [this](const QString& m) {
            if (m != end_marker)
                transcript.append("out: " + m);
        });
        connect(&p, &cmd_processor::parse_error, this, [this](QUuid, const QString& m) { transcript.append("error: " + m); });
        connect(&p, &cmd_processor::queue_started, this, [this] { ++started; });
        connect(&p, &cmd_processor::queue_stopped, this, [this] {
            ++stopped;
            if (m_waiting)
                m_waiting->quit();
        });
    }

    // Each step is one script (lines split at "\n") followed by a print, so that every
    // step makes one span of the queue; waits for its end.
    bool run(const QStringList& steps)
    {
        for (const QString& step : steps) {
            QList<QPair<QUuid, QString>> script;
            for (const QString& line : step.split('\n'))
                script.append({ QUuid::createUuid(), line });
            script.append({ QUuid::createUuid(), "^" + end_marker });
            const int before = stopped;
            QEventLoop loop;
            QTimer limit;
            connect(&limit, &QTimer::timeout, &loop, &QEventLoop::quit);
            limit.start(5000);
            m_waiting = &loop;
            m_p.execute_script(script);
            loop.exec();
            m_waiting = nullptr;
            if (stopped == before)
                return false;
        }
        return true;
    }

    QMap<QString, command_result> outcomes; // by command name; any other succeeds
    std::function<void(const call&)> during; // runs inside the slot
    QList<call> calls;
    QStringList transcript;
    int started = 0;
    int stopped = 0;

public slots:
    void on_command(QUuid, uint n, size_t total, QString line, scripting::cmd_id command, QStringList args,
        param_list params, cmd_processor::execution_mode mode)
    {
        const call c { n, total, m_db.command_name(command), args };
        calls.append(c);
        QString text = c.name + " [" + args.join(", ") + "]";
        QStringList pairs;
        for (auto it = params.cbegin(); it != params.cend(); ++it)
            pairs.append(it.key() + ": " + it.value());
        if (!pairs.isEmpty())
            text += " {" + pairs.join(", ") + "}";
        if (mode == execution_mode::substitution)
            text += " (substitution)";
        if (line.startsWith('@'))
            text += " silent";
        transcript.append(text);
        if (during)
            during(c);
        const command_result r = outcomes.value(c.name, command_result::success());
        m_p.set_last_result(r.ok, r.result);
    }

private:
    cmd_processor& m_p;
    const scripting::cmddb& m_db;
    QEventLoop* m_waiting = nullptr;
};

namespace {

// Declared in the order of their lives: the stand-in goes first, so that no command can
// be waiting on it while the interpreter's thread is joined.
struct interpreter
{
    interpreter() { db.build(); }
    scripting::cmddb db;
    cmd_processor p { db };
    stand_in core { p, db };
};

} // namespace

class test_cmd_processor : public QObject
{
    Q_OBJECT
private slots:
    void lines_data();
    void lines();
    void command_holds_the_interpreter();
    void macros_record_and_play();
    void queue_signals_once_per_span();
    void entries_from_other_threads();
    void read_script_file_data();
    void read_script_file();
};

void test_cmd_processor::lines_data()
{
    QTest::addColumn<QStringList>("steps");
    QTest::addColumn<QStringList>("transcript");
    const auto row = [](const char* name, const QStringList& steps, const QStringList& transcript) {
        QTest::newRow(name) << steps << transcript;
    };

    row("assignment, one blank each side", { "a = 1" }, { "out: a set to \"1\"" });
    row("two blanks make a command", { "a  =  1" }, { "error: Unknown command: a" });
    row("alias defined, then used", { "%x print hi", "x there" },
        { "out: x is now alias for \"print hi\"", "print [hi, there]" });
    row("trailing semicolon keeps both", { "version; if(version) then(print y);" },
        { "version []", "version []", "print [y]" });
    row("quotes glue, an open one runs to the end", { "print \"a b\"'c d' \"e f" }, { "print [a bc d, e f]" });
    row("second = ends the value", { "print x --key=a=b --k=1 --k=2" }, { "print [x] {k: 2, key: a}" });
    QStringList chain { "echo off" };
    for (int i = 1; i < 16; ++i)
        chain.append(QString("%a%1 a%2").arg(i).arg(i + 1));
    row("16 alias expansions", chain + QStringList { "%a16 print deep", "a1" }, { "print [deep]" });
    row("17th alias expansion refused", chain + QStringList { "%a16 a17", "%a17 print deep", "a1" },
        { "error: Processing limit reached (aliases)" });
    row("variable of itself still runs", { "a=${a}", "print ${a}" },
        { "out: a set to \"${a}\"", "error: Processing limit reached (variables)", "print [${a}]",
            "out: Variable resolution depth (15) reached for ${a}" });
    row("61 variables in one line", { "a=x", "print " + QString("${a}").repeated(61) },
        { "out: a set to \"x\"", "error: Processing limit reached (variables)",
            "print [" + QString("x").repeated(60) + "${a}]",
            "out: Max amount of variables per line (60) reached for " + QString("${a}").repeated(61) });
    row("unknown variable is empty", { "print a${nope}b" }, { "print [ab]", "out: Variable not found: nope" });
    row("branch alone", { "devices" },
        { "error: Subcommand required for devices. Type devices.? to view available variants." });
    row("devices.?", { "devices.?" },
        { "out: [ <span style=\"color: blue; font-weight: bold;\">devices</span> ]: add, assign_addresses, change_ip, "
          "check, clear, export, import, reboot, reset_configuration, scan" });
    row("hidden nodes work", { "devices.fix", "network.get u" }, { "fix_devices []", "network_get [u]" });
    row("free part moves to the arguments", { "settings.get.Foo", "settings.get.Foo bar" },
        { "settings_get [Foo]", "settings_get [Foo, bar]" });
    row("free part does not count for the minimum", { "settings.set.Foo" },
        { "error: Not enough arguments. Expected: value" });
    row("print marker", { "^ hello" }, { "out: hello" });
    row("silent marker", { "@version" }, { "version [] silent" });
    row("comment and empty line", { "# x\n\n   " }, {});
    const QString nested = QString("if(").repeated(17) + "version" + QString(") then(print)").repeated(17);
    row("faulty statements dropped, script goes on",
        { "version\nbogus x\nprint $(nothing)\nif(version) then(print a) else(bogus)\nsettings.get.a.b\n" + nested
            + "\nprint ok" },
        { "error: Unknown command: bogus", "error: Unknown command: nothing", "error: Unknown command: bogus",
            "error: Unknown subcommand for settings: b", "error: Processing limit reached (nesting)", "version []",
            "print [ok]" });
    row("echo switches assignment messages", { "echo off", "a=1", "echo ON", "b=2" }, { "out: b set to \"2\"" });
    // stop ends its own queue only; the next step's still runs.
    row("stop in a branch", { "if(version) then(stop; print skipped);\nprint after" },
        { "version []", "print [after]" });
    // The branch is then chosen by the last result from before: none yet, a failure.
    row("stop in a condition", { "if(stop) then(print a) else(print b)\nprint after" },
        { "print [b]", "print [after]" });
    // Branches follow the last ok flag, never the result text: caps gives "0" and succeeds, task.list "1" and fails.
    row("branches", { "if(version) then(print y) else(print n)\nif(task.list) then(print y) else(print n)\n"
                      "if(caps) then(print y) else(print n)" },
        { "version []", "print [y]", "list_tasks []", "print [n]", "caps []", "print [y]" });
    row("second recording drops the queue",
        { "macro.record a; macro.record b; print dropped", "macro.stop", "macro.show a" },
        { "out: Already recording", "macro_show [a]" });
    row("name of a finished macro", { "macro.record a", "print x", "macro.stop", "macro.record a" },
        { "out: Name already exists" });
    row("empty recording leaves no macro", { "macro.record a", "macro.stop", "macro.run a" },
        { "out: No such recording" });
    row("two sub-commands in order", { "print v=$(version), c=$(caps) $(version)" },
        { "version [] (substitution)", "caps [] (substitution)", "version [] (substitution)",
            "print [v=0.5,, c=0, 0.5]" });
    row("a failed sub-command gives its result too", { "print [$(task.list)]" },
        { "list_tasks [] (substitution)", "print [[1]]" });
}

void test_cmd_processor::lines()
{
    QFETCH(QStringList, steps);
    interpreter t;
    t.core.outcomes = { { "version", { true, "0.5" } }, { "caps", { true, "0" } }, { "list_tasks", { false, "1" } },
        { "print", { true, "a b" } } };
    QVERIFY(t.core.run(steps));
    QTEST(t.core.transcript, "transcript");
}

void test_cmd_processor::command_holds_the_interpreter()
{
    scripting::cmddb db;
    db.build();
    cmd_processor p(db);
    QElapsedTimer clock;
    clock.start();
    // Direct connections run on the interpreter thread, at the moment it emits or parses;
    // the first is made before the stand-in's, so it sees each command as it leaves.
    QMutex times_mutex;
    QList<qint64> emitted;
    qint64 typed_parsed = -1;
    connect(&p, &cmd_processor::command, this, [&] { QMutexLocker l(&times_mutex); emitted.append(clock.elapsed()); },
        Qt::DirectConnection);
    connect(&p, &cmd_processor::parse_error, this, [&] { QMutexLocker l(&times_mutex); typed_parsed = clock.elapsed(); },
        Qt::DirectConnection);
    stand_in core(p, db);
    qint64 first_ended = -1;
    core.during = [&](const stand_in::call& c) {
        if (c.name != "sleep")
            return;
        p.execute_line(QUuid::createUuid(), "typed_meanwhile");
        QThread::msleep(300);
        first_ended = clock.elapsed();
    };

    QVERIFY(core.run({ "sleep 1\nversion" }));
    QMutexLocker l(&times_mutex);
    QCOMPARE(emitted.size(), 2);
    // The next command leaves only after the slot has returned...
    QVERIFY2(emitted[1] >= first_ended, qPrintable(QString("%1 < %2").arg(emitted[1]).arg(first_ended)));
    QVERIFY2(emitted[1] - emitted[0] >= 290, qPrintable(QString::number(emitted[1] - emitted[0])));
    // ...and the line typed meanwhile is parsed after that.
    QVERIFY(typed_parsed >= first_ended);
    QCOMPARE(core.transcript, (QStringList { "sleep [1]", "version []", "error: Unknown command: typed_meanwhile" }));
}

void test_cmd_processor::macros_record_and_play()
{
    interpreter t;
    QStringList recording;
    int playing = 0;
    connect(&t.p, &cmd_processor::macro_recording_started, this, [&](const QString& name) { recording.append(name); });
    connect(&t.p, &cmd_processor::macro_playback_started, this, [&] { ++playing; });
    QStringList shown;
    t.core.during = [&](const stand_in::call& c) {
        if (c.name == "macro_show")
            shown = t.p.recorder().lines(c.args.value(0));
        else if (c.name == "macro_list")
            shown = t.p.recorder().names();
    };

    // Recorded lines are stored as typed, before resolution, and not run.
    QVERIFY(t.core.run({ "macro.record m", "print ${x}", "vars; a=1", "macro.stop" }));
    QCOMPARE(t.core.transcript, QStringList { "out: a set to \"1\"" });
    QCOMPARE(recording, QStringList { "m" });

    QVERIFY(t.core.run({ "macro.show m" }));
    QCOMPARE(shown, (QStringList { "print ${x}", "vars" }));
    QVERIFY(t.core.run({ "macro.list" }));
    QCOMPARE(shown, QStringList { "m" });

    // Played lines go through the input queue, so they follow what is already queued.
    t.core.transcript.clear();
    QVERIFY(t.core.run({ "x=1; macro.run m; print after" }));
    QCOMPARE(t.core.transcript, (QStringList { "out: x set to \"1\"", "print [after]", "print [1]", "vars []" }));
    QCOMPARE(playing, 1);
}

void test_cmd_processor::queue_signals_once_per_span()
{
    interpreter t;
    // A new span counts from the start again.
    QVERIFY(t.core.run({ "version\n^ not counted\nversion\nprint x; version", "version" }));
    QCOMPARE(t.core.started, 2);
    QCOMPARE(t.core.stopped, 2);
    QStringList counts; // n of total
    for (const auto& c : qAsConst(t.core.calls))
        counts << QStringLiteral("%1/%2").arg(c.n).arg(c.total);
    QCOMPARE(counts, (QStringList { "1/4", "2/4", "3/4", "4/4", "1/1" }));
}

void test_cmd_processor::entries_from_other_threads()
{
    interpreter t;
    // While a command runs, built entries and prints queue behind it.
    t.core.during = [&](const stand_in::call& c) {
        if (c.name != "version")
            return;
        t.p.queue_entry(scripting::command_entry, "print built", { QString(), 53 }, { "built" }, {});
        t.p.queue_print("printed");
    };
    QVERIFY(t.core.run({ "version; print queued" }));
    QCOMPARE(t.core.transcript, (QStringList { "version []", "print [queued]", "print [built]", "out: printed" }));
    QCOMPARE(t.core.calls.value(2).total, size_t(3));

    t.core.transcript.clear();
    QVERIFY(t.core.run({ "echo off" }));
    t.p.queue_print("not shown");
    QVERIFY(t.core.run({ "echo on" }));
    QCOMPARE(t.core.transcript, QStringList {});
}

void test_cmd_processor::read_script_file_data()
{
    QTest::addColumn<QByteArray>("content");
    QTest::addColumn<QStringList>("lines");
    QTest::newRow("CRLF") << QByteArray("a\r\nb\r\n") << QStringList { "a", "b" };
    QTest::newRow("cut at NUL, next line kept") << QByteArray("print a\0junk\nprint b", 20)
                                                << QStringList { "print a", "print b" };
    QTest::newRow("UTF-8") << QByteArray("print \xd0\xbf\xd1\x80\xd0\xb8\n") << QStringList { "print при" };
}

void test_cmd_processor::read_script_file()
{
    QFETCH(QByteArray, content);
    QTemporaryDir dir;
    const QString path = dir.filePath("s.ovscript");
    QFile f(path);
    QVERIFY(f.open(QIODevice::WriteOnly));
    f.write(content);
    f.close();
    const cmd_processor::script_file read = cmd_processor::read_script_file(path);
    QVERIFY(read.ok);
    QTEST(read.lines, "lines");

    const cmd_processor::script_file missing = cmd_processor::read_script_file(dir.filePath("none.ovscript"));
    QVERIFY(!missing.ok);
    QVERIFY(!missing.error.isEmpty());
    QVERIFY(missing.lines.isEmpty());
}

QTEST_GUILESS_MAIN(test_cmd_processor)
#include "test_cmd_processor.moc"
