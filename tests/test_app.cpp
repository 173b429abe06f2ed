// The core without its window: settings at start, the log and its black box, the open file limit.
#include "app/core.h"
#include "app/open_file_limit.h"
#include "diagnostics/blackbox.h"
#include "diagnostics/latched_thread.h"

#include <QtTest>

#include <sys/resource.h>

#include <chrono>
#include <future>
#include <thread>
#include <vector>

namespace
{

QString read_text(const QString& path)
{
    QFile f(path);
    return f.open(QIODevice::ReadOnly) ? QString::fromUtf8(f.readAll()) : QString();
}

// Sets the soft limit of open files for a test and puts the old one back after it.
struct soft_file_limit
{
    explicit soft_file_limit(rlim_t soft)
    {
        getrlimit(RLIMIT_NOFILE, &saved);
        rlimit lowered = saved;
        lowered.rlim_cur = soft;
        set = setrlimit(RLIMIT_NOFILE, &lowered) == 0;
    }
    ~soft_file_limit() { setrlimit(RLIMIT_NOFILE, &saved); }
    static quint64 hard()
    {
        rlimit limit {};
        getrlimit(RLIMIT_NOFILE, &limit);
        return limit.rlim_max == RLIM_INFINITY ? 0 : quint64(limit.rlim_max);
    }
    rlimit saved {};
    bool set = false;
};

// Never finds work, so after its first round it sleeps until woken.
class idle_thread final : public background::latched_thread
{
public:
    ~idle_thread() override { stop_and_wait(); }
    QAtomicInt rounds;

protected:
    bool process() override
    {
        rounds.fetchAndAddOrdered(1);
        return false;
    }
};

} // namespace

class test_app : public QObject
{
    Q_OBJECT
private slots:
    void settings_at_start_data();
    void settings_at_start();
    void blackbox_lines();
    void lines_of_many_threads_stay_whole();
    void latched_thread_ends_while_waiting();
    void log_reaches_blackbox_history_and_listeners();
    void rows_the_task_list_couldnt_keep_are_refused();
    void open_file_limit_stops_at_the_hard_limit();
    void a_launch_makes_room_for_its_devices_data();
    void a_launch_makes_room_for_its_devices();
};

void test_app::settings_at_start_data()
{
    QTest::addColumn<QByteArray>("content"); // of ov.config before the start; empty: none
    QTest::newRow("none: only the pack functionality is written") << QByteArray();
    QTest::newRow("binary is left as it is") << QByteArray("\x89PNG\r\n\x1a\n\0\0\0\rIHDR", 16);
    QTest::newRow("JSON is left as it is") << QByteArray("{\"Service\": {\"client_id\": \"0011223344556677\"}}\n");
}

void test_app::settings_at_start()
{
    QFETCH(QByteArray, content);
    QTemporaryDir dir;
    QFile file(dir.filePath("ov.config"));
    QVERIFY(content.isEmpty() || (file.open(QIODevice::WriteOnly) && file.write(content) == content.size()));
    file.close();
    {
        core c(QString(), dir.path());
        QVERIFY(c.operate(core::batch, false));
        QCOMPARE(c.task_manager().limit(), 0u);
        QVERIFY(c.encrypt_passwords_on_export());
        // The options menu's idents are stored as test_ui_menus shows; one it doesn't know is only logged.
        c.on_window_option_menu_executed("no_such_option", {}, true);
        if (!content.isEmpty()) // a change that would be saved over the file
            c.on_window_option_menu_executed("reset_only_network_settings", {}, true);
    }
    const QString log = read_text(dir.filePath("blackbox.log"));
    QVERIFY(log.contains("[core]: Unknown menu option ident: no_such_option"));
    if (content.isEmpty()) {
        QSettings written(file.fileName(), QSettings::IniFormat);
        QCOMPARE(written.allKeys(), QStringList { "firmware_pack_functionality" });
        QCOMPARE(written.value("firmware_pack_functionality").toString(), QStringLiteral("legacy"));
        return;
    }
    QVERIFY(file.open(QIODevice::ReadOnly));
    QCOMPARE(file.readAll(), content);
    QVERIFY(log.contains(
        QStringLiteral("The settings file \"%1\" can't be read: it is left as it is, and this run uses the defaults.")
            .arg(file.fileName())));
}

void test_app::blackbox_lines()
{
    QTemporaryDir dir;
    const QString path = dir.filePath("blackbox.log");
    blackbox box(path);
    QVERIFY(box.open());
    QVERIFY(box.open()); // the session line is written once
    for (const int level : { 0, 4, 9 })
        box.write("unit", level, "value %d and %s", 42, "text");
    // A line past the buffer is cut, with no room left for its newline: it runs into the next.
    box.write("x", 1, "%s", QByteArray(5000, 'z').constData());
    box.write("x", 1, "after");
    const QStringList lines = read_text(path).split('\n');
    QVERIFY(lines.size() >= 5);
    const QRegularExpression stamp("^\\d\\d\\.\\d\\d\\.\\d\\d, \\d\\d:\\d\\d:\\d\\d, ");
    QVERIFY(lines[0].endsWith(QStringLiteral(", ---, plain, Новая сессия работы начата")));
    const QStringList levels { "debug", "error", "---" };
    for (int i = 0; i < 4; ++i)
        QVERIFY2(stamp.match(lines[i]).hasMatch(), qPrintable(lines[i]));
    for (int i = 0; i < 3; ++i)
        QCOMPARE(lines[i + 1].mid(20), QStringLiteral("unit, %1, value 42 and text").arg(levels[i]));
    QCOMPARE(lines[4].count('z') + lines[4].indexOf('z'), int(blackbox::buffer_size) - 1);
    QVERIFY(lines[4].endsWith("after") || lines.value(5).endsWith("after"));
}

void test_app::log_reaches_blackbox_history_and_listeners()
{
    QTemporaryDir dir;
    core c(QString(), dir.path());
    QStringList shown;
    c.history().add_listener(7, { "tasks" }, [&](const log_history::entry& e) { shown << e.text; });
    c.log("[dev]", "100% done", { "tasks" });
    c.log("[core]", "not shown", { "core" });

    QCOMPARE(shown.size(), 1);
    const QRegularExpression stamped("^\\d\\d\\.\\d\\d\\.\\d{4}, \\d\\d:\\d\\d:\\d\\d \\| \\[dev\\]: 100% done$");
    QVERIFY2(stamped.match(shown[0]).hasMatch(), qPrintable(shown[0]));
    // A % in a message is text, not a format directive.
    const QStringList lines = read_text(dir.filePath("blackbox.log")).split('\n', Qt::SkipEmptyParts);
    QVERIFY2(lines.value(2).endsWith(", core, plain, [dev]: 100% done"), qPrintable(lines.join('\n')));

    // A listener may log itself. On a thread of its own, so that a deadlock fails the test instead of hanging it.
    c.history().add_listener(
        8, { "tasks" }, [&](const log_history::entry& e) { c.log("[core]", "heard " + e.text, { "core" }); });
    std::promise<void> logged;
    std::thread writer([&] {
        c.log("[dev]", "first", { "tasks" });
        logged.set_value();
    });
    if (logged.get_future().wait_for(std::chrono::seconds(5)) != std::future_status::ready) {
        writer.detach();
        QFAIL("a listener that logs locks the log up");
    }
    writer.join();
    QCOMPARE(shown.size(), 2);
    QVERIFY(read_text(dir.filePath("blackbox.log")).contains("[core]: heard "));
}

void test_app::rows_the_task_list_couldnt_keep_are_refused()
{
    QTemporaryDir dir;
    core c(QString(), dir.path());
    QVERIFY(c.operate(core::batch, false));
    const endpoint clean { "hall", {}, "127.0.0.9", 34567, "admin", "secret", false, 0 };
    endpoint comma = clean;
    comma.name = "hall, left";
    c.on_task_edit_added({ comma, clean });
    QCOMPARE(c.task_manager().count(), 1);
    const QString ident = c.task_manager().lines().constFirst();
    c.on_task_edit_edited(ident, comma);
    QCOMPARE(c.task_manager().find(ident)->get(tasks::keys::endpoint).value<endpoint>(), clean);
    QCOMPARE(read_text(dir.filePath("blackbox.log")).count("can't hold a comma"), 2);
}

// Raising stops at the hard limit; below it, the launch test shows the rest.
void test_app::open_file_limit_stops_at_the_hard_limit()
{
    const quint64 hard = soft_file_limit::hard();
    if (hard < 1000) // 0: none
        QSKIP("needs a finite hard limit of open files of 1000 or more");
    const soft_file_limit lowered(200);
    QVERIFY(lowered.set);
    QCOMPARE(open_file_limit::raise_to(hard + 1000), hard);
    QCOMPARE(open_file_limit::current(), hard);
}

void test_app::a_launch_makes_room_for_its_devices_data()
{
    QTest::addColumn<uint>("task_limit");
    QTest::addColumn<quint64>("soft");
    QTest::addColumn<quint64>("expected");
    QTest::newRow("every device at once") << 0u << quint64(150) << open_file_limit::needed_for(20);
    QTest::newRow("a task limit needs less") << 5u << quint64(130) << open_file_limit::needed_for(5);
    QTest::newRow("enough already") << 0u << quint64(900) << quint64(900);
}

void test_app::a_launch_makes_room_for_its_devices()
{
    QFETCH(uint, task_limit);
    QFETCH(quint64, soft);
    QFETCH(quint64, expected);
    if (soft_file_limit::hard() != 0 && soft_file_limit::hard() < 1000)
        QSKIP("needs a hard limit of open files of 1000 or more");
    const soft_file_limit lowered(soft);
    QVERIFY(lowered.set);
    QTemporaryDir dir;
    {
        core c(QString(), dir.path());
        QVERIFY(c.operate(core::batch, true));
        c.task_manager().set_limit(task_limit);
        QList<endpoint> rows;
        for (int i = 0; i < 20; ++i)
            rows << endpoint { QString(), {}, QStringLiteral("127.0.0.%1").arg(i + 2), 1, "admin", "", false, 0 };
        c.on_task_edit_added(rows);
        c.on_window_run_list();
        QCOMPARE(open_file_limit::current(), expected);
        QTRY_VERIFY_WITH_TIMEOUT(c.task_manager().running_count() == 0, 20000);
    }
    const QString log = read_text(dir.filePath("blackbox.log"));
    const QString raised = QStringLiteral("The limit of open files is raised from %1 to %2").arg(soft).arg(expected);
    QCOMPARE(log.count(raised), expected == soft ? 0 : 1);
}

void test_app::lines_of_many_threads_stay_whole()
{
    QTemporaryDir dir;
    const QString path = dir.filePath("b.log");
    constexpr int writers = 8;
    constexpr int lines_each = 300;
    {
        blackbox box(path);
        QVERIFY(box.open());
        std::vector<std::thread> threads;
        for (int t = 0; t < writers; ++t) {
            threads.emplace_back([&box, t] {
                const QByteArray ident = "writer " + QByteArray::number(t);
                for (int i = 0; i < lines_each; ++i)
                    box.write(ident.constData(), blackbox::debug, "line %d of %d, %s", i, t, "done");
            });
        }
        for (auto& thread : threads)
            thread.join();
    }
    const QStringList lines = read_text(path).split('\n', Qt::SkipEmptyParts);
    QCOMPARE(lines.size(), 1 + writers * lines_each);
    const QRegularExpression whole(
        "^\\d\\d\\.\\d\\d\\.\\d\\d, \\d\\d:\\d\\d:\\d\\d, writer (\\d), debug, line (\\d+) of (\\d), done$");
    QVector<int> next(writers, 0);
    for (const QString& line : lines.mid(1)) {
        const QRegularExpressionMatch m = whole.match(line);
        QVERIFY2(m.hasMatch(), qPrintable(line));
        const int t = m.captured(1).toInt();
        QCOMPARE(m.captured(3).toInt(), t);
        // Each writer's lines come in its own order.
        QCOMPARE(m.captured(2).toInt(), next[t]++);
    }
}

void test_app::latched_thread_ends_while_waiting()
{
    QElapsedTimer timer;
    {
        idle_thread t;
        t.start();
        QTRY_COMPARE_WITH_TIMEOUT(t.rounds.loadAcquire(), 1, 5000);
        // Only the destruction is timed: it must wake the sleeping thread, not wait it out.
        timer.start();
    }
    QVERIFY2(timer.elapsed() < 500, qPrintable(QString::number(timer.elapsed())));
}

QTEST_GUILESS_MAIN(test_app)
#include "test_app.moc"
