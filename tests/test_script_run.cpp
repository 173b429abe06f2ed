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
    void use(const svcsim_harness& service)
    {
        settings("Service/port", service.port());
        settings("Service/client_id", QString::fromLatin1(service.client_id().toHex()));
        settings("Service/client_key", QString::fromLatin1(service.client_key().toHex()));
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
    // Runs the program (or another) to its end; false when it didn't end in time.
    bool run(const QStringList& args, int timeout_ms = 30000, const QString& program = {})
    {
        QProcess p;
        p.setWorkingDirectory(dir.path());
        p.start(program.isEmpty() ? dir.filePath("orvane") : program, args);
        QElapsedTimer clock;
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
    QTemporaryDir dir;
    QString output;
    int code = -1;
    qint64 took = 0;
};

} // namespace

class test_script_run : public QObject
{
    Q_OBJECT
private slots:
    void runs_end_data();
    void runs_end();
    void batch_quits_while_a_script_sleeps();
    void batch_run_beside_the_real_program();
};

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
    row("the end of the script", script, "", "a=1\nprint ${a}\nvars.delete nothing\n", 0,
        { "[ovscript]: 1", "[ovscript]: Variable nothing not found" });
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
        { "With --batch: run this script file", "taskfile.csv" }, { "[ovscript]" });
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
    QVERIFY(app.output.contains("[core]: -- all done --") && app.output.contains("[ovscript]: $ sleep 1m"));
    QVERIFY(!app.output.contains("[ovscript]: late"));
}

// Started through PATH and a symlink from another folder: the program's files and checksum are the real file's.
void test_script_run::batch_run_beside_the_real_program()
{
    devsim_harness devices;
    QVERIFY2(devices.start(2), qPrintable(devices.error()));
    svcsim_harness service;
    QVERIFY2(service.start({ { "fleet", QJsonObject { { devices.state(0)["serial"].toString(), "updated" },
                                            { devices.state(1)["serial"].toString(), "updated" } } } }),
        qPrintable(service.error()));
    installation app;
    app.use(service);
    const QDir root(app.dir.path());
    QVERIFY(root.mkdir("bin") && root.mkdir("work"));
    QVERIFY(QFile::link(root.filePath("orvane"), root.filePath("bin/ov")));
    app.write("work/devices.csv", QStringLiteral("%1,%2,admin,\n%3,%4,admin,\n").arg(devices.address(0).toString())
                                      .arg(devices.port(0)).arg(devices.address(1).toString()).arg(devices.port(1)));
    // Through the shell, so that the program sees the bare name it was started by.
    const QString line
        = QStringLiteral("cd work && PATH=%1:$PATH exec ov --batch devices.csv").arg(root.filePath("bin"));
    QVERIFY2(app.run({ "-c", line }, 60000, "/bin/sh"), qPrintable(app.output));
    QCOMPARE(app.code, 0);
    QCOMPARE(app.output.count("Device serial: "), 2);
    QCOMPARE(app.output.count("No updates for the"), 2);
    for (const char* name : { "ov.config", "blackbox.log", "cache.ovpack" }) {
        QVERIFY2(QFile::exists(root.filePath(name)), name);
        QVERIFY2(!QFile::exists(root.filePath(QStringLiteral("work/") + name)), name);
    }
    QFile self(root.filePath("orvane"));
    QVERIFY(self.open(QIODevice::ReadOnly));
    const QJsonArray updates = service.requests("update");
    QCOMPARE(updates.size(), 2);
    QCOMPARE(updates[0].toObject()["query"].toObject()["app"].toObject()["hash"].toString(),
        QString::fromLatin1(QCryptographicHash::hash(self.readAll(), QCryptographicHash::Md5).toHex()));
}

QTEST_GUILESS_MAIN(test_script_run)
#include "test_script_run.moc"
