// The console in the program: typed OVScript and Lua lines run and show their output, an error names the line
// that caused it, macros show their state, a running script animates its wait, and the window keeps its place.
#include "tests/support/fleet_fixture.h"
#include "ui/cmdline.h"
#include "ui/main_window.h"

#include <QtTest>
#include <QtWidgets>

namespace {

struct console_core : fleet::fixture {
    console_core()
    {
        make_core(false, core::interactive);
        window = c->console_window();
    }

    QLineEdit* input() const { return window->findChild<QLineEdit*>("input"); }
    QString shown() const { return window->findChild<QTextEdit*>("output")->toPlainText(); }
    void type(const QString& line)
    {
        QTest::keyClicks(input(), line);
        QTest::keyClick(input(), Qt::Key_Return);
    }
    void choose(const char* language) { window->findChild<QRadioButton*>(language)->click(); }
    bool idle() const { return c->processor().idle(); }

    cmdline* window = nullptr;
};

} // namespace

class test_console_core : public QObject
{
    Q_OBJECT
private slots:
    void f4_opens_the_console();
    void typed_lines_run();
    void an_error_names_its_line();
    void macro_state_and_playback();
    void lua_wait_animates();
    void help_offers_its_command();
    void geometry_survives_a_restart();
};

void test_console_core::f4_opens_the_console()
{
    console_core f;
    QVERIFY(f.window);
    QVERIFY(!f.window->isVisible());
    QCOMPARE(f.c->console(), static_cast<scripting::console*>(f.window));
    f.c->window()->findChild<QAction*>("act_cmdline")->trigger();
    QVERIFY(f.window->isVisible());
    QCOMPARE(f.window->windowTitle(), QString("Command line"));
}

void test_console_core::typed_lines_run()
{
    console_core f;
    f.type("x = world");
    f.type("print hello ${x}");
    QTRY_VERIFY2(f.shown().contains("hello world"), qPrintable(f.shown()));
    QVERIFY(f.shown().contains("$ print hello"));
    QTRY_COMPARE(f.window->findChild<QLabel*>("status")->text(), QString("Ready"));

    f.choose("r_lua");
    f.type("print('from' .. ' lua')");
    QTRY_VERIFY2(f.shown().contains("from lua"), qPrintable(f.shown()));
    QVERIFY(f.shown().contains("$ print('from' .. ' lua')"));
    QTRY_VERIFY(f.shown().endsWith("Done"));
}

void test_console_core::an_error_names_its_line()
{
    console_core f;
    // Both typed before the interpreter reports on the first.
    f.type("frobnicate one");
    f.type("print two");
    QTRY_VERIFY2(
        f.shown().contains("Line frobnicate one, error \"Unknown command: frobnicate\""), qPrintable(f.shown()));
    QTRY_VERIFY(f.shown().contains("two"));
}

void test_console_core::macro_state_and_playback()
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

void test_console_core::lua_wait_animates()
{
    console_core f;
    QStringList seen;
    auto* output = f.window->findChild<QTextEdit*>("output");
    QObject::connect(output, &QTextEdit::textChanged, [&] { seen << output->toPlainText(); });
    int ticks = 0;
    QTimer tick;
    tick.setInterval(10);
    QObject::connect(&tick, &QTimer::timeout, [&] { ++ticks; });
    tick.start();

    f.choose("r_lua");
    f.type("local t = os.clock() while os.clock() - t < 1.0 do end print('slept')");
    QTRY_VERIFY2(f.shown().contains("slept"), qPrintable(f.shown()));
    QTRY_VERIFY(f.shown().endsWith("Done"));
    tick.stop();
    QVERIFY2(ticks >= 10, qPrintable(QString::number(ticks)));
    const auto animated = std::count_if(seen.cbegin(), seen.cend(), [](const QString& text) {
        return QRegularExpression("Code is executing\\.\\.\\. [-/|\\\\]$").match(text).hasMatch();
    });
    QVERIFY2(animated >= 2, qPrintable(seen.join("\n---\n")));
    QVERIFY(!f.shown().contains("Code is executing"));
}

void test_console_core::help_offers_its_command()
{
    console_core f;
    f.c->on_help_cmd_clicked("devices.check fetch all", false);
    QCOMPARE(f.input()->text(), QString("devices.check fetch all"));
    QVERIFY(f.window->isVisible());
}

void test_console_core::geometry_survives_a_restart()
{
    console_core f;
    f.window->show();
    f.window->resize(517, 333);
    QTRY_COMPARE(f.window->size(), QSize(517, 333));
    f.end_run();
    QSettings saved(f.dir.filePath("ov.config"), QSettings::IniFormat);
    QVERIFY(!saved.value("Console/geometry").toString().isEmpty());
    QVERIFY(!saved.value("Console/state").toString().isEmpty());

    f.make_core(false, core::interactive);
    QCOMPARE(f.c->console_window()->size(), QSize(517, 333));
}

QTEST_MAIN(test_console_core)
#include "test_console_core.moc"
