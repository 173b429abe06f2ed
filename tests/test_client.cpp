#include "delivery/client.h"

#include <QCryptographicHash>
#include <QDir>
#include <QFile>
#include <QSignalSpy>
#include <QTcpServer>
#include <QTcpSocket>
#include <QTemporaryDir>
#include <QtTest>

namespace
{

const QByteArray id = QByteArray::fromHex("0123456789abcdef");
const QByteArray key = QByteArray::fromHex("00112233445566778899aabbccddeeff00112233445566778899aabbccddeeff");

// Answers each HTTP request on a loopback port with the next canned body, or drops it.
class canned_server : public QTcpServer
{
public:
    QList<QByteArray> bodies; // "<drop>" closes without answering, "<silent>" never answers
    QStringList paths;

    // Points the client at this server.
    void serve(client& c) const
    {
        c.setup("hash", id, 7, key, false);
        c.set_server(QHostAddress::LocalHost, serverPort());
    }

    canned_server()
    {
        listen(QHostAddress::LocalHost, 0);
        connect(this, &QTcpServer::newConnection, this, [this] {
            while (QTcpSocket* s = nextPendingConnection()) {
                connect(s, &QTcpSocket::readyRead, s, [this, s] {
                    paths << QString::fromLatin1(s->readAll().split(' ').value(1));
                    const QByteArray body = bodies.isEmpty() ? QByteArray("E:1") : bodies.takeFirst();
                    if (body == "<drop>")
                        return s->abort();
                    if (body == "<silent>")
                        return;
                    s->write("HTTP/1.1 200 OK\r\nContent-Length: " + QByteArray::number(body.size())
                        + "\r\nConnection: close\r\n\r\n" + body);
                    s->disconnectFromHost();
                });
            }
        });
    }
};

} // namespace

class test_client : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase();
    void offline_answers_data();
    void offline_answers();
    void failures_are_classified_data();
    void failures_are_classified();
    void one_request_on_the_wire();

private:
    QTemporaryDir m_dir;
};

void test_client::initTestCase()
{
    qRegisterMetaType<client::queued_data>();
    qRegisterMetaType<client::update_resp>();
    qRegisterMetaType<client::error_codes>();
    QDir::setCurrent(m_dir.path());
    QFile fw("fw.bin");
    QVERIFY(fw.open(QIODevice::WriteOnly) && fw.write(QByteArray(5000, 'f')) == 5000);
    fw.close();
    QFile list(client::offline_list_file);
    QVERIFY(list.open(QIODevice::WriteOnly));
    list.write("HI3516EV.12 fw.bin 1 xnet\nshort line\n\nMISSING0.01 nowhere.bin 2 legacy\n");
}

void test_client::offline_answers_data()
{
    QTest::addColumn<QString>("version");
    QTest::addColumn<QString>("resp");
    QTest::addColumn<int>("offers");
    QTest::newRow("known hardware key") << QString("V5.00.R02.HI3516EV.12.extra") << "pending" << 1;
    QTest::newRow("file that failed to load is unknown") << QString("V1.00.R01.MISSING0.01") << "denied" << 0;
    QTest::newRow("no match is no_binding") << QString("1.2.3") << "no_binding" << 0;
}

void test_client::offline_answers()
{
    QFETCH(QString, version);
    const QString md5
        = QString::fromLatin1(QCryptographicHash::hash(QByteArray(5000, 'f'), QCryptographicHash::Md5).toHex());
    client c;
    c.setup("hash", id, 7, key, true);
    QSignalSpy found(&c, &client::update_found);
    QSignalSpy files(&c, &client::file_received);
    QSignalSpy confirmed(&c, &client::confirmed);
    QVERIFY(c.request_file("SN1", md5));
    QVERIFY(!c.request_file("SN1", "unknown"));
    QCOMPARE(files.count(), 2);
    QCOMPARE(files[0][1].toByteArray(), QByteArray(5000, 'f'));
    QVERIFY(files[1][1].toByteArray().isEmpty());
    QVERIFY(c.confirm_update("SN1"));
    QCOMPARE(confirmed.count(), 1);

    c.set_disabled(true); // offline answers come first
    client::device_query q;
    q.version = version;
    QVERIFY(c.check_update("SN1", q));
    QCOMPARE(found.count(), 1);
    const auto resp = found.first().at(1).value<client::update_resp>();
    QTEST(resp.resp, "resp");
    QTEST(resp.firmware.size(), "offers");
    if (!resp.firmware.isEmpty()) {
        QCOMPARE(resp.firmware[0].firmware, md5);
        QCOMPARE(resp.firmware[0].sdk_type, QStringLiteral("xnet"));
        QCOMPARE(resp.firmware[0].type, 1);
    }
    QCOMPARE(c.queue_size(), 0);
}

void test_client::failures_are_classified_data()
{
    QTest::addColumn<QByteArray>("body");
    QTest::addColumn<int>("code");
    QTest::addColumn<uint>("descriptive");
    QTest::newRow("server error number") << QByteArray("E:11") << int(client::server_error) << 11u;
    QTest::newRow("15 bytes with E: is an error") << QByteArray("E:0000000000042") << int(client::server_error) << 42u;
    QTest::newRow("short body") << QByteArray("garbage") << int(client::malformed_data) << 0u;
    QTest::newRow("dropped connection") << QByteArray("<drop>") << int(client::transport_error) << 0u;
    QTest::newRow("nothing within the time-out") << QByteArray("<silent>") << int(client::transport_error) << 0u;
}

void test_client::failures_are_classified()
{
    QFETCH(QByteArray, body);
    canned_server server;
    server.bodies << body << body; // the network layer retries a GET once on a dropped connection
    client c;
    server.serve(c);
    c.set_timeout(1);
    QSignalSpy failed(&c, &client::failed);
    c.request_file("SN1", "abc");
    QVERIFY(failed.wait(10000));
    QTEST(int(failed[0][1].value<client::error_codes>()), "code");
    QTEST(failed[0][2].toUInt(), "descriptive");
    const auto qd = failed[0][0].value<client::queued_data>();
    QVERIFY(qd.finished);
    QCOMPARE(qd.serial, QStringLiteral("SN1"));
    QCOMPARE(c.queue_size(), 0);

    // Disabled, a new request is canceled at once.
    QSignalSpy canceled(&c, &client::canceled);
    c.set_disabled(true);
    QVERIFY(c.request_file("SN9", "v"));
    QCOMPARE(canceled.count(), 1);
    QVERIFY(canceled[0][0].value<client::queued_data>().finished);
    QCOMPARE(c.queue_size(), 0);
}

void test_client::one_request_on_the_wire()
{
    canned_server server;
    server.bodies << QByteArray("E:1") << QByteArray("E:2") << QByteArray("E:3");
    client c;
    server.serve(c);
    QSignalSpy failed(&c, &client::failed);
    c.confirm_update("A");
    c.confirm_update("B");
    c.confirm_update("C");
    QCOMPARE(c.queue_size(), 3);
    QTRY_COMPARE_WITH_TIMEOUT(failed.count(), 3, 10000);
    // Requests went one after another, in order, each answered before the next left.
    QCOMPARE(failed[0][2].toUInt(), 1u);
    QCOMPARE(failed[2][2].toUInt(), 3u);
    QCOMPARE(failed[2][0].value<client::queued_data>().serial, QStringLiteral("C"));
    QCOMPARE(server.paths.size(), 3);
    // Every piece of the URL is a fresh frame: the same serial never looks the same twice.
    QVERIFY(server.paths[0].startsWith("/confirm/"));
    QVERIFY(server.paths[0] != server.paths[1]);
}

QTEST_GUILESS_MAIN(test_client)
#include "test_client.moc"
