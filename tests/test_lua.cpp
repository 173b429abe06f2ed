// Lua through the program's commands: the `orvane` table, runs, stopping, and chunks that try to break the runtime.
#include "scripting/lua_runtime.h"
#include "tests/support/loop_watch.h"
#include "tests/support/script_session.h"
#include "tests/support/test_network.h"

#include <QSignalSpy>
#include <QtTest>

namespace {

// A core whose Lua scripts are written into its folder and run with script.lua.run.
struct lua_session : scripted
{
    using scripted::scripted;

    // What the runtime said in the log during the script, without the time.
    QStringList run_lua(const QString& code, int timeout_ms = 10000)
    {
        const int before = said().size();
        const QString path = dir.filePath("s.lua");
        QFile file(path);
        file.open(QIODevice::WriteOnly | QIODevice::Truncate);
        file.write(code.toLatin1());
        file.close();
        run("script.lua.run " + path, timeout_ms);
        return said().mid(before);
    }

    QStringList said() const
    {
        QStringList lines;
        for (const auto& e : c->history().entries({ "lua" }))
            lines << e.text.section(QStringLiteral(" | [lua]: "), 1);
        return lines;
    }
};

} // namespace

class test_lua : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase() { QStandardPaths::setTestModeEnabled(true); }
    void orvane_functions_data();
    void orvane_functions();
    void run_sequence_and_its_messages();
    void devices_import_and_export();
    void devices_scan_counts_what_it_found();
    void a_script_that_never_ends_is_stopped_data();
    void a_script_that_never_ends_is_stopped();
    void hostile_chunks_never_break_the_runtime();
};

void test_lua::orvane_functions_data()
{
    QTest::addColumn<QString>("code");
    QTest::addColumn<QStringList>("said");
    const auto row
        = [](const char* name, const QString& code, const QStringList& said) { QTest::newRow(name) << code << said; };

    row("version", "orvane.log(orvane.version())", { "Runtime message: 0.5, build #1964" });
    row("caps, a table with booleans",
        "local c = orvane.caps()\norvane.log(type(c))\norvane.log(type(c.pack_diag) .. ' ' .. tostring(c.pack_diag))",
        { "Runtime message: table", "Runtime message: boolean false" });
    row("packs, a sequence of paths",
        "for i, p in ipairs(orvane.pack.list()) do orvane.log(i .. ' ' .. p:match('[^/]+$')) end",
        { "Runtime message: 1 a.ovpack", "Runtime message: 2 b.ovpack" });
    row("log of nil is empty", "orvane.log(nil)", { "Runtime message: " });
    row("arguments are Latin-1", "orvane.log('caf\\233')", { QString("Runtime message: caf\u00e9") });
    row("print writes to the log", "print(1, nil, true)", { "Runtime message: 1\tnil\ttrue" });
    row("too few parameters end the script, told once", "orvane.download_file('x')\norvane.log('after')",
        { "Runtime error: Not enough parameters." });
    row("too few parameters under pcall: told, and the script goes on",
        "local ok, e = pcall(orvane.download_file, 'x')\norvane.log(tostring(ok) .. ' ' .. e)",
        { "Runtime error: Not enough parameters.", "Runtime message: false Not enough parameters." });
    row("an error ends the script", "error('boom', 0)\norvane.log('after')", { "Runtime error: boom" });
    row("an error object that isn't text", "error(setmetatable({}, { __tostring = function() error('again') end }))",
        { "Runtime error: (error object is a table value)" });
}

void test_lua::orvane_functions()
{
    QFETCH(QString, code);
    lua_session f(core::batch, 0, {}, [](const QDir& folder) {
        for (const char* name : { "a.ovpack", "b.ovpack" }) {
            QFile pack(folder.filePath(name));
            pack.open(QIODevice::WriteOnly);
        }
    });
    QTEST(f.run_lua(code), "said");
}

void test_lua::run_sequence_and_its_messages()
{
    lua_session f;
    QSignalSpy started(&f.c->lua(), &QThread::started);
    f.run_lua("orvane.log('hello')");
    QCOMPARE(f.shown(), (QStringList { "Runtime initialized", "Script loaded", "hello", "Done" }));
    QCOMPARE(f.console.waits, QStringList { "Script is executing... (1)" });
    QCOMPARE(started.count(), 1);

    // A chunk that doesn't compile never starts the thread.
    const QString path = f.dir.filePath("s.lua");
    QCOMPARE(f.run_lua("x = = 1"), QStringList { "Runtime error: " + path + ":1: unexpected symbol near '='" });
    QCOMPARE(f.shown(), (QStringList { "Runtime initialized", "error: " + path + ":1: unexpected symbol near '='",
                            "error: Unable to load Lua script " + path }));
    QCOMPARE(started.count(), 1);
    QCOMPARE(f.console.waits.size(), 1);
    f.run("script.lua.run /no/such.lua");
    QCOMPARE(f.shown().value(2), QStringLiteral("error: Unable to load Lua script /no/such.lua"));
    QCOMPARE(f.run("script.lua.runline \"x = \"").result, QStringLiteral("x = "));
    QCOMPARE(f.shown().value(2), QStringLiteral("error: Unable to load Lua code x = "));
    QCOMPARE(started.count(), 1);

    // The state outlives a run.
    QCOMPARE(f.run("script.lua.runline x=1").result, QStringLiteral("x=1"));
    QCOMPARE(f.shown(), (QStringList { "Runtime initialized", "Code loaded", "Done" }));
    QCOMPARE(f.console.waits.last(), QStringLiteral("Code is executing... (1)"));
    f.run("script.lua.runline print(x)");
    QCOMPARE(f.said().last(), QStringLiteral("Runtime message: 1"));
    // And past a run that failed.
    f.run_lua("y = 2\nerror('stop', 0)");
    f.run("script.lua.runline print(x+y)");
    QCOMPARE(f.said().last(), QStringLiteral("Runtime message: 3"));
}

void test_lua::devices_import_and_export()
{
    lua_session f;
    QFile list(f.dir.filePath("list.csv"));
    QVERIFY(list.open(QIODevice::WriteOnly));
    list.write("127.0.0.7,34567,admin,\n127.0.0.8,34567,admin,\nnot a line\n");
    list.close();
    const QString out = f.dir.filePath("out.csv");
    const QStringList said = f.run_lua(QStringLiteral("orvane.log(orvane.devices.import('%1'))\n"
                                                      "orvane.log(orvane.devices.export('%2'))")
                                           .arg(list.fileName(), out));
    QCOMPARE(said, (QStringList { "Runtime message: 2", "Runtime message: 2" }));
    QCOMPARE(f.c->task_manager().count(), 2u);
    QFile written(out);
    QVERIFY(written.open(QIODevice::ReadOnly));
    QCOMPARE(written.readAll().count('\n'), 2);
}

void test_lua::devices_scan_counts_what_it_found()
{
    TEST_NETWORK_IN_ISOLATION();
    devsim_harness sim;
    QVERIFY2(sim.start(3), qPrintable(sim.error()));
    lua_session f;
    const loop_watch watch;
    QCOMPARE(f.run_lua("orvane.log(orvane.devices.scan())", 20000), QStringList { "Runtime message: 3" });
    QCOMPARE(f.c->task_manager().count(), 3u);
    // The scan ran on the main thread while the script waited, with the main loop going on: neither blocks the other.
    QVERIFY2(watch.longest() < watch.elapsed() / 2,
        qPrintable(QStringLiteral("%1 ms gap in %2 ms").arg(watch.longest()).arg(watch.elapsed())));
}

void test_lua::a_script_that_never_ends_is_stopped_data()
{
    QTest::addColumn<QString>("code");
    QTest::newRow("a bare loop") << "while true do end";
    QTest::newRow("a loop that catches every error") << "while true do pcall(function() while true do end end) end";
}

void test_lua::a_script_that_never_ends_is_stopped()
{
    QFETCH(QString, code);
    lua_session f;
    lua_runtime& lua = f.c->lua();
    QVERIFY(lua.load_string(code));
    QVERIFY(lua.start_run());
    QVERIFY(lua.is_running());
    // A second run waits for the first.
    QVERIFY(!lua.load_string("x = 1"));
    QVERIFY(!lua.start_run());
    QTest::qWait(100);
    QVERIFY(lua.is_running());
    // Stopped by the runtime's own hook, which no pcall holds; the destructor's last resort isn't reached.
    lua.request_stop();
    QTRY_VERIFY_WITH_TIMEOUT(!lua.is_running(), 10000);
    QTRY_VERIFY(f.said().contains("Runtime error: Script stopped"));
}

void test_lua::hostile_chunks_never_break_the_runtime()
{
    // Isolated: the network functions are called with anything, and files are written where the test runs. (A NUL
    // in what is logged would cut the isolated run's output short, and with it its verdict.)
    TEST_NETWORK_IN_ISOLATION();
    QTemporaryDir work;
    QVERIFY(QDir::setCurrent(work.path()));
    lua_session f;
    // Each chunk, and what the last thing it said holds.
    const QList<QPair<QString, QString>> chunks {
        // Every function of the table, each with wrong values of every type.
        { "local values = table.pack(nil, true, 0, -1, 1e308, 0/0, '', '\\1\\255', {}, print, coroutine.create(print),"
          " io.stdout, orvane, 2^63)\n"
          "local function sweep(t)\n"
          "  for name, f in pairs(t) do\n"
          "    if type(f) == 'table' then sweep(f)\n"
          "    elseif type(f) == 'function' and name ~= 'scan' then\n"
          "      for i = 1, values.n do\n"
          "        pcall(f, values[i]); pcall(f, values[i], values[i]); pcall(f, 'x', values[i], values[i])\n"
          "      end\n"
          "    end\n"
          "  end\n"
          "end\n"
          "sweep(orvane)\n"
          "pcall(orvane.devices.scan, {}, nil, print)\n"
          "orvane.log('swept')",
            "Runtime message: swept" },
        { "for i = 1, 20000 do pcall(error, i) end\nprint(select(2, pcall(error, 'last')))", "last" },
        { "for i = 1, 200 do pcall(orvane.download_file, i) end", "Not enough parameters." },
        { "local function deep() return 1 + deep() end\ndeep()", "stack overflow" },
        { "error('\\255 not UTF-8', 0)", "not UTF-8" },
        { "local co = coroutine.wrap(function() orvane.log('in') coroutine.yield() error('in a coroutine', 0) end)\n"
          "co() co()",
            "in a coroutine" },
        { "debug.setupvalue(orvane.log, 1, io.stdout)\norvane.log('swapped')",
            "Runtime error: rfn_log instance is null" },
        { "debug.setupvalue(orvane.caps, 1, nil)\norvane.caps()", "Runtime error: rfn_caps instance is null" },
        { "setmetatable(orvane, { __index = function() error('no such field', 0) end })\norvane.nothing()",
            "Runtime error: no such field" },
        { "orvane = nil\nprint(orvane.version())", "attempt to index a nil value (global 'orvane')" },
    };
    for (const auto& [chunk, last] : chunks) {
        const QStringList said = f.run_lua(chunk, 60000);
        QVERIFY2(!f.c->lua().is_running(), qPrintable(chunk));
        QVERIFY2(said.value(said.size() - 1).contains(last), qPrintable(chunk + "\n" + said.join('\n')));
    }
    // The runtime still works, and so does the program.
    QCOMPARE(f.run_lua("print('alive')"), QStringList { "Runtime message: alive" });
    QCOMPARE(f.run("version").result, QStringLiteral("0.5, build #1964"));
    QVERIFY(f.c->lua().is_initialized());
}

QTEST_GUILESS_MAIN(test_lua)
#include "test_lua.moc"
