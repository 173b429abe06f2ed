#include "app/core.h"
#include "app/open_file_limit.h"

#include <QFile>
#include <QRegularExpression>
#include <QTemporaryDir>
#include <QtTest>

#include <sys/resource.h>

#include <chrono>
#include <future>
#include <thread>

namespace
{

QString read_text(const QString& path)
{
    QFile f(path);
    return f.open(QIODevice::ReadOnly) ? QString::fromUtf8(f.readAll()) : QString();
}

// Sets the soft limit of open files for a test and puts the old one back after it.
class soft_file_limit
{
public:
    explicit soft_file_limit(rlim_t soft)
    {
        getrlimit(RLIMIT_NOFILE, &m_saved);
        rlimit lowered = m_saved;
        lowered.rlim_cur = soft;
        m_set = setrlimit(RLIMIT_NOFILE, &lowered) == 0;
    }
    ~soft_file_limit() { setrlimit(RLIMIT_NOFILE, &m_saved); }
    bool set() const { return m_set; }
    static quint64 hard()
    {
        rlimit limit {};
        getrlimit(RLIMIT_NOFILE, &limit);
        return limit.rlim_max == RLIM_INFINITY ? 0 : quint64(limit.rlim_max);
    }

private:
    rlimit m_saved {};
    bool m_set = false;
};

} // namespace

class test_app : public QObject
{
    Q_OBJECT
private slots:
    void first_start_writes_only_pack_functionality();
    void unreadable_settings_are_left_as_they_are_data();
    void unreadable_settings_are_left_as_they_are();
    void log_reaches_blackbox_history_and_listeners();
    void rows_the_task_list_couldnt_keep_are_refused();
    void open_file_limit_stops_at_the_hard_limit();
    void a_launch_makes_room_for_its_devices_data();
    void a_launch_makes_room_for_its_devices();
};

void test_app::first_start_writes_only_pack_functionality()
{
    QTemporaryDir dir;
    {
        core c(QString(), dir.path());
        QVERIFY(c.operate(core::batch, false));
        QCOMPARE(c.task_manager().limit(), 0u);
        QVERIFY(c.encrypt_passwords_on_export());
        QVERIFY(!c.short_device_address_display());
        QCOMPARE(c.options().preferred_subnet.toString(), QStringLiteral("255.255.255.0"));
        QCOMPARE(c.options().log_filter, (QStringList { "core", "tasks" }));
        // The options menu's idents are stored as test_ui_menus shows; one it doesn't know is only logged.
        c.on_window_option_menu_executed("no_such_option", {}, true);
    }
    QSettings written(dir.filePath("ov.config"), QSettings::IniFormat);
    QCOMPARE(written.allKeys(), QStringList { "firmware_pack_functionality" });
    QCOMPARE(written.value("firmware_pack_functionality").toString(), QStringLiteral("legacy"));
    QVERIFY(read_text(dir.filePath("blackbox.log")).contains("[core]: Unknown menu option ident: no_such_option"));
}

void test_app::unreadable_settings_are_left_as_they_are_data()
{
    QTest::addColumn<QByteArray>("content");
    QTest::newRow("binary") << QByteArray("\x89PNG\r\n\x1a\n\0\0\0\rIHDR", 16);
    QTest::newRow("JSON") << QByteArray("{\"Service\": {\"client_id\": \"0011223344556677\"}}\n");
}

void test_app::unreadable_settings_are_left_as_they_are()
{
    QFETCH(QByteArray, content);
    QTemporaryDir dir;
    QFile file(dir.filePath("ov.config"));
    QVERIFY(file.open(QIODevice::WriteOnly) && file.write(content) == content.size());
    file.close();
    {
        core c(QString(), dir.path());
        QVERIFY(c.operate(core::batch, false));
        QCOMPARE(c.options().preferred_subnet.toString(), QStringLiteral("255.255.255.0"));
        c.on_window_option_menu_executed("reset_only_network_settings", {}, true);
        QVERIFY(c.options().reset_only_network_settings);
    }
    QVERIFY(file.open(QIODevice::ReadOnly));
    QCOMPARE(file.readAll(), content);
    QVERIFY(read_text(dir.filePath("blackbox.log"))
                .contains(QStringLiteral(
                    "The settings file \"%1\" can't be read: it is left as it is, and this run uses the defaults.")
                              .arg(dir.filePath("ov.config"))));
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
    if (hard == 0 || hard < 1000)
        QSKIP("needs a finite hard limit of open files of 1000 or more");
    const soft_file_limit lowered(200);
    QVERIFY(lowered.set());
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
    QVERIFY(lowered.set());
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

QTEST_GUILESS_MAIN(test_app)
#include "test_app.moc"
