#include "delivery/pack_crypto.h"
#include "firmware_pack/pack_files.h"
#include "firmware_pack/pack_v2.h"
#include "firmware_pack/pack_v3.h"
#include "tests/support/packtool_run.h"
#include "tests/support/small_disk.h"

#include <QCryptographicHash>
#include <QTemporaryDir>
#include <QtEndian>
#include <QtTest>

using namespace firmware_pack;

namespace
{

const QByteArray client_a = QByteArray::fromHex("0011223344556677");

QByteArray le(quint64 value, int size)
{
    QByteArray out(8, '\0');
    qToLittleEndian(value, out.data());
    return out.left(size);
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
struct fake {
    static QByteArray frame(const QByteArray& plain)
    {
        return le(quint64(plain.size()), 4) + plain + QByteArray((16 - (plain.size() + 4) % 16) % 16, '\0');
    }
    static QByteArray unframe(const QByteArray& f)
    {
        const quint32 size = f.size() < 16 || f.size() % 16 ? UINT32_MAX : qFromLittleEndian<quint32>(f.constData());
        return size > quint32(f.size() - 4) ? QByteArray() : f.mid(4, int(size));
    }
    static QByteArray xored(QByteArray data, quint64 session)
    {
        for (char& c : data)
            c = char(c ^ char(session & 0xff));
        return data;
    }
    static QByteArray payload_frame(const QByteArray& plain, quint64 session) { return xored(frame(plain), session); }
    static QByteArray payload_open(const QByteArray& f, quint64 session) { return unframe(xored(f, session)); }
    static QByteArray record(const QByteArray& serial) { return serial + QByteArray(47 - serial.size(), 0) + '\x5a'; }
    static QByteArray open_record(const QByteArray& r) { return r.size() == 48 && r[47] == 0x5a ? r.left(47) : ""; }
};

QByteArray element(quint16 tag, const QByteArray& data, quint32 length, bool framed)
{
    return le(tag, 2) + le(framed ? quint32(data.size() / 16) : 0, 4) + le(length, 4) + data;
}

// A file written by hand from the format, with the offsets of its parts by name.
struct image {
    QByteArray bytes;
    QMap<QString, qint64> at;

    void add(const QString& name, const QByteArray& part)
    {
        at.insert(name, bytes.size());
        bytes += part;
    }
    // "name", "name+delta" or "+delta" from the start.
    qint64 offset(const QString& where) const
    {
        const QStringList parts = where.split(QLatin1Char('+'));
        return (parts[0].isEmpty() ? 0 : at.value(parts[0], -1)) + parts.value(1).toLongLong();
    }
};

const QByteArray firmware_one = pattern(300, 1);
const QByteArray firmware_two = pattern(77, 2);

// Two targets, two blocks; the second target points at the second block. Only a pack has targets.
image v2_pack_image(quint8 kind = pack::kind_pack)
{
    image m { QByteArray("FFCF\x02") + char(kind) + char(2) + le(1700000000, 4), {} };
    if (kind == pack::kind_pack) {
        m.add("reserved", le(0xdeadbeef, 4));
        m.add("target_count", QByteArray(1, 2));
        m.add("row0", fake::record("SN-A") + char(0));
        m.add("row1", fake::record("SN-B") + char(1));
    }
    const QByteArray firmwares[] = { firmware_one, firmware_two };
    for (int i = 0; i < 2; ++i) {
        const quint64 session = 0x1111111111111101ull + quint64(i);
        const QByteArray ident = fake::frame(md5_hex(firmwares[i]).toLatin1());
        const QByteArray payload = fake::payload_frame(firmwares[i], session);
        const quint64 start = quint64(m.bytes.size());
        m.add(QStringLiteral("block%1").arg(i),
            le(31 + quint64(ident.size() + payload.size()), 4) + le(start + 31, 4) + char(ident.size() / 16)
                + le(32, 2) + le(start + 31 + quint64(ident.size()), 4) + le(quint64(payload.size() / 16), 4)
                + le(quint64(firmwares[i].size()), 4) + le(session, 8));
        m.add(QStringLiteral("ident%1").arg(i), ident + payload);
    }
    return m;
}

// Two target rows, a script, then two firmware blocks whose elements come in different orders.
image v3_pack_image()
{
    image m { QByteArray("FFCF\x03\x02\x05") + le(1700000000, 4), {} };
    m.add("ate0", char(0) + le(49, 4) + fake::record("SN-A") + char(0));
    m.add("ate1", char(0) + le(49, 4) + fake::record("SN-B") + char(1));
    m.add("script", char(2) + le(30, 4) + char(9) + element(80, QByteArray("reboot all\0", 11), 11, false));
    const quint64 s0 = 0x2222222222222201ull, s1 = 0x3333333333333302ull;
    const QByteArray fw0 = element(86, fake::frame(md5_hex(firmware_one).toLatin1()), 32, true)
        + element(21332, "xcloud", 6, false) + element(80, fake::payload_frame(firmware_one, s0), 300, true);
    m.add("fw0", char(1) + le(quint64(fw0.size() + 18), 4) + char(4) + element(83, le(s0, 8), 8, false));
    m.add("fw0_version", fw0);
    const QByteArray fw1[] = { element(86, fake::frame(md5_hex(firmware_two).toLatin1()), 32, true),
        element(83, le(s1, 8), 8, false), element(80, fake::payload_frame(firmware_two, s1), 77, true) };
    m.add("fw1", char(1) + le(quint64(fw1[0].size() + fw1[1].size() + fw1[2].size()), 4) + char(3) + fw1[0] + fw1[1]);
    m.add("fw1_payload", fw1[2]);
    return m;
}

std::shared_ptr<pack> make_pack(int version)
{
    return version == 2 ? std::shared_ptr<pack>(std::make_shared<pack_v2>()) : std::make_shared<pack_v3>();
}

} // namespace

class test_firmware_pack : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase();
    void hand_written_packs_data();
    void hand_written_packs();
    void blocks_as_written_data();
    void blocks_as_written();
    void tool_packs_load_data();
    void tool_packs_load();
    void program_writes_pass_tool_check_data();
    void program_writes_pass_tool_check();
    void foreign_client_id_data();
    void foreign_client_id();
    void block_count_stops_at_255_data();
    void block_count_stops_at_255();
    void full_disk_leaves_the_cache_as_it_was();
    void partial_block_past_the_count_is_ignored();
    void add_failures_leave_the_file_data();
    void add_failures_leave_the_file();

private:
    std::shared_ptr<pack> open_real(const QString& path) const
    {
        return open(path, m_crypto.target_decryptor, m_crypto.ident_decryptor);
    }
    bool add_real(pack& p, const QByteArray& fw, quint64 session) const
    {
        return p.add(md5_hex(fw), fw, m_crypto.ident_encryptor, m_crypto.payload_encryptor, session);
    }
    QTemporaryDir m_dir;
    delivery::pack_crypto m_crypto = delivery::make_pack_crypto(client_a);
};

void test_firmware_pack::initTestCase()
{
    QVERIFY(m_dir.isValid());
    QVERIFY2(QFile::exists(packtool_path()), qPrintable(packtool_path()));
}

void test_firmware_pack::hand_written_packs_data()
{
    QTest::addColumn<int>("version");
    QTest::addColumn<QString>("damage"); // "cut <where>", "patch <where> <hex bytes>", "kind <kind>" or none
    QTest::addColumn<int>("code"); // error of the load; -1: not a file the class reads
    QTest::addColumn<QString>("position"); // empty: -1
    QTest::newRow("empty file") << 3 << "cut +0" << 1 << "+0";
    QTest::newRow("wrong magic") << 2 << "patch +3 58" << 2 << "+0";
    QTest::newRow("no version") << 3 << "cut +4" << 3 << "+4";
    QTest::newRow("version 4") << 3 << "patch +4 04" << -1 << "";
    QTest::newRow("no kind") << 3 << "cut +5" << 4 << "+5";
    QTest::newRow("no count") << 2 << "cut +6" << 5 << "+6";
    QTest::newRow("timestamp cut short") << 3 << "cut +9" << 6 << "+7";
    QTest::newRow("v2: whole, targets count all blocks") << 2 << "" << 0 << "";
    QTest::newRow("v2: an unknown kind has no target table") << 2 << "kind 3" << 0 << "";
    QTest::newRow("v2: reserved word cut short") << 2 << "cut reserved+3" << 7 << "reserved";
    QTest::newRow("v2: no target count") << 2 << "cut target_count" << 8 << "target_count";
    QTest::newRow("v2: target record cut short") << 2 << "cut row0+20" << 9 << "row0";
    QTest::newRow("v2: index byte missing") << 2 << "cut row1+48" << 10 << "row1+48";
    QTest::newRow("v2: target doesn't decrypt") << 2 << "patch row1+47 00" << 11 << "row1";
    QTest::newRow("v2: no block header") << 2 << "cut block0" << 12 << "block0";
    QTest::newRow("v2: ident doesn't decrypt") << 2 << "patch ident1 ffff" << 13 << "block1";
    QTest::newRow("v2: block length beyond the file") << 2 << "patch block0 f0ffffff" << 12 << "block0+4294967280";
    QTest::newRow("v3: whole, elements in any order") << 3 << "" << 0 << "";
    QTest::newRow("v3: a script element of another tag is kept empty") << 3 << "patch script+6 51" << 0 << "";
    QTest::newRow("v3: no block header") << 3 << "cut ate0" << 9 << "ate0";
    QTest::newRow("v3: unknown block kind") << 3 << "patch ate1 07" << 10 << "ate1";
    QTest::newRow("v3: target doesn't decrypt") << 3 << "patch ate1+52 00" << 11 << "ate1";
    QTest::newRow("v3: ident doesn't decrypt") << 3 << "patch fw0_version+10 ffff" << 12 << "fw0";
    QTest::newRow("v3: no Version element") << 3 << "patch fw0_version 57" << 13 << "fw0";
    QTest::newRow("v3: Version size beyond the file") << 3 << "patch fw0_version+2 ffffffff" << 13 << "fw0";
    QTest::newRow("v3: count beyond the blocks") << 3 << "patch +6 06" << 9 << "end";
    QTest::newRow("v3: payload cut short still loads") << 3 << "cut fw1_payload+30" << 0 << "";
}

// Every damage gives its code at its place; none crashes, hangs or allocates what the file doesn't hold.
void test_firmware_pack::hand_written_packs()
{
    QFETCH(int, version);
    QFETCH(QString, damage);
    QFETCH(int, code);
    QFETCH(QString, position);
    const QStringList what = damage.split(' ');
    const quint8 kind = what[0] == QLatin1String("kind") ? quint8(what[1].toUInt()) : quint8(pack::kind_pack);
    image m = version == 2 ? v2_pack_image(kind) : v3_pack_image();
    m.at.insert("end", m.bytes.size());
    if (what[0] == QLatin1String("cut"))
        m.bytes.truncate(int(m.offset(what[1])));
    if (what[0] == QLatin1String("patch"))
        m.bytes.replace(int(m.offset(what[1])), what[2].size() / 2, QByteArray::fromHex(what[2].toLatin1()));
    const QString path = m_dir.filePath(QStringLiteral("hand.ovpack"));
    QVERIFY(write_file(path, m.bytes));

    // Past the first three fields the version is known, and open gives an object with the error.
    const auto opened = open(path, fake::open_record, fake::unframe);
    QCOMPARE(bool(opened), code == 0 || code > 3);
    if (code < 0)
        return;
    const auto p = make_pack(version);
    QCOMPARE(p->load(path, fake::open_record, fake::unframe), code == 0);
    QCOMPARE(p->error(), quint32(code));
    QCOMPARE(p->error_position(), position.isEmpty() ? qint64(-1) : m.offset(position));
    if (opened)
        QCOMPARE(opened->error(), quint32(code));
    QCOMPARE(p->path(), code ? QString() : path);
    if (code)
        return;
    QCOMPARE(p->version(), quint8(version));
    QCOMPARE(p->kind(), kind);
    QCOMPARE(p->timestamp(), 1700000000u);
    QCOMPARE(p->targets(), (kind == pack::kind_pack ? target_list { { "SN-A", 0 }, { "SN-B", 1 } } : target_list()));
    QCOMPARE((QStringList { p->ident_at(0), p->ident_at(1), p->ident_at(2) }),
        (QStringList { md5_hex(firmware_one), md5_hex(firmware_two), QString() }));
    // A cut in the last payload is noticed only when that payload is taken out.
    QCOMPARE(p->extract(md5_hex(firmware_one), fake::payload_open), firmware_one);
    QCOMPARE(p->extract(md5_hex(firmware_two), fake::payload_open), what[0] == "cut" ? QByteArray() : firmware_two);
    QVERIFY(p->extract(md5_hex("absent"), fake::payload_open).isEmpty());
    QCOMPARE(p->sdk_type(md5_hex(firmware_one)), version == 3 ? QStringLiteral("xcloud") : QString());
    QCOMPARE(p->sdk_type(md5_hex(firmware_two)), QString());
    if (version == 2) {
        QCOMPARE(std::static_pointer_cast<pack_v2>(p)->reserved(), kind == pack::kind_pack ? 0xdeadbeefu : 0u);
        return;
    }
    const auto v3 = std::static_pointer_cast<pack_v3>(p);
    QCOMPARE(v3->scripts(), (pack_v3::script_set { { what[0] == "patch" ? "" : "reboot all", 9 } }));
    QCOMPARE(v3->idents(), (QStringList { md5_hex(firmware_one), md5_hex(firmware_two) }));
}

void test_firmware_pack::blocks_as_written_data()
{
    QTest::addColumn<int>("version");
    QTest::addColumn<QByteArray>("block"); // what an add of "kept" puts behind the header
    const quint64 session = 0x0102030405060708ull;
    const QByteArray ident = fake::frame("kept");
    const QByteArray payload = fake::payload_frame("data", session);
    const QByteArray v2 = le(31 + 16 + 16, 4) + le(11 + 31, 4) + char(1) + le(4, 2) + le(11 + 31 + 16, 4) + le(1, 4)
        + le(4, 4) + le(session, 8) + ident + payload;
    const QByteArray v3 = char(1) + le(18 + 26 + 26, 4) + char(3) + element(83, le(session, 8), 8, false)
        + element(86, ident, 4, true) + element(80, payload, 4, true);
    QTest::newRow("v2: 31-byte header with absolute offsets, then the frames") << 2 << v2;
    QTest::newRow("v3: firmware block of Session, Version, Payload") << 3 << v3;
}

// The writer byte for byte: a cache of one block, its count and time in the header.
void test_firmware_pack::blocks_as_written()
{
    QFETCH(int, version);
    QFETCH(QByteArray, block);
    const QString path = m_dir.filePath(QStringLiteral("written.ovpack"));
    QVERIFY(create(path, quint8(version)));
    const auto p = make_pack(version);
    QVERIFY(p->load(path, fake::open_record, fake::unframe));
    const quint32 before = quint32(QDateTime::currentSecsSinceEpoch());
    QVERIFY(p->add("kept", "data", fake::frame, fake::payload_frame, 0x0102030405060708ull));
    const QByteArray bytes = read_file(path);
    const quint32 stamp = qFromLittleEndian<quint32>(bytes.constData() + 7);
    QVERIFY(stamp >= before && stamp <= quint32(QDateTime::currentSecsSinceEpoch()));
    QCOMPARE(p->timestamp(), stamp);
    const QByteArray header = QByteArray("FFCF") + char(version) + char(pack::kind_cache) + char(1) + le(stamp, 4);
    QCOMPARE(bytes.toHex(' '), (header + block).toHex(' '));
}

void test_firmware_pack::tool_packs_load_data()
{
    QTest::addColumn<int>("version");
    QTest::newRow("version 2") << 2;
    QTest::newRow("version 3 with SDK types") << 3;
}

// Packs from the independent writer: serials, shared blocks, SDK types and payloads come through.
void test_firmware_pack::tool_packs_load()
{
    QFETCH(int, version);
    const QString sdk = version == 3 ? QStringLiteral(":xcloud") : QString();
    // Past 1 MiB the payload's count of 16-byte units needs more than 16 bits.
    const QMap<QString, QByteArray> files { { "ipc", pattern(1100000, 3) }, { "nvr", pattern(1, 4) }, { "empty", {} } };
    for (auto f = files.begin(); f != files.end(); ++f)
        QVERIFY(write_file(m_dir.filePath(f.key()), f.value()));
    const auto at = [&](const QString& file) { return m_dir.filePath(file); };
    const QString path = at("tool.ovpack");
    QCOMPARE(run_packtool({ "build", "-i", client_a.toHex(), "-f", QString::number(version), "--force", "-o", path,
                 "SN0003:" + at("ipc") + sdk, "SN0001:" + at("nvr"), "sn0002:" + at("ipc") + sdk,
                 "ABCDEFGHIJKLMNOPQRSTUVWXYZ01234:" + at("empty") }),
        0);

    const auto p = open_real(path);
    QVERIFY(p);
    QCOMPARE(p->error(), 0u);
    QCOMPARE(p->version(), quint8(version));
    QCOMPARE(p->kind(), quint8(pack::kind_pack));
    const target_list targets = p->targets();
    const QMap<QString, QString> file_of { { "SN0003", "ipc" }, { "SN0001", "nvr" }, { "sn0002", "ipc" },
        { "ABCDEFGHIJKLMNOPQRSTUVWXYZ01234", "empty" } };
    QStringList serials;
    for (const auto& t : targets) {
        serials << t.first;
        const QByteArray expected = files[file_of[t.first]];
        const QString ident = p->ident_at(t.second);
        QCOMPARE(ident, md5_hex(expected));
        QVERIFY(p->contains(ident));
        QCOMPARE(p->extract(ident, m_crypto.payload_decryptor), expected);
        QCOMPARE(p->sdk_type(ident), file_of[t.first] == "ipc" ? sdk.mid(1) : QString());
    }
    QCOMPARE(serials, (QStringList { "ABCDEFGHIJKLMNOPQRSTUVWXYZ01234", "SN0001", "SN0003", "sn0002" }));
    QCOMPARE(targets.at(2).second, targets.at(3).second); // equal files share one block
    QCOMPARE(p->ident_at(3), QString());
}

void test_firmware_pack::program_writes_pass_tool_check_data()
{
    QTest::addColumn<int>("version");
    QTest::newRow("version 2") << 2;
    QTest::newRow("version 3") << 3;
}

// The program's cache read back by the independent reader: payloads open and their MD5 match.
void test_firmware_pack::program_writes_pass_tool_check()
{
    QFETCH(int, version);
    const QString path = m_dir.filePath(QStringLiteral("program%1.ovpack").arg(version));
    QVERIFY(!usable(path) && !create(path, 4) && !QFile::exists(path));
    QVERIFY(create(path, quint8(version)) && usable(path));
    QCOMPARE(QFileInfo(path).size(), qint64(pack::header_size));
    const auto p = open_real(path);
    QVERIFY(p && p->error() == 0);
    QCOMPARE(p->version(), quint8(version));
    QCOMPARE(p->kind(), quint8(pack::kind_cache));
    const QList<QByteArray> files { pattern(33333, 7), QByteArray(), pattern(4096, 8) };
    for (int i = 0; i < files.size(); ++i) {
        QVERIFY(add_real(*p, files[i], 0xfedcba9876543210ull + quint64(i)));
        // The object knows the new block at once, as a second device of the same run needs it.
        QCOMPARE(p->ident_at(quint8(i)), md5_hex(files[i]));
    }
    QCOMPARE(p->count(), quint8(3));

    QByteArray listing;
    QCOMPARE(run_packtool({ "check", "-i", client_a.toHex(), path }, &listing), 0);
    QCOMPARE(listing.count("ok ("), 3);
    QCOMPARE(run_packtool({ "list", "-i", client_a.toHex(), path }, &listing), 0);
    for (int i = 0; i < files.size(); ++i) {
        const QString line = QStringLiteral("firmware %1 block %1 ident %2").arg(i).arg(md5_hex(files[i]));
        QVERIFY2(listing.contains(line.toLatin1()), listing.constData());
    }
    QVERIFY(listing.contains("session 18364758544493064720"));
    QVERIFY(!listing.contains("note"));
    // A later run opens each block with the session stored in it, not its own.
    const auto later = open_real(path);
    QVERIFY(later && later->error() == 0 && later->targets().isEmpty());
    for (const QByteArray& f : files)
        QCOMPARE(later->extract(md5_hex(f), m_crypto.payload_decryptor), f);
}

void test_firmware_pack::foreign_client_id_data()
{
    QTest::addColumn<bool>("tool_pack"); // else a cache the program wrote
    QTest::addColumn<int>("version");
    QTest::addColumn<int>("code");
    QTest::newRow("v3 pack: targets don't open") << true << 3 << 11;
    QTest::newRow("v2 cache: idents don't open") << false << 2 << 13;
    QTest::newRow("v3 cache: idents don't open") << false << 3 << 12;
}

// Written under one client id, read under another; the crypto functions ask for the id at each call.
void test_firmware_pack::foreign_client_id()
{
    QFETCH(bool, tool_pack);
    QFETCH(int, version);
    QFETCH(int, code);
    QByteArray id = client_a;
    const delivery::pack_crypto c = delivery::make_pack_crypto([&id] { return id; });
    const QByteArray fw = pattern(4000, 11);
    QVERIFY(write_file(m_dir.filePath("fw.bin"), fw));
    const QString path = m_dir.filePath(QStringLiteral("foreign.ovpack"));
    // A wrong key passes the padding check about once in 256 frames and the format has no other check;
    // a fresh file has fresh IVs, so three in a row passing by chance would be a real fault.
    quint32 error = 0;
    for (int attempt = 0; attempt < 3 && error != quint32(code); ++attempt) {
        id = client_a;
        QFile::remove(path);
        if (tool_pack) {
            QCOMPARE(run_packtool({ "build", "-i", client_a.toHex(), "-f", QString::number(version), "--force", "-o",
                         path, "SN1:" + m_dir.filePath("fw.bin") }),
                0);
        } else {
            QVERIFY(create(path, quint8(version)));
            const auto writer = make_pack(version);
            QVERIFY(writer->load(path, c.target_decryptor, c.ident_decryptor));
            QVERIFY(writer->add(md5_hex(fw), fw, c.ident_encryptor, c.payload_encryptor, 5));
        }
        // The set bound to a fixed id binds the same keys.
        const auto p = make_pack(version);
        QVERIFY(p->load(path, m_crypto.target_decryptor, m_crypto.ident_decryptor));
        QCOMPARE(p->extract(md5_hex(fw), m_crypto.payload_decryptor), fw);
        QCOMPARE(run_packtool({ "check", "-i", client_a.toHex(), path }), 0);
        id = QByteArray::fromHex("8899aabbccddeeff");
        const auto q = make_pack(version);
        error = q->load(path, c.target_decryptor, c.ident_decryptor) ? 0 : q->error();
    }
    QCOMPARE(error, quint32(code));
    QVERIFY(c.target_decryptor(QByteArray(47, 'x')).isEmpty());
}

void test_firmware_pack::block_count_stops_at_255_data()
{
    QTest::addColumn<int>("version");
    QTest::newRow("v2") << 2;
    QTest::newRow("v3") << 3;
}

// The count is one byte: a 256th block would wrap it to 0, and the next load would see an empty file.
void test_firmware_pack::block_count_stops_at_255()
{
    QFETCH(int, version);
    const QString path = m_dir.filePath(QStringLiteral("full%1.ovpack").arg(version));
    QVERIFY(create(path, quint8(version)));
    const auto p = make_pack(version);
    QVERIFY(p->load(path, fake::open_record, fake::unframe));
    for (int i = 0; i < 255; ++i)
        QVERIFY(p->add(QString::number(i), QByteArray::number(i), fake::frame, fake::payload_frame, quint64(i)));
    const QByteArray full = read_file(path);
    QVERIFY(!p->add("255", "255", fake::frame, fake::payload_frame, 255));
    QCOMPARE(p->count(), quint8(255));
    QVERIFY(!p->contains("255"));
    QCOMPARE(read_file(path), full);
    const auto again = make_pack(version);
    QVERIFY(again->load(path, fake::open_record, fake::unframe));
    QCOMPARE(again->count(), quint8(255));
    QCOMPARE(again->extract("254", fake::payload_open), QByteArray("254"));
}

// A block that doesn't fit on the disk is taken off again: the file is as it was, and the next add and load work.
void test_firmware_pack::full_disk_leaves_the_cache_as_it_was()
{
    RUN_ON_SMALL_DISK(64);
    const QString path = QDir(small_disk::folder()).filePath(QStringLiteral("cache.ovpack"));
    QVERIFY(create(path, 3));
    pack_v3 cache;
    QVERIFY(cache.load(path, m_crypto.target_decryptor, m_crypto.ident_decryptor));
    QVERIFY(add_real(cache, firmware_one, 1));
    const QByteArray before = read_file(path);
    QVERIFY(!add_real(cache, pattern(100000, 3), 2));
    QCOMPARE(read_file(path), before);
    QCOMPARE(cache.count(), quint8(1));
    QVERIFY(!cache.contains(md5_hex(pattern(100000, 3))));

    QVERIFY(add_real(cache, firmware_two, 3));
    pack_v3 again;
    QVERIFY(again.load(path, m_crypto.target_decryptor, m_crypto.ident_decryptor));
    QCOMPARE(again.idents(), (QStringList { md5_hex(firmware_one), md5_hex(firmware_two) }));
    QCOMPARE(again.extract(md5_hex(firmware_two), m_crypto.payload_decryptor), firmware_two);
}

// A write that failed half-way leaves bytes that the old count keeps out of the next load.
void test_firmware_pack::partial_block_past_the_count_is_ignored()
{
    const QString path = m_dir.filePath(QStringLiteral("partial.ovpack"));
    QVERIFY(create(path, 3));
    pack_v3 cache;
    QVERIFY(cache.load(path, m_crypto.target_decryptor, m_crypto.ident_decryptor));
    QVERIFY(add_real(cache, "one", 1));
    const int whole = read_file(path).size();
    QVERIFY(add_real(cache, "two", 2));
    QByteArray torn = read_file(path).left(whole + 40);
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
    for (int v : { 2, 3 }) {
        QTest::addRow("v%d: ident cipher fails", v) << v << "ident";
        QTest::addRow("v%d: payload frame not whole blocks", v) << v << "payload";
        QTest::addRow("v%d: file gone gives error 1 and isn't made anew", v) << v << "gone";
    }
}

void test_firmware_pack::add_failures_leave_the_file()
{
    QFETCH(int, version);
    QFETCH(QString, failure);
    const QString path = m_dir.filePath(QStringLiteral("addfail.ovpack"));
    QVERIFY(create(path, quint8(version)));
    const auto p = make_pack(version);
    QVERIFY(p->load(path, fake::open_record, fake::unframe));
    QVERIFY(p->add("kept", "data", fake::frame, fake::payload_frame, 1));
    const QByteArray before = read_file(path);
    ident_encryptor ident_cipher = fake::frame;
    payload_encryptor payload_cipher = fake::payload_frame;
    if (failure == QLatin1String("ident"))
        ident_cipher = [](const QByteArray&) { return QByteArray(); };
    if (failure == QLatin1String("payload"))
        payload_cipher = [](const QByteArray& plain, quint64) { return fake::frame(plain) + 'x'; };
    if (failure == QLatin1String("gone"))
        QVERIFY(QFile::remove(path));
    const bool gone = failure == QLatin1String("gone");
    QVERIFY(!p->add("new", "payload", ident_cipher, payload_cipher, 2));
    QCOMPARE(p->error(), quint32(gone ? 1 : 0));
    QVERIFY(!p->contains(QStringLiteral("new")));
    QCOMPARE(p->count(), quint8(1));
    QCOMPARE(read_file(path), gone ? QByteArray() : before);
    QCOMPARE(QFile::exists(path), !gone);
}

QTEST_GUILESS_MAIN(test_firmware_pack)
#include "test_firmware_pack.moc"
