// Firmware kept on disk: the cache between runs and packs applied without the service.
#include "delivery/pack_crypto.h"
#include "firmware_pack/pack.h"
#include "firmware_pack/pack_files.h"
#include "firmware_pack/pack_v3.h"
#include "tests/support/fleet_fixture.h"
#include "tests/support/packtool_run.h"

#include <QFile>
#include <QFileInfo>
#include <QtTest>

using namespace fleet;

namespace {

// Empty when the pack builder succeeds, else what it said.
QString packtool(const QStringList& args)
{
    QByteArray output;
    return run_packtool(args, &output) == 0 ? QString() : QString::fromUtf8(output) + QStringLiteral(" (failed)");
}

QJsonObject offer(const QString& file)
{
    return QJsonObject { { "verdict", "pending" }, { "offers", QJsonArray { file } } };
}

// Flips bytes in the middle of a file, where a cached firmware's payload lies.
bool garble_middle(const QString& path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadWrite))
        return false;
    QByteArray bytes = file.readAll();
    for (int i = int(bytes.size() / 2); i < bytes.size() / 2 + 16; ++i)
        bytes[i] = char(~bytes[i]);
    return file.seek(0) && file.write(bytes) == bytes.size();
}

} // namespace

class test_firmware_cache : public QObject
{
    Q_OBJECT
private slots:
    void second_run_needs_no_download();
    void garbled_cache_falls_back_to_the_service();
    void foreign_cache_is_not_used();
    void full_cache_takes_no_more();
    void pack_flashes_checked_present_devices_data();
    void pack_flashes_checked_present_devices();
    void damaged_pack_is_reported_beside_the_good_one();
    void cache_write_failure_still_flashes_data();
    void cache_write_failure_still_flashes();
    void shutdown_while_caching_keeps_the_cache();
};

void test_firmware_cache::second_run_needs_no_download()
{
    fixture f;
    QVERIFY2(f.start_devices(2), qPrintable(f.devices.error()));
    const QByteArray firmware = image(120000, 'c');
    const QString file = f.service.add_file("fw.bin", firmware);
    QVERIFY2(f.start_service({ { f.serial(0), offer(file) }, { f.serial(1), offer(file) } }), qPrintable(f.service.error()));
    f.make_core();
    QVERIFY(f.log_text().contains("Created the cache file."));
    f.c->on_window_run_list();
    QTRY_COMPARE_WITH_TIMEOUT(f.ended, 2, 60000);
    QCOMPARE(f.service.requests("file").size(), 1);
    QCOMPARE(f.log_text().count("Firmware cached"), 1);
    f.end_run();
    QVERIFY(f.devices_back());

    QVERIFY(f.service.clear_requests());
    f.make_core();
    QVERIFY(!f.log_text().contains("Created the cache file."));
    f.c->on_window_run_list();
    QTRY_COMPARE_WITH_TIMEOUT(f.ended, 2, 60000);
    QCOMPARE(f.service.requests("file").size(), 0);
    QCOMPARE(f.service.requests("confirm").size(), 2);
    QCOMPARE(f.log_text().count("The update is found in the cache"), 2);
    QVERIFY(!f.log_text().contains("Firmware cached"));
    for (int i = 0; i < 2; ++i) {
        QCOMPARE(f.result(i).text, QStringLiteral("Done upgrading"));
        QCOMPARE(f.devices.state(i)["upgrade_md5"].toString(), md5_hex(firmware));
    }
    QVERIFY(f.c->cache_in_use());
    // The file written by the program passes the supplier's tool.
    QCOMPARE(packtool({ "check", "-i", f.service.client_id().toHex(), f.dir.filePath("cache.ovpack") }), QString());
}

void test_firmware_cache::garbled_cache_falls_back_to_the_service()
{
    fixture f;
    QVERIFY2(f.start_devices(1), qPrintable(f.devices.error()));
    const QByteArray firmware = image(200000, 'g');
    QVERIFY2(f.start_service({ { f.serial(0), offer(f.service.add_file("fw.bin", firmware)) } }), qPrintable(f.service.error()));
    f.make_core();
    f.c->on_window_run_list();
    QTRY_COMPARE_WITH_TIMEOUT(f.ended, 1, 60000);
    f.end_run();
    QVERIFY(f.devices_back());

    QVERIFY(garble_middle(f.dir.filePath("cache.ovpack")));
    QVERIFY(f.service.clear_requests());
    f.make_core();
    QVERIFY(f.c->cache_in_use());
    f.c->on_window_run_list();
    QTRY_COMPARE_WITH_TIMEOUT(f.ended, 1, 60000);
    QVERIFY2(f.log_text().contains(
                 "Failed to extract the data from the cache file: cached update data mismatches target."),
        qPrintable(f.log_text()));
    QVERIFY(!f.c->cache_in_use());
    QCOMPARE(f.service.requests("file").size(), 1);
    QCOMPARE(f.result(0).text, QStringLiteral("Done upgrading"));
    QCOMPARE(f.devices.state(0)["upgrade_md5"].toString(), md5_hex(firmware));
    // Switched off, the cache isn't written again: the bad entry stays as it was.
    QVERIFY(!f.log_text().contains("Firmware cached"));
}

void test_firmware_cache::foreign_cache_is_not_used()
{
    fixture f;
    QVERIFY2(f.start_devices(1), qPrintable(f.devices.error()));
    const QByteArray firmware = image(50000, 'f');
    const QString file = f.service.add_file("fw.bin", firmware);
    QVERIFY2(f.start_service({ { f.serial(0), offer(file) } }), qPrintable(f.service.error()));
    // A cache of another service identity: its idents don't open under ours. A wrong key passes the
    // padding check about once in 256 frames, so a lucky file is built anew with fresh IVs. Judged by
    // the program's own loader, which opens the idents only (the tool's check opens the payload too).
    const QString cache = f.dir.filePath("cache.ovpack");
    const delivery::pack_crypto ours = delivery::make_pack_crypto(f.service.client_id());
    bool foreign = false;
    for (int attempt = 0; attempt < 3 && !foreign; ++attempt) {
        QCOMPARE(packtool({ "build", "-i", "0102030405060708", "--cache", "--force", "-o", cache, file }), QString());
        firmware_pack::pack_v3 probe;
        foreign = !probe.load(cache, ours.target_decryptor, ours.ident_decryptor);
    }
    QVERIFY(foreign);

    f.make_core();
    QVERIFY2(f.log_text().contains("Failed to load the cache file: error code 12."), qPrintable(f.log_text()));
    QVERIFY(!f.c->cache_in_use());
    f.c->on_window_run_list();
    QTRY_COMPARE_WITH_TIMEOUT(f.ended, 1, 60000);
    QCOMPARE(f.result(0).text, QStringLiteral("Done upgrading"));
    QCOMPARE(f.service.requests("file").size(), 1);
}

void test_firmware_cache::full_cache_takes_no_more()
{
    fixture f;
    QVERIFY2(f.start_devices(1), qPrintable(f.devices.error()));
    const QByteArray firmware = image(30000, 'n');
    QVERIFY2(f.start_service({ { f.serial(0), offer(f.service.add_file("fw.bin", firmware)) } }),
        qPrintable(f.service.error()));
    // A cache of this service identity that already holds as many firmwares as its count can say.
    const QString path = f.dir.filePath("cache.ovpack");
    const delivery::pack_crypto crypto = delivery::make_pack_crypto(f.service.client_id());
    firmware_pack::pack_v3 cache;
    QVERIFY(firmware_pack::create(path, 3) && cache.load(path, crypto.target_decryptor, crypto.ident_decryptor));
    for (int i = 0; i < firmware_pack::pack::max_blocks; ++i)
        QVERIFY(cache.add(md5_hex(QByteArray::number(i)), QByteArray::number(i), crypto.ident_encryptor,
            crypto.payload_encryptor, 1));

    f.make_core();
    QVERIFY(f.c->cache_in_use());
    f.c->on_window_run_list();
    QTRY_COMPARE_WITH_TIMEOUT(f.ended, 1, 30000);
    QCOMPARE(f.result(0).text, QStringLiteral("Done upgrading"));
    QVERIFY2(f.log_text().contains("The cache file is full with 255 firmwares: no more are added to it"),
        qPrintable(f.log_text()));
    firmware_pack::pack_v3 again;
    QVERIFY(again.load(path, crypto.target_decryptor, crypto.ident_decryptor));
    QCOMPARE(again.idents().size(), firmware_pack::pack::max_blocks);
    QVERIFY(!again.contains(md5_hex(firmware)));
}

void test_firmware_cache::pack_flashes_checked_present_devices_data()
{
    QTest::addColumn<QString>("sdk");
    QTest::addColumn<QString>("text");
    QTest::addColumn<bool>("flashed");
    QTest::newRow("no functionality named: legacy") << QString() << "Done upgrading" << true;
    QTest::newRow("a closed library that isn't here") << "xcloud" << "System error" << false;
}

void test_firmware_cache::pack_flashes_checked_present_devices()
{
    QFETCH(QString, sdk);
    QFETCH(QString, text);
    QFETCH(bool, flashed);

    fixture f;
    QVERIFY2(f.start_devices(3), qPrintable(f.devices.error()));
    QVERIFY2(f.start_service({}), qPrintable(f.service.error()));
    f.make_core();
    // Two of the pack's three serials are in the table, and a line knows its serial from identify alone.
    f.c->on_window_delete_element(f.idents.takeLast());
    f.c->run_on_selection(tasks::names::identify, {});
    QTRY_COMPARE_WITH_TIMEOUT(f.ended, 2, 30000);
    f.ended = 0;

    const QByteArray firmware = image(150000, 'p');
    const QString file = f.service.add_file("pack-fw.bin", firmware);
    const QString pack_file = f.dir.filePath("site.ovpack");
    QStringList args { "build", "-i", f.service.client_id().toHex(), "-o", pack_file };
    for (int i = 0; i < 3; ++i)
        args << f.serial(i) + ':' + file + (sdk.isEmpty() ? QString() : ':' + sdk);
    QCOMPARE(packtool(args), QString());

    QStringList errors;
    const QList<pack_list_model::record> offers = f.c->pack_offers({ pack_file }, errors);
    QVERIFY2(errors.isEmpty(), qPrintable(errors.join('\n')));
    QCOMPARE(offers.size(), 1);
    QVERIFY(!offers[0].ok);
    QCOMPARE(offers[0].targets.size(), 3);
    QMap<QString, bool> present;
    model_structures::device_list chosen; // the user leaves the second device out
    for (const auto& t : offers[0].targets) {
        present[t.serial] = t.present;
        QCOMPARE(t.sdk_type, sdk);
        if (t.serial != f.serial(1))
            chosen << t;
    }
    QCOMPARE(present, (QMap<QString, bool> { { f.serial(0), true }, { f.serial(1), true }, { f.serial(2), false } }));
    std::shared_ptr<firmware_pack::pack> pack;
    QVERIFY(f.c->load_pack(pack, pack_file));
    QVERIFY(f.c->apply_firmware_pack(pack, chosen));
    QTRY_COMPARE_WITH_TIMEOUT(f.ended, 1, 60000);
    QCOMPARE(f.result(0).text, text);
    for (int i = 0; i < 3; ++i)
        QCOMPARE(f.devices.state(i)["upgrade_md5"].toString(), i == 0 && flashed ? md5_hex(firmware) : QString());
    // A device flashed from a pack isn't reported to the service, nor asked about.
    QCOMPARE(f.service.requests().size(), 0);
}

void test_firmware_cache::damaged_pack_is_reported_beside_the_good_one()
{
    fixture f;
    QVERIFY2(f.start_service({}), qPrintable(f.service.error()));
    f.make_core();
    const QString file = f.service.add_file("fw.bin", image(40000, 'd'));
    const QString good = f.dir.filePath("good.ovpack");
    const QString damaged = f.dir.filePath("damaged.ovpack");
    QCOMPARE(packtool({ "build", "-i", f.service.client_id().toHex(), "-o", good, "SN-A:" + file, "SN-B:" + file }), QString());
    QVERIFY(QFile::copy(good, damaged));
    // Cut inside the first target row; a short payload would only show when extracted.
    QVERIFY(QFile::resize(damaged, 40));

    QStringList errors;
    const QList<pack_list_model::record> offers = f.c->pack_offers({ good, damaged }, errors);
    QCOMPARE(errors.size(), 1);
    QVERIFY2(errors[0].startsWith('"' + damaged + "\": error code "), qPrintable(errors[0]));
    QCOMPARE(offers.size(), 2);
    // The sign stands beside the pack that loaded; the broken one is listed without targets.
    QCOMPARE(offers[0].ok, false);
    QCOMPARE(offers[0].targets.size(), 2);
    QCOMPARE(offers[1].ok, true);
    QVERIFY(offers[1].targets.isEmpty());
}

void test_firmware_cache::cache_write_failure_still_flashes_data()
{
    QTest::addColumn<bool>("disk_full"); // else the file went away after loading
    QTest::newRow("a full disk") << true;
    QTest::newRow("the cache file removed") << false;
}

// The download is cached off the main thread; a write that fails there still serves every waiting device.
void test_firmware_cache::cache_write_failure_still_flashes()
{
    QFETCH(bool, disk_full);
    fixture f;
    QVERIFY2(f.start_devices(2), qPrintable(f.devices.error()));
    const QByteArray firmware = image(300000, 'w');
    const QString file = f.service.add_file("fw.bin", firmware);
    QVERIFY2(f.start_service({ { f.serial(0), offer(file) }, { f.serial(1), offer(file) } }), qPrintable(f.service.error()));
    f.make_core();
    QVERIFY(f.c->cache_in_use());
    const QString path = f.dir.filePath("cache.ovpack");
    QVERIFY(QFile::remove(path));
    if (disk_full)
        QVERIFY(QFile::link("/dev/full", path));
    f.c->on_window_run_list();
    QTRY_COMPARE_WITH_TIMEOUT(f.ended, 2, 60000);
    for (int i = 0; i < 2; ++i) {
        QCOMPARE(f.result(i).text, QStringLiteral("Done upgrading"));
        QCOMPARE(f.devices.state(i)["upgrade_md5"].toString(), md5_hex(firmware));
    }
    // A line reaching flash after a download that wasn't kept asks again, and that write fails too.
    const int downloads = int(f.service.requests("file").size());
    QVERIFY(downloads >= 1);
    const QString log = f.log_text();
    QVERIFY2(log.indexOf("Firmware cached") >= 0
            && log.indexOf("Firmware cached") < log.indexOf("Error adding to the cache file"),
        qPrintable(log));
    QCOMPARE(int(log.count("Error adding to the cache file")), downloads);
    // A file that went away isn't made anew.
    QCOMPARE(QFileInfo(path).exists(), disk_full);
}

// The program ends while the download is being checked and written: the write completes first, and the
// next run takes the firmware from the cache.
void test_firmware_cache::shutdown_while_caching_keeps_the_cache()
{
    fixture f;
    QVERIFY2(f.start_devices(1), qPrintable(f.devices.error()));
    const QByteArray firmware = image(4 << 20, 's');
    QVERIFY2(f.start_service({ { f.serial(0), offer(f.service.add_file("fw.bin", firmware)) } }), qPrintable(f.service.error()));
    f.make_core();
    QObject watcher;
    bool ended_early = false;
    // Queued, so the core has started its work on the download before it goes.
    QObject::connect(&f.c->service(), &client::file_received, &watcher, [&] {
        f.end_run();
        ended_early = true;
    }, Qt::QueuedConnection);
    f.c->on_window_run_list();
    QTRY_VERIFY_WITH_TIMEOUT(ended_early, 60000);
    QCOMPARE(f.devices.state(0)["upgrades"].toInt(), 0);
    QCOMPARE(packtool({ "check", "-i", f.service.client_id().toHex(), f.dir.filePath("cache.ovpack") }), QString());

    QVERIFY(f.service.clear_requests());
    f.make_core();
    f.c->on_window_run_list();
    QTRY_COMPARE_WITH_TIMEOUT(f.ended, 1, 60000);
    QCOMPARE(f.result(0).text, QStringLiteral("Done upgrading"));
    QCOMPARE(f.service.requests("file").size(), 0);
    QVERIFY2(f.log_text().contains("The update is found in the cache"), qPrintable(f.log_text()));
    QCOMPARE(f.devices.state(0)["upgrade_md5"].toString(), md5_hex(firmware));
}

QTEST_GUILESS_MAIN(test_firmware_cache)
#include "test_firmware_cache.moc"
