// The core behind the interpreter: the blocking slot, the ${$...} values and shutting down
// while the interpreter waits on the core.
#include "app/core.h"

#include <QtTest>

#include <optional>

namespace {

task_element row_at(const QString& host)
{
    endpoint ep;
    ep.host = host;
    return task_element(ep, device());
}

// Runs lines through the core's interpreter and keeps the arguments each command was
// given once its variables were resolved, and the interpreter's messages.
struct session
{
    explicit session(core& c)
        : c(c)
    {
        // Made after the core's own connection, so it runs once the core's slot has returned.
        QObject::connect(&c.processor(), &cmd_processor::command, &c,
            [this](QUuid, uint, size_t, QString, scripting::cmd_id, QStringList args) {
                QMutexLocker lock(&mutex);
                resolved.append(args);
            },
            Qt::DirectConnection);
        QObject::connect(&c.processor(), &cmd_processor::output, &c, [this](const QString& m) { output.append(m); });
        QObject::connect(&c.processor(), &cmd_processor::queue_stopped, &loop, &QEventLoop::quit);
        limit.setSingleShot(true);
        QObject::connect(&limit, &QTimer::timeout, &loop, [this] { loop.exit(1); });
    }

    bool run(const QString& line)
    {
        limit.start(5000);
        c.processor().execute_line(QUuid::createUuid(), line);
        const bool stopped = loop.exec() == 0;
        limit.stop();
        return stopped;
    }

    QStringList last_args()
    {
        QMutexLocker lock(&mutex);
        return resolved.value(resolved.size() - 1);
    }

    core& c;
    QEventLoop loop;
    QTimer limit;
    QMutex mutex; // the direct connection writes on the interpreter thread
    QList<QStringList> resolved;
    QStringList output;
};

int log_count(const QString& dir_path, const QString& text)
{
    QFile f(QDir(dir_path).filePath("blackbox.log"));
    return f.open(QIODevice::ReadOnly) ? QString::fromUtf8(f.readAll()).count(text) : -1;
}

} // namespace

class test_core_commands : public QObject
{
    Q_OBJECT
private slots:
    void unknown_command_fails_and_is_logged_once();
    void variable_paths_data();
    void variable_paths();
    void variables_reach_commands();
    void shutdown_while_the_interpreter_waits_data();
    void shutdown_while_the_interpreter_waits();
};

void test_core_commands::unknown_command_fails_and_is_logged_once()
{
    QTemporaryDir dir;
    core c(QString(), dir.path());
    session s(c);
    QVERIFY(s.run("print first"));
    QVERIFY(s.run("print ${$last/ok} ${$last/result}"));
    QCOMPARE(s.last_args(), (QStringList { "0", "FIXME: dummy result" }));
    QCOMPARE(log_count(dir.path(), "Unknown command: print (53)"), 2);
    // Neither is faked as done: the result a script sees is the failure outcome.
    QCOMPARE(c.processor().last_result().ok, false);
    QCOMPARE(c.processor().last_result().result, QStringLiteral("FIXME: dummy result"));
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
}

void test_core_commands::variable_paths()
{
    QFETCH(QString, path);
    QFETCH(bool, found);
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
    QCOMPARE(answer.has_value(), found);
    if (found)
        QCOMPARE(*answer, value);
}

void test_core_commands::variables_reach_commands()
{
    QTemporaryDir dir;
    core c(QString(), dir.path());
    c.task_manager().set_limit(7);
    session s(c);
    QVERIFY(s.run("print ${$env/task_limit} [${$widget/w/v}]"));
    QCOMPARE(s.last_args(), (QStringList { "7", "[]" }));
    QCOMPARE(s.output, QStringList { "Variable not found: widget/w/v" });
    // The local address of a path with a target is found even where there is none to give.
    QVERIFY(c.resolve_variable({ "env", "local_ip", "127.0.0.1" }).has_value());
    QVERIFY(c.resolve_variable({ "env", "local_mac" }).has_value());
    // The text form, for the core's own callers: empty when unknown.
    QCOMPARE(c.resolve_variable(QStringLiteral("env/task_limit")), QStringLiteral("7"));
    QCOMPARE(c.resolve_variable(QStringLiteral("env/nothing")), QString());
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
