// The quick actions of the script toolbar: loading a layout, saving it, and the edits.
#include "scripting/actions_db.h"

#include <QtTest>

using scripting::actions_db;
using scripting::quick_action;

namespace
{

// What the layout model lists, one row a string.
QStringList rows(actions_db& db)
{
    QStringList out;
    const auto& model = db.layout_model();
    for (int r = 0; r < model.rowCount(); ++r)
        out << model.data(model.index(r)).toString();
    return out;
}

QString json(const QString& title)
{
    return QStringLiteral("{\"icon\":\":/icn/run\",\"title\":\"%1\",\"mode\":1,\"value\":\"print x\"}").arg(title);
}

} // namespace

class test_quick_actions : public QObject
{
    Q_OBJECT
private slots:
    void load_data();
    void load();
    void save_and_load_again();
    void edits_data();
    void edits();
};

void test_quick_actions::load_data()
{
    QTest::addColumn<QString>("layout");
    QTest::addColumn<QStringList>("actions"); // "key=value" as written to QuickActions/Actions
    QTest::addColumn<QStringList>("shown");
    const QString end = "-- end --", separator = "-- separator --";
    // Two separators in a row and an action removed by hand: test_ui_settings, on the toolbar.
    QTest::newRow("faulty JSON is an empty action that stays")
        << "[\"a\",\"b\"]" << QStringList { "a={\"title\": \"A\"", "b=" + json("B") } << QStringList { "", "B", end };
    QTest::newRow("indented layout") << "[\n    \"b\",\n    \"\"\n]" << QStringList { "b=" + json("B") }
                                     << QStringList { "B", separator, end };
    QTest::newRow("braces belong to the program, not the file")
        << "[\"{b}\",\"b\"]" << QStringList { "b=" + json("B") } << QStringList { "B", end };
    QTest::newRow("a layout that isn't an array")
        << "{\"a\":1}" << QStringList { "a=" + json("A") } << QStringList { end };
}

void test_quick_actions::load()
{
    QFETCH(QString, layout);
    QFETCH(QStringList, actions);
    QTemporaryDir dir;
    QSettings settings(dir.filePath("ov.config"), QSettings::IniFormat);
    settings.setValue("QuickActions/layout", layout);
    for (const QString& a : actions)
        settings.setValue("QuickActions/Actions/" + a.section('=', 0, 0), a.section('=', 1));
    settings.sync();

    actions_db db;
    QSignalSpy altered(&db, &actions_db::actions_altered);
    QSettings reread(dir.filePath("ov.config"), QSettings::IniFormat);
    db.load(reread);
    QTEST(rows(db), "shown");
    QCOMPARE(altered.count(), 1);
    // Every action of the group is kept, listed in the layout or not.
    QCOMPARE(db.actions().size(), actions.size());
    for (const QString& identifier : db.layout())
        QVERIFY(identifier.isEmpty() || db.contains(identifier));
}

void test_quick_actions::save_and_load_again()
{
    QTemporaryDir dir;
    QSettings settings(dir.filePath("ov.config"), QSettings::IniFormat);
    settings.setValue("QuickActions/Actions/stale", json("old"));

    actions_db db;
    const quick_action script { "", "Three lines", quick_action::script, "print 1\nprint 2\n\nprint 3" };
    const quick_action file { "/nowhere.png", "Lua, \"quoted\"; with ;; separators", quick_action::file,
        "/tmp/a b.lua" };
    const quick_action command { ":/icn/scan", "Scan", quick_action::command, "/62" };
    const QString a = db.add_action(script, 0);
    db.add_separator(1);
    db.add_separator(2);
    const QString b = db.add_action(file, 99);
    const QString c = db.add_action(command, 1);
    QVERIFY(a.startsWith('{') && a.endsWith('}'));
    QCOMPARE(db.layout(), (QStringList { a, c, "", "", b }));
    db.save(settings);
    settings.sync();

    QSettings reread(dir.filePath("ov.config"), QSettings::IniFormat);
    // The group is written afresh: what isn't an action any more is gone.
    QVERIFY(!reread.contains("QuickActions/Actions/stale"));
    QCOMPARE(reread.value("QuickActions/layout").toString(),
        QStringLiteral("[\"%1\",\"%2\",\"\",\"\",\"%3\"]").arg(a.mid(1, 36), c.mid(1, 36), b.mid(1, 36)));
    actions_db again;
    again.load(reread);
    QCOMPARE(again.layout(), db.layout());
    QCOMPARE(again.action(a), script);
    QCOMPARE(again.action(b), file);
    QCOMPARE(again.action(c), command);
}

void test_quick_actions::edits_data()
{
    // Starting from the layout A | separator | B.
    QTest::addColumn<QString>("edit");
    QTest::addColumn<bool>("accepted");
    QTest::addColumn<QStringList>("shown");
    const QString end = "-- end --", sep = "-- separator --";
    QTest::newRow("move last to first") << "move 2 0" << true << QStringList { "B", "A", sep, end };
    QTest::newRow("move onto the end row") << "move 0 3" << false << QStringList { "A", sep, "B", end };
    QTest::newRow("move from before the start") << "move -1 0" << false << QStringList { "A", sep, "B", end };
    QTest::newRow("remove a separator") << "remove 1" << true << QStringList { "A", "B", end };
    QTest::newRow("remove an action") << "remove 0" << true << QStringList { sep, "B", end };
    QTest::newRow("the end row can't be removed") << "remove 3" << false << QStringList { "A", sep, "B", end };
    QTest::newRow("separator far out appends") << "separator 40" << true << QStringList { "A", sep, "B", sep, end };
    QTest::newRow("edit a title") << "edit A" << true << QStringList { "C", sep, "B", end };
    QTest::newRow("edit an unknown action") << "edit {nothing}" << false << QStringList { "A", sep, "B", end };
}

void test_quick_actions::edits()
{
    QFETCH(QString, edit);
    QFETCH(bool, accepted);
    actions_db db;
    const QString a = db.add_action({ "", "A", quick_action::script, "print a" }, 0);
    db.add_separator(1);
    const QString b = db.add_action({ "", "B", quick_action::script, "print b" }, 2);
    QSignalSpy altered(&db, &actions_db::actions_altered);

    const QStringList words = edit.split(' ');
    bool ok = true;
    if (words[0] == "move")
        ok = db.move(words[1].toInt(), words[2].toInt());
    else if (words[0] == "remove")
        ok = db.remove_action(words[1].toInt());
    else if (words[0] == "separator")
        db.add_separator(words[1].toInt());
    else
        ok = db.edit_action(words[1] == "A" ? a : words[1], { "", "C", quick_action::script, "print c" });
    QCOMPARE(ok, accepted);
    QTEST(rows(db), "shown");
    QCOMPARE(altered.count(), accepted ? 1 : 0);
    QCOMPARE(db.contains(a), edit != "remove 0");
    QVERIFY(db.contains(b));
}

QTEST_GUILESS_MAIN(test_quick_actions)
#include "test_quick_actions.moc"
