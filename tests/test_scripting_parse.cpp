// The parse stage of OVScript on its own: statement split, tokens, entries, and the vocabulary they resolve against.
#include "scripting/cmddb.h"
#include "scripting/statement_parser.h"

#include <QtTest>

using scripting::cmd_id;
using scripting::input_line;
using scripting::queue_entry;
using scripting::statement_parser;

namespace {

QStringList texts(const QList<input_line>& pieces)
{
    QStringList out;
    for (const input_line& p : pieces)
        out.append(p.text);
    return out;
}

// Every node of the tree that runs a command, with its dotted path ("(any)" for the empty name).
void walk(const scripting::cmddb::tree& level, const QString& path, QMap<QString, scripting::tree_node>& out)
{
    for (auto it = level.cbegin(); it != level.cend(); ++it) {
        const QString here = (path.isEmpty() ? QString() : path + '.') + (it.key().isEmpty() ? "(any)" : it.key());
        out.insert(here, *it);
        walk(it->children, here, out);
    }
}

} // namespace

class test_scripting_parse : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase();
    void split_data();
    void split();
    void split_idents();
    void tokenize_data();
    void tokenize();
    void entries_data();
    void entries();
    void cmd_id_text_data();
    void cmd_id_text();
    void cmd_id_order();
    void tree_and_table_agree();
    void rows_that_parsing_relies_on();

private:
    scripting::cmddb m_db;
};

void test_scripting_parse::initTestCase()
{
    m_db.build();
}

void test_scripting_parse::split_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<QStringList>("pieces");
    QTest::newRow("no semicolon, text as it is") << " print  a " << QStringList { " print  a " };
    QTest::newRow("two statements") << "a; b c" << QStringList { "a", "b c" };
    QTest::newRow("conditional last is dropped") << "a; if(x) then(y)" << QStringList { "a" };
    QTest::newRow("trailing semicolon keeps it") << "a; if(x) then(y);" << QStringList { "a", "if(x) then(y)" };
    QTest::newRow("semicolon inside a keyword block") << "if(a;b) then(c;d);" << QStringList { "if(a;b) then(c;d)" };
    QTest::newRow("lone conditional with inner semicolon vanishes") << "if(a;b) then(c)" << QStringList {};
    QTest::newRow("plain parentheses split") << "x(a;b)" << QStringList { "x(a" };
    QTest::newRow("keyword must be the whole run") << "a; x if(b;c);" << QStringList { "a", "x if(b", "c)" };
    QTest::newRow("last piece from its last run") << "a; x(y) z" << QStringList { "a", "z" };
    QTest::newRow("empty statement between") << "a;;b" << QStringList { "a", "", "b" };
    QTest::newRow("multibyte text") << "печать б; в г" << QStringList { "печать б", "в г" };
}

void test_scripting_parse::split()
{
    QFETCH(QString, text);
    const input_line line { QUuid::createUuid(), QUuid::createUuid(), text };
    QTEST(texts(statement_parser::split(line)), "pieces");
}

void test_scripting_parse::split_idents()
{
    const input_line whole { QUuid::createUuid(), QUuid::createUuid(), "version" };
    const QList<input_line> one = statement_parser::split(whole);
    QCOMPARE(one.size(), 1);
    QCOMPARE(one[0].ident, whole.ident);
    QCOMPARE(one[0].group, whole.group);

    const QList<input_line> pieces = statement_parser::split({ whole.ident, whole.group, "a; b; c" });
    QCOMPARE(pieces.size(), 3);
    QSet<QUuid> idents;
    for (const input_line& p : pieces) {
        QCOMPARE(p.group, whole.group);
        QVERIFY(p.ident != whole.ident);
        idents.insert(p.ident);
    }
    QCOMPARE(idents.size(), 3);
}

void test_scripting_parse::tokenize_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<QStringList>("tokens");
    QTest::newRow("blanks separate, runs collapse") << "  a   b " << QStringList { "a", "b" };
    QTest::newRow("tab is no separator") << "a\tb c" << QStringList { "a\tb", "c" };
    QTest::newRow("double and single quotes") << "\"a b\" 'c d'" << QStringList { "a b", "c d" };
    QTest::newRow("other quote is text inside") << "\"it's\" 'say \"hi\"'" << QStringList { "it's", "say \"hi\"" };
    QTest::newRow("closing quote glued to text") << "\"a b\"c d" << QStringList { "a bc", "d" };
    QTest::newRow("quoted parts glued") << "'a b'\"c d\"" << QStringList { "a bc d" };
    QTest::newRow("quote in a plain token is dropped") << "a\"b c\"" << QStringList { "ab", "c" };
    QTest::newRow("empty quotes are a token") << "a \"\" b" << QStringList { "a", "", "b" };
    QTest::newRow("unterminated quote runs to the end") << "a \"b c" << QStringList { "a", "b c" };
    QTest::newRow("parameter keeps its quoted part") << "--key=\"a b\" x" << QStringList { "--key=\"a b\"", "x" };
    QTest::newRow("backslash is plain") << "a\\ b" << QStringList { "a\\", "b" };
}

void test_scripting_parse::tokenize()
{
    QFETCH(QString, text);
    QTEST(statement_parser::tokenize(text), "tokens");
}

void test_scripting_parse::entries_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<int>("kind"); // -1: no entry
    QTest::addColumn<QStringList>("args");
    QTest::addColumn<int>("branches"); // lists, or -1 not to check
    QTest::addColumn<QString>("error");
    const auto row
        = [](const char* name, const QString& text, int kind, const QStringList& args, int branches,
              const QString& error = {}) { QTest::newRow(name) << text << kind << args << branches << error; };

    const QString nested = QString("if(").repeated(17) + "version" + QString(") then(print)").repeated(17);
    row("comment", "  # print x", -1, {}, 0);
    row("assignment holds its pair", "a = b c", int(scripting::assignment_entry), {}, 0);
    row("substitution args hold placeholders", "print $(version) and $(caps)", int(scripting::flow_entry),
        { "-//0//-", "and", "-//1//-" }, 2);
    row("failing sub-command drops the line", "print $(nothing)", -1, {}, 0, "Unknown command: nothing");
    row("conditional with else", "if(version) then(print a; print b) else(print c)", int(scripting::flow_entry), {}, 3);
    row("empty condition moves the branches up", "if() then(print a)", int(scripting::flow_entry), {}, 1);
    row("inner comment drops the conditional", "if(# x) then(print a)", -1, {}, 0);
    row("inner fault drops the conditional", "if(version) then(print a) else(bogus)", -1, {}, 0,
        "Unknown command: bogus");
    row("nesting beyond the limit", nested, -1, {}, 0, "Processing limit reached (nesting)");
    row("name arguments move to the front", "display.toolbar.main show now", int(scripting::command_entry),
        { "main", "show", "now" }, 0);
    row("help keeps the parts before ?", "display.log.?.ignored", int(scripting::help_entry), { "display", "log" }, 0);
    row("too many parts after a free part", "settings.get.a.b", -1, {}, 0, "Unknown subcommand for settings: b");
    row("only dots", "...", -1, {}, 0, "Unknown command: ...");
    row("missing user of a two-argument row", "devices.assign_addresses 1", -1, {}, 0,
        "Not enough arguments. Expected: value");
}

void test_scripting_parse::entries()
{
    QFETCH(QString, text);
    QFETCH(int, kind);
    QFETCH(int, branches);
    QFETCH(QString, error);
    QStringList errors;
    const QUuid ident = QUuid::createUuid();
    const statement_parser parser(m_db, {}, [&](const QUuid& at, const QString& message) {
        QCOMPARE(at, ident);
        errors.append(message);
    });
    const std::optional<queue_entry> e = parser.parse({ ident, ident, text }, 0);
    QCOMPARE(errors, error.isEmpty() ? QStringList {} : QStringList { error });
    QCOMPARE(e.has_value(), kind >= 0);
    if (!e)
        return;
    QCOMPARE(e->kind, kind);
    QCOMPARE(e->line, text);
    QTEST(e->args, "args");
    QCOMPARE(e->branches.size(), branches);
}

void test_scripting_parse::cmd_id_text_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<QString>("plugin");
    QTest::addColumn<qint64>("number");
    QTest::newRow("built-in") << "/53" << "" << qint64(53);
    QTest::newRow("plugin") << "org.example/9000000000" << "org.example" << qint64(9000000000);
    QTest::newRow("no slash is all number") << "76" << "" << qint64(76);
    QTest::newRow("split on the first slash") << "a/b/7" << "a" << qint64(0);
}

void test_scripting_parse::cmd_id_text()
{
    QFETCH(QString, text);
    QFETCH(QString, plugin);
    QFETCH(qint64, number);
    const cmd_id id = cmd_id::from_text(text);
    QCOMPARE(id.plugin, plugin);
    QCOMPARE(id.number, number);
    QCOMPARE(cmd_id::from_text(id.text()), id);
}

void test_scripting_parse::cmd_id_order()
{
    QVERIFY(cmd_id::from_text("/99") < cmd_id::from_text("a/1"));
    QVERIFY(cmd_id::from_text("a/2") < cmd_id::from_text("a/10"));
    QVERIFY(!(cmd_id::from_text("a/2") < cmd_id::from_text("a/2")));
    QVERIFY(cmd_id().is_null());
    QVERIFY(!cmd_id::from_text("p/0").is_null());
}

void test_scripting_parse::tree_and_table_agree()
{
    QMap<QString, scripting::tree_node> nodes;
    walk(m_db.commands_tree(), QString(), nodes);
    QSet<qint64> reached;
    for (auto it = nodes.cbegin(); it != nodes.cend(); ++it) {
        if (it->command.is_null()) {
            QVERIFY2(!it->children.isEmpty(), qPrintable(it.key() + " is a branch without children"));
            continue;
        }
        QVERIFY2(m_db.commands_table().contains(it->command), qPrintable(it.key() + " runs a command without a row"));
        reached.insert(it->command.number);
    }
    // Every row can be typed; the interpreter's own and the menu-only numbers have no row.
    for (const cmd_id& id : m_db.commands_table().keys())
        QVERIFY2(reached.contains(id.number), qPrintable(m_db.command_name(id)));
}

void test_scripting_parse::rows_that_parsing_relies_on()
{
    QMap<QString, scripting::tree_node> nodes;
    walk(m_db.commands_tree(), QString(), nodes);
    // Reached only through the free part, which is their first argument.
    for (const char* path : { "display.menu.(any)", "display.toolbar.(any)", "settings.get.(any)", "settings.set.(any)" })
        QCOMPARE(m_db.commands_table().value(nodes.value(path).command).name_arguments, 1);
    QCOMPARE(nodes.value("clean").command, nodes.value("clear").command);
    QCOMPARE(m_db.command_name({ QString(), 8 }), QStringLiteral("assign_addresses,"));
    QCOMPARE(m_db.command_name({ "plugin", 8 }), QString());
}

QTEST_GUILESS_MAIN(test_scripting_parse)
#include "test_scripting_parse.moc"
