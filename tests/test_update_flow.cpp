#include "app/progress_mailbox.h"
#include "tests/support/fleet_fixture.h"

#include <QtTest>

using namespace fleet;

namespace {

// The service offers a firmware of this size to `count` devices with `defaults`, and a core is made for them.
// The firmware, empty on failure.
QByteArray run_with_offer(fixture& f, int count, int size, const QJsonObject& defaults = {})
{
    const QByteArray firmware = image(size, char('a' + size % 26));
    const QString path = f.service.add_file("ipc.bin", firmware);
    if (!f.start_devices(count, defaults))
        return {};
    QJsonObject fleet;
    for (int i = 0; i < count; ++i)
        fleet.insert(f.serial(i), QJsonObject { { "verdict", "pending" }, { "offers", QJsonArray { path } } });
    if (!f.start_service(fleet))
        return {};
    f.make_core();
    return firmware;
}

} // namespace

class test_update_flow : public QObject
{
    Q_OBJECT
private slots:
    void one_download_serves_two_devices();
    void status_cell_through_a_run_data();
    void status_cell_through_a_run();
    void progress_reaches_the_main_thread_whole();
    void fetch_only_and_force_update();
    void dropped_service_interrupts_waiting_lines();
    void failed_upload_cancels_confirm();
    void offline_mode_opens_no_socket();
    void damaged_download_is_neither_flashed_nor_cached_data();
    void damaged_download_is_neither_flashed_nor_cached();
    void file_arriving_again_flashes_only_waiting_lines();
    void second_row_of_a_device_in_work_data();
    void second_row_of_a_device_in_work();
    void hung_service_ends_the_run();
    void mixed_fleet_ends_once_per_device();
    void closed_library_missing_data();
    void closed_library_missing();
};

void test_update_flow::one_download_serves_two_devices()
{
    fixture f;
    const QByteArray firmware = run_with_offer(f, 2, 100000);
    QVERIFY2(!firmware.isEmpty(), qPrintable(f.devices.error() + f.service.error()));
    f.c->on_window_run_list();
    QTRY_COMPARE_WITH_TIMEOUT(f.ended, 2, 60000);

    QCOMPARE(f.service.requests("file").size(), 1);
    QCOMPARE(f.service.requests("update").size(), 2);
    QCOMPARE(f.service.requests("confirm").size(), 2);
    for (int i = 0; i < 2; ++i) {
        QCOMPARE(f.result(i).text, QStringLiteral("Done upgrading"));
        QVERIFY(f.result(i).ok);
        QCOMPARE(f.devices.state(i)["upgrade_md5"].toString(), md5_hex(firmware));
        QCOMPARE(f.line(f.idents[i])->get(tasks::keys::version).toString(), md5_hex(firmware));
    }
}

void test_update_flow::status_cell_through_a_run_data()
{
    QTest::addColumn<QString>("verdict");
    QTest::addColumn<QStringList>("cells");
    QTest::addColumn<QString>("log_line");
    QTest::addColumn<bool>("ok");
    const QStringList flashed { "Checking updates...", "Downloading update...", "Uploading: 0%", "Uploading: 25%",
        "Uploading: 50%", "Uploading: 75%", "Uploading: 100%", "Upgrading: 0%", "Upgrading: 25%", "Upgrading: 50%",
        "Upgrading: 75%", "Upgrading: 100%", "Done upgrading" };
    QTest::newRow("pending: flashed in four chunks") << "pending" << flashed << "Found updated version for %1 (DVR, legacy functionality)" << true;
    QTest::newRow("no_binding is a success")
        << "no_binding" << QStringList { "Checking updates...", "Firmwares not assigned" } << "No updates for the %1: firmwares not assigned"
        << true;
    QTest::newRow("updated") << "updated" << QStringList { "Checking updates...", "Updates not found" }
                             << "No updates for the %1: updates not found" << true;
    QTest::newRow("denied is a failure") << "denied" << QStringList { "Checking updates...", "Denied in service" }
                                         << "No updates for the %1: denied in service" << false;
    QTest::newRow("any other verdict passes through")
        << "later" << QStringList { "Checking updates...", "E:later" } << "No updates for the %1: E:later" << true;
}

// What the status cell shows, in order, its final colour and the log's line for the verdict.
void test_update_flow::status_cell_through_a_run()
{
    QFETCH(QString, verdict);
    QFETCH(QStringList, cells);
    QFETCH(QString, log_line);
    QFETCH(bool, ok);
    fixture f;
    // Four chunks of 32768 bytes: the upload's percentages are 25 apart.
    const QByteArray firmware = image(4 * 32768, 'v');
    const QString path = f.service.add_file("ipc.bin", firmware);
    QVERIFY2(f.start_devices(1, { { "upgrade_step_ms", 20 } }), qPrintable(f.devices.error()));
    const QJsonObject offer { { "file", path }, { "type", 2 }, { "sdk_type", "legacy" } };
    const QJsonObject entry { { "verdict", verdict }, { "offers", verdict == "pending" ? QJsonArray { offer } : QJsonArray {} } };
    QVERIFY2(f.start_service({ { f.serial(0), entry } }), qPrintable(f.service.error()));
    f.make_core(false, core::interactive);
    QStringList seen;
    watch_status(f, f.idents[0], &seen);
    f.c->on_window_run_list();
    QTRY_COMPARE_WITH_TIMEOUT(f.ended, 1, 30000);

    QCOMPARE(seen.mid(seen.indexOf("Checking updates...")), cells);
    QCOMPARE(f.result(0).ok, ok);
    main_model* model = f.c->model();
    const QModelIndex cell = model->index(model->row_of(f.idents[0]), main_model::col_status);
    QCOMPARE(model->data(cell, Qt::BackgroundRole).value<QColor>(), main_model::status_color(ok ? 1 : 0));
    QVERIFY(f.log_text().contains(log_line.arg(f.serial(0))));
    QCOMPARE(f.service.requests("file").size(), verdict == "pending" ? 1 : 0);
    QCOMPARE(f.service.requests("confirm").size(), verdict == "pending" ? 1 : 0);
    QCOMPARE(f.devices.state(0)["upgrades"].toInt(), verdict == "pending" ? 1 : 0);
}

// A worker's reports come over in batches, yet every one of them and in order; an ending at once.
void test_update_flow::progress_reaches_the_main_thread_whole()
{
    using kind = sdk::prototype::flash_progress_type;
    progress_mailbox mailbox(60000); // no batch is let go by the timer within the test
    QStringList seen;
    connect(&mailbox, &progress_mailbox::delivered, this, [&seen](const QString& ident, kind stage, uint current) {
        seen << QStringLiteral("%1 %2 %3").arg(ident).arg(int(stage)).arg(current);
    });
    const auto put_on_a_thread = [&mailbox](QVector<std::pair<kind, uint>> reports) {
        std::unique_ptr<QThread> t(QThread::create([&mailbox, reports] {
            for (const auto& [stage, current] : reports)
                mailbox.put(QStringLiteral("row"), stage, current, 0);
        }));
        t->start();
        t->wait();
    };
    put_on_a_thread({ { kind::sending, 0 } });
    QTRY_COMPARE(seen, QStringList { "row 2 0" }); // the first goes at once
    put_on_a_thread({ { kind::sending, 50 }, { kind::sending, 100 }, { kind::upgrading, 7 } });
    QTest::qWait(300);
    QCOMPARE(seen.size(), 1); // the rest wait for the batch
    put_on_a_thread({ { kind::done, 0 } });
    QTRY_COMPARE(seen, (QStringList { "row 2 0", "row 2 50", "row 2 100", "row 4 7", "row 6 0" }));
    // On the mailbox's own thread a report is delivered before put() returns.
    mailbox.put(QStringLiteral("main"), kind::sending, 9, 0);
    QCOMPARE(seen.last(), QStringLiteral("main 2 9"));
}

void test_update_flow::fetch_only_and_force_update()
{
    fixture f;
    QVERIFY2(!run_with_offer(f, 1, 5000).isEmpty(), qPrintable(f.devices.error() + f.service.error()));
    f.c->on_window_run_list(false, true, false);
    QTRY_COMPARE_WITH_TIMEOUT(f.ended, 1, 30000);
    QCOMPARE(f.result(0).text, QStringLiteral("Update available"));
    QCOMPARE(f.service.requests("file").size(), 0);
    QCOMPARE(f.service.requests("update").at(0).toObject()["force"].toBool(), false);

    // Fetch-only wins over force; a forced full run reports the flag.
    f.c->on_window_run_list(false, false, true);
    QTRY_COMPARE_WITH_TIMEOUT(f.ended, 2, 30000);
    QCOMPARE(f.service.requests("update").size(), 2);
    QCOMPARE(f.service.requests("update").at(1).toObject()["force"].toBool(), true);
}

void test_update_flow::dropped_service_interrupts_waiting_lines()
{
    fixture f;
    QVERIFY2(!run_with_offer(f, 3, 5000).isEmpty(), qPrintable(f.devices.error() + f.service.error()));
    f.service.set_fault("*", QJsonObject { { "drop", true } });
    f.c->on_window_run_list();
    QTRY_COMPARE_WITH_TIMEOUT(f.ended, 3, 60000);
    for (int i = 0; i < 3; ++i)
        QCOMPARE(f.result(i).text, QStringLiteral("Execution interrupted"));
    QVERIFY(!f.c->remote_enabled());
    QCOMPARE(f.log_text().count("Disabling server communications due to generic network error"), 1);
    QCOMPARE(f.devices.state(0)["upgrades"].toInt(), 0);
}

void test_update_flow::failed_upload_cancels_confirm()
{
    fixture f;
    const QJsonObject chunk_refused { { "faults", QJsonObject { { "chunk_ret", QJsonObject { { "2", 514 } } } } } };
    QVERIFY2(!run_with_offer(f, 1, 200000, chunk_refused).isEmpty(), qPrintable(f.devices.error() + f.service.error()));
    f.c->on_window_run_list();
    QTRY_COMPARE_WITH_TIMEOUT(f.ended, 1, 60000);
    QVERIFY2(f.result(0).text.startsWith("Failed to upgrade: Error "), qPrintable(f.result(0).text));
    QVERIFY(!f.result(0).ok);
    QCOMPARE(f.service.requests("confirm").size(), 0);
    QVERIFY(f.log_text().contains("Canceling tasks: confirm"));
}

void test_update_flow::offline_mode_opens_no_socket()
{
    fixture f;
    QVERIFY2(f.start_devices(1, QJsonObject { { "software_version", "V4.02.R11.HI3516EV.10.0001" } }),
        qPrintable(f.devices.error()));
    QVERIFY2(f.start_service({}), qPrintable(f.service.error()));
    const QByteArray firmware = image(40000, 'e');
    const QString fw = f.service.add_file("fw.bin", firmware);
    const QString list = f.service.add_file("offline_firmwares.list", ("HI3516EV.10 " + fw + " 1 legacy\n").toUtf8());
    const QString previous = QDir::currentPath();
    QVERIFY(!list.isEmpty() && QDir::setCurrent(QFileInfo(list).absolutePath()));
    f.make_core(true);
    QDir::setCurrent(previous);
    f.c->on_window_run_list();
    QTRY_COMPARE_WITH_TIMEOUT(f.ended, 1, 60000);
    QCOMPARE(f.result(0).text, QStringLiteral("Done upgrading"));
    QCOMPARE(f.devices.state(0)["upgrade_md5"].toString(), md5_hex(firmware));
    QCOMPARE(f.service.stats()["connections_total"].toInt(), 0);
}

void test_update_flow::damaged_download_is_neither_flashed_nor_cached_data()
{
    QTest::addColumn<QJsonObject>("fault");
    QTest::newRow("a body that doesn't decrypt")
        << QJsonObject { { "garbage", "<html><body><h1>502 Bad Gateway</h1></body></html>" } };
    QTest::newRow("another firmware than the one asked for") << QJsonObject { { "serve", md5_hex(image(3000, 'x')) } };
}

void test_update_flow::damaged_download_is_neither_flashed_nor_cached()
{
    QFETCH(QJsonObject, fault);
    fixture f;
    QVERIFY(!f.service.add_file("other.bin", image(3000, 'x')).isEmpty());
    const QByteArray firmware = run_with_offer(f, 2, 60000);
    QVERIFY2(!firmware.isEmpty(), qPrintable(f.devices.error() + f.service.error()));
    QVERIFY(f.service.command({ { "cmd", "add_file" }, { "path", "other.bin" } })["ok"].toBool());
    QVERIFY(f.service.set_fault("file", fault));
    f.c->on_window_run_list();
    QTRY_COMPARE_WITH_TIMEOUT(f.ended, 2, 30000);
    for (int i = 0; i < 2; ++i) {
        QCOMPARE(f.result(i).text, QStringLiteral("Damaged firmware"));
        QVERIFY(!f.result(i).ok);
        QCOMPARE(f.devices.requests_of(i, 1520).size(), 0);
    }
    QCOMPARE(f.service.requests("confirm").size(), 0);
    QVERIFY2(f.log_text().contains(QStringLiteral("The download of firmware %1 is damaged").arg(md5_hex(firmware))),
        qPrintable(f.log_text()));
    QVERIFY(!f.log_text().contains("Firmware cached"));

    // Nothing bad stayed in the cache: with the service mended, the next run downloads and flashes.
    f.end_run();
    QVERIFY(f.service.clear_faults());
    f.make_core();
    f.c->on_window_run_list();
    QTRY_COMPARE_WITH_TIMEOUT(f.ended, 2, 30000);
    for (int i = 0; i < 2; ++i)
        QCOMPARE(f.devices.state(i)["upgrade_md5"].toString(), md5_hex(firmware));
    QCOMPARE(f.service.requests("confirm").size(), 2);
}

void test_update_flow::file_arriving_again_flashes_only_waiting_lines()
{
    fixture f;
    QVERIFY2(!run_with_offer(f, 2, 50000).isEmpty(), qPrintable(f.devices.error() + f.service.error()));
    // The first device only asks, and keeps its offer; the second is then updated with the same file.
    f.c->on_window_run_list(false, true, false, { f.idents[0] });
    QTRY_COMPARE_WITH_TIMEOUT(f.ended, 1, 30000);
    f.c->on_window_run_list(false, false, false, { f.idents[1] });
    QTRY_COMPARE_WITH_TIMEOUT(f.ended, 2, 30000);
    QCOMPARE(f.result(1).text, QStringLiteral("Done upgrading"));
    QCOMPARE(f.devices.state(1)["upgrades"].toInt(), 1);
    QCOMPARE(f.devices.requests_of(0, 1520).size(), 0);
    QCOMPARE(f.result(0).text, QStringLiteral("Update available"));
    QCOMPARE(f.service.requests("confirm").size(), 1);
}

void test_update_flow::second_row_of_a_device_in_work_data()
{
    QTest::addColumn<bool>("same_address"); // else two addresses answer with one serial
    QTest::newRow("one address in two rows") << true;
    QTest::newRow("one serial at two addresses") << false;
}

void test_update_flow::second_row_of_a_device_in_work()
{
    QFETCH(bool, same_address);
    fixture f;
    const QByteArray firmware = image(80000, 'd');
    const QString path = f.service.add_file("fw.bin", firmware);
    // The second answers its identify late, so that the first has the device by then.
    const QJsonArray devices { QJsonObject { { "serial", "4f56aaaaaaaaaaaa" } },
        QJsonObject { { "serial", "4f56aaaaaaaaaaaa" },
            { "faults", QJsonObject { { "delay_at", QJsonObject { { "1020", 300 } } } } } } };
    QVERIFY2(f.devices.start(same_address ? 1 : 2, { { "reboot_ms", 200 } }, devices), qPrintable(f.devices.error()));
    const QJsonObject offer { { "verdict", "pending" }, { "offers", QJsonArray { path } } };
    QVERIFY2(f.start_service({ { "4f56aaaaaaaaaaaa", offer } }), qPrintable(f.service.error()));
    f.make_core();
    if (same_address)
        f.idents << f.add_row(f.devices.address(0).toString(), f.devices.port(0));
    f.c->on_window_run_list();
    QTRY_COMPARE_WITH_TIMEOUT(f.ended, 2, 30000);

    QStringList results { f.result(0).text, f.result(1).text };
    results.sort();
    QCOMPARE(results.at(0), QStringLiteral("Done upgrading"));
    QVERIFY2(
        results.at(1).startsWith("This device is already being worked on in another row ("), qPrintable(results.at(1)));
    int starts = 0;
    for (int i = 0; i < f.devices.count(); ++i)
        starts += f.devices.requests_of(i, 1520).size();
    QCOMPARE(starts, 1);
    QCOMPARE(f.service.requests("confirm").size(), 1);
    // The run ends once the device's registration is back.
    QTRY_COMPARE_WITH_TIMEOUT(f.log_text().count("-- all done --"), 1, 10000);
}

void test_update_flow::hung_service_ends_the_run()
{
    fixture f;
    QVERIFY2(!run_with_offer(f, 2, 5000).isEmpty(), qPrintable(f.devices.error() + f.service.error()));
    f.end_run();
    QSettings(f.dir.filePath("ov.config"), QSettings::IniFormat).setValue("Service/timeout_s", 1);
    f.make_core();
    QVERIFY(f.service.set_fault("update", QJsonObject { { "delay_ms", 60000 } }));
    f.c->on_window_run_list();
    QTRY_COMPARE_WITH_TIMEOUT(f.ended, 2, 10000);
    for (int i = 0; i < 2; ++i)
        QCOMPARE(f.result(i).text, QStringLiteral("Execution interrupted"));
    QVERIFY(!f.c->remote_enabled());
    QVERIFY(f.log_text().contains("Remote database access failure, code -11"));
}

// Twenty devices, five of them faulty, a service that spoils two downloads and refuses a device, and a cache the
// program can't use: every device ends once, the run ends after the last, and only real flashes are confirmed.
void test_update_flow::mixed_fleet_ends_once_per_device()
{
    fixture f;
    const auto faults = [](const QJsonObject& set) { return QJsonObject { { "faults", set } }; };
    // Faults that break the connection: a refusal would cost the client's five silent seconds.
    const QJsonArray devices { faults({ { "close_at", QJsonArray { 1020 } } }), faults({ { "drop_at_chunk", 2 } }),
        faults({ { "progress_drop_at", 50 } }), faults({ { "close_at", QJsonArray { 1520 } } }),
        faults({ { "delay_at", QJsonObject { { "1020", 300 } } } }) }; // the last is only late
    QVERIFY2(f.devices.start(20, { { "reboot_ms", 200 }, { "upgrade_step_ms", 20 } }, devices),
        qPrintable(f.devices.error()));
    const QByteArray firmware = image(100000, 'a');
    const QString good = f.service.add_file("a.bin", firmware);
    const auto offer = [](const QString& file) {
        return QJsonObject { { "verdict", "pending" }, { "offers", QJsonArray { file } } };
    };
    QJsonObject fleet;
    for (int i = 0; i < 20; ++i)
        fleet.insert(f.serial(i), offer(good));
    fleet.insert(f.serial(5), offer(f.service.add_file("b.bin", image(20000, 'b'))));
    fleet.insert(f.serial(6), offer(f.service.add_file("c.bin", image(30000, 'c'))));
    fleet.insert(f.serial(7), QJsonObject { { "error", 9 } });
    QVERIFY2(f.start_service(fleet), qPrintable(f.service.error()));
    QVERIFY(
        f.service.set_fault("file", { { "garbage", "<html><body>504 Gateway Timeout</body></html>" } }, f.serial(5)));
    QVERIFY(f.service.set_fault("file", { { "serve", md5_hex(firmware) } }, f.serial(6)));
    QFile cache(f.dir.filePath("cache.ovpack"));
    QVERIFY(cache.open(QIODevice::WriteOnly) && cache.write("not a cache at all") > 0);
    cache.close();
    f.make_core();
    QVERIFY(!f.c->cache_in_use());

    f.c->on_window_run_list();
    QTRY_COMPARE_WITH_TIMEOUT(f.ended, 20, 60000);
    QTest::qWait(300); // room for a late report to show
    QCOMPARE(f.ended, 20);
    const QStringList lines = f.log_text().split('\n');
    QVERIFY2(lines.last().endsWith("[core]: -- all done --"), qPrintable(lines.last()));
    QCOMPARE(lines.filter("-- all done --").size(), 1);

    const QSet<int> good_devices { 4, 8, 9, 10, 11, 12, 13, 14, 15, 16, 17, 18, 19 };
    int flashed = 0;
    for (int i = 0; i < 20; ++i) {
        QCOMPARE(lines.filter(f.endpoint_of(f.idents[i]).short_form() + ": Flow ended").size(), 1);
        const int upgrades = f.devices.state(i)["upgrades"].toInt();
        flashed += upgrades;
        if (good_devices.contains(i)) {
            QCOMPARE(f.result(i).text, QStringLiteral("Done upgrading"));
            QCOMPARE(f.devices.requests_of(i, 1520).size(), 1);
            QCOMPARE(upgrades, 1);
            QCOMPARE(f.devices.state(i)["upgrade_md5"].toString(), md5_hex(firmware));
            QCOMPARE(f.service.requests("confirm", f.serial(i)).size(), 1);
        } else {
            QVERIFY2(!f.result(i).ok, qPrintable(QString::number(i) + ": " + f.result(i).text));
            QCOMPARE(upgrades, 0);
            QCOMPARE(f.service.requests("confirm", f.serial(i)).size(), 0);
        }
    }
    QCOMPARE(flashed, good_devices.size());
    QCOMPARE(f.service.requests("confirm").size(), flashed);
}

void test_update_flow::closed_library_missing_data()
{
    QTest::addColumn<QString>("sdk");
    QTest::addColumn<QString>("library");
    QTest::newRow("xcloud") << "xcloud"
                            << "libXCloudSDK.so";
    QTest::newRow("xnet") << "xnet"
                          << "libXNetSDK.so";
}

void test_update_flow::closed_library_missing()
{
    QFETCH(QString, sdk);
    QFETCH(QString, library);
    fixture f;
    QVERIFY2(f.start_devices(1), qPrintable(f.devices.error()));
    const QString file = f.service.add_file("fw.bin", image(20000, 'n'));
    const QJsonObject offer { { "file", file }, { "sdk_type", sdk } };
    QVERIFY2(f.start_service({ { f.serial(0), QJsonObject { { "verdict", "pending" }, { "offers", QJsonArray { offer } } } } }),
        qPrintable(f.service.error()));
    f.make_core();
    f.c->on_window_run_list();
    QTRY_COMPARE_WITH_TIMEOUT(f.ended, 1, 30000);

    QCOMPARE(f.result(0).text, QStringLiteral("System error"));
    QVERIFY(!f.result(0).ok);
    QCOMPARE(f.service.requests("confirm").size(), 0);
    const QString log = f.log_text();
    QVERIFY2(log.contains(QStringLiteral("Device library %1 can't be used: ").arg(library)), qPrintable(log));
    QVERIFY(log.indexOf(library) < log.indexOf("SDK init failed"));
    // Nothing is claimed for a library that isn't there.
    QVERIFY(log.contains("xc_support: false, xn_support: false"));
}

QTEST_MAIN(test_update_flow)
#include "test_update_flow.moc"
