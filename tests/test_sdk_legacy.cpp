#include "sdk/legacy.h"
#include "tests/support/devsim_harness.h"

#include <QtTest>

namespace
{

// The simulator's first device, as a row reaches it.
device first_device(devsim_harness& sim)
{
    device dev;
    dev.ip = sim.address(0).toString();
    dev.port = sim.port(0);
    dev.user = QStringLiteral("admin");
    return dev;
}

} // namespace

// The NETIP backend's firmware upload to one simulated device, as the row hears it.
class test_sdk_legacy : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase() { qRegisterMetaType<sdk::prototype::flash_progress_type>(); }
    void upload_progress_data();
    void upload_progress();
    void large_images_arrive_whole();
};

void test_sdk_legacy::upload_progress_data()
{
    QTest::addColumn<QJsonObject>("faults");
    QTest::addColumn<bool>("sent_whole"); // the sending stage reaches 100
    QTest::addColumn<QString>("after_sending"); // the stages that follow it
    QTest::newRow("good upload") << QJsonObject {} << true << "upgrading 0 | upgrading 25 | upgrading 50 | "
                                                              "upgrading 75 | upgrading 100 | done";
    QTest::newRow("chunk 40 refused") << QJsonObject { { "chunk_ret", QJsonObject { { "40", 514 } } } } << false
                                      << "failure";
    QTest::newRow("connection dropped while writing")
        << QJsonObject { { "progress_drop_at", 50 } } << true << "upgrading 0 | upgrading 25 | failure";
}

// 250 chunks: far more than percentages, so each one is told once, in order.
void test_sdk_legacy::upload_progress()
{
    QFETCH(QJsonObject, faults);
    QFETCH(bool, sent_whole);
    QFETCH(QString, after_sending);
    devsim_harness sim;
    QVERIFY2(sim.start(1, { { "reboot_ms", 300 }, { "upgrade_step_ms", 20 }, { "faults", faults } }),
        qPrintable(sim.error()));

    sdk::legacy worker;
    QVERIFY(worker.init(QStringLiteral("row"), first_device(sim)));
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
    QByteArray image(250 * 32768 - 5, Qt::Uninitialized);
    for (int i = 0; i < image.size(); ++i)
        image[i] = char(i * 7 + (i >> 11));
    worker.upgrade_firmware(image);
    QTRY_VERIFY_WITH_TIMEOUT(after.endsWith("done") || after.endsWith("failure"), 20000);

    QVERIFY(!sending.isEmpty());
    QCOMPARE(sending.first(), 0);
    for (int i = 1; i < sending.size(); ++i)
        QVERIFY2(sending[i] > sending[i - 1], qPrintable(QStringLiteral("%1 after %2").arg(sending[i]).arg(sending[i - 1])));
    QCOMPARE(sending.last() == 100, sent_whole);
    QCOMPARE(after.join(" | "), after_sending);
}

// One byte past 2^24: a single-precision chunk count would round it down and leave the last byte out.
void test_sdk_legacy::large_images_arrive_whole()
{
    const int size = 16777217;
    devsim_harness sim;
    QVERIFY2(sim.start(1, { { "reboot_ms", 300 }, { "upgrade_step_ms", 20 } }), qPrintable(sim.error()));
    sdk::legacy worker;
    QVERIFY(worker.init(QStringLiteral("row"), first_device(sim)));
    QSignalSpy progress(&worker, &sdk::prototype::flash_progress);
    QByteArray image(size, 'f');
    image[size - 1] = 'z'; // the byte a short upload leaves out
    worker.upgrade_firmware(image);
    using kind = sdk::prototype::flash_progress_type;
    const auto ended = [&] {
        return !progress.isEmpty() && progress.last().at(1).value<kind>() != kind::sending
            && progress.last().at(1).value<kind>() != kind::upgrading;
    };
    QTRY_VERIFY_WITH_TIMEOUT(ended(), 60000);
    QCOMPARE(progress.last().at(1).value<kind>(), kind::done);
    const QJsonObject state = sim.state(0);
    QCOMPARE(state["upgrade_size"].toDouble(), double(size));
    QCOMPARE(state["upgrade_md5"].toString(),
        QString::fromLatin1(QCryptographicHash::hash(image, QCryptographicHash::Md5).toHex()));
}

QTEST_GUILESS_MAIN(test_sdk_legacy)
#include "test_sdk_legacy.moc"
