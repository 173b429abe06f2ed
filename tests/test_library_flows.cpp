// The update flow and pack application through the closed device libraries, with stand-ins for them in the program's
// plugin folder: what the row shows, what the library was given, and the confirm.
#include "tests/fake_sdk/fake_sdk_client.h"
#include "tests/support/fleet_fixture.h"
#include "tests/support/packtool_run.h"
#include "ui/main_model.h"

#include <QtTest>

using namespace fleet;

namespace {

// A size whose percentages come out whole in single-precision arithmetic (100 / size is 2^-10).
constexpr int firmware_size = 102400;

// The interactive program with the stand-ins in its plugins and one device; what the library flashes is kept.
bool start(fixture& f, const QJsonObject& fleet_of_serial_zero = {})
{
    if (!fake_sdk_client::install(f.dir.path()) || !f.start_devices(1))
        return false;
    QJsonObject fleet;
    if (!fleet_of_serial_zero.isEmpty())
        fleet.insert(f.serial(0), fleet_of_serial_zero);
    if (!f.start_service(fleet))
        return false;
    qputenv("FAKE_SDK_KEEP", f.dir.filePath("flashed.bin").toLocal8Bit());
    f.make_core(false, core::interactive);
    return true;
}

QByteArray flashed(const fixture& f)
{
    QFile file(f.dir.filePath("flashed.bin"));
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

const QStringList progress_to_the_end { "Downloading update...", "Uploading: 0%", "Uploading: 25%", "Uploading: 50%",
    "Uploading: 75%", "Uploading: 100%", "Upgrading: 0%", "Upgrading: 50%", "Upgrading: 100%", "Done upgrading" };

} // namespace

class test_library_flows : public QObject
{
    Q_OBJECT
private slots:
    // The refusals of initialisation come first: a library initialised once stays so.
    void update_through_the_library_data();
    void update_through_the_library();
    void pack_through_the_library();
};

void test_library_flows::update_through_the_library_data()
{
    QTest::addColumn<QString>("sdk");
    QTest::addColumn<QByteArray>("mode");
    QTest::addColumn<QStringList>("statuses"); // from the download on
    const auto row = [](const char* name, const QString& sdk, const QByteArray& mode, const QStringList& statuses) {
        QTest::newRow(name) << sdk << mode << statuses;
    };
    row("xcloud: init refused", "xcloud", "refuse_init", { "Downloading update...", "System error" });
    row("xcloud: flashed", "xcloud", "flash", progress_to_the_end);
    row("xcloud: the device refuses the image", "xcloud", "fail_501",
        progress_to_the_end.mid(0, 6) + QStringList { "Failed to upgrade: Error 501" });
    row("xnet: log-in refused", "xnet", "refuse_login", { "Downloading update...", "Error 1: Ошибка входа" });
    row("xcloud: upgrade refused", "xcloud", "refuse_upgrade",
        { "Downloading update...", "Error 2: Ошибка запуска обновления" });
}

void test_library_flows::update_through_the_library()
{
    QFETCH(QString, sdk);
    QFETCH(QByteArray, mode);
    const bool ok = mode == "flash";
    fake_sdk_client::set_mode(mode.constData());
    fixture f;
    const QByteArray firmware = image(firmware_size, 'x');
    const QString file = f.service.add_file("fw.bin", firmware);
    const QJsonObject offer { { "file", file }, { "type", 1 }, { "sdk_type", sdk } };
    QVERIFY2(start(f, { { "verdict", "pending" }, { "offers", QJsonArray { offer } } }),
        qPrintable(f.devices.error() + f.service.error()));
    QStringList seen;
    watch_status(f, f.idents[0], &seen);

    f.c->on_window_run_list();
    QTRY_COMPARE_WITH_TIMEOUT(f.ended, 1, 30000);
    QTEST(QStringList(seen.mid(seen.indexOf("Downloading update..."))), "statuses");
    QCOMPARE(f.result(0).ok, ok);
    QCOMPARE(f.service.requests("confirm").size(), ok ? 1 : 0);
    const QString log = f.log_text();
    QVERIFY(log.contains(QStringLiteral("Now using %1 functionality").arg(sdk)));
    if (ok) {
        QVERIFY(log.contains(QStringLiteral("Now changing used functionality from legacy to %1").arg(sdk)));
        QCOMPARE(flashed(f), firmware);
        // The confirm isn't a task of this backend: the line went back to legacy for it.
        QCOMPARE(f.line(f.idents[0])->get(tasks::keys::sdk_in_use).toInt(), 1);
    }
}

void test_library_flows::pack_through_the_library()
{
    fake_sdk_client::set_mode("flash");
    fixture f;
    QVERIFY2(start(f), qPrintable(f.devices.error() + f.service.error()));
    f.c->run_on_selection(tasks::names::identify, {});
    QTRY_COMPARE_WITH_TIMEOUT(f.ended, 1, 30000);
    f.ended = 0;

    const QByteArray firmware = image(firmware_size, 'k');
    const QString pack_file = f.dir.filePath("site.ovpack");
    const QString entry = f.serial(0) + ':' + f.service.add_file("pack-fw.bin", firmware) + ":xnet";
    QCOMPARE(run_packtool({ "build", "-i", f.service.client_id().toHex(), "-o", pack_file, entry }), 0);
    std::shared_ptr<firmware_pack::pack> pack;
    QVERIFY(f.c->load_pack(pack, pack_file));
    const auto targets = f.c->pack_targets(pack, true);
    QCOMPARE(targets.size(), 1);
    QStringList seen;
    watch_status(f, f.idents[0], &seen);
    QVERIFY(f.c->apply_firmware_pack(pack, targets));

    QTRY_COMPARE_WITH_TIMEOUT(f.ended, 1, 30000);
    QCOMPARE(seen.mid(seen.indexOf("Uploading: 0%")), progress_to_the_end.mid(1));
    QCOMPARE(flashed(f), firmware);
    // Nothing confirms a pack: the line keeps its XNet worker.
    QCOMPARE(f.line(f.idents[0])->get(tasks::keys::sdk_in_use).toInt(), 3);
    // The program's own build check may have gone out; nothing of the device's did.
    for (const char* kind : { "update", "file", "confirm" })
        QCOMPARE(f.service.requests(kind).size(), 0);
}

QTEST_MAIN(test_library_flows)
#include "test_library_flows.moc"
