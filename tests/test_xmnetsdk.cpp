#include "sdk/xmnetsdk.h"
#include "tests/support/test_network.h"

#include <QNetworkDatagram>
#include <QUdpSocket>
#include <QtEndian>
#include <QtTest>

#include <cstring>
#include <future>

// Configuration by broadcast to a device the test plays, each test run again in a namespace of its own (only lo).

namespace
{

constexpr quint16 udp_port = 34569;
const QString device_mac = QStringLiteral("02:4f:56:00:00:01");

// A call on a thread of its own, for a record with this MAC and mask; the other addresses as the library takes
// them, byte-reversed.
std::future<long> set_config(const QString& mac, quint32 submask, int wait_ms)
{
    SDK_CONFIG_NET_COMMON_V3 r {};
    r.HostIP = qbswap(quint32(0xC0A8017B)); // 192.168.1.123
    r.Submask = submask;
    r.GateWay = qbswap(quint32(0xC0A80101));
    r.TCPPort = 34567;
    std::strncpy(r.MAC, qPrintable(mac), sizeof r.MAC - 1);
    std::strncpy(r.Username, "admin", sizeof r.Username);
    return std::async(std::launch::async, [r, wait_ms]() mutable {
        return H264_DVR_SetConfigOverNet(20, -1, reinterpret_cast<char*>(&r), sizeof r, wait_ms);
    });
}

// Waits for a call to end, with the event loop running for the fake device.
long result_of(std::future<long>& call)
{
    const auto ready = [&call] { return call.wait_for(std::chrono::seconds(0)) == std::future_status::ready; };
    return QTest::qWaitFor(ready, 10000) ? call.get() : -1;
}

// One datagram's frame, the 20-byte header read here apart from the program's code; false unless it is whole.
struct frame
{
    quint8 version = 0;
    quint16 id = 0;
    QByteArray payload;
    QJsonObject body;

    bool parse(const QByteArray& bytes)
    {
        if (bytes.size() < 20 || bytes.size() != 20 + int(qFromLittleEndian<quint32>(bytes.constData() + 16)))
            return false;
        version = quint8(bytes[1]);
        id = qFromLittleEndian<quint16>(bytes.constData() + 14);
        payload = bytes.mid(20);
        body = QJsonDocument::fromJson(payload.left(payload.size() - 1)).object();
        return true;
    }
};

// A device's UDP side: hears broadcasts on the shared port (bound before the library's socket, so that answers reach
// the library) and answers each configuration request from 127.0.0.2 with the bodies `answer` gives, after a delay.
class fake_device final : public QObject
{
public:
    struct request {
        frame sent;
        qint64 at_ms = 0;
    };
    bool bind()
    {
        clock.start();
        connect(&listener, &QUdpSocket::readyRead, this, &fake_device::read);
        const auto mode = QUdpSocket::ShareAddress | QUdpSocket::ReuseAddressHint;
        return listener.bind(QHostAddress::AnyIPv4, udp_port, mode)
            && sender.bind(QHostAddress(QStringLiteral("127.0.0.2")), udp_port, mode);
    }

    std::function<QJsonArray(const QJsonObject& body)> answer;
    int delay_ms = 0;
    QList<request> requests;

private:
    void read()
    {
        while (listener.hasPendingDatagrams()) {
            const QNetworkDatagram d = listener.receiveDatagram();
            frame f;
            if (!f.parse(d.data()) || f.id != 1532)
                continue;
            requests << request { f, clock.elapsed() };
            const QHostAddress to(d.senderAddress().toIPv4Address());
            const quint16 port = quint16(d.senderPort());
            for (const QJsonValue& body : answer(f.body)) {
                const QByteArray text = QJsonDocument(body.toObject()).toJson(QJsonDocument::Compact) + "\n" + '\0';
                QByteArray bytes(20, '\0');
                bytes[0] = char(0xFF);
                qToLittleEndian<quint16>(1533, bytes.data() + 14);
                qToLittleEndian<quint32>(quint32(text.size()), bytes.data() + 16);
                bytes += text;
                QTimer::singleShot(delay_ms, this, [this, bytes, to, port] { sender.writeDatagram(bytes, to, port); });
            }
        }
    }

    QUdpSocket listener;
    QUdpSocket sender;
    QElapsedTimer clock;
};

} // namespace

class test_xmnetsdk : public QObject
{
    Q_OBJECT
private slots:
    void set_config_over_net_data();
    void set_config_over_net();
    void concurrent_calls_wait_for_each_other();
};

void test_xmnetsdk::set_config_over_net_data()
{
    QTest::addColumn<QString>("mac");
    QTest::addColumn<quint32>("submask"); // the record's field
    QTest::addColumn<QJsonArray>("answers"); // sent in this order for the request
    QTest::addColumn<long>("result");
    QTest::addColumn<QString>("sent_mask"); // "Submask" on the wire; empty: nothing may be sent

    const QJsonArray accepted { QJsonObject { { "Ret", 100 } } };
    QTest::newRow("a /24 mask in host order goes out as the device reads it")
        << device_mac << 0xFFFFFF00u << accepted << 1L << "0x00FFFFFF";
    QTest::newRow("a /16 mask already reversed") << device_mac << 0x0000FFFFu << accepted << 1L << "0x0000FFFF";
    QTest::newRow("refused with 203") << device_mac << 0x00FFFFFFu << QJsonArray { QJsonObject { { "Ret", 203 } } }
                                      << xmnetsdk::refused_base - 203 << "0x00FFFFFF";
    QTest::newRow("another device's answer is passed over")
        << device_mac << 0x00FFFFFFu
        << QJsonArray { QJsonObject { { "Ret", 203 }, { "DvrMac", "02:00:00:00:00:99" } },
               QJsonObject { { "Ret", 100 }, { "DvrMac", device_mac.toUpper() } } }
        << 1L << "0x00FFFFFF";
    QTest::newRow("silence: no answer") << device_mac << 0x00FFFFFFu << QJsonArray {} << xmnetsdk::no_answer
                                        << "0x00FFFFFF";
    QTest::newRow("no MAC: refused, nothing sent") << QString() << 0x00FFFFFFu << accepted << xmnetsdk::no_mac << "";
}

void test_xmnetsdk::set_config_over_net()
{
    TEST_NETWORK_IN_ISOLATION();
    QFETCH(QString, mac);
    QFETCH(quint32, submask);
    QFETCH(QJsonArray, answers);
    const int wait_ms = answers.isEmpty() ? 300 : 1000;
    QFETCH(long, result);
    QFETCH(QString, sent_mask);

    fake_device dev;
    QVERIFY(dev.bind());
    dev.answer = [answers](const QJsonObject&) { return answers; };
    std::future<long> call = set_config(mac, submask, wait_ms);
    QCOMPARE(result_of(call), result);
    QTest::qWait(100); // for the request to reach the fake device
    if (sent_mask.isEmpty()) {
        QVERIFY(dev.requests.isEmpty());
        return;
    }
    QCOMPARE(dev.requests.size(), 1);
    const frame& sent = dev.requests.at(0).sent;
    QCOMPARE(sent.version, quint8(0));
    QVERIFY(sent.payload.endsWith(QByteArray("}\n\0", 3)));
    const QStringList expected { "Submask", sent_mask, "HostIP", "0x7B01A8C0", "GateWay", "0x0101A8C0", "DvrMac", mac,
        "MAC", mac, "Username", "admin", "Password", "tlJwpbo6" }; // the digest of ""
    for (int i = 0; i < expected.size(); i += 2)
        QCOMPARE(sent.body.value(expected[i]).toString(), expected[i + 1]);
}

void test_xmnetsdk::concurrent_calls_wait_for_each_other()
{
    TEST_NETWORK_IN_ISOLATION();
    // Slow answers, and a refusal from one device only: each caller must get its own.
    const QStringList macs { "02:4f:56:00:00:01", "02:4f:56:00:00:02", "02:4f:56:00:00:03" };
    fake_device dev;
    QVERIFY(dev.bind());
    dev.delay_ms = 200;
    dev.answer = [&macs](const QJsonObject& body) {
        const bool refuses = body.value("DvrMac").toString() == macs.at(1);
        return QJsonArray { QJsonObject { { "Ret", refuses ? 203 : 100 } } };
    };
    std::vector<std::future<long>> calls;
    for (const QString& mac : macs)
        calls.push_back(set_config(mac, 0x00FFFFFF, 1000));
    QCOMPARE(result_of(calls[0]), 1L);
    QCOMPARE(result_of(calls[1]), xmnetsdk::refused_base - 203);
    QCOMPARE(result_of(calls[2]), 1L);
    QCOMPARE(dev.requests.size(), 3);
    // One request in flight at a time: the next goes out only after the last answer.
    for (int i = 1; i < dev.requests.size(); ++i) {
        const qint64 gap = dev.requests.at(i).at_ms - dev.requests.at(i - 1).at_ms;
        QVERIFY2(gap >= 190, qPrintable(QString::number(gap)));
    }
}

QTEST_GUILESS_MAIN(test_xmnetsdk)
#include "test_xmnetsdk.moc"
