// The command console and the script editor, alone and in the program.
#include "tests/support/fleet_fixture.h"
#include "ui/cmd_buffer_controller.h"
#include "ui/cmdline.h"
#include "ui/codeeditor.h"
#include "ui/edit_script.h"
#include "ui/main_window.h"

#include <QtTest>
#include <QtWidgets>

namespace {

// Typed as keys when it can be; the test's keyboard knows only ASCII.
void type_into(QLineEdit* input, const QString& line)
{
    if (line.toLatin1() == line.toUtf8())
        QTest::keyClicks(input, line);
    else
        input->setText(line);
    QTest::keyClick(input, Qt::Key_Return);
}

struct console_fixture {
    console_fixture()
        : settings(dir.filePath("ov.config"), QSettings::IniFormat)
        , window(settings)
    {
        window.show();
        QApplication::setActiveWindow(&window);
    }

    QLineEdit* input() const { return window.findChild<QLineEdit*>("input"); }
    QTextEdit* output() const { return window.findChild<QTextEdit*>("output"); }

    void type(const QString& line) { type_into(input(), line); }

    QTemporaryDir dir;
    QSettings settings;
    cmdline window;
};

struct console_core : fleet::fixture {
    console_core()
    {
        make_core(false, core::interactive);
        window = c->console_window();
    }

    QLineEdit* input() const { return window->findChild<QLineEdit*>("input"); }
    QString shown() const { return window->findChild<QTextEdit*>("output")->toPlainText(); }
    void type(const QString& line) { type_into(input(), line); }
    void choose(const char* language) { window->findChild<QRadioButton*>(language)->click(); }
    bool idle() const { return c->processor().idle(); }

    cmdline* window = nullptr;
};

} // namespace

class test_ui_console : public QObject
{
    Q_OBJECT
private slots:
    void history_data();
    void history();
    void typed_lines_go_out_and_are_saved();
    void wait_animates_without_blocking();
    void edit_script_reports_its_text();
    void typed_lines_macros_and_help_links_run();
};

void test_ui_console::history_data()
{
    QTest::addColumn<QStringList>("typed");
    QTest::addColumn<QStringList>("items");

    QTest::newRow("empty input adds nothing") << QStringList { "", "a", "" } << QStringList { "a" };
    QTest::newRow("a repeat of the last is one item") << QStringList { "a", "a" } << QStringList { "a" };
    QTest::newRow("a repeat of an older one is kept") << QStringList { "a", "b", "a" } << QStringList { "a", "b", "a" };
    QStringList many;
    for (int i = 1; i <= 33; ++i)
        many << QString("line %1").arg(i);
    QTest::newRow("the 33rd drops the first") << many << QStringList(many.mid(1));
}

void test_ui_console::history()
{
    QFETCH(QStringList, typed);
    QFETCH(QStringList, items);
    console_fixture f;
    QSignalSpy sent(&f.window, &cmdline::input);
    for (const QString& line : typed)
        f.type(line);
    QCOMPARE(f.window.history().items(), items);
    QCOMPARE(f.window.history().position(), items.size());
    QCOMPARE(sent.count(), typed.size() - typed.count(QString()));
    QVERIFY(f.input()->text().isEmpty());
    // Up walks back and stops at the oldest; Down stops at a fresh line past the newest.
    for (int i = items.size() - 1; i >= -1; --i) {
        QTest::keyClick(f.input(), Qt::Key_Up);
        QCOMPARE(f.input()->text(), items.value(qMax(i, 0)));
    }
    for (int i = 0; i <= items.size(); ++i)
        QTest::keyClick(f.input(), Qt::Key_Down);
    QVERIFY(f.input()->text().isEmpty());
    QTest::keyClick(f.input(), Qt::Key_Up);
    QCOMPARE(f.input()->text(), items.last());
}

void test_ui_console::typed_lines_go_out_and_are_saved()
{
    console_fixture f;
    QSignalSpy sent(&f.window, &cmdline::input);
    f.type("print привет");
    f.type("");
    f.window.findChild<QRadioButton*>("r_lua")->click();
    f.type("print(2)");
    QCOMPARE(sent.count(), 2);
    QCOMPARE(sent[0][1].value<scripting::script_type>(), scripting::script_type::ovscript);
    QCOMPARE(sent[1][1].value<scripting::script_type>(), scripting::script_type::lua);
    QCOMPARE(sent[1][2].toString(), QString("print(2)"));
    // Each line is known by its ident, so an error that comes late names the right one.
    const QUuid first = sent[0][0].toUuid();
    QCOMPARE(f.window.line_of(first), QString("print привет"));
    QCOMPARE(f.window.line_of(sent[1][0].toUuid()), QString("print(2)"));

    const QString file = f.dir.filePath("typed.ovscript");
    QCOMPARE(f.window.save_script(file), QString());
    QFile saved(file);
    QVERIFY(saved.open(QIODevice::ReadOnly));
    QCOMPARE(QString::fromUtf8(saved.readAll()), QString("print привет\nprint(2)\n"));
    QVERIFY(!f.window.save_script(f.dir.filePath("no/such/folder/x.script")).isEmpty());

    // Text is escaped, html is taken as it is.
    f.window.append_error("Unknown command: a<b", false);
    QCOMPARE(f.window.buffer().html(), QString("<div style='color: red;'>Unknown command: a&lt;b</div>"));
    f.window.append("<div><i>x</i></div>", false);
    QTRY_COMPARE(f.output()->toPlainText(), QString("Unknown command: a<b\nx"));

    // A clear empties all but the history, as a shell's does.
    f.input()->setText("half typed");
    f.window.findChild<QAction*>("act_clear")->trigger();
    QVERIFY(f.input()->text().isEmpty());
    QVERIFY(f.window.entered_lines().isEmpty());
    QCOMPARE(f.window.buffer().line_count(), 0);
    QTRY_VERIFY(f.output()->toPlainText().isEmpty());
    QCOMPARE(f.window.history().items().size(), 2);

    // The language survives the window; the idents don't.
    cmdline again(f.settings);
    QVERIFY(again.findChild<QRadioButton*>("r_lua")->isChecked());
    QVERIFY(again.line_of(first).isEmpty());
}

void test_ui_console::wait_animates_without_blocking()
{
    console_fixture f;
    f.window.append("<div>before</div>", false);
    f.window.append("<div>dropped</div>", false);
    // The main thread keeps serving timers while the command waits.
    int ticks = 0;
    QTimer tick;
    tick.setInterval(10);
    QObject::connect(&tick, &QTimer::timeout, [&] { ++ticks; });
    tick.start();
    QElapsedTimer clock;
    clock.start();
    f.window.wait([&] { return clock.elapsed() < 700; }, "Executing...", true, scripting::console::spinning);
    tick.stop();
    // Sleeping through the wait in steps of a frame would give a tick per frame at most.
    QVERIFY2(ticks >= 15, qPrintable(QString::number(ticks)));
    // replace_last took the last line away; the animated line goes once the wait is over.
    QTRY_COMPARE(f.output()->toPlainText(), QString("before"));
    QVERIFY(!f.window.buffer().isRunning());
}

void test_ui_console::edit_script_reports_its_text()
{
    edit_script dialog;
    QSignalSpy done(&dialog, &edit_script::done);
    dialog.edit("/tmp/scripts/start.ovscript", "print 1");
    dialog.findChild<codeeditor*>("code_editor")->appendPlainText("print 2");
    dialog.reject();
    QCOMPARE(done.count(), 0);
    dialog.accept();
    QCOMPARE(done.count(), 1);
    QCOMPARE(done[0], (QVariantList { "/tmp/scripts/start.ovscript", "print 1\nprint 2" }));
}

void test_ui_console::typed_lines_macros_and_help_links_run()
{
    console_core f;
    f.type("x = world");
    f.type("print hello ${x}");
    QTRY_VERIFY2(f.shown().contains("hello world"), qPrintable(f.shown()));

    // Lua runs off the main thread: the console animates its wait meanwhile.
    QStringList seen;
    auto* output = f.window->findChild<QTextEdit*>("output");
    const auto watch = QObject::connect(output, &QTextEdit::textChanged, [&] { seen << output->toPlainText(); });
    f.choose("r_lua");
    f.type("local t = os.clock() while os.clock() - t < 1.0 do end print('from' .. ' lua')");
    QTRY_VERIFY2(f.shown().contains("from lua"), qPrintable(f.shown()));
    QTRY_VERIFY(f.shown().endsWith("Done"));
    QObject::disconnect(watch);
    const auto animated = std::count_if(seen.cbegin(), seen.cend(), [](const QString& text) {
        return QRegularExpression("Code is executing\\.\\.\\. [-/|\\\\]$").match(text).hasMatch();
    });
    QVERIFY2(animated >= 2, qPrintable(seen.join("\n---\n")));
    QVERIFY(!f.shown().contains("Code is executing"));

    // An error names its line: both typed before the interpreter reports on the first.
    f.choose("r_ovscript");
    f.type("frobnicate one");
    f.type("print two");
    QTRY_VERIFY2(
        f.shown().contains("Line frobnicate one, error \"Unknown command: frobnicate\""), qPrintable(f.shown()));
    QTRY_VERIFY(f.shown().contains("two"));
    QTRY_VERIFY(f.idle());

    auto* label = f.window->findChild<QLabel*>("l_macro");
    f.type("macro.record m");
    QTRY_COMPARE(label->text(), QString("Recording macro: m"));
    f.type("print recorded");
    QTRY_VERIFY2(f.shown().contains("Macro> print recorded"), qPrintable(f.shown()));
    QTRY_VERIFY(f.idle());
    f.type("macro.stop");
    QTRY_VERIFY(label->text().isEmpty());

    f.c->on_help_cmd_clicked("devices.check fetch all", false);
    QCOMPARE(f.input()->text(), QString("devices.check fetch all"));
}

QTEST_MAIN(test_ui_console)
#include "test_ui_console.moc"
