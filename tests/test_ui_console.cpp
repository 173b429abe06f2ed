// The command console and the script editor, alone and in the program.
#include "tests/support/fleet_fixture.h"
#include "ui/cmd_buffer_controller.h"
#include "ui/cmdline.h"
#include "ui/codeeditor.h"
#include "ui/codehighlighter.h"
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
    QLabel* status() const { return window.findChild<QLabel*>("status"); }

    void type(const QString& line) { type_into(input(), line); }

    QTemporaryDir dir;
    QSettings settings;
    cmdline window;
};

// The format the highlighter gave the character at position of a one-line document.
QTextCharFormat format_at(const QString& text, int position)
{
    QTextDocument doc;
    codehighlighter highlighter(&doc);
    doc.setPlainText(text);
    highlighter.rehighlight();
    for (const QTextLayout::FormatRange& r : doc.firstBlock().layout()->formats()) {
        if (position >= r.start && position < r.start + r.length)
            return r.format;
    }
    return QTextCharFormat();
}

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
    void history_walk();
    void input_goes_out_with_its_language();
    void output_forms_data();
    void output_forms();
    void wait_animates_without_blocking();
    void nested_waits_share_one_animation();
    void status_and_macro_labels();
    void save_and_clear();
    void highlighting_data();
    void highlighting();
    void margin_markers_data();
    void margin_markers();
    void comment_toggling_data();
    void comment_toggling();
    void margin_and_zoom();
    void edit_script_reports_its_text();
    void the_console_opens_by_key_and_by_help();
    void typed_lines_run();
    void macro_state_and_playback();
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
}

void test_ui_console::history_walk()
{
    console_fixture f;
    for (const char* line : { "one", "two", "three" })
        f.type(line);
    const auto walk = [&](const QString& keys) {
        QStringList seen;
        for (const QChar k : keys) {
            QTest::keyClick(f.input(), k == 'U' ? Qt::Key_Up : Qt::Key_Down);
            seen << f.input()->text();
        }
        return seen.join('|');
    };
    // Up stays at the first; Down past the last gives a fresh line.
    QCOMPARE(walk("UUUUDDDD"), QString("three|two|one|one|two|three||"));
    // A new entry puts the walk back at the end.
    walk("U");
    f.input()->clear();
    f.type("four");
    QCOMPARE(walk("U"), QString("four"));
}

void test_ui_console::input_goes_out_with_its_language()
{
    console_fixture f;
    QSignalSpy sent(&f.window, &cmdline::input);
    f.type("print 1");
    // Tab to the language, Right to the next one, and the input has the keys again.
    f.input()->setFocus();
    QTest::keyClick(f.input(), Qt::Key_Tab);
    QTest::keyClick(QApplication::focusWidget(), Qt::Key_Right);
    QVERIFY(f.window.findChild<QRadioButton*>("r_lua")->isChecked());
    QTRY_COMPARE(QApplication::focusWidget(), f.input());
    f.type("print(2)");
    QCOMPARE(sent.count(), 2);
    QCOMPARE(sent[0][1].value<scripting::script_type>(), scripting::script_type::ovscript);
    QCOMPARE(sent[1][1].value<scripting::script_type>(), scripting::script_type::lua);
    QCOMPARE(sent[1][2].toString(), QString("print(2)"));
    // Each line is known by its ident, so an error that comes late names the right one.
    const QUuid first = sent[0][0].toUuid();
    QCOMPARE(f.window.line_of(first), QString("print 1"));
    QCOMPARE(f.window.line_of(sent[1][0].toUuid()), QString("print(2)"));
    QCOMPARE(f.settings.value(cmdline::script_type_key).toUInt(), 1u);

    // The choice survives the window.
    cmdline again(f.settings);
    QVERIFY(again.findChild<QRadioButton*>("r_lua")->isChecked());
    QVERIFY(again.line_of(first).isEmpty());
}

void test_ui_console::output_forms_data()
{
    QTest::addColumn<int>("form");
    QTest::addColumn<QString>("text");
    QTest::addColumn<QString>("html");
    QTest::addColumn<QString>("plain");

    QTest::newRow("typed line, escaped")
        << 0 << "print <b>"
        << "<div><span style='color: gray;'>$</span> <span style='font-weight: bold;'>print &lt;b&gt;</span></div>"
        << "$ print <b>";
    QTest::newRow("error, escaped") << 1 << "Unknown command: a<b"
                                    << "<div style='color: red;'>Unknown command: a&lt;b</div>"
                                    << "Unknown command: a<b";
    QTest::newRow("html as it is") << 2 << "<div><i>x</i></div>" << QString("<div><i>x</i></div>") << QString("x");
}

void test_ui_console::output_forms()
{
    QFETCH(int, form);
    QFETCH(QString, text);
    QFETCH(QString, html);
    QFETCH(QString, plain);
    console_fixture f;
    if (form == 0)
        f.window.show_input(text);
    else if (form == 1)
        f.window.append_error(text, false);
    else
        f.window.append(text, false);
    QCOMPARE(f.window.buffer().html(), html);
    QTRY_COMPARE(f.output()->toPlainText(), plain);
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
    QStringList seen;
    QObject::connect(f.output(), &QTextEdit::textChanged, [&] { seen << f.output()->toPlainText(); });

    QElapsedTimer clock;
    clock.start();
    f.window.wait([&] { return clock.elapsed() < 700; }, "Executing...", true, scripting::console::spinning);
    tick.stop();

    // Sleeping through the wait in steps of a frame would give a tick per frame at most.
    QVERIFY2(ticks >= 15, qPrintable(QString::number(ticks)));
    // Frames come from the spinner, one after another.
    QSet<QString> frames;
    for (const QString& text : seen) {
        const int at = text.indexOf("Executing... ");
        if (at >= 0)
            frames << text.mid(at + 13, 1);
    }
    QVERIFY2(frames.size() >= 2, qPrintable(QStringList(frames.values()).join(",")));
    QVERIFY(frames.subtract({ "/", "-", "\\", "|" }).isEmpty());
    // replace_last took the last line away; the animated line goes once the wait is over.
    QTRY_COMPARE(f.output()->toPlainText(), QString("before"));
    QVERIFY(!f.window.buffer().isRunning());
}

void test_ui_console::nested_waits_share_one_animation()
{
    console_fixture f;
    bool inner_done = false;
    bool animating_after_inner = false;
    QElapsedTimer clock;
    clock.start();
    QTimer::singleShot(50, [&] {
        f.window.wait([&] { return clock.elapsed() < 300; }, "Inner...", false, scripting::console::waiting);
        animating_after_inner = f.window.buffer().isRunning();
        inner_done = true;
    });
    f.window.wait([&] { return clock.elapsed() < 5000 && (!inner_done || clock.elapsed() < 500); }, "Scanning...",
        false, scripting::console::scanning);
    QVERIFY(inner_done);
    // The outer wait went on with its animation after the inner one ended.
    QVERIFY(animating_after_inner);
    QVERIFY(!f.window.buffer().isRunning());
    QVERIFY(!f.window.buffer().html().contains("Scanning..."));
}

void test_ui_console::status_and_macro_labels()
{
    console_fixture f;
    QCOMPARE(f.status()->text(), QString("Ready"));
    f.window.status(QUuid::createUuid(), 2, 5, "devices.check fetch all");
    QCOMPARE(f.status()->text(), QString("Executing: 2 / 5"));
    QCOMPARE(f.window.findChild<QLabel*>("l_line")->text(), QString("devices.check fetch all"));
    QVERIFY(f.input()->styleSheet().contains("rgb(255, 255, 230)"));
    f.window.set_ready();
    QCOMPARE(f.status()->text(), QString("Ready"));
    QVERIFY(f.input()->styleSheet().isEmpty());
    QVERIFY(f.window.findChild<QLabel*>("l_line")->text().isEmpty());
    // Recording is shown in the program below.
    auto* macro = f.window.findChild<QLabel*>("l_macro");
    f.window.macro_playback(true, "m");
    QCOMPARE(macro->text(), QString("Macro playback: m"));
    f.window.macro_playback(false, QString());
    QVERIFY(macro->text().isEmpty());
}

void test_ui_console::save_and_clear()
{
    console_fixture f;
    f.type("print привет");
    f.type("");
    f.type("a = 1");
    f.window.append("<div>out</div>", false);
    const QString file = f.dir.filePath("typed.ovscript");
    QCOMPARE(f.window.save_script(file), QString());
    QFile saved(file);
    QVERIFY(saved.open(QIODevice::ReadOnly));
    QCOMPARE(QString::fromUtf8(saved.readAll()), QString("print привет\na = 1\n"));
    QVERIFY(!f.window.save_script(f.dir.filePath("no/such/folder/x.script")).isEmpty());

    f.input()->setText("half typed");
    f.window.findChild<QAction*>("act_clear")->trigger();
    QVERIFY(f.input()->text().isEmpty());
    QVERIFY(f.window.entered_lines().isEmpty());
    QCOMPARE(f.window.buffer().line_count(), 0);
    QTRY_VERIFY(f.output()->toPlainText().isEmpty());
    // The history outlives a clear, as a shell's does.
    QCOMPARE(f.window.history().items().size(), 2);
}

void test_ui_console::highlighting_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<int>("position");
    QTest::addColumn<QColor>("colour");
    QTest::addColumn<bool>("bold");

    QTest::newRow("comment") << "# comment" << 2 << QColor(Qt::darkGray) << false;
    QTest::newRow("indented comment") << "   # x" << 4 << QColor(Qt::darkGray) << false;
    QTest::newRow("assignment") << "a = 1" << 4 << QColor(Qt::darkCyan) << false;
    QTest::newRow("command word") << "print x" << 0 << QColor(Qt::blue) << true;
    QTest::newRow("argument unpainted") << "print x" << 6 << QColor() << false;
    QTest::newRow("dotted command") << "devices.check fetch all" << 9 << QColor(Qt::blue) << true;
    QTest::newRow("named parameter") << "play url --title='Gate A'" << 20 << QColor(Qt::darkGray) << false;
    QTest::newRow("raw line") << "^anything here" << 5 << QColor(Qt::darkGreen) << false;
    QTest::newRow("variable") << "print ${name}" << 8 << QColor(Qt::darkCyan) << false;
}

void test_ui_console::highlighting()
{
    QFETCH(QString, text);
    QFETCH(int, position);
    QFETCH(QColor, colour);
    const QTextCharFormat format = format_at(text, position);
    if (colour.isValid())
        QCOMPARE(format.foreground().color(), colour);
    else
        QVERIFY(!format.hasProperty(QTextFormat::ForegroundBrush));
    QTEST(format.fontWeight() == 75, "bold");
}

void test_ui_console::margin_markers_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<QString>("marker");
    QTest::newRow("record") << "macro.record m" << QString("🔴");
    QTest::newRow("stop") << "macro.stop" << QString("🟩");
    QTest::newRow("run") << "macro.run m" << QString("➡");
    QTest::newRow("other macro command") << "macro.list" << QString("");
    QTest::newRow("plain line") << "print macro.record" << QString("");
}

void test_ui_console::margin_markers()
{
    QFETCH(QString, text);
    QFETCH(QString, marker);
    QCOMPARE(codeeditor::marker(text), marker);
}

void test_ui_console::comment_toggling_data()
{
    QTest::addColumn<QString>("before");
    QTest::addColumn<int>("from");
    QTest::addColumn<int>("to");
    QTest::addColumn<QString>("after");

    QTest::newRow("comments the selected lines") << "a\nb\nc" << 0 << 2 << "#a\n#b\nc";
    QTest::newRow("the first line decides") << "#a\nb\n#c" << 0 << 6 << "a\nb\nc";
    QTest::newRow("uncommented first comments all") << "a\n#b" << 0 << 3 << "#a\n##b";
    QTest::newRow("a cursor is its line") << "x\ny" << 3 << 3 << "x\n#y";
}

void test_ui_console::comment_toggling()
{
    QFETCH(QString, before);
    QFETCH(int, from);
    QFETCH(int, to);
    codeeditor editor;
    editor.setPlainText(before);
    QTextCursor cursor(editor.document());
    cursor.setPosition(from);
    cursor.setPosition(to, QTextCursor::KeepAnchor);
    editor.setTextCursor(cursor);
    QTest::keyClick(&editor, Qt::Key_Slash, Qt::ControlModifier);
    QTEST(editor.toPlainText(), "after");
    // One step to undo.
    editor.undo();
    QCOMPARE(editor.toPlainText(), before);
}

void test_ui_console::margin_and_zoom()
{
    codeeditor editor;
    editor.setPlainText("1\n2\n3");
    const int narrow = editor.margin_width();
    editor.setPlainText(QString("x\n").repeated(120));
    QVERIFY(editor.margin_width() > narrow);
    QCOMPARE(editor.margin_font().weight(), 75);

    const auto size
        = [&] { return editor.font().pointSizeF() > 0 ? editor.font().pointSizeF() : editor.font().pixelSize(); };
    const qreal before = size();
    QTest::keyClick(&editor, Qt::Key_Equal, Qt::ControlModifier);
    QVERIFY(size() > before);
    QCOMPARE(editor.margin_font().pointSizeF(), editor.font().pointSizeF());
    QTest::keyClick(&editor, Qt::Key_Minus, Qt::ControlModifier);
    QTest::keyClick(&editor, Qt::Key_Minus, Qt::ControlModifier);
    QVERIFY(size() < before);
    // Zoom keys don't type.
    QCOMPARE(editor.toPlainText(), QString("x\n").repeated(120));
}

void test_ui_console::edit_script_reports_its_text()
{
    edit_script dialog;
    QSignalSpy done(&dialog, &edit_script::done);
    dialog.edit("/tmp/scripts/start.ovscript", "print 1");
    QCOMPARE(dialog.windowTitle(), QString("Script editing — start.ovscript"));
    auto* editor = dialog.findChild<codeeditor*>("code_editor");
    QVERIFY(editor);
    editor->appendPlainText("print 2");
    dialog.reject();
    QCOMPARE(done.count(), 0);
    dialog.accept();
    QCOMPARE(done.count(), 1);
    QCOMPARE(done[0][0].toString(), QString("/tmp/scripts/start.ovscript"));
    QCOMPARE(done[0][1].toString(), QString("print 1\nprint 2"));
}

// F4 opens the console, a help link offers its command there, and the window keeps its place.
void test_ui_console::the_console_opens_by_key_and_by_help()
{
    console_core f;
    QVERIFY(f.window && !f.window->isVisible());
    QCOMPARE(f.c->console(), static_cast<scripting::console*>(f.window));
    QAction* open = f.c->window()->findChild<QAction*>("act_cmdline");
    QCOMPARE(open->shortcut(), QKeySequence(Qt::Key_F4));
    open->trigger();
    QVERIFY(f.window->isVisible());
    QCOMPARE(f.window->windowTitle(), QString("Command line"));
    f.window->hide();
    f.c->on_help_cmd_clicked("devices.check fetch all", false);
    QCOMPARE(f.input()->text(), QString("devices.check fetch all"));
    QVERIFY(f.window->isVisible());

    // The window keeps its place across a restart.
    f.window->resize(517, 333);
    QTRY_COMPARE(f.window->size(), QSize(517, 333));
    f.end_run();
    QSettings saved(f.dir.filePath("ov.config"), QSettings::IniFormat);
    QVERIFY(!saved.value("Console/geometry").toString().isEmpty());
    QVERIFY(!saved.value("Console/state").toString().isEmpty());
    f.make_core(false, core::interactive);
    QCOMPARE(f.c->console_window()->size(), QSize(517, 333));
}

void test_ui_console::typed_lines_run()
{
    console_core f;
    f.type("x = world");
    f.type("print hello ${x}");
    QTRY_VERIFY2(f.shown().contains("hello world"), qPrintable(f.shown()));
    QVERIFY(f.shown().contains("$ print hello"));
    QTRY_COMPARE(f.window->findChild<QLabel*>("status")->text(), QString("Ready"));

    // Lua runs off the main thread: the console animates its wait meanwhile.
    QStringList seen;
    auto* output = f.window->findChild<QTextEdit*>("output");
    const auto watch = QObject::connect(output, &QTextEdit::textChanged, [&] { seen << output->toPlainText(); });
    f.choose("r_lua");
    f.type("local t = os.clock() while os.clock() - t < 1.0 do end print('from' .. ' lua')");
    QTRY_VERIFY2(f.shown().contains("from lua"), qPrintable(f.shown()));
    QVERIFY(f.shown().contains("$ local t = os.clock()"));
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
}

void test_ui_console::macro_state_and_playback()
{
    console_core f;
    auto* label = f.window->findChild<QLabel*>("l_macro");
    f.type("macro.record m");
    QTRY_COMPARE(label->text(), QString("Recording macro: m"));
    f.type("print recorded");
    QTRY_VERIFY2(f.shown().contains("Macro> print recorded"), qPrintable(f.shown()));
    QTRY_VERIFY(f.idle());
    f.type("macro.stop");
    QTRY_VERIFY(label->text().isEmpty());
    QTRY_VERIFY(f.idle());
    // Recorded, not run: the line's output comes with the playback only.
    const auto outputs = [&f] { return f.shown().split('\n').count("recorded"); };
    QCOMPARE(outputs(), 0);
    f.type("macro.run m");
    QTRY_COMPARE(outputs(), 1);
    QTRY_VERIFY(f.idle());
    // Playback is a burst: the label has come and gone.
    QTRY_VERIFY(label->text().isEmpty());
}

QTEST_MAIN(test_ui_console)
#include "test_ui_console.moc"
