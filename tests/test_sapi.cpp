// The scripting API on its own: conversions, web requests, console forms, refusals, autorun, plugin slots.
#include "plugins/plugin_interface.h"
#include "scripting/autorun.h"
#include "scripting/lua_runtime.h"
#include "scripting/sapi.h"
#include "tasks/manager.h"
#include "tests/support/http_server.h"
#include "tests/support/recording_console.h"

#include <QtTest>

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
        f.batch = [] { return true; };
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
    int clears = 0;
};

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
    void conversions();
    void web_requests();
    void console_forms_and_refusals();
    void autorun_file_and_run();
    void plugins_see_the_slots_in_order();
};

void test_sapi::conversions()
{
    const QList<QPair<QString, double>> seconds { { "250us", 0.00025 }, { QStringLiteral("3µs"), 0.000003 },
        { "500ms", 0.5 }, { "1m", 60 }, { "2h", 7200 }, { "1.5d", 129600 }, { "2MS", 0.002 }, { "2.5", 2.5 },
        { "abc", 0 }, { "ms", 0 } };
    for (const auto& [text, value] : seconds)
        QVERIFY2(qFuzzyCompare(1 + sapi::to_seconds(text), 1 + value), qPrintable(text));
    const QList<QPair<QString, double>> hertz { { "1kHz", 1e3 }, { "2MHz", 2e6 }, { "1.5KHZ", 1500 } };
    for (const auto& [text, value] : hertz)
        QVERIFY2(qFuzzyCompare(sapi::to_hertz(text), value), qPrintable(text));

    for (const char* word : { "yes", "1", "true", "on", "enable", "enabled", "YES" })
        QVERIFY2(sapi::to_bool(word), word);
    for (const char* word : { "no", "0", "false", "off", "disable", "disabled", "Off" })
        QVERIFY2(!sapi::to_bool(word), word);
    for (const char* word : { "maybe", "", "2" }) {
        try {
            sapi::to_bool(word);
            QFAIL(word);
        } catch (const sapi::unsupported_value_exception& e) {
            QCOMPARE(QString::fromUtf8(e.what()), QStringLiteral("Unsupported value: %1").arg(word));
        }
    }
}

// A GET's JSON object becomes its members, anything else the raw text; a POST sends a form and reads no raw
// body; contents stop at a NUL; a failed request gives nothing.
void test_sapi::web_requests()
{
    http_server server;
    QVERIFY(server.start());
    const QList<QPair<QByteArray, QStringList>> gets {
        { R"({"c": true, "d": null})", { "c=true", "d=" } },
        { R"({"o": {"k": 1}, "l": [1, 2]})", { "l=[1,2]", "o={\"k\":1}" } },
        { "{}", { "-raw-={}" } }, { "", {} } };
    api_fixture f;
    for (const auto& [body, members] : gets) {
        server.set_answer("/data", { 200, body, "application/json" });
        const param_list answer = f.api->sapi_rest_get(server.url("/data"));
        QStringList got;
        for (auto it = answer.cbegin(); it != answer.cend(); ++it)
            got << it.key() + "=" + it.value();
        QCOMPARE(got, members);
    }
    QCOMPARE(server.requests().value(0).method, QByteArray("GET"));

    server.set_answer("/json", { 200, R"({"ok": 1})" });
    server.set_answer("/text", { 200, "accepted" });
    server.set_answer("/t", { 200, QByteArray("caf\xe9\nline\0hidden", 15) });
    QCOMPARE(f.api->sapi_rest_post(server.url("/json"), "a=1&b=ü"), (param_list { { "ok", "1" } }));
    QVERIFY(f.api->sapi_rest_post(server.url("/text"), "x").isEmpty());
    const http_server::request& sent = server.requests().value(gets.size());
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

void test_sapi::console_forms_and_refusals()
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

    f.echo = true;
    f.console.clear();
    QVERIFY(!f.api->sapi_toolbar("scripting", "delete", {}, {}));
    QVERIFY(!f.api->sapi_toolbar("scripting", "paint", { "x" }, {}));
    QVERIFY(!f.api->sapi_toolbar("scripting", "delete", { "w1" }, {}));
    f.api->sapi_run_lua_line("x = 1");
    lua_runtime lua({});
    f.api->set_lua(&lua);
    f.api->sapi_run_lua_file("s.lua");
    QVERIFY(!lua.is_running());
    QCOMPARE(f.console.lines,
        (QStringList { "error: Missing element identifier", "error: Unknown operation: paint",
            "error: Script widgets are not available in this build", "error: Runtime is not initialized",
            "error: Runtime is not initialized" }));

    // A scan or a clear would pull the devices from under running tasks.
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

// The list is quoted in the file (a comma would split it otherwise) and entries short of fields are skipped; a run
// stops at the first failure.
void test_sapi::autorun_file_and_run()
{
    QTemporaryDir dir;
    QFile ini(dir.filePath("ov.config"));
    QVERIFY(ini.open(QIODevice::WriteOnly));
    ini.write("[Autorun]\nlist=\"a;1;0;;b,c;0;1;x;;short;1;;d;1;0\"\n");
    ini.close();
    QSettings settings(ini.fileName(), QSettings::IniFormat);
    scripting::autorun a;
    a.load(settings);
    QStringList got;
    for (const scripting::autorun_entry& e : a.entries())
        got << QStringLiteral("%1 %2 %3").arg(e.file).arg(int(e.enabled)).arg(int(e.type));
    QCOMPARE(got, (QStringList { "a 1 0", "b,c 0 1", "d 1 0" }));
    a.save(settings);
    settings.sync();
    scripting::autorun again;
    again.load(settings);
    QCOMPARE(again.entries(), a.entries());

    QStringList ran;
    again.set_runner([&](const QString& file) {
        ran << file;
        return file != "b,c";
    });
    QVERIFY(!again.run());
    QCOMPARE(ran, (QStringList { "a", "b,c" }));
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
