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

namespace {

using stage = sdk::prototype::flash_progress_type;

// A message the test makes the library send, to one of the ids it handed out or to none.
struct sent
{
    enum target { login, upgrade, stranger } to;
    int message;
    int p1;
    int p2;
    int p3;
};
using sent_list = QList<sent>;

QString stage_name(stage s)
{
    return QString::fromLatin1(QMetaEnum::fromType<stage>().valueToKey(int(s)));
}

// What a worker reported, in order, queued to the main thread as the core receives it.
class reports final : public QObject
{
public:
    explicit reports(sdk::prototype* worker)
    {
        const auto on = [this, worker](auto signal, auto slot) { connect(worker, signal, this, slot, Qt::QueuedConnection); };
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

bool has_call(const QStringList& journal, const QString& start)
{
    return std::any_of(journal.cbegin(), journal.cend(), [&](const QString& line) { return line.startsWith(start); });
}

} // namespace

Q_DECLARE_METATYPE(sent_list)

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
    void xnet_waits_for_the_login_report();
    void reboot_is_refused_silently_data();
    void reboot_is_refused_silently();
    void worker_deleted_while_the_library_calls_back_data() { reboot_is_refused_silently_data(); }
    void worker_deleted_while_the_library_calls_back();
    void library_search_data();
    void library_search();

private:
    fake_sdk_client& fake(int type) { return type == 2 ? m_xcloud : m_xnet; }
    // Logs in and starts the upgrade of the temporary file, as the core does; false when the
    // library never got the upgrade call.
    bool start_upgrade(int type, sdk::prototype& worker, const sent_list& during_login, bool login_accepted);
    void send(int type, const sent_list& messages);

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

bool test_sdk_library_backends::start_upgrade(
    int type, sdk::prototype& worker, const sent_list& during_login, bool login_accepted)
{
    if (!worker.write_temporary_file(QByteArray(3000, 'f'), true) || !worker.upgrade_firmware_file(QString()))
        return false;
    m_login_id = fake(type).last_id();
    send(type, during_login);
    if (!login_accepted)
        return true;
    if (type == 3)
        fake(type).send(m_login_id, 12500, 6, 0, 0);
    if (!QTest::qWaitFor([&] { return has_call(fake(type).journal(), "upgrade "); }, 5000))
        return false;
    m_upgrade_id = fake(type).last_id();
    return true;
}

void test_sdk_library_backends::send(int type, const sent_list& messages)
{
    for (const sent& m : messages) {
        const int id = m.to == sent::login ? m_login_id : m.to == sent::upgrade ? m_upgrade_id : 999999;
        fake(type).send(id, m.message, m.p1, m.p2, m.p3);
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
    QTest::addColumn<stage>("expected");
    QTest::addColumn<uint>("current");
    QTest::addColumn<uint>("total");
    QTest::addColumn<bool>("ends");
    QTest::newRow("2 sending") << 2 << 100 << 400 << stage::sending << 100u << 400u << false;
    QTest::newRow("3 sending complete") << 3 << 400 << 400 << stage::sending_complete << 400u << 400u << false;
    QTest::newRow("4 below 501 upgrading") << 4 << 500 << 7 << stage::upgrading << 500u << 7u << false;
    QTest::newRow("4 with 515 done") << 4 << 515 << 9 << stage::done << 515u << 9u << true;
    QTest::newRow("4 with 501 failure") << 4 << 501 << 9 << stage::failure << 501u << 0u << true;
    QTest::newRow("4 above 515 failure") << 4 << 600 << 9 << stage::failure << 600u << 0u << true;
    QTest::newRow("5 upgrading complete") << 5 << 100 << 100 << stage::upgrading_complete << 100u << 100u << false;
    QTest::newRow("6 negative failure") << 6 << -7 << 3 << stage::failure << 7u << 0u << true;
    QTest::newRow("6 lowest int failure") << 6 << INT_MIN << 0 << stage::failure << 2147483648u << 0u << true;
    QTest::newRow("6 zero done") << 6 << 0 << 100 << stage::done << 0u << 100u << true;
    QTest::newRow("1 misinterpreted") << 1 << 4 << 5 << stage::misinterpreted << 4u << 5u << false;
    QTest::newRow("7 misinterpreted") << 7 << -1 << 5 << stage::misinterpreted << 4294967295u << 5u << false;
}

void test_sdk_library_backends::progress_translation()
{
    QFETCH(int, p1);
    QFETCH(int, p2);
    QFETCH(int, p3);
    const sdk::library_backend::progress p = sdk::library_backend::translate(p1, p2, p3);
    QTEST(p.stage, "expected");
    QTEST(p.current, "current");
    QTEST(p.total, "total");
    QTEST(p.ends, "ends");
}

void test_sdk_library_backends::library_calls_data()
{
    QTest::addColumn<int>("type");
    QTest::addColumn<QString>("user");
    QTest::addColumn<QString>("password");
    QTest::addColumn<QString>("login"); // %1 the id handed out
    QTest::newRow("xcloud") << 2 << "admin" << "secret" << "credentials 127.0.0.7 admin secret";
    QTest::newRow("xnet: the record read at its offsets")
        << 3 << "admin" << "secret" << "login 127.0.0.7 34567 admin secret reserved zero 15000 0 as %1";
    QTest::newRow("xnet: texts longer than their fields are cut")
        << 3 << QString(70, 'u') << QString(64, 'p')
        << QStringLiteral("login 127.0.0.7 34567 %1 %2 reserved zero 15000 0 as %3")
               .arg(QString(63, 'u'), QString(63, 'p'), "%1");
}

void test_sdk_library_backends::library_calls()
{
    QFETCH(int, type);
    QFETCH(QString, user);
    QFETCH(QString, password);
    QFETCH(QString, login);
    const auto worker = make_worker(type, "manual", user, password);
    QVERIFY(worker);
    fake(type).clear();
    QVERIFY(start_upgrade(type, *worker, {}, true));
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
}

void test_sdk_library_backends::messages_move_the_stages_data()
{
    QTest::addColumn<int>("type");
    QTest::addColumn<QByteArray>("mode");
    QTest::addColumn<sent_list>("during_login");
    QTest::addColumn<sent_list>("after");
    QTest::addColumn<QStringList>("expected");
    for (int type : { 2, 3 }) {
        const auto row = [type](const char* name) {
            return &QTest::newRow(qPrintable(QStringLiteral("%1: %2").arg(type == 2 ? "xcloud" : "xnet", name)));
        };
        *row("an unknown id is ignored") << type << QByteArray("manual") << sent_list {}
                                         << sent_list { { sent::stranger, 13006, 2, 10, 100 },
                                                { sent::upgrade, 13006, 2, 20, 100 } }
                                         << QStringList { "sending 20 100" };
        *row("progress during the log-in is ignored")
            << type << QByteArray("manual") << sent_list { { sent::login, 13006, 4, 515, 0 } }
            << sent_list { { sent::upgrade, 13006, 4, 515, 0 } } << QStringList { "done 515 0" };
        *row("a failure ends the stage") << type << QByteArray("manual") << sent_list {}
                                         << sent_list { { sent::upgrade, 13006, 4, 501, 0 },
                                                { sent::upgrade, 13006, 2, 1, 1 } }
                                         << QStringList { "failure 501 0" };
        *row("the log-in id reaches the worker too")
            << type << QByteArray("manual") << sent_list {} << sent_list { { sent::login, 13006, 2, 5, 50 } }
            << QStringList { "sending 5 50" };
        *row("other messages are ignored") << type << QByteArray("manual") << sent_list {}
                                           << sent_list { { sent::upgrade, 12501, 6, 0, 0 },
                                                  { sent::upgrade, 13005, 2, 1, 1 }, { sent::upgrade, 13006, 9, 1, 2 } }
                                           << QStringList { "misinterpreted 1 2" };
        *row("log-in refused") << type << QByteArray("refuse_login") << sent_list {} << sent_list {}
                               << QStringList { QStringLiteral("failed 1 Ошибка входа") };
        *row("upgrade refused") << type << QByteArray("refuse_upgrade") << sent_list {} << sent_list {}
                                << QStringList { QStringLiteral("failed 2 Ошибка запуска обновления") };
    }
}

void test_sdk_library_backends::messages_move_the_stages()
{
    QFETCH(int, type);
    QFETCH(QByteArray, mode);
    QFETCH(sent_list, during_login);
    QFETCH(sent_list, after);
    QFETCH(QStringList, expected);
    const auto worker = make_worker(type, mode.constData());
    QVERIFY(worker);
    reports seen(worker.get());
    fake(type).clear();
    QVERIFY(start_upgrade(type, *worker, during_login, mode != "refuse_login"));
    send(type, after);
    // Every message above was handled before its send returned; what it posted is all there is.
    QTRY_COMPARE(seen.lines, expected);
    QCoreApplication::processEvents();
    QCOMPARE(seen.lines, expected);
    if (mode == "refuse_login")
        QVERIFY(!has_call(fake(type).journal(), "upgrade "));
}

void test_sdk_library_backends::xnet_waits_for_the_login_report()
{
    const auto worker = make_worker(3);
    QVERIFY(worker);
    reports seen(worker.get());
    m_xnet.clear();
    QVERIFY(worker->write_temporary_file("firmware", true));
    QVERIFY(worker->upgrade_firmware_file(QString()));
    const int login = m_xnet.last_id();
    m_xnet.send(login, 12500, 5, 0, 0);
    // Three times the other library's log-in pause: no timer moves this one on.
    QTest::qWait(300);
    QVERIFY(!has_call(m_xnet.journal(), "upgrade "));
    m_xnet.send(login, 12500, 6, 0, 0);
    QTRY_VERIFY(has_call(m_xnet.journal(), "upgrade "));
    QVERIFY(seen.lines.isEmpty());
}

void test_sdk_library_backends::reboot_is_refused_silently_data()
{
    QTest::addColumn<int>("type");
    QTest::newRow("xcloud") << 2;
    QTest::newRow("xnet") << 3;
}

void test_sdk_library_backends::reboot_is_refused_silently()
{
    QFETCH(int, type);
    const auto worker = make_worker(type);
    QVERIFY(worker);
    reports seen(worker.get());
    fake(type).clear();
    QVERIFY(!worker->reboot());
    QVERIFY(!worker->upgrade_firmware("firmware"));
    // Every task but the flash goes back to the legacy backend.
    QCOMPARE(worker->operations(), QStringList { "flash" });
    QCOMPARE(worker->uses_sdk_session(QStringLiteral("reboot")), 1);
    QCoreApplication::processEvents();
    QVERIFY(seen.lines.isEmpty());
    QVERIFY(fake(type).journal().isEmpty());
    QVERIFY(!worker->isRunning());
}

void test_sdk_library_backends::worker_deleted_while_the_library_calls_back()
{
    QFETCH(int, type);
    auto worker = make_worker(type);
    QVERIFY(worker);
    reports seen(worker.get());
    QVERIFY(start_upgrade(type, *worker, {}, true));
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

void test_sdk_library_backends::library_search_data()
{
    QTest::addColumn<QString>("name");
    QTest::addColumn<QByteArrayList>("symbols");
    QTest::addColumn<bool>("in_second_folder");
    QTest::addColumn<bool>("loads");
    QTest::addColumn<QString>("error");
    const QByteArrayList xcloud { "XCloudSDK_Init", "XCloudSDK_Device_UpgradeByFile" };
    QTest::newRow("in the first folder") << "XCloudSDK" << xcloud << false << true << QString();
    QTest::newRow("in a later folder") << "XCloudSDK" << xcloud << true << true << QString();
    QTest::newRow("nowhere") << "OrvaneAbsentSDK" << xcloud << false << false << "OrvaneAbsentSDK";
    QTest::newRow("there without a function")
        << "XNetSDK" << QByteArrayList { "XSDK_Init", "XSDK_Logout" } << false << false << "XSDK_Logout";
}

void test_sdk_library_backends::library_search()
{
    QFETCH(QString, name);
    QFETCH(QByteArrayList, symbols);
    QFETCH(bool, in_second_folder);
    QFETCH(bool, loads);
    QFETCH(QString, error);
    QTemporaryDir empty;
    sdk::device_library::set_folders(in_second_folder ? QStringList { empty.path(), fake_sdk_client::folder() }
                                                      : QStringList { fake_sdk_client::folder(), empty.path() });
    sdk::device_library library(name, { symbols[0].constData(), symbols[1].constData() });
    const bool loaded = library.load();
    sdk::device_library::set_folders({ fake_sdk_client::folder() });
    QCOMPARE(loaded, loads);
    QCOMPARE(library.file_name(), QStringLiteral("lib%1.so").arg(name));
    QVERIFY2(library.error().contains(error), qPrintable(library.error()));
    if (loads)
        QVERIFY(library.function<QFunctionPointer>(symbols[0].constData()) != nullptr);
}

QTEST_GUILESS_MAIN(test_sdk_library_backends)
#include "test_sdk_library_backends.moc"
