// OVScript's parse stage, and the interpreter on its thread with a stand-in for the core behind a blocking connection.
#include "scripting/cmd_processor.h"
#include "scripting/cmddb.h"
#include "scripting/statement_parser.h"
#include "scripting/wait.h"

#include <QNetworkDatagram>
#include <QUdpSocket>
#include <QtTest>

#include <functional>

using scripting::cmd_id;
using scripting::command_result;
using scripting::input_line;
using scripting::queue_entry;
using scripting::statement_parser;
using execution_mode = cmd_processor::execution_mode;

namespace {

const QString end_marker = QStringLiteral("-- end --");

QStringList texts(const QList<input_line>& pieces)
{
    QStringList out;
    for (const input_line& p : pieces)
        out.append(p.text);
    return out;
}

// Every node of the tree that runs a command, with its dotted path ("(any)" for the empty name).
void walk(const scripting::cmddb::tree& level, const QString& path, QMap<QString, scripting::tree_node>& out)
{
    for (auto it = level.cbegin(); it != level.cend(); ++it) {
        const QString here = (path.isEmpty() ? QString() : path + '.') + (it.key().isEmpty() ? "(any)" : it.key());
        out.insert(here, *it);
        walk(it->children, here, out);
    }
}

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
    void initTestCase();
    void lines_data();
    void lines();
    void command_holds_the_interpreter();
    void macros_record_and_play();
    void macro_refusals_data();
    void macro_refusals();
    void recorder_refusals();
    void queue_signals_once_per_span();
    void entries_from_other_threads();
    void handlers_get_the_split_path();
    void read_script_file_data();
    void read_script_file();
    void split_data();
    void split();
    void split_idents();
    void tokenize_data();
    void tokenize();
    void entries_data();
    void entries();
    void cmd_id_text_data();
    void cmd_id_text();
    void tree_and_table_agree();
    void rows_that_parsing_relies_on();
    void waits_serve_sockets();

private:
    scripting::cmddb m_db;
};

void test_cmd_processor::lines_data()
{
    QTest::addColumn<QStringList>("steps");
    QTest::addColumn<QStringList>("transcript");
    const auto row = [](const char* name, const QStringList& steps, const QStringList& transcript) {
        QTest::newRow(name) << steps << transcript;
    };

    const QString root
        = "[ <span style=\"color: blue; font-weight: bold;\"></span> ]: aliases, caps, clean, clear, client, "
          "devices, download_file, echo, events, exit, log, macro, notify, pack, plugins, print, report, script, "
          "settings, sleep, stop, task, url_contents, vars, version";
    row("assignment", { "a=1" }, { "out: a set to \"1\"" });
    row("assignment, one blank each side", { "a = 1" }, { "out: a set to \"1\"" });
    row("two blanks make a command", { "a  =  1" }, { "error: Unknown command: a" });
    row("assignment keeps $() raw", { "a=$(version)" }, { "out: a set to \"$(version)\"" });
    row("alias defined, then used", { "%x print hi", "x there" },
        { "out: x is now alias for \"print hi\"", "print [hi, there]" });
    row("alias after a tab and no blank", { "%x\tprint" }, { "out: x\tprint is now alias for \"%x\tprint\"" });
    row("trailing semicolon keeps both", { "version; if(version) then(print y);" },
        { "version []", "version []", "print [y]" });
    row("quoted parameter value", { "print x --key=\"a b\" --flag" }, { "print [x] {flag: , key: a b}" });
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
    row("variable in a parameter", { "echo off", "v=1", "print x --k=${v}" }, { "print [x] {k: 1}" });
    row("unknown variable is empty", { "print a${nope}b" }, { "print [ab]", "out: Variable not found: nope" });
    row("branch alone", { "devices" },
        { "error: Subcommand required for devices. Type devices.? to view available variants." });
    row("unknown subcommand", { "devices.frob" }, { "error: Unknown subcommand for devices: frob" });
    row("devices.?", { "devices.?" },
        { "out: [ <span style=\"color: blue; font-weight: bold;\">devices</span> ]: add, assign_addresses, change_ip, "
          "check, clear, export, import, reboot, reset_configuration, scan" });
    row("? leaves display out", { "?" }, { "out: " + root });
    row("settings.get.? names the free part", { "settings.get.?" },
        { "out: [ <span style=\"color: blue; font-weight: bold;\">settings.get</span> ]: "
          "&lt;argument as the next subcommand&gt;" });
    row("help of a leaf", { "version.?" }, { "out: <span style=\"color: gray;\">No subcommands</span>" });
    row("help of an unknown name", { "nothing.?" }, { "error: Unknown command: nothing.?" });
    row("hidden nodes work", { "devices.fix", "network.get u" }, { "fix_devices []", "network_get [u]" });
    row("command and branch", { "aliases", "aliases.remove x" }, { "aliases []", "remove_alias [x]" });
    row("free part moves to the arguments", { "settings.get.Foo", "settings.get.Foo bar" },
        { "settings_get [Foo]", "settings_get [Foo, bar]" });
    row("free part does not count for the minimum", { "settings.set.Foo" },
        { "error: Not enough arguments. Expected: value" });
    row("bare devices.add", { "devices.add" },
        { "error: Not enough arguments. Expected: host, [port], [user], [password]" });
    row("surplus arguments pass", { "version a b" }, { "version [a, b]" });
    row("print marker", { "^ hello" }, { "out: hello" });
    row("silent marker", { "@version" }, { "version [] silent" });
    row("comment and empty line", { "# x\n\n   " }, {});
    row("faulty statement dropped, script goes on", { "version\nbogus x\nprint ok" },
        { "error: Unknown command: bogus", "version []", "print [ok]" });
    row("echo switches assignment messages", { "echo off", "a=1", "echo ON", "b=2" }, { "out: b set to \"2\"" });
    row("echo with a word it doesn't know", { "echo maybe" }, { "out: Unsupported value: maybe" });
    // stop ends its own queue only; the next step's still runs.
    row("stop in a branch", { "if(version) then(stop; print skipped);\nprint after" },
        { "version []", "print [after]" });
    // The branch is then chosen by the last result from before: none yet, a failure.
    row("stop in a condition", { "if(stop) then(print a) else(print b)\nprint after" },
        { "print [b]", "print [after]" });
    row("stop at the top", { "version; stop; print never\nprint never", "print next" },
        { "version []", "print [next]" });
    // Branches follow the last ok flag, never the result text: caps gives "0" and succeeds, task.list "1" and fails.
    row("success takes then", { "if(version) then(print yes) else(print no)\nprint after" },
        { "version []", "print [yes]", "print [after]" });
    row("failure takes else", { "if(task.list) then(print yes) else(print no)" }, { "list_tasks []", "print [no]" });
    row("a result text of 0 is still success", { "if(caps) then(print yes) else(print no)" },
        { "caps []", "print [yes]" });
    row("failure without else does nothing", { "if(task.list) then(print yes)\nprint after" },
        { "list_tasks []", "print [after]" });
    row("several statements in a branch", { "if(version) then(print a; print b);" },
        { "version []", "print [a]", "print [b]" });
    row("print marker in a branch", { "if(version) then(^ shown)" }, { "version []", "out: shown" });
    row("result replaces the placeholder", { "print $(version)" }, { "version [] (substitution)", "print [0.5]" });
    row("two sub-commands in order", { "print v=$(version), c=$(caps) $(version)" },
        { "version [] (substitution)", "caps [] (substitution)", "version [] (substitution)",
            "print [v=0.5,, c=0, 0.5]" });
    row("a failed sub-command gives its result too", { "print [$(task.list)]" },
        { "list_tasks [] (substitution)", "print [[1]]" });
    row("sub-command with arguments", { "log $(print a b)" }, { "print [a, b] (substitution)", "log [a b]" });
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

void test_cmd_processor::macro_refusals_data()
{
    QTest::addColumn<QStringList>("steps");
    QTest::addColumn<QStringList>("transcript");
    QTest::addColumn<bool>("recording");
    const auto refused = [](const char* name, const QStringList& steps, const QString& message) {
        QTest::newRow(name) << steps << QStringList { "out: " + message } << false;
    };
    refused("stop while idle", { "macro.stop" }, "No active recording");
    QTest::newRow("second recording drops the queue")
        << QStringList { "macro.record a; macro.record b; print dropped", "macro.stop", "macro.show a" }
        << QStringList { "out: Already recording", "macro_show [a]" } << false;
    refused("empty recording leaves no macro", { "macro.record a", "macro.stop", "macro.run a" }, "No such recording");
    refused("name of a finished macro", { "macro.record a", "print x", "macro.stop", "macro.record a" },
        "Name already exists");
    refused("empty name", { "macro.record \"\"" }, "Empty name is not allowed");
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
    // What commands can't reach: a recording is never played nor removed, nor is a line added without one.
    scripting::macro_recorder r;
    QSignalSpy errors(&r, &scripting::macro_recorder::error);
    QVERIFY(!r.add_line("x"));
    QVERIFY(r.start_recording("m") && r.add_line("one"));
    QVERIFY(!r.play("m") && !r.remove("m"));
    QVERIFY(r.stop_recording() && !r.remove("none"));
    QVERIFY(r.play("m") && r.remove("m") && !r.exists("m"));
    QStringList messages;
    for (const auto& e : qAsConst(errors))
        messages.append(e[0].toString());
    QCOMPARE(messages, (QStringList { "No active recording", "Macro already running", "Can't remove while recording",
                           "No such recording" }));
}

void test_cmd_processor::queue_signals_once_per_span()
{
    interpreter t;
    QVERIFY(t.core.run({ "version\n^ not counted\nversion\nprint x; version" }));
    QCOMPARE(t.core.started, 1);
    QCOMPARE(t.core.stopped, 1);
    // A new span counts from the start again.
    QVERIFY(t.core.run({ "version" }));
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

void test_cmd_processor::initTestCase()
{
    m_db.build();
}

void test_cmd_processor::split_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<QStringList>("pieces");
    QTest::newRow("no semicolon, text as it is") << " print  a " << QStringList { " print  a " };
    QTest::newRow("two statements") << "a; b c" << QStringList { "a", "b c" };
    QTest::newRow("conditional last is dropped") << "a; if(x) then(y)" << QStringList { "a" };
    QTest::newRow("trailing semicolon keeps it") << "a; if(x) then(y);" << QStringList { "a", "if(x) then(y)" };
    QTest::newRow("semicolon inside a keyword block") << "if(a;b) then(c;d);" << QStringList { "if(a;b) then(c;d)" };
    QTest::newRow("lone conditional with inner semicolon vanishes") << "if(a;b) then(c)" << QStringList {};
    QTest::newRow("plain parentheses split") << "x(a;b)" << QStringList { "x(a" };
    QTest::newRow("keyword must be the whole run") << "a; x if(b;c);" << QStringList { "a", "x if(b", "c)" };
    QTest::newRow("last piece from its last run") << "a; x(y) z" << QStringList { "a", "z" };
    QTest::newRow("empty statement between") << "a;;b" << QStringList { "a", "", "b" };
    QTest::newRow("multibyte text") << "печать б; в г" << QStringList { "печать б", "в г" };
}

void test_cmd_processor::split()
{
    QFETCH(QString, text);
    const input_line line { QUuid::createUuid(), QUuid::createUuid(), text };
    QTEST(texts(statement_parser::split(line)), "pieces");
}

void test_cmd_processor::split_idents()
{
    // A whole line keeps its ident; pieces get idents of their own, all in the line's group.
    const input_line whole { QUuid::createUuid(), QUuid::createUuid(), "version" };
    QCOMPARE(statement_parser::split(whole).value(0).ident, whole.ident);
    QSet<QUuid> idents { whole.ident };
    for (const input_line& p : statement_parser::split({ whole.ident, whole.group, "a; b; c" })) {
        QCOMPARE(p.group, whole.group);
        idents.insert(p.ident);
    }
    QCOMPARE(idents.size(), 4);
}

void test_cmd_processor::tokenize_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<QStringList>("tokens");
    QTest::newRow("blanks separate, runs collapse") << "  a   b " << QStringList { "a", "b" };
    QTest::newRow("tab is no separator") << "a\tb c" << QStringList { "a\tb", "c" };
    QTest::newRow("double and single quotes") << "\"a b\" 'c d'" << QStringList { "a b", "c d" };
    QTest::newRow("other quote is text inside") << "\"it's\" 'say \"hi\"'" << QStringList { "it's", "say \"hi\"" };
    QTest::newRow("closing quote glued to text") << "\"a b\"c d" << QStringList { "a bc", "d" };
    QTest::newRow("quoted parts glued") << "'a b'\"c d\"" << QStringList { "a bc d" };
    QTest::newRow("quote in a plain token is dropped") << "a\"b c\"" << QStringList { "ab", "c" };
    QTest::newRow("empty quotes are a token") << "a \"\" b" << QStringList { "a", "", "b" };
    QTest::newRow("unterminated quote runs to the end") << "a \"b c" << QStringList { "a", "b c" };
    QTest::newRow("parameter keeps its quoted part") << "--key=\"a b\" x" << QStringList { "--key=\"a b\"", "x" };
    QTest::newRow("backslash is plain") << "a\\ b" << QStringList { "a\\", "b" };
}

void test_cmd_processor::tokenize()
{
    QFETCH(QString, text);
    QTEST(statement_parser::tokenize(text), "tokens");
}

void test_cmd_processor::entries_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<int>("kind"); // -1: no entry
    QTest::addColumn<QStringList>("args");
    QTest::addColumn<int>("branches"); // lists, or -1 not to check
    QTest::addColumn<QString>("error");
    const auto row
        = [](const char* name, const QString& text, int kind, const QStringList& args, int branches,
              const QString& error = {}) { QTest::newRow(name) << text << kind << args << branches << error; };

    const QString nested = QString("if(").repeated(17) + "version" + QString(") then(print)").repeated(17);
    row("comment", "  # print x", -1, {}, 0);
    row("assignment holds its pair", "a = b c", int(scripting::assignment_entry), {}, 0);
    row("substitution args hold placeholders", "print $(version) and $(caps)", int(scripting::flow_entry),
        { "-//0//-", "and", "-//1//-" }, 2);
    row("failing sub-command drops the line", "print $(nothing)", -1, {}, 0, "Unknown command: nothing");
    row("conditional with else", "if(version) then(print a; print b) else(print c)", int(scripting::flow_entry), {}, 3);
    row("empty condition moves the branches up", "if() then(print a)", int(scripting::flow_entry), {}, 1);
    row("inner comment drops the conditional", "if(# x) then(print a)", -1, {}, 0);
    row("inner fault drops the conditional", "if(version) then(print a) else(bogus)", -1, {}, 0,
        "Unknown command: bogus");
    row("nesting beyond the limit", nested, -1, {}, 0, "Processing limit reached (nesting)");
    row("name arguments move to the front", "display.toolbar.main show now", int(scripting::command_entry),
        { "main", "show", "now" }, 0);
    row("help keeps the parts before ?", "display.log.?.ignored", int(scripting::help_entry), { "display", "log" }, 0);
    row("too many parts after a free part", "settings.get.a.b", -1, {}, 0, "Unknown subcommand for settings: b");
    row("only dots", "...", -1, {}, 0, "Unknown command: ...");
    row("missing user of a two-argument row", "devices.assign_addresses 1", -1, {}, 0,
        "Not enough arguments. Expected: value");
}

void test_cmd_processor::entries()
{
    QFETCH(QString, text);
    QFETCH(int, kind);
    QFETCH(int, branches);
    QFETCH(QString, error);
    QStringList errors;
    const QUuid ident = QUuid::createUuid();
    const statement_parser parser(m_db, {}, [&](const QUuid& at, const QString& message) {
        QCOMPARE(at, ident);
        errors.append(message);
    });
    const std::optional<queue_entry> e = parser.parse({ ident, ident, text }, 0);
    QCOMPARE(errors, error.isEmpty() ? QStringList {} : QStringList { error });
    QCOMPARE(e.has_value(), kind >= 0);
    if (!e)
        return;
    QCOMPARE(e->kind, kind);
    QCOMPARE(e->line, text);
    QTEST(e->args, "args");
    QCOMPARE(e->branches.size(), branches);
}

void test_cmd_processor::cmd_id_text_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<QString>("plugin");
    QTest::addColumn<qint64>("number");
    QTest::newRow("built-in") << "/53" << "" << qint64(53);
    QTest::newRow("plugin") << "org.example/9000000000" << "org.example" << qint64(9000000000);
    QTest::newRow("no slash is all number") << "76" << "" << qint64(76);
    QTest::newRow("split on the first slash") << "a/b/7" << "a" << qint64(0);
}

void test_cmd_processor::cmd_id_text()
{
    QFETCH(QString, text);
    QFETCH(QString, plugin);
    QFETCH(qint64, number);
    const cmd_id id = cmd_id::from_text(text);
    QCOMPARE(id.plugin, plugin);
    QCOMPARE(id.number, number);
    QCOMPARE(cmd_id::from_text(id.text()), id);
}

void test_cmd_processor::tree_and_table_agree()
{
    QMap<QString, scripting::tree_node> nodes;
    walk(m_db.commands_tree(), QString(), nodes);
    QSet<qint64> reached;
    for (auto it = nodes.cbegin(); it != nodes.cend(); ++it) {
        if (it->command.is_null()) {
            QVERIFY2(!it->children.isEmpty(), qPrintable(it.key() + " is a branch without children"));
            continue;
        }
        QVERIFY2(m_db.commands_table().contains(it->command), qPrintable(it.key() + " runs a command without a row"));
        reached.insert(it->command.number);
    }
    // Every row can be typed; the interpreter's own and the menu-only numbers have no row.
    for (const cmd_id& id : m_db.commands_table().keys())
        QVERIFY2(reached.contains(id.number), qPrintable(m_db.command_name(id)));
}

void test_cmd_processor::rows_that_parsing_relies_on()
{
    QMap<QString, scripting::tree_node> nodes;
    walk(m_db.commands_tree(), QString(), nodes);
    QCOMPARE(nodes.value("clean").command, nodes.value("clear").command);
    QCOMPARE(m_db.command_name({ QString(), 8 }), QStringLiteral("assign_addresses,"));
    QCOMPARE(m_db.command_name({ "plugin", 8 }), QString());
}

void test_cmd_processor::waits_serve_sockets()
{
    QVERIFY(scripting::wait_while([] { return false; }, 10));
    // A console wait runs on the main thread, where the scanner's and the service's sockets live.
    QUdpSocket receiver;
    QVERIFY(receiver.bind(QHostAddress::LocalHost, 0));
    bool received = false;
    connect(&receiver, &QUdpSocket::readyRead, [&] {
        received = receiver.receiveDatagram().data() == "x";
    });
    QUdpSocket sender;
    QCOMPARE(sender.writeDatagram("x", QHostAddress::LocalHost, receiver.localPort()), qint64(1));
    QElapsedTimer waited;
    waited.start();
    QVERIFY(scripting::wait_while([&] { return !received && waited.elapsed() < 5000; }, 10));
    QVERIFY(received);
}

QTEST_GUILESS_MAIN(test_cmd_processor)
#include "test_cmd_processor.moc"
