// Commands that reach the window: its dialogs, the display commands, and the script widgets on its toolbars.
#include "app/caps.h"
#include "scripting/sapi.h"
#include "tests/support/box_answers.h"
#include "tests/support/script_session.h"
#include "ui/about.h"
#include "ui/dynwidgets_controller.h"
#include "ui/help.h"
#include "ui/main_window.h"
#include "ui/videoplayer.h"

#include <QtTest>
#include <QtWidgets>

namespace {

// An interactive core, and the addresses its tasks were given.
struct window_core : scripted
{
    window_core()
        : scripted(core::interactive)
    {
    }

    // Addresses of the change_ip tasks composed, in selection order.
    QStringList assigned() const
    {
        QStringList addresses;
        for (const QString& ident : c->selected_lines()) {
            for (const auto& [uuid, t] : line(ident)->tasks()) {
                if (t.name() == tasks::names::change_ip)
                    addresses << t.params().value(tasks::args::address).value<QHostAddress>().toString();
            }
        }
        return addresses;
    }
};

} // namespace

class test_window_commands : public QObject
{
    Q_OBJECT
private slots:
    void assign_addresses_asks_data();
    void assign_addresses_asks();
    void display_commands_reach_the_window();
    void toolbar_widgets_data();
    void toolbar_widgets();
    void user_changes_fire_widget_changed();
    void help_play_and_about_open_their_windows();
};

void test_window_commands::assign_addresses_asks_data()
{
    QTest::addColumn<int>("rows");
    QTest::addColumn<QList<int>>("answers");
    QTest::addColumn<QStringList>("boxes");
    QTest::addColumn<QString>("error");
    QTest::addColumn<QString>("first");
    const QString lower = "Out of range: Unable to assign addresses for %1 devices from the specified address "
                          "range.\nLower the start address to 192.168.1.%2?";
    QTest::newRow("lowered") << 10 << QList<int> { QMessageBox::Yes } << QStringList { lower.arg(10).arg(245) } << ""
                             << "192.168.1.245";
    QTest::newRow("not lowered") << 10 << QList<int> { QMessageBox::No } << QStringList { lower.arg(10).arg(245) }
                                 << "Start address is out of range." << "";
    QTest::newRow("too many, then out of range")
        << 256 << QList<int> { QMessageBox::Ok, QMessageBox::No }
        << QStringList { "Too many devices: Reduce the number of selected devices by 2.", lower.arg(256).arg(0) }
        << "Start address is out of range." << "";
}

void test_window_commands::assign_addresses_asks()
{
    QFETCH(int, rows);
    QFETCH(QList<int>, answers);
    QFETCH(QString, error);
    QFETCH(QString, first);
    window_core f;
    // All rows at one slow device: the first flow is still at its identify when the command has returned.
    QVERIFY2(f.devices.start(1, QJsonObject { { "faults", QJsonObject { { "delay_ms", 1500 } } } }),
        qPrintable(f.devices.error()));
    for (int i = 0; i < rows; ++i)
        f.add_row(f.devices.address(0).toString(), f.devices.port(0));
    // The box the assignment macro reads its start from.
    QVERIFY(f.run("display.toolbar.scripting add subnet2 --type=numeric --max=255 --value=250").ok);
    box_answers answering([&answers](const QMessageBox&) {
        return answers.isEmpty() ? QMessageBox::NoButton : QMessageBox::StandardButton(answers.takeFirst());
    });
    const scripting::command_result r = f.run("devices.assign_addresses 1 250");
    QTEST(answering.texts(), "boxes");
    QCOMPARE(r.ok, error.isEmpty());
    QCOMPARE(f.shown(), error.isEmpty() ? QStringList {} : QStringList { "error: " + error });
    const QStringList addresses = f.assigned();
    QCOMPARE(addresses.size(), first.isEmpty() ? 0 : rows);
    QCOMPARE(f.c->resolve_variable("widget/subnet2/value"), first.isEmpty() ? "250" : first.section('.', 3));
    if (!first.isEmpty()) {
        QCOMPARE(addresses.first(), first);
        QCOMPARE(addresses.last(), QStringLiteral("192.168.1.254"));
    }
}

void test_window_commands::display_commands_reach_the_window()
{
    window_core f;
    main_window* w = f.c->window();
    QVERIFY(w);
    const auto* splitter = qobject_cast<QSplitter*>(w->log_list()->parentWidget());
    QVERIFY(splitter);

    QVERIFY(f.run("display.log.toggle off").ok);
    QCOMPARE(splitter->sizes().value(1), 0);
    QVERIFY(f.run("display.log.toggle on").ok);
    QVERIFY(splitter->sizes().value(1) > 0);

    QVERIFY(f.run("display.menu.Actions no").ok);
    QVERIFY(!w->menu_actions()->menuAction()->isVisible());
    QVERIFY(w->menu_options()->menuAction()->isVisible());

    QVERIFY(f.run("display.columns display:100 status").ok);
    QList<int> shown;
    for (const column_layout::field& field : w->current_column_layout().fields)
        shown << field.id;
    QCOMPARE(shown, (QList<int> { 0, 4 }));
    QVERIFY(f.run("display.columns.reset").ok);
    QCOMPARE(w->current_column_layout().fields.size(), 5);

    f.c->log("[core]", "a line", { "core" });
    QTRY_VERIFY(w->log_list()->count() > 0);
    QVERIFY(f.run("display.log.clear").ok);
    QCOMPARE(w->log_list()->count(), 0);

    QVERIFY(f.run("display.log.filters.set tasks").ok);
    QCOMPARE(f.c->history().filter(0), QStringList { "tasks" });
    QCOMPARE(f.c->options().log_filter, QStringList { "tasks" });
    QVERIFY(f.run("log \"shown in the console\"").ok);
    QCOMPARE(f.console.lines, QStringList { "<div style='font-style: italic; color: green;'>shown in the console</div>" });
    QVERIFY(f.run("display.console.font.mono yes").ok);
    QCOMPARE(f.console.fonts, QList<bool> { true });
}

void test_window_commands::toolbar_widgets_data()
{
    QTest::addColumn<QStringList>("setup");
    QTest::addColumn<QString>("line");
    QTest::addColumn<bool>("ok");
    QTest::addColumn<QStringList>("shown");
    QTest::addColumn<int>("widgets"); // in the group x afterwards

    const QString add = "display.toolbar.x add w ";
    QTest::newRow("an unknown type adds nothing")
        << QStringList {} << add + "--type=slider" << false << QStringList { "error: Unknown widget type: slider" } << 0;
    QTest::newRow("no type adds nothing") << QStringList {} << add + "--label=A" << false
                                          << QStringList { "error: Missing widget type" } << 0;
    QTest::newRow("one identifier per group")
        << QStringList { add + "--type=label" } << add + "--type=button" << false
        << QStringList { "error: Widget w already exists" } << 1;
    QTest::newRow("groups are apart") << QStringList { "display.toolbar.y add w --type=label" }
                                      << "display.toolbar.x edit w --label=A" << false
                                      << QStringList { "error: Widget not found: w" } << 0;
    QTest::newRow("an edit is clamped to the range")
        << QStringList { add + "--type=numeric --value=5 --min=1 --max=9", "display.toolbar.x edit w --value=12" }
        << "print [${$widget/w/value}]" << true << QStringList { "[9]" } << 1;
    QTest::newRow("a text box keeps its value and label")
        << QStringList { add + "--type=text --label=Mask --value=255.255.0.0" }
        << "print ${$widget/w/label}=${$widget/w/value}" << true << QStringList { "Mask=255.255.0.0" } << 1;
    QTest::newRow("delete takes the caption too")
        << QStringList { add + "--type=separator", "display.toolbar.x add v --type=text --label=V" }
        << "display.toolbar.x delete v" << true << QStringList {} << 1;
}

void test_window_commands::toolbar_widgets()
{
    QFETCH(QStringList, setup);
    QFETCH(QString, line);
    QFETCH(bool, ok);
    QFETCH(QStringList, shown);
    QFETCH(int, widgets);
    window_core f;
    for (const QString& l : setup)
        QVERIFY2(f.run(l).ok, qPrintable(l));
    QCOMPARE(f.run(line).ok, ok);
    QCOMPARE(f.shown(), shown);
    const QList<dynwidgets::controller::widget> group = f.c->widgets()->widgets("x");
    QCOMPARE(group.size(), widgets);
    // What stands on the toolbar is what the group holds: a delete took its widgets away.
    if (QToolBar* bar = f.c->widgets()->existing_toolbar("x")) {
        int actions = 0;
        for (const dynwidgets::controller::widget& w : group)
            actions += w.actions.size();
        QCOMPARE(bar->actions().size(), actions);
    }
}

void test_window_commands::user_changes_fire_widget_changed()
{
    window_core f;
    record_macro(*f.c, "port", { "print fired port ${$widget/widget1/value}" });
    record_macro(*f.c, "mask", { "print fired mask" });
    record_macro(*f.c, "go", { "print fired go" });
    QVERIFY(f.run("display.toolbar.x add --type=numeric --label=Port --value=5 --min=1 --max=9").ok);
    QVERIFY(f.run("display.toolbar.x add mask --type=text").ok);
    QVERIFY(f.run("display.toolbar.x add go --type=button --label=Go --action=macro:go").ok);
    for (const char* a : { "widget1 7 --macro=port", "widget1 8 --macro=port", "mask ab --macro=mask" })
        QVERIFY(f.s->run("events.attach widget_changed " + QString(a)));

    QToolBar* bar = f.c->widgets()->existing_toolbar("x");
    QVERIFY(bar && bar->isVisibleTo(f.c->window()));
    const QList<QLabel*> labels = bar->findChildren<QLabel*>();
    QVERIFY(!labels.isEmpty());
    QCOMPARE(labels.first()->text(), QStringLiteral("Port"));
    auto* spin = bar->findChild<QSpinBox*>();
    QVERIFY(spin);
    QCOMPARE((QList<int> { spin->value(), spin->minimum(), spin->maximum() }), (QList<int> { 5, 1, 9 }));

    f.console.lines.clear();
    spin->stepBy(2);
    QTRY_COMPARE(fired(f), QStringList { "fired port 7" });
    // A script setting the value is no change by the user.
    QVERIFY(f.s->run("display.toolbar.x edit widget1 --value=8"));
    QTRY_COMPARE(spin->value(), 8); // the run may return on the end of the macro the change fired
    QTest::keyClicks(bar->findChild<QLineEdit*>(), "ab");
    // Changes go through the event thread, a button doesn't: one at a time keeps the order.
    QTRY_COMPARE(fired(f), (QStringList { "fired port 7", "fired mask" }));
    // The toolbar's own extension arrow is a tool button too.
    for (QToolButton* button : bar->findChildren<QToolButton*>()) {
        if (button->text() == "Go")
            button->click();
    }
    QTRY_COMPARE(fired(f), (QStringList { "fired port 7", "fired mask", "fired go" }));
    QTRY_VERIFY(f.c->events().idle() && f.c->processor().idle());
    QCOMPARE(fired(f).size(), 3);
}

// F1 opens the help, whose links reach the console; "play" and About open theirs.
void test_window_commands::help_play_and_about_open_their_windows()
{
    window_core f;
    QAction* act_help = f.c->window()->findChild<QAction*>("act_help");
    QCOMPARE(act_help->shortcut(), QKeySequence(Qt::Key_F1));
    act_help->trigger();
    auto* dialog = f.c->window()->findChild<help*>();
    QVERIFY(dialog && dialog->isVisible());
    const auto click = [dialog] {
        QMetaObject::invokeMethod(dialog, "on_doc_anchorClicked", Q_ARG(QUrl, QUrl("special://ov_command/aliases")));
    };

    click();
    QCOMPARE(f.console.offered, QStringList { "aliases" });
    QVERIFY(f.console.inputs.isEmpty());

    f.c->processor().execute_line(QUuid::createUuid(), "%up devices.scan");
    QTRY_VERIFY(f.c->processor().idle());
    QMetaObject::invokeMethod(dialog, "on_doc_anchorClicked", Q_ARG(QUrl, QUrl("special://execute_commands/1")));
    click();
    QTRY_VERIFY2(f.console.plain().contains("up: devices.scan"), qPrintable(f.console.plain().join("|")));
    QCOMPARE(f.console.inputs, QStringList { "aliases" });
    QCOMPARE(f.console.offered, QStringList { "aliases" });
    dialog->close();

    // "play" opens a player.
    QVERIFY(f.run("play file:///nonexistent/camera.ogv --title=Gate --mute").ok);
    // The command returns before the window thread has opened the player.
    QPointer<videoplayer> player;
    const auto shown = [&player] {
        for (QWidget* top : QApplication::topLevelWidgets())
            player = player ? player.data() : qobject_cast<videoplayer*>(top);
        return player && player->isVisible();
    };
    QTRY_VERIFY(shown());
    QCOMPARE(player->windowTitle(), QStringLiteral("Gate"));
    player->close();
    QTRY_VERIFY(!player);

    // About names the build.
    f.c->window()->findChild<QAction*>("act_about")->trigger();
    auto* box = f.c->window()->findChild<about*>();
    QVERIFY(box && box->isVisible());
    const QString text = scripting::console::plain_text(box->html());
    QVERIFY(text.contains("Version: " + caps::version_text() + "\nPlatform: " + caps::platform_text()));
    const parameters table = caps::table();
    for (auto it = table.cbegin(); it != table.cend(); ++it)
        QVERIFY2(text.contains(it.key()), qPrintable(it.key()));
    QVERIFY(text.contains("No plugins are loaded."));
}

QTEST_MAIN(test_window_commands)
#include "test_window_commands.moc"
