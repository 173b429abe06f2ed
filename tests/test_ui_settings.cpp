// The settings window and the core taking its settings at once; the quick actions as toolbar buttons.
#include "scripting/actions_db.h"
#include "scripting/autorun.h"
#include "tasks/manager.h"
#include "tests/support/box_answers.h"
#include "tests/support/fleet_fixture.h"
#include "ui/long_entry_tooltips.h"
#include "ui/main_model.h"
#include "ui/main_window.h"
#include "ui/script_action.h"
#include "ui/settings_window.h"

#include <QtTest>
#include <QtWidgets>

#include <memory>

namespace
{

void write_action(QSettings& s, const QString& key, const QString& title, int mode = 1, const QString& value = "print",
    const QString& icon = {})
{
    s.setValue("QuickActions/Actions/" + key,
        QString::fromUtf8(
            QJsonDocument(QJsonObject { { "icon", icon }, { "title", title }, { "mode", mode }, { "value", value } })
                .toJson(QJsonDocument::Compact)));
}

// A key's line as the file holds it, under its group's header.
QByteArray stored_line(const QString& path, const QByteArray& group, const QByteArray& key)
{
    QFile f(path);
    const QList<QByteArray> lines = f.open(QIODevice::ReadOnly) ? f.readAll().split('\n') : QList<QByteArray> {};
    const int header = lines.indexOf('[' + group + ']');
    for (int i = header + 1; header >= 0 && i < lines.size() && !lines[i].startsWith('['); ++i) {
        if (lines[i].startsWith(key + '='))
            return lines[i];
    }
    return {};
}

const QString stored_layout = QStringLiteral("[\"a\",\"\",\"b\"]");
const QString stored_autorun = QStringLiteral("x.script;1;0;;/tmp/y.lua;0;1");

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
        settings.setValue("Autorun/enabled", true);
        settings.setValue("Autorun/list", stored_autorun);
        write_action(settings, "a", "First");
        write_action(settings, "b", "Second");
        settings.setValue("QuickActions/layout", stored_layout);
        settings.sync();
        w = std::make_unique<settings::window>(&settings, &actions, &autorun, dir.path());
    }
    template <typename T> T* find(const char* name) const
    {
        T* found = w->findChild<T*>(QLatin1String(name));
        if (!found)
            qFatal("no widget %s", name);
        return found;
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

// A core with its window whose settings hold quick actions: "a" three lines of OVScript, "b" a Lua file with an
// icon that isn't there, "c" the command that clears the device list; "gone" is in the layout only.
struct desk : fleet::fixture {
    desk()
    {
        QSettings s(dir.filePath("ov.config"), QSettings::IniFormat);
        s.setValue("QuickActions/layout", "[\"a\",\"\",\"\",\"b\",\"gone\",\"c\"]");
        write_action(s, "a", "Three lines", 1, "print one\n\nprint two\nprint three", ":/icn/run");
        write_action(s, "b", "Lua file", 2, dir.filePath("s.lua"), dir.filePath("nowhere.png"));
        write_action(s, "c", "Clear", 0, "/16", ":/icn/clear");
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

QImage picture(const QIcon& icon)
{
    return icon.pixmap(16, 16).toImage();
}

} // namespace

class test_ui_settings : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase() { QStandardPaths::setTestModeEnabled(true); }
    void closing_without_saving_keeps_the_file();
    void stored_values_shown_data();
    void stored_values_shown();
    void edit_action_needs_one_row_data();
    void edit_action_needs_one_row();
    void save_writes_the_stores_as_they_keep_them();
    void action_editor_gives_what_its_mode_shows_data();
    void action_editor_gives_what_its_mode_shows();
    void icon_from_the_programs_pictures_data();
    void icon_from_the_programs_pictures();
    void autorun_entry_of_a_file_data();
    void autorun_entry_of_a_file();
    void tooltip_only_for_clipped_entries_data();
    void tooltip_only_for_clipped_entries();
    void core_takes_the_settings_at_once();
    void buttons_follow_the_stored_layout();
    void each_kind_of_button_runs();
};

void test_ui_settings::closing_without_saving_keeps_the_file()
{
    form f;
    f.w->show();
    QCOMPARE(f.find<QSpinBox>("f_limit_concurrent_tasks")->value(), 7);
    QCOMPARE(f.find<QComboBox>("f_firmware_pack_functionality")->currentText(), QString("xnet"));
    QVERIFY(!f.find<QCheckBox>("f_encrypt_passwords_on_export")->isChecked());
    QCOMPARE(f.find<QTableView>("script_autorun")->model()->rowCount(), 2);
    // An action without a picture shows the question mark; a separator shows none.
    const QAbstractItemModel* listed = f.find<QListView>("scripting_actions")->model();
    QVERIFY(!qvariant_cast<QIcon>(listed->index(0, 0).data(Qt::DecorationRole)).isNull());
    QVERIFY(!listed->index(1, 0).data(Qt::DecorationRole).isValid());
    const QVariantMap before = f.file_values();

    f.find<QSpinBox>("f_limit_concurrent_tasks")->setValue(2);
    f.find<QCheckBox>("f_device_address_display")->setChecked(false);
    f.find<QComboBox>("f_behavior_click_status")->setCurrentIndex(0);
    f.find<QListView>("scripting_toolbar_layout")->setCurrentIndex(f.actions.layout_model().index(0));
    f.find<QPushButton>("scripting_toolbar_add_separator")->click();
    QCOMPARE(f.actions.layout().size(), 4);
    auto* slider = f.find<QSlider>("s_scripting_toolbar_slider");
    slider->setSliderDown(true); // as a drag does: only then is the move reported
    slider->setSliderPosition(3);
    slider->setSliderDown(false);
    QCOMPARE(f.find<QListView>("scripting_actions")->iconSize(), QSize(48, 48));
    QCOMPARE(f.find<QLabel>("l_icon_size")->text(), QString("48"));
    f.w->reject();

    QVariantMap expected = before;
    expected.insert("QuickActions/icon_scale", "3");
    QCOMPARE(f.file_values(), expected);

    f.w->show();
    QCOMPARE(f.find<QSpinBox>("f_limit_concurrent_tasks")->value(), 7);
    QVERIFY(f.find<QCheckBox>("f_device_address_display")->isChecked());
    QCOMPARE(f.find<QComboBox>("f_behavior_click_status")->currentIndex(), 3);
    QCOMPARE(f.actions.layout().size(), 3);
    QCOMPARE(f.find<QSlider>("s_scripting_toolbar_slider")->value(), 3);
}

void test_ui_settings::stored_values_shown_data()
{
    QTest::addColumn<QString>("key");
    QTest::addColumn<QVariant>("stored"); // invalid: absent
    QTest::addColumn<QString>("shown");
    const QString limit = "limit_concurrent_tasks", help = "Help/locale_override";
    QTest::newRow("zero is no limit") << limit << QVariant(0) << "No limit";
    QTest::newRow("one with the suffix") << limit << QVariant(1) << "1 task(s)";
    QTest::newRow("the top of the range") << limit << QVariant(100) << "100 task(s)";
    QTest::newRow("above the range is held") << limit << QVariant(500) << "100 task(s)";
    QTest::newRow("help: empty stands on Default") << help << QVariant("") << "Default";
    QTest::newRow("help: absent stands on Default") << help << QVariant() << "Default";
    QTest::newRow("help: a known locale") << help << QVariant("en_US") << "English";
    QTest::newRow("help: an unknown locale falls to Default") << help << QVariant("de_DE") << "Default";
}

// The help's language is saved back as the locale, or empty for Default.
void test_ui_settings::stored_values_shown()
{
    QFETCH(QString, key);
    QFETCH(QVariant, stored);
    QFETCH(QString, shown);
    form f;
    if (stored.isValid())
        f.settings.setValue(key, stored);
    else
        f.settings.remove(key);
    f.w->show();
    if (key == "limit_concurrent_tasks") {
        QCOMPARE(f.find<QSpinBox>("f_limit_concurrent_tasks")->text(), shown);
        return;
    }
    QCOMPARE(f.find<QComboBox>("f_help_language")->currentText(), shown);
    f.w->save();
    QCOMPARE(f.settings.value(key).toString(), shown == "Default" ? QString() : stored.toString());
}

void test_ui_settings::edit_action_needs_one_row_data()
{
    QTest::addColumn<QList<int>>("rows");
    QTest::addColumn<QString>("warning");
    QTest::newRow("none") << QList<int>() << "Select action to edit.";
    QTest::newRow("two") << QList<int> { 0, 2 } << "Select only one action before edit.";
    QTest::newRow("one") << QList<int> { 2 } << QString();
}

void test_ui_settings::edit_action_needs_one_row()
{
    QFETCH(QList<int>, rows);
    QFETCH(QString, warning);
    form f;
    f.w->show();
    auto* list = f.find<QListView>("scripting_actions");
    for (int row : rows)
        list->selectionModel()->select(list->model()->index(row, 0), QItemSelectionModel::Select);
    QAction* edit = nullptr;
    for (QAction* a : f.w->findChildren<QAction*>())
        edit = a->text() == "Edit action..." ? a : edit;
    QVERIFY(edit);
    const box_answers answers;
    edit->trigger();
    if (warning.isEmpty()) {
        auto* editor = f.w->findChild<QDialog*>("script_action");
        QTRY_VERIFY(editor->isVisible());
        QCOMPARE(editor->windowTitle(), QString("Edit action"));
        QCOMPARE(editor->findChild<QLineEdit*>("input_title")->text(), QString("Second"));
        QVERIFY(editor->findChild<QRadioButton*>("r_macro")->isChecked());
        QCOMPARE(editor->findChild<QPlainTextEdit*>("input_macro")->toPlainText(), QString("print"));
        return;
    }
    QCOMPARE(answers.texts(), QStringList { "Can't edit: " + warning });
    QVERIFY(!f.w->findChild<QDialog*>("script_action")->isVisible());
}

void test_ui_settings::save_writes_the_stores_as_they_keep_them()
{
    form f;
    f.w->show();
    f.w->save();
    QSettings again(f.settings.fileName(), QSettings::IniFormat);
    QCOMPARE(again.value("QuickActions/layout").toString(), stored_layout);
    QCOMPARE(again.value("Autorun/list").toString(), stored_autorun);
    QVERIFY(!again.contains("functionality_change_policy"));
    QCOMPARE(again.value("Behavior/taskclick/status").toInt(), 3);
    QCOMPARE(again.value("Behavior/taskclick/common_settings").toBool(), false);

    // The end row neither moves nor goes; a separator goes in before it.
    auto* layout = f.find<QListView>("scripting_toolbar_layout");
    layout->setCurrentIndex(f.actions.layout_model().index(3));
    f.find<QPushButton>("scripting_toolbar_move_up")->click();
    f.find<QPushButton>("scripting_toolbar_remove")->click();
    layout->clearSelection();
    f.find<QPushButton>("scripting_toolbar_add_separator")->click();
    layout->setCurrentIndex(f.actions.layout_model().index(0));
    f.find<QPushButton>("scripting_toolbar_move_down")->click();
    // The enable button reads the selected row's state; the ends don't move past themselves.
    auto* table = f.find<QTableView>("script_autorun");
    auto* enable = f.find<QPushButton>("script_autorun_enable_btn");
    QVERIFY(!enable->isEnabled());
    table->selectRow(0);
    QCOMPARE(enable->text(), QString("Disable"));
    QVERIFY(!f.find<QPushButton>("script_autorun_up_btn")->isEnabled());
    table->selectRow(1);
    QCOMPARE(enable->text(), QString("Enable"));
    QVERIFY(!f.find<QPushButton>("script_autorun_down_btn")->isEnabled());
    f.find<QPushButton>("script_autorun_up_btn")->click();
    QVERIFY(!f.find<QPushButton>("script_autorun_up_btn")->isEnabled());
    enable->click();
    QCOMPARE(enable->text(), QString("Disable"));
    QCOMPARE(table->model()->index(0, 1).data().toString(), QString("Yes"));
    f.w->save();
    f.settings.sync();
    // The file's own bytes: a compact JSON array and one ";"-joined string, neither a list nor a variant.
    QCOMPARE(stored_line(f.settings.fileName(), "QuickActions", "layout"), QByteArray("layout=\"[\\\"\\\",\\\"a\\\",\\\"b\\\",\\\"\\\"]\""));
    QCOMPARE(stored_line(f.settings.fileName(), "Autorun", "list"), QByteArray("list=\"/tmp/y.lua;1;1;;x.script;1;0\""));

    const box_answers yes([](const QMessageBox&) { return QMessageBox::Yes; });
    table->selectRow(0);
    f.find<QPushButton>("script_autorun_delete_btn")->click();
    f.w->save();
    again.sync();
    QCOMPARE(again.value("Autorun/list").toString(), QString("x.script;1;0"));
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

void test_ui_settings::icon_from_the_programs_pictures_data()
{
    QTest::addColumn<QString>("pick");
    QTest::addColumn<bool>("accept");
    QTest::addColumn<QString>("icon");
    QTest::newRow("chosen") << ":/svg/add_file" << true << ":/svg/add_file";
    QTest::newRow("cancelled") << ":/svg/add_file" << false << ":/icn/clear";
    QTest::newRow("nothing selected") << "" << true << ":/icn/clear";
}

void test_ui_settings::icon_from_the_programs_pictures()
{
    QFETCH(QString, pick);
    QFETCH(bool, accept);
    QFETCH(QString, icon);
    script_action editor;
    editor.prepare("Edit action", "{id}", ":/icn/clear", "Title", 1, "print");
    QString title;
    QStringList listed;
    QTimer viewer_watch;
    viewer_watch.setInterval(20);
    QObject::connect(&viewer_watch, &QTimer::timeout, [&] {
        auto* viewer = qobject_cast<QDialog*>(QApplication::activeModalWidget());
        if (!viewer || viewer->objectName() != "resource_viewer")
            return;
        viewer_watch.stop();
        title = viewer->windowTitle();
        auto* list = viewer->findChild<QListView*>("listView");
        for (int row = 0; row < list->model()->rowCount(); ++row)
            listed << list->model()->index(row, 0).data().toString();
        if (!pick.isEmpty())
            list->setCurrentIndex(list->model()->index(listed.indexOf(pick), 0));
        accept ? viewer->accept() : viewer->reject();
    });
    viewer_watch.start();
    editor.findChild<QPushButton*>("icon_res_btn")->click();
    QCOMPARE(title, QString("Select resource"));
    // The program's own pictures, icon aliases among them.
    QVERIFY2(listed.contains(":/svg/add_file") && listed.contains(":/svg/question"), qPrintable(listed.join(' ')));
    QSignalSpy done(&editor, &script_action::done);
    editor.accept();
    QCOMPARE(done.size(), 1);
    QCOMPARE(done[0][1].toString(), icon);
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

void test_ui_settings::tooltip_only_for_clipped_entries_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<QString>("tip");
    QTest::addColumn<bool>("shown");
    QTest::newRow("clipped with a tip") << QString(200, 'w') << "the whole story" << true;
    QTest::newRow("fits") << "w" << QString("the whole story") << false;
    QTest::newRow("clipped without a tip") << QString(200, 'w') << "" << false;
}

void test_ui_settings::tooltip_only_for_clipped_entries()
{
    QFETCH(QString, text);
    QFETCH(QString, tip);
    QFETCH(bool, shown);
    QStandardItemModel model;
    auto* item = new QStandardItem(text);
    item->setToolTip(tip);
    model.appendRow(item);
    QListView view;
    view.setModel(&model);
    view.resize(120, 80);
    view.show();
    QVERIFY(QTest::qWaitForWindowExposed(&view));
    long_entry_tooltips filter;
    filter.watch(&view);
    QToolTip::hideText();

    const QPoint on_item = view.visualRect(model.index(0, 0)).center();
    QHelpEvent over(QEvent::ToolTip, on_item, view.viewport()->mapToGlobal(on_item));
    QVERIFY(filter.eventFilter(view.viewport(), &over));
    QCOMPARE(QToolTip::text(), shown ? tip : QString());
    QHelpEvent outside(QEvent::ToolTip, { 5, 70 }, view.viewport()->mapToGlobal(QPoint(5, 70)));
    QVERIFY(!filter.eventFilter(view.viewport(), &outside));
    QToolTip::hideText();
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
    QCOMPARE(c.limit_concurrent_tasks(), 0u);
    QVERIFY(e.ep.short_form() != e.ep.long_form());
    QCOMPARE(c.model()->index(0, main_model::col_display).data().toString(), e.ep.long_form());

    emit c.window()->settings();
    auto* w = c.window()->findChild<settings::window*>();
    QVERIFY(w && w->isVisible());
    w->findChild<QSpinBox*>("f_limit_concurrent_tasks")->setValue(3);
    w->findChild<QCheckBox*>("f_device_address_display")->setChecked(true);
    auto* available = w->findChild<QListView*>("scripting_toolbar_available");
    QVERIFY(available->model()->rowCount() > 0);
    const QModelIndexList clear
        = available->model()->match(available->model()->index(0, 0), Qt::UserRole, "/16", 1, Qt::MatchExactly);
    QCOMPARE(clear.size(), 1);
    available->setCurrentIndex(clear.first());
    w->findChild<QPushButton*>("scripting_toolbar_add")->click();
    w->findChild<QDialogButtonBox*>("buttonBox")->button(QDialogButtonBox::Apply)->click();

    QCOMPARE(c.limit_concurrent_tasks(), 3u);
    QCOMPARE(c.task_manager().limit(), 3u);
    QCOMPARE(c.model()->index(0, main_model::col_display).data().toString(), e.ep.short_form());
    QCOMPARE(c.window()->scriptbar()->actions().size(), 1);
    QCOMPARE(c.settings().value("limit_concurrent_tasks").toUInt(), 3u);

    // Cancelled edits don't reach the file, and the toolbar follows the file again.
    w->findChild<QPushButton*>("scripting_toolbar_add")->click();
    QCOMPARE(c.window()->scriptbar()->actions().size(), 2);
    w->reject();
    QCOMPARE(c.window()->scriptbar()->actions().size(), 1);
    // The button added runs its command: the list of devices is cleared.
    c.window()->scriptbar()->actions().first()->trigger();
    QTRY_COMPARE(c.model()->rowCount(), 0);
}

void test_ui_settings::buttons_follow_the_stored_layout()
{
    desk d;
    d.start();
    QStringList texts;
    for (QAction* a : d.buttons())
        texts << (a->isSeparator() ? "|" : a->text() + "=" + a->data().toString());
    QCOMPARE(texts, (QStringList { "Three lines={a}", "|", "|", "Lua file={b}", "Clear={c}" }));
    QCOMPARE(picture(d.buttons()[3]->icon()), picture(QIcon(":/svg/question")));
    QCOMPARE(picture(d.buttons()[0]->icon()), picture(QIcon(":/icn/run")));
    QVERIFY(picture(d.buttons()[0]->icon()) != picture(QIcon(":/svg/question")));

    // The editor offers what a button can run: the commands that run outside the interpreter.
    const auto& offered = d.c->quick_actions().commands_model();
    QStringList values;
    for (int r = 0; r < offered.rowCount(); ++r)
        values << offered.data(offered.index(r), scripting::actions_commands_model::value_role).toString();
    QCOMPARE(values, (QStringList { "/10", "/15", "/16", "/62", "/76" }));

    // An edit of the store shows at once; the old buttons go.
    const QPointer<QAction> old = d.buttons()[0];
    d.c->quick_actions().remove_action(1);
    d.c->quick_actions().add_action({ "", "New", scripting::quick_action::script, "print new" }, 0);
    texts.clear();
    for (QAction* a : d.buttons())
        texts << (a->isSeparator() ? "|" : a->text());
    QCOMPARE(texts, (QStringList { "New", "Three lines", "|", "Lua file", "Clear" }));
    QVERIFY(old.isNull());
}

void test_ui_settings::each_kind_of_button_runs()
{
    desk d;
    d.start();
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
    QCOMPARE(d.c->task_manager().count(), 1);
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
}

QTEST_MAIN(test_ui_settings)
#include "test_ui_settings.moc"
