// The settings window and the core taking its settings at once; the quick actions as toolbar buttons.
#include "scripting/actions_db.h"
#include "scripting/autorun.h"
#include "tasks/manager.h"
#include "tests/support/box_answers.h"
#include "tests/support/fleet_fixture.h"
#include "ui/main_model.h"
#include "ui/main_window.h"
#include "ui/script_action.h"
#include "ui/settings_window.h"

#include <QtTest>
#include <QtWidgets>

#include <memory>

namespace
{

void write_action(QSettings& s, const QString& key, const QString& title, int mode = 1, const QString& value = "print")
{
    s.setValue("QuickActions/Actions/" + key,
        QString::fromUtf8(
            QJsonDocument(QJsonObject { { "icon", "" }, { "title", title }, { "mode", mode }, { "value", value } })
                .toJson(QJsonDocument::Compact)));
}

// A settings file with a value off its default for every key the window shows, and the window over it.
struct form {
    form()
        : settings(dir.filePath("ov.config"), QSettings::IniFormat)
    {
        settings.setValue("use_hardware_revisions", true);
        settings.setValue("firmware_pack_functionality", "xnet");
        settings.setValue("short_device_address_display", true);
        settings.setValue("encrypt_passwords_on_export", false);
        settings.setValue("limit_concurrent_tasks", 7);
        settings.setValue("Help/execute_commands", true);
        settings.setValue("Help/locale_override", "ru_RU");
        settings.setValue("Behavior/taskclick/common_settings", false);
        settings.setValue("Behavior/taskclick/status", 3);
        settings.setValue("Behavior/taskclick/row", 1);
        settings.setValue("Behavior/taskclick/address", 2);
        settings.setValue("Autorun/enabled", true);
        settings.setValue("Autorun/list", "x.script;1;0;;/tmp/y.lua;0;1");
        write_action(settings, "a", "First");
        write_action(settings, "b", "Second");
        settings.setValue("QuickActions/layout", "[\"a\",\"\",\"b\"]");
        settings.sync();
        w = std::make_unique<settings::window>(&settings, &actions, &autorun, dir.path());
    }
    // Every key and value as the file holds them now.
    QVariantMap file_values()
    {
        settings.sync();
        QSettings file(settings.fileName(), QSettings::IniFormat);
        QVariantMap values;
        for (const QString& key : file.allKeys())
            values.insert(key, file.value(key));
        return values;
    }
    QByteArray file_bytes()
    {
        settings.sync();
        QFile file(settings.fileName());
        return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
    }

    QTemporaryDir dir;
    QSettings settings;
    scripting::actions_db actions;
    scripting::autorun autorun;
    std::unique_ptr<settings::window> w;
};

struct command_seen {
    uint n = 0;
    size_t total = 0;
    QString line;
    qint64 number = 0;
    QStringList args;
};

// A core with its window whose settings hold quick actions: "a" three lines of OVScript, "b" a Lua file, "c" the
// command that clears the device list; "gone" is in the layout only.
struct desk : fleet::fixture {
    desk()
    {
        QSettings s(dir.filePath("ov.config"), QSettings::IniFormat);
        s.setValue("QuickActions/layout", "[\"a\",\"\",\"\",\"b\",\"gone\",\"c\"]");
        write_action(s, "a", "Three lines", 1, "print one\n\nprint two\nprint three");
        write_action(s, "b", "Lua file", 2, dir.filePath("s.lua"));
        write_action(s, "c", "Clear", 0, "/16");
        s.sync();
        QFile lua(dir.filePath("s.lua"));
        lua.open(QIODevice::WriteOnly);
        lua.write("print('lua ran')\n");
    }
    ~desk() { c.reset(); } // before what the interpreter's thread reports into

    void start()
    {
        make_core(false, core::interactive);
        QObject::connect(
            &c->processor(), &cmd_processor::command, &c->processor(),
            [this](QUuid, uint n, size_t total, QString line, scripting::cmd_id command, QStringList args) {
                QMutexLocker lock(&mutex);
                seen.append({ n, total, line, command.number, args });
            },
            Qt::DirectConnection);
    }
    QList<QAction*> buttons() const { return c->window()->scriptbar()->actions(); }
    QList<command_seen> commands()
    {
        QMutexLocker lock(&mutex);
        return seen;
    }
    QString lua_log() const
    {
        QStringList lines;
        for (const auto& e : c->history().entries({ "core", "lua" }))
            lines << e.text;
        return lines.join('\n');
    }

    QMutex mutex;
    QList<command_seen> seen;
};

} // namespace

class test_ui_settings : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase() { QStandardPaths::setTestModeEnabled(true); }
    void closing_keeps_the_file_and_saving_writes_it();
    void action_editor_gives_what_its_mode_shows_data();
    void action_editor_gives_what_its_mode_shows();
    void autorun_entry_of_a_file_data();
    void autorun_entry_of_a_file();
    void core_takes_the_settings_at_once();
    void buttons_follow_the_store_and_each_kind_runs();
};

void test_ui_settings::closing_keeps_the_file_and_saving_writes_it()
{
    form f;
    f.w->show();
    QVariantMap expected = f.file_values();

    f.w->findChild<QSpinBox*>("f_limit_concurrent_tasks")->setValue(2);
    f.w->findChild<QCheckBox*>("f_device_address_display")->setChecked(false);
    f.w->findChild<QComboBox*>("f_behavior_click_status")->setCurrentIndex(0);
    f.w->findChild<QListView*>("scripting_toolbar_layout")->setCurrentIndex(f.actions.layout_model().index(0));
    f.w->findChild<QPushButton*>("scripting_toolbar_add_separator")->click();
    QCOMPARE(f.actions.layout().size(), 4);
    auto* slider = f.w->findChild<QSlider*>("s_scripting_toolbar_slider");
    slider->setSliderDown(true); // as a drag does: only then is the move reported
    slider->setSliderPosition(3);
    slider->setSliderDown(false);
    f.w->reject();
    // Only the icon size, which a drag stores at once, reaches the file.
    expected.insert("QuickActions/icon_scale", "3");
    QCOMPARE(f.file_values(), expected);

    // Shown again and saved untouched, every value goes back as the file held it.
    f.w->show();
    f.w->save();
    QCOMPARE(f.file_values(), expected);
    settings::window fresh(&f.settings, &f.actions, &f.autorun, f.dir.path());
    fresh.show();
    QCOMPARE(fresh.findChild<QSlider*>("s_scripting_toolbar_slider")->value(), 3);

    // The end row neither moves nor goes; a separator goes in before it.
    auto* layout = f.w->findChild<QListView*>("scripting_toolbar_layout");
    layout->setCurrentIndex(f.actions.layout_model().index(3));
    f.w->findChild<QPushButton*>("scripting_toolbar_move_up")->click();
    f.w->findChild<QPushButton*>("scripting_toolbar_remove")->click();
    layout->clearSelection();
    f.w->findChild<QPushButton*>("scripting_toolbar_add_separator")->click();
    layout->setCurrentIndex(f.actions.layout_model().index(0));
    f.w->findChild<QPushButton*>("scripting_toolbar_move_down")->click();
    // The enable button toggles the selected row's state.
    auto* table = f.w->findChild<QTableView*>("script_autorun");
    auto* enable = f.w->findChild<QPushButton*>("script_autorun_enable_btn");
    table->selectRow(1);
    QCOMPARE(enable->text(), QString("Enable"));
    f.w->findChild<QPushButton*>("script_autorun_up_btn")->click();
    QVERIFY(!f.w->findChild<QPushButton*>("script_autorun_up_btn")->isEnabled());
    enable->click();
    QCOMPARE(enable->text(), QString("Disable"));
    f.w->save();
    // The file's own bytes: a compact JSON array and one ";"-joined string, neither a list nor a variant.
    const QByteArray bytes = f.file_bytes();
    QVERIFY2(bytes.contains("\nlayout=\"[\\\"\\\",\\\"a\\\",\\\"b\\\",\\\"\\\"]\"\n"), bytes.constData());
    QVERIFY2(bytes.contains("\nlist=\"/tmp/y.lua;1;1;;x.script;1;0\"\n"), bytes.constData());

    const box_answers yes([](const QMessageBox&) { return QMessageBox::Yes; });
    table->selectRow(0);
    f.w->findChild<QPushButton*>("script_autorun_delete_btn")->click();
    f.w->save();
    QCOMPARE(f.file_values().value("Autorun/list").toString(), QString("x.script;1;0"));
}

void test_ui_settings::action_editor_gives_what_its_mode_shows_data()
{
    QTest::addColumn<uint>("mode");
    QTest::addColumn<QString>("value");
    QTest::newRow("command") << 0u << "/16";
    QTest::newRow("macro lines") << 1u << "print a\nprint b";
    QTest::newRow("script file") << 2u << "/tmp/s.lua";
    QTest::newRow("command not offered") << 0u << "";
}

void test_ui_settings::action_editor_gives_what_its_mode_shows()
{
    QFETCH(uint, mode);
    QFETCH(QString, value);
    QStandardItemModel commands;
    for (const QString& command : { "/15", "/16", "/62" }) {
        auto* item = new QStandardItem("name of " + command);
        item->setData(command, Qt::UserRole);
        commands.appendRow(item);
    }
    script_action editor;
    editor.set_commands(&commands);
    // A form left by an earlier action of another mode must not leak into this one.
    editor.prepare("Edit action", "{old}", ":/icn/run", "Old", 1, "stale");
    editor.prepare("Edit action", "{id}", ":/icn/clear", "Title", mode, value);
    QSignalSpy done(&editor, &script_action::done);
    editor.accept();
    QCOMPARE(done.size(), 1);
    QCOMPARE(done[0], (QVariantList { "{id}", ":/icn/clear", "Title", mode, value }));
}

void test_ui_settings::autorun_entry_of_a_file_data()
{
    QTest::addColumn<QString>("file");
    QTest::addColumn<QString>("stored");
    QTest::addColumn<bool>("lua");
    QTest::newRow("in the folder, relative") << "%1/a.script" << QString("a.script") << false;
    QTest::newRow("lua by suffix, any case") << "%1/b.LUA" << QString("b.LUA") << true;
    QTest::newRow("a subfolder keeps its path") << "%1/sub/c.lua" << QString("%1/sub/c.lua") << true;
    QTest::newRow("elsewhere keeps its path") << "/tmp/d.ovscript" << QString("/tmp/d.ovscript") << false;
}

void test_ui_settings::autorun_entry_of_a_file()
{
    QFETCH(QString, file);
    QFETCH(QString, stored);
    QTemporaryDir dir;
    const scripting::autorun_entry e = settings::window::autorun_entry_for(file.arg(dir.path()), dir.path());
    QCOMPARE(e.file, stored.arg(dir.path()));
    QTEST(e.type, "lua");
    QVERIFY(e.enabled);
}

void test_ui_settings::core_takes_the_settings_at_once()
{
    desk d;
    QSettings(d.dir.filePath("ov.config"), QSettings::IniFormat).remove("QuickActions");
    d.start();
    core& c = *d.c;
    task_element e;
    e.ep.host = "127.0.0.9";
    e.ep.port = 34567;
    c.introduce(e);
    QCOMPARE(c.model()->index(0, main_model::col_display).data().toString(), e.ep.long_form());

    emit c.window()->settings();
    auto* w = c.window()->findChild<settings::window*>();
    QVERIFY(w && w->isVisible());
    w->findChild<QSpinBox*>("f_limit_concurrent_tasks")->setValue(3);
    w->findChild<QCheckBox*>("f_device_address_display")->setChecked(true);
    auto* available = w->findChild<QListView*>("scripting_toolbar_available");
    const QModelIndexList clear
        = available->model()->match(available->model()->index(0, 0), Qt::UserRole, "/16", 1, Qt::MatchExactly);
    QCOMPARE(clear.size(), 1);
    available->setCurrentIndex(clear.first());
    w->findChild<QPushButton*>("scripting_toolbar_add")->click();
    w->findChild<QDialogButtonBox*>("buttonBox")->button(QDialogButtonBox::Apply)->click();

    QCOMPARE(c.task_manager().limit(), 3u);
    QCOMPARE(c.model()->index(0, main_model::col_display).data().toString(), e.ep.short_form());
    QCOMPARE(c.settings().value("limit_concurrent_tasks").toUInt(), 3u);

    // Cancelled edits don't reach the file, and the toolbar follows the file again.
    w->findChild<QPushButton*>("scripting_toolbar_add")->click();
    QCOMPARE(c.window()->scriptbar()->actions().size(), 2);
    w->reject();
    QCOMPARE(c.window()->scriptbar()->actions().size(), 1);
    c.window()->scriptbar()->actions().first()->trigger();
    QTRY_COMPARE(c.model()->rowCount(), 0);
}

void test_ui_settings::buttons_follow_the_store_and_each_kind_runs()
{
    desk d;
    d.start();
    const auto texts = [&] {
        QStringList out;
        for (QAction* a : d.buttons())
            out << (a->isSeparator() ? "|" : a->text() + "=" + a->data().toString());
        return out;
    };
    QCOMPARE(texts(), (QStringList { "Three lines={a}", "|", "|", "Lua file={b}", "Clear={c}" }));

    d.buttons()[0]->trigger();
    QTRY_COMPARE(d.commands().size(), 3);
    // Queued as one script, all three are parsed before the first runs: each knows it is one of three.
    QStringList lines;
    for (int i = 0; i < 3; ++i) {
        const command_seen s = d.commands()[i];
        QCOMPARE(QPair(s.n, s.total), QPair(uint(i + 1), size_t(3)));
        lines << s.line;
    }
    QCOMPARE(lines, (QStringList { "print one", "print two", "print three" }));

    // A Lua file goes through the interpreter's queue too.
    d.buttons()[3]->trigger();
    QTRY_COMPARE(d.commands().size(), 4);
    QCOMPARE(d.commands()[3].number, qint64(scripting::commands::run_lua_script));
    QCOMPARE(d.commands()[3].args, QStringList { d.dir.filePath("s.lua") });
    QTRY_VERIFY2(d.lua_log().contains("Runtime message: lua ran"), qPrintable(d.lua_log()));

    // Built-in commands run at once, outside the interpreter.
    endpoint ep;
    ep.host = "10.9.9.9";
    d.c->introduce(task_element(ep, device()));
    d.buttons()[4]->trigger();
    QCOMPARE(d.c->task_manager().count(), 0);
    QCOMPARE(d.commands().size(), 4);

    scripting::macro_recorder& r = d.c->processor().recorder();
    QVERIFY(r.start_recording("m") && r.add_line("print from the macro") && r.stop_recording());
    d.c->on_window_script_toolbar_btn("macro:m");
    QTRY_COMPARE(d.commands().size(), 5);
    QCOMPARE(d.commands()[4].line, QStringLiteral("print from the macro"));

    d.c->on_window_script_toolbar_btn("{not-there}");
    QVERIFY2(d.lua_log().contains("Unknown quick action: {not-there}"), qPrintable(d.lua_log()));

    // An edit of the store shows at once; the old buttons go.
    const QPointer<QAction> old = d.buttons()[0];
    d.c->quick_actions().remove_action(1);
    d.c->quick_actions().add_action({ "", "New", scripting::quick_action::script, "print new" }, 0);
    QCOMPARE(d.buttons()[0]->text(), QString("New"));
    QCOMPARE(texts().mid(1), (QStringList { "Three lines={a}", "|", "Lua file={b}", "Clear={c}" }));
    QVERIFY(old.isNull());
}

QTEST_MAIN(test_ui_settings)
#include "test_ui_settings.moc"
