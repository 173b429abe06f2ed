// The core behind the interpreter: ${$...} values, the built-in commands as a script sees them, waits, shutdown,
// Lua scripts, and plugins as real shared libraries.
#include "app/core.h"
#include "plugins/core_functions.h"
#include "plugins/loader.h"
#include "scripting/lua_runtime.h"
#include "scripting/sapi.h"
#include "tests/support/fleet_fixture.h"
#include "tests/support/loop_watch.h"
#include "tests/support/script_session.h"
#include "tests/support/test_network.h"

#include <QtTest>

#include <optional>

namespace {

task_element row_at(const QString& host)
{
    endpoint ep;
    ep.host = host;
    return task_element(ep, device());
}

const QString failure = QStringLiteral("FIXME: dummy result");

// What the Lua runtime said in the log, without the time.
QStringList lua_said(const scripted& f)
{
    QStringList lines;
    for (const auto& e : f.c->history().entries({ "lua" }))
        lines << e.text.section(QStringLiteral(" | [lua]: "), 1);
    return lines;
}

// Runs a Lua chunk from a file with script.lua.run; what the runtime said meanwhile.
QStringList run_lua(scripted& f, const QString& code)
{
    const int before = lua_said(f).size();
    QFile file(f.dir.filePath("s.lua"));
    file.open(QIODevice::WriteOnly | QIODevice::Truncate);
    file.write(code.toLatin1());
    file.close();
    f.run("script.lua.run " + file.fileName(), 60000);
    return lua_said(f).mid(before);
}

const QString site = QStringLiteral("org.kelmar.examples.site");

// Name in the plugin folder -> built file.
using file_map = QMap<QString, QString>;

// Copies built plugins into the plugin folder under the names given; no built file makes a text file.
scripted::preparation with_plugins(const file_map& files)
{
    return [files](const QDir& folder) {
        folder.mkpath("plugins");
        for (auto it = files.cbegin(); it != files.cend(); ++it) {
            const QString target = folder.filePath("plugins/" + it.key());
            if (it.value().isEmpty() || !QFile::copy(it.value(), target)) {
                QFile text(target);
                text.open(QIODevice::WriteOnly);
                text.write("not a plugin\n");
            }
        }
    };
}

} // namespace

class test_core_commands : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase() { QStandardPaths::setTestModeEnabled(true); }
    void variable_paths_data();
    void variable_paths();
    void commands_data();
    void commands();
    void task_not_found();
    void add_task_data();
    void add_task();
    void assign_addresses_data();
    void assign_addresses();
    void scan_and_check_keep_the_event_loop_running();
    void settings_set_is_reread();
    void shutdown_while_the_interpreter_waits_data();
    void shutdown_while_the_interpreter_waits();
    void lua_script_that_never_ends_is_stopped();
    void lua_chunks_never_break_the_runtime();
    void example_plugin_starts_runs_and_leaves();
    void bad_plugins_leave_a_record_data();
    void bad_plugins_leave_a_record();
};

void test_core_commands::variable_paths_data()
{
    QTest::addColumn<QString>("path");
    QTest::addColumn<bool>("found");
    // Rows are ordered by their random idents: "<host0>" and "<ident1>" stand for the
    // host of the first and the ident of the second.
    QTest::addColumn<QString>("value");

    QTest::newRow("host by index") << "task/0/ip" << true << "<host0>";
    QTest::newRow("ident by index") << "task/1/ident" << true << "<ident1>";
    QTest::newRow("selected flag") << "task/1/selected" << true << "no";
    QTest::newRow("first selected") << "task/selected/ip" << true << "<host0>";
    QTest::newRow("index past the end") << "task/2/ip" << false << "";
    QTest::newRow("task limit") << "env/task_limit" << true << "3";
    QTest::newRow("last ok") << "last/ok" << true << "1";
    // Found even where there is no address to give ("*": any value).
    QTest::newRow("local address towards a target") << "env/local_ip/127.0.0.1" << true << "*";
}

void test_core_commands::variable_paths()
{
    QFETCH(QString, path);
    QFETCH(QString, value);
    QTemporaryDir dir;
    core c(QString(), dir.path());
    c.introduce(row_at("10.1.1.1"));
    c.introduce(row_at("10.1.1.2"));
    const QStringList lines = c.task_manager().lines();
    // The second row by the order of lines() is unselected.
    c.task_manager().find(lines[1])->set(tasks::keys::selected, false);
    c.task_manager().set_limit(3);
    c.set_last_result(true, "r");
    value.replace("<ident1>", lines[1]);
    value.replace("<host0>", c.task_manager().find(lines[0])->get(tasks::keys::endpoint).value<endpoint>().host);

    const std::optional<QString> answer = c.resolve_variable(path.split('/'));
    QTEST(answer.has_value(), "found");
    if (value != "*") {
        QCOMPARE(answer.value_or(QString()), value);
        // The text form, for the core's own callers: empty when unknown.
        QCOMPARE(c.resolve_variable(path), value);
    }
}

void test_core_commands::commands_data()
{
    QTest::addColumn<QStringList>("setup");
    QTest::addColumn<QString>("line");
    QTest::addColumn<bool>("ok");
    QTest::addColumn<QString>("result");
    QTest::addColumn<QStringList>("shown");

    const QStringList two_rows { "devices.add 10.0.0.1", "devices.add 10.0.0.2" };
    const QStringList macro_m { "macro.record m", "print 1", "macro.stop" };
    const auto row = [](const char* name, const QStringList& setup, const QString& line, bool ok, const QString& result,
                         const QStringList& shown) { QTest::newRow(name) << setup << line << ok << result << shown; };
    const auto refused = [&](const char* name, const QString& line, const QString& error) {
        row(name, {}, line, false, failure, { "error: " + error });
    };
    row("print joins its arguments", {}, "print a   b", true, "a b", { "a b" });
    row("a substitution shows only the result", two_rows, "print $(task.list)", true, "2", { "2" });
    row("a condition is seen through its outcome", two_rows, "if(task.list) then(print yes) else(print no)", true,
        "yes", { "yes" });
    row("task list", { "devices.add 10.0.0.1" }, "task.list", true, "1", { "Total tasks: 1", "<ident0>" });
    row("settings default", {}, "settings.get.Foo bar", true, "", { "Foo: bar" });
    refused("settings unknown", "settings.get.Foo", "Unknown setting: Foo");
    row("settings stored", { "settings.set.Foo \"a b\"" }, "settings.get.Foo bar", true, "", { "Foo: a b" });
    row("sleep reads its unit", {}, "sleep 500ms", true, "0.5", {});
    refused("unknown variable", "vars.delete x", "Variable x not found");
    row("variable deleted", { "x=1" }, "vars.delete x", true, "x", { "Variable x deleted" });
    row("vars hide the program's own, a repeat isn't history", { "b=2", "__h=1", "a=1", "a=3", "a=3" },
        "vars --history", true, "", { "a = \"3\"\nPrevious values:\n1", "b = \"2\"" });
    row("aliases", { "%ls task.list", "%__x version" }, "aliases", true, "", { "ls: task.list" });
    row("alias removed after the command", { "%ls task.list" }, "aliases.remove ls", true, "ls",
        { "Alias ls removed" });
    row("macro deleted", macro_m, "macro.delete m", true, "m", { "Removed macro: m" });
    row("macro delete forced", {}, "macro.delete m --force", false, failure, {});
    refused("scan stop while none runs", "devices.scan stop", "Already stopped");
    row("clear returns the count", two_rows, "devices.clear", true, "2", {});
    refused("pack missing", "pack.apply nothing", "Error loading firmware package");
    row("a check of nothing returns at once", {}, "devices.check fetch all", true, "", {});
    row("a check skips unknown devices", {}, "devices.check force nobody", true, "",
        { "Skipping unknown device: nobody" });
    refused("event without action", "events.attach tasks_done",
        "Event attachment command requires specifying a type of action");
    row("registration of devices", {}, "devices.register x --type=devices", false, failure,
        { "Device registration is disabled." });
    row("substitution is silent", {}, "print [$(vars.delete x)]", true, "[" + failure + "]", { "[" + failure + "]" });
    row("echo off drops output", { "echo off" }, "print hidden", true, "hidden", {});
}

void test_core_commands::commands()
{
    QFETCH(QStringList, setup);
    QFETCH(QString, line);
    QFETCH(bool, ok);
    QFETCH(QString, result);
    QFETCH(QStringList, shown);
    scripted f;
    for (const QString& l : setup)
        QVERIFY(f.s->run(l));
    const scripting::command_result r = f.run(line);
    const QStringList rows = f.c->task_manager().lines();
    for (int i = 0; i < rows.size(); ++i)
        shown.replaceInStrings(QStringLiteral("<ident%1>").arg(i), rows[i]);
    QCOMPARE(f.shown(), shown);
    QCOMPARE(r.ok, ok);
    QCOMPARE(r.result, result);
}

void test_core_commands::task_not_found()
{
    scripted f;
    QVERIFY(f.s->run("devices.add 10.0.0.1"));
    // A short ident keeps naming a removed line; it is not found all the same.
    const QString ident = f.c->task_manager().lines().constFirst();
    const QString short_ident = f.c->task_manager().short_ident(ident);
    f.c->on_window_delete_element(ident);
    QCOMPARE(f.c->task_manager().resolve(short_ident), ident);
    for (const QString& line : { "task.add " + short_ident + " reboot", QString("task.run 0000") }) {
        QCOMPARE(f.run(line).result, failure);
        QCOMPARE(f.shown(), QStringList { "error: Task not found" });
    }
}

void test_core_commands::add_task_data()
{
    QTest::addColumn<QString>("values");
    QTest::addColumn<bool>("discovered");
    QTest::addColumn<QString>("error");
    QTest::addColumn<QStringList>("made"); // "name key=value ... [<parent name]", in queue order
    const auto row = [](const char* name, const QString& values, bool discovered, const QString& error,
                         const QStringList& made = {}) { QTest::newRow(name) << values << discovered << error << made; };
    const QString too_few = "Unsufficient arguments, expected ";
    row("address change, too few", "change_ip", true, too_few + "1-2: IP-address, Submask");
    row("await", "await_device 10.0.0.5 30", true, "", { "await_device address=10.0.0.5 timeout=30" });
    row("address change of a known device", "change_ip 10.0.0.5 255.255.0.0", true, "",
        { "change_ip address=10.0.0.5 subnet=255.255.0.0" });
    row("address change of an unknown device", "change_ip 10.0.0.5", false, "",
        { "identify", "change_ip address=10.0.0.5 <identify" });
    row("port change", "change_port http 8080", true, "", { "change_port type=http value=8080" });
    row("other types as named", "reboot extra", true, "", { "reboot" });
    row("not an address", "change_ip ten.0.0.5", true, "Unsupported value: ten.0.0.5");
}

void test_core_commands::add_task()
{
    QFETCH(QString, values);
    QFETCH(bool, discovered);
    QFETCH(QString, error);
    scripted f;
    QVERIFY(f.s->run("devices.add 10.0.0.1"));
    const QString ident = f.c->task_manager().lines().constFirst();
    const auto l = f.c->task_manager().find(ident);
    if (discovered) {
        device dev = l->get(tasks::keys::device).value<device>();
        dev.state = 0;
        l->set(tasks::keys::device, QVariant::fromValue(dev));
    }
    const scripting::command_result r
        = f.run(QStringLiteral("task.add %1 %2").arg(f.c->task_manager().short_ident(ident), values));
    QCOMPARE(f.shown(), error.isEmpty() ? QStringList {} : QStringList { "error: " + error });
    QCOMPARE(r.ok, error.isEmpty());
    QCOMPARE(r.result, error.isEmpty() ? ident : failure);
    QStringList got;
    for (const QString& uuid : l->queue()) {
        const tasks::task& t = l->tasks().at(uuid);
        QStringList text { t.name() };
        for (auto it = t.params().cbegin(); it != t.params().cend(); ++it) {
            const bool address = it.value().userType() == qMetaTypeId<QHostAddress>();
            text << it.key() + "=" + (address ? it.value().value<QHostAddress>().toString() : it.value().toString());
        }
        if (!t.parent().isEmpty())
            text << "<" + l->tasks().at(t.parent()).name();
        got << text.join(' ');
    }
    QTEST(got, "made");
}

void test_core_commands::assign_addresses_data()
{
    QTest::addColumn<int>("rows");
    QTest::addColumn<QString>("line");
    QTest::addColumn<QString>("error");
    QTest::addColumn<QStringList>("addresses"); // of the change_ip tasks, in selection order, with the options' mask
    const auto row = [](const char* name, int rows, const QString& line, const QString& error,
                         const QStringList& addresses = {}) { QTest::newRow(name) << rows << line << error << addresses; };
    row("255 devices", 255, "devices.assign_addresses 1 1",
        "Too many devices, reduce the number of selected devices by 1.");
    row("past the range", 10, "devices.assign_addresses 1 250", "Start address is out of range.");
    row("to the last address", 3, "devices.assign_addresses 7 252", "",
        { "192.168.7.252/255.255.255.0", "192.168.7.253/255.255.255.0", "192.168.7.254/255.255.255.0" });
    row("nothing selected", 0, "devices.assign_addresses 1 1", "");
}

void test_core_commands::assign_addresses()
{
    QFETCH(int, rows);
    QFETCH(QString, line);
    QFETCH(QString, error);
    QFETCH(QStringList, addresses);
    scripted f;
    QVERIFY2(f.rows_at_one_slow_device(rows), qPrintable(f.devices.error()));
    const QStringList selection = f.c->selected_lines();
    const scripting::command_result r = f.run(line);
    QCOMPARE(f.shown(), error.isEmpty() ? QStringList {} : QStringList { "error: " + error });
    QCOMPARE(r.ok, error.isEmpty());
    QStringList got;
    for (const QString& ident : selection) {
        const auto l = f.line(ident);
        QStringList names;
        for (const QString& uuid : l->queue())
            names << l->tasks().at(uuid).name();
        if (names.isEmpty())
            continue;
        // Never discovered: identify first, then the change and the wait for the new address.
        QCOMPARE(names, (QStringList { "identify", "change_ip", "await_device" }));
        for (const auto& [uuid, t] : l->tasks()) {
            if (t.name() == "change_ip")
                got << t.params().value("address").value<QHostAddress>().toString() + '/'
                        + t.params().value("subnet").value<QHostAddress>().toString();
        }
    }
    QCOMPARE(got, addresses);
    QCOMPARE(f.c->task_manager().running_count(), addresses.isEmpty() ? 0u : 1u);
}

// Scans, then checks what they found. In a process of its own: the batch core quits when its last flow ends, and
// event loops of this one would end at once from then on.
void test_core_commands::scan_and_check_keep_the_event_loop_running()
{
    TEST_NETWORK_IN_ISOLATION();
    // Slow devices, so that the check's wait lasts long enough to be measured.
    devsim_harness sim;
    QVERIFY2(sim.start(3, QJsonObject { { "faults", QJsonObject { { "delay_ms", 100 } } } }), qPrintable(sim.error()));
    scripted f;
    scripting::command_result r = f.run("devices.scan", 20000);
    QCOMPARE(f.console.waits, QStringList { "Scanning... (2)" });
    QCOMPARE(f.shown(), QStringList { "Devices found: 3" });
    QCOMPARE(r.result, QStringLiteral("3"));
    // Continuous: the command returns at once and rows come as devices answer.
    QVERIFY(f.run("devices.scan start --targets=5").ok);
    QVERIFY(f.c->lan_scanner().is_running());
    QCOMPARE(f.run("devices.scan start").result, failure);
    QCOMPARE(f.shown(), QStringList { "error: Already scanning" });
    QTRY_COMPARE_WITH_TIMEOUT(f.c->task_manager().count(), 3, 10000);
    QVERIFY(f.run("devices.scan stop").ok);
    QTRY_VERIFY_WITH_TIMEOUT(f.c->scan_finished(), 10000);

    // The first web request of a process loads Qt's network plugins on the main thread: not in the measurement.
    f.c->api().sapi_url_data(QUrl(QStringLiteral("http://127.0.0.1:%1/").arg(fleet::closed_port())));
    f.console.waits.clear();
    const loop_watch watch;
    r = f.run("devices.check fetch all --jobs=1", 30000);
    const qint64 took = watch.elapsed();
    QVERIFY(r.ok);
    QCOMPARE(f.ended, 3);
    QCOMPARE(f.peak, 1);
    QCOMPARE(f.console.waits, QStringList { "Executing... (1)" });
    QCOMPARE(f.shown(), QStringList { "Done" });
    const QJsonObject state = sim.state(0);
    QVERIFY2(f.log_text().count("Device serial: ") == 3
            && f.log_text().contains(QStringLiteral("Device serial: %1, hardware: %2, version: %3, build time: %4")
                                         .arg(state["serial"].toString(), state["hardware"].toString(),
                                             state["software_version"].toString(), state["build_time"].toString())),
        qPrintable(f.log_text()));
    QVERIFY2(took > 600, qPrintable(QString::number(took)));
    // The main loop ran all the while: a wait that blocks shows as one gap of most of the time, one that
    // serves events only now and then as many long ones; a loaded machine makes a few on its own.
    QVERIFY2(watch.gaps_over(80) <= 4 && watch.longest() < took / 2,
        qPrintable(QStringLiteral("%1 ms gap in %2 ms").arg(watch.longest()).arg(took)));
    QVERIFY2(watch.ticks() > took / 40, qPrintable(QStringLiteral("%1 ticks in %2 ms").arg(watch.ticks()).arg(took)));
}

void test_core_commands::settings_set_is_reread()
{
    scripted f;
    QCOMPARE(f.c->task_manager().limit(), 0u);
    QVERIFY(f.run("settings.set.limit_concurrent_tasks 4").ok);
    QCOMPARE(f.c->task_manager().limit(), 4u);
    QVERIFY(f.run("settings.set.Extended/menu_options/check_mask false").ok);
    QVERIFY(!f.c->options().check_subnet_on_ip_change);
}

void test_core_commands::shutdown_while_the_interpreter_waits_data()
{
    QTest::addColumn<QString>("line");
    QTest::newRow("in a command") << "version";
    QTest::newRow("in a core variable") << "print ${$env/task_limit}";
}

void test_core_commands::shutdown_while_the_interpreter_waits()
{
    QFETCH(QString, line);
    QTemporaryDir dir;
    auto c = std::make_unique<core>(QString(), dir.path());
    QSemaphore started;
    connect(&c->processor(), &cmd_processor::queue_started, this, [&] { started.release(); }, Qt::DirectConnection);
    c->processor().execute_line(QUuid::createUuid(), line);
    QVERIFY(started.tryAcquire(1, 5000));
    // No events are processed here: the interpreter is left waiting on the main thread.
    QThread::msleep(50);
    QElapsedTimer clock;
    clock.start();
    c.reset();
    QVERIFY2(clock.elapsed() < 3000, qPrintable(QString::number(clock.elapsed())));
}

void test_core_commands::lua_script_that_never_ends_is_stopped()
{
    scripted f;
    lua_runtime& lua = f.c->lua();
    // A loop that catches every error.
    QVERIFY(lua.load_string("while true do pcall(function() while true do end end) end"));
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
    QTRY_VERIFY(lua_said(f).contains("Runtime error: Script stopped"));
}

void test_core_commands::lua_chunks_never_break_the_runtime()
{
    // Isolated: the network functions are called with anything, and files are written where the test runs. (A NUL
    // in what is logged would cut the isolated run's output short, and with it its verdict.)
    TEST_NETWORK_IN_ISOLATION();
    QTemporaryDir work;
    QVERIFY(QDir::setCurrent(work.path()));
    scripted f;
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
        { "print(select(2, pcall(orvane.download_file, 'x')))", "Runtime message: Not enough parameters." },
        { "local function deep() return 1 + deep() end\ndeep()", "stack overflow" },
        { "error('\\255 not UTF-8', 0)", "not UTF-8" },
        { "debug.setupvalue(orvane.log, 1, io.stdout)\norvane.log('swapped')",
            "Runtime error: rfn_log instance is null" },
        { "debug.setupvalue(orvane.caps, 1, nil)\norvane.caps()", "Runtime error: rfn_caps instance is null" },
        { "orvane = nil\nprint(orvane.version())", "attempt to index a nil value (global 'orvane')" },
    };
    for (const auto& [chunk, last] : chunks) {
        const QStringList said = run_lua(f, chunk);
        QVERIFY2(!f.c->lua().is_running(), qPrintable(chunk));
        QVERIFY2(said.value(said.size() - 1).contains(last), qPrintable(chunk + "\n" + said.join('\n')));
    }
    // The runtime still works, and so does the program.
    QCOMPARE(run_lua(f, "print('alive')"), QStringList { "Runtime message: alive" });
    QCOMPARE(f.run("version").result, QStringLiteral("0.5, build #1964"));
    QVERIFY(f.c->lua().is_initialized());
}

void test_core_commands::example_plugin_starts_runs_and_leaves()
{
    scripted f(core::batch, 0, {}, with_plugins({ { "libsite.so", EXAMPLE_PLUGIN } }));
    const QString file = f.dir.filePath("plugins/libsite.so");
    f.run("plugins.list");
    QCOMPARE(f.shown(), QStringList { site + " [" + file + ", ready \u2713]" });
    f.run("site.set Riverside");
    QCOMPARE(f.shown(), QStringList { "Site set to Riverside" });
    f.run("site.show");
    QCOMPARE(f.shown(), QStringList { "Site: Riverside" });
    QCOMPARE(f.c->settings().value("Site/name").toString(), QStringLiteral("Riverside"));
    // A plugin command leaves the outcome of the command before it.
    QCOMPARE(f.run("print kept").result, QStringLiteral("kept"));
    QCOMPARE(f.run("site.show").result, QStringLiteral("kept"));
    // The language reaches the plugin.
    f.c->apply_language("ru_RU");
    f.run("site.about");
    QVERIFY2(f.shown().value(0).endsWith("language ru_RU"), qPrintable(f.shown().join('\n')));
    f.c->apply_language("en_US");
    // A toolbar button bound to a plugin's command.
    f.console.lines.clear();
    QVERIFY(f.c->run_plugin_action(site + "/1"));
    // The built-in functions run only the program's own commands, even where a plugin's has a description.
    QVERIFY(!f.c->builtin_functions().execute(scripting::cmd_id::from_text(site + "/1"), {}, {}));
    QCOMPARE(f.shown(), QStringList { "Site: Riverside" });
    QVERIFY2(!f.log_text().contains("Unknown command"), qPrintable(f.log_text()));

    // The second statement was read while the plugin was there.
    f.run("plugins.unload " + site + "; site.show");
    QCOMPARE(f.shown(), (QStringList { "Unloaded plugin " + site + ".", "error: Bad plugin ident: " + site }));
    QVERIFY(!f.c->command_db().commands_tree().contains("site"));

    // By its file name alone, from the plugin folder; the setting outlived the plugin.
    QCOMPARE(f.run("plugins.load libsite.so").result, QStringLiteral("libsite.so"));
    QCOMPARE(f.shown(), QStringList { "Loaded plugin " + site + "." });
    f.run("site.show");
    QCOMPARE(f.shown(), QStringList { "Site: Riverside" });
    // Loaded without its start: known, but no command of it joins the tree.
    f.run("plugins.unload " + site);
    f.run("plugins.load libsite.so --no-init");
    QCOMPARE(f.shown(), QStringList { "Loaded plugin " + site + "." });
    QCOMPARE(f.c->plugin_loader().state(site), plugins::plugin_state::loaded);
    QVERIFY(!f.c->command_db().commands_tree().contains("site"));
}

void test_core_commands::bad_plugins_leave_a_record_data()
{
    QTest::addColumn<file_map>("files");
    QTest::addColumn<QStringList>("listing"); // "%1" stands for the plugin folder
    QTest::addColumn<QStringList>("logged");
    QTest::addColumn<QString>("line"); // a command to try, and what it shows
    QTest::addColumn<QStringList>("shown");
    const auto row = [](const char* name, const file_map& files, const QStringList& listing, const QStringList& logged,
                         const QString& line = {}, const QStringList& shown = {}) {
        QTest::newRow(name) << files << listing << logged << line << shown;
    };
    row("not a plugin", { { "notes.txt", "" } }, { "--- [%1/notes.txt, failed]" },
        { "Failed to load plugin: %1/notes.txt", "Initialized 0 plugins" });
    row("an older interface: no commands", { { "libolder.so", OLDER_PLUGIN } },
        { "--- [%1/libolder.so, incompatible]" },
        { "Incompatible plugin version, system version 3, plugin version 2", "Loaded 0 plugins" }, "older.probe",
        { "error: Line , error \"Unknown command: older.probe\"" });
    row("two files, one identifier: the second is no more",
        { { "liba.so", EXAMPLE_PLUGIN }, { "libb.so", EXAMPLE_PLUGIN } },
        { site + " [%1/liba.so, ready \u2713]", site + " [%1/libb.so, duplicate]" },
        { "Duplicate plugin identificator: " + site, "Loaded 1 plugins", "Initialized 1 plugins" }, "site.show",
        { "No site is set" });
}

void test_core_commands::bad_plugins_leave_a_record()
{
    QFETCH(file_map, files);
    QFETCH(QStringList, listing);
    QFETCH(QStringList, logged);
    QFETCH(QString, line);
    QFETCH(QStringList, shown);
    scripted f(core::batch, 0, {}, with_plugins(files));
    const QString folder = f.dir.filePath("plugins");
    for (const QString& text : logged.replaceInStrings("%1", folder))
        QVERIFY2(f.log_text().contains(text), qPrintable(text + '\n' + f.log_text()));
    f.run("plugins.list");
    QCOMPARE(f.shown(), listing.replaceInStrings("%1", folder));
    if (!line.isEmpty()) {
        f.run(line);
        QCOMPARE(f.shown(), shown);
    }
}

QTEST_GUILESS_MAIN(test_core_commands)
#include "test_core_commands.moc"
