// The interpreter on its own thread, with a test object standing in for the core behind
// the blocking connection.
#include "scripting/cmd_processor.h"

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
        QString line;
        QString name;
        QStringList args;
        param_list params;
        execution_mode mode = execution_mode::plain;
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
        const call c { n, total, line, m_db.command_name(command), args, params, mode };
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
    void condition_follows_last_ok_data();
    void condition_follows_last_ok();
    void substitution_data();
    void substitution();
    void macros_record_and_play();
    void macro_refusals_data();
    void macro_refusals();
    void recorder_refusals();
    void queue_signals_once_per_span();
    void entries_from_other_threads();
    void variables_keep_history();
    void handlers_get_the_split_path();
    void read_script_file_data();
    void read_script_file();
};

void test_cmd_processor::lines_data()
{
    QTest::addColumn<QStringList>("steps");
    QTest::addColumn<QStringList>("transcript");

    const QString root = "[ <span style=\"color: blue; font-weight: bold;\"></span> ]: aliases, caps, clean, clear, client, "
                         "devices, download_file, echo, events, exit, log, macro, notify, pack, plugins, print, report, script, "
                         "settings, sleep, stop, task, url_contents, vars, version";
    QTest::newRow("assignment") << QStringList { "a=1" } << QStringList { "out: a set to \"1\"" };
    QTest::newRow("assignment, one blank each side") << QStringList { "a = 1" } << QStringList { "out: a set to \"1\"" };
    QTest::newRow("two blanks make a command") << QStringList { "a  =  1" } << QStringList { "error: Unknown command: a" };
    QTest::newRow("assignment keeps $() raw") << QStringList { "a=$(version)" } << QStringList { "out: a set to \"$(version)\"" };
    QTest::newRow("alias defined, then used") << QStringList { "%x print hi", "x there" }
                                              << QStringList { "out: x is now alias for \"print hi\"", "print [hi, there]" };
    QTest::newRow("alias after a tab and no blank")
        << QStringList { "%x\tprint" } << QStringList { "out: x\tprint is now alias for \"%x\tprint\"" };
    QTest::newRow("trailing semicolon keeps both") << QStringList { "version; if(version) then(print y);" }
                                                   << QStringList { "version []", "version []", "print [y]" };
    QTest::newRow("quoted parameter value") << QStringList { "print x --key=\"a b\" --flag" }
                                            << QStringList { "print [x] {flag: , key: a b}" };
    QTest::newRow("second = ends the value") << QStringList { "print x --key=a=b --k=1 --k=2" }
                                             << QStringList { "print [x] {k: 2, key: a}" };
    QStringList chain { "echo off" };
    for (int i = 1; i < 16; ++i)
        chain.append(QString("%a%1 a%2").arg(i).arg(i + 1));
    QTest::newRow("16 alias expansions") << (chain + QStringList { "%a16 print deep", "a1" }) << QStringList { "print [deep]" };
    QTest::newRow("17th alias expansion refused")
        << (chain + QStringList { "%a16 a17", "%a17 print deep", "a1" })
        << QStringList { "error: Processing limit reached (aliases)" };
    QTest::newRow("variable of itself still runs")
        << QStringList { "a=${a}", "print ${a}" }
        << QStringList { "out: a set to \"${a}\"", "error: Processing limit reached (variables)", "print [${a}]",
               "out: Variable resolution depth (15) reached for ${a}" };
    QTest::newRow("61 variables in one line")
        << QStringList { "a=x", "print " + QString("${a}").repeated(61) }
        << QStringList { "out: a set to \"x\"", "error: Processing limit reached (variables)",
               "print [" + QString("x").repeated(60) + "${a}]",
               "out: Max amount of variables per line (60) reached for " + QString("${a}").repeated(61) };
    QTest::newRow("variable in a parameter") << QStringList { "echo off", "v=1", "print x --k=${v}" }
                                             << QStringList { "print [x] {k: 1}" };
    QTest::newRow("unknown variable is empty") << QStringList { "print a${nope}b" }
                                               << QStringList { "print [ab]", "out: Variable not found: nope" };
    QTest::newRow("branch alone") << QStringList { "devices" }
                                  << QStringList { "error: Subcommand required for devices. Type devices.? to view available variants." };
    QTest::newRow("unknown subcommand") << QStringList { "devices.frob" }
                                        << QStringList { "error: Unknown subcommand for devices: frob" };
    QTest::newRow("devices.?") << QStringList { "devices.?" }
                               << QStringList { "out: [ <span style=\"color: blue; font-weight: bold;\">devices</span> ]: add, "
                                                "assign_addresses, change_ip, check, clear, export, import, reboot, "
                                                "reset_configuration, scan" };
    QTest::newRow("? leaves display out") << QStringList { "?" } << QStringList { "out: " + root };
    QTest::newRow("settings.get.? names the free part")
        << QStringList { "settings.get.?" }
        << QStringList { "out: [ <span style=\"color: blue; font-weight: bold;\">settings.get</span> ]: "
                         "&lt;argument as the next subcommand&gt;" };
    QTest::newRow("help of a leaf") << QStringList { "version.?" }
                                    << QStringList { "out: <span style=\"color: gray;\">No subcommands</span>" };
    QTest::newRow("help of an unknown name") << QStringList { "nothing.?" }
                                             << QStringList { "error: Unknown command: nothing.?" };
    QTest::newRow("hidden nodes work") << QStringList { "devices.fix", "network.get u" }
                                       << QStringList { "fix_devices []", "network_get [u]" };
    QTest::newRow("command and branch") << QStringList { "aliases", "aliases.remove x" }
                                        << QStringList { "aliases []", "remove_alias [x]" };
    QTest::newRow("free part moves to the arguments") << QStringList { "settings.get.Foo", "settings.get.Foo bar" }
                                                      << QStringList { "settings_get [Foo]", "settings_get [Foo, bar]" };
    QTest::newRow("free part does not count for the minimum")
        << QStringList { "settings.set.Foo" } << QStringList { "error: Not enough arguments. Expected: value" };
    QTest::newRow("bare devices.add") << QStringList { "devices.add" }
                                      << QStringList { "error: Not enough arguments. Expected: host, [port], [user], [password]" };
    QTest::newRow("surplus arguments pass") << QStringList { "version a b" } << QStringList { "version [a, b]" };
    QTest::newRow("print marker") << QStringList { "^ hello" } << QStringList { "out: hello" };
    QTest::newRow("silent marker") << QStringList { "@version" } << QStringList { "version [] silent" };
    QTest::newRow("comment and empty line") << QStringList { "# x\n\n   " } << QStringList {};
    QTest::newRow("faulty statement dropped, script goes on")
        << QStringList { "version\nbogus x\nprint ok" } << QStringList { "error: Unknown command: bogus", "version []", "print [ok]" };
    QTest::newRow("echo switches assignment messages")
        << QStringList { "echo off", "a=1", "echo ON", "b=2" } << QStringList { "out: b set to \"2\"" };
    QTest::newRow("echo with a word it doesn't know") << QStringList { "echo maybe" }
                                                      << QStringList { "out: Unsupported value: maybe" };
    // stop ends its own queue only; the next step's still runs.
    QTest::newRow("stop in a branch") << QStringList { "if(version) then(stop; print skipped);\nprint after" }
                                      << QStringList { "version []", "print [after]" };
    // The branch is then chosen by the last result from before: none yet, a failure.
    QTest::newRow("stop in a condition") << QStringList { "if(stop) then(print a) else(print b)\nprint after" }
                                         << QStringList { "print [b]", "print [after]" };
    QTest::newRow("stop at the top") << QStringList { "version; stop; print never\nprint never", "print next" }
                                     << QStringList { "version []", "print [next]" };
}

void test_cmd_processor::lines()
{
    QFETCH(QStringList, steps);
    interpreter t;
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

void test_cmd_processor::condition_follows_last_ok_data()
{
    QTest::addColumn<bool>("ok");
    QTest::addColumn<QString>("result");
    QTest::addColumn<QString>("line");
    QTest::addColumn<QStringList>("transcript");
    const QString both = "if(task.list) then(print yes) else(print no)";
    QTest::newRow("success takes then") << true << "" << both << QStringList { "list_tasks []", "print [yes]" };
    QTest::newRow("failure takes else") << false << "" << both << QStringList { "list_tasks []", "print [no]" };
    QTest::newRow("a result text of 0 is still success") << true << "0" << both << QStringList { "list_tasks []", "print [yes]" };
    QTest::newRow("a result text of 1 is still failure") << false << "1" << both << QStringList { "list_tasks []", "print [no]" };
    QTest::newRow("failure without else does nothing")
        << false << "" << "if(task.list) then(print yes)" << QStringList { "list_tasks []" };
    QTest::newRow("several statements in a branch")
        << true << "" << "if(task.list) then(print a; print b);" << QStringList { "list_tasks []", "print [a]", "print [b]" };
    QTest::newRow("print marker in a branch")
        << true << "" << "if(task.list) then(^ shown)" << QStringList { "list_tasks []", "out: shown" };
}

void test_cmd_processor::condition_follows_last_ok()
{
    QFETCH(bool, ok);
    QFETCH(QString, result);
    QFETCH(QString, line);
    QFETCH(QStringList, transcript);
    interpreter t;
    t.core.outcomes.insert("list_tasks", { ok, result });
    // The next line runs whichever branch was taken.
    QVERIFY(t.core.run({ line + "\nprint after" }));
    QCOMPARE(t.core.transcript, transcript + QStringList { "print [after]" });
}

void test_cmd_processor::substitution_data()
{
    QTest::addColumn<QString>("line");
    QTest::addColumn<QStringList>("transcript");
    QTest::newRow("result replaces the placeholder")
        << "print $(version)" << QStringList { "version [] (substitution)", "print [0.5]" };
    QTest::newRow("two sub-commands in order")
        << "print v=$(version), c=$(caps) $(version)"
        << QStringList { "version [] (substitution)", "caps [] (substitution)", "version [] (substitution)",
               "print [v=0.5,, c=none, 0.5]" };
    QTest::newRow("a failed sub-command gives its result too")
        << "print [$(task.list)]" << QStringList { "list_tasks [] (substitution)", "print [[FIXME: dummy result]]" };
    QTest::newRow("sub-command with arguments") << "log $(print a b)"
                                                << QStringList { "print [a, b] (substitution)", "log [a b]" };
}

void test_cmd_processor::substitution()
{
    QFETCH(QString, line);
    interpreter t;
    t.core.outcomes = { { "version", { true, "0.5" } }, { "caps", { true, "none" } },
        { "list_tasks", command_result::failure() }, { "print", { true, "a b" } } };
    QVERIFY(t.core.run({ line }));
    QTEST(t.core.transcript, "transcript");
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

void test_cmd_processor::macro_refusals_data()
{
    QTest::addColumn<QStringList>("steps");
    QTest::addColumn<QStringList>("transcript");
    QTest::addColumn<bool>("recording");
    QTest::newRow("stop while idle") << QStringList { "macro.stop" } << QStringList { "out: No active recording" } << false;
    QTest::newRow("second recording drops the queue")
        << QStringList { "macro.record a; macro.record b; print dropped", "macro.stop", "macro.show a" }
        << QStringList { "out: Already recording", "macro_show [a]" } << false;
    QTest::newRow("empty recording leaves no macro")
        << QStringList { "macro.record a", "macro.stop", "macro.run a" } << QStringList { "out: No such recording" } << false;
    QTest::newRow("name of a finished macro")
        << QStringList { "macro.record a", "print x", "macro.stop", "macro.record a" }
        << QStringList { "out: Name already exists" } << false;
    QTest::newRow("empty name") << QStringList { "macro.record \"\"" } << QStringList { "out: Empty name is not allowed" }
                                << false;
    QTest::newRow("run while recording is stored")
        << QStringList { "macro.record a", "macro.run nothing", "echo off" } << QStringList {} << true;
}

void test_cmd_processor::macro_refusals()
{
    QFETCH(QStringList, steps);
    QFETCH(bool, recording);
    interpreter t;
    QVERIFY(t.core.run(steps));
    QTEST(t.core.transcript, "transcript");
    QCOMPARE(t.p.recorder().is_recording(), recording);
    if (recording)
        QCOMPARE(t.p.recorder().lines("a"), QStringList { "macro.run nothing" });
}

void test_cmd_processor::recorder_refusals()
{
    scripting::macro_recorder r;
    QSignalSpy errors(&r, &scripting::macro_recorder::error);
    QSignalSpy lines(&r, &scripting::macro_recorder::macro_line);
    QVERIFY(!r.add_line("x"));
    QVERIFY(r.start_recording("m"));
    QVERIFY(r.add_line("one"));
    QVERIFY(!r.play("m"));
    QVERIFY(!r.remove("m"));
    QVERIFY(r.stop_recording());
    QVERIFY(r.lines("none").isEmpty());
    QVERIFY(!r.remove("none"));
    QVERIFY(r.play("m"));
    QVERIFY(r.remove("m"));
    QVERIFY(!r.exists("m"));
    QStringList messages;
    for (const auto& e : qAsConst(errors))
        messages.append(e[0].toString());
    QCOMPARE(messages, (QStringList { "No active recording", "Macro already running", "Can't remove while recording",
                           "No such recording", "No such recording" }));
    QCOMPARE(lines.count(), 1);
}

void test_cmd_processor::queue_signals_once_per_span()
{
    interpreter t;
    QVERIFY(t.core.run({ "version\n^ not counted\nversion\nprint x; version" }));
    QCOMPARE(t.core.started, 1);
    QCOMPARE(t.core.stopped, 1);
    QList<uint> n;
    QList<size_t> totals;
    for (const auto& c : qAsConst(t.core.calls)) {
        n.append(c.n);
        totals.append(c.total);
    }
    QCOMPARE(n, (QList<uint> { 1, 2, 3, 4 }));
    QCOMPARE(totals, (QList<size_t> { 4, 4, 4, 4 }));

    // A new span counts from the start again.
    QVERIFY(t.core.run({ "version" }));
    QCOMPARE(t.core.started, 2);
    QCOMPARE(t.core.stopped, 2);
    QCOMPARE(t.core.calls.last().n, 1u);
    QCOMPARE(t.core.calls.last().total, size_t(1));
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

void test_cmd_processor::variables_keep_history()
{
    interpreter t;
    QVERIFY(t.core.run({ "echo off", "a=1", "a=2", "a=2", "b=x" }));
    const auto vars = t.p.variables();
    QCOMPARE(vars.value("a").value, QStringLiteral("2"));
    QCOMPARE(vars.value("a").history, QStringList { "1" });
    QVERIFY(vars.value("a").modified >= vars.value("a").created);
    QVERIFY(t.p.variable("b").found);
    QVERIFY(t.p.remove_variable("b"));
    QVERIFY(!t.p.remove_variable("b"));
    QVERIFY(!t.p.variable("b").found);
}

void test_cmd_processor::handlers_get_the_split_path()
{
    interpreter t;
    QList<QStringList> asked;
    t.p.register_var_handler({ "\\$\\{\\$([\\w|\\/]+)\\}", "\\/", [&](const QStringList& path) {
                                  asked.append(path);
                                  if (path.value(0) == "nested")
                                      return cmd_processor::var_handler_resp { true, "${$leaf/x}" };
                                  return cmd_processor::var_handler_resp { path.value(0) != "none", path.join('+') };
                              } });
    QVERIFY(t.core.run({ "print ${$a/b/c} ${$nested} ${$none/x}" }));
    QCOMPARE(t.core.transcript, (QStringList { "print [a+b+c, leaf+x, ]", "out: Variable not found: none/x" }));
    QCOMPARE(asked, (QList<QStringList> { { "a", "b", "c" }, { "nested" }, { "leaf", "x" }, { "none", "x" } }));
}

void test_cmd_processor::read_script_file_data()
{
    QTest::addColumn<QByteArray>("content");
    QTest::addColumn<QStringList>("lines");
    QTest::newRow("no final line feed") << QByteArray("a\nb") << QStringList { "a", "b" };
    QTest::newRow("CRLF") << QByteArray("a\r\nb\r\n") << QStringList { "a", "b" };
    QTest::newRow("cut at NUL, next line kept") << QByteArray("print a\0junk\nprint b", 20)
                                                << QStringList { "print a", "print b" };
    QTest::newRow("UTF-8") << QByteArray("print \xd0\xbf\xd1\x80\xd0\xb8\n") << QStringList { "print при" };
    QTest::newRow("empty lines stay") << QByteArray("a\n\nb\n") << QStringList { "a", "", "b" };
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
