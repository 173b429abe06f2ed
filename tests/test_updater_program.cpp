// The updater program that swaps in a downloaded build: what it leaves whenever it is stopped, what it refuses,
// and that it waits for the program to end.
#include "tests/support/update_folder.h"

#include <QtTest>

namespace {

const QString old_marker = QStringLiteral("test build 1964 1");
const QString new_marker = QStringLiteral("test build 1965 1");

} // namespace

class test_updater_program : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase();
    void installs_and_cleans_up();
    void killed_at_any_step_leaves_a_whole_program_data();
    void killed_at_any_step_leaves_a_whole_program();
    void refuses_what_isnt_a_build_data();
    void refuses_what_isnt_a_build();
    void failed_step_leaves_the_old_build();
    void waits_for_the_program_to_end();
    void gives_up_while_the_program_runs();
};

void test_updater_program::initTestCase()
{
    QVERIFY(update_folder::old_build().size() >= 51200);
    QVERIFY(update_folder::old_build() != update_folder::new_build());
}

void test_updater_program::installs_and_cleans_up()
{
    update_folder f;
    QVERIFY(f.set_up());
    QCOMPARE(f.run_program(), old_marker);
    QCOMPARE(f.run_updater(), 0);
    QCOMPARE(f.run_program(), new_marker);
    QCOMPARE(f.content("orvane.previous"), update_folder::old_build());
    for (const char* gone : { "tmp-newer-version.bin", "client_updating.lock", "orvane.new", "orvane.previous.new" })
        QVERIFY2(!f.exists(gone), gone);
    const QString log = QString::fromUtf8(f.content("updater.log"));
    QVERIFY2(log.contains("updater: installed the new build"), qPrintable(log));

    // Nothing waits any more: a second run changes nothing.
    QCOMPARE(f.run_updater(), 0);
    QCOMPARE(f.content("orvane"), update_folder::new_build());
}

void test_updater_program::killed_at_any_step_leaves_a_whole_program_data()
{
    QTest::addColumn<QString>("step");
    QTest::addColumn<bool>("swapped");
    QTest::newRow("before anything") << "started" << false;
    QTest::newRow("program ended") << "waited" << false;
    QTest::newRow("half of the new build written") << "writing" << false;
    QTest::newRow("new build written") << "written" << false;
    QTest::newRow("new build checked") << "checked" << false;
    QTest::newRow("old build kept") << "backed_up" << false;
    QTest::newRow("renamed into place") << "swapped" << true;
    QTest::newRow("download removed, lock not yet") << "cleaned" << true;
}

void test_updater_program::killed_at_any_step_leaves_a_whole_program()
{
    QFETCH(QString, step);
    QFETCH(bool, swapped);
    update_folder f;
    QVERIFY(f.set_up());
    QCOMPARE(f.run_updater({ "ORVANE_UPDATER_STOP_AT=" + step }), -1);
    // Byte for byte one build or the other, and it runs.
    QCOMPARE(f.content("orvane"), swapped ? update_folder::new_build() : update_folder::old_build());
    QCOMPARE(f.run_program(), swapped ? new_marker : old_marker);

    // The next run, which the next start of the program brings about, finishes the work.
    QCOMPARE(f.run_updater(), 0);
    QCOMPARE(f.run_program(), new_marker);
    for (const char* gone : { "tmp-newer-version.bin", "client_updating.lock", "orvane.new" })
        QVERIFY2(!f.exists(gone), gone);
}

void test_updater_program::refuses_what_isnt_a_build_data()
{
    QTest::addColumn<QByteArray>("candidate");
    QTest::addColumn<QString>("reason");
    const QByteArray build = update_folder::new_build();
    QByteArray foreign = build;
    foreign[18] = char(foreign[18] ^ 0x40); // e_machine: another processor
    QByteArray library_like = build;
    library_like[16] = 1; // e_type: a relocatable object
    QTest::newRow("an error page") << QByteArray("<html>502 Bad Gateway</html>").repeated(3000) << "not an ELF file";
    QTest::newRow("another machine") << foreign << "another machine";
    QTest::newRow("not executable") << library_like << "isn't executable";
    QTest::newRow("cut short") << build.left(build.size() - 700) << "cut short";
}

void test_updater_program::refuses_what_isnt_a_build()
{
    QFETCH(QByteArray, candidate);
    QFETCH(QString, reason);
    update_folder f;
    QVERIFY(f.set_up());
    QVERIFY(f.put("tmp-newer-version.bin", candidate));
    QCOMPARE(f.run_updater(), 4);
    QCOMPARE(f.content("orvane"), update_folder::old_build());
    QCOMPARE(f.run_program(), old_marker);
    // A refused file would be refused again at every start: it goes, and so does the lock.
    for (const char* gone : { "tmp-newer-version.bin", "client_updating.lock", "orvane.new" })
        QVERIFY2(!f.exists(gone), gone);
    const QString log = QString::fromUtf8(f.content("updater.log"));
    QVERIFY2(log.contains("refused") && log.contains(reason), qPrintable(log));
}

void test_updater_program::failed_step_leaves_the_old_build()
{
    update_folder f;
    QVERIFY(f.set_up());
    // Where the new build is to be written stands a folder.
    QVERIFY(QDir(f.dir.path()).mkpath("orvane.new/in-the-way"));
    QCOMPARE(f.run_updater(), 3);
    QCOMPARE(f.run_program(), old_marker);
    // The next start runs the program rather than an updater that would fail again.
    QVERIFY(!f.exists("tmp-newer-version.bin"));
    QVERIFY(!f.exists("client_updating.lock"));
    QVERIFY(f.content("updater.log").contains("can't stage the new build"));
}

void test_updater_program::waits_for_the_program_to_end()
{
    update_folder f;
    QVERIFY(f.set_up(true, false));
    QProcess running;
    running.start(f.path("orvane"), { "20000" });
    QVERIFY(running.waitForReadyRead(5000));
    QProcess updater;
    updater.setWorkingDirectory(f.dir.path());
    updater.start(f.path("updater"), {});
    QTRY_VERIFY_WITH_TIMEOUT(f.content("updater.log").contains("waiting for the program to end"), 5000);
    // While the old build runs, nothing changes.
    QVERIFY(!updater.waitForFinished(300));
    QCOMPARE(f.content("orvane"), update_folder::old_build());
    running.kill();
    QVERIFY(running.waitForFinished(5000));
    QVERIFY(updater.waitForFinished(10000));
    QCOMPARE(updater.exitCode(), 0);
    QCOMPARE(f.run_program(), new_marker);
}

void test_updater_program::gives_up_while_the_program_runs()
{
    update_folder f;
    QVERIFY(f.set_up());
    QProcess running;
    running.start(f.path("orvane"), { "3000" });
    QVERIFY(running.waitForReadyRead(5000));
    QCOMPARE(f.run_updater({ "ORVANE_UPDATER_WAIT_MS=200" }), 2);
    running.kill();
    running.waitForFinished(2000);
    QCOMPARE(f.content("orvane"), update_folder::old_build());
    // The download stays for the next start, which may launch the updater again: no lock holds it back.
    QVERIFY(f.exists("tmp-newer-version.bin"));
    QVERIFY(!f.exists("client_updating.lock"));
}

QTEST_GUILESS_MAIN(test_updater_program)
#include "test_updater_program.moc"
