#include "tests/support/svcsim_harness.h"

#include <QCryptographicHash>
#include <QJsonDocument>
#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QRandomGenerator>
#include <QSignalSpy>
#include <QtTest>

#include <memory>

#include "tools/common/service_identity.h"
#include "tools/common/sealing.h"

namespace
{

constexpr quint64 run_nonce = 9876543210123456789ULL;

QByteArray json(const QJsonObject& o)
{
    return QJsonDocument(o).toJson();
}

QByteArray query(int flags)
{
    return json({ { "version", 3 }, { "request", QJsonObject { { "flags", flags } } } });
}

} // namespace

class test_svcsim : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void cleanup();
    void cleanupTestCase();
    void known_answers();
    void answers_and_records_data();
    void answers_and_records();

private:
    // A sealed answer as "sealed:<opened text>", anything else as "plain:<body>".
    QByteArray fetch(const QString& kind, const QUrl& url);
    // The client's half of the URLs, from the format alone.
    QUrl url_of(const QString& kind, const QByteArray& serial, int flags = 0) const;

    svcsim_harness m_service;
    tools::service_identity m_id;
    QNetworkAccessManager m_nam;
    QByteArray m_image;
    QString m_firmware; // the image's MD5
    QByteArray m_other_image; // a second file the service knows, for the swap fault
};

void test_svcsim::initTestCase()
{
    for (int i = 0; i < 4103; ++i)
        m_image += char(QRandomGenerator::global()->generate());
    m_firmware = QCryptographicHash::hash(m_image, QCryptographicHash::Md5).toHex();
    QVERIFY2(!m_service.add_file("a.bin", m_image).isEmpty(), qPrintable(m_service.error()));
    m_other_image = QByteArray(5000, 'o');
    QVERIFY2(!m_service.add_file("b.bin", m_other_image).isEmpty(), qPrintable(m_service.error()));
    const QJsonArray offers { QJsonObject { { "file", "a.bin" }, { "type", 2 }, { "sdk_type", QJsonValue() } } };
    const QJsonObject fleet { { "PEND-1", QJsonObject { { "verdict", "pending" }, { "offers", offers } } },
        { "NOB-1", QJsonObject { { "verdict", "no_binding" } } } };
    QVERIFY2(
        m_service.start({ { "fleet", fleet }, { "files", QJsonArray { "b.bin" } } }), qPrintable(m_service.error()));
    m_id = tools::service_identity(m_service.client_id(), m_service.client_key());
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

QByteArray test_svcsim::fetch(const QString& kind, const QUrl& url)
{
    std::unique_ptr<QNetworkReply> reply(m_nam.get(QNetworkRequest(url)));
    QSignalSpy done(reply.get(), &QNetworkReply::finished);
    if (!reply->isFinished())
        done.wait(15000);
    const QByteArray body = reply->readAll();
    QByteArray opened;
    const bool sealed = kind == "file"
        ? tools::unseal(body, m_id.file_key(run_nonce), &opened)
        : tools::unseal(QByteArray::fromHex(body), kind == "update" ? m_id.version_key() : m_id.serial_key(), &opened);
    return sealed ? "sealed:" + opened : "plain:" + body;
}

QUrl test_svcsim::url_of(const QString& kind, const QByteArray& serial, int flags) const
{
    const auto piece = [](const QByteArray& plain, const QByteArray& key) { return tools::seal(plain, key).toHex(); };
    QByteArray path = kind.toLatin1() + '/' + piece(m_id.session_plain(run_nonce).toLatin1(), m_id.client_key()) + '/'
        + piece(serial, m_id.serial_key()) + '/';
    if (kind == "update")
        path += piece(query(flags), m_id.query_key()) + '/';
    else if (kind == "file")
        path += piece(m_firmware.toLatin1(), m_id.version_key());
    return m_service.base_url().resolved(QUrl(QString::fromLatin1(path)));
}

void test_svcsim::known_answers()
{
    // Keys: sha256sum over the texts they are made of (h, the id in hex, + h.mid(1,6), (2,4), (3,2)).
    const tools::service_identity id(QByteArray::fromHex("0011223344556677"), QByteArray(32, 'k'));
    QCOMPARE(id.serial_key().toHex(), "6f698b00664efc6c14ce6e4e3f3d6894f073b923d55d3eaba3a1471364e1afce");
    QCOMPARE(id.version_key().toHex(), "b53f3a4c402d1f385153e55bfc84bdd3d7dfb05b5ced2f44757b772558ae1cd4");
    QCOMPARE(id.query_key().toHex(), "96742fcdde660cb693bf1e811510e99bde93587a3d1291a8fee9a3138d5288fb");
    QCOMPARE(id.file_key(42).toHex(), "601f739e39b97cec59c365c6a3569d973ff3427a820aeeaf84820db739aba97a");
    // Frames: `openssl enc -aes-256-cbc` with key 00..1f and IV a0..af, then filler; 16 bytes take a block of padding.
    const QByteArray key = QByteArray::fromHex("000102030405060708090a0b0c0d0e0f101112131415161718191a1b1c1d1e1f");
    const QByteArray tail = QByteArray::fromHex("a0a1a2a3a4a5a6a7a8a9aaabacadaeaf") + QByteArray(80, 'Z');
    QCOMPARE(tools::unseal(QByteArray::fromHex("facf3ba360cf5779d2f1af27bf7f0c94") + tail, key), "OK");
    const QByteArray two_blocks = "ce1cf3a4e3b87b139ba3cff10ace35b606d96b2e184bf22b73d31ba4be14d8c9";
    QCOMPARE(tools::unseal(QByteArray::fromHex(two_blocks) + tail, key), "0123456789abcdef");
}

void test_svcsim::answers_and_records_data()
{
    QTest::addColumn<QString>("kind");
    QTest::addColumn<QByteArray>("serial");
    QTest::addColumn<int>("flags"); // of an update's query
    QTest::addColumn<QJsonObject>("fault");
    QTest::addColumn<QByteArray>("answer"); // a sealed update's compared as JSON
    QTest::addColumn<QJsonObject>("record"); // members the request's record must have
    const auto add = [](const char* name, const char* kind, const char* serial, int flags, const QJsonObject& fault,
                         const QByteArray& answer, const QJsonObject& record) {
        QTest::newRow(name) << kind << QByteArray(serial) << flags << fault << answer << record;
    };
    const QJsonObject offer { { "firmware", m_firmware }, { "type", 2 }, { "sdk_type", QJsonValue() } };
    add("pending offers, flags 1 is forced", "update", "PEND-1", 1, {},
        "sealed:" + json({ { "resp", "pending" }, { "updates", QJsonArray { offer } } }),
        { { "serial", "PEND-1" }, { "force", true }, { "nonce", QString::number(run_nonce) },
            { "query", QJsonDocument::fromJson(query(1)).object() }, { "answer", "ok" } });
    add("only bit 1 of the flags forces", "update", "NOB-1", 2, {},
        "sealed:" + json({ { "resp", "no_binding" }, { "updates", QJsonArray() } }), { { "force", false } });
    add("file by the MD5 of its image, raw", "file", "NOB-1", 0, {}, "sealed:" + m_image,
        { { "serial", "NOB-1" }, { "version", m_firmware }, { "fault", false } });
    add("update fault: E:7", "update", "NOB-1", 0, { { "error", 7 } }, "plain:E:7", { { "answer", "E:7" } });
    const QString other = QCryptographicHash::hash(m_other_image, QCryptographicHash::Md5).toHex();
    add("file fault: another firmware served, sealed as asked", "file", "NOB-1", 0, { { "serve", other } },
        "sealed:" + m_other_image, { { "answer", "served " + other }, { "version", m_firmware } });
    add("file fault: a firmware the service hasn't is E:10", "file", "NOB-1", 0, { { "serve", QString(32, 'f') } },
        "plain:E:10", { { "answer", "E:10" } });
}

void test_svcsim::answers_and_records()
{
    QFETCH(QString, kind);
    QFETCH(QByteArray, serial);
    QFETCH(int, flags);
    QFETCH(QJsonObject, fault);
    QFETCH(QByteArray, answer);
    QFETCH(QJsonObject, record);
    const QUrl url = url_of(kind, serial, flags);
    QVERIFY2(m_service.set_fault(kind, fault), qPrintable(m_service.error()));
    const QByteArray got = fetch(kind, url);
    if (kind == "update" && answer.startsWith("sealed:"))
        QCOMPARE(QJsonDocument::fromJson(got.mid(7)).object(), QJsonDocument::fromJson(answer.mid(7)).object());
    else
        QCOMPARE(got, answer);
    const QJsonObject recorded = m_service.requests(kind, serial).at(0).toObject();
    for (auto it = record.begin(); it != record.end(); ++it)
        QVERIFY2(recorded.value(it.key()) == it.value(), qPrintable(it.key()));
    // The fault was all that changed the answer.
    QVERIFY(m_service.clear_faults());
    QVERIFY(fetch(kind, url).startsWith("sealed:"));
}

QTEST_GUILESS_MAIN(test_svcsim)
#include "test_svcsim.moc"
