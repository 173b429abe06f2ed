// Plugins as real shared libraries: the example plugin's life, each kind of bad plugin, and the command tree.
#include "plugins/core_functions.h"
#include "plugins/loader.h"
#include "tests/support/script_session.h"

#include <QtTest>

namespace {

const QString site = QStringLiteral("org.kelmar.examples.site");

// Name in the plugin folder -> built file.
using file_map = QMap<QString, QString>;

// Copies built plugins into the plugin folder under the names given; no built file makes a text file.
scripted::preparation with_plugins(const file_map& files)
{
    return [files](const QDir& folder) {
        folder.mkpath("plugins");
        for (auto it = files.cbegin(); it != files.cend(); ++it) {
            const QString target = folder.filePath("plugins/" + it.key());
            if (it.value().isEmpty() || !QFile::copy(it.value(), target)) {
                QFile text(target);
                text.open(QIODevice::WriteOnly);
                text.write("not a plugin\n");
            }
        }
    };
}

// Every node of a tree as "dotted.path=plugin/number", to compare trees whole.
QStringList flattened(const scripting::cmddb::tree& level, const QString& prefix = {})
{
    QStringList out;
    for (auto it = level.cbegin(); it != level.cend(); ++it) {
        const QString path = prefix.isEmpty() ? it.key() : prefix + '.' + it.key();
        out << path + '=' + it->command.text();
        out << flattened(it->children, path);
    }
    return out;
}

const scripting::tree_node* node(const scripting::cmddb::tree& root, const QString& dotted)
{
    const scripting::cmddb::tree* level = &root;
    const scripting::tree_node* found = nullptr;
    for (const QString& part : dotted.split('.')) {
        const auto it = level->find(part);
        if (it == level->end())
            return nullptr;
        found = &*it;
        level = &it->children;
    }
    return found;
}

// A plugin that is only data, for the command tree.
struct tree_plugin final : plugins::plugin_interface
{
    int version() const override { return plugins::interface_version; }
    bool initialize(plugins::sapi_interface*) override { return true; }
    void set_language(const QString&) override {}
    QString ident() const override { return QStringLiteral("p"); }
    QList<plugins::plugin_command*> commands() override { return roots; }
    QList<plugins::description_row> descriptions() override { return { { { {}, 6 }, "zone", {} } }; }
    QString description(const scripting::cmd_id& id) override { return id.text() + " described"; }
    bool toolbar_action(const scripting::cmd_id&) override { return false; }
    bool execute(const scripting::cmd_id&, const QStringList&, const param_list&) override { return false; }

    static plugins::plugin_command command(qint64 number, const QString& name)
    {
        plugins::plugin_command c;
        c.id.number = number;
        c.row_name = name + "_row";
        c.tree_name = name;
        return c;
    }

    QList<plugins::plugin_command*> roots;
};

} // namespace

class test_plugins : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase() { QStandardPaths::setTestModeEnabled(true); }
    void example_plugin_starts_runs_and_leaves();
    void bad_plugins_leave_a_record_data();
    void bad_plugins_leave_a_record();
    void commands_join_and_leave_the_tree();
    void core_functions_run_the_offered_commands();
};

void test_plugins::example_plugin_starts_runs_and_leaves()
{
    scripted f(core::batch, 0, {}, with_plugins({ { "libsite.so", EXAMPLE_PLUGIN } }));
    const QString file = f.dir.filePath("plugins/libsite.so");
    for (const QString& line :
        { "Plugin \"" + site + "\" loaded", QString("Loaded 1 plugins"), QString("Initialized 1 plugins") })
        QVERIFY2(f.log_text().contains(line), qPrintable(line + '\n' + f.log_text()));

    f.run("plugins.list");
    QCOMPARE(f.shown(), QStringList { site + " [" + file + ", ready \u2713]" });
    f.run("site.set Riverside");
    QCOMPARE(f.shown(), QStringList { "Site set to Riverside" });
    f.run("site.show");
    QCOMPARE(f.shown(), QStringList { "Site: Riverside" });
    QCOMPARE(f.c->settings().value("Site/name").toString(), QStringLiteral("Riverside"));
    // A plugin command leaves the outcome of the command before it.
    QCOMPARE(f.run("print kept").result, QStringLiteral("kept"));
    QCOMPARE(f.run("site.show").result, QStringLiteral("kept"));
    QCOMPARE(f.c->command_db().commands_descriptions().value(site + "/1").text, QStringLiteral("Print the site name"));
    // The language reaches the plugin.
    f.c->apply_language("ru_RU");
    f.run("site.about");
    QVERIFY2(f.shown().value(0).endsWith("language ru_RU"), qPrintable(f.shown().join('\n')));
    f.c->apply_language("en_US");
    // A toolbar button bound to a plugin's command.
    f.console.lines.clear();
    QVERIFY(f.c->run_plugin_action(site + "/1"));
    // The built-in functions run only the program's own commands, even where a plugin's has a description.
    QVERIFY(!f.c->builtin_functions().execute(scripting::cmd_id::from_text(site + "/1"), {}, {}));
    QCOMPARE(f.shown(), QStringList { "Site: Riverside" });
    QVERIFY2(!f.log_text().contains("Unknown command"), qPrintable(f.log_text()));
    QVERIFY(!f.c->run_plugin_action(site + "/9"));
    QVERIFY(!f.c->run_plugin_action("nobody/1"));
    for (const QString& line : { "Plugin action " + site + "/9 failed", QString("Bad plugin ident: nobody") })
        QVERIFY2(f.log_text().contains(line), qPrintable(line + '\n' + f.log_text()));

    // The second statement was read while the plugin was there.
    f.run("plugins.unload " + site + "; site.show");
    QCOMPARE(f.shown(), (QStringList { "Unloaded plugin " + site + ".", "error: Bad plugin ident: " + site }));
    QVERIFY(!node(f.c->command_db().commands_tree(), "site"));
    f.run("site.show");
    QCOMPARE(f.shown(), QStringList { "error: Line , error \"Unknown command: site.show\"" });
    f.run("plugins.list");
    QCOMPARE(f.shown(), QStringList {});

    // By its file name alone, from the plugin folder; the setting outlived the plugin.
    QCOMPARE(f.run("plugins.load libsite.so").result, QStringLiteral("libsite.so"));
    QCOMPARE(f.shown(), QStringList { "Loaded plugin " + site + "." });
    f.run("site.show");
    QCOMPARE(f.shown(), QStringList { "Site: Riverside" });
    // Loaded without its start: known, but no command of it joins the tree.
    f.run("plugins.unload " + site);
    f.run("plugins.load libsite.so --no-init");
    QCOMPARE(f.shown(), QStringList { "Loaded plugin " + site + "." });
    QCOMPARE(f.c->plugin_loader().state(site), plugins::plugin_state::loaded);
    QVERIFY(!node(f.c->command_db().commands_tree(), "site"));
}

void test_plugins::bad_plugins_leave_a_record_data()
{
    QTest::addColumn<file_map>("files");
    QTest::addColumn<QStringList>("listing"); // "%1" stands for the plugin folder
    QTest::addColumn<QStringList>("logged");
    QTest::addColumn<QString>("line"); // a command to try, and what it shows
    QTest::addColumn<QStringList>("shown");
    const auto row = [](const char* name, const file_map& files, const QStringList& listing, const QStringList& logged,
                         const QString& line = {}, const QStringList& shown = {}) {
        QTest::newRow(name) << files << listing << logged << line << shown;
    };
    row("not a plugin", { { "notes.txt", "" } }, { "--- [%1/notes.txt, failed]" },
        { "Failed to load plugin: %1/notes.txt", "Initialized 0 plugins" });
    row("a Qt plugin of another interface", { { "libforeign.so", FOREIGN_PLUGIN } },
        { "--- [%1/libforeign.so, failed]" }, { "Failed to interface the plugin %1/libforeign.so" });
    row("an older interface: no commands", { { "libolder.so", OLDER_PLUGIN } },
        { "--- [%1/libolder.so, incompatible]" },
        { "Incompatible plugin version, system version 3, plugin version 2", "Loaded 0 plugins" }, "older.probe",
        { "error: Line , error \"Unknown command: older.probe\"" });
    row("two files, one identifier: the second is no more",
        { { "liba.so", EXAMPLE_PLUGIN }, { "libb.so", EXAMPLE_PLUGIN } },
        { site + " [%1/liba.so, ready \u2713]", site + " [%1/libb.so, duplicate]" },
        { "Duplicate plugin identificator: " + site, "Loaded 1 plugins", "Initialized 1 plugins" }, "site.show",
        { "No site is set" });
    // Its commands were joined before it refused, and stay; they reach a plugin that didn't start.
    row("a plugin that refuses to start", { { "librefusing.so", REFUSING_PLUGIN } },
        { "test.refusing [%1/librefusing.so, loaded]" },
        { "Plugin test.refusing initialization error", "Loaded 1 plugins", "Initialized 0 plugins" }, "refusing.probe",
        { "error: Plugin test.refusing failed to execute command 1" });
    row("a newer interface passes", { { "libnewer.so", NEWER_PLUGIN } },
        { "test.newer [%1/libnewer.so, ready \u2713]" }, { "Initialized 1 plugins" }, "newer.probe x y",
        { "probed x y" });
}

void test_plugins::bad_plugins_leave_a_record()
{
    QFETCH(file_map, files);
    QFETCH(QStringList, listing);
    QFETCH(QStringList, logged);
    QFETCH(QString, line);
    QFETCH(QStringList, shown);
    scripted f(core::batch, 0, {}, with_plugins(files));
    const QString folder = f.dir.filePath("plugins");
    const auto in_folder = [&folder](QString text) { return text.replace("%1", folder); };
    for (const QString& text : logged)
        QVERIFY2(f.log_text().contains(in_folder(text)), qPrintable(in_folder(text) + '\n' + f.log_text()));
    f.run("plugins.list");
    QStringList expected;
    for (const QString& l : listing)
        expected << in_folder(l);
    QCOMPARE(f.shown(), expected);
    if (!line.isEmpty()) {
        f.run(line);
        QCOMPARE(f.shown(), shown);
    }
}

void test_plugins::commands_join_and_leave_the_tree()
{
    scripting::cmddb db;
    db.build();
    const QStringList built = flattened(db.commands_tree());
    const int rows = db.commands_table().size();

    // Under the program's own branch, a branch of its own with a free last part, a name the program has, and
    // a child that leads back to its parent.
    plugins::plugin_command devices = tree_plugin::command(0, "devices");
    plugins::plugin_command site_scan = tree_plugin::command(5, "site_scan");
    devices.children = { &site_scan };
    plugins::plugin_command zone = tree_plugin::command(6, "zone");
    plugins::plugin_command zone_list = tree_plugin::command(7, "list");
    plugins::plugin_command zone_any = tree_plugin::command(8, "");
    zone_any.name_arguments = 1;
    zone.children = { &zone_list, &zone_any };
    plugins::plugin_command version = tree_plugin::command(9, "version");
    plugins::plugin_command loop = tree_plugin::command(10, "loop");
    loop.children = { &loop };
    tree_plugin p;
    p.roots = { &devices, &zone, &version, &loop, nullptr };
    db.add_plugin("p", p);

    const auto& tree = db.commands_tree();
    QCOMPARE(node(tree, "devices.site_scan")->command.text(), QStringLiteral("p/5"));
    QCOMPARE(node(tree, "devices.scan")->command.text(), QStringLiteral("/62"));
    QVERIFY(node(tree, "devices")->command.is_null());
    QCOMPARE(node(tree, "zone")->command.text(), QStringLiteral("p/6"));
    QCOMPARE(node(tree, "zone.list")->command.text(), QStringLiteral("p/7"));
    QCOMPARE(node(tree, "zone.")->command.text(), QStringLiteral("p/8"));
    QCOMPARE(db.commands_table().value({ "p", 8 }).name_arguments, 1);
    // The program's node stays the program's.
    QCOMPARE(node(tree, "version")->command.text(), QStringLiteral("/76"));
    QCOMPARE(node(tree, "loop.loop.loop")->command.text(), QStringLiteral("p/10"));
    QCOMPARE(db.command_name({ "p", 7 }), QStringLiteral("list_row"));
    QCOMPARE(db.commands_descriptions().value("p/6").text, QStringLiteral("p/6 described"));

    db.remove_plugin("p", p);
    QCOMPARE(flattened(db.commands_tree()), built);
    QCOMPARE(db.commands_table().size(), rows);
    QVERIFY(!db.commands_descriptions().contains("p/6"));
}

void test_plugins::core_functions_run_the_offered_commands()
{
    scripted f;
    plugins::core_functions& core = f.c->builtin_functions();
    QCOMPARE(plugins::core_functions::display_name(), QStringLiteral("Core functions"));
    QVERIFY(core.toolbar_action({ {}, 76 }));
    QCOMPARE(f.shown(), QStringList { "0.5, build #1964" });
    // Only what it offers: not every built-in command, nor a plugin's.
    QVERIFY(!core.execute({ {}, 53 }, { "x" }, {}));
    QVERIFY(!core.execute({ site, 76 }, {}, {}));
    QCOMPARE(f.shown(), QStringList { "0.5, build #1964" });
}

QTEST_GUILESS_MAIN(test_plugins)
#include "test_plugins.moc"
