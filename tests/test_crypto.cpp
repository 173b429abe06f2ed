#include "delivery/crypto.h"
#include "delivery/task_list_password.h"

#include <QProcess>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QtTest>

using namespace delivery;

namespace
{

const QByteArray key = QByteArray::fromHex("603deb1015ca71be2b73aef0857d77811f352c073b6108d72d9810a30914dff4");
const QByteArray iv = QByteArray::fromHex("000102030405060708090a0b0c0d0e0f");
const QByteArray list_key_hex = "7e41c09ab2d35f68104ea7c3d96f2b81e05a4dc7381f96b2ac07d4e13b58f62d";

// The openssl command line with `input` on its standard input; empty output when it fails.
QByteArray openssl(const QStringList& args, const QByteArray& input = {})
{
    QProcess p;
    p.start(QStringLiteral("openssl"), args);
    if (!p.waitForStarted(10000))
        return {};
    p.write(input);
    p.closeWriteChannel();
    if (!p.waitForFinished(30000) || p.exitStatus() != QProcess::NormalExit || p.exitCode() != 0)
        return {};
    return p.readAllStandardOutput();
}

QByteArray openssl_aes(const QByteArray& plain, const QByteArray& k, const QByteArray& v)
{
    return openssl({ "enc", "-aes-256-cbc", "-K", k.toHex(), "-iv", v.toHex() }, plain);
}

QByteArray pattern(int size, int seed)
{
    QByteArray data(size, Qt::Uninitialized);
    for (int i = 0; i < size; ++i)
        data[i] = char((i * 31 + seed) & 0xff);
    return data;
}

} // namespace

class test_crypto : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase();
    void frames_match_openssl_data();
    void frames_match_openssl();
    void unseal_rejects_data();
    void unseal_rejects();
    void purpose_keys_match_openssl_data();
    void purpose_keys_match_openssl();
    void md5_of_file_matches_openssl();
    void task_list_passwords_data();
    void task_list_passwords();
};

void test_crypto::initTestCase()
{
    QVERIFY2(!QStandardPaths::findExecutable(QStringLiteral("openssl")).isEmpty(), "the openssl command is needed");
    QCOMPARE(task_list_key().toHex(), list_key_hex);
}

void test_crypto::frames_match_openssl_data()
{
    QTest::addColumn<QByteArray>("plain");
    QTest::addColumn<int>("frame_size");
    QTest::newRow("empty gives the smallest frame, a whole padding block") << QByteArray() << 112;
    QTest::newRow("firmware sized, a partial last block") << pattern(70001, 8) << 70016 + 96;
}

void test_crypto::frames_match_openssl()
{
    QFETCH(QByteArray, plain);
    QFETCH(int, frame_size);
    // Ciphertext, its IV, then 80 bytes of filler: the IV sits 96 bytes before the end.
    const QByteArray frame = seal(plain, key);
    QCOMPARE(frame.size(), frame_size);
    const int n = frame_size - 96;
    QCOMPARE(frame.left(n), openssl_aes(plain, key, frame.mid(n, 16)));
    QCOMPARE(unseal(frame, key), plain);

    // And the other way: a frame built by openssl, with any filler, opens.
    const QByteArray other_iv = QByteArray::fromHex("f0e1d2c3b4a5968778695a4b3c2d1e0f");
    QCOMPARE(unseal(openssl_aes(plain, key, other_iv) + other_iv + QByteArray(80, '\xff'), key), plain);
}

void test_crypto::unseal_rejects_data()
{
    const QByteArray frame = openssl_aes("a device password", key, iv) + iv + pattern(80, 10);
    QCOMPARE(unseal(frame, key), QByteArray("a device password"));
    const QByteArray smallest = openssl_aes(QByteArray(), key, iv) + iv + pattern(80, 11);

    QTest::addColumn<QByteArray>("frame");
    QTest::addColumn<QByteArray>("key");
    QTest::newRow("111 bytes") << smallest.left(111) << key;
    QTest::newRow("wrong key") << frame << QByteArray::fromHex(list_key_hex);
    QTest::newRow("one byte more is no multiple of 16") << frame + "x" << key;
    QTest::newRow("one byte less") << frame.left(frame.size() - 1) << key;
}

void test_crypto::unseal_rejects()
{
    QFETCH(QByteArray, frame);
    QFETCH(QByteArray, key);
    QVERIFY(unseal(frame, key).isEmpty());
}

void test_crypto::purpose_keys_match_openssl_data()
{
    QTest::addColumn<QByteArray>("key");
    QTest::addColumn<QString>("text");
    const QByteArray a = QByteArray::fromHex("0123456789abcdef");
    const QByteArray b = QByteArray::fromHex("A1B2C3D4E5F60718");
    QTest::newRow("serial, h + mid(1,6)") << serial_key(a) << "0123456789abcdef123456";
    QTest::newRow("version, h + mid(2,4), lower-case hex") << version_key(b) << "a1b2c3d4e5f60718b2c3";
    QTest::newRow("query, h + mid(3,2)") << query_key(a) << "0123456789abcdef34";
    QTest::newRow("target, h + mid(1,2) + mid(5,2), lower-case hex") << target_key(b) << "a1b2c3d4e5f607181b3d";
    QTest::newRow("file, session text") << file_key(a, 42) << "0123456789abcdef|42";
}

void test_crypto::purpose_keys_match_openssl()
{
    QFETCH(QByteArray, key);
    QFETCH(QString, text);
    const QByteArray expected = openssl({ "dgst", "-sha256", "-binary" }, text.toLatin1());
    QCOMPARE(expected.size(), 32);
    QCOMPARE(key.toHex(), expected.toHex());
    if (text.contains('|'))
        QCOMPARE(
            session_plain(QByteArray::fromHex(text.section('|', 0, 0).toLatin1()), text.section('|', 1).toULongLong()),
            text);
}

void test_crypto::md5_of_file_matches_openssl()
{
    QTemporaryDir dir;
    const QString path = dir.filePath(QStringLiteral("fw.bin"));
    QFile f(path);
    const QByteArray content = pattern(3 * 1024 * 1024 + 7, 16); // larger than any read buffer
    QVERIFY(f.open(QIODevice::WriteOnly) && f.write(content) == content.size());
    f.close();
    const QByteArray expected = openssl({ "dgst", "-md5", "-binary", path });
    QCOMPARE(expected.size(), 16);
    QCOMPARE(md5_of_file(path).toHex(), expected.toHex());
    QVERIFY(md5_of_file(dir.filePath(QStringLiteral("missing.bin"))).isEmpty());
    QVERIFY(md5_of_file(dir.path()).isEmpty());
}

void test_crypto::task_list_passwords_data()
{
    QTest::addColumn<QByteArray>("plain");
    QTest::addColumn<QString>("password");
    QTest::newRow("ascii") << QByteArray("s3cret!") << QStringLiteral("s3cret!");
    QTest::newRow("cyrillic in utf-8, two blocks")
        << QStringLiteral("пароль-пароль-пароль").toUtf8() << QStringLiteral("пароль-пароль-пароль");
    QTest::newRow("up to the first NUL") << QByteArray("abc\0def", 7) << QStringLiteral("abc");
}

void test_crypto::task_list_passwords()
{
    QFETCH(QByteArray, plain);
    QFETCH(QString, password);
    // What openssl encrypts under the list key opens, up to the first NUL.
    const QByteArray list_iv = QByteArray::fromHex("11111111222222223333333344444444");
    const QByteArray cipher = openssl_aes(plain, QByteArray::fromHex(list_key_hex), list_iv);
    QVERIFY(!cipher.isEmpty());
    QCOMPARE(
        decrypt_task_list_password(QString::fromLatin1((cipher + list_iv + pattern(80, 17)).toBase64())), password);

    // What the export writes opens with openssl.
    const QString column = encrypt_task_list_password(password);
    const QByteArray frame = QByteArray::fromBase64(column.toLatin1(), QByteArray::AbortOnBase64DecodingErrors);
    QVERIFY(frame.size() >= 112);
    QCOMPARE(frame.size() % 16, 0);
    const int n = frame.size() - 96;
    QCOMPARE(QString::fromUtf8(openssl(
                 { "enc", "-d", "-aes-256-cbc", "-K", list_key_hex, "-iv", frame.mid(n, 16).toHex() }, frame.left(n))),
        password);
    QCOMPARE(decrypt_task_list_password(column), password);
}

QTEST_GUILESS_MAIN(test_crypto)
#include "test_crypto.moc"
