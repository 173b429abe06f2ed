#include "tests/support/svcsim_harness.h"

#include <QCryptographicHash>
#include <QElapsedTimer>
#include <QFile>
#include <QJsonDocument>
#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QRandomGenerator>
#include <QSet>
#include <QSignalSpy>
#include <QtTest>

#include <csignal>
#include <memory>
#include <vector>

#include "tools/common/service_identity.h"
#include "tools/common/sealing.h"

namespace
{

constexpr quint64 run_nonce = 9876543210123456789ULL;

QByteArray noise(int size)
{
    QByteArray out(size, '\0');
    for (int i = 0; i < size; ++i)
        out[i] = char(QRandomGenerator::global()->bounded(256));
    return out;
}

QString md5_hex(const QByteArray& data)
{
    return QString::fromLatin1(QCryptographicHash::hash(data, QCryptographicHash::Md5).toHex());
}

QByteArray open_hex(const QByteArray& body, const QByteArray& key)
{
    return tools::unseal(QByteArray::fromHex(body), key);
}

// The query text as the program's client writes it: indented, flags as given.
QByteArray client_query(int flags)
{
    const QJsonObject device { { "type", 1 }, { "hardware", "50H20L_S39" },
        { "version", "V5.00.R02.000529B2.10010.040600.0020000" }, { "build_date", "2023-01-05 10:00:00" },
        { "mac", "00:12:34:56:78:9a" }, { "address", "127.0.0.2" }, { "port", 34567 } };
    const QJsonObject query { { "version", 3 }, { "app", QJsonObject { { "hash", md5_hex("orvane") } } },
        { "device", device }, { "request", QJsonObject { { "flags", flags } } } };
    return QJsonDocument(query).toJson();
}

// The client's half of the URLs, from the format alone.
struct url_maker {
    tools::service_identity id;
    QUrl base;
    quint64 nonce = run_nonce;

    static QByteArray piece(const QByteArray& plain, const QByteArray& key) { return tools::seal(plain, key).toHex(); }
    QByteArray session() const { return piece(id.session_plain(nonce).toLatin1(), id.client_key()); }
    QUrl at(const QByteArray& path) const { return base.resolved(QUrl(QString::fromLatin1(path))); }
    QUrl update(const QByteArray& serial, const QByteArray& query) const
    {
        return at(
            "update/" + session() + '/' + piece(serial, id.serial_key()) + '/' + piece(query, id.query_key()) + '/');
    }
    QUrl file(const QByteArray& serial, const QString& version) const
    {
        return at("file/" + session() + '/' + piece(serial, id.serial_key()) + '/'
            + piece(version.toLatin1(), id.version_key()));
    }
    QUrl confirm(const QByteArray& serial) const
    {
        return at("confirm/" + session() + '/' + piece(serial, id.serial_key()) + '/');
    }
};

struct http_result {
    bool finished = false;
    QNetworkReply::NetworkError error = QNetworkReply::NoError;
    int status = 0;
    QByteArray body;
    qint64 elapsed_ms = 0;
};

http_result get(QNetworkAccessManager& nam, const QUrl& url, int timeout_ms = 15000)
{
    QElapsedTimer timer;
    timer.start();
    QNetworkReply* reply = nam.get(QNetworkRequest(url));
    QSignalSpy done(reply, &QNetworkReply::finished);
    http_result r;
    r.finished = reply->isFinished() || done.wait(timeout_ms);
    r.elapsed_ms = timer.elapsed();
    if (!r.finished)
        reply->abort();
    r.error = reply->error();
    r.status = reply->attribute(QNetworkRequest::HttpStatusCodeAttribute).toInt();
    r.body = reply->readAll();
    reply->deleteLater();
    return r;
}

// Reads whole HTTP responses off a raw connection; false when fewer came in time.
bool read_responses(QTcpSocket& socket, int count, QList<int>* statuses, int timeout_ms = 5000)
{
    QByteArray buffer;
    QDeadlineTimer deadline(timeout_ms);
    while (statuses->size() < count) {
        const int end = buffer.indexOf("\r\n\r\n");
        if (end >= 0) {
            const QByteArray head = buffer.left(end);
            const int at = head.toLower().indexOf("content-length:");
            const int length = at < 0 ? 0 : head.mid(at + 15, head.indexOf('\r', at) - at - 15).trimmed().toInt();
            if (buffer.size() >= end + 4 + length) {
                statuses->append(head.mid(9, 3).toInt());
                buffer.remove(0, end + 4 + length);
                continue;
            }
        }
        if (deadline.hasExpired())
            return false;
        if (socket.bytesAvailable() == 0 && !socket.waitForReadyRead(50) && socket.state() != QTcpSocket::ConnectedState
            && socket.bytesAvailable() == 0)
            return false;
        buffer += socket.readAll();
    }
    return true;
}

// The simulator with a plain and a sealed copy of a 64 MiB file; a copy per client
// would pass this. AddressSanitizer keeps up to 256 MiB of freed memory resident.
#if defined(ORVANE_SANITIZED)
constexpr qint64 peak_limit_kib = (200 + 256) * 1024;
#else
constexpr qint64 peak_limit_kib = 200 * 1024;
#endif

qint64 peak_memory_kib(qint64 pid)
{
    QFile status(QStringLiteral("/proc/%1/status").arg(pid));
    if (!status.open(QIODevice::ReadOnly))
        return -1;
    for (const QByteArray& line : status.readAll().split('\n')) {
        if (line.startsWith("VmHWM:"))
            return line.mid(6).trimmed().split(' ').first().toLongLong();
    }
    return -1;
}

} // namespace

class test_svcsim : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void cleanup();
    void cleanupTestCase();

    void purpose_keys_match_known_answers_data();
    void purpose_keys_match_known_answers();
    void unseal_opens_frames_made_elsewhere_data();
    void unseal_opens_frames_made_elsewhere();
    void sealed_frames_data();
    void sealed_frames();

    void update_answers_each_verdict_data();
    void update_answers_each_verdict();
    void update_records_query_and_force_data();
    void update_records_query_and_force();
    void file_is_sealed_under_the_session_nonce_data();
    void file_is_sealed_under_the_session_nonce();
    void confirm_answers_ok();
    void faults_data();
    void faults();
    void bad_requests_get_plain_errors_data();
    void bad_requests_get_plain_errors();
    void raw_http_data();
    void raw_http();
    void verdicts_change_at_run_time();

    void serves_a_fleet_of_200();
    void large_file_is_streamed_and_sealed_once();
    void stops_cleanly_data();
    void stops_cleanly();
    void bad_configuration_is_refused_data();
    void bad_configuration_is_refused();

private:
    QUrl url_for(const QString& kind, const QByteArray& serial) const;
    QString check_answer(const QString& kind, const http_result& r, const QString& expect) const;

    svcsim_harness m_service;
    url_maker m_urls;
    QNetworkAccessManager m_nam;
    QHash<QString, QString> m_firmware; // file name -> identifier
};

void test_svcsim::initTestCase()
{
    for (const auto& [name, size] : std::vector<std::pair<QString, int>> { { "fw_a.bin", 4103 }, { "fw_b.bin", 50000 },
             { "empty.bin", 0 }, { "one.bin", 1 }, { "fifteen.bin", 15 }, { "block.bin", 16 }, { "more.bin", 17 },
             { "large.bin", 1 << 20 } }) {
        const QByteArray data = noise(size);
        QVERIFY2(!m_service.add_file(name, data).isEmpty(), qPrintable(m_service.error()));
        m_firmware.insert(name, md5_hex(data));
    }
    const QJsonObject config {
        { "default", QJsonObject { { "error", 9 } } },
        { "files", QJsonArray { "empty.bin", "one.bin", "fifteen.bin", "block.bin", "more.bin", "large.bin" } },
        { "fleet",
            QJsonObject {
                { "PEND-1",
                    QJsonObject { { "verdict", "pending" },
                        { "offers",
                            QJsonArray {
                                QJsonObject { { "file", "fw_a.bin" }, { "type", 1 }, { "sdk_type", "legacy" } },
                                QJsonObject {
                                    { "file", "fw_b.bin" }, { "type", 2 }, { "sdk_type", QJsonValue() } } } } } },
                { "PEND-X",
                    QJsonObject { { "verdict", "pending" },
                        { "offers",
                            QJsonArray {
                                QJsonObject { { "file", "fw_b.bin" }, { "type", 2 }, { "sdk_type", "xcloud" } } } } } },
                { "UPD-1", "updated" },
                { "NOB-1", QJsonObject { { "verdict", "no_binding" } } },
                { "DEN-1", QJsonObject { { "verdict", "denied" } } },
                { "ODD-1", QJsonObject { { "verdict", "maintenance" } } },
                { "MINE-1", QJsonObject { { "error", 11 } } },
            } },
    };
    QVERIFY2(m_service.start(config), qPrintable(m_service.error()));
    m_urls.id = tools::service_identity(m_service.client_id(), m_service.client_key());
    m_urls.base = m_service.base_url();
}

void test_svcsim::cleanup()
{
    QVERIFY(m_service.clear_faults());
    QVERIFY(m_service.clear_requests());
}

void test_svcsim::cleanupTestCase()
{
    // After everything above; under the sanitizers this also says it leaked nothing.
    QVERIFY2(m_service.stop(), qPrintable(m_service.log()));
}

QUrl test_svcsim::url_for(const QString& kind, const QByteArray& serial) const
{
    if (kind == QLatin1String("update"))
        return m_urls.update(serial, client_query(0));
    if (kind == QLatin1String("file"))
        return m_urls.file(serial, m_firmware.value("fw_a.bin"));
    return m_urls.confirm(serial);
}

// Empty when the answer is what `expect` says: "ok" (the proper answer of the
// kind), "E:<n>", "body:<text>", "sealed:<text>" or "drop"; else what is wrong.
QString test_svcsim::check_answer(const QString& kind, const http_result& r, const QString& expect) const
{
    if (!r.finished)
        return QStringLiteral("no answer");
    if (expect == QLatin1String("drop"))
        return r.error == QNetworkReply::RemoteHostClosedError ? QString()
                                                               : QStringLiteral("error %1, not a close").arg(r.error);
    if (r.error != QNetworkReply::NoError || r.status != 200)
        return QStringLiteral("error %1, status %2").arg(r.error).arg(r.status);

    const tools::service_identity& id = m_urls.id;
    QByteArray opened;
    if (kind == QLatin1String("file"))
        opened = tools::unseal(r.body, id.file_key(m_urls.nonce));
    else
        opened = open_hex(r.body, kind == QLatin1String("update") ? id.version_key() : id.serial_key());

    QString got;
    if (expect == QLatin1String("ok")) {
        if (kind == QLatin1String("file"))
            return md5_hex(opened) == m_firmware.value("fw_a.bin") ? QString() : QStringLiteral("file mismatches");
        if (kind == QLatin1String("update"))
            got = QJsonDocument::fromJson(opened).object().value("resp").toString() == QLatin1String("pending")
                ? QString()
                : QStringLiteral("update reads %1").arg(QString::fromUtf8(opened));
        else
            got = opened == "OK" ? QString() : QStringLiteral("confirm reads %1").arg(QString::fromUtf8(opened));
        return got;
    }
    if (expect.startsWith(QLatin1String("sealed:")))
        return opened == expect.mid(7).toUtf8() ? QString() : QStringLiteral("opened %1").arg(QString(opened));
    const QByteArray plain = expect.startsWith(QLatin1String("body:")) ? expect.mid(5).toUtf8() : expect.toUtf8();
    return r.body == plain ? QString() : QStringLiteral("body %1").arg(QString::fromLatin1(r.body.left(40)));
}

void test_svcsim::purpose_keys_match_known_answers_data()
{
    QTest::addColumn<QByteArray>("key");
    QTest::addColumn<QByteArray>("expected");
    // Digests taken with sha256sum over the texts the keys are made of.
    const tools::service_identity id(QByteArray::fromHex("0011223344556677"), QByteArray(32, 'k'));
    QTest::newRow("serial key hashes h + h.mid(1,6)")
        << id.serial_key() << QByteArray::fromHex("6f698b00664efc6c14ce6e4e3f3d6894f073b923d55d3eaba3a1471364e1afce");
    QTest::newRow("version key hashes h + h.mid(2,4)")
        << id.version_key() << QByteArray::fromHex("b53f3a4c402d1f385153e55bfc84bdd3d7dfb05b5ced2f44757b772558ae1cd4");
    QTest::newRow("query key hashes h + h.mid(3,2)")
        << id.query_key() << QByteArray::fromHex("96742fcdde660cb693bf1e811510e99bde93587a3d1291a8fee9a3138d5288fb");
    QTest::newRow("file key hashes the session text")
        << id.file_key(42) << QByteArray::fromHex("601f739e39b97cec59c365c6a3569d973ff3427a820aeeaf84820db739aba97a");
    QTest::newRow("file key of the largest nonce in decimal")
        << id.file_key(18446744073709551615ULL)
        << QByteArray::fromHex("68debe54d3f9cd9a124fb6b9665228bbcbdc8a647db9f8d28e08143393ab66be");
}

void test_svcsim::purpose_keys_match_known_answers()
{
    QFETCH(QByteArray, key);
    QFETCH(QByteArray, expected);
    QCOMPARE(key.toHex(), expected.toHex());
}

void test_svcsim::unseal_opens_frames_made_elsewhere_data()
{
    QTest::addColumn<QByteArray>("cipher");
    QTest::addColumn<QByteArray>("plain");
    // Ciphertexts from `openssl enc -aes-256-cbc` with key 00..1f and IV a0..af.
    QTest::newRow("two bytes") << QByteArray::fromHex("facf3ba360cf5779d2f1af27bf7f0c94") << QByteArray("OK");
    QTest::newRow("nothing, one block of padding")
        << QByteArray::fromHex("600d07a3b9b2c4e4082153d6d1707aa6") << QByteArray("");
    QTest::newRow("a whole block, a second one of padding")
        << QByteArray::fromHex("ce1cf3a4e3b87b139ba3cff10ace35b606d96b2e184bf22b73d31ba4be14d8c9")
        << QByteArray("0123456789abcdef");
}

void test_svcsim::unseal_opens_frames_made_elsewhere()
{
    QFETCH(QByteArray, cipher);
    QFETCH(QByteArray, plain);
    const QByteArray key = QByteArray::fromHex("000102030405060708090a0b0c0d0e0f101112131415161718191a1b1c1d1e1f");
    const QByteArray iv = QByteArray::fromHex("a0a1a2a3a4a5a6a7a8a9aaabacadaeaf");
    QByteArray opened;
    QVERIFY(tools::unseal(cipher + iv + noise(80), key, &opened));
    QCOMPARE(opened, plain);
}

void test_svcsim::sealed_frames_data()
{
    QTest::addColumn<QByteArray>("plain");
    QTest::addColumn<QString>("change");
    QTest::addColumn<bool>("opens");
    QTest::addColumn<int>("size");
    QTest::newRow("empty text makes the smallest frame") << QByteArray() << "" << true << 112;
    QTest::newRow("fifteen bytes pad to one block") << QByteArray(15, 'x') << "" << true << 112;
    QTest::newRow("sixteen bytes take a block of padding") << QByteArray(16, 'x') << "" << true << 128;
    QTest::newRow("filler changes are ignored") << QByteArray("serial") << "filler" << true << 112;
    QTest::newRow("a changed IV garbles or fails") << QByteArray("0123456789abcdef0") << "iv" << false << 128;
    QTest::newRow("one byte short doesn't open") << QByteArray() << "truncate" << false << 111;
    QTest::newRow("a size off the block doesn't open") << QByteArray(20, 'y') << "append" << false << 129;
    QTest::newRow("another key doesn't open") << QByteArray("OK") << "key" << false << 112;
}

void test_svcsim::sealed_frames()
{
    QFETCH(QByteArray, plain);
    QFETCH(QString, change);
    QFETCH(bool, opens);
    QFETCH(int, size);
    const QByteArray key = tools::sha256("key");
    QByteArray frame = tools::seal(plain, key);
    QCOMPARE(tools::seal(plain, key).size(), frame.size());
    // The IV and filler are fresh every time.
    QVERIFY(tools::seal(plain, key).right(96) != frame.right(96));
    QByteArray open_key = key;
    if (change == QLatin1String("filler"))
        frame.replace(frame.size() - 80, 80, QByteArray(80, '\x5a'));
    else if (change == QLatin1String("iv"))
        frame[frame.size() - 96] = char(frame.at(frame.size() - 96) ^ 1);
    else if (change == QLatin1String("truncate"))
        frame.chop(1);
    else if (change == QLatin1String("append"))
        frame.append('\0');
    else if (change == QLatin1String("key"))
        open_key = tools::sha256("other");
    QCOMPARE(frame.size(), size);
    QByteArray opened;
    const bool ok = tools::unseal(frame, open_key, &opened);
    QCOMPARE(ok && opened == plain, opens);
}

void test_svcsim::update_answers_each_verdict_data()
{
    QTest::addColumn<QByteArray>("serial");
    QTest::addColumn<QByteArray>("error");
    QTest::addColumn<QJsonObject>("expected");
    auto offer = [this](const char* file, int type, const QJsonValue& sdk) {
        return QJsonObject { { "firmware", m_firmware.value(file) }, { "type", type }, { "sdk_type", sdk } };
    };
    QTest::newRow("pending keeps its offers in order, null sdk_type included")
        << QByteArray("PEND-1") << QByteArray()
        << QJsonObject { { "resp", "pending" },
               { "updates", QJsonArray { offer("fw_a.bin", 1, "legacy"), offer("fw_b.bin", 2, QJsonValue()) } } };
    QTest::newRow("pending with another functionality")
        << QByteArray("PEND-X") << QByteArray()
        << QJsonObject { { "resp", "pending" }, { "updates", QJsonArray { offer("fw_b.bin", 2, "xcloud") } } };
    for (const auto& [serial, verdict] : std::vector<std::pair<QByteArray, QString>> {
             { "UPD-1", "updated" }, { "NOB-1", "no_binding" }, { "DEN-1", "denied" } }) {
        QTest::newRow(qPrintable(QStringLiteral("%1 has no offers").arg(verdict)))
            << serial << QByteArray() << QJsonObject { { "resp", verdict }, { "updates", QJsonArray() } };
    }
    QTest::newRow("an unknown verdict passes through") << QByteArray(
        "ODD-1") << QByteArray() << QJsonObject { { "resp", "maintenance" }, { "updates", QJsonArray() } };
    QTest::newRow("a serial not in the fleet gets the default, E:9")
        << QByteArray("STRANGER") << QByteArray("E:9") << QJsonObject();
    QTest::newRow("an error entry answers plainly") << QByteArray("MINE-1") << QByteArray("E:11") << QJsonObject();
}

void test_svcsim::update_answers_each_verdict()
{
    QFETCH(QByteArray, serial);
    QFETCH(QByteArray, error);
    QFETCH(QJsonObject, expected);
    const http_result r = get(m_nam, m_urls.update(serial, client_query(0)));
    QVERIFY(r.finished);
    QCOMPARE(r.error, QNetworkReply::NoError);
    if (!error.isEmpty()) {
        QCOMPARE(r.body, error);
    } else {
        QVERIFY2(r.body.size() >= 224, r.body.constData());
        QCOMPARE(QJsonDocument::fromJson(open_hex(r.body, m_urls.id.version_key())).object(), expected);
    }
    const QJsonArray records = m_service.requests("update");
    QCOMPARE(records.size(), 1);
    const QJsonObject record = records.first().toObject();
    QCOMPARE(record.value("serial").toString(), QString::fromLatin1(serial));
    QCOMPARE(record.value("nonce").toString(), QString::number(run_nonce));
    QCOMPARE(record.value("answer").toString(), error.isEmpty() ? QStringLiteral("ok") : QString::fromLatin1(error));
}

void test_svcsim::update_records_query_and_force_data()
{
    QTest::addColumn<QByteArray>("query");
    QTest::addColumn<bool>("force");
    QTest::newRow("flags 0 isn't forced") << client_query(0) << false;
    QTest::newRow("flags 1 is forced") << client_query(1) << true;
    QTest::newRow("only bit 1 of the flags counts") << client_query(2) << false;
    QTest::newRow("flags 3 is forced") << client_query(3) << true;
    QTest::newRow("an empty query is legal and recorded as null") << QByteArray() << false;
}

void test_svcsim::update_records_query_and_force()
{
    QFETCH(QByteArray, query);
    QFETCH(bool, force);
    const http_result r = get(m_nam, m_urls.update("UPD-1", query));
    QCOMPARE(check_answer("update", r, "sealed:{\"resp\":\"updated\",\"updates\":[]}"), QString());
    const QJsonObject record = m_service.requests("update").first().toObject();
    QCOMPARE(record.value("force").toBool(), force);
    if (query.isEmpty())
        QVERIFY(record.value("query").isNull());
    else
        QCOMPARE(record.value("query").toObject(), QJsonDocument::fromJson(query).object());
}

void test_svcsim::file_is_sealed_under_the_session_nonce_data()
{
    QTest::addColumn<QString>("name");
    for (const char* name : { "empty.bin", "one.bin", "fifteen.bin", "block.bin", "more.bin", "large.bin" })
        QTest::newRow(name) << name;
}

void test_svcsim::file_is_sealed_under_the_session_nonce()
{
    QFETCH(QString, name);
    const QString firmware = m_firmware.value(name);
    const int seals = m_service.stats().value("seals").toInt();

    const http_result first = get(m_nam, m_urls.file("NOB-1", firmware));
    QCOMPARE(first.error, QNetworkReply::NoError);
    QCOMPARE(first.body.size() % 16, 0);
    const QByteArray plain = tools::unseal(first.body, m_urls.id.file_key(run_nonce));
    QCOMPARE(md5_hex(plain), firmware);
    // The frame is raw, not hexadecimal, and doesn't open under the other keys.
    QVERIFY(tools::unseal(first.body, m_urls.id.version_key()).isEmpty());

    // One seal per nonce: the same frame again, a new one for another run.
    const http_result again = get(m_nam, m_urls.file("PEND-1", firmware));
    QCOMPARE(again.body, first.body);
    url_maker other_run = m_urls;
    other_run.nonce = 17;
    const http_result other = get(m_nam, other_run.file("NOB-1", firmware));
    QVERIFY(other.body != first.body);
    QCOMPARE(md5_hex(tools::unseal(other.body, m_urls.id.file_key(17))), firmware);
    QCOMPARE(m_service.stats().value("seals").toInt(), seals + 2);

    const QJsonArray records = m_service.requests("file");
    QCOMPARE(records.size(), 3);
    QCOMPARE(records.at(0).toObject().value("version").toString(), firmware);
    QCOMPARE(records.at(2).toObject().value("nonce").toString(), QStringLiteral("17"));
}

void test_svcsim::confirm_answers_ok()
{
    const http_result r = get(m_nam, m_urls.confirm("PEND-1"));
    QCOMPARE(check_answer("confirm", r, "sealed:OK"), QString());
    const QJsonArray records = m_service.requests("confirm", "PEND-1");
    QCOMPARE(records.size(), 1);
    QCOMPARE(records.first().toObject().value("answer").toString(), QStringLiteral("ok"));
}

void test_svcsim::faults_data()
{
    QTest::addColumn<QString>("kind");
    QTest::addColumn<QJsonObject>("fault");
    QTest::addColumn<bool>("for_serial");
    QTest::addColumn<QString>("first");
    QTest::addColumn<QString>("second");
    QTest::addColumn<QString>("recorded");
    QTest::addColumn<int>("min_ms");

    for (const char* kind : { "update", "file", "confirm" }) {
        auto row = [kind](const char* what) -> QTestData& {
            return QTest::newRow(qPrintable(QStringLiteral("%1 %2").arg(kind, what)));
        };
        row("error stays until cleared") << kind << QJsonObject { { "error", 7 } } << false << "E:7"
                                         << "E:7"
                                         << "E:7" << 0;
        row("garbage body") << kind << QJsonObject { { "garbage", true } } << false << "body:garbage"
                            << "body:garbage"
                            << "garbage" << 0;
        row("drop closes without an answer") << kind << QJsonObject { { "drop", true } } << false << "drop"
                                             << "drop"
                                             << "drop" << 0;
        row("sealed text under the proper key")
            << kind << QJsonObject { { "sealed", "{broken" } } << false << "sealed:{broken"
            << "sealed:{broken"
            << "sealed" << 0;
        row("delay slows the proper answer") << kind << QJsonObject { { "delay_ms", 300 } } << false << "ok"
                                             << "ok"
                                             << "ok" << 300;
        row("fault of one serial spares another") << kind << QJsonObject { { "error", 4 } } << true << "ok"
                                                  << "ok"
                                                  << "ok" << 0;
        row("times wears off") << kind << QJsonObject { { "error", 5 }, { "times", 1 } } << false << "E:5"
                               << "ok"
                               << "E:5" << 0;
    }
    QTest::newRow("confirm not_ok is sealed but not OK")
        << "confirm" << QJsonObject { { "not_ok", true } } << false << "sealed:FAIL"
        << "sealed:FAIL"
        << "sealed" << 0;
    QTest::newRow("delay and error together")
        << "update" << QJsonObject { { "error", 3 }, { "delay_ms", 200 } } << false << "E:3"
        << "E:3"
        << "E:3" << 200;
    QTest::newRow("a text that could be mistaken for hex")
        << "update" << QJsonObject { { "garbage", "0123456789abcdef" } } << false << "body:0123456789abcdef"
        << "body:0123456789abcdef"
        << "garbage" << 0;
}

void test_svcsim::faults()
{
    QFETCH(QString, kind);
    QFETCH(QJsonObject, fault);
    QFETCH(bool, for_serial);
    QFETCH(QString, first);
    QFETCH(QString, second);
    QFETCH(QString, recorded);
    QFETCH(int, min_ms);

    // A fault of one serial is set on PEND-X and asked of PEND-1.
    QVERIFY2(m_service.set_fault(kind, fault, for_serial ? QStringLiteral("PEND-X") : QString()),
        qPrintable(m_service.error()));
    const http_result one = get(m_nam, url_for(kind, "PEND-1"));
    QCOMPARE(check_answer(kind, one, first), QString());
    QVERIFY2(one.elapsed_ms >= min_ms, qPrintable(QString::number(one.elapsed_ms)));
    const http_result two = get(m_nam, url_for(kind, "PEND-1"));
    QCOMPARE(check_answer(kind, two, second), QString());

    const QJsonArray records = m_service.requests(kind, "PEND-1");
    QVERIFY(!records.isEmpty());
    const QJsonObject record = records.first().toObject();
    QCOMPARE(record.value("answer").toString(), recorded);
    QCOMPARE(record.value("fault").toBool(), recorded != QLatin1String("ok"));
    QCOMPARE(record.value("delay_ms").toInt(), min_ms);

    // Clearing puts the proper answer back.
    QVERIFY(m_service.clear_faults());
    QCOMPARE(check_answer(kind, get(m_nam, url_for(kind, "PEND-1")), "ok"), QString());
}

void test_svcsim::bad_requests_get_plain_errors_data()
{
    QTest::addColumn<QUrl>("url");
    QTest::addColumn<QByteArray>("expected");
    const url_maker& u = m_urls;
    const tools::service_identity& id = u.id;
    const QByteArray serial = url_maker::piece("PEND-1", id.serial_key());
    const QByteArray query = url_maker::piece(client_query(0), id.query_key());
    auto with_session
        = [&](const QByteArray& session) { return u.at("update/" + session + '/' + serial + '/' + query + '/'); };
    const tools::service_identity stranger(QByteArray::fromHex("8877665544332211"), id.client_key());

    QTest::newRow("session isn't hexadecimal") << with_session("zz" + u.session().mid(2)) << QByteArray("E:2");
    QTest::newRow("session in upper case") << with_session(u.session().toUpper()) << QByteArray("E:2");
    QTest::newRow("session under another key")
        << with_session(url_maker::piece(id.session_plain(run_nonce).toLatin1(), tools::sha256("x")))
        << QByteArray("E:2");
    QTest::newRow("session of another client")
        << with_session(url_maker::piece(stranger.session_plain(run_nonce).toLatin1(), id.client_key()))
        << QByteArray("E:6");
    QTest::newRow("session with nonce zero")
        << with_session(url_maker::piece(id.session_plain(0).toLatin1(), id.client_key())) << QByteArray("E:2");
    QTest::newRow("session without its separator")
        << with_session(url_maker::piece(id.id_hex().toLatin1() + "42", id.client_key())) << QByteArray("E:2");
    QTest::newRow("session cut to 111 bytes")
        << with_session(QByteArray::fromHex(u.session()).left(111).toHex()) << QByteArray("E:2");
    QTest::newRow("serial under the version key")
        << u.at("update/" + u.session() + '/' + url_maker::piece("PEND-1", id.version_key()) + '/' + query + '/')
        << QByteArray("E:1");
    QTest::newRow("query that isn't JSON") << u.update("PEND-1", "flags=1") << QByteArray("E:1");
    QTest::newRow("query of another format version")
        << u.update("PEND-1", QJsonDocument(QJsonObject { { "version", 2 } }).toJson()) << QByteArray("E:1");
    QTest::newRow("empty query piece") << u.at("update/" + u.session() + '/' + serial + "//") << QByteArray("E:1");
    QTest::newRow("file of an unknown firmware") << u.file("PEND-1", md5_hex("nothing")) << QByteArray("E:10");
    QTest::newRow("file version under the serial key") << u.at("file/" + u.session() + '/' + serial + '/'
        + url_maker::piece(m_firmware.value("fw_a.bin").toLatin1(), id.serial_key()))
                                                       << QByteArray("E:1");
    QTest::newRow("confirm with a piece too many")
        << u.at("confirm/" + u.session() + '/' + serial + '/' + serial + '/') << QByteArray("E:1");
    QTest::newRow("confirm of an error entry") << u.confirm("MINE-1") << QByteArray("E:11");
}

void test_svcsim::bad_requests_get_plain_errors()
{
    QFETCH(QUrl, url);
    QFETCH(QByteArray, expected);
    const http_result r = get(m_nam, url);
    QCOMPARE(r.error, QNetworkReply::NoError);
    QCOMPARE(r.status, 200);
    QCOMPARE(r.body, expected);
    // The client tells errors by their size.
    QVERIFY(r.body.size() < 16);
    const QJsonArray records = m_service.requests();
    QCOMPARE(records.size(), 1);
    QCOMPARE(records.first().toObject().value("answer").toString(), QString::fromLatin1(expected));
}

void test_svcsim::raw_http_data()
{
    QTest::addColumn<QByteArray>("sent");
    QTest::addColumn<QList<int>>("statuses");
    QTest::addColumn<bool>("closed");
    const QByteArray confirm = m_urls.confirm("PEND-1").path(QUrl::FullyEncoded).toLatin1();
    const QByteArray host = "Host: 127.0.0.1\r\n";
    QTest::newRow("pipelined requests are answered in order")
        << "GET " + confirm + " HTTP/1.1\r\n" + host + "\r\nGET /nothing HTTP/1.1\r\n" + host + "\r\n"
        << QList<int> { 200, 404 } << false;
    QTest::newRow("HTTP/1.0 closes after the answer") << "GET " + confirm + " HTTP/1.0\r\n\r\n"
                                                      << QList<int> { 200 } << true;
    QTest::newRow("Connection: close is honoured") << "GET " + confirm + " HTTP/1.1\r\nConnection: close\r\n" + host
            + "\r\n" << QList<int> { 200 } << true;
    QTest::newRow("a body is read past, and POST refused") << "POST " + confirm + " HTTP/1.1\r\nContent-Length: 5\r\n"
            + host + "\r\nhello" + "GET " + confirm + " HTTP/1.1\r\n" + host
            + "\r\n" << QList<int> { 405, 200 } << false;
    QTest::newRow("a garbage request line gets 400 and a close")
        << QByteArray("HELLO THERE\r\n\r\n") << QList<int> { 400 } << true;
    QTest::newRow("a header without a colon gets 400") << "GET " + confirm + " HTTP/1.1\r\nnonsense\r\n\r\n"
                                                       << QList<int> { 400 } << true;
    QTest::newRow("an endless head gets 400") << "GET /" + QByteArray(40000, 'a') << QList<int> { 400 } << true;
}

void test_svcsim::raw_http()
{
    QFETCH(QByteArray, sent);
    QFETCH(QList<int>, statuses);
    QFETCH(bool, closed);
    QTcpSocket socket;
    socket.connectToHost(m_service.address(), m_service.port());
    QVERIFY(socket.waitForConnected(3000));
    socket.write(sent);
    QList<int> got;
    QVERIFY2(read_responses(socket, statuses.size(), &got), qPrintable(QStringLiteral("%1 answers").arg(got.size())));
    QCOMPARE(got, statuses);
    if (closed) {
        QTRY_COMPARE_WITH_TIMEOUT(socket.state(), QAbstractSocket::UnconnectedState, 3000);
    } else {
        // Still usable: one more request on the same connection.
        socket.write("GET /again HTTP/1.1\r\nHost: 127.0.0.1\r\n\r\n");
        got.clear();
        QVERIFY(read_responses(socket, 1, &got));
        QCOMPARE(got, QList<int> { 404 });
    }
}

void test_svcsim::verdicts_change_at_run_time()
{
    auto resp = [this](const QByteArray& serial) {
        const http_result r = get(m_nam, m_urls.update(serial, client_query(0)));
        return r.body.size() < 16 ? QJsonObject { { "plain", QString::fromLatin1(r.body) } }
                                  : QJsonDocument::fromJson(open_hex(r.body, m_urls.id.version_key())).object();
    };
    const QString path = m_service.add_file("late.bin", "firmware added while running");
    QVERIFY(m_service.set_verdict("NEW-1",
        QJsonObject { { "verdict", "pending" },
            { "offers", QJsonArray { QJsonObject { { "file", path }, { "type", 2 }, { "sdk_type", "xnet" } } } } }));
    const QJsonArray updates = resp("NEW-1").value("updates").toArray();
    QCOMPARE(updates.size(), 1);
    QCOMPARE(updates.first().toObject().value("firmware").toString(), md5_hex("firmware added while running"));
    QCOMPARE(updates.first().toObject().value("sdk_type").toString(), QStringLiteral("xnet"));

    // A refused change leaves the entry as it was.
    QVERIFY(!m_service.set_verdict("NEW-1", QJsonObject { { "offers", QJsonArray { "missing.bin" } } }));
    QCOMPARE(resp("NEW-1").value("resp").toString(), QStringLiteral("pending"));

    QVERIFY(m_service.set_verdict("NEW-1", QJsonObject { { "verdict", "updated" } }));
    QCOMPARE(resp("NEW-1").value("resp").toString(), QStringLiteral("updated"));
    QVERIFY(m_service.command(QJsonObject { { "cmd", "set_verdict" }, { "serial", "NEW-1" }, { "remove", true } })
                .value("ok")
                .toBool());
    QCOMPARE(resp("NEW-1").value("plain").toString(), QStringLiteral("E:9"));
    QVERIFY(m_service.set_default_verdict(QJsonObject { { "verdict", "no_binding" } }));
    QCOMPARE(resp("NEW-1").value("resp").toString(), QStringLiteral("no_binding"));
    QVERIFY(m_service.set_default_verdict(QJsonObject { { "error", 9 } }));
    QVERIFY(!m_service.command(QJsonObject { { "cmd", "no_such_command" } }).value("ok").toBool());
}

void test_svcsim::serves_a_fleet_of_200()
{
    constexpr int fleet_size = 200;
    svcsim_harness service;
    const QByteArray data = noise(70000);
    QVERIFY(!service.add_file("fw.bin", data).isEmpty());
    QJsonObject fleet;
    for (int i = 0; i < fleet_size; ++i)
        fleet.insert(QStringLiteral("DEV-%1").arg(i, 3, 10, QLatin1Char('0')),
            QJsonObject { { "verdict", "pending" }, { "offers", QJsonArray { "fw.bin" } } });
    QVERIFY2(service.start(QJsonObject { { "fleet", fleet } }), qPrintable(service.error()));
    const url_maker urls { tools::service_identity(service.client_id(), service.client_key()), service.base_url() };

    // Many managers, so that many connections are open at once.
    std::vector<std::unique_ptr<QNetworkAccessManager>> managers;
    for (int i = 0; i < 25; ++i)
        managers.push_back(std::make_unique<QNetworkAccessManager>());
    int finished = 0;
    QSet<QString> offered;
    int confirmed = 0;
    int files = 0;
    for (int i = 0; i < fleet_size; ++i) {
        const QByteArray serial = QStringLiteral("DEV-%1").arg(i, 3, 10, QLatin1Char('0')).toLatin1();
        QNetworkAccessManager& nam = *managers[size_t(i) % managers.size()];
        QNetworkReply* update = nam.get(QNetworkRequest(urls.update(serial, client_query(i % 2))));
        QNetworkReply* confirm = nam.get(QNetworkRequest(urls.confirm(serial)));
        QNetworkReply* file = nam.get(QNetworkRequest(urls.file(serial, md5_hex(data))));
        connect(update, &QNetworkReply::finished, this, [&, update] {
            const QJsonObject answer
                = QJsonDocument::fromJson(open_hex(update->readAll(), urls.id.version_key())).object();
            offered.insert(answer.value("updates").toArray().first().toObject().value("firmware").toString());
            ++finished;
            update->deleteLater();
        });
        connect(confirm, &QNetworkReply::finished, this, [&, confirm] {
            confirmed += open_hex(confirm->readAll(), urls.id.serial_key()) == "OK" ? 1 : 0;
            ++finished;
            confirm->deleteLater();
        });
        connect(file, &QNetworkReply::finished, this, [&, file] {
            files += tools::unseal(file->readAll(), urls.id.file_key(run_nonce)) == data ? 1 : 0;
            ++finished;
            file->deleteLater();
        });
    }
    QTRY_COMPARE_WITH_TIMEOUT(finished, 3 * fleet_size, 120000);
    QCOMPARE(confirmed, fleet_size);
    QCOMPARE(files, fleet_size);
    QCOMPARE(offered, QSet<QString> { md5_hex(data) });

    const QJsonObject stats = service.stats();
    QCOMPARE(stats.value("counts").toObject().value("update").toInt(), fleet_size);
    QCOMPARE(stats.value("counts").toObject().value("confirm").toInt(), fleet_size);
    QCOMPARE(stats.value("seals").toInt(), 1);
    int forced = 0;
    QSet<QString> serials;
    for (const QJsonValue& r : service.requests("update")) {
        serials.insert(r.toObject().value("serial").toString());
        forced += r.toObject().value("force").toBool() ? 1 : 0;
    }
    QCOMPARE(serials.size(), fleet_size);
    QCOMPARE(forced, fleet_size / 2);
    QVERIFY(service.stop());
}

void test_svcsim::large_file_is_streamed_and_sealed_once()
{
    constexpr int size = 64 << 20;
    constexpr int slow_clients = 3;
    svcsim_harness service;
    QByteArray data(size, '\0');
    QRandomGenerator::global()->fillRange(reinterpret_cast<quint32*>(data.data()), size / 4);
    const QString firmware = md5_hex(data);
    QVERIFY(!service.add_file("big.bin", data).isEmpty());
    data.clear();
    QVERIFY2(service.start(QJsonObject { { "files", QJsonArray { "big.bin" } } }, 30000), qPrintable(service.error()));
    const url_maker urls { tools::service_identity(service.client_id(), service.client_key()), service.base_url() };
    const QByteArray request = "GET " + urls.file("BIG", firmware).path(QUrl::FullyEncoded).toLatin1()
        + " HTTP/1.1\r\nHost: 127.0.0.1\r\n\r\n";

    // Clients that ask and don't read yet: their answers wait in the service.
    std::vector<std::unique_ptr<QTcpSocket>> slow;
    for (int i = 0; i < slow_clients; ++i) {
        slow.push_back(std::make_unique<QTcpSocket>());
        slow.back()->connectToHost(service.address(), service.port());
        QVERIFY(slow.back()->waitForConnected(3000));
        slow.back()->write(request);
        QVERIFY(slow.back()->waitForBytesWritten(3000));
    }
    QVERIFY(service.wait_for_requests(slow_clients, "file", 30000));

    QNetworkAccessManager nam;
    const http_result r = get(nam, urls.file("BIG", firmware), 120000);
    QCOMPARE(r.error, QNetworkReply::NoError);
    QCOMPARE(r.body.size(), size + 16 + 96);
    QCOMPARE(md5_hex(tools::unseal(r.body, urls.id.file_key(run_nonce))), firmware);
    const QString sealed_md5 = md5_hex(r.body);

    // Plain and sealed copy, and slices in the sockets; not a copy per client.
    const qint64 peak = peak_memory_kib(service.process().processId());
    QVERIFY2(peak > 0 && peak < peak_limit_kib, qPrintable(QStringLiteral("peak %1 KiB").arg(peak)));

    for (auto& socket : slow) {
        QCryptographicHash md5(QCryptographicHash::Md5);
        QByteArray head;
        qint64 body = 0;
        QDeadlineTimer deadline(60000);
        while (body < r.body.size() && !deadline.hasExpired()) {
            if (socket->bytesAvailable() == 0)
                socket->waitForReadyRead(100);
            QByteArray chunk = socket->readAll();
            if (head.isEmpty() || !head.endsWith("\r\n\r\n")) {
                head += chunk;
                const int end = head.indexOf("\r\n\r\n");
                if (end < 0)
                    continue;
                chunk = head.mid(end + 4);
                head.truncate(end + 4);
            }
            md5.addData(chunk);
            body += chunk.size();
        }
        QVERIFY(head.startsWith("HTTP/1.1 200"));
        QCOMPARE(body, qint64(r.body.size()));
        QCOMPARE(QString::fromLatin1(md5.result().toHex()), sealed_md5);
    }
    QCOMPARE(service.stats().value("seals").toInt(), 1);
    QVERIFY(service.stop());
}

void test_svcsim::stops_cleanly_data()
{
    QTest::addColumn<QString>("how");
    QTest::newRow("end of standard input") << "stdin";
    QTest::newRow("SIGTERM") << "term";
    QTest::newRow("SIGINT") << "int";
    QTest::newRow("quit command") << "quit";
}

void test_svcsim::stops_cleanly()
{
    QFETCH(QString, how);
    svcsim_harness service;
    QVERIFY2(service.start(), qPrintable(service.error()));
    // An open client connection mustn't hold the process.
    QTcpSocket client;
    client.connectToHost(service.address(), service.port());
    QVERIFY(client.waitForConnected(3000));
    if (how == QLatin1String("stdin")) {
        QVERIFY(service.stop());
        return;
    }
    if (how == QLatin1String("quit"))
        QVERIFY(service.command(QJsonObject { { "cmd", "quit" } }).value("ok").toBool());
    else
        ::kill(pid_t(service.process().processId()), how == QLatin1String("term") ? SIGTERM : SIGINT);
    QVERIFY(service.process().waitForFinished(5000));
    QCOMPARE(service.process().exitStatus(), QProcess::NormalExit);
    QCOMPARE(service.process().exitCode(), 0);
}

void test_svcsim::bad_configuration_is_refused_data()
{
    QTest::addColumn<QJsonObject>("config");
    QTest::addColumn<QString>("message");
    const QJsonObject identity { { "client_id", "0011223344556677" }, { "client_key", QString(64, 'a') },
        { "port", 0 } };
    auto with = [&identity](const QString& name, const QJsonValue& value) {
        QJsonObject o = identity;
        o.insert(name, value);
        return o;
    };
    QTest::newRow("missing firmware file")
        << with("fleet", QJsonObject { { "A", QJsonObject { { "offers", QJsonArray { "nope.bin" } } } } })
        << "can't read firmware file";
    QTest::newRow("short client id") << with("client_id", "00112233") << "client_id must be";
    QTest::newRow("no identity at all") << QJsonObject() << "client_id must be";
    QTest::newRow("address outside loopback") << with("address", "192.0.2.1") << "only loopback";
    QTest::newRow("unknown fault member")
        << with("faults", QJsonObject { { "update", QJsonObject { { "explode", true } } } }) << "unknown fault member";
    QTest::newRow("two answers in one fault")
        << with("faults", QJsonObject { { "file", QJsonObject { { "error", 1 }, { "drop", true } } } })
        << "takes one of";
    QTest::newRow("fault of an unknown kind")
        << with("faults", QJsonObject { { "upload", QJsonObject { { "error", 1 } } } }) << "unknown request kind";
    QTest::newRow("offer without file or identifier") << with(
        "fleet", QJsonObject { { "A", QJsonObject { { "offers", QJsonArray { QJsonObject { { "type", 1 } } } } } } })
                                                      << "an offer needs";
    QTest::newRow("misspelt member") << with("flet", QJsonObject()) << "unknown member";
}

void test_svcsim::bad_configuration_is_refused()
{
    QFETCH(QJsonObject, config);
    QFETCH(QString, message);
    QTemporaryDir dir;
    QFile file(dir.filePath("service.json"));
    QVERIFY(file.open(QIODevice::WriteOnly));
    file.write(QJsonDocument(config).toJson());
    file.close();
    QProcess process;
    process.start(qEnvironmentVariable("ORVANE_TOOLS_DIR") + "/svcsim/orvane-svcsim",
        { "--config", file.fileName(), "--exit-on-stdin-eof" });
    QVERIFY(process.waitForStarted(5000));
    process.closeWriteChannel();
    if (!process.waitForFinished(10000)) {
        process.kill();
        process.waitForFinished(2000);
        QFAIL("the simulator didn't end");
    }
    QCOMPARE(process.exitCode(), 2);
    QVERIFY(!process.readAllStandardOutput().contains("ready"));
    const QString err = QString::fromUtf8(process.readAllStandardError());
    QVERIFY2(err.contains(message), qPrintable(err));
}

QTEST_GUILESS_MAIN(test_svcsim)
#include "test_svcsim.moc"
