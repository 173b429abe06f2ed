// The backends over the closed device libraries, against stand-ins: what they hand the library, how its messages
// move them on, and callbacks from foreign threads.
#include "sdk/device_library.h"
#include "sdk/library_backend.h"
#include "tests/fake_sdk/fake_sdk_client.h"

#include <QMetaEnum>
#include <QTemporaryDir>
#include <QtTest>

#include <climits>
#include <memory>

namespace
{

using stage = sdk::prototype::flash_progress_type;

QString stage_name(stage s) { return QString::fromLatin1(QMetaEnum::fromType<stage>().valueToKey(int(s))); }

// What a worker reported, in order, queued to the main thread as the core receives it.
class reports final : public QObject
{
public:
    explicit reports(sdk::prototype* worker)
    {
        const auto on
            = [this, worker](auto signal, auto slot) { connect(worker, signal, this, slot, Qt::QueuedConnection); };
        on(&sdk::prototype::failed, [this](const QString&, int code, const QString& text) {
            lines << QStringLiteral("failed %1 %2").arg(code).arg(text);
        });
        on(&sdk::prototype::flash_progress, [this](const QString&, stage s, uint current, uint total) {
            lines << QStringLiteral("%1 %2 %3").arg(stage_name(s)).arg(current).arg(total);
        });
        on(&sdk::prototype::done, [this] { lines << QStringLiteral("done"); });
        on(&sdk::prototype::status_update, [this] { lines << QStringLiteral("status"); });
        on(&sdk::prototype::data_available, [this] { lines << QStringLiteral("data"); });
    }

    QStringList lines;
};

// A worker of the type with the stand-in library in that mode; none when its init fails.
std::unique_ptr<sdk::prototype> make_worker(
    int type, const char* mode = "manual", const QString& user = "admin", const QString& password = "secret")
{
    static int count = 0;
    fake_sdk_client::set_mode(mode);
    std::unique_ptr<sdk::prototype> worker(sdk::prototype::create(type));
    device dev;
    dev.ip = QStringLiteral("127.0.0.7");
    dev.port = 34567;
    dev.user = user;
    dev.password = password;
    return worker->init(QStringLiteral("{flow-%1}").arg(++count), dev) ? std::move(worker) : nullptr;
}

} // namespace

class test_sdk_library_backends : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase();
    // First: the libraries' once-flags are process-wide, and only a process that has not
    // initialised a library yet can see a refusal.
    void refused_init_is_tried_again_data();
    void refused_init_is_tried_again();
    void progress_translation_data();
    void progress_translation();
    void library_calls_data();
    void library_calls();
    void messages_move_the_stages_data();
    void messages_move_the_stages();
    void library_search();

private:
    fake_sdk_client& fake(int type) { return type == 2 ? m_xcloud : m_xnet; }
    // Logs in and starts the upgrade of the temporary file, as the core does; false when the
    // library never got the upgrade call.
    bool start_upgrade(int type, sdk::prototype& worker, const QString& during_login = {});
    // Messages as "l|u|s message p1 p2 p3, ...": to the log-in, the upgrade or an id nobody was given.
    void send(int type, const QString& messages);

    fake_sdk_client m_xcloud { QStringLiteral("XCloudSDK") };
    fake_sdk_client m_xnet { QStringLiteral("XNetSDK") };
    int m_login_id = 0;
    int m_upgrade_id = 0;
};

void test_sdk_library_backends::initTestCase()
{
    qRegisterMetaType<stage>("sdk::prototype::flash_progress_type");
    QVERIFY2(m_xcloud.loaded(), qPrintable(m_xcloud.error()));
    QVERIFY2(m_xnet.loaded(), qPrintable(m_xnet.error()));
    sdk::device_library::set_folders({ fake_sdk_client::folder() });
}

bool test_sdk_library_backends::start_upgrade(int type, sdk::prototype& worker, const QString& during_login)
{
    if (!worker.write_temporary_file(QByteArray(3000, 'f'), true) || !worker.upgrade_firmware_file(QString()))
        return false;
    m_login_id = fake(type).last_id();
    send(type, during_login);
    if (type == 3)
        fake(type).send(m_login_id, 12500, 6, 0, 0);
    if (!QTest::qWaitFor([&] { return ("\n" + fake(type).journal().join('\n')).contains("\nupgrade "); }, 5000))
        return false;
    m_upgrade_id = fake(type).last_id();
    return true;
}

void test_sdk_library_backends::send(int type, const QString& messages)
{
    for (const QString& text : messages.split(", ", Qt::SkipEmptyParts)) {
        const QStringList m = text.split(' ');
        const int id = m[0] == "l" ? m_login_id : m[0] == "u" ? m_upgrade_id : 999999;
        fake(type).send(id, m[1].toInt(), m[2].toInt(), m[3].toInt(), m[4].toInt());
    }
}

void test_sdk_library_backends::refused_init_is_tried_again_data()
{
    QTest::addColumn<int>("type");
    QTest::addColumn<QString>("call");
    QTest::newRow("xcloud: the fixed text")
        << 2
        << "init {\"LogLevel\":0,\"TempPath\":\"\",\"ConfigPath\":\"\",\"PlatUUID\":\"\",\"PlatAppKey\":\"\","
           "\"PlatAppSecret\":\"\",\"PlatMovedCard\":0,\"ServerIP\":\"\",\"ServerPort\":34567}";
    QTest::newRow("xnet: the callback between two zeros") << 3 << "init 0 callback 0";
}

void test_sdk_library_backends::refused_init_is_tried_again()
{
    QFETCH(int, type);
    QFETCH(QString, call);
    fake(type).clear();
    QVERIFY(!make_worker(type, "refuse_init"));
    const auto first = make_worker(type);
    const auto second = make_worker(type);
    QVERIFY(first && second);
    // The refusal and the first success; the second worker finds the library ready.
    QCOMPARE(fake(type).journal(), QStringList({ call, call }));
}

void test_sdk_library_backends::progress_translation_data()
{
    QTest::addColumn<int>("p1");
    QTest::addColumn<int>("p2");
    QTest::addColumn<int>("p3");
    QTest::addColumn<QString>("expected"); // stage current total, "end" when it ends the flash
    QTest::newRow("2 sending") << 2 << 100 << 400 << "sending 100 400";
    QTest::newRow("3 sending complete") << 3 << 400 << 400 << "sending_complete 400 400";
    QTest::newRow("4 below 501 upgrading") << 4 << 500 << 7 << "upgrading 500 7";
    QTest::newRow("4 with 515 done") << 4 << 515 << 9 << "done 515 9 end";
    QTest::newRow("4 with 501 failure") << 4 << 501 << 9 << "failure 501 0 end";
    QTest::newRow("4 above 515 failure") << 4 << 600 << 9 << "failure 600 0 end";
    QTest::newRow("5 upgrading complete") << 5 << 100 << 100 << "upgrading_complete 100 100";
    QTest::newRow("6 negative failure") << 6 << -7 << 3 << "failure 7 0 end";
    QTest::newRow("6 lowest int failure") << 6 << INT_MIN << 0 << "failure 2147483648 0 end";
    QTest::newRow("6 zero done") << 6 << 0 << 100 << "done 0 100 end";
    QTest::newRow("1 misinterpreted") << 1 << 4 << 5 << "misinterpreted 4 5";
    QTest::newRow("7 misinterpreted") << 7 << -1 << 5 << "misinterpreted 4294967295 5";
}

void test_sdk_library_backends::progress_translation()
{
    QFETCH(int, p1);
    QFETCH(int, p2);
    QFETCH(int, p3);
    const sdk::library_backend::progress p = sdk::library_backend::translate(p1, p2, p3);
    QTEST(QStringLiteral("%1 %2 %3%4").arg(stage_name(p.stage)).arg(p.current).arg(p.total).arg(p.ends ? " end" : ""),
        "expected");
}

void test_sdk_library_backends::messages_move_the_stages_data()
{
    QTest::addColumn<int>("type");
    QTest::addColumn<QString>("during_login");
    QTest::addColumn<QString>("after");
    QTest::addColumn<QStringList>("expected");
    for (int type : { 2, 3 }) {
        const auto row = [type](const char* name, const char* login, const char* after, const char* expected) {
            QTest::newRow(qPrintable(QStringLiteral("%1: %2").arg(type == 2 ? "xcloud" : "xnet", name)))
                << type << login << after << QStringList { expected };
        };
        row("an unknown id is ignored", "", "s 13006 2 10 100, u 13006 2 20 100", "sending 20 100");
        row("progress during the log-in is ignored", "l 13006 4 515 0", "u 13006 4 515 0", "done 515 0");
        row("a failure ends the stage", "", "u 13006 4 501 0, u 13006 2 1 1", "failure 501 0");
        row("the log-in id reaches the worker too", "", "l 13006 2 5 50", "sending 5 50");
        row("other messages are ignored", "", "u 12501 6 0 0, u 13005 2 1 1, u 13006 9 1 2", "misinterpreted 1 2");
    }
}

void test_sdk_library_backends::messages_move_the_stages()
{
    QFETCH(int, type);
    QFETCH(QString, during_login);
    QFETCH(QString, after);
    QFETCH(QStringList, expected);
    const auto worker = make_worker(type);
    QVERIFY(worker);
    reports seen(worker.get());
    fake(type).clear();
    QVERIFY(start_upgrade(type, *worker, during_login));
    send(type, after);
    // Every message above was handled before its send returned; what it posted is all there is.
    QTRY_COMPARE(seen.lines, expected);
    QCoreApplication::processEvents();
    QCOMPARE(seen.lines, expected);
}

void test_sdk_library_backends::library_calls_data()
{
    QTest::addColumn<int>("type");
    QTest::addColumn<QString>("user");
    QTest::addColumn<QString>("password");
    QTest::addColumn<QString>("login"); // %1 the id handed out
    QTest::newRow("xcloud") << 2 << "admin" << "secret" << "credentials 127.0.0.7 admin secret";
    QTest::newRow("xnet: the record read at its offsets, texts cut to their fields")
        << 3 << QString(70, 'u') << QString(64, 'p')
        << QStringLiteral("login 127.0.0.7 34567 %1 %2 reserved zero 15000 0 as %3")
               .arg(QString(63, 'u'), QString(63, 'p'), "%1");
}

// What the library is handed; every task but the flash goes back to the legacy backend without a word to the row
// or the library; a worker deleted while library threads call it back gets no more reports.
void test_sdk_library_backends::library_calls()
{
    QFETCH(int, type);
    QFETCH(QString, user);
    QFETCH(QString, password);
    QFETCH(QString, login);
    auto worker = make_worker(type, "manual", user, password);
    QVERIFY(worker);
    reports seen(worker.get());
    fake(type).clear();
    QVERIFY(!worker->reboot());
    QVERIFY(!worker->upgrade_firmware("firmware"));
    QCOMPARE(worker->operations(), QStringList { "flash" });
    QCOMPARE(worker->uses_sdk_session(QStringLiteral("reboot")), 1);
    QCoreApplication::processEvents();
    QVERIFY(seen.lines.isEmpty());
    QVERIFY(fake(type).journal().isEmpty());
    QVERIFY(!worker->isRunning());

    QVERIFY(start_upgrade(type, *worker));
    const QString path = worker->temporary_file_name();
    QVERIFY(QFile::exists(path));
    QStringList expected;
    if (type == 2) {
        expected << QStringLiteral("register %1 with user data").arg(m_login_id) << login
                 << QStringLiteral("upgrade %1 127.0.0.7 %2 15000 0 size 3000 as %3")
                        .arg(m_login_id)
                        .arg(path)
                        .arg(m_upgrade_id);
    } else {
        expected << login.arg(m_login_id)
                 << QStringLiteral("upgrade %1 %2 0 15000 size 3000 as %3").arg(m_login_id).arg(path).arg(m_upgrade_id);
    }
    QCOMPARE(fake(type).journal(), expected);
    worker->clean_up();
    QVERIFY(!QFile::exists(path));

    fake(type).send_async(m_upgrade_id, 13006, 2, 1, 100, 4, 3000);
    QTRY_VERIFY(!seen.lines.isEmpty());
    worker.reset();
    fake(type).join();
    QCoreApplication::processEvents();
    const int reported = seen.lines.size();
    QVERIFY(reported <= 4 * 3000);
    QCOMPARE(fake(type).send(m_upgrade_id, 13006, 2, 2, 100), 0);
    QCOMPARE(fake(type).send(m_login_id, 13006, 2, 2, 100), 0);
    QCoreApplication::processEvents();
    QCOMPARE(seen.lines.size(), reported);
}

// Found in a later folder; one that is nowhere, or lacks a function the program calls, is not loaded. Last: it
// changes the folders.
void test_sdk_library_backends::library_search()
{
    QTemporaryDir empty;
    sdk::device_library::set_folders({ empty.path(), fake_sdk_client::folder() });
    sdk::device_library found("XCloudSDK", { "XCloudSDK_Init", "XCloudSDK_Device_UpgradeByFile" });
    QVERIFY2(found.load(), qPrintable(found.error()));
    QVERIFY(found.function<QFunctionPointer>("XCloudSDK_Init") != nullptr);
    sdk::device_library absent("OrvaneAbsentSDK", { "XCloudSDK_Init" });
    QVERIFY(!absent.load());
    QVERIFY2(absent.error().contains("libOrvaneAbsentSDK.so"), qPrintable(absent.error()));
    sdk::device_library lacking("XNetSDK", { "XSDK_Init", "XSDK_Logout" });
    QVERIFY(!lacking.load());
    QVERIFY2(lacking.error().contains("XSDK_Logout"), qPrintable(lacking.error()));
}

QTEST_GUILESS_MAIN(test_sdk_library_backends)
#include "test_sdk_library_backends.moc"
