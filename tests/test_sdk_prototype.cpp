#include "sdk/prototype.h"

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

class test_sdk_prototype : public QObject
{
    Q_OBJECT
private slots:
    void enqueue_sequences_data();
    void enqueue_sequences();
    void failure_drops_only_its_own_batch();
};

void test_sdk_prototype::enqueue_sequences_data()
{
    QTest::addColumn<bool>("client");
    QTest::addColumn<bool>("login");
    QTest::addColumn<bool>("done");
    QTest::addColumn<QList<int>>("expected");
    QTest::newRow("all three") << true << true << true << QList<int> { 12, 13, 15, 14, 6, 8 };
    QTest::newRow("client without login") << true << false << true << QList<int> { 12, 15, 6, 8 };
    QTest::newRow("login without client") << false << true << false << QList<int> { 13, 15, 14 };
}

void test_sdk_prototype::enqueue_sequences()
{
    QFETCH(bool, client);
    QFETCH(bool, login);
    QFETCH(bool, done);
    QFETCH(QList<int>, expected);
    recording_backend w;
    QVERIFY(w.init("{id}", device()));
    QSignalSpy done_spy(&w, &sdk::prototype::done);
    QSignalSpy finished(&w, &QThread::finished);
    w.enqueue({ sdk::prototype::step_reboot, {} }, client, login, done);
    QVERIFY(!finished.isEmpty() || finished.wait(5000)); // a quick thread may end before the wait
    QCOMPARE(w.ran, expected);
    QCOMPARE(done_spy.count(), done ? 1 : 0);
    if (done)
        QCOMPARE(done_spy.first().first().toString(), QStringLiteral("{id}"));
}

void test_sdk_prototype::failure_drops_only_its_own_batch()
{
    recording_backend w;
    w.init("{id}", device());
    w.fail_at = sdk::prototype::step_login;
    QSignalSpy done_spy(&w, &sdk::prototype::done);
    QSignalSpy failed_spy(&w, &sdk::prototype::failed);
    QSignalSpy finished(&w, &QThread::finished);
    // The rest of the failed batch goes; what the failure report queues (on the worker, as a
    // direct connection does) survives.
    connect(
        &w, &sdk::prototype::failed, &w,
        [&w] {
            w.enqueue({ sdk::prototype::step_reboot, {} }, false, false, true);
        },
        Qt::DirectConnection);
    w.enqueue({ sdk::prototype::step_reboot, {} }, true, true, true);
    QVERIFY(!finished.isEmpty() || finished.wait(5000)); // a quick thread may end before the wait
    QCOMPARE(w.ran, (QList<int> { 12, 13, 15, 8 }));
    QCOMPARE(failed_spy.count(), 1);
    QCOMPARE(done_spy.count(), 1);
    QVERIFY(w.queued_codes().isEmpty());
}

QTEST_GUILESS_MAIN(test_sdk_prototype)
#include "test_sdk_prototype.moc"
