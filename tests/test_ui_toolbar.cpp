// The script toolbar of the window: the stored quick actions as buttons, and what pressing each kind runs.
#include "app/core.h"
#include "ui/main_window.h"

#include <QtTest>
#include <QtWidgets>

#include <memory>

namespace
{

struct command_seen {
    uint n = 0;
    size_t total = 0;
    QString line;
    qint64 number = 0;
    QStringList args;
};

// A core with its window whose settings hold quick actions: "a" three lines of OVScript, "b" a Lua file with an
// icon that isn't there, "c" the command that clears the device list; "gone" is in the layout only.
struct desk {
    desk()
    {
        QSettings s(dir.filePath("ov.config"), QSettings::IniFormat);
        s.setValue("usage_warning_accepted", true);
        s.setValue("Service/address", "127.0.0.1");
        s.setValue("Service/port", 1);
        s.setValue("QuickActions/layout", "[\"a\",\"\",\"\",\"b\",\"gone\",\"c\"]");
        const auto action
            = [&s](const QString& key, const QString& icon, const QString& title, int mode, const QString& value) {
                  s.setValue("QuickActions/Actions/" + key,
                      QString::fromUtf8(QJsonDocument(
                          QJsonObject { { "icon", icon }, { "title", title }, { "mode", mode }, { "value", value } })
                                            .toJson(QJsonDocument::Compact)));
              };
        action("a", ":/icn/run", "Three lines", 1, "print one\n\nprint two\nprint three");
        action("b", dir.filePath("nowhere.png"), "Lua file", 2, dir.filePath("s.lua"));
        action("c", ":/icn/clear", "Clear", 0, "/16");
        s.sync();
        QFile lua(dir.filePath("s.lua"));
        lua.open(QIODevice::WriteOnly);
        lua.write("print('lua ran')\n");
    }

    bool start()
    {
        c = std::make_unique<core>(QString(), dir.path());
        if (!c->operate(core::interactive, false))
            return false;
        QObject::connect(
            &c->processor(), &cmd_processor::command, &c->processor(),
            [this](QUuid, uint n, size_t total, QString line, scripting::cmd_id command, QStringList args) {
                QMutexLocker lock(&mutex);
                seen.append({ n, total, line, command.number, args });
            },
            Qt::DirectConnection);
        return true;
    }
    QList<QAction*> buttons() const { return c->window()->scriptbar()->actions(); }
    QList<command_seen> commands()
    {
        QMutexLocker lock(&mutex);
        return seen;
    }
    QString log_text() const
    {
        QStringList lines;
        for (const auto& e : c->history().entries({ "core", "lua" }))
            lines << e.text;
        return lines.join('\n');
    }

    QTemporaryDir dir;
    QMutex mutex; // the interpreter's thread reports until the core has gone
    QList<command_seen> seen;
    std::unique_ptr<core> c;
};

QImage picture(const QIcon& icon)
{
    return icon.pixmap(16, 16).toImage();
}

} // namespace

class test_ui_toolbar : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase() { QStandardPaths::setTestModeEnabled(true); }
    void buttons_follow_the_stored_layout();
    void three_lines_run_as_one_script();
    void a_lua_file_runs_through_the_queue();
    void commands_and_macros();
};

void test_ui_toolbar::buttons_follow_the_stored_layout()
{
    desk d;
    QVERIFY(d.start());
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

void test_ui_toolbar::three_lines_run_as_one_script()
{
    desk d;
    QVERIFY(d.start());
    d.buttons()[0]->trigger();
    QTRY_COMPARE(d.commands().size(), 3);
    // Queued as one script, all three are parsed before the first runs: each knows it is one of three.
    QStringList lines;
    for (int i = 0; i < 3; ++i) {
        const command_seen s = d.commands()[i];
        QCOMPARE(s.n, uint(i + 1));
        QCOMPARE(s.total, size_t(3));
        lines << s.line;
    }
    QCOMPARE(lines, (QStringList { "print one", "print two", "print three" }));
}

void test_ui_toolbar::a_lua_file_runs_through_the_queue()
{
    desk d;
    QVERIFY(d.start());
    d.buttons()[3]->trigger();
    QTRY_COMPARE(d.commands().size(), 1);
    const command_seen s = d.commands()[0];
    QCOMPARE(s.number, qint64(scripting::commands::run_lua_script));
    QCOMPARE(s.args, QStringList { d.dir.filePath("s.lua") });
    QTRY_VERIFY2(d.log_text().contains("Runtime message: lua ran"), qPrintable(d.log_text()));
}

void test_ui_toolbar::commands_and_macros()
{
    desk d;
    QVERIFY(d.start());
    endpoint ep;
    ep.host = "10.9.9.9";
    d.c->introduce(task_element(ep, device()));
    QCOMPARE(d.c->task_manager().count(), 1);
    // Built-in commands run at once, outside the interpreter.
    d.buttons()[4]->trigger();
    QCOMPARE(d.c->task_manager().count(), 0);
    QCOMPARE(d.commands().size(), 0);

    scripting::macro_recorder& r = d.c->processor().recorder();
    QVERIFY(r.start_recording("m"));
    QVERIFY(r.add_line("print from the macro"));
    QVERIFY(r.stop_recording());
    d.c->on_window_script_toolbar_btn("macro:m");
    QTRY_COMPARE(d.commands().size(), 1);
    QCOMPARE(d.commands()[0].line, QStringLiteral("print from the macro"));

    d.c->on_window_script_toolbar_btn("{not-there}");
    QVERIFY2(d.log_text().contains("Unknown quick action: {not-there}"), qPrintable(d.log_text()));
}

QTEST_MAIN(test_ui_toolbar)
#include "test_ui_toolbar.moc"
