#include "tests/support/devsim_harness.h"
#include "tests/support/netip_wire.h"

#include <QCryptographicHash>
#include <QElapsedTimer>
#include <QJsonArray>
#include <QtTest>

namespace
{

constexpr int chunk_size = 32768;
const QByteArray start_body = netip_wire::json({ { "Name", "OPSystemUpgrade" },
    { "OPSystemUpgrade", QJsonObject { { "Action", "Start" }, { "Type", "System" } } } });

QByteArray image_of(int size, uint seed = 131)
{
    QByteArray image(size, Qt::Uninitialized);
    for (int i = 0; i < size; ++i)
        image[i] = char((uint(i) * seed) ^ (uint(i) >> 9));
    return image;
}

QString md5_of(const QByteArray& bytes)
{
    return QString::fromLatin1(QCryptographicHash::hash(bytes, QCryptographicHash::Md5).toHex());
}

int chunk_count(int size)
{
    return (size + chunk_size - 1) / chunk_size;
}

// A logged-in connection to device 0, speaking the upload as a client does.
struct upload_session {
    netip_wire wire;
    quint32 session = 0;

    bool open(devsim_harness& sim) { return wire.open(sim.address(0), sim.port(0)) && (session = wire.login()) != 0; }
    // The Ret of the answer to the start, -1 for none.
    int start()
    {
        netip_reply r;
        return wire.exchange(1520, start_body, r, session) && r.id == 1521 ? r.ret() : -1;
    }
    // The Ret of the chunks' answers, -1 for none; stops at the first that isn't 100.
    int send_chunks(const QByteArray& image, int* answered, int from = 0)
    {
        for (int n = from; n < chunk_count(image.size()); ++n) {
            const QByteArray part = image.mid(n * chunk_size, chunk_size);
            wire.send_frame(netip_wire::header(1522, quint32(part.size()), session, 0xFF, 1, 0, quint32(n)) + part);
            netip_reply r;
            if (!wire.read(r, 2000) || r.id != 1523 || r.sequence != quint32(n))
                return -1;
            ++*answered;
            if (r.ret() != 100)
                return r.ret();
        }
        return 100;
    }
    int end_of_file(int sequence)
    {
        wire.send_frame(netip_wire::header(1522, 0, session, 0xFF, 1, 0, quint32(sequence), 1));
        netip_reply r;
        return wire.read(r, 2000) && r.id == 1523 ? r.ret() : -1;
    }
    // The 1524 "Ret" values until 515, silence or the end of the connection.
    QList<int> progress(int silence_ms = 2000)
    {
        QList<int> seen;
        netip_reply r;
        while (seen.value(seen.size() - 1) != 515 && wire.read(r, silence_ms))
            seen << (r.id == 1524 ? r.ret() : -r.id);
        return seen;
    }
};

} // namespace

class test_devsim_upgrade : public QObject
{
    Q_OBJECT
private slots:
    void upload_data();
    void upload();
};

void test_devsim_upgrade::upload_data()
{
    QTest::addColumn<QJsonObject>("device");
    QTest::addColumn<int>("size");
    QTest::addColumn<int>("first_chunk"); // the client starts here (out of order when not 0)
    QTest::addColumn<int>("eof_offset"); // from the right sequence of the end of file
    // Ret of the start | of the chunks after so many answers (-1: dropped) | of the end of file | progress | connection
    QTest::addColumn<QString>("transcript");
    const auto add = [](const char* name, const QJsonObject& device, const QString& transcript,
                         int size = 3 * chunk_size + 7, int first_chunk = 0, int eof_offset = 0) {
        QTest::newRow(name) << device << size << first_chunk << eof_offset << transcript;
    };
    const auto fault = [](const char* key, const QJsonValue& v) {
        return QJsonObject { { "faults", QJsonObject { { key, v } } } };
    };
    const QString done = "100 | 0 | 25 | 50 | 75 | 100 | 515 | closed";
    add("empty image: no chunk, end of file with sequence 0", {}, "100 | 100 after 0 | " + done, 0);
    add("one byte past a chunk: two, the second of 1 byte", {}, "100 | 100 after 2 | " + done, chunk_size + 1);
    add("configured version and progress",
        { { "upgrade_version", "V5.00.R02.TEST" }, { "upgrade_progress", QJsonArray { 10, 37, 90 } } },
        "100 | 100 after 4 | 100 | 10 | 37 | 90 | 515 | closed");
    // Loose enough for a loaded machine and a sanitizer build, tight enough to catch a
    // simulator that copies its buffer per frame or waits per chunk.
    add("64 MiB at loopback speed", {}, "100 | 100 after 2048 | " + done, 64 << 20);
    add("start refused, then a chunk without an upload", fault("refuse_upgrade", true), "512 | 103 after 1 | open");
    add("chunk 1 answered 514", fault("chunk_ret", QJsonObject { { "1", 514 } }), "100 | 514 after 2 | open");
    add("connection dropped at chunk 2", fault("drop_at_chunk", 2), "100 | -1 after 2 | closed");
    add("client skips chunk 0", {}, "100 | 514 after 1 | open", 3 * chunk_size + 7, 1);
    add("end of file answered 514", fault("eof_ret", 514), "100 | 100 after 4 | 514 | open");
    add("end of file with the wrong sequence", {}, "100 | 100 after 4 | 514 | open", 3 * chunk_size + 7, 0, -1);
    add("dropped at 50%", fault("progress_drop_at", 50), "100 | 100 after 4 | 100 | 0 | 25 | closed");
    add("silent from 60% on, connection kept", fault("progress_stall_at", 60),
        "100 | 100 after 4 | 100 | 0 | 25 | 50 | open");
}

void test_devsim_upgrade::upload()
{
    QFETCH(QJsonObject, device);
    QFETCH(int, size);
    QFETCH(int, first_chunk);
    QFETCH(int, eof_offset);
    QFETCH(QString, transcript);
    device.insert("reboot_ms", 300);
    device.insert("upgrade_step_ms", 50);
    devsim_harness sim;
    QVERIFY2(sim.start(1, device), qPrintable(sim.error()));
    const QString old_version = sim.state(0).value("software_version").toString();
    const QByteArray image = image_of(size);
    upload_session up;
    QVERIFY(up.open(sim));
    QStringList seen { QString::number(up.start()) };
    QElapsedTimer t;
    t.start();
    int got = 0;
    const int chunks = up.send_chunks(image, &got, first_chunk);
    QVERIFY2(t.elapsed() < 20000, qPrintable(QString::number(t.elapsed())));
    seen << QStringLiteral("%1 after %2").arg(chunks).arg(got);
    if (chunks == 100)
        seen << QString::number(up.end_of_file(chunk_count(size) + eof_offset));
    const QList<int> progress = up.progress(600);
    for (int p : progress)
        seen << QString::number(p);
    const bool closed = up.wire.closed_within(300);
    QCOMPARE(seen.join(" | ") + (closed ? " | closed" : " | open"), transcript);

    // The image is hashed as it arrives; only 515 reboots the device into the new version.
    const bool upgraded = progress.value(progress.size() - 1) == 515;
    const QString new_version = device.value("upgrade_version").toString("V" + md5_of(image).left(8));
    QTest::qWait(300);
    QTRY_COMPARE_WITH_TIMEOUT(sim.state(0).value("boot_count").toInt(), upgraded ? 2 : 1, 3000);
    const QJsonObject state = sim.state(0);
    QCOMPARE(state.value("upgrades").toInt(), int(upgraded));
    QCOMPARE(state.value("software_version").toString(), upgraded ? new_version : old_version);
    QVERIFY(new_version != old_version);
    if (!progress.isEmpty()) {
        QCOMPARE(state.value("upgrade_md5").toString(), md5_of(image));
        QCOMPARE(state.value("upgrade_size").toInt(), size);
    }
    if (upgraded) {
        // The log keeps each chunk as its size, with the chunk number as sequence.
        const QJsonArray data = sim.requests_of(0, 1522);
        QCOMPARE(data.size(), chunk_count(size) + 1);
        for (int n = 0; n < chunk_count(size); ++n) {
            const QJsonObject r = data.at(n).toObject();
            QCOMPARE(r.value("sequence").toInt(), n);
            QCOMPARE(r.value("size").toInt(), qMin(chunk_size, size - n * chunk_size));
            QVERIFY(!r.contains("body"));
        }
        QCOMPARE(data.last().toObject().value("current_packet").toInt(), 1);
        // Back on the network with the new version.
        upload_session back;
        QVERIFY(back.open(sim));
        netip_reply r;
        QVERIFY(back.wire.exchange(1020, netip_wire::json({ { "Name", "SystemInfo" } }), r, back.session));
        QCOMPARE(r.body.value("SystemInfo").toObject().value("SoftWareVersion").toString(), new_version);
    } else if (!closed && progress.isEmpty()) {
        // A new start on the same connection begins from nothing: the hash holds only the new image.
        QVERIFY(sim.clear_faults(0));
        const QByteArray second = image_of(2 * chunk_size - 3, 77);
        QCOMPARE(up.start(), 100);
        QCOMPARE(up.send_chunks(second, &got), 100);
        QCOMPARE(up.end_of_file(2), 100);
        QCOMPARE(up.progress().value(5), 515);
        QCOMPARE(sim.state(0).value("upgrade_md5").toString(), md5_of(second));
        QTRY_COMPARE_WITH_TIMEOUT(sim.state(0).value("upgrades").toInt(), 1, 3000);
    }
}

QTEST_GUILESS_MAIN(test_devsim_upgrade)
#include "test_devsim_upgrade.moc"
