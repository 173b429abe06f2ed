#include "delivery/crypto.h"
#include "delivery/task_list_password.h"

#include <QProcess>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QtTest>

using namespace delivery;

namespace {

const QByteArray key_hex = "603deb1015ca71be2b73aef0857d77811f352c073b6108d72d9810a30914dff4";
const QByteArray iv_hex = "000102030405060708090a0b0c0d0e0f";
const QByteArray list_key_hex = "7e41c09ab2d35f68104ea7c3d96f2b81e05a4dc7381f96b2ac07d4e13b58f62d";

// Runs the openssl command line with input on its standard input; false when it fails.
bool openssl(const QStringList& args, const QByteArray& input, QByteArray* output)
{
    QProcess p;
    p.start(QStringLiteral("openssl"), args);
    if (!p.waitForStarted(10000))
        return false;
    p.write(input);
    p.closeWriteChannel();
    if (!p.waitForFinished(30000) || p.exitStatus() != QProcess::NormalExit || p.exitCode() != 0)
        return false;
    *output = p.readAllStandardOutput();
    return true;
}

bool openssl_encrypt(
    const QByteArray& plain, const QByteArray& key, const QByteArray& iv, QByteArray* out, bool pad = true)
{
    QStringList args { "enc", "-aes-256-cbc", "-K", key.toHex(), "-iv", iv.toHex() };
    if (!pad)
        args << "-nopad";
    return openssl(args, plain, out);
}

QByteArray pattern(int size, int seed)
{
    QByteArray data(size, Qt::Uninitialized);
    for (int i = 0; i < size; ++i)
        data[i] = char((i * 31 + seed) & 0xff);
    return data;
}

// The interleaving of a target record: ciphertext blocks at 3k and 3k+1, the IV backwards from the end.
QByteArray interleave(const QByteArray& cipher, const QByteArray& iv)
{
    QByteArray record(48, '\0');
    for (int k = 0; k < 16; ++k) {
        record[3 * k] = cipher[k];
        record[3 * k + 1] = cipher[16 + k];
        record[47 - 3 * k] = iv[k];
    }
    return record;
}

enum key_kind { serial, version, query, target, file };

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
    void seal_matches_openssl_data();
    void seal_matches_openssl();
    void unseal_opens_openssl_frames_data();
    void unseal_opens_openssl_frames();
    void unseal_rejects_data();
    void unseal_rejects();
    void two_seals_differ();
    void filler_is_ignored_data();
    void filler_is_ignored();
    void purpose_keys_match_openssl_data();
    void purpose_keys_match_openssl();
    void md5_of_file_matches_openssl_data();
    void md5_of_file_matches_openssl();
    void md5_of_unreadable_is_empty();
    void split_target_record_mapping_data();
    void split_target_record_mapping();
    void target_record_iv_change_touches_first_block_only();
    void task_list_password_opens_with_openssl_data();
    void task_list_password_opens_with_openssl();
    void task_list_password_decrypt_data();
    void task_list_password_decrypt();
    void random_blocks_sizes();
};

void test_crypto::initTestCase()
{
    QVERIFY2(!QStandardPaths::findExecutable(QStringLiteral("openssl")).isEmpty(), "the openssl command is needed");
    QCOMPARE(task_list_key(), QByteArray::fromHex(list_key_hex));
}

void test_crypto::aes_matches_openssl_data()
{
    QTest::addColumn<QByteArray>("plain");
    QTest::newRow("empty gets a whole padding block") << QByteArray();
    QTest::newRow("one byte") << QByteArray("x");
    QTest::newRow("15 bytes pad by one") << pattern(15, 1);
    QTest::newRow("16 bytes add a padding block") << pattern(16, 2);
    QTest::newRow("17 bytes") << pattern(17, 3);
    QTest::newRow("binary with zeros, 1000 bytes") << pattern(1000, 0);
}

void test_crypto::aes_matches_openssl()
{
    QFETCH(QByteArray, plain);
    const QByteArray key = QByteArray::fromHex(key_hex);
    const QByteArray iv = QByteArray::fromHex(iv_hex);
    QByteArray expected;
    QVERIFY(openssl_encrypt(plain, key, iv, &expected));

    const crypt_result encrypted = aes_encrypt(plain, key, iv);
    QCOMPARE(encrypted.status, int32_t(crypt_result::ok));
    QCOMPARE(encrypted.data, expected);
    QCOMPARE(encrypted.data.size(), plain.size() + 16 - plain.size() % 16);

    const crypt_result decrypted = aes_decrypt(expected, key, iv);
    QCOMPARE(decrypted.status, int32_t(crypt_result::ok));
    QCOMPARE(decrypted.data, plain);
}

void test_crypto::aes_status_codes_data()
{
    const QByteArray key = QByteArray::fromHex(key_hex);
    const QByteArray iv = QByteArray::fromHex(iv_hex);
    // A block of zeros encrypted without padding decrypts to a last byte of 0: never valid padding.
    QByteArray zero_padding;
    QVERIFY(openssl_encrypt(QByteArray(16, '\0'), key, iv, &zero_padding, false));
    QByteArray good;
    QVERIFY(openssl_encrypt("hello", key, iv, &good));

    QTest::addColumn<QByteArray>("cipher");
    QTest::addColumn<QByteArray>("key");
    QTest::addColumn<QByteArray>("iv");
    QTest::addColumn<int>("status");
    QTest::newRow("bad padding ends in final") << zero_padding << key << iv << 5;
    QTest::newRow("cut ciphertext ends in final") << good.left(15) << key << iv << 5;
    QTest::newRow("empty ciphertext ends in final") << QByteArray() << key << iv << 5;
    QTest::newRow("short key fails init") << good << key.left(16) << iv << 3;
    QTest::newRow("short iv fails init") << good << key << iv.left(8) << 3;
    QTest::newRow("good one") << good << key << iv << 0;
}

void test_crypto::aes_status_codes()
{
    QFETCH(QByteArray, cipher);
    QFETCH(QByteArray, key);
    QFETCH(QByteArray, iv);
    QFETCH(int, status);
    const crypt_result r = aes_decrypt(cipher, key, iv);
    QCOMPARE(r.status, status);
    QCOMPARE(r.data.isEmpty(), status != 0);
}

void test_crypto::seal_matches_openssl_data()
{
    QTest::addColumn<QByteArray>("plain");
    QTest::addColumn<int>("frame_size");
    QTest::newRow("empty gives the smallest frame") << QByteArray() << 112;
    QTest::newRow("15 bytes") << pattern(15, 4) << 112;
    QTest::newRow("16 bytes") << pattern(16, 5) << 128;
    QTest::newRow("100 bytes") << pattern(100, 6) << 208;
}

void test_crypto::seal_matches_openssl()
{
    QFETCH(QByteArray, plain);
    QFETCH(int, frame_size);
    const QByteArray key = QByteArray::fromHex(key_hex);
    const QByteArray frame = seal(plain, key);
    QCOMPARE(frame.size(), frame_size);

    const int n = frame_size - 96;
    QByteArray expected;
    QVERIFY(openssl_encrypt(plain, key, frame.mid(n, 16), &expected));
    QCOMPARE(frame.left(n), expected);
    QCOMPARE(unseal(frame, key), plain);
}

void test_crypto::unseal_opens_openssl_frames_data()
{
    QTest::addColumn<QByteArray>("plain");
    QTest::newRow("empty text from a 112-byte frame") << QByteArray();
    QTest::newRow("short text") << QByteArray("OK");
    QTest::newRow("two blocks exactly") << pattern(32, 7);
    QTest::newRow("json sized") << QByteArray(R"({"status":"pending","offers":[1,2,3]})");
    QTest::newRow("firmware sized, 70000 bytes") << pattern(70000, 8);
}

void test_crypto::unseal_opens_openssl_frames()
{
    QFETCH(QByteArray, plain);
    const QByteArray key = QByteArray::fromHex(key_hex);
    const QByteArray iv = QByteArray::fromHex("f0e1d2c3b4a5968778695a4b3c2d1e0f");
    QByteArray cipher;
    QVERIFY(openssl_encrypt(plain, key, iv, &cipher));
    const QByteArray frame = cipher + iv + pattern(80, 9);

    QCOMPARE(unseal(frame, key), plain);
    QCOMPARE(aes_decrypt(cipher, key, iv).status, int32_t(crypt_result::ok));
}

void test_crypto::unseal_rejects_data()
{
    const QByteArray key = QByteArray::fromHex(key_hex);
    const QByteArray iv = QByteArray::fromHex(iv_hex);
    QByteArray cipher;
    QVERIFY(openssl_encrypt("a device password", key, iv, &cipher));
    const QByteArray frame = cipher + iv + pattern(80, 10);
    QCOMPARE(unseal(frame, key), QByteArray("a device password"));
    QByteArray empty_cipher;
    QVERIFY(openssl_encrypt(QByteArray(), key, iv, &empty_cipher));
    const QByteArray smallest = empty_cipher + iv + pattern(80, 11);

    QTest::addColumn<QByteArray>("frame");
    QTest::addColumn<QByteArray>("key");
    QTest::newRow("111 bytes") << smallest.left(111) << key;
    QTest::newRow("nothing") << QByteArray() << key;
    QTest::newRow("wrong key") << frame << QByteArray::fromHex(list_key_hex);
    QTest::newRow("one byte more is no multiple of 16") << frame + "x" << key;
    QTest::newRow("eight bytes more") << frame + "12345678" << key;
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
    const QByteArray key = QByteArray::fromHex(key_hex);
    const QByteArray plain = pattern(40, 13);
    const QByteArray a = seal(plain, key);
    const QByteArray b = seal(plain, key);
    QCOMPARE(a.size(), 144);
    QCOMPARE(b.size(), 144);
    QVERIFY(a.left(48) != b.left(48));
    QVERIFY(a.mid(48, 16) != b.mid(48, 16));
    QVERIFY(a.mid(64) != b.mid(64));
    // Random frames agree in about one position of 256; many equal bytes mean a reused IV or filler.
    int same = 0;
    for (int i = 0; i < a.size(); ++i)
        same += a[i] == b[i] ? 1 : 0;
    QVERIFY2(same < 16, qPrintable(QString::number(same)));
}

void test_crypto::filler_is_ignored_data()
{
    QTest::addColumn<QByteArray>("filler");
    QTest::newRow("zeros") << QByteArray(80, '\0');
    QTest::newRow("all ones") << QByteArray(80, '\xff');
    QTest::newRow("pattern") << pattern(80, 14);
}

void test_crypto::filler_is_ignored()
{
    QFETCH(QByteArray, filler);
    const QByteArray key = QByteArray::fromHex(key_hex);
    const QByteArray plain = pattern(33, 15);
    QByteArray frame = seal(plain, key);
    QCOMPARE(frame.size(), 48 + 96);
    frame.replace(64, 80, filler);
    QCOMPARE(frame.size(), 48 + 96);
    QCOMPARE(unseal(frame, key), plain);
}

void test_crypto::purpose_keys_match_openssl_data()
{
    QTest::addColumn<int>("kind");
    QTest::addColumn<QByteArray>("id");
    QTest::addColumn<quint64>("nonce");
    QTest::addColumn<QString>("text");
    const QByteArray a = QByteArray::fromHex("0123456789abcdef");
    const QByteArray b = QByteArray::fromHex("A1B2C3D4E5F60718");
    QTest::newRow("serial, h + mid(1,6)") << int(serial) << a << quint64(0) << "0123456789abcdef123456";
    QTest::newRow("version, h + mid(2,4)") << int(version) << a << quint64(0) << "0123456789abcdef2345";
    QTest::newRow("query, h + mid(3,2)") << int(query) << a << quint64(0) << "0123456789abcdef34";
    QTest::newRow("target, h + mid(1,2) + mid(5,2)") << int(target) << a << quint64(0) << "0123456789abcdef1256";
    QTest::newRow("file, session text") << int(file) << a << quint64(42) << "0123456789abcdef|42";
    QTest::newRow("serial, lower-case hex") << int(serial) << b << quint64(0) << "a1b2c3d4e5f607181b2c3d";
    QTest::newRow("version, lower-case hex") << int(version) << b << quint64(0) << "a1b2c3d4e5f60718b2c3";
    QTest::newRow("query, lower-case hex") << int(query) << b << quint64(0) << "a1b2c3d4e5f607182c";
    QTest::newRow("target, lower-case hex") << int(target) << b << quint64(0) << "a1b2c3d4e5f607181b3d";
    QTest::newRow("file, largest nonce") << int(file) << b << quint64(18446744073709551615ULL)
                                         << "a1b2c3d4e5f60718|18446744073709551615";
}

void test_crypto::purpose_keys_match_openssl()
{
    QFETCH(int, kind);
    QFETCH(QByteArray, id);
    QFETCH(quint64, nonce);
    QFETCH(QString, text);
    QByteArray expected;
    QVERIFY(openssl({ "dgst", "-sha256", "-binary" }, text.toLatin1(), &expected));
    QCOMPARE(expected.size(), 32);

    QByteArray key;
    switch (key_kind(kind)) {
    case serial: key = serial_key(id); break;
    case version: key = version_key(id); break;
    case query: key = query_key(id); break;
    case target: key = target_key(id); break;
    case file:
        key = file_key(id, nonce);
        QCOMPARE(session_plain(id, nonce), text);
        break;
    }
    QCOMPARE(key.toHex(), expected.toHex());
}

void test_crypto::md5_of_file_matches_openssl_data()
{
    QTest::addColumn<QByteArray>("content");
    QTest::newRow("empty file") << QByteArray();
    QTest::newRow("text") << QByteArray("firmware\n");
    QTest::newRow("larger than any read buffer") << pattern(3 * 1024 * 1024 + 7, 16);
}

void test_crypto::md5_of_file_matches_openssl()
{
    QFETCH(QByteArray, content);
    QTemporaryDir dir;
    QVERIFY(dir.isValid());
    const QString path = dir.filePath(QStringLiteral("fw.bin"));
    QFile f(path);
    QVERIFY(f.open(QIODevice::WriteOnly));
    QCOMPARE(f.write(content), qint64(content.size()));
    f.close();

    QByteArray expected;
    QVERIFY(openssl({ "dgst", "-md5", "-binary", path }, {}, &expected));
    QCOMPARE(expected.size(), 16);
    QCOMPARE(md5_of_file(path).toHex(), expected.toHex());
}

void test_crypto::md5_of_unreadable_is_empty()
{
    QTemporaryDir dir;
    QVERIFY(dir.isValid());
    QVERIFY(md5_of_file(dir.filePath(QStringLiteral("missing.bin"))).isEmpty());
    QVERIFY(md5_of_file(dir.path()).isEmpty());
}

void test_crypto::split_target_record_mapping_data()
{
    QTest::addColumn<QByteArray>("record");
    QTest::addColumn<QByteArray>("cipher");
    QTest::addColumn<QByteArray>("iv");
    QByteArray counting;
    for (int i = 0; i < 48; ++i)
        counting.append(char(i));
    QTest::newRow("byte i holds i") << counting
                                    << QByteArray::fromHex("000306090c0f1215181b1e2124272a2d"
                                                           "0104070a0d101316191c1f2225282b2e")
                                    << QByteArray::fromHex("2f2c292623201d1a1714110e0b080502");
    QTest::newRow("47 bytes give nothing") << counting.left(47) << QByteArray() << QByteArray();
    QTest::newRow("49 bytes give nothing") << counting + "x" << QByteArray() << QByteArray();
    QTest::newRow("empty gives nothing") << QByteArray() << QByteArray() << QByteArray();
}

void test_crypto::split_target_record_mapping()
{
    QFETCH(QByteArray, record);
    QFETCH(QByteArray, cipher);
    QFETCH(QByteArray, iv);
    const target_parts parts = split_target_record(record);
    QCOMPARE(parts.cipher.toHex(), cipher.toHex());
    QCOMPARE(parts.iv.toHex(), iv.toHex());
}

void test_crypto::target_record_iv_change_touches_first_block_only()
{
    const QByteArray id = QByteArray::fromHex("0123456789abcdef");
    const QByteArray serial_text = "0123456789ABCDEF0123456789ABCDE"; // 31 bytes, the most a record holds
    const QByteArray iv = QByteArray::fromHex("a0a1a2a3a4a5a6a7a8a9aaabacadaeaf");
    QByteArray cipher;
    QVERIFY(openssl_encrypt(serial_text, target_key(id), iv, &cipher));
    QCOMPARE(cipher.size(), 32);

    QByteArray record = interleave(cipher, iv);
    target_parts parts = split_target_record(record);
    crypt_result plain = aes_decrypt(parts.cipher, target_key(id), parts.iv);
    QCOMPARE(plain.status, int32_t(crypt_result::ok));
    QCOMPARE(plain.data, serial_text);

    record[47] = char(record[47] ^ 0x5a); // IV byte 0
    parts = split_target_record(record);
    plain = aes_decrypt(parts.cipher, target_key(id), parts.iv);
    QCOMPARE(plain.status, int32_t(crypt_result::ok));
    QCOMPARE(plain.data.mid(16), serial_text.mid(16));
    QCOMPARE(plain.data.mid(1, 15), serial_text.mid(1, 15));
    QCOMPARE(int(uchar(plain.data[0])), int(uchar(serial_text[0] ^ 0x5a)));
}

void test_crypto::task_list_password_opens_with_openssl_data()
{
    QTest::addColumn<QString>("password");
    QTest::newRow("ascii") << QStringLiteral("s3cret!");
    QTest::newRow("empty") << QString();
    QTest::newRow("cyrillic in utf-8") << QStringLiteral("пароль");
    QTest::newRow("two blocks") << QStringLiteral("a-rather-long-password-of-40-characters!");
}

void test_crypto::task_list_password_opens_with_openssl()
{
    QFETCH(QString, password);
    const QString column = encrypt_task_list_password(password);
    const QByteArray frame = QByteArray::fromBase64(column.toLatin1(), QByteArray::AbortOnBase64DecodingErrors);
    QVERIFY(frame.size() >= 112);
    QCOMPARE(frame.size() % 16, 0);

    const int n = frame.size() - 96;
    QByteArray plain;
    QVERIFY(openssl({ "enc", "-d", "-aes-256-cbc", "-K", list_key_hex, "-iv", frame.mid(n, 16).toHex() }, frame.left(n),
        &plain));
    QCOMPARE(QString::fromUtf8(plain), password);
    QCOMPARE(decrypt_task_list_password(column), password);
}

void test_crypto::task_list_password_decrypt_data()
{
    QTest::addColumn<QByteArray>("plain");
    QTest::addColumn<QString>("expected");
    QTest::newRow("text") << QByteArray("admin123") << QStringLiteral("admin123");
    QTest::newRow("up to the first NUL") << QByteArray("abc\0def", 7) << QStringLiteral("abc");
    QTest::newRow("NUL first") << QByteArray("\0xyz", 4) << QString();
    QTest::newRow("utf-8") << QStringLiteral("пароль").toUtf8() << QStringLiteral("пароль");
}

void test_crypto::task_list_password_decrypt()
{
    QFETCH(QByteArray, plain);
    QFETCH(QString, expected);
    const QByteArray iv = QByteArray::fromHex("11111111222222223333333344444444");
    QByteArray cipher;
    QVERIFY(openssl_encrypt(plain, QByteArray::fromHex(list_key_hex), iv, &cipher));
    const QString column = QString::fromLatin1((cipher + iv + pattern(80, 17)).toBase64());
    QCOMPARE(decrypt_task_list_password(column), expected);
}

void test_crypto::random_blocks_sizes()
{
    const random_result none = random_blocks(0);
    QVERIFY(none.ok);
    QVERIFY(none.data.isEmpty());
    const random_result five = random_blocks(5);
    QVERIFY(five.ok);
    QCOMPARE(five.data.size(), 80);
    QVERIFY(five.data != QByteArray(80, '\0'));
    QVERIFY(!random_blocks(quint64(1) << 62).ok);
    QCOMPARE(random_block().data.size(), 16);
}

QTEST_GUILESS_MAIN(test_crypto)
#include "test_crypto.moc"
