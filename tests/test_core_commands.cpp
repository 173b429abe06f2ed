// The core behind the interpreter: ${$...} values, the built-in commands as a script sees them, waits, shutdown.
#include "app/core.h"
#include "scripting/sapi.h"
#include "tests/support/fleet_fixture.h"
#include "tests/support/http_server.h"
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

int log_count(const QString& dir_path, const QString& text)
{
    QFile f(QDir(dir_path).filePath("blackbox.log"));
    return f.open(QIODevice::ReadOnly) ? QString::fromUtf8(f.readAll()).count(text) : -1;
}

const QString failure = QStringLiteral("FIXME: dummy result");

} // namespace

class test_core_commands : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase() { QStandardPaths::setTestModeEnabled(true); }
    void commands_arriving_by_mistake_fail_and_are_logged();
    void variable_paths_data();
    void variable_paths();
    void commands_data();
    void commands();
    void task_not_found_data();
    void task_not_found();
    void add_task_data();
    void add_task();
    void add_device_defaults();
    void assign_addresses_data();
    void assign_addresses();
    void check_devices_with_nothing_selected_returns_at_once();
    void scan_and_check_keep_the_event_loop_running();
    void network_commands_against_a_local_server();
    void settings_set_is_reread();
    void shutdown_while_the_interpreter_waits_data();
    void shutdown_while_the_interpreter_waits();
};

void test_core_commands::commands_arriving_by_mistake_fail_and_are_logged()
{
    QTemporaryDir dir;
    core c(QString(), dir.path());
    session s(c);
    // Numbers of the action menu have no meaning as commands.
    c.processor().queue_entry(scripting::command_entry, "x", { QString(), 12 }, {}, {});
    c.processor().queue_entry(scripting::command_entry, "y", { QString(), 31 }, {}, {});
    QVERIFY(s.run("print ${$last/ok} ${$last/result}"));
    QCOMPARE(s.last_args(), (QStringList { "0", failure }));
    QCOMPARE(log_count(dir.path(), "Unknown command: 12"), 1);
    QCOMPARE(log_count(dir.path(), "Unknown command: 31"), 1);
}

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
    QTest::newRow("backend name") << "task/0/sdk" << true << "legacy";
    QTest::newRow("first selected") << "task/selected/ip" << true << "<host0>";
    QTest::newRow("index past the end") << "task/2/ip" << false << "";
    QTest::newRow("unknown field") << "task/0/colour" << false << "";
    QTest::newRow("too short") << "task/0" << false << "";
    QTest::newRow("task limit") << "env/task_limit" << true << "3";
    QTest::newRow("task limit, too long") << "env/task_limit/x" << false << "";
    QTest::newRow("last ok") << "last/ok" << true << "1";
    QTest::newRow("last result") << "last/result" << true << "r";
    QTest::newRow("last, unknown") << "last/when" << false << "";
    QTest::newRow("widget") << "widget/w/value" << false << "";
    QTest::newRow("unknown head") << "nothing/at/all" << false << "";
    // Found even where there is no address to give ("*": any value).
    QTest::newRow("local address towards a target") << "env/local_ip/127.0.0.1" << true << "*";
    QTest::newRow("local MAC") << "env/local_mac" << true << "*";
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
    row("a failed condition", {}, "if(vars.delete x) then(print yes) else(print no)", true, "no", { "no" });
    row("a failure's visible form", {}, "print $(vars.delete x)", true, failure, { failure });
    row("task list", { "devices.add 10.0.0.1" }, "task.list", true, "1", { "Total tasks: 1", "<ident0>" });
    row("settings default", {}, "settings.get.Foo bar", true, "", { "Foo: bar" });
    refused("settings unknown", "settings.get.Foo", "Unknown setting: Foo");
    row("settings stored", { "settings.set.Foo \"a b\"" }, "settings.get.Foo bar", true, "", { "Foo: a b" });
    row("sleep reads its unit", {}, "sleep 500ms", true, "0.5", {});
    row("sleep of nothing", {}, "sleep abc", true, "0", {});
    refused("unknown variable", "vars.delete x", "Variable x not found");
    row("variable deleted", { "x=1" }, "vars.delete x", true, "x", { "Variable x deleted" });
    row("vars hide the program's own, a repeat isn't history", { "b=2", "__h=1", "a=1", "a=3", "a=3" },
        "vars --history", true, "", { "a = \"3\"\nPrevious values:\n1", "b = \"2\"" });
    row("vars all", { "__h=1" }, "vars all", true, "", { "__h = \"1\"" });
    row("aliases", { "%ls task.list", "%__x version" }, "aliases", true, "", { "ls: task.list" });
    row("alias removed after the command", { "%ls task.list" }, "aliases.remove ls", true, "ls",
        { "Alias ls removed" });
    refused("alias not found", "aliases.remove ls", "Alias ls not found");
    row("macros", macro_m, "macro.list", true, "", { "m" });
    row("macro shown", macro_m, "macro.show m", true, "m", { "print 1" });
    refused("macro missing", "macro.show m", "No such recording");
    row("macro deleted", macro_m, "macro.delete m", true, "m", { "Removed macro: m" });
    row("macro delete forced", {}, "macro.delete m --force", false, failure, {});
    refused("scan stop while none runs", "devices.scan stop", "Already stopped");
    row("scan stop forced", {}, "devices.scan stop --force", false, "", {});
    refused("scan command unknown", "devices.scan Later", "Unknown search command: Later");
    row("clear returns the count", two_rows, "devices.clear", true, "2", {});
    row("limit", {}, "task.limit 3", true, "3", {});
    refused("limit unreadable", "task.limit three", "Unsupported value: three");
    row("version", {}, "version", true, "0.5, build #1964", { "0.5, build #1964" });
    refused("beep in pairs", "notify.beep 1kHz 100ms 500Hz", "Sound queue should be set in pairs.");
    refused("sound file missing", "notify.sound /no/such.wav", "Unable to play the sound file /no/such.wav");
    refused("pack description disabled", "pack.describe p", "Command disabled");
    refused("cache isn't a pack", "pack.apply cache", "Unable to use cache as firmware package");
    refused("pack missing", "pack.apply nothing", "Error loading firmware package");
    row("reboot parses and does nothing", { "devices.add 10.0.0.1" }, "devices.reboot x", false, failure, {});
    row("no plugins", {}, "plugins.list", true, "", {});
    refused("plugin unknown", "plugins.unload x", "No such plugin: x.");
    refused("plugin file missing", "plugins.load /no/such.so", "Failed to load plugin /no/such.so.");
    refused("video", "play x.mp4", "Video playback is not available in this build");
    refused("event without action", "events.attach tasks_done",
        "Event attachment command requires specifying a type of action");
    refused("event action unknown", "events.attach tasks_done --script=x", "This event action is not supported");
    refused("menu unknown", "display.menu.tools on", "Unknown menu: tools");
    refused("menu, bad boolean", "display.menu.actions maybe", "Unsupported value: maybe");
    refused("toolbar refusal", "display.toolbar.scripting delete", "Missing element identifier");
    refused("registration unknown", "devices.register x --type=Other", "Unknown registration type: other");
    row("registration of devices", {}, "devices.register x --type=devices", false, failure,
        { "Device registration is disabled." });
    row("log", {}, "log \"a line\"", true, "", {});
    row("log filters", { "display.log.filters.set core sapi" }, "display.log.filters.get", true, "", { "core, sapi" });
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

void test_core_commands::task_not_found_data()
{
    QTest::addColumn<QString>("line");
    QTest::newRow("add task") << "task.add <gone> reboot";
    QTest::newRow("change address") << "devices.change_ip <gone> 10.0.0.9";
    QTest::newRow("dump") << "task.dump <gone>";
    QTest::newRow("reset") << "devices.reset_configuration <gone>";
    QTest::newRow("run") << "task.run <gone>";
    QTest::newRow("never there") << "task.run 0000";
}

void test_core_commands::task_not_found()
{
    QFETCH(QString, line);
    scripted f;
    QVERIFY(f.s->run("devices.add 10.0.0.1"));
    // A short ident keeps naming a removed line; it is not found all the same.
    const QString ident = f.c->task_manager().lines().constFirst();
    const QString short_ident = f.c->task_manager().short_ident(ident);
    f.c->on_window_delete_element(ident);
    QCOMPARE(f.c->task_manager().resolve(short_ident), ident);
    const scripting::command_result r = f.run(line.replace("<gone>", short_ident));
    QCOMPARE(f.shown(), QStringList { "error: Task not found" });
    QCOMPARE(r.ok, false);
    QCOMPARE(r.result, failure);
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
    row("port change, too few", "change_port netip_tcp", true, too_few + "2-2: Port name, Port value");
    row("await, too few", "await_device", true, too_few + "1-1: IP-address");
    row("await", "await_device 10.0.0.5 30", true, "", { "await_device address=10.0.0.5 timeout=30" });
    row("address change of a known device", "change_ip 10.0.0.5 255.255.0.0", true, "",
        { "change_ip address=10.0.0.5 subnet=255.255.0.0" });
    row("address change of an unknown device", "change_ip 10.0.0.5", false, "",
        { "identify", "change_ip address=10.0.0.5 <identify" });
    row("port change", "change_port http 8080", true, "", { "change_port type=http value=8080" });
    row("other types as named", "reboot extra", true, "", { "reboot" });
    row("not an address", "change_ip ten.0.0.5", true, "Unsupported value: ten.0.0.5");
    row("port out of range", "change_port http 70000", true, "Unsupported value: 70000");
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

void test_core_commands::add_device_defaults()
{
    scripted f;
    QVERIFY(f.s->run("devices.add 127.0.0.5 80"));
    QVERIFY(f.s->run("devices.add 127.0.0.6"));
    QVERIFY(f.s->run("devices.add 127.0.0.7 81 operator s3cret"));
    QStringList made; // host:port user password encrypted
    for (const QString& ident : f.c->task_manager().lines()) {
        const endpoint ep = f.endpoint_of(ident);
        made << QStringLiteral("%1:%2 %3 %4 %5").arg(ep.host).arg(ep.port).arg(ep.user, ep.password)
                    .arg(ep.password_encrypted);
    }
    made.sort();
    QCOMPARE(made,
        (QStringList { "127.0.0.5:80 admin  0", "127.0.0.6:34567 admin  0", "127.0.0.7:81 operator s3cret 0" }));
    QCOMPARE(f.run("devices.add 127.0.0.8 port").result, failure);
    QCOMPARE(f.shown(), QStringList { "error: Unsupported value: port" });
    QCOMPARE(f.c->task_manager().count(), 3);
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
    row("third octet out of range", 1, "devices.assign_addresses 256 1", "Unsupported value: 256");
    row("nothing selected", 0, "devices.assign_addresses 1 1", "");
}

void test_core_commands::assign_addresses()
{
    QFETCH(int, rows);
    QFETCH(QString, line);
    QFETCH(QString, error);
    QFETCH(QStringList, addresses);
    scripted f;
    // All rows at one slow device: the first flow is still at its identify when the command has returned.
    QVERIFY2(f.devices.start(1, QJsonObject { { "faults", QJsonObject { { "delay_ms", 1500 } } } }),
        qPrintable(f.devices.error()));
    for (int i = 0; i < rows; ++i)
        f.add_row(f.devices.address(0).toString(), f.devices.port(0));
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

void test_core_commands::check_devices_with_nothing_selected_returns_at_once()
{
    scripted f;
    QVERIFY(f.s->run("devices.add 10.0.0.1"));
    f.c->task_manager().find(f.c->task_manager().lines().constFirst())->set(tasks::keys::selected, false);
    QElapsedTimer clock;
    clock.start();
    QVERIFY(f.run("devices.check fetch all").ok);
    QVERIFY(clock.elapsed() < 1000);
    QCOMPARE(f.shown(), QStringList {});
    QCOMPARE(f.started, 0);
    QVERIFY(f.run("devices.check force nobody").ok);
    QCOMPARE(f.shown(), QStringList { "Skipping unknown device: nobody" });
    QCOMPARE(f.started, 0);
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

void test_core_commands::network_commands_against_a_local_server()
{
    http_server server;
    QVERIFY(server.start());
    server.set_answer("/json", { 200, R"({"a": "1", "b": 2})" });
    server.set_answer("/text", { 200, "just words" });
    server.set_answer("/lines", { 200, "one\n\ntwo <b>\n" });
    scripted f;
    f.run("network.get " + server.url("/json").toString());
    QCOMPARE(f.shown(), (QStringList { "a = 1", "b = 2" }));
    f.run("network.get " + server.url("/text").toString());
    QCOMPARE(f.shown(), QStringList { "-raw- = just words" });
    f.run("url_contents " + server.url("/lines").toString());
    QCOMPARE(f.console.lines, QStringList { "<div>one<br>\ntwo &lt;b&gt;</div>" });

    const QString file = f.dir.filePath("got.txt");
    scripting::command_result r = f.run(QStringLiteral("download_file %1 %2").arg(server.url("/text").toString(), file));
    QCOMPARE(r.result, file);
    QCOMPARE(f.shown(),
        QStringList { QStringLiteral("File %1 successfully downloaded as %2").arg(server.url("/text").toString(), file) });
    QFile got(file);
    QVERIFY(got.open(QIODevice::ReadOnly));
    QCOMPARE(got.readAll(), QByteArray("just words"));
    r = f.run(QStringLiteral("download_file %1 %2").arg(server.url("/text").toString(), f.dir.filePath("no/such/x")));
    QCOMPARE(r.result, failure);
    QCOMPARE(f.shown(), QStringList { "error: Unable to download from " + server.url("/text").toString() });
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

QTEST_GUILESS_MAIN(test_core_commands)
#include "test_core_commands.moc"
