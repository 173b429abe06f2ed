// The program run headless with scripts, as a user runs it, and every way such a run must end.
#include "tests/support/devsim_harness.h"
#include "tests/support/fleet_fixture.h"
#include "tests/support/svcsim_harness.h"

#include <QProcess>
#include <QtTest>

namespace {

// A portable installation of the program in a folder of its own, its service on loopback.
struct installation
{
    installation()
    {
        QFile::copy(QStringLiteral(ORVANE_BINARY), dir.filePath("orvane"));
        settings("Service/address", "127.0.0.1");
        settings("Service/port", fleet::closed_port());
    }

    void settings(const QString& key, const QVariant& value)
    {
        QSettings s(dir.filePath("ov.config"), QSettings::IniFormat);
        s.setValue(key, value);
    }
    // Quoted as a user must write it: QSettings reads an unquoted ";" as the start of a comment.
    void autorun(const QString& file)
    {
        QFile ini(dir.filePath("ov.config"));
        ini.open(QIODevice::Append);
        ini.write(QStringLiteral("\n[Autorun]\nenabled=true\nlist=\"%1;1;0\"\n").arg(file).toUtf8());
    }
    void write(const QString& name, const QString& text)
    {
        QFile f(dir.filePath(name));
        f.open(QIODevice::WriteOnly);
        f.write(text.toUtf8());
    }
    QString read(const QString& name) const
    {
        QFile f(dir.filePath(name));
        return f.open(QIODevice::ReadOnly) ? QString::fromUtf8(f.readAll()) : QString();
    }

    // Runs the program to its end; false when it didn't end in time.
    bool run(const QStringList& args, int timeout_ms = 30000)
    {
        QProcess p;
        p.setWorkingDirectory(dir.path());
        p.start(dir.filePath("orvane"), args);
        clock.start();
        const bool ended = p.waitForFinished(timeout_ms);
        took = clock.elapsed();
        if (!ended)
            p.kill();
        p.waitForFinished(2000);
        output = QString::fromUtf8(p.readAllStandardOutput());
        code = p.exitCode();
        return ended && p.exitStatus() == QProcess::NormalExit;
    }
    // The texts of the log lines, without their time.
    QStringList lines() const
    {
        QStringList out;
        for (const QString& line : output.split('\n', Qt::SkipEmptyParts))
            out << line.section(QStringLiteral(" | "), 1);
        return out;
    }

    QTemporaryDir dir;
    QString output;
    int code = -1;
    qint64 took = 0;
    QElapsedTimer clock;
};

QString example(const QString& name)
{
    QFile f(QStringLiteral(ORVANE_SOURCE_DIR "/examples/scripts/") + name);
    return f.open(QIODevice::ReadOnly) ? QString::fromUtf8(f.readAll()) : QString();
}

} // namespace

class test_script_run : public QObject
{
    Q_OBJECT
private slots:
    void example_scripts_update_a_fleet();
    void runs_end_data();
    void runs_end();
    void batch_quits_while_a_script_sleeps();
    void macros_run_at_the_fleets_end();
};

void test_script_run::example_scripts_update_a_fleet()
{
    devsim_harness devices;
    QVERIFY2(devices.start(3, QJsonObject { { "reboot_ms", 200 } }), qPrintable(devices.error()));
    svcsim_harness service;
    const QString firmware = service.add_file("ipc.bin", fleet::image(200 * 1024, 'f'));
    QJsonObject fleet;
    for (int i = 0; i < 3; ++i) {
        const QString serial = devices.state(i)["serial"].toString();
        fleet.insert(serial, i == 2 ? QJsonValue("updated") : QJsonValue(QJsonObject { { "verdict", "pending" }, { "offers", QJsonArray { firmware } } }));
    }
    QVERIFY2(service.start(QJsonObject { { "fleet", fleet } }), qPrintable(service.error()));

    installation app;
    app.settings("Service/port", service.port());
    app.settings("Service/client_id", QString::fromLatin1(service.client_id().toHex()));
    app.settings("Service/client_key", QString::fromLatin1(service.client_key().toHex()));
    app.autorun("setup.ovscript");
    app.write("setup.ovscript", example("setup.ovscript"));
    app.write("fleet_update.ovscript", example("fleet_update.ovscript"));
    QString csv;
    for (int i = 0; i < 3; ++i)
        csv += QStringLiteral("%1,%2,admin,\n").arg(devices.address(i).toString()).arg(devices.port(i));
    app.write("devices.csv", csv);

    QVERIFY2(app.run({ "--batch", "--script", "fleet_update.ovscript" }, 60000), qPrintable(app.output));
    QCOMPARE(app.code, 0);
    const QStringList lines = app.lines();
    const auto at = [&lines](const QString& line) { return lines.indexOf(line); };
    // The autorun script first, then the script of the command line, each line in turn.
    QVERIFY2(at("[ovscript]: Autorun: 0.5, build #1964") >= 0, qPrintable(app.output));
    QVERIFY(at("[ovscript]: Service/address: 127.0.0.1") > at("[ovscript]: Autorun: 0.5, build #1964"));
    QVERIFY(at("[ovscript]: Devices imported: 3") > at("[ovscript]: Devices in the list: 0"));
    QVERIFY(at("[ovscript]: Devices in the list: 3") > at("[ovscript]: Devices imported: 3"));
    QCOMPARE(lines.count("[ovscript]: Done"), 2);
    QCOMPARE(app.output.count(": Done upgrading"), 2);
    QCOMPARE(app.output.count("Confirmed new firmware for"), 2);
    // The export comes after both checks have ended, and is the last word.
    QVERIFY(at("[ovscript]: Exported 3 devices to updated.csv") > lines.lastIndexOf("[ovscript]: Done"));
    QCOMPARE(lines.last(), QStringLiteral("[ovscript]: Exported 3 devices to updated.csv"));
    QCOMPARE(app.read("updated.csv").count('\n'), 3);
    QCOMPARE(service.requests("confirm").size(), 2);
}

void test_script_run::runs_end_data()
{
    QTest::addColumn<QStringList>("args");
    QTest::addColumn<QString>("autorun"); // "file:content", or none
    QTest::addColumn<QString>("script");
    QTest::addColumn<int>("code");
    QTest::addColumn<QStringList>("present");
    QTest::addColumn<QStringList>("absent");
    const QStringList script { "--batch", "--script", "s.ovscript" }, lua { "--batch", "--script", "s.lua" };
    const auto row = [](const char* name, const QStringList& args, const QString& autorun, const QString& script,
                         int code, const QStringList& present, const QStringList& absent = {}) {
        QTest::newRow(name) << args << autorun << script << code << present << absent;
    };
    row("exit with lines still queued", script, "", "print one\nexit\nprint two\nsleep 30\nprint three\n", 0,
        { "[ovscript]: one" }, { "[ovscript]: two", "[ovscript]: three" });
    row("a script of comments", script, "", "# nothing\n\n", 0, { "Loaded script: s.ovscript" });
    row("the end of the script", script, "", "a=1\nprint ${a}\nvars.delete nothing\n", 0,
        { "[ovscript]: 1", "[ovscript]: Variable nothing not found" });
    row("with a task list, nothing launched", script + QStringList { "list.csv" }, "", "print $(task.list)\n", 0,
        { "[ovscript]: 2" }, { "Launching" });
    row("a missing macro at the fleet's end is named before the run ends", script + QStringList { "list.csv" }, "",
        "events.attach tasks_done --macro=nothing\ndevices.check fetch all\n", 0,
        { "[core]: -- all done --", "Specified macro nothing does not exists." });
    row("a missing script", { "--batch", "--script", "missing.ovscript" }, "", "", 1,
        { "Unable to open script missing.ovscript: No such file or directory" });
    row("Lua", lua, "", "print(orvane.version())\nerror('late', 0)\n", 0,
        { "[lua]: Runtime message: 0.5, build #1964", "[lua]: Runtime error: late" });
    row("a Lua autorun shares its state with the script", lua, "setup.lua:site = 'north'\n", "print(site)\n", 0,
        { "[lua]: Runtime message: north" });
    // An empty list: no flow ever ends, so only the script's exit ends the run.
    row("an autorun script in plain batch mode", { "--batch", "empty.csv" },
        "setup.ovscript:settings.get.Foo bar\ndevices.add 127.0.0.5 80\ntask.dump all\nexit\n", "", 0,
        { "[ovscript]: $ settings.get.Foo bar", "[ovscript]: Foo: bar",
            "[ovscript]: endpoint: admin@127.0.0.5:80, password: -none-, mac: , mtype: 0 (endpoint)" });
    row("a script needs batch mode", { "--script", "s.ovscript" }, "", "print x\n", 0,
        { "--script <file>", "taskfile.csv" }, { "[ovscript]" });
    row("batch without a task list shows the help", { "--batch" }, "", "", 0, { "taskfile.csv" }, { "[ovscript]" });
    row("help names the option", { "--help" }, "", "", 0,
        { "--script <file>", "With --batch: run this script file" });
}

void test_script_run::runs_end()
{
    QFETCH(QStringList, args);
    QFETCH(QString, autorun);
    QFETCH(QString, script);
    QFETCH(int, code);
    QFETCH(QStringList, present);
    QFETCH(QStringList, absent);
    installation app;
    app.write(args.contains("s.lua") ? "s.lua" : "s.ovscript", script);
    app.write("list.csv", "127.0.0.7,34567,admin,\n127.0.0.8,34567,admin,\n");
    app.write("empty.csv", "");
    if (!autorun.isEmpty()) {
        app.autorun(autorun.section(':', 0, 0));
        app.write(autorun.section(':', 0, 0), autorun.section(':', 1));
    }
    QVERIFY2(app.run(args), qPrintable(app.output));
    QCOMPARE(app.code, code);
    // Nothing here waits: a run that takes this long waited for something it should not have. Loose for a
    // loaded machine.
    QVERIFY2(app.took < 20000, qPrintable(QString::number(app.took)));
    for (const QString& text : present)
        QVERIFY2(app.output.contains(text), qPrintable(text + "\n" + app.output));
    for (const QString& text : absent)
        QVERIFY2(!app.output.contains(text), qPrintable(text + "\n" + app.output));
}

void test_script_run::batch_quits_while_a_script_sleeps()
{
    devsim_harness devices;
    QVERIFY2(devices.start(1), qPrintable(devices.error()));
    installation app;
    app.autorun("setup.ovscript");
    app.write("setup.ovscript", "sleep 1m\nprint late\n");
    app.write("devices.csv", QStringLiteral("%1,%2,admin,\n").arg(devices.address(0).toString()).arg(devices.port(0)));
    // The flow ends (without a service) while the interpreter stands inside the sleep: the run ends all the same.
    QVERIFY2(app.run({ "--batch", "--fetch-only", "devices.csv" }, 50000), qPrintable(app.output));
    QCOMPARE(app.code, 0);
    // Well before the minute of the sleep.
    QVERIFY2(app.took < 40000, qPrintable(QString::number(app.took)));
    QVERIFY(app.output.contains("[core]: -- all done --"));
    QVERIFY(app.output.contains("[ovscript]: $ sleep 1m"));
    QVERIFY(!app.output.contains("[ovscript]: late"));
}

void test_script_run::macros_run_at_the_fleets_end()
{
    installation app;
    // The autorun script attaches, the script of the command line runs the fleet. A second attachment with the
    // same key replaces the first; a bare task_done never fires, as the raise carries the flow's ident.
    app.autorun("setup.ovscript");
    app.write("setup.ovscript",
        "macro.record after\nprint after\nprint twice\nmacro.stop\n"
        "events.attach tasks_done --macro=gone\nevents.attach tasks_done --macro=after\n");
    app.write("s.ovscript",
        "macro.record each\nprint a flow ended\nmacro.stop\n"
        "events.attach task_done --macro=each\nevents.attach task_done ${$task/0/ident} --macro=each\n"
        "devices.check fetch all\nprint script done\n");
    app.write("list.csv", QStringLiteral("127.0.0.7,%1,admin,\n127.0.0.8,%2,admin,\n").arg(fleet::closed_port()).arg(fleet::closed_port()));
    QVERIFY2(app.run({ "--batch", "--script", "s.ovscript", "list.csv" }), qPrintable(app.output));
    QCOMPARE(app.code, 0);
    const QStringList lines = app.lines();
    const int all_done = lines.indexOf("[core]: -- all done --");
    QVERIFY2(all_done >= 0, qPrintable(app.output));
    // Once, after the fleet's end, every line of the macro; the flow's own only for the ident named.
    QCOMPARE(lines.count("[ovscript]: twice"), 1);
    QVERIFY2(lines.indexOf("[ovscript]: twice") > all_done, qPrintable(app.output));
    QVERIFY(lines.indexOf("[ovscript]: after") > all_done);
    QVERIFY(lines.indexOf("[ovscript]: after") < lines.indexOf("[ovscript]: twice"));
    QCOMPARE(lines.count("[ovscript]: a flow ended"), 1);
    QVERIFY(!app.output.contains("Specified macro"));
    QVERIFY(lines.indexOf("[ovscript]: script done") > 0);
}

QTEST_GUILESS_MAIN(test_script_run)
#include "test_script_run.moc"
