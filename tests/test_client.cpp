#include "delivery/client.h"
#include "delivery/crypto.h"

#include <QCryptographicHash>
#include <QDir>
#include <QFile>
#include <QJsonDocument>
#include <QJsonObject>
#include <QSignalSpy>
#include <QTcpServer>
#include <QTcpSocket>
#include <QTemporaryDir>
#include <QtTest>

Q_DECLARE_METATYPE(client::device_query)

namespace {

const QByteArray id = QByteArray::fromHex("0123456789abcdef");
const QByteArray key = QByteArray::fromHex("00112233445566778899aabbccddeeff00112233445566778899aabbccddeeff");

// Answers each HTTP request on a loopback port with the next canned body, or drops it.
class canned_server : public QTcpServer
{
public:
    QList<QByteArray> bodies; // "<drop>" closes without answering
    QStringList paths;

    canned_server()
    {
        listen(QHostAddress::LocalHost, 0);
        connect(this, &QTcpServer::newConnection, this, [this] {
            while (QTcpSocket* s = nextPendingConnection()) {
                connect(s, &QTcpSocket::readyRead, s, [this, s] {
                    const QByteArray request = s->readAll();
                    paths << QString::fromLatin1(request.split(' ').value(1));
                    const QByteArray body = bodies.isEmpty() ? QByteArray("E:1") : bodies.takeFirst();
                    if (body == "<drop>") {
                        s->abort();
                        return;
                    }
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
    void offline_file_and_confirm();
    void failures_are_classified_data();
    void failures_are_classified();
    void one_request_on_the_wire();
    void disabled_cancels_new_requests();
    void update_reply_is_read();
    void query_text_only_for_legacy_devices();

private:
    QTemporaryDir m_dir;
    QString m_firmware_md5;
};

void test_client::initTestCase()
{
    qRegisterMetaType<client::queued_data>();
    qRegisterMetaType<client::update_resp>();
    qRegisterMetaType<client::error_codes>();
    QDir::setCurrent(m_dir.path());
    QFile fw("fw.bin");
    QVERIFY(fw.open(QIODevice::WriteOnly));
    fw.write(QByteArray(5000, 'f'));
    fw.close();
    m_firmware_md5 = QString::fromLatin1(QCryptographicHash::hash(QByteArray(5000, 'f'), QCryptographicHash::Md5).toHex());
    QFile list(client::offline_list_file);
    QVERIFY(list.open(QIODevice::WriteOnly));
    list.write("HI3516EV.12 fw.bin 1 xnet\n"
               "short line\n"
               "\n"
               "MISSING0.01 nowhere.bin 2 legacy\n");
}

void test_client::offline_answers_data()
{
    QTest::addColumn<QString>("version");
    QTest::addColumn<QString>("resp");
    QTest::addColumn<int>("offers");
    QTest::newRow("known hardware key") << "V5.00.R02.HI3516EV.12.extra" << "pending" << 1;
    QTest::newRow("unknown key is denied") << "V5.00.R02.HI3518EV.20.x" << "denied" << 0;
    QTest::newRow("no match is no_binding") << "1.2.3" << "no_binding" << 0;
    QTest::newRow("file that failed to load is unknown") << "V1.00.R01.MISSING0.01" << "denied" << 0;
}

void test_client::offline_answers()
{
    QFETCH(QString, version);
    client c;
    c.setup("hash", id, 7, key, true);
    c.set_disabled(true); // offline answers come first
    QSignalSpy found(&c, &client::update_found);
    client::device_query q;
    q.version = version;
    QVERIFY(c.check_update("SN1", q));
    QCOMPARE(found.count(), 1);
    const auto resp = found.first().at(1).value<client::update_resp>();
    QTEST(resp.resp, "resp");
    QTEST(resp.firmware.size(), "offers");
    if (!resp.firmware.isEmpty()) {
        QCOMPARE(resp.firmware[0].firmware, m_firmware_md5);
        QCOMPARE(resp.firmware[0].sdk_type, QStringLiteral("xnet"));
        QCOMPARE(resp.firmware[0].type, 1);
    }
}

void test_client::offline_file_and_confirm()
{
    client c;
    c.setup("hash", id, 7, key, true);
    QSignalSpy files(&c, &client::file_received);
    QSignalSpy confirmed(&c, &client::confirmed);
    QVERIFY(c.request_file("SN1", m_firmware_md5));
    QVERIFY(!c.request_file("SN1", "unknown"));
    QCOMPARE(files.count(), 2);
    QCOMPARE(files[0][1].toByteArray(), QByteArray(5000, 'f'));
    QVERIFY(files[1][1].toByteArray().isEmpty());
    QVERIFY(c.confirm_update("SN1"));
    QCOMPARE(confirmed.count(), 1);
    QCOMPARE(c.queue_size(), 0);
}

void test_client::failures_are_classified_data()
{
    QTest::addColumn<QByteArray>("body");
    QTest::addColumn<int>("code");
    QTest::addColumn<uint>("descriptive");
    QTest::newRow("server error number") << QByteArray("E:11") << int(client::server_error) << 11u;
    QTest::newRow("server error without number") << QByteArray("E:x") << int(client::server_error) << 0u;
    QTest::newRow("short body") << QByteArray("garbage") << int(client::malformed_data) << 0u;
    QTest::newRow("dropped connection") << QByteArray("<drop>") << int(client::transport_error) << 0u;
    QTest::newRow("15 bytes with E: is an error") << QByteArray("E:0000000000042") << int(client::server_error) << 42u;
}

void test_client::failures_are_classified()
{
    QFETCH(QByteArray, body);
    QFETCH(int, code);
    QFETCH(uint, descriptive);
    canned_server server;
    // The network layer retries a GET once on a dropped connection.
    server.bodies << body << body;
    client c;
    c.setup("hash", id, 7, key, false);
    c.set_server(QHostAddress::LocalHost, server.serverPort());
    QSignalSpy failed(&c, &client::failed);
    c.request_file("SN1", "abc");
    QVERIFY(failed.wait(10000));
    QCOMPARE(int(failed[0][1].value<client::error_codes>()), code);
    QCOMPARE(failed[0][2].toUInt(), descriptive);
    const auto qd = failed[0][0].value<client::queued_data>();
    QVERIFY(qd.finished);
    QCOMPARE(qd.serial, QStringLiteral("SN1"));
    QCOMPARE(c.queue_size(), 0);
}

void test_client::one_request_on_the_wire()
{
    canned_server server;
    server.bodies << "E:1" << "E:2" << "E:3";
    client c;
    c.setup("hash", id, 7, key, false);
    c.set_server(QHostAddress::LocalHost, server.serverPort());
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

void test_client::disabled_cancels_new_requests()
{
    client c;
    c.setup("hash", id, 7, key, false);
    c.set_disabled(true);
    QSignalSpy canceled(&c, &client::canceled);
    QVERIFY(c.request_file("SN9", "v"));
    QCOMPARE(canceled.count(), 1);
    QVERIFY(canceled[0][0].value<client::queued_data>().finished);
    QCOMPARE(c.queue_size(), 0);
}

void test_client::update_reply_is_read()
{
    canned_server server;
    const QByteArray answer = R"({"resp":"pending","updates":[{"firmware":"aa","type":2,"sdk_type":null},{"firmware":"bb","type":1,"sdk_type":"xcloud"}]})";
    server.bodies << delivery::seal(answer, delivery::version_key(id)).toHex()
                  << delivery::seal(R"({"resp":"updated","updates":[{"firmware":"cc"}]})", delivery::version_key(id)).toHex()
                  << QByteArray(16, 'x');
    client c;
    c.setup("hash", id, 7, key, false);
    c.set_server(QHostAddress::LocalHost, server.serverPort());
    QSignalSpy found(&c, &client::update_found);
    c.check_update("S", {});
    c.check_update("S", {});
    c.check_update("S", {});
    QTRY_COMPARE_WITH_TIMEOUT(found.count(), 3, 10000);
    const auto pending = found[0][1].value<client::update_resp>();
    QCOMPARE(pending.resp, QStringLiteral("pending"));
    QCOMPARE(pending.firmware.size(), 2);
    QCOMPARE(pending.firmware[0].sdk_type, QString());
    QCOMPARE(pending.firmware[1].sdk_type, QStringLiteral("xcloud"));
    QCOMPARE(pending.firmware[0].type, 2);
    QVERIFY(found[1][1].value<client::update_resp>().firmware.isEmpty());
    // Sixteen bytes are taken as a frame, which can't open: an empty answer, not an error.
    QCOMPARE(found[2][1].value<client::update_resp>().resp, QString());
}

void test_client::query_text_only_for_legacy_devices()
{
    client c;
    c.setup("apphash", id, 7, key, false);
    client::device_query q;
    q.type = 2;
    QVERIFY(c.query_text(q).isEmpty());
    q.type = 1;
    q.hardware = "HW";
    q.port = 34567;
    q.flags = 1;
    const QJsonObject o = QJsonDocument::fromJson(c.query_text(q)).object();
    QCOMPARE(o["version"].toInt(), 3);
    QCOMPARE(o["app"].toObject()["hash"].toString(), QStringLiteral("apphash"));
    QCOMPARE(o["device"].toObject()["type"].toInt(), 1);
    QCOMPARE(o["device"].toObject()["port"].toInt(), 34567);
    QCOMPARE(o["request"].toObject()["flags"].toInt(), 1);
}

QTEST_GUILESS_MAIN(test_client)
#include "test_client.moc"
