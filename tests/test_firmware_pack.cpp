#include "delivery/pack_crypto.h"
#include "firmware_pack/pack_files.h"
#include "firmware_pack/pack_v2.h"
#include "firmware_pack/pack_v3.h"

#include <QCryptographicHash>
#include <QDateTime>
#include <QFile>
#include <QProcess>
#include <QTemporaryDir>
#include <QtEndian>
#include <QtTest>

using namespace firmware_pack;

namespace
{

const QByteArray client_a = QByteArray::fromHex("0011223344556677");
const QByteArray client_b = QByteArray::fromHex("8899aabbccddeeff");

QByteArray le(quint64 value, int size)
{
    QByteArray out(size, '\0');
    for (int i = 0; i < size; ++i)
        out[i] = char((value >> (8 * i)) & 0xff);
    return out;
}

QByteArray pattern(int size, int seed)
{
    QByteArray data(size, Qt::Uninitialized);
    for (int i = 0; i < size; ++i)
        data[i] = char((i * 131 + seed * 7 + i / 256) & 0xff);
    return data;
}

QString md5_hex(const QByteArray& data)
{
    return QString::fromLatin1(QCryptographicHash::hash(data, QCryptographicHash::Md5).toHex());
}

bool write_file(const QString& path, const QByteArray& data)
{
    QFile f(path);
    return f.open(QIODevice::WriteOnly | QIODevice::Truncate) && f.write(data) == data.size();
}

QByteArray read_file(const QString& path)
{
    QFile f(path);
    return f.open(QIODevice::ReadOnly) ? f.readAll() : QByteArray();
}

// The tests' stand-in cipher, so that the layout can be written by hand: a frame is the plain
// length, the plain bytes and zeros up to whole blocks; a payload frame is also XORed with
// the session's low byte; a target record is the NUL-padded serial with 0x5a at its end.
QByteArray fake_frame(const QByteArray& plain)
{
    QByteArray f = le(quint64(plain.size()), 4) + plain;
    f.append(QByteArray((16 - f.size() % 16) % 16, '\0'));
    return f;
}

QByteArray fake_unframe(const QByteArray& frame)
{
    if (frame.size() < 16 || frame.size() % 16)
        return {};
    const quint32 size = qFromLittleEndian<quint32>(frame.constData());
    return size > quint32(frame.size() - 4) ? QByteArray() : frame.mid(4, int(size));
}

QByteArray xor_with(QByteArray data, quint64 session)
{
    for (char& c : data)
        c = char(c ^ char(session & 0xff));
    return data;
}

QByteArray fake_payload_frame(const QByteArray& plain, quint64 session)
{
    return xor_with(fake_frame(plain), session);
}

QByteArray fake_payload_open(const QByteArray& frame, quint64 session)
{
    return fake_unframe(xor_with(frame, session));
}

QByteArray fake_record(const QByteArray& serial)
{
    QByteArray r = serial + QByteArray(48 - serial.size(), '\0');
    r[47] = 0x5a;
    return r;
}

QByteArray fake_open_record(const QByteArray& record)
{
    return record.size() == 48 && record[47] == 0x5a ? record.left(47) : QByteArray();
}

QByteArray header(int version, int kind, int count)
{
    return QByteArray("FFCF") + char(version) + char(kind) + char(count) + le(1700000000, 4);
}

QByteArray element_bytes(quint16 tag, const QByteArray& data, quint32 length, bool framed)
{
    return le(tag, 2) + le(framed ? quint32(data.size() / 16) : 0, 4) + le(length, 4) + data;
}

// A file written by hand from the format, with the offsets of its parts by name.
struct image {
    QByteArray bytes;
    QMap<QString, qint64> at;

    void mark(const QString& name) { at.insert(name, bytes.size()); }
    // "name" or "name+delta".
    qint64 offset(const QString& where) const
    {
        const QStringList parts = where.split(QLatin1Char('+'));
        const qint64 base = parts.at(0).isEmpty() ? 0 : at.value(parts.at(0), -1);
        return base + (parts.size() > 1 ? parts.at(1).toLongLong() : 0);
    }
};

const QByteArray firmware_one = pattern(300, 1);
const QByteArray firmware_two = pattern(77, 2);

// Two targets, two blocks; the second target points at the second block.
image v2_pack_image()
{
    image m;
    m.bytes = header(2, 2, 2);
    m.mark("reserved");
    m.bytes += le(0xdeadbeef, 4);
    m.mark("target_count");
    m.bytes += char(2);
    m.mark("row0");
    m.bytes += fake_record("SN-A") + char(0);
    m.mark("row1");
    m.bytes += fake_record("SN-B") + char(1);
    const QByteArray firmwares[] = { firmware_one, firmware_two };
    for (int i = 0; i < 2; ++i) {
        const quint64 session = 0x1111111111111100ull + quint64(i) + 1;
        const QByteArray ident = fake_frame(md5_hex(firmwares[i]).toLatin1());
        const QByteArray payload = fake_payload_frame(firmwares[i], session);
        const qint64 start = m.bytes.size();
        m.mark(QStringLiteral("block%1").arg(i));
        m.bytes += le(quint64(31 + ident.size() + payload.size()), 4) + le(quint64(start + 31), 4)
            + char(ident.size() / 16) + le(32, 2) + le(quint64(start + 31 + ident.size()), 4)
            + le(quint64(payload.size() / 16), 4) + le(quint64(firmwares[i].size()), 4) + le(session, 8);
        m.mark(QStringLiteral("ident%1").arg(i));
        m.bytes += ident;
        m.mark(QStringLiteral("payload%1").arg(i));
        m.bytes += payload;
    }
    return m;
}

// Two target rows, a script, then two firmware blocks whose elements come in different orders.
image v3_pack_image()
{
    image m;
    m.bytes = header(3, 2, 5);
    m.mark("ate0");
    m.bytes += char(0) + le(49, 4) + fake_record("SN-A") + char(0);
    m.mark("ate1");
    m.bytes += char(0) + le(49, 4) + fake_record("SN-B") + char(1);
    m.mark("script");
    m.bytes += char(2) + le(30, 4) + char(9);
    m.mark("script_tag");
    m.bytes += element_bytes(80, QByteArray("reboot all\0", 11), 11, false);

    const quint64 s0 = 0x2222222222222201ull;
    m.mark("fw0");
    const QByteArray fw0_session = element_bytes(83, le(s0, 8), 8, false);
    const QByteArray fw0_version = element_bytes(86, fake_frame(md5_hex(firmware_one).toLatin1()), 32, true);
    const QByteArray fw0_sdk = element_bytes(21332, "xcloud", 6, false);
    const QByteArray fw0_payload = element_bytes(80, fake_payload_frame(firmware_one, s0), 300, true);
    m.bytes += char(1) + le(quint64(fw0_session.size() + fw0_version.size() + fw0_sdk.size() + fw0_payload.size()), 4)
        + char(4);
    m.mark("fw0_session");
    m.bytes += fw0_session;
    m.mark("fw0_version");
    m.bytes += fw0_version;
    m.bytes += fw0_sdk + fw0_payload;

    const quint64 s1 = 0x3333333333333302ull;
    m.mark("fw1");
    const QByteArray fw1_version = element_bytes(86, fake_frame(md5_hex(firmware_two).toLatin1()), 32, true);
    const QByteArray fw1_session = element_bytes(83, le(s1, 8), 8, false);
    const QByteArray fw1_payload = element_bytes(80, fake_payload_frame(firmware_two, s1), 77, true);
    m.bytes += char(1) + le(quint64(fw1_version.size() + fw1_session.size() + fw1_payload.size()), 4) + char(3);
    m.bytes += fw1_version + fw1_session;
    m.mark("fw1_payload");
    m.bytes += fw1_payload;
    return m;
}

std::shared_ptr<pack> make_pack(int version)
{
    if (version == 2)
        return std::make_shared<pack_v2>();
    return std::make_shared<pack_v3>();
}

QString tool_path()
{
    return qEnvironmentVariable("ORVANE_TOOLS_DIR") + QStringLiteral("/packtool/orvane-packtool");
}

// Runs the independent pack tool; its exit code, or -1 when it didn't run to the end.
int run_tool(const QStringList& args, QByteArray* output = nullptr)
{
    QProcess p;
    p.start(tool_path(), args);
    if (!p.waitForStarted(10000) || !p.waitForFinished(60000) || p.exitStatus() != QProcess::NormalExit)
        return -1;
    if (output)
        *output = p.readAllStandardOutput();
    return p.exitCode();
}

} // namespace

class test_firmware_pack : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase();

    void reads_hand_written_packs_data();
    void reads_hand_written_packs();
    void writes_the_cache_layout_data();
    void writes_the_cache_layout();
    void damaged_files_data();
    void damaged_files();

    void tool_packs_round_trip_data();
    void tool_packs_round_trip();
    void tool_cache_loads_data();
    void tool_cache_loads();
    void program_cache_passes_tool_check_data();
    void program_cache_passes_tool_check();
    void extend_in_place_data();
    void extend_in_place();
    void foreign_or_garbled_data();
    void foreign_or_garbled();

    void block_count_wraps_at_256();
    void partial_block_past_the_count_is_ignored();
    void add_failures_leave_the_file_data();
    void add_failures_leave_the_file();
    void create_and_usable();
    void crypto_reads_the_client_id_at_each_call();

private:
    QTemporaryDir m_dir;
    delivery::pack_crypto m_crypto = delivery::make_pack_crypto(client_a);
};

void test_firmware_pack::initTestCase()
{
    QVERIFY(m_dir.isValid());
    QVERIFY2(QFile::exists(tool_path()), qPrintable(tool_path()));
}

void test_firmware_pack::reads_hand_written_packs_data()
{
    QTest::addColumn<int>("version");
    QTest::newRow("version 2, targets count all blocks") << 2;
    QTest::newRow("version 3, elements in any order, targets count firmware blocks") << 3;
}

void test_firmware_pack::reads_hand_written_packs()
{
    QFETCH(int, version);
    const QString path = m_dir.filePath(QStringLiteral("hand%1.ovpack").arg(version));
    QVERIFY(write_file(path, (version == 2 ? v2_pack_image() : v3_pack_image()).bytes));

    const auto p = open(path, fake_open_record, fake_unframe);
    QVERIFY(p);
    QCOMPARE(p->error(), 0u);
    QCOMPARE(p->error_position(), qint64(-1));
    QCOMPARE(p->version(), quint8(version));
    QCOMPARE(p->kind(), quint8(pack::kind_pack));
    QCOMPARE(p->timestamp(), 1700000000u);
    QCOMPARE(p->path(), path);
    QCOMPARE(p->targets(), (target_list { { "SN-A", 0 }, { "SN-B", 1 } }));
    QCOMPARE(p->ident_at(0), md5_hex(firmware_one));
    QCOMPARE(p->ident_at(1), md5_hex(firmware_two));
    QCOMPARE(p->ident_at(2), QString());
    QCOMPARE(p->ident_at(255), QString());
    QCOMPARE(p->extract(md5_hex(firmware_one), fake_payload_open), firmware_one);
    QCOMPARE(p->extract(md5_hex(firmware_two), fake_payload_open), firmware_two);
    QVERIFY(p->extract(md5_hex("absent"), fake_payload_open).isEmpty());
    QCOMPARE(p->sdk_type(md5_hex(firmware_one)), version == 3 ? QStringLiteral("xcloud") : QString());
    QCOMPARE(p->sdk_type(md5_hex(firmware_two)), QString());
    QCOMPARE(p->describe(), qMakePair(QString(), true));
    if (version == 2) {
        QCOMPARE(std::static_pointer_cast<pack_v2>(p)->reserved(), 0xdeadbeefu);
    } else {
        const auto v3 = std::static_pointer_cast<pack_v3>(p);
        QCOMPARE(v3->scripts(), (pack_v3::script_set { { "reboot all", 9 } }));
        QCOMPARE(v3->idents(), (QStringList { md5_hex(firmware_one), md5_hex(firmware_two) }));
    }
}

void test_firmware_pack::writes_the_cache_layout_data()
{
    QTest::addColumn<int>("version");
    QTest::addColumn<QByteArray>("body");

    // ident "ab", payload "xyz", session 0x0102030405060708, under the stand-in cipher.
    const QByteArray ident_frame = QByteArray::fromHex("02000000"
                                                       "6162"
                                                       "00000000000000000000");
    const QByteArray payload_frame = QByteArray::fromHex("0b080808"
                                                         "707172"
                                                         "080808080808080808");
    QTest::newRow("version 3: Session, Version, Payload") << 3
                                                          << QByteArray::fromHex("01"
                                                                                 "46000000"
                                                                                 "03"
                                                                                 "5300"
                                                                                 "00000000"
                                                                                 "08000000"
                                                                                 "0807060504030201"
                                                                                 "5600"
                                                                                 "01000000"
                                                                                 "02000000")
            + ident_frame
            + QByteArray::fromHex("5000"
                                  "01000000"
                                  "03000000")
            + payload_frame;
    QTest::newRow("version 2: 31-byte header with absolute offsets") << 2
                                                                     << QByteArray::fromHex("3f000000"
                                                                                            "2a000000"
                                                                                            "01"
                                                                                            "0200"
                                                                                            "3a000000"
                                                                                            "01000000"
                                                                                            "03000000"
                                                                                            "0807060504030201")
            + ident_frame + payload_frame;
}

void test_firmware_pack::writes_the_cache_layout()
{
    QFETCH(int, version);
    QFETCH(QByteArray, body);
    const QString path = m_dir.filePath(QStringLiteral("layout%1.ovpack").arg(version));
    const quint32 before = quint32(QDateTime::currentSecsSinceEpoch());
    QVERIFY(create(path, quint8(version)));
    const auto p = make_pack(version);
    QVERIFY(p->load(path, fake_open_record, fake_unframe));
    QVERIFY(p->add("ab", "xyz", fake_frame, fake_payload_frame, 0x0102030405060708ull));
    const quint32 after = quint32(QDateTime::currentSecsSinceEpoch());

    const QByteArray file = read_file(path);
    QCOMPARE(file.left(7).toHex(), (QByteArray("FFCF") + char(version) + char(1) + char(1)).toHex());
    const quint32 stamp = qFromLittleEndian<quint32>(file.constData() + 7);
    QVERIFY(stamp >= before && stamp <= after);
    QCOMPARE(file.mid(11).toHex(), body.toHex());

    const auto again = make_pack(version);
    QVERIFY(again->load(path, fake_open_record, fake_unframe));
    QCOMPARE(again->ident_at(0), QStringLiteral("ab"));
    QCOMPARE(again->extract("ab", fake_payload_open), QByteArray("xyz"));
    QVERIFY(again->targets().isEmpty());
}

void test_firmware_pack::damaged_files_data()
{
    QTest::addColumn<int>("version");
    QTest::addColumn<QString>("cut"); // keep the bytes before this offset; empty: keep all
    QTest::addColumn<QString>("patch_at");
    QTest::addColumn<QByteArray>("patch");
    QTest::addColumn<bool>("opens"); // open gives an object
    QTest::addColumn<int>("code"); // error of the load; -1: not a file the class reads
    QTest::addColumn<QString>("position"); // empty: -1

    const QByteArray none;
    QTest::newRow("empty file") << 3 << "+0"
                                << "" << none << false << 1 << "+0";
    QTest::newRow("magic cut short") << 3 << "+3"
                                     << "" << none << false << 1 << "+0";
    QTest::newRow("wrong magic") << 2 << ""
                                 << "+3" << QByteArray("X") << false << 2 << "+0";
    QTest::newRow("no version") << 3 << "+4"
                                << "" << none << false << 3 << "+4";
    QTest::newRow("version 4") << 3 << ""
                               << "+4" << QByteArray("\x04") << false << -1 << "";
    QTest::newRow("version 1") << 2 << ""
                               << "+4" << QByteArray("\x01") << false << -1 << "";
    QTest::newRow("no kind") << 3 << "+5"
                             << "" << none << true << 4 << "+5";
    QTest::newRow("no count") << 2 << "+6"
                              << "" << none << true << 5 << "+6";
    QTest::newRow("timestamp cut short") << 3 << "+9"
                                         << "" << none << true << 6 << "+7";

    QTest::newRow("v2: reserved word cut short") << 2 << "reserved+3"
                                                 << "" << none << true << 7 << "reserved";
    QTest::newRow("v2: no target count") << 2 << "target_count"
                                         << "" << none << true << 8 << "target_count";
    QTest::newRow("v2: target record cut short") << 2 << "row0+20"
                                                 << "" << none << true << 9 << "row0";
    QTest::newRow("v2: index byte missing") << 2 << "row1+48"
                                            << "" << none << true << 10 << "row1+48";
    QTest::newRow("v2: target doesn't decrypt") << 2 << ""
                                                << "row1+47" << QByteArray("\x00", 1) << true << 11 << "row1";
    QTest::newRow("v2: no block header") << 2 << "block0"
                                         << "" << none << true << 12 << "block0";
    QTest::newRow("v2: block header cut short") << 2 << "block1+30"
                                                << "" << none << true << 12 << "block1";
    QTest::newRow("v2: ident doesn't decrypt") << 2 << ""
                                               << "ident1" << QByteArray("\xff\xff", 2) << true << 13 << "block1";
    QTest::newRow("v2: ident offset beyond the file")
        << 2 << ""
        << "block0+4" << QByteArray("\xff\xff\xff\x7f", 4) << true << 13 << "block0";
    QTest::newRow("v2: block length beyond the file")
        << 2 << ""
        << "block0" << QByteArray("\xf0\xff\xff\xff", 4) << true << 12 << "block0+4294967280";
    QTest::newRow("v2: count beyond the blocks") << 2 << ""
                                                 << "+6" << QByteArray("\x03") << true << 12 << "end";
    QTest::newRow("v2: payload cut short still loads") << 2 << "payload1+20"
                                                       << "" << none << true << 0 << "";

    QTest::newRow("v3: no block header") << 3 << "ate0"
                                         << "" << none << true << 9 << "ate0";
    QTest::newRow("v3: block header cut short") << 3 << "ate0+3"
                                                << "" << none << true << 9 << "ate0";
    QTest::newRow("v3: unknown block kind") << 3 << ""
                                            << "ate1" << QByteArray("\x07") << true << 10 << "ate1";
    QTest::newRow("v3: target doesn't decrypt") << 3 << ""
                                                << "ate1+52" << QByteArray("\x00", 1) << true << 11 << "ate1";
    QTest::newRow("v3: target record cut short") << 3 << "ate0+30"
                                                 << "" << none << true << 11 << "ate0";
    QTest::newRow("v3: ident doesn't decrypt") << 3 << ""
                                               << "fw0_version+10" << QByteArray("\xff\xff", 2) << true << 12 << "fw0";
    QTest::newRow("v3: no Version element") << 3 << ""
                                            << "fw0_version" << QByteArray("\x57") << true << 13 << "fw0";
    QTest::newRow("v3: Version size beyond the file")
        << 3 << ""
        << "fw0_version+2" << QByteArray("\xff\xff\xff\xff", 4) << true << 13 << "fw0";
    QTest::newRow("v3: Session length beyond the file, blocks 0")
        << 3 << ""
        << "fw0_session+6" << QByteArray("\xff\xff\xff\x7f", 4) << true << 13 << "fw0";
    QTest::newRow("v3: element count beyond the elements") << 3 << ""
                                                           << "fw1+5" << QByteArray("\x09") << true << 0 << "";
    QTest::newRow("v3: count beyond the blocks") << 3 << ""
                                                 << "+6" << QByteArray("\x06") << true << 9 << "end";
    QTest::newRow("v3: payload cut short still loads") << 3 << "fw1_payload+30"
                                                       << "" << none << true << 0 << "";
    QTest::newRow("v3: script with another tag still loads") << 3 << ""
                                                             << "script_tag" << QByteArray("\x51") << true << 0 << "";
}

// Every damage gives its code at its place; none crashes, hangs or allocates what the file doesn't hold.
void test_firmware_pack::damaged_files()
{
    QFETCH(int, version);
    QFETCH(QString, cut);
    QFETCH(QString, patch_at);
    QFETCH(QByteArray, patch);
    QFETCH(bool, opens);
    QFETCH(int, code);
    QFETCH(QString, position);

    image m = version == 2 ? v2_pack_image() : v3_pack_image();
    if (!patch_at.isEmpty())
        m.bytes.replace(int(m.offset(patch_at)), patch.size(), patch);
    m.at.insert("end", m.bytes.size());
    const qint64 cut_at = cut.isEmpty() ? m.bytes.size() : m.offset(cut);
    QVERIFY(cut_at >= 0 && cut_at <= m.bytes.size());
    const QString path = m_dir.filePath(QStringLiteral("damaged.ovpack"));
    QVERIFY(write_file(path, m.bytes.left(int(cut_at))));

    const auto opened = open(path, fake_open_record, fake_unframe);
    QCOMPARE(bool(opened), opens);
    if (code < 0)
        return;
    const auto p = make_pack(version);
    QCOMPARE(p->load(path, fake_open_record, fake_unframe), code == 0);
    QCOMPARE(p->error(), quint32(code));
    QCOMPARE(p->error_position(), position.isEmpty() ? qint64(-1) : m.offset(position));
    if (opened)
        QCOMPARE(opened->error(), quint32(code));
    if (code != 0) {
        QVERIFY(p->path().isEmpty());
        return;
    }
    QCOMPARE(p->path(), path);
    // A cut in the last payload is noticed only when that payload is taken out.
    const bool last_cut = cut.contains(QLatin1String("payload"));
    QCOMPARE(p->extract(md5_hex(firmware_two), fake_payload_open).isEmpty(), last_cut);
    QCOMPARE(p->extract(md5_hex(firmware_one), fake_payload_open), firmware_one);
    if (patch_at == QLatin1String("script_tag"))
        QCOMPARE(std::static_pointer_cast<pack_v3>(p)->scripts(), (pack_v3::script_set { { QString(), 9 } }));
}

void test_firmware_pack::tool_packs_round_trip_data()
{
    QTest::addColumn<int>("version");
    QTest::addColumn<bool>("with_sdk");
    QTest::newRow("version 2") << 2 << false;
    QTest::newRow("version 3 without SDK types") << 3 << false;
    QTest::newRow("version 3 with SDK types") << 3 << true;
}

// Packs from the independent writer: serials, shared blocks, SDK types and payloads come through.
void test_firmware_pack::tool_packs_round_trip()
{
    QFETCH(int, version);
    QFETCH(bool, with_sdk);
    const QByteArray ipc = pattern(70000, 3);
    const QByteArray nvr = pattern(1, 4);
    const QByteArray empty;
    QVERIFY(write_file(m_dir.filePath("ipc.bin"), ipc));
    QVERIFY(write_file(m_dir.filePath("nvr.bin"), nvr));
    QVERIFY(write_file(m_dir.filePath("empty.bin"), empty));
    const QString sdk = with_sdk ? QStringLiteral(":xcloud") : QString();
    const QString path = m_dir.filePath(QStringLiteral("tool%1%2.ovpack").arg(version).arg(with_sdk));
    QCOMPARE(run_tool({ "build", "--client-id", client_a.toHex(), "--format", QString::number(version), "--force", "-o",
                 path, "SN0003:" + m_dir.filePath("ipc.bin") + sdk, "SN0001:" + m_dir.filePath("nvr.bin"),
                 "sn0002:" + m_dir.filePath("ipc.bin") + sdk,
                 "ABCDEFGHIJKLMNOPQRSTUVWXYZ01234:" + m_dir.filePath("empty.bin") }),
        0);

    const auto p = open(path, m_crypto.target_decryptor, m_crypto.ident_decryptor);
    QVERIFY(p);
    QCOMPARE(p->error(), 0u);
    QCOMPARE(p->version(), quint8(version));
    QCOMPARE(p->kind(), quint8(pack::kind_pack));
    const target_list targets = p->targets();
    QCOMPARE(targets.size(), 4);
    QStringList serials;
    QMap<QString, QByteArray> expected { { "SN0003", ipc }, { "SN0001", nvr }, { "sn0002", ipc },
        { "ABCDEFGHIJKLMNOPQRSTUVWXYZ01234", empty } };
    for (const auto& t : targets) {
        serials << t.first;
        const QString ident = p->ident_at(t.second);
        QCOMPARE(ident, md5_hex(expected.value(t.first)));
        QVERIFY(p->contains(ident));
        QCOMPARE(p->extract(ident, m_crypto.payload_decryptor), expected.value(t.first));
        QCOMPARE(p->sdk_type(ident), with_sdk && expected.value(t.first) == ipc ? QStringLiteral("xcloud") : QString());
    }
    QCOMPARE(serials, (QStringList { "ABCDEFGHIJKLMNOPQRSTUVWXYZ01234", "SN0001", "SN0003", "sn0002" }));
    // Equal files share one block.
    QCOMPARE(targets.at(2).second, targets.at(3).second);
    QCOMPARE(p->ident_at(3), QString());
}

void test_firmware_pack::tool_cache_loads_data()
{
    QTest::addColumn<int>("version");
    QTest::newRow("version 2 cache has no target table") << 2;
    QTest::newRow("version 3 cache") << 3;
}

void test_firmware_pack::tool_cache_loads()
{
    QFETCH(int, version);
    const QByteArray a = pattern(40000, 5);
    const QByteArray b = pattern(16, 6);
    QVERIFY(write_file(m_dir.filePath("a.bin"), a));
    QVERIFY(write_file(m_dir.filePath("b.bin"), b));
    const QString path = m_dir.filePath(QStringLiteral("toolcache%1.ovpack").arg(version));
    QCOMPARE(run_tool({ "build", "-i", client_a.toHex(), "-f", QString::number(version), "--force", "--cache", "-o",
                 path, m_dir.filePath("a.bin"), m_dir.filePath("b.bin") }),
        0);

    const auto p = make_pack(version);
    QVERIFY(p->load(path, m_crypto.target_decryptor, m_crypto.ident_decryptor));
    QCOMPARE(p->kind(), quint8(pack::kind_cache));
    QVERIFY(p->targets().isEmpty());
    QCOMPARE(p->extract(md5_hex(a), m_crypto.payload_decryptor), a);
    QCOMPARE(p->extract(md5_hex(b), m_crypto.payload_decryptor), b);
    QCOMPARE(p->ident_at(1), md5_hex(b));
}

void test_firmware_pack::program_cache_passes_tool_check_data()
{
    QTest::addColumn<int>("version");
    QTest::newRow("version 2") << 2;
    QTest::newRow("version 3") << 3;
}

// The program's writer read back by the independent reader: payloads open and their MD5 match.
void test_firmware_pack::program_cache_passes_tool_check()
{
    QFETCH(int, version);
    const QString path = m_dir.filePath(QStringLiteral("program%1.ovpack").arg(version));
    QVERIFY(create(path, quint8(version)));
    const auto p = make_pack(version);
    QVERIFY(p->load(path, m_crypto.target_decryptor, m_crypto.ident_decryptor));
    const QList<QByteArray> files { pattern(33333, 7), QByteArray(), pattern(4096, 8) };
    quint64 session = 0xfedcba9876543210ull;
    for (const QByteArray& f : files)
        QVERIFY(p->add(md5_hex(f), f, m_crypto.ident_encryptor, m_crypto.payload_encryptor, session++));
    QCOMPARE(p->count(), quint8(3));

    QByteArray listing;
    QCOMPARE(run_tool({ "check", "-i", client_a.toHex(), path }, &listing), 0);
    QCOMPARE(listing.count("ok ("), 3);
    QCOMPARE(run_tool({ "list", "-i", client_a.toHex(), path }, &listing), 0);
    for (int i = 0; i < files.size(); ++i) {
        QVERIFY2(
            listing.contains(QStringLiteral("firmware %1 block %1 ident %2").arg(i).arg(md5_hex(files[i])).toLatin1()),
            listing.constData());
    }
    QVERIFY(listing.contains("session 18364758544493064720"));
    QVERIFY(!listing.contains("note"));

    // A later run opens each block with the session stored in it, not its own.
    const auto later = make_pack(version);
    QVERIFY(later->load(path, m_crypto.target_decryptor, m_crypto.ident_decryptor));
    for (const QByteArray& f : files)
        QCOMPARE(later->extract(md5_hex(f), m_crypto.payload_decryptor), f);
}

void test_firmware_pack::extend_in_place_data()
{
    QTest::addColumn<int>("version");
    QTest::newRow("version 2 pack") << 2;
    QTest::newRow("version 3 pack") << 3;
}

void test_firmware_pack::extend_in_place()
{
    QFETCH(int, version);
    const QByteArray old_fw = pattern(5000, 9);
    const QByteArray new_fw = pattern(6000, 10);
    QVERIFY(write_file(m_dir.filePath("old.bin"), old_fw));
    const QString path = m_dir.filePath(QStringLiteral("extend%1.ovpack").arg(version));
    QCOMPARE(run_tool({ "build", "-i", client_a.toHex(), "-f", QString::number(version), "--force", "-o", path,
                 "SN1:" + m_dir.filePath("old.bin"), "SN2:" + m_dir.filePath("old.bin") }),
        0);
    const qint64 size_before = QFileInfo(path).size();
    const QByteArray prefix = read_file(path).left(int(size_before)).mid(11);

    auto p = open(path, m_crypto.target_decryptor, m_crypto.ident_decryptor);
    QVERIFY(p && p->error() == 0);
    const quint8 count = p->count();
    QVERIFY(p->add(md5_hex(new_fw), new_fw, m_crypto.ident_encryptor, m_crypto.payload_encryptor, 77));
    QCOMPARE(p->count(), quint8(count + 1));
    // The object knows the new block at once, as a second device of the same run needs it.
    QCOMPARE(p->ident_at(1), md5_hex(new_fw));
    QCOMPARE(p->extract(md5_hex(new_fw), m_crypto.payload_decryptor), new_fw);

    // Only the header's count and time change before the old end; the block is appended.
    const QByteArray after = read_file(path);
    QCOMPARE(after.mid(11, int(size_before) - 11), prefix);
    QVERIFY(after.size() > size_before + new_fw.size());

    p = open(path, m_crypto.target_decryptor, m_crypto.ident_decryptor);
    QVERIFY(p);
    QCOMPARE(p->error(), 0u);
    QCOMPARE(p->targets(), (target_list { { "SN1", 0 }, { "SN2", 0 } }));
    QCOMPARE(p->ident_at(0), md5_hex(old_fw));
    QCOMPARE(p->ident_at(1), md5_hex(new_fw));
    QCOMPARE(p->extract(md5_hex(old_fw), m_crypto.payload_decryptor), old_fw);
    QCOMPARE(p->extract(md5_hex(new_fw), m_crypto.payload_decryptor), new_fw);
    QByteArray listing;
    QCOMPARE(run_tool({ "check", "-i", client_a.toHex(), path }, &listing), 0);
    QCOMPARE(listing.count("ok ("), 2);
}

void test_firmware_pack::foreign_or_garbled_data()
{
    QTest::addColumn<QString>("kind"); // what the file is
    QTest::addColumn<int>("version");
    QTest::addColumn<int>("code");
    QTest::newRow("v2 pack under another client id: targets don't open") << "pack" << 2 << 11;
    QTest::newRow("v3 pack under another client id: targets don't open") << "pack" << 3 << 11;
    QTest::newRow("v2 cache under another client id: idents don't open") << "cache" << 2 << 13;
    QTest::newRow("v3 cache under another client id: idents don't open") << "cache" << 3 << 12;
    QTest::newRow("v2 cache with a garbled payload: the MD5 check catches it") << "garbled" << 2 << 0;
    QTest::newRow("v3 cache with a garbled payload: the MD5 check catches it") << "garbled" << 3 << 0;
}

void test_firmware_pack::foreign_or_garbled()
{
    QFETCH(QString, kind);
    QFETCH(int, version);
    QFETCH(int, code);
    const QByteArray fw = pattern(4000, 11);
    QVERIFY(write_file(m_dir.filePath("fw.bin"), fw));
    const QString path = m_dir.filePath(QStringLiteral("foreign.ovpack"));
    if (kind == QLatin1String("pack")) {
        QCOMPARE(run_tool({ "build", "-i", client_a.toHex(), "-f", QString::number(version), "--force", "-o", path,
                     "SN1:" + m_dir.filePath("fw.bin") }),
            0);
    } else {
        QVERIFY(create(path, quint8(version)));
        const auto writer = make_pack(version);
        QVERIFY(writer->load(path, m_crypto.target_decryptor, m_crypto.ident_decryptor));
        QVERIFY(writer->add(md5_hex(fw), fw, m_crypto.ident_encryptor, m_crypto.payload_encryptor, 5));
    }
    const delivery::pack_crypto reader = code ? delivery::make_pack_crypto(client_b) : m_crypto;
    if (kind == QLatin1String("garbled")) {
        QByteArray bytes = read_file(path);
        bytes[bytes.size() - 200] = char(bytes[bytes.size() - 200] ^ 0x01); // inside the payload's ciphertext
        QVERIFY(write_file(path, bytes));
    }

    const auto p = make_pack(version);
    QCOMPARE(p->load(path, reader.target_decryptor, reader.ident_decryptor), code == 0);
    QCOMPARE(p->error(), quint32(code));
    if (code == 0) {
        const QByteArray data = p->extract(md5_hex(fw), reader.payload_decryptor);
        QVERIFY(data != fw);
        QVERIFY(md5_hex(data) != md5_hex(fw));
        QByteArray listing;
        QCOMPARE(run_tool({ "check", "-i", client_a.toHex(), path }, &listing), 1);
    }
}

// The count is one byte: the 256th block wraps it to 0, and the next load sees an empty cache.
void test_firmware_pack::block_count_wraps_at_256()
{
    const QString path = m_dir.filePath(QStringLiteral("wrap.ovpack"));
    QVERIFY(create(path, 3));
    pack_v3 cache;
    QVERIFY(cache.load(path, m_crypto.target_decryptor, m_crypto.ident_decryptor));
    for (int i = 0; i < 255; ++i) {
        const QByteArray fw = QByteArray::number(i);
        QVERIFY(cache.add(md5_hex(fw), fw, m_crypto.ident_encryptor, m_crypto.payload_encryptor, quint64(i)));
    }
    QCOMPARE(cache.count(), quint8(255));
    pack_v3 full;
    QVERIFY(full.load(path, m_crypto.target_decryptor, m_crypto.ident_decryptor));
    QCOMPARE(full.idents().size(), 255);
    QCOMPARE(full.extract(md5_hex("254"), m_crypto.payload_decryptor), QByteArray("254"));

    QVERIFY(cache.add(md5_hex("255"), "255", m_crypto.ident_encryptor, m_crypto.payload_encryptor, 255));
    QCOMPARE(cache.count(), quint8(0));
    QVERIFY(cache.contains(md5_hex("255"))); // the object itself still knows
    QCOMPARE(read_file(path).at(6), '\0');

    pack_v3 wrapped;
    QVERIFY(wrapped.load(path, m_crypto.target_decryptor, m_crypto.ident_decryptor));
    QVERIFY(wrapped.idents().isEmpty());
    QVERIFY(!wrapped.contains(md5_hex("0")));
    QByteArray listing;
    QCOMPARE(run_tool({ "list", "-i", client_a.toHex(), path }, &listing), 0);
    QVERIFY(listing.contains("blocks 0"));
    QVERIFY(listing.contains("bytes past the last counted block"));
}

// A write that failed half-way leaves bytes that the old count keeps out of the next load.
void test_firmware_pack::partial_block_past_the_count_is_ignored()
{
    const QString path = m_dir.filePath(QStringLiteral("partial.ovpack"));
    QVERIFY(create(path, 3));
    pack_v3 cache;
    QVERIFY(cache.load(path, m_crypto.target_decryptor, m_crypto.ident_decryptor));
    QVERIFY(cache.add(md5_hex("one"), "one", m_crypto.ident_encryptor, m_crypto.payload_encryptor, 1));
    const QByteArray whole = read_file(path);
    QVERIFY(cache.add(md5_hex("two"), "two", m_crypto.ident_encryptor, m_crypto.payload_encryptor, 2));
    QByteArray torn = read_file(path).left(whole.size() + 40);
    torn[6] = 1;
    QVERIFY(write_file(path, torn));

    pack_v3 again;
    QVERIFY(again.load(path, m_crypto.target_decryptor, m_crypto.ident_decryptor));
    QCOMPARE(again.idents(), QStringList { md5_hex("one") });
    QCOMPARE(again.extract(md5_hex("one"), m_crypto.payload_decryptor), QByteArray("one"));
}

void test_firmware_pack::add_failures_leave_the_file_data()
{
    QTest::addColumn<int>("version");
    QTest::addColumn<QString>("failure");
    QTest::addColumn<int>("code");
    for (int v : { 2, 3 }) {
        QTest::addRow("v%d: empty ident", v) << v << "ident" << 0;
        QTest::addRow("v%d: ident cipher fails", v) << v << "ident cipher" << 0;
        QTest::addRow("v%d: payload cipher fails", v) << v << "payload cipher" << 0;
        QTest::addRow("v%d: frame not whole blocks", v) << v << "odd frame" << 0;
        QTest::addRow("v%d: file gone gives error 1 and isn't made anew", v) << v << "gone" << 1;
    }
}

void test_firmware_pack::add_failures_leave_the_file()
{
    QFETCH(int, version);
    QFETCH(QString, failure);
    QFETCH(int, code);
    const QString path = m_dir.filePath(QStringLiteral("addfail.ovpack"));
    QVERIFY(create(path, quint8(version)));
    const auto p = make_pack(version);
    QVERIFY(p->load(path, fake_open_record, fake_unframe));
    QVERIFY(p->add("kept", "data", fake_frame, fake_payload_frame, 1));
    const QByteArray before = read_file(path);

    ident_encryptor ident_cipher = fake_frame;
    payload_encryptor payload_cipher = fake_payload_frame;
    QString ident = QStringLiteral("new");
    if (failure == QLatin1String("ident"))
        ident.clear();
    else if (failure == QLatin1String("ident cipher"))
        ident_cipher = [](const QByteArray&) { return QByteArray(); };
    else if (failure == QLatin1String("payload cipher"))
        payload_cipher = [](const QByteArray&, quint64) { return QByteArray(); };
    else if (failure == QLatin1String("odd frame"))
        payload_cipher = [](const QByteArray& plain, quint64) { return fake_frame(plain) + 'x'; };
    else if (failure == QLatin1String("gone"))
        QVERIFY(QFile::remove(path));

    QVERIFY(!p->add(ident, "payload", ident_cipher, payload_cipher, 2));
    QCOMPARE(p->error(), quint32(code));
    QVERIFY(!p->contains(QStringLiteral("new")));
    QCOMPARE(p->count(), quint8(1));
    if (failure == QLatin1String("gone"))
        QVERIFY(!QFile::exists(path));
    else
        QCOMPARE(read_file(path), before);
}

void test_firmware_pack::create_and_usable()
{
    const QString path = m_dir.filePath(QStringLiteral("fresh.ovpack"));
    QVERIFY(!usable(path));
    QVERIFY(!create(path, 4));
    QVERIFY(!QFile::exists(path));
    QVERIFY(!create(m_dir.filePath(QStringLiteral("no/such/dir/cache.ovpack")), 3));
    QVERIFY(create(path, 3));
    QVERIFY(usable(path));
    QCOMPARE(QFileInfo(path).size(), qint64(pack::header_size));

    // A count of 0 loads with no blocks, and the path is stored for later adds.
    const auto p = open(path, m_crypto.target_decryptor, m_crypto.ident_decryptor);
    QVERIFY(std::dynamic_pointer_cast<pack_v3>(p));
    QCOMPARE(p->error(), 0u);
    QCOMPARE(p->path(), path);
    QCOMPARE(p->kind(), quint8(pack::kind_cache));
    QVERIFY(p->targets().isEmpty());
    QCOMPARE(p->ident_at(0), QString());
    QVERIFY(create(path, 2));
    QVERIFY(std::dynamic_pointer_cast<pack_v2>(open(path, m_crypto.target_decryptor, m_crypto.ident_decryptor)));
    QVERIFY(!open(m_dir.filePath(QStringLiteral("missing.ovpack")), {}, {}));

    // Loading again forgets what the object held.
    pack_v3 cache;
    QVERIFY(create(path, 3));
    QVERIFY(cache.load(path, fake_open_record, fake_unframe));
    QVERIFY(cache.add("x", "1", fake_frame, fake_payload_frame, 1));
    QVERIFY(create(path, 3));
    QVERIFY(cache.load(path, fake_open_record, fake_unframe));
    QVERIFY(!cache.contains("x"));
    QVERIFY(cache.idents().isEmpty());
}

void test_firmware_pack::crypto_reads_the_client_id_at_each_call()
{
    QByteArray id = client_a;
    const delivery::pack_crypto c = delivery::make_pack_crypto([&id] { return id; });
    const QString path = m_dir.filePath(QStringLiteral("identity.ovpack"));
    QVERIFY(create(path, 3));
    pack_v3 cache;
    QVERIFY(cache.load(path, c.target_decryptor, c.ident_decryptor));
    QVERIFY(cache.add(md5_hex("fw"), "fw", c.ident_encryptor, c.payload_encryptor, 3));

    // Same bytes as the fixed-id set: both bind the same keys.
    pack_v3 fixed;
    QVERIFY(fixed.load(path, m_crypto.target_decryptor, m_crypto.ident_decryptor));
    QCOMPARE(fixed.extract(md5_hex("fw"), m_crypto.payload_decryptor), QByteArray("fw"));

    id = client_b;
    pack_v3 other;
    QVERIFY(!other.load(path, c.target_decryptor, c.ident_decryptor));
    QCOMPARE(other.error(), 12u);
    QVERIFY(c.target_decryptor(QByteArray(47, 'x')).isEmpty());
}

QTEST_GUILESS_MAIN(test_firmware_pack)
#include "test_firmware_pack.moc"
