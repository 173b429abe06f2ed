#include "tests/support/svcsim_harness.h"

#include <QCryptographicHash>
#include <QElapsedTimer>
#include <QJsonDocument>
#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QRandomGenerator>
#include <QSignalSpy>
#include <QtTest>

#include <memory>
#include <vector>

#include "tools/common/service_identity.h"
#include "tools/common/sealing.h"

namespace
{

constexpr quint64 run_nonce = 9876543210123456789ULL;

QByteArray noise(int size)
{
    QByteArray out((size + 3) & ~3, Qt::Uninitialized);
    QRandomGenerator::global()->fillRange(reinterpret_cast<quint32*>(out.data()), out.size() / 4);
    out.truncate(size);
    return out;
}

QString md5_hex(const QByteArray& data)
{
    return QString::fromLatin1(QCryptographicHash::hash(data, QCryptographicHash::Md5).toHex());
}

QByteArray query(int flags)
{
    return QJsonDocument(QJsonObject { { "version", 3 }, { "request", QJsonObject { { "flags", flags } } } }).toJson();
}

// The client's half of the URLs, from the format alone.
struct url_maker {
    tools::service_identity id;
    QUrl base;
    quint64 nonce = run_nonce;

    static QByteArray piece(const QByteArray& plain, const QByteArray& key) { return tools::seal(plain, key).toHex(); }
    QByteArray session() const { return piece(id.session_plain(nonce).toLatin1(), id.client_key()); }
    QByteArray serial(const QByteArray& s) const { return piece(s, id.serial_key()); }
    QUrl at(const QByteArray& path) const { return base.resolved(QUrl(QString::fromLatin1(path))); }
    QUrl update(const QByteArray& s, const QByteArray& q) const
    {
        return at("update/" + session() + '/' + serial(s) + '/' + piece(q, id.query_key()) + '/');
    }
    QUrl file(const QByteArray& s, const QString& v) const
    {
        return at("file/" + session() + '/' + serial(s) + '/' + piece(v.toLatin1(), id.version_key()));
    }
    QUrl confirm(const QByteArray& s) const { return at("confirm/" + session() + '/' + serial(s) + '/'); }
};

struct http_result {
    QNetworkReply::NetworkError error = QNetworkReply::NoError;
    int status = 0;
    QByteArray body;
    qint64 elapsed_ms = 0;
};

http_result get(QNetworkAccessManager& nam, const QUrl& url, int timeout_ms = 15000)
{
    QElapsedTimer timer;
    timer.start();
    std::unique_ptr<QNetworkReply> reply(nam.get(QNetworkRequest(url)));
    QSignalSpy done(reply.get(), &QNetworkReply::finished);
    if (!reply->isFinished())
        done.wait(timeout_ms);
    http_result r;
    r.elapsed_ms = timer.elapsed();
    r.error = reply->error();
    r.status = reply->attribute(QNetworkRequest::HttpStatusCodeAttribute).toInt();
    r.body = reply->readAll();
    return r;
}

// Room for a plain and a sealed copy of a 64 MiB file, not for a copy per client.
// AddressSanitizer keeps up to 256 MiB of freed memory resident.
#if defined(ORVANE_SANITIZED)
constexpr qint64 peak_limit_kib = (200 + 256) * 1024;
#else
constexpr qint64 peak_limit_kib = 200 * 1024;
#endif

qint64 peak_memory_kib(qint64 pid)
{
    QFile status(QStringLiteral("/proc/%1/status").arg(pid));
    const QByteArray text = status.open(QIODevice::ReadOnly) ? status.readAll() : QByteArray();
    const int at = text.indexOf("VmHWM:");
    return at < 0 ? -1 : text.mid(at + 6, text.indexOf('\n', at) - at - 6).trimmed().split(' ').first().toLongLong();
}

} // namespace

class test_svcsim : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void cleanup();
    void cleanupTestCase();
    void known_answers_data();
    void known_answers();
    void sealed_frames();
    void answers_and_records_data();
    void answers_and_records();
    void file_is_sealed_once_per_nonce();
    void faults_data();
    void faults();
    void large_file_is_streamed_and_sealed_once();

private:
    // A sealed answer as "sealed:<opened text>", anything else as "plain:<body>" or "drop".
    QByteArray answer_of(const QString& kind, const http_result& r) const;

    svcsim_harness m_service;
    url_maker m_urls;
    QNetworkAccessManager m_nam;
    QHash<QString, QByteArray> m_files;
};

void test_svcsim::initTestCase()
{
    for (const auto& [name, size] :
        std::vector<std::pair<QString, int>> { { "a.bin", 4103 }, { "b.bin", 500 }, { "large.bin", 1 << 20 } }) {
        m_files.insert(name, noise(size));
        QVERIFY2(!m_service.add_file(name, m_files.value(name)).isEmpty(), qPrintable(m_service.error()));
    }
    const auto verdict = [](const char* v) { return QJsonObject { { "verdict", v } }; };
    const QJsonArray offers { QJsonObject { { "file", "a.bin" }, { "type", 1 }, { "sdk_type", "legacy" } },
        QJsonObject { { "file", "b.bin" }, { "type", 2 }, { "sdk_type", QJsonValue() } } };
    const QJsonObject fleet { { "PEND-1", QJsonObject { { "verdict", "pending" }, { "offers", offers } } },
        { "UPD-1", "updated" }, { "NOB-1", verdict("no_binding") }, { "DEN-1", verdict("denied") },
        { "ODD-1", verdict("maintenance") }, { "MINE-1", QJsonObject { { "error", 11 } } } };
    QVERIFY2(m_service.start({ { "default", QJsonObject { { "error", 9 } } }, { "fleet", fleet },
                 { "files", QJsonArray { "large.bin" } } }),
        qPrintable(m_service.error()));
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
    // The end of standard input ends it with 0; under the sanitizers also without leaks.
    QVERIFY2(m_service.stop(), qPrintable(m_service.log()));
}

QByteArray test_svcsim::answer_of(const QString& kind, const http_result& r) const
{
    if (r.error == QNetworkReply::RemoteHostClosedError)
        return "drop";
    if (r.error != QNetworkReply::NoError || r.status != 200)
        return QStringLiteral("error %1, status %2").arg(r.error).arg(r.status).toLatin1();
    const tools::service_identity& id = m_urls.id;
    QByteArray opened;
    const bool sealed = kind == "file"
        ? tools::unseal(r.body, id.file_key(m_urls.nonce), &opened)
        : tools::unseal(QByteArray::fromHex(r.body), kind == "update" ? id.version_key() : id.serial_key(), &opened);
    return sealed ? "sealed:" + opened : "plain:" + r.body;
}

void test_svcsim::known_answers_data()
{
    QTest::addColumn<QByteArray>("got");
    QTest::addColumn<QByteArray>("expected");
    // Keys: sha256sum over the texts they are made of.
    const tools::service_identity id(QByteArray::fromHex("0011223344556677"), QByteArray(32, 'k'));
    const auto key = [](const char* name, const QByteArray& got, const char* digest) {
        QTest::newRow(name) << got.toHex() << QByteArray(digest);
    };
    key("serial key hashes h + h.mid(1,6)", id.serial_key(),
        "6f698b00664efc6c14ce6e4e3f3d6894f073b923d55d3eaba3a1471364e1afce");
    key("version key hashes h + h.mid(2,4)", id.version_key(),
        "b53f3a4c402d1f385153e55bfc84bdd3d7dfb05b5ced2f44757b772558ae1cd4");
    key("query key hashes h + h.mid(3,2)", id.query_key(),
        "96742fcdde660cb693bf1e811510e99bde93587a3d1291a8fee9a3138d5288fb");
    key("file key hashes the session text", id.file_key(42),
        "601f739e39b97cec59c365c6a3569d973ff3427a820aeeaf84820db739aba97a");
    key("file key of the largest nonce in decimal", id.file_key(18446744073709551615ULL),
        "68debe54d3f9cd9a124fb6b9665228bbcbdc8a647db9f8d28e08143393ab66be");
    // Frames: `openssl enc -aes-256-cbc` with key 00..1f and IV a0..af, then filler.
    const auto frame = [](const char* name, const char* cipher, const QByteArray& plain) {
        const QByteArray iv = QByteArray::fromHex("a0a1a2a3a4a5a6a7a8a9aaabacadaeaf");
        const QByteArray key = QByteArray::fromHex("000102030405060708090a0b0c0d0e0f101112131415161718191a1b1c1d1e1f");
        QByteArray opened;
        const bool ok = tools::unseal(QByteArray::fromHex(cipher) + iv + noise(80), key, &opened);
        QTest::newRow(name) << (ok ? opened : QByteArray("doesn't open")) << plain;
    };
    frame("openssl frame of two bytes", "facf3ba360cf5779d2f1af27bf7f0c94", "OK");
    frame("openssl frame of nothing, one block of padding", "600d07a3b9b2c4e4082153d6d1707aa6", "");
    frame("openssl frame of a whole block, a second one of padding",
        "ce1cf3a4e3b87b139ba3cff10ace35b606d96b2e184bf22b73d31ba4be14d8c9", "0123456789abcdef");
}

void test_svcsim::known_answers()
{
    QFETCH(QByteArray, got);
    QFETCH(QByteArray, expected);
    QCOMPARE(got, expected);
}

void test_svcsim::sealed_frames()
{
    const QByteArray key = tools::sha256("key");
    QByteArray opened;
    // Padding: an empty text makes the smallest frame, sixteen bytes take a block of it.
    QVERIFY(tools::unseal(tools::seal({}, key), key, &opened) && opened.isEmpty());
    QCOMPARE(tools::seal({}, key).size(), 112);
    QCOMPARE(tools::seal(QByteArray(16, 'x'), key).size(), 128);
    // The IV and filler are fresh every time; the filler is never read.
    QByteArray frame = tools::seal("serial", key);
    QVERIFY(tools::seal("serial", key).right(96) != frame.right(96));
    frame.replace(frame.size() - 80, 80, QByteArray(80, 'Z'));
    QVERIFY(tools::unseal(frame, key, &opened) && opened == "serial");
    QVERIFY(!tools::unseal(frame, tools::sha256("other"), &opened) || opened != "serial");
    QVERIFY(!tools::unseal(frame.left(111), key, &opened));
    QVERIFY(!tools::unseal(frame + '\0', key, &opened));
}

void test_svcsim::answers_and_records_data()
{
    QTest::addColumn<QUrl>("url");
    QTest::addColumn<QJsonValue>("answer"); // the opened update answer, or the plain text
    QTest::addColumn<QJsonObject>("record"); // members the request's record must have
    const auto add = [](const char* name, const QUrl& url, const QJsonValue& answer, QJsonObject record = {}) {
        record.insert("answer", answer.isString() ? answer : "ok");
        QTest::newRow(name) << url << answer << record;
    };
    const auto update = [&](const char* name, const char* serial, int flags, const QJsonValue& answer, bool force) {
        const QByteArray q = flags < 0 ? QByteArray() : query(flags);
        add(name, m_urls.update(serial, q), answer,
            { { "serial", serial }, { "force", force }, { "nonce", QString::number(run_nonce) },
                { "query", flags < 0 ? QJsonValue() : QJsonDocument::fromJson(q).object() } });
    };
    const auto offer = [this](const char* file, int type, const QJsonValue& sdk) {
        return QJsonObject { { "firmware", md5_hex(m_files.value(file)) }, { "type", type }, { "sdk_type", sdk } };
    };
    const auto none = [](const char* v) { return QJsonObject { { "resp", v }, { "updates", QJsonArray() } }; };
    update("pending keeps its offers in order, null sdk_type included", "PEND-1", 0,
        QJsonObject { { "resp", "pending" },
            { "updates", QJsonArray { offer("a.bin", 1, "legacy"), offer("b.bin", 2, QJsonValue()) } } },
        false);
    update("updated, flags 1 is forced", "UPD-1", 1, none("updated"), true);
    update("no_binding, only bit 1 of the flags counts", "NOB-1", 2, none("no_binding"), false);
    update("denied, flags 3 is forced", "DEN-1", 3, none("denied"), true);
    update("an unknown verdict passes through, an empty query is legal", "ODD-1", -1, none("maintenance"), false);
    update("a serial not in the fleet gets the default", "STRANGER", 0, "E:9", false);
    update("an error entry answers plainly", "MINE-1", 0, "E:11", false);

    const url_maker& u = m_urls;
    const tools::service_identity& id = u.id;
    const QByteArray query_piece = url_maker::piece(query(0), id.query_key());
    const auto with = [&](const QByteArray& session, const QByteArray& serial) {
        return u.at("update/" + session + '/' + serial + '/' + query_piece + '/');
    };
    const auto session = [&](const QString& text, const QByteArray& key) {
        return with(url_maker::piece(text.toLatin1(), key), u.serial("PEND-1"));
    };
    const tools::service_identity stranger(QByteArray::fromHex("8877665544332211"), id.client_key());
    add("session isn't hexadecimal", with("zz" + u.session().mid(2), u.serial("PEND-1")), "E:2");
    add("session under another key", session(id.session_plain(run_nonce), tools::sha256("x")), "E:2");
    add("session of another client", session(stranger.session_plain(run_nonce), id.client_key()), "E:6");
    add("session with nonce zero", session(id.session_plain(0), id.client_key()), "E:2");
    add("serial under the version key", with(u.session(), url_maker::piece("PEND-1", id.version_key())), "E:1");
    add("query of another format version", u.update("PEND-1", QJsonDocument(QJsonObject { { "version", 2 } }).toJson()),
        "E:1");
    add("file of an unknown firmware", u.file("PEND-1", md5_hex("nothing")), "E:10");
    add("confirm with a piece too many",
        u.at("confirm/" + u.session() + '/' + u.serial("PEND-1") + '/' + u.serial("PEND-1") + '/'), "E:1");
}

void test_svcsim::answers_and_records()
{
    QFETCH(QUrl, url);
    QFETCH(QJsonValue, answer);
    QFETCH(QJsonObject, record);
    const http_result r = get(m_nam, url);
    const QByteArray got = answer_of("update", r);
    if (answer.isString()) {
        QCOMPARE(got, "plain:" + answer.toString().toLatin1());
    } else {
        QVERIFY2(got.startsWith("sealed:") && r.body.size() >= 224, got.constData());
        QCOMPARE(QJsonDocument::fromJson(got.mid(7)).object(), answer.toObject());
    }
    const QJsonArray records = m_service.requests();
    QCOMPARE(records.size(), 1);
    for (auto it = record.begin(); it != record.end(); ++it)
        QVERIFY2(records.first().toObject().value(it.key()) == it.value(), qPrintable(it.key()));
}

void test_svcsim::file_is_sealed_once_per_nonce()
{
    const QByteArray data = m_files.value("large.bin");
    const QString firmware = md5_hex(data);
    const int seals = m_service.stats().value("seals").toInt();
    const http_result first = get(m_nam, m_urls.file("NOB-1", firmware));
    // Raw, not hexadecimal.
    QCOMPARE(answer_of("file", first), "sealed:" + data);
    QCOMPARE(get(m_nam, m_urls.file("PEND-1", firmware)).body, first.body);
    url_maker other_run = m_urls;
    other_run.nonce = 17;
    const http_result other = get(m_nam, other_run.file("NOB-1", firmware));
    QVERIFY(other.body != first.body);
    QCOMPARE(tools::unseal(other.body, m_urls.id.file_key(17)), data);
    QCOMPARE(m_service.stats().value("seals").toInt(), seals + 2);
    const QJsonArray records = m_service.requests("file");
    QCOMPARE(records.size(), 3);
    QCOMPARE(records.at(0).toObject().value("version").toString(), firmware);
    QCOMPARE(records.at(2).toObject().value("nonce").toString(), QStringLiteral("17"));
}

void test_svcsim::faults_data()
{
    QTest::addColumn<QString>("kind");
    QTest::addColumn<QJsonObject>("fault");
    QTest::addColumn<QByteArray>("first"); // "ok": the proper answer
    QTest::addColumn<QByteArray>("second");
    QTest::addColumn<QString>("recorded");
    QTest::addColumn<int>("min_ms");
    QTest::addColumn<bool>("other_serial"); // the fault is set for another serial
    const auto add = [](const QString& kind, const char* what, const QJsonObject& fault, const QByteArray& first,
                         const QString& recorded, int min_ms = 0, bool other = false, const QByteArray& second = {}) {
        QTest::newRow(qPrintable(kind + ' ' + what))
            << kind << fault << first << (second.isEmpty() ? first : second) << recorded << min_ms << other;
    };
    for (const QString kind : { "update", "file", "confirm" }) {
        add(kind, "error stays until cleared", { { "error", 7 } }, "plain:E:7", "E:7");
        add(kind, "garbage body", { { "garbage", true } }, "plain:garbage", "garbage");
        add(kind, "drop closes without an answer", { { "drop", true } }, "drop", "drop");
        add(kind, "sealed text under the proper key", { { "sealed", "{broken" } }, "sealed:{broken", "sealed");
    }
    add("confirm", "not_ok is sealed but not OK", { { "not_ok", true } }, "sealed:FAIL", "sealed");
    add("file", "delay slows the proper answer", { { "delay_ms", 300 } }, "ok", "ok", 300);
    add("confirm", "fault of one serial spares another", { { "error", 4 } }, "ok", "ok", 0, true);
    add("update", "times wears off", { { "error", 5 }, { "times", 1 } }, "plain:E:5", "E:5", 0, false, "ok");
}

void test_svcsim::faults()
{
    QFETCH(QString, kind);
    QFETCH(QJsonObject, fault);
    QFETCH(QByteArray, first);
    QFETCH(QByteArray, second);
    QFETCH(QString, recorded);
    QFETCH(int, min_ms);
    QFETCH(bool, other_serial);
    const QString firmware = md5_hex(m_files.value("a.bin"));
    const QUrl url = kind == "update" ? m_urls.update("UPD-1", query(0))
        : kind == "file"              ? m_urls.file("UPD-1", firmware)
                                      : m_urls.confirm("UPD-1");
    const QByteArray ok = kind == "update" ? QByteArray("sealed:{\"resp\":\"updated\",\"updates\":[]}")
        : kind == "file"                   ? "sealed:" + m_files.value("a.bin")
                                           : QByteArray("sealed:OK");
    QVERIFY2(m_service.set_fault(kind, fault, other_serial ? "DEN-1" : ""), qPrintable(m_service.error()));
    const http_result one = get(m_nam, url);
    QCOMPARE(answer_of(kind, one), first == "ok" ? ok : first);
    QVERIFY2(one.elapsed_ms >= min_ms, qPrintable(QString::number(one.elapsed_ms)));
    QCOMPARE(answer_of(kind, get(m_nam, url)), second == "ok" ? ok : second);

    const QJsonObject record = m_service.requests(kind, "UPD-1").first().toObject();
    QCOMPARE(record.value("answer").toString(), recorded);
    QCOMPARE(record.value("fault").toBool(), recorded != "ok");
    QCOMPARE(record.value("delay_ms").toInt(), min_ms);
    QVERIFY(m_service.clear_faults());
    QCOMPARE(answer_of(kind, get(m_nam, url)), ok);
}

void test_svcsim::large_file_is_streamed_and_sealed_once()
{
    constexpr int size = 64 << 20;
    svcsim_harness service;
    QByteArray data = noise(size);
    const QString firmware = md5_hex(data);
    QVERIFY(!service.add_file("big.bin", data).isEmpty());
    data.clear();
    QVERIFY2(service.start(QJsonObject { { "files", QJsonArray { "big.bin" } } }, 30000), qPrintable(service.error()));
    const url_maker urls { tools::service_identity(service.client_id(), service.client_key()), service.base_url() };

    // Clients that ask and don't read yet: their answers wait in the service.
    std::vector<std::unique_ptr<QTcpSocket>> slow(3);
    for (auto& socket : slow) {
        socket = std::make_unique<QTcpSocket>();
        socket->connectToHost(service.address(), service.port());
        QVERIFY(socket->waitForConnected(3000));
        socket->write("GET " + urls.file("BIG", firmware).path(QUrl::FullyEncoded).toLatin1()
            + " HTTP/1.1\r\nHost: 127.0.0.1\r\n\r\n");
        QVERIFY(socket->waitForBytesWritten(3000));
    }
    QVERIFY(service.wait_for_requests(3, "file", 30000));

    QNetworkAccessManager nam;
    const http_result r = get(nam, urls.file("BIG", firmware), 120000);
    QCOMPARE(r.error, QNetworkReply::NoError);
    QCOMPARE(r.body.size(), size + 16 + 96);
    QCOMPARE(md5_hex(tools::unseal(r.body, urls.id.file_key(run_nonce))), firmware);
    const qint64 peak = peak_memory_kib(service.process().processId());
    QVERIFY2(peak > 0 && peak < peak_limit_kib, qPrintable(QStringLiteral("peak %1 KiB").arg(peak)));

    // Each waiting client gets the same frame.
    for (auto& socket : slow) {
        QByteArray got;
        const auto body_size
            = [&got] { return got.indexOf("\r\n\r\n") < 0 ? -1 : got.size() - got.indexOf("\r\n\r\n") - 4; };
        QDeadlineTimer deadline(60000);
        while (body_size() < r.body.size() && !deadline.hasExpired() && socket->waitForReadyRead(3000))
            got += socket->readAll();
        QVERIFY(got.startsWith("HTTP/1.1 200"));
        QCOMPARE(body_size(), r.body.size());
        QVERIFY(got.endsWith(r.body));
    }
    QCOMPARE(service.stats().value("seals").toInt(), 1);
    QVERIFY(service.stop());
}

QTEST_GUILESS_MAIN(test_svcsim)
#include "test_svcsim.moc"
