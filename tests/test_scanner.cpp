#include "diagnostics/blackbox.h"
#include "sdk/scanner.h"
#include "support/devsim_harness.h"
#include "support/test_network.h"
#include "tests/scan_reports.h"

#include <QtTest>

#include <memory>

// Scans over many devices, of every kind of reply they make, run through the core in test_core_scan.
class test_scanner : public QObject
{
    Q_OBJECT
private slots:
    void single_pass_skips_what_it_cannot_use_data();
    void single_pass_skips_what_it_cannot_use();
};

void test_scanner::single_pass_skips_what_it_cannot_use_data()
{
    QTest::addColumn<QJsonArray>("devices");
    QTest::addColumn<int>("answers"); // discovery answers sent by the devices
    QTest::addColumn<int>("found");
    QTest::addColumn<QString>("line"); // in the scanner's log...
    QTest::addColumn<int>("times"); // ...this often

    const auto with_body = [](const QString& text) {
        return QJsonArray { QJsonObject {}, QJsonObject { { "faults", QJsonObject { { "discovery_body", text } } } },
            QJsonObject {} };
    };
    const QString too_short = QStringLiteral("Входящая датаграмма слишком мала");
    QTest::newRow("a reply shorter than 100 bytes") << with_body("{\"NetWork.NetCommon\":{}}") << 3 << 2 << too_short
                                                    << 2;
    QTest::newRow("a reply that isn't JSON") << with_body("{\"NetWork.NetCommon\":" + QString(120, 'a')) << 3 << 2
                                             << "JSON assignment failed" << 1;
    QTest::newRow("nobody answers: only the own broadcast comes back")
        << QJsonArray { QJsonObject { { "faults", QJsonObject { { "silent_at", QJsonArray { 1530 } } } } } } << 0 << 0
        << too_short << 1;
}

void test_scanner::single_pass_skips_what_it_cannot_use()
{
    QFETCH(QJsonArray, devices);
    QFETCH(int, found);
    QFETCH(QString, line);

    if (test_network::inside().isEmpty()) {
        BUILD_TEST_NETWORK(net);
        devsim_harness sim;
        QVERIFY2(net.start_devices(sim, devices.size(), {}, devices), qPrintable(net.error()));
        RUN_INSIDE(net, QJsonObject {});
        int sent = 0;
        for (int i = 0; i < sim.count(); ++i)
            sent += sim.state(i).value("discovery_answers").toInt();
        QTEST(sent, "answers");
        return;
    }

    QTemporaryDir dir;
    auto box = std::make_shared<blackbox>(dir.filePath(QStringLiteral("scanner.log")));
    QVERIFY(box->open());
    scanner s;
    s.attach(box);
    scan_reports reports(s);
    s.start_single_pass();
    QVERIFY(s.wait(20000));
    QCOMPARE(reports.done(), QList<bool> { false });
    QCOMPARE(reports.found().size(), found);
    QCOMPARE(s.devices().size(), found);
    QFile log(box->file_name());
    QVERIFY(log.open(QIODevice::ReadOnly));
    QTEST(QString::fromUtf8(log.readAll()).count(line), "times");
}

QTEST_GUILESS_MAIN(test_scanner)
#include "test_scanner.moc"
