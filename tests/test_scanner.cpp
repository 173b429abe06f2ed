#include "sdk/scanner.h"

#include <QtTest>

class test_scanner : public QObject
{
    Q_OBJECT
private slots:
    void discovery_datagram_bytes();
    void repair_numbers_data();
    void repair_numbers();
    void parse_device_data();
    void parse_device();
};

void test_scanner::discovery_datagram_bytes()
{
    QCOMPARE(scanner::discovery_datagram().toHex(), QByteArray("ff00000000000000000000000000fa0500000000"));
}

void test_scanner::repair_numbers_data()
{
    QTest::addColumn<QString>("in");
    QTest::addColumn<QString>("out");
    QTest::newRow("leading zero") << R"({"TCPPort": 034567, "X": 1})" << R"({"TCPPort": 34567, "X": 1})";
    QTest::newRow("no space") << R"({"A":007,"B":0010,)" << R"({"A":7,"B":10,)";
    QTest::newRow("plain numbers untouched") << R"({"A": 5, "B": 12})" << R"({"A": 5, "B": 12})";
    QTest::newRow("last member has no comma") << R"({"A": 05})" << R"({"A": 05})";
    QTest::newRow("all zeros") << R"({"A": 000,)" << R"({"A": 0,)";
    QTest::newRow("text is not touched") << R"({"A": "0042",)" << R"({"A": "0042",)";
}

void test_scanner::repair_numbers()
{
    QFETCH(QString, in);
    QTEST(scanner::repair_numbers(in), "out");
}

void test_scanner::parse_device_data()
{
    QTest::addColumn<QString>("json");
    QTest::addColumn<bool>("ok");
    QTest::addColumn<QString>("mac");
    QTest::addColumn<QString>("user");
    QTest::addColumn<QString>("password");
    QTest::addColumn<int>("port");

    const QString common = R"("HostIP":"0x0A01A8C0","Submask":"0x00FFFFFF","GateWay":"0x0101A8C0","TCPPort":34567,"HttpPort":80,"SN":"abc")";
    QTest::newRow("full reply") << QString(R"({"NetWork.NetCommon":{%1,"MAC":"00:12:31:ab:cd:ef","Username":"root","Password":"6QNMIQGe"}})").arg(common)
                                << true << "00:12:31:ab:cd:ef" << "root" << "6QNMIQGe" << 34567;
    QTest::newRow("empty user is admin, no password") << QString(R"({"NetWork.NetCommon":{%1,"MAC":"00:12:31:ab:cd:ef","Username":""}})").arg(common)
                                                      << true << "00:12:31:ab:cd:ef" << "admin" << "" << 34567;
    QTest::newRow("16-character MAC gives zeros") << QString(R"({"NetWork.NetCommon":{%1,"MAC":"00:12:31:ab:cd:e"}})").arg(common)
                                                   << true << "00:00:00:00:00:00" << "admin" << "" << 34567;
    QTest::newRow("not JSON") << "garbage" << false << "" << "" << "" << 0;
    QTest::newRow("no NetCommon") << R"({"Other":{}})" << false << "" << "" << "" << 0;
    QTest::newRow("empty") << "" << false << "" << "" << "" << 0;
}

void test_scanner::parse_device()
{
    QFETCH(QString, json);
    QFETCH(bool, ok);
    scanner s;
    device d;
    QCOMPARE(s.parse_device(json, d), ok);
    if (!ok)
        return;
    QTEST(d.address.text(), "mac");
    QTEST(d.user, "user");
    QTEST(d.password, "password");
    QCOMPARE(d.password_is_hash, !d.password.isEmpty());
    QTEST(int(d.port), "port");
    QCOMPARE(d.net.HostIP, 0xC0A8010Au);
}

QTEST_GUILESS_MAIN(test_scanner)
#include "test_scanner.moc"
