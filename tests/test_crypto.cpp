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

QByteArray openssl_aes(const QByteArray& plain, const QByteArray& k, const QByteArray& v, bool pad = true)
{
    QStringList args { "enc", "-aes-256-cbc", "-K", k.toHex(), "-iv", v.toHex() };
    return openssl(pad ? args : args << "-nopad", plain);
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
    void aes_matches_openssl_data();
    void aes_matches_openssl();
    void aes_status_codes_data();
    void aes_status_codes();
    void frames_match_openssl_data();
    void frames_match_openssl();
    void unseal_rejects_data();
    void unseal_rejects();
    void two_seals_differ();
    void purpose_keys_match_openssl_data();
    void purpose_keys_match_openssl();
    void md5_of_file_matches_openssl_data();
    void md5_of_file_matches_openssl();
    void split_target_record_mapping();
    void task_list_passwords_data();
    void task_list_passwords();
};

void test_crypto::initTestCase()
{
    QVERIFY2(!QStandardPaths::findExecutable(QStringLiteral("openssl")).isEmpty(), "the openssl command is needed");
    QCOMPARE(task_list_key().toHex(), list_key_hex);
}

void test_crypto::aes_matches_openssl_data()
{
    QTest::addColumn<QByteArray>("plain");
    QTest::newRow("empty gets a whole padding block") << QByteArray();
    QTest::newRow("15 bytes pad by one") << pattern(15, 1);
    QTest::newRow("16 bytes add a padding block") << pattern(16, 2);
    QTest::newRow("binary with zeros, 1000 bytes") << pattern(1000, 0);
}

void test_crypto::aes_matches_openssl()
{
    QFETCH(QByteArray, plain);
    const QByteArray expected = openssl_aes(plain, key, iv);
    QCOMPARE(expected.size(), plain.size() + 16 - plain.size() % 16);
    const crypt_result encrypted = aes_encrypt(plain, key, iv);
    QCOMPARE(encrypted.status, int32_t(crypt_result::ok));
    QCOMPARE(encrypted.data, expected);
    const crypt_result decrypted = aes_decrypt(expected, key, iv);
    QCOMPARE(decrypted.status, int32_t(crypt_result::ok));
    QCOMPARE(decrypted.data, plain);
}

void test_crypto::aes_status_codes_data()
{
    // A block of zeros encrypted without padding decrypts to a last byte of 0: never valid padding.
    const QByteArray zero_padding = openssl_aes(QByteArray(16, '\0'), key, iv, false);
    const QByteArray good = openssl_aes("hello", key, iv);
    QVERIFY(!zero_padding.isEmpty() && !good.isEmpty());

    QTest::addColumn<QByteArray>("cipher");
    QTest::addColumn<QByteArray>("key");
    QTest::addColumn<QByteArray>("iv");
    QTest::addColumn<int>("status");
    QTest::newRow("bad padding ends in final") << zero_padding << key << iv << 5;
    QTest::newRow("cut ciphertext ends in final") << good.left(15) << key << iv << 5;
    QTest::newRow("short key fails init") << good << key.left(16) << iv << 3;
}

void test_crypto::aes_status_codes()
{
    QFETCH(QByteArray, cipher);
    QFETCH(QByteArray, key);
    QFETCH(QByteArray, iv);
    const crypt_result r = aes_decrypt(cipher, key, iv);
    QTEST(int(r.status), "status");
    QVERIFY(r.data.isEmpty());
}

void test_crypto::frames_match_openssl_data()
{
    QTest::addColumn<QByteArray>("plain");
    QTest::addColumn<int>("frame_size");
    QTest::newRow("empty gives the smallest frame") << QByteArray() << 112;
    QTest::newRow("16 bytes") << pattern(16, 5) << 128;
    QTest::newRow("firmware sized, 70000 bytes") << pattern(70000, 8) << 70016 + 96;
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
    QTest::newRow("fifteen bytes more") << frame + pattern(15, 12) << key;
    QTest::newRow("one byte less") << frame.left(frame.size() - 1) << key;
}

void test_crypto::unseal_rejects()
{
    QFETCH(QByteArray, frame);
    QFETCH(QByteArray, key);
    QVERIFY(unseal(frame, key).isEmpty());
}

void test_crypto::two_seals_differ()
{
    const QByteArray a = seal(pattern(40, 13), key);
    const QByteArray b = seal(pattern(40, 13), key);
    QCOMPARE(a.size(), 144);
    QCOMPARE(b.size(), 144);
    // Random frames agree in about one position of 256; many equal bytes mean a reused IV or filler.
    int same = 0;
    for (int i = 0; i < a.size(); ++i)
        same += a[i] == b[i] ? 1 : 0;
    QVERIFY2(same < 16, qPrintable(QString::number(same)));
    QVERIFY(random_blocks(5).ok && random_blocks(5).data.size() == 80);
    QVERIFY(!random_blocks(quint64(1) << 62).ok);
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
    QTest::newRow("file, largest nonce") << file_key(b, 18446744073709551615ULL)
                                         << "a1b2c3d4e5f60718|18446744073709551615";
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

void test_crypto::md5_of_file_matches_openssl_data()
{
    QTest::addColumn<QByteArray>("content");
    QTest::newRow("empty file") << QByteArray();
    QTest::newRow("larger than any read buffer") << pattern(3 * 1024 * 1024 + 7, 16);
}

void test_crypto::md5_of_file_matches_openssl()
{
    QFETCH(QByteArray, content);
    QTemporaryDir dir;
    const QString path = dir.filePath(QStringLiteral("fw.bin"));
    QFile f(path);
    QVERIFY(f.open(QIODevice::WriteOnly) && f.write(content) == content.size());
    f.close();
    const QByteArray expected = openssl({ "dgst", "-md5", "-binary", path });
    QCOMPARE(expected.size(), 16);
    QCOMPARE(md5_of_file(path).toHex(), expected.toHex());
    QVERIFY(md5_of_file(dir.filePath(QStringLiteral("missing.bin"))).isEmpty());
    QVERIFY(md5_of_file(dir.path()).isEmpty());
}

void test_crypto::split_target_record_mapping()
{
    QByteArray counting;
    for (int i = 0; i < 48; ++i)
        counting.append(char(i));
    // Ciphertext blocks at 3k and 3k+1, the IV backwards from the end.
    const target_parts parts = split_target_record(counting);
    QCOMPARE(parts.cipher.toHex(), QByteArray("000306090c0f1215181b1e2124272a2d0104070a0d101316191c1f2225282b2e"));
    QCOMPARE(parts.iv.toHex(), QByteArray("2f2c292623201d1a1714110e0b080502"));
    QVERIFY(split_target_record(counting.left(47)).cipher.isEmpty());
    QVERIFY(split_target_record(counting + "x").iv.isEmpty());
}

void test_crypto::task_list_passwords_data()
{
    QTest::addColumn<QByteArray>("plain");
    QTest::addColumn<QString>("password");
    QTest::newRow("ascii") << QByteArray("s3cret!") << QStringLiteral("s3cret!");
    QTest::newRow("empty") << QByteArray() << QString();
    QTest::newRow("cyrillic in utf-8, two blocks")
        << QStringLiteral("пароль-пароль-пароль").toUtf8() << QStringLiteral("пароль-пароль-пароль");
    QTest::newRow("up to the first NUL") << QByteArray("abc\0def", 7) << QStringLiteral("abc");
    QTest::newRow("NUL first") << QByteArray("\0xyz", 4) << QString();
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
