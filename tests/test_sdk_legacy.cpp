// The workers' step queue, and the NETIP backend's firmware upload to a simulated device as the row hears it.
#include "sdk/legacy.h"
#include "sdk/thread_starter.h"
#include "tests/support/devsim_harness.h"

#include <QSignalSpy>
#include <QtTest>

namespace
{

// A backend whose steps only record themselves; a chosen code fails.
class recording_backend final : public sdk::prototype
{
public:
    recording_backend()
        : prototype(sdk::type::legacy)
    {
    }
    ~recording_backend() override { wait(); }

    QList<int> ran;
    int fail_at = -1;

    QStringList operations() const override { return { "reboot" }; }
    int uses_sdk_session(const QString&) const override { return 0; }
    bool change_ip(const QHostAddress&, const QHostAddress&) override { return false; }
    bool change_port(const QString&, uint16_t) override { return false; }
    bool change_subnet(const QHostAddress&) override { return false; }
    bool set_dhcp(bool) override { return false; }
    bool upgrade_firmware_file(const QString&) override { return false; }
    bool fix_device(bool) override { return false; }
    bool upgrade_firmware(const QByteArray&) override { return false; }
    bool import_configuration(const QString&) override { return false; }
    bool reboot() override { return false; }
    bool identify() override { return false; }
    bool reset_configuration(const parameters&) override { return false; }
    bool set_language(const QString&) override { return false; }
    bool await_device(const QHostAddress&, float) override { return false; }
    bool execute(const QString&, const QVariantList&, bool, bool, bool, bool) override { return false; }

protected:
    bool run_step(const step& s) override
    {
        ran << s.code;
        if (s.code == fail_at) {
            emit failed(ident(), 9, "step failed");
            return false;
        }
        return s.code == step_emit_done ? prototype::run_step(s) : true;
    }
};

} // namespace

class test_sdk_legacy : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase() { qRegisterMetaType<sdk::prototype::flash_progress_type>(); }
    void enqueue_sequences_data();
    void enqueue_sequences();
    void upload_progress_data();
    void upload_progress();
    void threads_start_a_few_per_turn();
};

void test_sdk_legacy::enqueue_sequences_data()
{
    QTest::addColumn<bool>("client");
    QTest::addColumn<bool>("login");
    QTest::addColumn<bool>("done");
    QTest::addColumn<int>("fail_at");
    QTest::addColumn<QList<int>>("expected");
    QTest::newRow("all three") << true << true << true << -1 << QList<int> { 12, 13, 15, 14, 6, 8 };
    QTest::newRow("client without login") << true << false << true << -1 << QList<int> { 12, 15, 6, 8 };
    QTest::newRow("login without client") << false << true << false << -1 << QList<int> { 13, 15, 14 };
    // The rest of the failed batch goes; what the failure report queues survives.
    QTest::newRow("a failure drops only its own batch")
        << true << true << true << int(sdk::prototype::step_login) << QList<int> { 12, 13, 15, 8 };
}

void test_sdk_legacy::enqueue_sequences()
{
    QFETCH(bool, client);
    QFETCH(bool, login);
    QFETCH(bool, done);
    recording_backend w;
    QVERIFY(w.init("{id}", device()));
    QFETCH(int, fail_at);
    w.fail_at = fail_at;
    QSignalSpy done_spy(&w, &sdk::prototype::done);
    QSignalSpy failed_spy(&w, &sdk::prototype::failed);
    QSignalSpy finished(&w, &QThread::finished);
    // On the worker, as a direct connection does.
    const auto requeue = [&w] { w.enqueue({ sdk::prototype::step_reboot, {} }, false, false, true); };
    connect(&w, &sdk::prototype::failed, &w, requeue, Qt::DirectConnection);
    w.enqueue({ sdk::prototype::step_reboot, {} }, client, login, done);
    QVERIFY(!finished.isEmpty() || finished.wait(5000)); // a quick thread may end before the wait
    QTEST(w.ran, "expected");
    QCOMPARE(failed_spy.count(), fail_at < 0 ? 0 : 1);
    QCOMPARE(done_spy.count(), done ? 1 : 0);
    if (done)
        QCOMPARE(done_spy.first().first().toString(), QStringLiteral("{id}"));
    QVERIFY(w.queued_codes().isEmpty());
}

void test_sdk_legacy::upload_progress_data()
{
    QTest::addColumn<int>("size");
    QTest::addColumn<QJsonObject>("faults");
    QTest::addColumn<QString>("after_sending"); // the stages that follow it
    // 250 chunks: far more than percentages, so each one is told once, in order.
    const int chunks_250 = 250 * 32768 - 5;
    const QString upgraded = "upgrading 0 | upgrading 25 | upgrading 50 | upgrading 75 | upgrading 100 | done";
    QTest::newRow("good upload") << chunks_250 << QJsonObject {} << upgraded;
    // One byte past 2^24: a single-precision chunk count would round it down and leave the last byte out.
    QTest::newRow("a large image arrives whole") << 16777217 << QJsonObject {} << upgraded;
    QTest::newRow("connection dropped while writing")
        << chunks_250 << QJsonObject { { "progress_drop_at", 50 } } << "upgrading 0 | upgrading 25 | failure";
}

void test_sdk_legacy::upload_progress()
{
    QFETCH(int, size);
    QFETCH(QJsonObject, faults);
    devsim_harness sim;
    QVERIFY2(sim.start(1, { { "reboot_ms", 300 }, { "upgrade_step_ms", 20 }, { "faults", faults } }),
        qPrintable(sim.error()));

    sdk::legacy worker;
    device dev;
    dev.ip = sim.address(0).toString();
    dev.port = sim.port(0);
    dev.user = QStringLiteral("admin");
    QVERIFY(worker.init(QStringLiteral("row"), dev));
    QList<int> sending;
    QStringList after;
    connect(&worker, &sdk::prototype::flash_progress, this,
        [&](const QString&, sdk::prototype::flash_progress_type stage, uint current, uint) {
            using kind = sdk::prototype::flash_progress_type;
            if (stage == kind::sending && after.isEmpty())
                sending << int(current);
            else if (stage == kind::upgrading)
                after << QStringLiteral("upgrading %1").arg(current);
            else
                after << (stage == kind::done ? "done" : stage == kind::failure ? "failure" : "other");
        });
    QByteArray image(size, Qt::Uninitialized);
    for (int i = 0; i < image.size(); ++i)
        image[i] = char(i * 7 + (i >> 11));
    image[size - 1] = 'z'; // the byte a short upload leaves out
    worker.upgrade_firmware(image);
    QTRY_VERIFY_WITH_TIMEOUT(after.endsWith("done") || after.endsWith("failure"), 60000);

    // The sending is told at every percent, once and in order.
    QList<int> every_percent;
    for (int p = 0; p <= 100; ++p)
        every_percent << p;
    QCOMPARE(sending, every_percent);
    QTEST(after.join(" | "), "after_sending");
    if (after.endsWith("done")) {
        QCOMPARE(sim.state(0)["upgrade_size"].toDouble(), double(size));
        QCOMPARE(sim.state(0)["upgrade_md5"].toString(),
            QString::fromLatin1(QCryptographicHash::hash(image, QCryptographicHash::Md5).toHex()));
    }
}

void test_sdk_legacy::threads_start_a_few_per_turn()
{
    // From the main thread, workers begin over several turns of the event loop; one deleted
    // before its turn is passed over.
    constexpr int count = 3 * sdk::thread_starter::per_turn + 1;
    QAtomicInt ran = 0;
    std::vector<std::unique_ptr<QThread>> threads;
    for (int i = 0; i < count; ++i) {
        threads.emplace_back(QThread::create([&ran] { ran.ref(); }));
        sdk::thread_starter::start(threads.back().get());
    }
    const auto started = [&threads] {
        return int(std::count_if(threads.begin(), threads.end(),
            [](const auto& t) { return t && (t->isRunning() || t->isFinished()); }));
    };
    QCOMPARE(started(), 0);
    threads.back().reset();
    QCoreApplication::processEvents();
    QVERIFY2(started() > 0 && started() < count - 1, qPrintable(QString::number(started())));
    QTRY_COMPARE(started(), count - 1);
    for (const auto& t : threads) {
        if (t)
            QVERIFY(t->wait(5000));
    }
    QCOMPARE(ran.loadRelaxed(), count - 1);
}

QTEST_GUILESS_MAIN(test_sdk_legacy)
#include "test_sdk_legacy.moc"
