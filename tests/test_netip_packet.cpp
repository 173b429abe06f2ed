#include "diagnostics/blackbox.h"
#include "netip/codes.h"
#include "netip/jsonaux.h"
#include "netip/packet.h"
#include "netip/packet_wrapper.h"

#include <QElapsedTimer>
#include <QFile>
#include <QTcpServer>
#include <QTcpSocket>
#include <QTemporaryDir>
#include <QtTest>

#include <memory>
#include <type_traits>

using netip::packet;
Q_DECLARE_METATYPE(netip::packet)

namespace
{

QByteArray hex(const char* text)
{
    return QByteArray::fromHex(QByteArray(text).replace(' ', ""));
}

QByteArray serialized(const packet& p)
{
    QByteArray out(int(p.length + packet::header_size), '\x55');
    size_t size = size_t(out.size());
    return p.serialize(out.data(), &size) && size == size_t(out.size()) ? out : QByteArray();
}

QByteArray payload_of(const packet& p)
{
    return p.data() ? QByteArray(p.data(), int(p.payload_size())) : QByteArray();
}

QByteArray frame(uint16_t id, const QByteArray& body)
{
    return serialized(packet(id, body.constData(), size_t(body.size())));
}

// A login packet with one header field changed.
template <typename T> packet with(T packet::*field, std::common_type_t<T> value)
{
    packet p(1000);
    p.*field = value;
    return p;
}

} // namespace

class test_netip_packet : public QObject
{
    Q_OBJECT
private slots:
    void init();
    void cleanup();

    void header_fields_data();
    void header_fields();
    void parse_limits_data();
    void parse_limits();
    void payload_limit();
    void check_ret_data();
    void check_ret();

    void read_whole_frames_data();
    void read_whole_frames();

    void read_failures_data();
    void read_failures();

private:
    int log_count(const QString& text) const;

    std::unique_ptr<QTemporaryDir> m_dir;
    std::shared_ptr<blackbox> m_box;
    std::unique_ptr<QTcpServer> m_server;
    std::unique_ptr<QTcpSocket> m_reader;
    QTcpSocket* m_peer = nullptr; // the accepted end, owned by m_server
};

void test_netip_packet::init()
{
    m_dir = std::make_unique<QTemporaryDir>();
    m_box = std::make_shared<blackbox>(m_dir->filePath(QStringLiteral("blackbox.log")));
    QVERIFY(m_box->open());
    blackbox::set_global(m_box);
    m_server = std::make_unique<QTcpServer>();
    QVERIFY(m_server->listen(QHostAddress::LocalHost, 0));
    m_reader = std::make_unique<QTcpSocket>();
    m_reader->connectToHost(QHostAddress::LocalHost, m_server->serverPort());
    QVERIFY(m_reader->waitForConnected(2000));
    QVERIFY(m_server->waitForNewConnection(2000));
    m_peer = m_server->nextPendingConnection();
    QVERIFY(m_peer);
}

void test_netip_packet::cleanup()
{
    blackbox::set_global(nullptr);
    m_reader.reset();
    m_server.reset();
    m_box.reset();
    m_dir.reset();
}

int test_netip_packet::log_count(const QString& text) const
{
    QFile file(m_box->file_name());
    return file.open(QIODevice::ReadOnly) ? QString::fromUtf8(file.readAll()).split('\n').filter(text).size() : -1;
}

void test_netip_packet::header_fields_data()
{
    QTest::addColumn<packet>("p");
    QTest::addColumn<int>("offset");
    QTest::addColumn<QByteArray>("bytes"); // what the field puts there, little-endian
    QTest::newRow("head") << with(&packet::head, 0xfe) << 0 << hex("fe");
    QTest::newRow("version") << with(&packet::version, 0x7f) << 1 << hex("7f");
    QTest::newRow("reserved1") << with(&packet::reserved1, 0xa1) << 2 << hex("a1");
    QTest::newRow("reserved2") << with(&packet::reserved2, 0xa2) << 3 << hex("a2");
    QTest::newRow("session") << with(&packet::session, 0xd4c3b2a1) << 4 << hex("a1 b2 c3 d4");
    QTest::newRow("sequence") << with(&packet::sequence, 0x8a7b6c5d) << 8 << hex("5d 6c 7b 8a");
    QTest::newRow("total_packets") << with(&packet::total_packets, 0xe1) << 12 << hex("e1");
    QTest::newRow("current_packet") << with(&packet::current_packet, 0xe2) << 13 << hex("e2");
    QTest::newRow("message_id") << with(&packet::message_id, 0xbeef) << 14 << hex("ef be");
    QTest::newRow("length, payload behind the header") << packet(1000, "abc", 3) << 16 << hex("03 00 00 00 616263");
}

// Every field at its width and offset, read back from there, and part of the comparison.
void test_netip_packet::header_fields()
{
    QFETCH(packet, p);
    QFETCH(int, offset);
    QFETCH(QByteArray, bytes);
    const packet login(1000);
    QByteArray expected = hex("ff 01 00 00  00000000  00000000  00 00  e803  00000000");
    expected.replace(offset, bytes.size(), bytes);
    QCOMPARE(serialized(p).toHex(' '), expected.toHex(' '));
    QCOMPARE(packet::detect_payload_size(expected.constData(), size_t(expected.size())), p.length);

    packet back;
    QVERIFY(back.parse(expected.constData(), size_t(expected.size())));
    QCOMPARE(serialized(back).toHex(' '), expected.toHex(' '));
    QVERIFY(back == p);
    QVERIFY(back != login);

    // One byte short of the frame is refused, and the size is left alone.
    QByteArray out(expected.size() - 1, '\0');
    size_t size = size_t(out.size());
    QVERIFY(!p.serialize(out.data(), &size));
    QCOMPARE(size, size_t(out.size()));
}

void test_netip_packet::parse_limits_data()
{
    QTest::addColumn<QByteArray>("wire");
    QTest::addColumn<bool>("parsed");
    QTest::addColumn<uint32_t>("length");
    QTest::addColumn<QByteArray>("payload");
    QTest::addColumn<int>("state"); // 0 well formed, 1 not well formed, 2 bad

    QTest::newRow("one byte short of a header changes nothing")
        << frame(1043, "{}").left(19) << false << 3u << QByteArray("abc") << 0;
    QTest::newRow("bare header keeps the payload held")
        << hex("ff 01 00 00 05000000 00000000 00 00 1504 03000000") << true << 3u << QByteArray("abc") << 0;
    QTest::newRow("length larger than the bytes given")
        << hex("ff 00 00 00 00000000 00000000 00 00 e903 00010000 414243") << true << 256u << QByteArray("ABC") << 0;
    QTest::newRow("reserved1 set") << hex("ff 01 01 00 00000000 00000000 00 00 e903 00000000") << true << 0u
                                   << QByteArray("abc") << 1;
    QTest::newRow("reserved2 isn't looked at")
        << hex("ff 01 00 07 00000000 00000000 00 00 e903 00000000") << true << 0u << QByteArray("abc") << 0;
    QTest::newRow("version 2") << hex("ff 02 00 00 00000000 00000000 00 00 e903 00000000") << true << 0u
                               << QByteArray("abc") << 1;
    QTest::newRow("head below ff is garbage")
        << hex("fe 01 00 00 00000000 00000000 00 00 e903 00000000") << true << 0u << QByteArray("abc") << 2;
}

void test_netip_packet::parse_limits()
{
    QFETCH(QByteArray, wire);
    QFETCH(bool, parsed);
    QFETCH(uint32_t, length);
    QFETCH(QByteArray, payload);
    QFETCH(int, state);

    packet p(1020, "abc", 3);
    p.session = 9;
    const packet before(p);
    QCOMPARE(p.parse(wire.constData(), size_t(wire.size())), parsed);
    QCOMPARE(p == before, !parsed);
    QCOMPARE(p.length, length);
    QCOMPARE(packet::detect_payload_size(wire.constData(), size_t(wire.size())), parsed ? length : 0u);
    QCOMPARE(p.well_formed(), state == 0);
    QCOMPARE(p.bad(), state == 2);
    // What is held stays consistent for everything that reads the payload.
    if (length > 0) {
        QCOMPARE(payload_of(p), payload);
        QCOMPARE(payload_of(packet(p)), payload);
    }
}

void test_netip_packet::payload_limit()
{
    const QByteArray limit(32768, 'p');
    const QByteArray over(32769, 'o');
    QVERIFY(!packet(1540, limit.constData(), size_t(limit.size())).bad());
    const packet refused(1540, over.constData(), size_t(over.size()));
    QVERIFY(refused.bad());
    QCOMPARE(refused.length, 0u);
    // A refused payload leaves the old one in place.
    packet assigned(1540, "keep", 4);
    QVERIFY(!assigned.assign(over.constData(), size_t(over.size())));
    QCOMPARE(payload_of(assigned), QByteArray("keep"));
    QVERIFY(assigned.assign(limit.constData(), size_t(limit.size())));
    QCOMPARE(payload_of(assigned), limit);
    // A copy of an empty buffer gets a whole one, zeroed.
    const packet empty(1540, "", 0);
    packet copy(empty);
    copy.length = uint32_t(packet::max_payload);
    QCOMPARE(payload_of(copy), QByteArray(int(packet::max_payload), '\0'));
}

void test_netip_packet::check_ret_data()
{
    QTest::addColumn<QByteArray>("payload");
    QTest::addColumn<uint16_t>("ret");
    QTest::addColumn<bool>("logs_missing");
    QTest::newRow("good reply with terminator") << QByteArray("{\"Ret\":100}\0", 12) << uint16_t(100) << false;
    QTest::newRow("value truncated to 16 bits") << QByteArray("{\"Ret\":70000} ") << uint16_t(4464) << false;
    QTest::newRow("not JSON") << QByteArray("garbage\0", 8) << uint16_t(65534) << false;
    QTest::newRow("last byte is part of the body") << QByteArray("{\"Ret\":100}") << uint16_t(65534) << false;
    QTest::newRow("object without Ret") << QByteArray("{\"Name\":\"x\"}\0", 13) << uint16_t(65534) << true;
}

void test_netip_packet::check_ret()
{
    QFETCH(QByteArray, payload);
    QFETCH(bool, logs_missing);
    QTEST(jsonaux::check_ret(packet(1001, payload.constData(), size_t(payload.size()))), "ret");
    QCOMPARE(log_count(QStringLiteral("error, No such member: Ret")), logs_missing ? 1 : 0);
}

void test_netip_packet::read_whole_frames_data()
{
    QTest::addColumn<QByteArray>("wire");
    QTest::addColumn<QString>("logged");
    QTest::newRow("the largest payload") << frame(1522, QByteArray(32768, 'x'))
                                         << "debug, [<<<] Received 32788 bytes, Upgrade data (---)";
    QTest::newRow("a reply's return code") << frame(1001, QByteArray("{\"Ret\":203}\0", 12))
                                           << "debug, [<<<] Received 32 bytes, Logout request (Incorrect password)";
    QTest::newRow("an unknown message") << frame(1530, QByteArray("{\"Ret\":100}\0", 12))
                                        << "debug, [<<<] Received 32 bytes, -unknown[1530]- (OK)";
}

// A frame comes whole, header and payload, and the log names it; what is written goes out whole.
void test_netip_packet::read_whole_frames()
{
    QFETCH(QByteArray, wire);
    QFETCH(QString, logged);
    packet sent;
    QVERIFY(sent.parse(wire.constData(), size_t(wire.size())));
    QVERIFY(packet_wrapper::write_to(m_peer, sent));
    QVERIFY(m_peer->waitForBytesWritten(1000));
    QCOMPARE(log_count(QString(logged).replace("[<<<] Received", "[>>>] Sent").section(" (", 0, 0)), 1);

    packet p(1020, "abc", 3);
    QVERIFY(packet_wrapper::read_from(m_reader.get(), p));
    QCOMPARE(serialized(p).toHex(), wire.toHex());
    QCOMPARE(log_count(logged), 1);
}

void test_netip_packet::read_failures_data()
{
    QTest::addColumn<QByteArray>("wire");
    QTest::addColumn<bool>("close");
    QTest::addColumn<int>("min_ms");
    QTest::addColumn<int>("max_ms");
    QTest::addColumn<QStringList>("logged");
    QTest::addColumn<bool>("recovers"); // the next frame reads
    const QString failure = QStringLiteral("error, Could not read from socket: ");
    QTest::newRow("header without payload is consumed")
        << frame(1021, QByteArray()) + frame(1043, QByteArray("{\"Ret\":100}\0", 12)) << false << 0 << 2000
        << QStringList { failure + "Header size detecting failure" } << true;
    // 500 attempts of 10 ms; progress doesn't refill the budget.
    QTest::newRow("missing payload fails after the attempt budget")
        << frame(1043, QByteArray("0123456789")).left(25) << false << 4000 << 9000
        << QStringList { "warning, Got 5 bytes, expected 10", failure + "Payload reading failed" } << false;
    QTest::newRow("peer closing ends the read") << hex("ff 01 00 00 00000000") << true << 0 << 2500
                                                << QStringList { failure + "Header reading failed" } << false;
    QTest::newRow("one byte over the payload limit is refused without reading")
        << hex("ff 01 00 00 00000000 00000000 00 00 1304 01800000") + QByteArray(64, 'z') << false << 0 << 2000
        << QStringList { failure + "Payload size over the limit" } << false;
    QTest::newRow("a length of 65536 is over the limit too")
        << hex("ff 01 00 00 00000000 00000000 00 00 1304 00000100") + QByteArray(64, 'z') << false << 0 << 2000
        << QStringList { failure + "Payload size over the limit" } << false;
}

void test_netip_packet::read_failures()
{
    QFETCH(QByteArray, wire);
    QFETCH(bool, close);
    QFETCH(int, min_ms);
    QFETCH(int, max_ms);
    QFETCH(QStringList, logged);
    QFETCH(bool, recovers);
    m_peer->write(wire);
    QVERIFY(m_peer->waitForBytesWritten(1000));
    if (close)
        m_peer->close();

    packet p(1020, "abc", 3);
    QElapsedTimer timer;
    timer.start();
    QVERIFY(!packet_wrapper::read_from(m_reader.get(), p));
    QVERIFY2(timer.elapsed() >= min_ms && timer.elapsed() <= max_ms, qPrintable(QString::number(timer.elapsed())));
    for (const QString& line : logged)
        QVERIFY2(log_count(line) == 1, qPrintable(line));
    QCOMPARE(p.message_id, uint16_t(1020));
    QCOMPARE(payload_of(p), QByteArray("abc"));
    if (recovers) {
        QVERIFY(packet_wrapper::read_from(m_reader.get(), p));
        QCOMPARE(jsonaux::check_ret(p), uint16_t(100));
    }
}

QTEST_GUILESS_MAIN(test_netip_packet)
#include "test_netip_packet.moc"
