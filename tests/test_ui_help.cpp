// The help: pages by language with their fallback, the special links, search that wraps, and a command
// reference that can't fall behind the command table.
#include "scripting/cmddb.h"
#include "ui/help.h"

#include <QtTest>
#include <QtWidgets>

namespace {

// Every dotted name that runs a command, a free last part written as a trailing ".", with whether "?" hides
// it (a hidden branch hides all below it).
void runnable_paths(const scripting::cmddb::tree& level, const QString& prefix, bool hidden, QMap<QString, bool>& out)
{
    for (auto it = level.cbegin(); it != level.cend(); ++it) {
        const QString path = prefix.isEmpty() ? it.key() : prefix + '.' + it.key();
        const bool node_hidden = hidden || it->hidden;
        if (!it->command.is_null())
            out.insert(path, node_hidden);
        runnable_paths(it->children, path, node_hidden, out);
    }
}

struct help_fixture
{
    help_fixture()
        : settings(dir.filePath("ov.config"), QSettings::IniFormat)
        , dialog(settings)
    {
        dialog.show();
    }

    QTextBrowser* doc() const { return dialog.findChild<QTextBrowser*>("doc"); }
    void click(const QString& url) { QMetaObject::invokeMethod(&dialog, "on_doc_anchorClicked", Q_ARG(QUrl, url)); }

    QTemporaryDir dir;
    QSettings settings;
    help dialog;
};

} // namespace

class test_ui_help : public QObject
{
    Q_OBJECT
private slots:
    void cleanup() { QLocale::setDefault(QLocale::c()); }
    void page_language_data();
    void page_language();
    void links();
    void search_wraps_to_the_top();
    void reference_covers_every_command_data();
    void reference_covers_every_command();
};

void test_ui_help::page_language_data()
{
    QTest::addColumn<QString>("system");
    QTest::addColumn<QString>("override");
    QTest::addColumn<QString>("heading");
    QTest::newRow("override ru_RU on an English system") << "en_US" << "ru_RU" << "Встроенные команды";
    QTest::newRow("override en_US on a Russian system") << "ru_RU" << "en_US" << "Built-in commands";
    QTest::newRow("default follows a Russian system") << "ru_RU" << "" << "Встроенные команды";
    QTest::newRow("a locale without pages falls back") << "de_DE" << "" << "Built-in commands";
    QTest::newRow("an override without pages falls back") << "ru_RU" << "fr_FR" << "Built-in commands";
}

void test_ui_help::page_language()
{
    QFETCH(QString, system);
    QFETCH(QString, override);
    QFETCH(QString, heading);
    QLocale::setDefault(QLocale(system));
    help_fixture f;
    // As the settings window writes it while the dialog is hidden: the next showing reads it.
    f.dialog.hide();
    f.settings.setValue("Help/locale_override", override);
    f.dialog.show();

    const QString text = f.doc()->toPlainText();
    QVERIFY2(text.startsWith(heading), qPrintable(text.left(80)));
    // The style sheet took the marker's place.
    QVERIFY(!f.doc()->toHtml().contains("%%%"));
}

void test_ui_help::links()
{
    help_fixture f;
    QSignalSpy clicks(&f.dialog, &help::cmd_clicked);
    f.click("special://set_lang/en_US");
    f.dialog.open_page(help::settings_page);
    // The settings page always offers the opposite of the present state; a command link carries it.
    for (const bool on : { false, true, false }) {
        const QString html = f.doc()->toHtml();
        QVERIFY(!html.contains("%%"));
        QVERIFY(html.contains(QStringLiteral("special://execute_commands/%1").arg(on ? 0 : 1)));
        const QStringList text = f.doc()->toPlainText().split('\n');
        QVERIFY(text.contains(on ? "disable" : "enable"));
        QVERIFY(text.filter(on ? "is enabled." : "is disabled.").size() == 1);
        f.click("special://ov_command//aliases/ignored");
        QCOMPARE(clicks.takeLast(), (QVariantList { "aliases", on }));
        f.click(QStringLiteral("special://execute_commands/%1").arg(on ? 0 : 1));
        QCOMPARE(f.settings.value("Help/execute_commands").toBool(), !on);
    }
    QVERIFY(f.doc()->toPlainText().contains("shown in: en_US"));
    f.click("special://set_lang/default");
    QVERIFY(f.doc()->toPlainText().contains("shown in: default"));
    // Other schemes and unknown authorities do nothing.
    f.click("https://example.invalid/aliases");
    f.click("special://unknown/aliases");
    QVERIFY(clicks.isEmpty());
}

void test_ui_help::search_wraps_to_the_top()
{
    help_fixture f;
    f.click("special://set_lang/en_US");
    f.dialog.open_page(help::lua_reference);
    auto* search = f.dialog.findChild<QLineEdit*>("search");
    QCOMPARE(search->placeholderText(), QStringLiteral("Search..."));
    // "pcall" stands twice in the page.
    QTest::keyClicks(search, "pcall");
    const int first = f.doc()->textCursor().selectionStart();
    QVERIFY(f.doc()->textCursor().hasSelection());
    QList<int> found;
    for (int i = 0; i < 2; ++i) {
        QTest::keyClick(search, Qt::Key_Return);
        found << f.doc()->textCursor().selectionStart();
    }
    QVERIFY(found.at(0) > first);
    QCOMPARE(found.at(1), first);
}

void test_ui_help::reference_covers_every_command_data()
{
    QTest::addColumn<QString>("language");
    QTest::newRow("en_US") << "en_US";
    QTest::newRow("ru_RU") << "ru_RU";
}

void test_ui_help::reference_covers_every_command()
{
    QFETCH(QString, language);
    scripting::cmddb db;
    db.build();
    QMap<QString, bool> paths;
    runnable_paths(db.commands_tree(), QString(), false, paths);
    QVERIFY(paths.size() > 60);

    const QString page = help::read_resource(help::cmd_reference, language);
    const QStringList lines = page.split('\n');
    for (auto it = paths.cbegin(); it != paths.cend(); ++it) {
        const QString link = QStringLiteral("<a href=\"special://ov_command/%1\">").arg(it.key());
        const auto entry = std::find_if(lines.cbegin(), lines.cend(),
            [&](const QString& line) { return line.startsWith("<h3>") && line.contains(link); });
        QVERIFY2(entry != lines.cend(), qPrintable("no entry for " + it.key()));
        QVERIFY2(entry->contains("class=\"hidden\"") == it.value(), qPrintable("hidden mark of " + it.key()));
    }
    QCOMPARE(page.count("<h3>"), paths.size());
}

QTEST_MAIN(test_ui_help)
#include "test_ui_help.moc"
