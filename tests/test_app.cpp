#include "app/caps.h"
#include "app/core.h"
#include "app/menu_options.h"

#include <QFile>
#include <QProcess>
#include <QRegularExpression>
#include <QTemporaryDir>
#include <QtTest>

namespace {

QString read_text(const QString& path)
{
    QFile f(path);
    return f.open(QIODevice::ReadOnly) ? QString::fromUtf8(f.readAll()) : QString();
}

// The program copied into a folder of its own, so it runs portable there.
struct installed_binary
{
    installed_binary()
    {
        path = dir.filePath("orvane");
        QFile::copy(QStringLiteral(ORVANE_BINARY), path);
    }
    QTemporaryDir dir;
    QString path;
};

} // namespace

class test_app : public QObject
{
    Q_OBJECT
private slots:
    void first_start_writes_only_pack_functionality();
    void settings_are_read_at_menu_stage();
    void menu_options_data();
    void menu_options();
    void log_reaches_blackbox_and_history();
    void caps_text();
    void command_line_data();
    void command_line();
    void batch_start_up_lines();
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
        QVERIFY(c.session_number() != 0);
    }
    QSettings written(dir.filePath("ov.config"), QSettings::IniFormat);
    QCOMPARE(written.allKeys(), QStringList { "firmware_pack_functionality" });
    QCOMPARE(written.value("firmware_pack_functionality").toString(), QStringLiteral("legacy"));
}

void test_app::settings_are_read_at_menu_stage()
{
    QTemporaryDir dir;
    {
        QSettings s(dir.filePath("ov.config"), QSettings::IniFormat);
        s.setValue("limit_concurrent_tasks", 5);
        s.setValue("firmware_pack_functionality", "new");
        s.setValue("encrypt_passwords_on_export", false);
        s.setValue("Extended/menu_options/subnet_mask", "not an address");
        s.setValue("Extended/menu_options/reboot_after/language", false);
    }
    core c(QString(), dir.path());
    QVERIFY(c.operate(core::batch, false));
    QCOMPARE(c.task_manager().limit(), 5u);
    QVERIFY(!c.encrypt_passwords_on_export());
    QVERIFY(c.options().preferred_subnet.isNull());
    QVERIFY(!c.options().reboot_after_language);
    QCOMPARE(c.settings().value("firmware_pack_functionality").toString(), QStringLiteral("new"));
}

void test_app::menu_options_data()
{
    QTest::addColumn<QString>("ident");
    QTest::addColumn<QVariantList>("args");
    QTest::addColumn<bool>("checked");
    QTest::addColumn<QString>("key");
    QTest::addColumn<QVariant>("stored");
    QTest::addColumn<QString>("log");

    const QString group = "Extended/menu_options/";
    QTest::newRow("bool ident writes its own key") << "reset_only_network_settings" << QVariantList {} << true
                                                   << group + "reset_only_network" << QVariant("true") << "";
    QTest::newRow("reboot after config") << "reboot_after_configuration_import" << QVariantList {} << false
                                         << group + "reboot_after/config" << QVariant("false") << "";
    QTest::newRow("prefix 16") << "preferred_subnet" << QVariantList { 16 } << true << group + "subnet_mask"
                               << QVariant("255.255.0.0") << "";
    QTest::newRow("prefix 20 keeps the mask") << "preferred_subnet" << QVariantList { 20 } << true << group + "subnet_mask"
                                              << QVariant("255.255.255.0")
                                              << "Unknown subnet mask in application settings: preferred_subnet";
    QTest::newRow("log filter adds unknown tag") << "log_filter" << QVariantList { "lua" } << true << group + "log_filter"
                                                 << QVariant(QStringList { "core", "tasks", "lua" }) << "";
    QTest::newRow("log filter removes") << "log_filter" << QVariantList { "core" } << false << group + "log_filter"
                                        << QVariant(QStringList { "tasks" }) << "";
    QTest::newRow("unknown ident saves nothing") << "no_such_option" << QVariantList {} << true << group + "check_mask"
                                                 << QVariant() << "Unknown menu option ident: no_such_option";
}

void test_app::menu_options()
{
    QFETCH(QString, ident);
    QFETCH(QVariantList, args);
    QFETCH(bool, checked);
    QFETCH(QString, key);
    QFETCH(QVariant, stored);
    QFETCH(QString, log);

    QTemporaryDir dir;
    core c(QString(), dir.path());
    QVERIFY(c.operate(core::batch, false));
    c.on_window_option_menu_executed(ident, args, checked);
    c.settings().sync();

    QSettings written(dir.filePath("ov.config"), QSettings::IniFormat);
    QCOMPARE(written.value(key), stored);
    if (!log.isEmpty())
        QVERIFY2(read_text(dir.filePath("blackbox.log")).contains("[core]: " + log), qPrintable(log));

    // What was saved is what the next start reads.
    ::menu_options reread;
    reread.load(written);
    QCOMPARE(reread.log_filter, c.options().log_filter);
    QCOMPARE(reread.preferred_subnet, c.options().preferred_subnet);
}

void test_app::log_reaches_blackbox_and_history()
{
    QTemporaryDir dir;
    core c(QString(), dir.path());
    QStringList shown;
    c.history().add_listener(7, { "tasks" }, [&](const log_history::entry& e) { shown << e.text; });
    c.log("[dev]", "100% done", { "tasks" });
    c.log("[core]", "not shown", { "core" });

    QCOMPARE(shown.size(), 1);
    QVERIFY(QRegularExpression("^\\d\\d\\.\\d\\d\\.\\d{4}, \\d\\d:\\d\\d:\\d\\d \\| \\[dev\\]: 100% done$").match(shown[0]).hasMatch());
    const QStringList lines = read_text(dir.filePath("blackbox.log")).split('\n', Qt::SkipEmptyParts);
    QVERIFY(lines[0].endsWith("Новая сессия работы начата"));
    QVERIFY(lines[1].contains(", core, plain, [core]: Version: 0.5, build #1964, Linux 64 bit, capabilities: "));
    // A % in a message is text, not a format directive.
    QVERIFY(lines[2].endsWith(", core, plain, [dev]: 100% done"));
}

void test_app::caps_text()
{
    const QString one_line = caps::text();
    QCOMPARE(one_line.count(", "), caps::table().size() - 1);
    QVERIFY(one_line.contains("xc_support: true"));
    QVERIFY(one_line.contains("offline_upgrade: false"));
    QCOMPARE(caps::text(true).split('\n').size(), caps::table().size());
    QCOMPARE(caps::version_text(), QStringLiteral("0.5, build #1964"));
}

void test_app::command_line_data()
{
    QTest::addColumn<QStringList>("args");
    QTest::addColumn<QString>("expected");
    QTest::newRow("help") << QStringList { "--help" } << "Orvane by Kelmar";
    QTest::newRow("batch without file shows help") << QStringList { "--batch" } << "taskfile.csv";
    QTest::newRow("fetch-only without batch shows help") << QStringList { "--fetch-only" } << "--force-update";
}

void test_app::command_line()
{
    QFETCH(QStringList, args);
    QFETCH(QString, expected);
    installed_binary bin;
    QProcess p;
    p.start(bin.path, args);
    QVERIFY(p.waitForFinished(20000));
    QCOMPARE(p.exitStatus(), QProcess::NormalExit);
    QCOMPARE(p.exitCode(), 0);
    const QString out = QString::fromUtf8(p.readAllStandardOutput());
    QVERIFY2(out.contains(expected), qPrintable(out));
    for (const char* text : { "Batch mode, requires a CSV file to be supplied in the arguments.",
             "Only fetch update status, no firmware upgrading.", "Force device updates.",
             "Offline mode (no external communications)." })
        QVERIFY(out.simplified().contains(QString::fromLatin1(text)));
    QVERIFY(!QFile::exists(bin.dir.filePath("ov.config")));
}

void test_app::batch_start_up_lines()
{
    installed_binary bin;
    QProcess p;
    p.setWorkingDirectory(bin.dir.path());
    p.start(bin.path, { "--batch", "--offline", "any.csv" });
    QVERIFY(p.waitForStarted());
    // Batch mode with no lines stays in its event loop; read what it said, then stop it.
    QTRY_VERIFY_WITH_TIMEOUT(QFile::exists(bin.dir.filePath("ov.config")), 20000);
    QTRY_VERIFY_WITH_TIMEOUT(read_text(bin.dir.filePath("blackbox.log")).contains("Launching"), 20000);
    p.terminate();
    QVERIFY(p.waitForFinished(10000));
    const QStringList out = QString::fromUtf8(p.readAllStandardOutput()).split('\n', Qt::SkipEmptyParts);
    const QRegularExpression form("^\\d\\d\\.\\d\\d\\.\\d{4}, \\d\\d:\\d\\d:\\d\\d \\| \\[(core|sapi)\\]: ");
    QVERIFY(out.size() >= 3);
    for (const QString& line : out)
        QVERIFY2(form.match(line).hasMatch(), qPrintable(line));
    QVERIFY(out[0].contains("Version: 0.5, build #1964, Linux 64 bit, capabilities: "));
    QVERIFY(out.join('\n').contains("Running in batch mode"));
    QVERIFY(out.join('\n').contains("Disabling remote communications because offline mode was specified."));
    // The task file doesn't exist: the import says so and the launch finds nothing.
    QVERIFY(out.join('\n').contains("[sapi]: File not found"));
    QVERIFY(out.join('\n').contains("Launching 0 tasks..."));

    const QString box = read_text(bin.dir.filePath("blackbox.log"));
    QVERIFY(box.split('\n').first().endsWith("Новая сессия работы начата"));
    QVERIFY(box.contains("[core]: Running in batch mode"));
    QSettings written(bin.dir.filePath("ov.config"), QSettings::IniFormat);
    QCOMPARE(written.allKeys(), QStringList { "firmware_pack_functionality" });
}

QTEST_GUILESS_MAIN(test_app)
#include "test_app.moc"
