#include "delivery/client.h"
#include "delivery/crypto.h"
#include "diagnostics/blackbox.h"

#include <QCryptographicHash>
#include <QDir>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QNetworkReply>
#include <QSignalSpy>
#include <QTcpServer>
#include <QTcpSocket>
#include <QTemporaryDir>
#include <QtTest>

#include <algorithm>

namespace
{

const QByteArray id = QByteArray::fromHex("0123456789abcdef");
const QByteArray key = QByteArray::fromHex("00112233445566778899aabbccddeeff00112233445566778899aabbccddeeff");
const quint64 nonce = 7;
const QString ident = QStringLiteral("00112233445566778899aabbccddeeff");

QByteArray hex_sealed(const QByteArray& plain, const QByteArray& k)
{
    return delivery::seal(plain, k).toHex();
}

QByteArray opened(const QString& piece, const QByteArray& k)
{
    return delivery::unseal(QByteArray::fromHex(piece.toLatin1()), k);
}

QString md5_hex(const QByteArray& data)
{
    return QString::fromLatin1(QCryptographicHash::hash(data, QCryptographicHash::Md5).toHex());
}

// A log file of its own for one client.
struct client_log {
    QTemporaryDir dir;
    std::shared_ptr<blackbox> box = std::make_shared<blackbox>(dir.filePath(QStringLiteral("client.log")));

    explicit client_log(client& c)
    {
        box->open();
        c.attach(box);
    }
    int count(const QString& text) const
    {
        QFile file(box->file_name());
        return file.open(QIODevice::ReadOnly) ? QString::fromUtf8(file.readAll()).count(text) : -1;
    }
};

// Answers each HTTP request on a loopback port with the next canned body: "<drop>" closes
// without answering, "<silent>" never answers, "<404>" answers with that status.
class canned_server : public QTcpServer
{
public:
    QList<QByteArray> bodies;
    QStringList paths;

    // Points the client at this server.
    void serve(client& c) const
    {
        c.setup("hash", id, nonce, key, false);
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
                    const QByteArray status = body == "<404>" ? "404 Not Found" : "200 OK";
                    s->write("HTTP/1.1 " + status + "\r\nContent-Length: " + QByteArray::number(body.size())
                        + "\r\nConnection: close\r\n\r\n" + body);
                    s->disconnectFromHost();
                });
            }
        });
    }
};

// Every answer of a client as one line of text, in the order they came.
struct outcomes : QStringList {
    explicit outcomes(client& c)
    {
        QObject::connect(&c, &client::failed, [this](const client::queued_data& d, client::error_codes code, uint n) {
            *this << QStringLiteral("failed %1 %2 %3 %4%5")
                         .arg(client::kind_text(d.type), d.serial)
                         .arg(int(code))
                         .arg(n)
                         .arg(d.finished ? "" : " unfinished");
        });
        QObject::connect(&c, &client::confirmed, [this](const QString& serial) { *this << "confirmed " + serial; });
        QObject::connect(&c, &client::file_received, [this](const QString& version, const QByteArray& data) {
            *this << QStringLiteral("file %1 %2").arg(version, data.isEmpty() ? "empty" : md5_hex(data));
        });
        QObject::connect(&c, &client::update_found, [this](const QString& serial, const client::update_resp& r) {
            QStringList line { "update", serial, r.resp };
            for (const auto& o : r.firmware)
                line << QStringLiteral("%1/%2/%3").arg(o.firmware).arg(o.type).arg(o.sdk_type);
            *this << line.join(' ');
        });
    }
};

// Requests the client has on the wire: replies of its network manager not finished yet.
int in_flight(const client& c)
{
    const auto replies = c.findChildren<QNetworkReply*>();
    return int(std::count_if(replies.begin(), replies.end(), [](QNetworkReply* r) { return !r->isFinished(); }));
}

void ask(client& c, uint32_t type, const QString& serial, const client::device_query& device = {})
{
    if (type == client::update)
        c.check_update(serial, device);
    else if (type == client::file)
        c.request_file(serial, ident);
    else
        c.confirm_update(serial);
}

} // namespace

class test_client : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase();
    void url_pieces_data();
    void url_pieces();
    void replies_data();
    void replies();
    void order_of_telling_and_sending_data();
    void order_of_telling_and_sending();
    void refused_confirm_takes_two_requests();
    void disabled_cancels_only_new_requests();
    void offline_answers_data();
    void offline_answers();
    void offline_without_a_list();
    void server_error_texts();

private:
    QTemporaryDir m_dir;
};

void test_client::initTestCase()
{
    qRegisterMetaType<client::queued_data>();
    qRegisterMetaType<client::update_resp>();
    qRegisterMetaType<client::error_codes>();
    qRegisterMetaType<QNetworkReply*>();
    QDir::setCurrent(m_dir.path());
    for (const auto& [name, fill] : { std::pair { "fw.bin", 'f' }, std::pair { "fw2.bin", 'g' } }) {
        QFile fw(name);
        QVERIFY(fw.open(QIODevice::WriteOnly) && fw.write(QByteArray(5000, fill)) == 5000);
    }
    QFile list(client::offline_list_file);
    QVERIFY(list.open(QIODevice::WriteOnly));
    list.write("HI3516EV.12 fw.bin 1 xnet\nshort line\nTHREE000.01 fw.bin 1\n\nMISSING0.01 nowhere.bin 2 legacy\n"
               "  HI3516EV.12\tfw2.bin  3 legacy ignored\n");
}

void test_client::url_pieces_data()
{
    QTest::addColumn<uint>("type");
    QTest::addColumn<uint>("device_type");
    QTest::addColumn<QString>("shape"); // the path with each sealed piece as "*"
    QTest::newRow("update of a legacy device carries the query") << uint(client::update) << 1u << "/update/*/*/*/";
    QTest::newRow("update of another device seals an empty query") << uint(client::update) << 2u << "/update/*/*/*/";
    QTest::newRow("file: no slash at the end") << uint(client::file) << 0u << "/file/*/*/*";
    QTest::newRow("confirm") << uint(client::confirm) << 0u << "/confirm/*/*/";
}

// Each piece opens under its own key; serials go as Latin-1, and the same request never looks the same twice.
void test_client::url_pieces()
{
    QFETCH(uint, type);
    QFETCH(uint, device_type);
    canned_server server;
    client c;
    server.serve(c);
    outcomes answers(c);
    client::device_query device { device_type, "HI3516EV300", "V5.00.R02.000529B2.10010.140400", "2021-09-13",
        "00:12:41:aa:bb:cc", "10.0.0.7", 34567, 1 };
    const QString serial = QString::fromLatin1("SN-\xe9");
    ask(c, type, serial, device);
    ask(c, type, serial, device);
    QTRY_COMPARE_WITH_TIMEOUT(answers.size(), 2, 10000);
    QCOMPARE(server.paths.size(), 2);

    const QStringList pieces = server.paths[0].split('/');
    QStringList shape = pieces;
    for (int i = 2; i < shape.size(); ++i)
        shape[i] = shape[i].isEmpty() ? "" : "*";
    QTEST(shape.join('/'), "shape");
    QCOMPARE(opened(pieces[2], key), QByteArray("0123456789abcdef|7"));
    QCOMPARE(opened(pieces[3], delivery::serial_key(id)), QByteArray("SN-\xe9"));
    if (type == client::file)
        QCOMPARE(opened(pieces[4], delivery::version_key(id)), ident.toLatin1());
    if (type == client::update) {
        const QJsonObject query { { "version", 3 }, { "app", QJsonObject { { "hash", "hash" } } },
            { "device",
                QJsonObject { { "type", 1 }, { "hardware", device.hardware }, { "version", device.version },
                    { "build_date", device.build_date }, { "mac", device.mac }, { "address", device.address },
                    { "port", 34567 } } },
            { "request", QJsonObject { { "flags", 1 } } } };
        const QByteArray frame = QByteArray::fromHex(pieces[4].toLatin1());
        QCOMPARE(delivery::unseal(frame, delivery::query_key(id)),
            device_type == 1 ? QJsonDocument(query).toJson() : QByteArray());
        if (device_type != 1)
            QCOMPARE(frame.size(), 112);
    }
    const QStringList again = server.paths[1].split('/');
    for (int i = 2; i < pieces.size(); ++i)
        QVERIFY2(pieces[i].isEmpty() || pieces[i] != again[i], qPrintable(QString::number(i)));

    // Without an address of its own the client goes to the service's plain http port.
    client fallback;
    client::queued_data request;
    request.type = type;
    const QUrl url = fallback.url_of(request);
    QCOMPARE(url.scheme(), QStringLiteral("http"));
    QCOMPARE(url.port(), 8088);
    QVERIFY(url.path().startsWith('/' + client::kind_text(type).left(4)));
    request.type = 3;
    QVERIFY(fallback.url_of(request).isEmpty());
}

void test_client::replies_data()
{
    QTest::addColumn<uint>("type");
    QTest::addColumn<QList<QByteArray>>("bodies"); // the network layer retries a GET once on a dropped connection
    QTest::addColumn<QString>("outcome");

    using bodies = QList<QByteArray>;
    const QByteArray serial_key = delivery::serial_key(id);
    const QByteArray version_key = delivery::version_key(id);
    const QByteArray firmware(5000, 'w');
    const auto update_body = [&](const QByteArray& json) { return bodies { hex_sealed(json, version_key) }; };

    QTest::newRow("E: and digits in 15 bytes")
        << uint(client::confirm) << bodies { "E:0000000000042" } << "failed confim SN-7 -13 42";
    QTest::newRow("E: without a number") << uint(client::update) << bodies { "E:x" } << "failed update SN-7 -13 0";
    QTest::newRow("15 bytes, an E without its colon")
        << uint(client::update) << bodies { "E0123456789abcd" } << "failed update SN-7 -12 0";
    QTest::newRow("16 bytes are data: a file that doesn't open")
        << uint(client::file) << bodies { "E:00000000000042" } << "file " + ident + " empty";
    QTest::newRow("16 bytes are data: an update answer that doesn't open")
        << uint(client::update) << bodies { "E:00000000000042" } << "update SN-7 ";
    QTest::newRow("dropped connection") << uint(client::file) << bodies { "<drop>", "<drop>" }
                                        << "failed file SN-7 -11 0";
    QTest::newRow("HTTP error status") << uint(client::confirm) << bodies { "<404>" } << "failed confim SN-7 -11 0";
    QTest::newRow("nothing within the time-out")
        << uint(client::update) << bodies { "<silent>" } << "failed update SN-7 -11 0";
    QTest::newRow("confirm OK up to the first NUL")
        << uint(client::confirm) << bodies { hex_sealed(QByteArray("OK\0rest", 7), serial_key) } << "confirmed SN-7";
    QTest::newRow("confirm compares case")
        << uint(client::confirm) << bodies { hex_sealed("ok", serial_key) } << "failed confim SN-7 -14 0";
    QTest::newRow("confirm compares whole")
        << uint(client::confirm) << bodies { hex_sealed("OKAY", serial_key) } << "failed confim SN-7 -14 0";
    QTest::newRow("pending: offers in order, type 0 and sdk_type empty when absent or null")
        << uint(client::update)
        << update_body(R"({"resp":"pending","updates":[{"firmware":"aa","type":2,"sdk_type":"xcloud"},
                          {"firmware":"bb","sdk_type":null},{"firmware":"cc","type":1}]})")
        << "update SN-7 pending aa/2/xcloud bb/0/ cc/1/";
    QTest::newRow("updated ignores its updates")
        << uint(client::update) << update_body(R"({"resp":"updated","updates":[{"firmware":"aa"}]})")
        << "update SN-7 updated";
    QTest::newRow("any other verdict passes with its offers")
        << uint(client::update) << update_body(R"({"resp":"denied","updates":[{"firmware":"dd","type":5}]})")
        << "update SN-7 denied dd/5/";
    QTest::newRow("file: binary under the run's file key")
        << uint(client::file) << bodies { delivery::seal(firmware, delivery::file_key(id, nonce)) }
        << "file " + ident + " " + md5_hex(firmware);
}

void test_client::replies()
{
    QFETCH(uint, type);
    QFETCH(QList<QByteArray>, bodies);
    canned_server server;
    server.bodies = bodies;
    client c;
    server.serve(c);
    const client_log log(c);
    const bool silent = bodies.contains("<silent>");
    if (silent)
        c.set_timeout(1);
    outcomes answers(c);
    ask(c, type, "SN-7");
    QTRY_COMPARE_WITH_TIMEOUT(answers.size(), 1, 10000);
    QTEST(answers.first(), "outcome");
    QCOMPARE(c.queue_size(), 0);
    QCOMPARE(log.count("error, No data from the service for 1 s: the request is given up"), silent ? 1 : 0);
}

void test_client::order_of_telling_and_sending_data()
{
    QTest::addColumn<QByteArray>("first");
    QTest::addColumn<QString>("told");
    QTest::addColumn<int>("queued"); // when the first answer is told...
    QTest::addColumn<int>("sent"); // ...and requests on the wire
    const QByteArray ok = hex_sealed("OK", delivery::serial_key(id));
    QTest::newRow("success: told first, then the next is sent") << ok << "confirmed A" << 2 << 0;
    QTest::newRow("failure: the next is on the wire before it is told")
        << QByteArray("E:5") << "failed confim A -13 5" << 1 << 1;
}

// A request made from inside a failure is queued behind the one already sent.
void test_client::order_of_telling_and_sending()
{
    QFETCH(QByteArray, first);
    QFETCH(int, queued);
    QFETCH(int, sent);
    canned_server server;
    server.bodies << first << "E:2"
                  << "E:3";
    client c;
    server.serve(c);
    outcomes answers(c);
    QList<int> seen;
    const auto look = [&] {
        if (seen.isEmpty()) {
            seen << c.queue_size() << in_flight(c);
            c.confirm_update("C");
        }
    };
    connect(&c, &client::confirmed, this, look);
    connect(&c, &client::failed, this, look);
    c.confirm_update("A");
    c.confirm_update("B");
    QCOMPARE(c.queue_size(), 2);
    QCOMPARE(in_flight(c), 1);
    QTRY_COMPARE_WITH_TIMEOUT(answers.size(), 3, 10000);
    QTEST(answers.first(), "told");
    QCOMPARE(seen, (QList<int> { queued, sent }));
    QCOMPARE(answers.mid(1), (QStringList { "failed confim B -13 2", "failed confim C -13 3" }));
    QStringList order;
    for (const QString& path : server.paths)
        order << QString::fromLatin1(opened(path.section('/', 3, 3), delivery::serial_key(id)));
    QCOMPARE(order, (QStringList { "A", "B", "C" }));
    QCOMPARE(c.queue_size(), 0);
}

// A refused confirm takes its own request and the one sent in its place off the queue: the next
// one gets the answer meant for that one, and the last answer finds an empty queue.
void test_client::refused_confirm_takes_two_requests()
{
    const QByteArray serial_key = delivery::serial_key(id);
    canned_server server;
    server.bodies << hex_sealed("NO", serial_key) << hex_sealed("OK", serial_key) << hex_sealed("OK", serial_key);
    client c;
    server.serve(c);
    outcomes answers(c);
    QNetworkAccessManager* network = c.findChild<QNetworkAccessManager*>();
    QVERIFY(network);
    QSignalSpy finished(network, &QNetworkAccessManager::finished);
    c.confirm_update("A");
    c.confirm_update("B");
    c.confirm_update("C");
    QTRY_COMPARE_WITH_TIMEOUT(finished.size(), 3, 10000);
    QCOMPARE(answers, (QStringList { "failed confim A -14 0", "confirmed C" }));
    QCOMPARE(server.paths.size(), 3);
    QCOMPARE(c.queue_size(), 0);
}

// Requests already queued still go out; new ones are canceled inside the call.
void test_client::disabled_cancels_only_new_requests()
{
    canned_server server;
    server.bodies << "E:1"
                  << "E:2";
    client c;
    server.serve(c);
    outcomes answers(c);
    QSignalSpy canceled(&c, &client::canceled);
    c.request_file("A", ident);
    c.check_update("B", {});
    c.set_disabled(true);
    QVERIFY(c.confirm_update("C"));
    QCOMPARE(canceled.size(), 1);
    const auto request = canceled[0][0].value<client::queued_data>();
    QCOMPARE(request.serial, QStringLiteral("C"));
    QCOMPARE(request.type, uint32_t(client::confirm));
    QVERIFY(request.finished);
    QCOMPARE(c.queue_size(), 2);
    QTRY_COMPARE_WITH_TIMEOUT(answers.size(), 2, 10000);
    QCOMPARE(answers, (QStringList { "failed file A -13 1", "failed update B -13 2" }));
    QCOMPARE(server.paths.size(), 2);
}

void test_client::offline_answers_data()
{
    QTest::addColumn<QString>("version");
    QTest::addColumn<QString>("outcome");
    // The later line of a hardware key replaces the earlier one.
    const QString fw2 = md5_hex(QByteArray(5000, 'g'));
    QTest::newRow("known hardware key") << "V5.00.R02.HI3516EV.12.extra"
                                        << "update SN1 pending " + fw2 + "/3/legacy";
    QTest::newRow("a file that didn't load is an unknown key") << "V1.00.R01.MISSING0.01"
                                                               << "update SN1 denied";
    QTest::newRow("no match") << "1.2.3"
                              << "update SN1 no_binding";
    QTest::newRow("seven characters in the key") << "V5.00.R02.HI3516E.12"
                                                 << "update SN1 no_binding";
    QTest::newRow("the match starts at the first character") << "xV5.00.R02.HI3516EV.12"
                                                             << "update SN1 no_binding";
}

// Answers come inside the call, disabled or not, and nothing is queued.
void test_client::offline_answers()
{
    QFETCH(QString, version);
    client c;
    const client_log log(c);
    QVERIFY(c.setup("hash", id, nonce, key, true));
    QCOMPARE(log.count("information, Successfully loaded 1 firmware records"), 1);
    QCOMPARE(log.count("error, Invalid token count for \"short line\": got 2, expected 4"), 1);
    QCOMPARE(log.count("error, Invalid token count for \"THREE000.01 fw.bin 1\": got 3, expected 4"), 1);
    QCOMPARE(log.count("error, Invalid token count for \"\": got 0, expected 4"), 1);
    QCOMPARE(log.count("error, Unable to open firmware file \"nowhere.bin\" for reading\n"), 1);
    outcomes answers(c);
    c.set_disabled(true);
    client::device_query q;
    q.version = version;
    QVERIFY(c.check_update("SN1", q));
    QVERIFY(c.confirm_update("SN1"));
    // Both files stay reachable by their MD5, the replaced one too.
    const QString fw = md5_hex(QByteArray(5000, 'f'));
    QVERIFY(c.request_file("SN1", fw));
    QVERIFY(!c.request_file("SN1", "unknown"));
    QTEST(answers.value(0), "outcome");
    QCOMPARE(answers.mid(1), (QStringList { "confirmed SN1", "file " + fw + " " + fw, "file unknown empty" }));
    QCOMPARE(log.count("error, Unable to open firmware file \"\" for reading data"), 1);
    QCOMPARE(c.queue_size(), 0);
}

void test_client::offline_without_a_list()
{
    QTemporaryDir empty;
    QDir::setCurrent(empty.path());
    client c;
    const client_log log(c);
    QVERIFY(c.setup("hash", id, nonce, key, true));
    QDir::setCurrent(m_dir.path());
    QCOMPARE(log.count("warning, File \"offline_firmwares.list\" not found: no offline functionality"), 1);
    QCOMPARE(log.count("error, Failed to load the firmware database"), 1);
    outcomes answers(c);
    client::device_query q;
    q.version = "V5.00.R02.HI3516EV.12";
    QVERIFY(c.check_update("SN1", q));
    QCOMPARE(answers, QStringList { "update SN1 denied" });
}

void test_client::server_error_texts()
{
    const QStringList english { "generic error", "query format error", "query format error", "internal server error",
        "internal server error", "internal server error", "denied", "generic error", "generic error",
        "device not registered", "internal server error", "device not yours", "group unavailable",
        "invalid hardware revision", "generic error" };
    for (int code = 0; code < english.size(); ++code)
        QCOMPARE(client::server_error_text(uint(code), true), english[code]);
    QCOMPARE(client::server_error_text(9, false), QStringLiteral("Устройство не зарегистрировано"));
}

QTEST_GUILESS_MAIN(test_client)
#include "test_client.moc"
