#include "tests/support/devsim_harness.h"
#include "tests/support/netip_wire.h"

#include <QCryptographicHash>
#include <QElapsedTimer>
#include <QJsonArray>
#include <QtTest>

namespace
{

constexpr int chunk_size = 32768;
// The progress a device reports by default, then the end.
const QList<int> default_progress { 0, 25, 50, 75, 100 };
const QByteArray start_body = netip_wire::json({ { "Name", "OPSystemUpgrade" },
    { "OPSystemUpgrade", QJsonObject { { "Action", "Start" }, { "Type", "System" } } } });

QByteArray image_of(int size)
{
    QByteArray image(size, Qt::Uninitialized);
    for (int i = 0; i < size; ++i)
        image[i] = char((uint(i) * 131u) ^ (uint(i) >> 9));
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

QByteArray chunk_frame(quint32 session, const QByteArray& image, int n)
{
    const QByteArray part = image.mid(n * chunk_size, chunk_size);
    return netip_wire::header(1522, quint32(part.size()), session, 0xFF, 1, 0, quint32(n)) + part;
}

QByteArray end_of_file_frame(quint32 session, int sequence)
{
    return netip_wire::header(1522, 0, session, 0xFF, 1, 0, quint32(sequence), 1);
}

// A logged-in connection to device 0.
struct upload_session {
    netip_wire wire;
    quint32 session = 0;

    bool open(devsim_harness& sim) { return wire.open(sim.address(0), sim.port(0)) && (session = wire.login()) != 0; }
    int start()
    {
        netip_reply r;
        if (!wire.exchange(1520, start_body, r, session) || r.id != 1521)
            return -1;
        return r.ret();
    }
    // The Ret of each chunk's answer, -1 for none; stops at the first that isn't 100.
    int send_chunks(const QByteArray& image, int* answered, int from = 0)
    {
        *answered = 0;
        for (int n = from; n < chunk_count(image.size()); ++n) {
            wire.send_frame(chunk_frame(session, image, n));
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
        wire.send_frame(end_of_file_frame(session, sequence));
        netip_reply r;
        if (!wire.read(r, 2000) || r.id != 1523)
            return -1;
        return r.ret();
    }
    // The 1524 "Ret" values until 515, silence or the end of the connection.
    QList<int> progress(int silence_ms = 2000)
    {
        QList<int> seen;
        netip_reply r;
        while (wire.read(r, silence_ms)) {
            if (r.id != 1524)
                return seen << -r.id;
            seen << r.ret();
            if (r.ret() == 515)
                break;
        }
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
    void refused_start_data();
    void refused_start();
    void chunk_faults_data();
    void chunk_faults();
    void progress_faults_data();
    void progress_faults();
    void progress_is_paced();
    void new_upload_after_a_failed_one();
    void settings_that_would_break_the_client_data();
    void settings_that_would_break_the_client();
    void streams_64_mib_at_loopback_speed();
};

void test_devsim_upgrade::upload_data()
{
    QTest::addColumn<int>("size");
    QTest::addColumn<QString>("version"); // configured; empty: derived from the image
    QTest::addColumn<QJsonArray>("steps"); // configured progress; empty: the default

    QTest::newRow("empty image: no chunk, end of file with sequence 0") << 0 << "" << QJsonArray {};
    QTest::newRow("one byte") << 1 << "" << QJsonArray {};
    QTest::newRow("exactly one chunk") << chunk_size << "" << QJsonArray {};
    QTest::newRow("one byte past a chunk: two, the second of 1 byte") << chunk_size + 1 << "" << QJsonArray {};
    QTest::newRow("several chunks, configured version") << 3 * chunk_size + 1000 << "V5.00.R02.TEST" << QJsonArray {};
    QTest::newRow("configured progress percentages") << 1000 << "" << QJsonArray { 10, 37, 90 };
}

void test_devsim_upgrade::upload()
{
    QFETCH(int, size);
    QFETCH(QString, version);
    QFETCH(QJsonArray, steps);

    QJsonObject device { { "reboot_ms", 300 }, { "upgrade_step_ms", 20 } };
    if (!version.isEmpty())
        device.insert("upgrade_version", version);
    if (!steps.isEmpty())
        device.insert("upgrade_progress", steps);
    devsim_harness sim;
    QVERIFY2(sim.start(1, device), qPrintable(sim.error()));
    const QString old_version = sim.state(0).value("software_version").toString();
    const QHostAddress address = sim.address(0);
    const quint16 port = sim.port(0);

    const QByteArray image = image_of(size);
    upload_session up;
    QVERIFY(up.open(sim));
    QCOMPARE(up.start(), 100);
    int answered = 0;
    QCOMPARE(up.send_chunks(image, &answered), 100);
    QCOMPARE(answered, chunk_count(size));
    QCOMPARE(up.end_of_file(chunk_count(size)), 100);

    QList<int> expected = default_progress;
    if (!steps.isEmpty()) {
        expected.clear();
        for (const QJsonValue& v : qAsConst(steps))
            expected << v.toInt();
    }
    QCOMPARE(up.progress(), expected << 515);
    // The reboot drops the connection and takes the device off the network for a while.
    QVERIFY(up.wire.closed_within(2000));

    const QString expected_version = version.isEmpty() ? QStringLiteral("V") + md5_of(image).left(8) : version;
    QTRY_COMPARE_WITH_TIMEOUT(sim.state(0).value("boot_count").toInt(), 2, 3000);
    const QJsonObject state = sim.state(0);
    QCOMPARE(state.value("software_version").toString(), expected_version);
    QVERIFY(expected_version != old_version);
    QCOMPARE(state.value("upgrade_md5").toString(), md5_of(image));
    QCOMPARE(state.value("upgrade_size").toInt(), size);
    QCOMPARE(state.value("upgrades").toInt(), 1);
    QCOMPARE(state.value("upgrade_starts").toInt(), 1);

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
    netip_wire back;
    QVERIFY(back.open(address, port));
    const quint32 session = back.login();
    QVERIFY(session);
    netip_reply r;
    QVERIFY(back.exchange(1020, netip_wire::json({ { "Name", "SystemInfo" } }), r, session));
    QCOMPARE(r.body.value("SystemInfo").toObject().value("SoftWareVersion").toString(), expected_version);
}

void test_devsim_upgrade::refused_start_data()
{
    QTest::addColumn<QJsonObject>("faults");
    QTest::addColumn<QByteArray>("body");
    QTest::addColumn<int>("ret");

    QTest::newRow("told to refuse: 512") << QJsonObject { { "refuse_upgrade", true } } << start_body << 512;
    QTest::newRow("wrong Ret on the start")
        << QJsonObject { { "wrong_ret", QJsonObject { { "1520", 512 } } } } << start_body << 512;
    QTest::newRow("action other than Start: illegal request")
        << QJsonObject {}
        << netip_wire::json({ { "Name", "OPSystemUpgrade" },
               { "OPSystemUpgrade", QJsonObject { { "Action", "Stop" }, { "Type", "System" } } } })
        << 103;
    QTest::newRow("body that isn't JSON") << QJsonObject {} << QByteArray("{\"Name\":") << 103;
}

void test_devsim_upgrade::refused_start()
{
    QFETCH(QJsonObject, faults);
    QFETCH(QByteArray, body);
    QFETCH(int, ret);

    devsim_harness sim;
    QVERIFY2(sim.start(1, { { "faults", faults } }), qPrintable(sim.error()));
    upload_session up;
    QVERIFY(up.open(sim));
    netip_reply r;
    QVERIFY(up.wire.exchange(1520, body, r, up.session));
    QCOMPARE(r.id, quint16(1521));
    QCOMPARE(r.ret(), ret);

    // Without a started upload a chunk is refused and nothing is written.
    int answered = 0;
    QCOMPARE(up.send_chunks(image_of(10), &answered), 103);
    QCOMPARE(sim.state(0).value("upgrades").toInt(), 0);
    QCOMPARE(sim.state(0).value("upgrade_md5").toString(), QString());
}

void test_devsim_upgrade::chunk_faults_data()
{
    QTest::addColumn<QJsonObject>("faults");
    QTest::addColumn<int>("first_chunk"); // the client starts here (out of order when not 0)
    QTest::addColumn<int>("eof_sequence"); // -1: the right one
    QTest::addColumn<int>("failing_chunk"); // the chunk number answered badly; 4 is the end of file
    QTest::addColumn<int>("ret"); // -1: no answer, the connection dropped

    const auto f = [](const char* key, const QJsonValue& v) { return QJsonObject { { key, v } }; };
    QTest::newRow("chunk 1 answered 514") << f("chunk_ret", QJsonObject { { "1", 514 } }) << 0 << -1 << 1 << 514;
    QTest::newRow("first chunk answered with an unknown Ret")
        << f("chunk_ret", QJsonObject { { "0", 101 } }) << 0 << -1 << 0 << 101;
    QTest::newRow("wrong Ret on every chunk") << f("wrong_ret", QJsonObject { { "1522", 101 } }) << 0 << -1 << 0 << 101;
    QTest::newRow("connection dropped at chunk 2") << f("drop_at_chunk", 2) << 0 << -1 << 2 << -1;
    QTest::newRow("end of file answered 514") << f("eof_ret", 514) << 0 << -1 << 4 << 514;
    QTest::newRow("client skips chunk 0: 514") << QJsonObject {} << 1 << -1 << 1 << 514;
    QTest::newRow("end of file with the wrong sequence: 514") << QJsonObject {} << 0 << 3 << 4 << 514;
}

void test_devsim_upgrade::chunk_faults()
{
    QFETCH(QJsonObject, faults);
    QFETCH(int, first_chunk);
    QFETCH(int, eof_sequence);
    QFETCH(int, failing_chunk);
    QFETCH(int, ret);

    devsim_harness sim;
    QVERIFY2(sim.start(1, { { "reboot_ms", 200 }, { "upgrade_step_ms", 10 }, { "faults", faults } }),
        qPrintable(sim.error()));
    const QString old_version = sim.state(0).value("software_version").toString();
    const QByteArray image = image_of(3 * chunk_size + 7); // four chunks
    upload_session up;
    QVERIFY(up.open(sim));
    QCOMPARE(up.start(), 100);
    int answered = 0;
    const int chunks_ret = up.send_chunks(image, &answered, first_chunk);
    if (failing_chunk < chunk_count(image.size())) {
        QCOMPARE(chunks_ret, ret);
        QCOMPARE(first_chunk + answered, ret == -1 ? failing_chunk : failing_chunk + 1);
    } else {
        QCOMPARE(chunks_ret, 100);
        QCOMPARE(up.end_of_file(eof_sequence < 0 ? chunk_count(image.size()) : eof_sequence), ret);
    }
    if (ret == -1)
        QVERIFY(up.wire.closed_within(2000));
    else
        QCOMPARE(up.progress(300), QList<int>()); // no progress follows a failure

    // The upgrade was abandoned: no reboot, no new version.
    QTest::qWait(300);
    const QJsonObject state = sim.state(0);
    QCOMPARE(state.value("upgrades").toInt(), 0);
    QCOMPARE(state.value("boot_count").toInt(), 1);
    QCOMPARE(state.value("software_version").toString(), old_version);
}

void test_devsim_upgrade::progress_faults_data()
{
    QTest::addColumn<QJsonObject>("faults");
    QTest::addColumn<QList<int>>("progress");
    QTest::addColumn<bool>("closed");

    QTest::newRow("dropped at 50%") << QJsonObject { { "progress_drop_at", 50 } } << QList<int> { 0, 25 } << true;
    QTest::newRow("dropped before the first report")
        << QJsonObject { { "progress_drop_at", 0 } } << QList<int> {} << true;
    QTest::newRow("silent from 60% on, connection kept")
        << QJsonObject { { "progress_stall_at", 60 } } << QList<int> { 0, 25, 50 } << false;
}

void test_devsim_upgrade::progress_faults()
{
    QFETCH(QJsonObject, faults);
    QFETCH(QList<int>, progress);
    QFETCH(bool, closed);

    devsim_harness sim;
    QVERIFY2(sim.start(1, { { "reboot_ms", 200 }, { "upgrade_step_ms", 50 }, { "faults", faults } }),
        qPrintable(sim.error()));
    const QByteArray image = image_of(chunk_size + 5);
    upload_session up;
    QVERIFY(up.open(sim));
    QCOMPARE(up.start(), 100);
    int answered = 0;
    QCOMPARE(up.send_chunks(image, &answered), 100);
    QCOMPARE(up.end_of_file(2), 100);
    QCOMPARE(up.progress(600), progress);
    QCOMPARE(up.wire.socket.state() != QAbstractSocket::ConnectedState, closed);

    // The image arrived whole, but was never written.
    const QJsonObject state = sim.state(0);
    QCOMPARE(state.value("upgrade_md5").toString(), md5_of(image));
    QCOMPARE(state.value("upgrades").toInt(), 0);
    QCOMPARE(state.value("boot_count").toInt(), 1);
}

void test_devsim_upgrade::progress_is_paced()
{
    const int step_ms = 250;
    devsim_harness sim;
    QVERIFY2(sim.start(1, { { "reboot_ms", 200 }, { "upgrade_step_ms", step_ms } }), qPrintable(sim.error()));
    upload_session up;
    QVERIFY(up.open(sim));
    QCOMPARE(up.start(), 100);
    int answered = 0;
    QCOMPARE(up.send_chunks(image_of(100), &answered), 100);
    QCOMPARE(up.end_of_file(1), 100);

    QElapsedTimer t;
    t.start();
    QList<qint64> times;
    netip_reply r;
    while (up.wire.read(r, 3000) && r.id == 1524) {
        times << t.elapsed();
        if (r.ret() == 515)
            break;
    }
    QCOMPARE(times.size(), default_progress.size() + 1);
    QVERIFY2(times.first() < step_ms / 2, "the first report comes with the end of file");
    for (int i = 1; i < times.size(); ++i)
        QVERIFY2(times.at(i) - times.at(i - 1) >= step_ms - 30, qPrintable(QString::number(times.at(i))));
}

void test_devsim_upgrade::new_upload_after_a_failed_one()
{
    devsim_harness sim;
    QVERIFY2(sim.start(1, { { "reboot_ms", 200 }, { "upgrade_step_ms", 10 } }), qPrintable(sim.error()));
    QVERIFY(sim.set_faults(0, { { "chunk_ret", QJsonObject { { "1", 514 } } } }));
    const QByteArray first = image_of(3 * chunk_size);
    upload_session up;
    QVERIFY(up.open(sim));
    QCOMPARE(up.start(), 100);
    int answered = 0;
    QCOMPARE(up.send_chunks(first, &answered), 514);

    // A new start on the same connection begins from nothing: the hash holds only the new image.
    QVERIFY(sim.clear_faults(0));
    const QByteArray second = image_of(2 * chunk_size - 3).toBase64();
    QCOMPARE(up.start(), 100);
    QCOMPARE(up.send_chunks(second, &answered), 100);
    QCOMPARE(up.end_of_file(chunk_count(second.size())), 100);
    QCOMPARE(up.progress().last(), 515);
    const QJsonObject state = sim.state(0);
    QCOMPARE(state.value("upgrade_md5").toString(), md5_of(second));
    QCOMPARE(state.value("upgrade_starts").toInt(), 2);
    QCOMPARE(state.value("upgrades").toInt(), 1);
}

void test_devsim_upgrade::settings_that_would_break_the_client_data()
{
    QTest::addColumn<QJsonObject>("state");

    QTest::newRow("a pause the client would take for a dead device") << QJsonObject { { "upgrade_step_ms", 5000 } };
    QTest::newRow("a percentage above 100") << QJsonObject { { "upgrade_progress", QJsonArray { 50, 101 } } };
    QTest::newRow("progress that isn't a list") << QJsonObject { { "upgrade_progress", 50 } };
}

void test_devsim_upgrade::settings_that_would_break_the_client()
{
    QFETCH(QJsonObject, state);
    devsim_harness sim;
    QVERIFY2(sim.start(1), qPrintable(sim.error()));
    QVERIFY(!sim.set_state(0, state));
    QCOMPARE(sim.state(0).value("upgrade_step_ms").toInt(), 100);
    QCOMPARE(sim.state(0).value("upgrade_progress").toArray().size(), default_progress.size());
}

void test_devsim_upgrade::streams_64_mib_at_loopback_speed()
{
    const int size = 64 * 1024 * 1024;
    devsim_harness sim;
    QVERIFY2(sim.start(1, { { "reboot_ms", 200 }, { "upgrade_step_ms", 0 } }), qPrintable(sim.error()));
    const QByteArray image = image_of(size);
    upload_session up;
    QVERIFY(up.open(sim));
    up.wire.socket.setSocketOption(QAbstractSocket::LowDelayOption, 1);
    QCOMPARE(up.start(), 100);

    QElapsedTimer t;
    t.start();
    int answered = 0;
    QCOMPARE(up.send_chunks(image, &answered), 100);
    const qint64 elapsed = qMax<qint64>(t.elapsed(), 1);
    QCOMPARE(up.end_of_file(chunk_count(size)), 100);
    QCOMPARE(up.progress().last(), 515);
    QCOMPARE(sim.state(0).value("upgrade_md5").toString(), md5_of(image));
    qInfo("64 MiB, one chunk in flight: %lld ms, %.0f MiB/s", elapsed, 64.0 * 1000 / double(elapsed));
    // Loose enough for a loaded machine and a sanitizer build, tight enough to catch a
    // simulator that copies its buffer per frame or waits per chunk.
    QVERIFY2(elapsed < 20000, qPrintable(QString::number(elapsed)));
}

QTEST_GUILESS_MAIN(test_devsim_upgrade)
#include "test_devsim_upgrade.moc"
