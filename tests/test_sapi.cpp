// The scripting API on its own: conversions, tones, web requests, console forms, refusals, autorun, plugin slots.
#include "plugins/plugin_interface.h"
#include "scripting/autorun.h"
#include "scripting/lua_runtime.h"
#include "scripting/sapi.h"
#include "tasks/manager.h"
#include "tests/support/http_server.h"
#include "tests/support/loop_watch.h"
#include "tests/support/recording_console.h"

#include <QAudioDeviceInfo>
#include <QtTest>

#include <cmath>
#include <cstring>

namespace {

// A sapi over a manager and a settings file of its own, with the core's part played by the test.
struct api_fixture
{
    api_fixture()
        : settings(dir.filePath("ov.config"), QSettings::IniFormat)
    {
        sapi::core_functions f;
        f.echo_enabled = [this] { return echo; };
        f.batch = [this] { return batch; };
        f.clear_devices = [this] { ++clears; };
        api = std::make_unique<sapi>(std::move(f), manager, settings);
        api->set_console(&console);
    }

    QTemporaryDir dir;
    QSettings settings;
    tasks::manager manager;
    recording_console console;
    std::unique_ptr<sapi> api;
    bool echo = true;
    bool batch = true;
    int clears = 0;
};

// Times the samples change sign: twice per period of a clean sine.
int zero_crossings(const QByteArray& samples)
{
    int crossings = 0;
    const auto* s = reinterpret_cast<const qint16*>(samples.constData());
    for (int i = 1; i < samples.size() / 2; ++i) {
        if ((s[i - 1] < 0) != (s[i] < 0))
            ++crossings;
    }
    return crossings;
}

// Itanium C++ ABI: a pointer to a virtual member function holds 1 + the byte offset of its entry in the vtable.
template <typename F>
std::ptrdiff_t vtable_index(F member)
{
    static_assert(sizeof(F) == 2 * sizeof(std::uintptr_t), "not an Itanium member function pointer");
    std::uintptr_t raw[2];
    std::memcpy(raw, &member, sizeof raw);
    return std::ptrdiff_t(raw[0] - 1) / std::ptrdiff_t(sizeof(void*));
}

} // namespace

class test_sapi : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase() { QStandardPaths::setTestModeEnabled(true); }
    void units_data();
    void units();
    void booleans_data();
    void booleans();
    void tones_data();
    void tones();
    void tones_without_audio_output_fail();
    void rest_get_data();
    void rest_get();
    void other_requests();
    void download_writes_the_body_data();
    void download_writes_the_body();
    void output_forms_follow_the_echo_switch();
    void toolbar_refusals_data();
    void toolbar_refusals();
    void scan_is_refused_while_tasks_run();
    void wait_serves_the_event_loop();
    void autorun_list_data();
    void autorun_list();
    void autorun_stops_at_the_first_failure();
    void autorun_list_needs_quotes_in_the_file();
    void lua_needs_an_initialized_runtime();
    void plugins_see_the_slots_in_order();
};

void test_sapi::units_data()
{
    QTest::addColumn<bool>("time"); // else a frequency
    QTest::addColumn<QString>("text");
    QTest::addColumn<double>("value"); // seconds or hertz
    QTest::newRow("microseconds") << true << "250us" << 0.00025;
    QTest::newRow("micro sign") << true << QStringLiteral("3µs") << 0.000003;
    QTest::newRow("milliseconds") << true << "500ms" << 0.5;
    QTest::newRow("minute, not milli") << true << "1m" << 60.0;
    QTest::newRow("hours") << true << "2h" << 7200.0;
    QTest::newRow("days") << true << "1.5d" << 129600.0;
    QTest::newRow("seconds") << true << "7s" << 7.0;
    QTest::newRow("upper case") << true << "2MS" << 0.002;
    QTest::newRow("no unit") << true << "2.5" << 2.5;
    QTest::newRow("unreadable") << true << "abc" << 0.0;
    QTest::newRow("zero with a unit") << true << "0s" << 0.0;
    QTest::newRow("unit alone") << true << "ms" << 0.0;
    QTest::newRow("kilohertz") << false << "1kHz" << 1000.0;
    QTest::newRow("megahertz") << false << "2MHz" << 2000000.0;
    QTest::newRow("hertz") << false << "500Hz" << 500.0;
    QTest::newRow("any case") << false << "1.5KHZ" << 1500.0;
    QTest::newRow("no unit, hertz") << false << "440" << 440.0;
    QTest::newRow("unreadable, hertz") << false << "loud" << 0.0;
}

void test_sapi::units()
{
    QFETCH(bool, time);
    QFETCH(QString, text);
    QFETCH(double, value);
    const double read = time ? sapi::to_seconds(text) : sapi::to_hertz(text);
    QVERIFY2(qFuzzyCompare(1 + read, 1 + value), qPrintable(QString::number(read)));
}

void test_sapi::booleans_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<int>("value"); // -1: unsupported
    for (const char* word : { "yes", "1", "true", "on", "enable", "enabled", "YES", "On" })
        QTest::newRow(word) << word << 1;
    for (const char* word : { "no", "0", "false", "off", "disable", "disabled", "Off" })
        QTest::newRow(word) << word << 0;
    for (const char* word : { "maybe", "", "2", "y" })
        QTest::newRow(qPrintable(QStringLiteral("unsupported \"%1\"").arg(word))) << word << -1;
}

void test_sapi::booleans()
{
    QFETCH(QString, text);
    QFETCH(int, value);
    try {
        const bool b = sapi::to_bool(text);
        QVERIFY2(value != -1, "no exception");
        QCOMPARE(int(b), value);
    } catch (const sapi::unsupported_value_exception& e) {
        QCOMPARE(value, -1);
        QCOMPARE(e.value(), text);
        QCOMPARE(QString::fromUtf8(e.what()), QStringLiteral("Unsupported value: %1").arg(text));
    }
}

void test_sapi::tones_data()
{
    QTest::addColumn<QString>("frequency");
    QTest::addColumn<QString>("duration");
    QTest::addColumn<int>("samples");
    QTest::newRow("1kHz for 100ms") << "1kHz" << "100ms" << 4410;
    QTest::newRow("500Hz for 1s") << "500Hz" << "1s" << 44100;
    QTest::newRow("no duration") << "1kHz" << "abc" << 0;
}

void test_sapi::tones()
{
    QFETCH(QString, frequency);
    QFETCH(QString, duration);
    QFETCH(int, samples);
    const double hertz = sapi::to_hertz(frequency);
    const double seconds = sapi::to_seconds(duration);
    const QByteArray pcm = sapi::tone_samples(hertz, seconds);
    QCOMPARE(pcm.size(), samples * 2);
    if (samples == 0)
        return;
    // The frequency, measured on the samples: two sign changes per period.
    const double measured = zero_crossings(pcm) / 2.0 / seconds;
    QVERIFY2(std::abs(measured - hertz) <= hertz * 0.01, qPrintable(QString::number(measured)));
    // Full scale, little-endian 16-bit, starting at zero.
    const auto* s = reinterpret_cast<const qint16*>(pcm.constData());
    QCOMPARE(s[0], qint16(0));
    QCOMPARE(qFromLittleEndian<qint16>(pcm.constData() + 2), qint16(std::sin(hertz * 2 * M_PI / 44100) * 32767));
    const auto [low, high] = std::minmax_element(s, s + samples);
    QVERIFY(*high >= 32700 && *low <= -32700);
}

void test_sapi::tones_without_audio_output_fail()
{
    if (!QAudioDeviceInfo::defaultOutputDevice().isNull())
        QSKIP("this machine has an audio output");
    api_fixture f;
    QElapsedTimer clock;
    clock.start();
    QVERIFY(!f.api->play_tones({ { 1000.f, 0.1f }, { 500.f, 1.f } }));
    QVERIFY(clock.elapsed() < 1000);
    f.api->sapi_play_beep({ { 1000.f, 0.1f } });
    QCOMPARE(f.console.lines, QStringList { "error: No audio output to play the sound" });
}

void test_sapi::rest_get_data()
{
    QTest::addColumn<QByteArray>("body");
    QTest::addColumn<QStringList>("members"); // "key=value", in key order
    QTest::newRow("flat object") << QByteArray(R"({"b": 2, "a": "x", "c": true, "d": null})")
                                 << QStringList { "a=x", "b=2", "c=true", "d=" };
    QTest::newRow("nested values as JSON") << QByteArray(R"({"o": {"k": 1}, "l": [1, 2]})")
                                           << QStringList { "l=[1,2]", "o={\"k\":1}" };
    QTest::newRow("not JSON") << QByteArray("plain words\n") << QStringList { "-raw-=plain words\n" };
    QTest::newRow("a JSON array") << QByteArray("[1, 2]") << QStringList { "-raw-=[1, 2]" };
    QTest::newRow("empty object") << QByteArray("{}") << QStringList { "-raw-={}" };
    QTest::newRow("empty body") << QByteArray() << QStringList {};
}

void test_sapi::rest_get()
{
    QFETCH(QByteArray, body);
    http_server server;
    QVERIFY(server.start());
    server.set_answer("/data", { 200, body, "application/json" });
    api_fixture f;
    const param_list answer = f.api->sapi_rest_get(server.url("/data"));
    QStringList got;
    for (auto it = answer.cbegin(); it != answer.cend(); ++it)
        got << it.key() + "=" + it.value();
    QTEST(got, "members");
    QCOMPARE(server.requests().value(0).method, QByteArray("GET"));
}

// A post sends a form and reads no raw body; contents stop at a NUL; a failed request gives nothing.
void test_sapi::other_requests()
{
    http_server server;
    QVERIFY(server.start());
    server.set_answer("/json", { 200, R"({"ok": 1})" });
    server.set_answer("/text", { 200, "accepted" });
    server.set_answer("/t", { 200, QByteArray("caf\xe9\nline\0hidden", 15) });
    api_fixture f;
    QCOMPARE(f.api->sapi_rest_post(server.url("/json"), "a=1&b=ü"), (param_list { { "ok", "1" } }));
    QVERIFY(f.api->sapi_rest_post(server.url("/text"), "x").isEmpty());
    const http_server::request& sent = server.requests().value(0);
    QCOMPARE(sent.method, QByteArray("POST"));
    QCOMPARE(sent.headers.value("content-type"), QByteArray("application/x-www-form-urlencoded"));
    QCOMPARE(sent.body, QByteArray("a=1&b=ü"));
    QCOMPARE(f.api->sapi_url_data(server.url("/t")).size(), 15);
    QCOMPARE(f.api->sapi_url_contents(server.url("/t")), QStringLiteral("café\nline"));

    QTcpServer probe;
    QVERIFY(probe.listen(QHostAddress::LocalHost, 0));
    const QUrl closed(QStringLiteral("http://127.0.0.1:%1/").arg(probe.serverPort()));
    probe.close();
    QVERIFY(f.api->sapi_url_data(closed).isEmpty());
    QVERIFY(f.api->sapi_rest_get(closed).isEmpty());
}

void test_sapi::download_writes_the_body_data()
{
    QTest::addColumn<bool>("batch");
    QTest::addColumn<QString>("name"); // "<dir>/" stands for a folder of the test's own
    QTest::addColumn<QString>("expected"); // "<data>/" the program's data folder
    QTest::addColumn<bool>("written");
    QTest::newRow("path kept") << false << "<dir>/fw.bin" << "<dir>/fw.bin" << true;
    QTest::newRow("bare name, window: data folder") << false << "sapi_fw.bin" << "<data>/sapi_fw.bin" << true;
    QTest::newRow("bare name, batch: as given") << true << "sapi_fw.bin" << "sapi_fw.bin" << true;
    QTest::newRow("folder that isn't there") << false << "<dir>/no/such/fw.bin" << "" << false;
}

void test_sapi::download_writes_the_body()
{
    QFETCH(bool, batch);
    QFETCH(QString, name);
    QFETCH(QString, expected);
    QFETCH(bool, written);
    http_server server;
    QVERIFY(server.start());
    server.set_answer("/fw", { 200, "firmware bytes" });
    api_fixture f;
    f.batch = batch;
    const QString data = QStandardPaths::writableLocation(QStandardPaths::DataLocation);
    name.replace("<dir>", f.dir.path());
    expected.replace("<dir>", f.dir.path()).replace("<data>", data);
    // A bare name in batch mode lands in the working folder: the test's own.
    const QString previous = QDir::currentPath();
    QDir::setCurrent(f.dir.path());
    const bool done = f.api->sapi_download_file(server.url("/fw"), name);
    QFile file(expected);
    const bool opened = file.open(QIODevice::ReadOnly);
    const QByteArray content = file.readAll();
    file.remove();
    QDir::setCurrent(previous);
    QCOMPARE(done, written);
    if (written) {
        QVERIFY2(opened, qPrintable(expected));
        QCOMPARE(content, QByteArray("firmware bytes"));
    }
}

void test_sapi::output_forms_follow_the_echo_switch()
{
    api_fixture f;
    f.api->sapi_output("a <b>", false);
    f.api->sapi_output("b", true);
    f.api->sapi_error("bad", false);
    f.api->sapi_done();
    QCOMPARE(f.console.lines, (QStringList { "<div>b</div>", "error: bad",
                                  "<div style='color: gray; font-style: italic;'>Done</div>" }));
    f.echo = false;
    f.api->sapi_output("hidden", false);
    f.api->sapi_error("hidden", false);
    f.api->sapi_done();
    QCOMPARE(f.console.lines.size(), 3);
}

void test_sapi::toolbar_refusals_data()
{
    QTest::addColumn<QString>("operation");
    QTest::addColumn<QStringList>("args");
    QTest::addColumn<QString>("error");
    QTest::newRow("delete without element") << "delete" << QStringList {} << "Missing element identifier";
    QTest::newRow("edit without element") << "EDIT" << QStringList {} << "Missing element identifier";
    QTest::newRow("unknown") << "paint" << QStringList { "x" } << "Unknown operation: paint";
    QTest::newRow("no widgets yet") << "show" << QStringList {} << "Script widgets are not available in this build";
    QTest::newRow("delete, no widgets yet") << "delete" << QStringList { "w1" }
                                           << "Script widgets are not available in this build";
}

void test_sapi::toolbar_refusals()
{
    QFETCH(QString, operation);
    QFETCH(QStringList, args);
    QFETCH(QString, error);
    api_fixture f;
    QVERIFY(!f.api->sapi_toolbar("scripting", operation, args, {}));
    QCOMPARE(f.console.lines, QStringList { "error: " + error });
}

void test_sapi::scan_is_refused_while_tasks_run()
{
    api_fixture f;
    f.manager.add_line("a");
    f.manager.add_task("a", tasks::task("identify"));
    f.manager.set_launch_list({ "a" });
    f.manager.launch();
    QCOMPARE(f.manager.running_count(), 1u);
    try {
        f.api->sapi_devices_scan();
        QFAIL("no refusal");
    } catch (const QString& text) {
        QCOMPARE(text, QStringLiteral("The queue is busy, unable to scan"));
    }
    QVERIFY(!f.api->sapi_devices_clear());
    QCOMPARE(f.clears, 0);
}

void test_sapi::wait_serves_the_event_loop()
{
    api_fixture f;
    const loop_watch watch(5);
    QVERIFY(f.api->sapi_wait([&] { return watch.elapsed() < 300; }));
    QVERIFY(watch.elapsed() >= 300);
    f.api->sapi_sleep(0.2f);
    QVERIFY(watch.elapsed() >= 500);
    // The loop ran all the while, never held for a batch of events.
    QVERIFY2(watch.gaps_over(80) <= 4 && watch.longest() < 250, qPrintable(QString::number(watch.longest())));
    QVERIFY2(watch.ticks() > 500 / 20, qPrintable(QString::number(watch.ticks())));
    QVERIFY_EXCEPTION_THROWN(f.api->sapi_wait({}), std::bad_function_call);
}

void test_sapi::autorun_list_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<QStringList>("entries"); // "file enabled type"
    QTest::newRow("one") << "a.ovscript;1;0" << QStringList { "a.ovscript 1 0" };
    QTest::newRow("two") << "a.ovscript;0;0;;b.lua;1;1" << QStringList { "a.ovscript 0 0", "b.lua 1 1" };
    QTest::newRow("too few fields skipped") << "a.ovscript;1;;b.ovscript;1;0" << QStringList { "b.ovscript 1 0" };
    QTest::newRow("further fields ignored") << "a.ovscript;1;0;x" << QStringList { "a.ovscript 1 0" };
    QTest::newRow("empty") << "" << QStringList {};
}

void test_sapi::autorun_list()
{
    QFETCH(QString, text);
    QStringList got;
    const QList<scripting::autorun_entry> parsed = scripting::autorun::parse(text);
    for (const scripting::autorun_entry& e : parsed)
        got << QStringLiteral("%1 %2 %3").arg(e.file).arg(int(e.enabled)).arg(int(e.type));
    QTEST(got, "entries");
    QCOMPARE(scripting::autorun::parse(scripting::autorun::format(parsed)), parsed);
}

void test_sapi::autorun_stops_at_the_first_failure()
{
    scripting::autorun a;
    a.set_entries(scripting::autorun::parse("a;1;0;;b;1;0;;c;1;0"));
    QStringList ran;
    a.set_runner([&](const QString& file) {
        ran << file;
        return file != "b";
    });
    QVERIFY(!a.run());
    QCOMPARE(ran, (QStringList { "a", "b" }));
}

void test_sapi::autorun_list_needs_quotes_in_the_file()
{
    QTemporaryDir dir;
    QFile ini(dir.filePath("ov.config"));
    QVERIFY(ini.open(QIODevice::WriteOnly));
    ini.write("[Autorun]\nlist=\"a.ovscript;1;0;;b,c.ovscript;1;0\"\n");
    ini.close();
    QSettings settings(ini.fileName(), QSettings::IniFormat);
    scripting::autorun a;
    a.load(settings);
    QCOMPARE(a.entries().size(), 2);
    QCOMPARE(a.entries()[1].file, QStringLiteral("b,c.ovscript"));
    // What the program writes reads back the same.
    a.save(settings);
    settings.sync();
    scripting::autorun again;
    again.load(settings);
    QCOMPARE(again.entries(), a.entries());
}

void test_sapi::lua_needs_an_initialized_runtime()
{
    api_fixture f;
    f.api->sapi_run_lua_line("x = 1");
    lua_runtime lua({});
    f.api->set_lua(&lua);
    f.api->sapi_run_lua_file("s.lua");
    QCOMPARE(f.console.lines,
        QStringList({ "error: Runtime is not initialized", "error: Runtime is not initialized" }));
    QVERIFY(!lua.is_running());
}

void test_sapi::plugins_see_the_slots_in_order()
{
#define SAPI(member) vtable_index(&plugins::sapi_interface::sapi_##member)
#define PLUGIN(member) vtable_index(&plugins::plugin_interface::member)
    // After the two entries of the virtual destructor, slot 1 on.
    const QList<std::ptrdiff_t> order { SAPI(run_lua), SAPI(done), SAPI(error), SAPI(output), SAPI(url_data),
        SAPI(wait), SAPI(caps), SAPI(devices_add), SAPI(devices_clear), SAPI(devices_export), SAPI(devices_import),
        SAPI(devices_scan), SAPI(download_file), SAPI(local_ip), SAPI(local_mac), SAPI(settings_get), SAPI(pack_list),
        SAPI(play_beep), SAPI(play_sound), SAPI(play_video), SAPI(plugin_list), SAPI(register_device),
        SAPI(register_mac), SAPI(rest_get), SAPI(rest_post), SAPI(run_lua_file), SAPI(run_lua_line), SAPI(settings_set),
        SAPI(sleep), SAPI(toolbar), SAPI(url_contents), SAPI(version), SAPI(view_image) };
    // And the other way: what the program calls of a plugin.
    const QList<std::ptrdiff_t> plugin_order { PLUGIN(version), PLUGIN(initialize), PLUGIN(set_language), PLUGIN(ident),
        PLUGIN(commands), PLUGIN(descriptions), PLUGIN(description), PLUGIN(toolbar_action), PLUGIN(execute) };
#undef PLUGIN
#undef SAPI
    for (const QList<std::ptrdiff_t>& list : { order, plugin_order }) {
        for (int slot = 1; slot <= list.size(); ++slot)
            QVERIFY2(list[slot - 1] == slot + 1, qPrintable(QStringLiteral("slot %1 at %2").arg(slot).arg(list[slot - 1])));
    }
}

QTEST_GUILESS_MAIN(test_sapi)
#include "test_sapi.moc"
