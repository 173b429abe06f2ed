#include "diagnostics/blackbox.h"
#include "netip/codes.h"
#include "netip/jsonaux.h"
#include "netip/packet.h"
#include "netip/packet_wrapper.h"

#include <QElapsedTimer>
#include <QFile>
#include <QRegularExpression>
#include <QTcpServer>
#include <QTcpSocket>
#include <QTemporaryDir>
#include <QThread>
#include <QtTest>

#include <memory>

using netip::packet;

namespace {

QByteArray hex(const char* text)
{
    return QByteArray::fromHex(QByteArray(text).replace(' ', ""));
}

QByteArray serialized(const packet& p)
{
    QByteArray out(int(p.length + packet::header_size), '\x55');
    size_t size = size_t(out.size());
    if (!p.serialize(out.data(), &size) || size != size_t(out.size()))
        return QByteArray();
    return out;
}

QByteArray payload_of(const packet& p)
{
    return p.data() ? QByteArray(p.data(), int(p.payload_size())) : QByteArray();
}

// A raw frame with a JSON body and the device's terminator byte.
QByteArray frame(uint16_t id, const QByteArray& body, uint32_t session = 0)
{
    packet p(id, body.constData(), size_t(body.size()));
    p.session = session;
    return serialized(p);
}

// Writes `bytes` one at a time from its own thread, so that a reader blocked on the main thread
// sees them arrive slowly; pacing a slow peer is what the sleep is for.
class slow_writer final : public QThread
{
public:
    slow_writer(uint16_t port, QByteArray bytes, int gap_ms)
        : m_port(port)
        , m_bytes(std::move(bytes))
        , m_gap_ms(gap_ms)
    {
    }

protected:
    void run() override
    {
        QTcpSocket socket;
        socket.connectToHost(QHostAddress::LocalHost, m_port);
        if (!socket.waitForConnected(2000))
            return;
        for (char byte : m_bytes) {
            QThread::msleep(ulong(m_gap_ms));
            socket.write(&byte, 1);
            socket.waitForBytesWritten(1000);
        }
        socket.waitForReadyRead(500);
    }

private:
    uint16_t m_port;
    QByteArray m_bytes;
    int m_gap_ms;
};

} // namespace

class test_netip_packet : public QObject
{
    Q_OBJECT
private slots:
    void init();
    void cleanup();

    void serialize_layout_data();
    void serialize_layout();
    void serialize_refuses_short_buffer();
    void parse_short_input_changes_nothing_data();
    void parse_short_input_changes_nothing();
    void parse_exactly_header_keeps_payload();
    void parse_never_reads_past_input_data();
    void parse_never_reads_past_input();
    void payload_limits_data();
    void payload_limits();
    void assign_over_limit_keeps_payload();
    void well_formed_data();
    void well_formed();
    void comparison_data();
    void comparison();
    void copies_data();
    void copies();
    void detect_payload_size_data();
    void detect_payload_size();
    void check_ret_data();
    void check_ret();
    void describe_data();
    void describe();
    void set_session_is_lower_hex_on_a_copy();

    void read_from_data();
    void read_from();
    void header_without_payload_is_consumed();
    void slow_bytes_arrive_one_line_per_short_read();
    void missing_payload_fails_after_attempt_budget();
    void peer_closing_ends_read();
    void oversized_length_is_refused_without_reading();
    void write_to_sends_serialized_bytes();
    void write_to_refuses_unserializable_packet();

private:
    QStringList log_lines() const;
    // Connects a reader socket to `m_peer`, accepted from a fresh local server.
    void make_pair();

    std::unique_ptr<QTemporaryDir> m_dir;
    std::shared_ptr<blackbox> m_box;
    std::unique_ptr<QTcpServer> m_server;
    std::unique_ptr<QTcpSocket> m_reader;
    QTcpSocket* m_peer = nullptr;
};

void test_netip_packet::init()
{
    m_dir = std::make_unique<QTemporaryDir>();
    m_box = std::make_shared<blackbox>(m_dir->filePath(QStringLiteral("blackbox.log")));
    QVERIFY(m_box->open());
    blackbox::set_global(m_box);
}

void test_netip_packet::cleanup()
{
    blackbox::set_global(nullptr);
    m_reader.reset();
    m_server.reset();
    m_peer = nullptr;
    m_box.reset();
    m_dir.reset();
}

QStringList test_netip_packet::log_lines() const
{
    QFile file(m_box->file_name());
    if (!file.open(QIODevice::ReadOnly))
        return {};
    return QString::fromUtf8(file.readAll()).split('\n', Qt::SkipEmptyParts);
}

void test_netip_packet::make_pair()
{
    m_server = std::make_unique<QTcpServer>();
    QVERIFY(m_server->listen(QHostAddress::LocalHost, 0));
    m_reader = std::make_unique<QTcpSocket>();
    m_reader->connectToHost(QHostAddress::LocalHost, m_server->serverPort());
    QVERIFY(m_reader->waitForConnected(2000));
    QVERIFY(m_server->waitForNewConnection(2000));
    m_peer = m_server->nextPendingConnection();
    QVERIFY(m_peer);
}

void test_netip_packet::serialize_layout_data()
{
    QTest::addColumn<uint16_t>("id");
    QTest::addColumn<uint32_t>("session");
    QTest::addColumn<uint32_t>("sequence");
    QTest::addColumn<uint8_t>("current");
    QTest::addColumn<QByteArray>("body");
    QTest::addColumn<QByteArray>("expected");

    QTest::newRow("bare header, version 1, no payload") << uint16_t(
        0) << 0u << 0u << uint8_t(0) << QByteArray() << hex("ff 01 00 00  00000000  00000000  00 00  0000  00000000");
    QTest::newRow("login body, fields little-endian")
        << uint16_t(1000) << 0x11223344u << 0u << uint8_t(0) << QByteArray("{}")
        << hex("ff 01 00 00  44332211  00000000  00 00  e803  02000000  7b7d");
    QTest::newRow("firmware chunk number in sequence")
        << uint16_t(1522) << 0xdeadbeefu << 0x01020304u << uint8_t(0) << QByteArray("\x01\x00\xff", 3)
        << hex("ff 01 00 00  efbeadde  04030201  00 00  f205  03000000  0100ff");
    QTest::newRow("end of file marks current_packet") << uint16_t(1522) << 7u << 2u << uint8_t(1) << QByteArray()
                                                      << hex("ff 01 00 00  07000000  02000000  00 01  f205  00000000");
}

void test_netip_packet::serialize_layout()
{
    QFETCH(uint16_t, id);
    QFETCH(uint32_t, session);
    QFETCH(uint32_t, sequence);
    QFETCH(uint8_t, current);
    QFETCH(QByteArray, body);
    QFETCH(QByteArray, expected);

    packet p(id, body.constData(), size_t(body.size()));
    p.session = session;
    p.sequence = sequence;
    p.current_packet = current;
    QCOMPARE(serialized(p).toHex(' '), expected.toHex(' '));

    packet back;
    QVERIFY(back.parse(expected.constData(), size_t(expected.size())));
    QVERIFY(back == p);
    QCOMPARE(back.message_id, id);
    QCOMPARE(back.session, session);
    QCOMPARE(back.sequence, sequence);
    QCOMPARE(back.current_packet, current);
    QCOMPARE(payload_of(back), body);
}

void test_netip_packet::serialize_refuses_short_buffer()
{
    const QByteArray body(100, 'x');
    packet p(1040, body.constData(), size_t(body.size()));
    char out[119];
    size_t size = sizeof out;
    QVERIFY(!p.serialize(out, &size));
    QCOMPARE(size, sizeof out);
}

void test_netip_packet::parse_short_input_changes_nothing_data()
{
    QTest::addColumn<int>("size");
    QTest::newRow("nothing") << 0;
    QTest::newRow("one byte") << 1;
    QTest::newRow("one byte short of a header") << 19;
}

void test_netip_packet::parse_short_input_changes_nothing()
{
    QFETCH(int, size);
    packet p(1020, "abc", 3);
    p.session = 9;
    const packet before(p);
    const QByteArray wire = frame(1043, "{\"Ret\":100}");
    QVERIFY(!p.parse(wire.constData(), size_t(size)));
    QVERIFY(p == before);
    QCOMPARE(payload_of(p), QByteArray("abc"));
}

void test_netip_packet::parse_exactly_header_keeps_payload()
{
    packet p(1020, "abc", 3);
    const void* buffer = p.data();
    const QByteArray header = hex("ff 01 00 00  05000000  00000000  00 00  1504  03000000");
    QVERIFY(p.parse(header.constData(), size_t(header.size())));
    QCOMPARE(p.message_id, uint16_t(1045));
    QCOMPARE(p.session, 5u);
    QCOMPARE(static_cast<const void*>(p.data()), buffer);
    QCOMPARE(payload_of(p), QByteArray("abc"));
}

void test_netip_packet::parse_never_reads_past_input_data()
{
    QTest::addColumn<QByteArray>("wire");
    QTest::addColumn<uint32_t>("length");
    QTest::addColumn<QByteArray>("payload");

    QTest::newRow("length larger than the bytes given")
        << hex("ff 01 00 00 00000000 00000000 00 00 e903 00010000 414243") << 256u << QByteArray("ABC");
    QTest::newRow("length smaller than the bytes given")
        << hex("ff 01 00 00 00000000 00000000 00 00 e903 01000000 414243") << 1u << QByteArray("A");
    QTest::newRow("huge length on a bare header")
        << hex("ff 01 00 00 00000000 00000000 00 00 e903 ffffffff") << 0xffffffffu << QByteArray();
}

void test_netip_packet::parse_never_reads_past_input()
{
    QFETCH(QByteArray, wire);
    QFETCH(uint32_t, length);
    QFETCH(QByteArray, payload);

    packet p;
    QVERIFY(p.parse(wire.constData(), size_t(wire.size())));
    QCOMPARE(p.length, length);
    QCOMPARE(payload_of(p), payload);
    // What is held stays consistent for everything that reads the payload.
    QCOMPARE(jsonaux::check_ret(p), uint16_t(netip::ret_missing));
    const packet copy(p);
    QCOMPARE(payload_of(copy), payload);
}

void test_netip_packet::payload_limits_data()
{
    QTest::addColumn<int>("size");
    QTest::addColumn<bool>("accepted");
    QTest::newRow("empty payload") << 0 << true;
    QTest::newRow("one byte") << 1 << true;
    QTest::newRow("exactly the limit") << 32768 << true;
    QTest::newRow("one byte over the limit") << 32769 << false;
}

void test_netip_packet::payload_limits()
{
    QFETCH(int, size);
    QFETCH(bool, accepted);
    const QByteArray data(size, 'p');

    const packet built(1540, data.constData(), size_t(size));
    QCOMPARE(built.bad(), !accepted);
    QCOMPARE(built.length, accepted ? uint32_t(size) : 0u);
    QCOMPARE(built.data() != nullptr, accepted);

    packet assigned(1540);
    QCOMPARE(assigned.assign(data.constData(), size_t(size)), accepted);
    QCOMPARE(payload_of(assigned), accepted ? data : QByteArray());
    QVERIFY(!assigned.bad());
}

void test_netip_packet::assign_over_limit_keeps_payload()
{
    packet p(1540, "keep", 4);
    const QByteArray big(32769, 'x');
    QVERIFY(!p.assign(big.constData(), size_t(big.size())));
    QCOMPARE(p.length, 4u);
    QCOMPARE(payload_of(p), QByteArray("keep"));
}

void test_netip_packet::well_formed_data()
{
    QTest::addColumn<QByteArray>("header");
    QTest::addColumn<bool>("well_formed");
    QTest::addColumn<bool>("bad");

    QTest::newRow("client packet") << hex("ff 01 00 00") << true << false;
    QTest::newRow("discovery version 0") << hex("ff 00 00 00") << true << false;
    QTest::newRow("version 2") << hex("ff 02 00 00") << false << false;
    QTest::newRow("reserved1 set") << hex("ff 01 01 00") << false << false;
    QTest::newRow("reserved2 is not tested") << hex("ff 01 00 7f") << true << false;
    QTest::newRow("head below ff") << hex("fe 01 00 00") << false << true;
    QTest::newRow("head 0 as made by make_bad") << hex("00 01 00 00") << false << true;
}

void test_netip_packet::well_formed()
{
    QFETCH(QByteArray, header);
    QFETCH(bool, well_formed);
    QFETCH(bool, bad);
    packet p;
    QVERIFY(p.parse((header + QByteArray(16, '\0')).constData(), 20));
    QCOMPARE(p.well_formed(), well_formed);
    QCOMPARE(p.bad(), bad);
}

void test_netip_packet::comparison_data()
{
    QTest::addColumn<int>("field");
    QTest::addColumn<bool>("equal");
    QTest::newRow("payload differs only") << 0 << true;
    QTest::newRow("head differs") << 1 << false;
    QTest::newRow("reserved2 differs") << 2 << false;
    QTest::newRow("session differs") << 3 << false;
    QTest::newRow("sequence differs") << 4 << false;
    QTest::newRow("total_packets differs") << 5 << false;
    QTest::newRow("current_packet differs") << 6 << false;
    QTest::newRow("message_id differs") << 7 << false;
    QTest::newRow("length differs") << 8 << false;
}

void test_netip_packet::comparison()
{
    QFETCH(int, field);
    QFETCH(bool, equal);
    const packet a(1042, "abc", 3);
    packet b(1042, "xyz", 3);
    switch (field) {
    case 1:
        b.head = 0xFE;
        break;
    case 2:
        b.reserved2 = 1;
        break;
    case 3:
        b.session = 1;
        break;
    case 4:
        b.sequence = 1;
        break;
    case 5:
        b.total_packets = 1;
        break;
    case 6:
        b.current_packet = 1;
        break;
    case 7:
        b.message_id = 1043;
        break;
    case 8:
        b.length = 2;
        break;
    default:
        break;
    }
    QCOMPARE(a == b, equal);
    QCOMPARE(a != b, !equal);
}

void test_netip_packet::copies_data()
{
    QTest::addColumn<int>("kind");
    QTest::addColumn<bool>("has_buffer");
    QTest::addColumn<size_t>("capacity");
    QTest::newRow("no buffer stays without one") << 0 << false << size_t(0);
    QTest::newRow("payload is copied deep") << 1 << true << size_t(5);
    QTest::newRow("empty buffer becomes a full zeroed one") << 2 << true << packet::max_payload;
}

void test_netip_packet::copies()
{
    QFETCH(int, kind);
    QFETCH(bool, has_buffer);
    QFETCH(size_t, capacity);

    packet source(1042);
    if (kind == 1)
        QVERIFY(source.assign("hello", 5));
    if (kind == 2)
        source.resize_payload(0);
    source.sequence = 3;

    packet copy(source);
    QVERIFY(copy == source);
    QCOMPARE(copy.data() != nullptr, has_buffer);
    if (!has_buffer)
        return;
    QVERIFY(copy.data() != source.data());
    // The buffer's real size shows once the header claims all of it.
    copy.length = uint32_t(packet::max_payload);
    QCOMPARE(copy.payload_size(), capacity);
    if (kind == 1) {
        copy.data()[0] = 'J';
        QCOMPARE(payload_of(source), QByteArray("hello"));
    }
    if (kind == 2)
        QCOMPARE(payload_of(copy), QByteArray(int(packet::max_payload), '\0'));

    packet assigned;
    assigned = source;
    QVERIFY(assigned == source);
    QVERIFY(assigned.data() != source.data());
}

void test_netip_packet::detect_payload_size_data()
{
    QTest::addColumn<QByteArray>("bytes");
    QTest::addColumn<uint32_t>("size");
    QTest::newRow("short input") << hex("ff 01 00 00 00000000 00000000 00 00 e803 0a0000") << 0u;
    QTest::newRow("length at offset 16, little-endian")
        << hex("ff 01 00 00 00000000 00000000 00 00 e803 0a010000") << 266u;
    QTest::newRow("over the limit is reported as it is")
        << hex("ff 01 00 00 00000000 00000000 00 00 e803 01800000") << 32769u;
}

void test_netip_packet::detect_payload_size()
{
    QFETCH(QByteArray, bytes);
    QFETCH(uint32_t, size);
    QCOMPARE(packet::detect_payload_size(bytes.constData(), size_t(bytes.size())), size);
}

void test_netip_packet::check_ret_data()
{
    QTest::addColumn<QByteArray>("payload");
    QTest::addColumn<uint16_t>("ret");
    QTest::addColumn<bool>("logs_missing");

    QTest::newRow("good reply with terminator") << QByteArray("{\"Ret\":100}\0", 12) << uint16_t(100) << false;
    QTest::newRow("refusal") << QByteArray("{\"Ret\":203,\"SessionID\":\"0x1\"}\n") << uint16_t(203) << false;
    QTest::newRow("value truncated to 16 bits") << QByteArray("{\"Ret\":70000} ") << uint16_t(4464) << false;
    QTest::newRow("text value reads as 0") << QByteArray("{\"Ret\":\"100\"}\0", 14) << uint16_t(0) << false;
    QTest::newRow("not JSON") << QByteArray("garbage\0", 8) << uint16_t(65534) << false;
    QTest::newRow("JSON array") << QByteArray("[100]\0", 6) << uint16_t(65534) << false;
    QTest::newRow("last byte is part of the body") << QByteArray("{\"Ret\":100}") << uint16_t(65534) << false;
    QTest::newRow("empty payload") << QByteArray() << uint16_t(65534) << false;
    QTest::newRow("object without Ret") << QByteArray("{\"Name\":\"x\"}\0", 13) << uint16_t(65534) << true;
}

void test_netip_packet::check_ret()
{
    QFETCH(QByteArray, payload);
    QFETCH(uint16_t, ret);
    QFETCH(bool, logs_missing);
    const packet p(1001, payload.constData(), size_t(payload.size()));
    QCOMPARE(jsonaux::check_ret(p), ret);
    QCOMPARE(log_lines().filter(QStringLiteral("error, No such member: Ret")).size(), logs_missing ? 1 : 0);
}

void test_netip_packet::describe_data()
{
    QTest::addColumn<bool>("message");
    QTest::addColumn<uint16_t>("code");
    QTest::addColumn<QByteArray>("text");

    QTest::newRow("999 is the login request label") << true << uint16_t(999) << QByteArray("Login request");
    QTest::newRow("1000 is labelled a response") << true << uint16_t(1000) << QByteArray("Login response");
    QTest::newRow("1001 is labelled logout") << true << uint16_t(1001) << QByteArray("Logout request");
    QTest::newRow("config get reply") << true << uint16_t(1043) << QByteArray("Config get response");
    QTest::newRow("data without suffix") << true << uint16_t(1522) << QByteArray("Upgrade data");
    QTest::newRow("progress without suffix") << true << uint16_t(1524) << QByteArray("Upgrade progress");
    QTest::newRow("import reply") << true << uint16_t(1541) << QByteArray("Config import response");
    QTest::newRow("discovery has no entry") << true << uint16_t(1530) << QByteArray("-unknown[1530]-");
    QTest::newRow("zero message") << true << uint16_t(0) << QByteArray("-unknown[0]-");
    QTest::newRow("ok") << false << uint16_t(100) << QByteArray("OK");
    QTest::newRow("refused password") << false << uint16_t(203) << QByteArray("Incorrect password");
    QTest::newRow("odd spelling kept") << false << uint16_t(514) << QByteArray("l level failure");
    QTest::newRow("written firmware has no text") << false << uint16_t(515) << QByteArray("-unknown[515]-");
    QTest::newRow("reboot needed") << false << uint16_t(603) << QByteArray("Need to reboot the system");
    QTest::newRow("largest code") << false << uint16_t(65535) << QByteArray("-unknown[65535]-");
}

void test_netip_packet::describe()
{
    QFETCH(bool, message);
    QFETCH(uint16_t, code);
    QFETCH(QByteArray, text);
    QCOMPARE(message ? netip::describe_message(code) : netip::describe_return_code(code), text);
}

void test_netip_packet::set_session_is_lower_hex_on_a_copy()
{
    const QJsonDocument document(QJsonObject { { QStringLiteral("Name"), QStringLiteral("SystemInfo") } });
    const QJsonObject with = jsonaux::set_session(document, 0xABCDEF01u);
    QCOMPARE(with.value(QStringLiteral("SessionID")).toString(), QStringLiteral("abcdef01"));
    QCOMPARE(with.value(QStringLiteral("Name")).toString(), QStringLiteral("SystemInfo"));
    QVERIFY(!document.object().contains(QStringLiteral("SessionID")));
}

void test_netip_packet::read_from_data()
{
    QTest::addColumn<QByteArray>("body");
    QTest::addColumn<QString>("line");

    QTest::newRow("good reply names its code")
        << QByteArray("{\"Ret\":100}\0", 12) << "debug, [<<<] Received 32 bytes, Login response (OK)";
    QTest::newRow("unknown return code") << QByteArray("{\"Ret\":42}\0", 11)
                                         << "debug, [<<<] Received 31 bytes, Login response (-unknown[42]-)";
    QTest::newRow("non-JSON body prints dashes")
        << QByteArray("xyz\0", 4) << "debug, [<<<] Received 24 bytes, Login response (---)";
    QTest::newRow("reply without Ret prints dashes")
        << QByteArray("{\"A\":1}\0", 8) << "debug, [<<<] Received 28 bytes, Login response (---)";
}

void test_netip_packet::read_from()
{
    QFETCH(QByteArray, body);
    QFETCH(QString, line);
    make_pair();
    m_peer->write(frame(1000, body, 0x1234));
    QVERIFY(m_peer->waitForBytesWritten(1000));

    packet p;
    QVERIFY(packet_wrapper::read_from(m_reader.get(), p));
    QCOMPARE(p.message_id, uint16_t(1000));
    QCOMPARE(p.session, 0x1234u);
    QCOMPARE(payload_of(p), body);
    QVERIFY2(log_lines().filter(line).size() == 1, qPrintable(log_lines().join('\n')));
}

void test_netip_packet::header_without_payload_is_consumed()
{
    make_pair();
    m_peer->write(frame(1021, QByteArray()) + frame(1043, QByteArray("{\"Ret\":100}\0", 12)));
    QVERIFY(m_peer->waitForBytesWritten(1000));

    packet p;
    QVERIFY(!packet_wrapper::read_from(m_reader.get(), p));
    QCOMPARE(
        log_lines().filter(QStringLiteral("error, Could not read from socket: Header size detecting failure")).size(),
        1);
    QVERIFY(packet_wrapper::read_from(m_reader.get(), p));
    QCOMPARE(p.message_id, uint16_t(1043));
    QCOMPARE(jsonaux::check_ret(p), uint16_t(100));
}

void test_netip_packet::slow_bytes_arrive_one_line_per_short_read()
{
    m_server = std::make_unique<QTcpServer>();
    QVERIFY(m_server->listen(QHostAddress::LocalHost, 0));
    const QByteArray header = frame(1001, QByteArray(4, 'b')).left(20);
    slow_writer writer(m_server->serverPort(), header, 25);
    writer.start();
    QVERIFY(m_server->waitForNewConnection(2000));
    std::unique_ptr<QTcpSocket> reader(m_server->nextPendingConnection());

    char buffer[20] = {};
    QVERIFY(packet_wrapper::read_up_to(reader.get(), buffer, sizeof buffer));
    QCOMPARE(QByteArray(buffer, 20), header);
    QVERIFY(writer.wait(5000));

    // Every read fell short of the 20 bytes wanted, the completing one included.
    static const QRegularExpression got(QStringLiteral("warning, Got (\\d+) bytes, expected 20$"));
    int lines = 0;
    int sum = 0;
    for (const QString& line : log_lines()) {
        const QRegularExpressionMatch m = got.match(line);
        if (m.hasMatch()) {
            ++lines;
            sum += m.captured(1).toInt();
        }
    }
    QCOMPARE(sum, 20);
    QVERIFY2(lines >= 5, qPrintable(QString::number(lines)));
}

void test_netip_packet::missing_payload_fails_after_attempt_budget()
{
    make_pair();
    m_peer->write(frame(1043, QByteArray("0123456789")).left(25));
    QVERIFY(m_peer->waitForBytesWritten(1000));

    QElapsedTimer timer;
    timer.start();
    packet p;
    QVERIFY(!packet_wrapper::read_from(m_reader.get(), p));
    const qint64 elapsed = timer.elapsed();
    // 500 attempts of 10 ms; progress doesn't refill the budget.
    QVERIFY2(elapsed > 4000 && elapsed < 9000, qPrintable(QString::number(elapsed)));
    const QStringList lines = log_lines();
    QCOMPARE(lines.filter(QStringLiteral("warning, Got 5 bytes, expected 10")).size(), 1);
    QCOMPARE(lines.filter(QStringLiteral("error, Could not read from socket: Payload reading failed")).size(), 1);
}

void test_netip_packet::peer_closing_ends_read()
{
    make_pair();
    m_peer->write(hex("ff 01 00 00 00000000"));
    QVERIFY(m_peer->waitForBytesWritten(1000));
    m_peer->close();

    QElapsedTimer timer;
    timer.start();
    char buffer[20];
    QVERIFY(!packet_wrapper::read_up_to(m_reader.get(), buffer, sizeof buffer));
    QVERIFY2(timer.elapsed() < 2500, qPrintable(QString::number(timer.elapsed())));
}

void test_netip_packet::oversized_length_is_refused_without_reading()
{
    make_pair();
    m_peer->write(hex("ff 01 00 00 00000000 00000000 00 00 1304 01800000") + QByteArray(64, 'z'));
    QVERIFY(m_peer->waitForBytesWritten(1000));

    packet p(1020, "abc", 3);
    QElapsedTimer timer;
    timer.start();
    QVERIFY(!packet_wrapper::read_from(m_reader.get(), p));
    QVERIFY(timer.elapsed() < 2000);
    QCOMPARE(
        log_lines().filter(QStringLiteral("error, Could not read from socket: Payload size over the limit")).size(), 1);
    QCOMPARE(p.message_id, uint16_t(1020));
    QCOMPARE(payload_of(p), QByteArray("abc"));
}

void test_netip_packet::write_to_sends_serialized_bytes()
{
    make_pair();
    const QByteArray body("{\"Name\":\"SystemInfo\"}");
    packet p(1020, body.constData(), size_t(body.size()));
    p.session = 0x42;
    QVERIFY(packet_wrapper::write_to(m_reader.get(), p));
    QVERIFY(m_reader->waitForBytesWritten(1000));

    QByteArray received;
    QTRY_VERIFY_WITH_TIMEOUT((received += m_peer->readAll()).size() >= body.size() + 20, 2000);
    QCOMPARE(received, serialized(p));
    QCOMPARE(log_lines().filter(QStringLiteral("debug, [>>>] Sent 41 bytes, System info request")).size(), 1);
}

void test_netip_packet::write_to_refuses_unserializable_packet()
{
    make_pair();
    packet p(1040, "x", 1);
    p.length = 40000;
    QVERIFY(!packet_wrapper::write_to(m_reader.get(), p));
    QCOMPARE(log_lines().filter(QStringLiteral("error, Failed to serialize the packet: 32788/40020")).size(), 1);
    QCOMPARE(m_reader->bytesToWrite(), 0);
}

QTEST_GUILESS_MAIN(test_netip_packet)
#include "test_netip_packet.moc"
