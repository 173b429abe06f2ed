// The program keeping itself current, from the repository's answers to the updater program that swaps the build.
#include "app/core.h"
#include "delivery/updater.h"
#include "tests/support/box_answers.h"
#include "tests/support/svcsim_harness.h"
#include "tests/support/update_folder.h"

#include <QtTest>
#include <QtWidgets>

namespace {

const QString time_text = QStringLiteral("01.02.2025 10:00:00");
const QString old_marker = QStringLiteral("test build 1964 1");
const QString new_marker = QStringLiteral("test build 1965 1");

// One entry of a repository's changelog.
QJsonObject entry(const QString& message, int since_rev, bool important = false)
{
    return QJsonObject { { "message", message }, { "since_rev", since_rev }, { "important", important } };
}

QJsonObject changelog_of(int count)
{
    QJsonObject log;
    for (int i = 1; i <= count; ++i)
        log.insert(QStringLiteral("%1").arg(i, 2, 10, QLatin1Char('0')), entry(QStringLiteral("Change %1").arg(i), i <= 4 ? 1960 : 1965, i == 1));
    return log;
}

// The build on offer in the repository: `file` under the service's folder.
QJsonObject build_record(int latest, const QString& file, const QJsonObject& changelog = changelog_of(2))
{
    return QJsonObject { { "latest", latest }, { "time", time_text }, { "changelog", changelog }, { "file", file } };
}

updater::update_info info_of(int count)
{
    updater::update_info info;
    info.build = 1965;
    for (int i = 0; i < count; ++i)
        info.changes << updater::change { QStringLiteral("c%1").arg(i), false, 1960 + i % 3 };
    return info;
}

// A core with its window in the folder, told where the service is.
std::unique_ptr<core> start_core(const QString& folder, const svcsim_harness& service)
{
    QSettings s(QDir(folder).filePath("ov.config"), QSettings::IniFormat);
    s.setValue("usage_warning_accepted", true);
    s.setValue("Service/address", service.address().toString());
    s.setValue("Service/port", service.port());
    s.sync();
    auto c = std::make_unique<core>(QString(), folder);
    return c->operate(core::interactive, false) ? std::move(c) : nullptr;
}

} // namespace

class test_self_update : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase();
    void notes_data();
    void notes();
    void notes_group_by_build();
    void each_build_is_announced_once();
    void downloaded_file_data();
    void downloaded_file();
    void prompt_answers_data();
    void prompt_answers();
    void self_update_end_to_end();
    void start_finds_a_waiting_build_data();
    void start_finds_a_waiting_build();
    void stopped_at_any_step_leaves_a_whole_program_data();
    void stopped_at_any_step_leaves_a_whole_program();
    void refusals_leave_the_old_build_data();
    void refusals_leave_the_old_build();
    void waits_for_the_program_to_end();
};

void test_self_update::notes_data()
{
    QTest::addColumn<int>("count");
    QTest::addColumn<int>("listed");
    QTest::addColumn<QString>("tail");
    QTest::newRow("none") << 0 << 0 << "Изменения не указаны";
    QTest::newRow("ten, all listed") << 10 << 10 << "</ul>";
    QTest::newRow("eleven") << 11 << 10 << "</ul><div>...</div><div>+ ещё 1 изменений.</div>";
    QTest::newRow("twenty-five") << 25 << 10 << "<div>+ ещё 15 изменений.</div>";
}

void test_self_update::notes()
{
    QFETCH(int, count);
    QFETCH(QString, tail);
    const QString html = updater::changes_html(info_of(count));
    QTEST(int(html.count("<li>")), "listed");
    QVERIFY2(html.endsWith(tail), qPrintable(html));
    QCOMPARE(html.contains(QStringLiteral("ещё")), count > 10);
}

void test_self_update::notes_group_by_build()
{
    updater::update_info info;
    info.changes << updater::change { "later", false, 1965 } << updater::change { "earlier", true, 1960 }
                 << updater::change { "also later", false, 1965 };
    QCOMPARE(updater::changes_html(info),
        QStringLiteral("<h3>Изменения:</h3>"
                       "<div style='margin-top: 2px;'>Начиная со сборки 1960:</div><ul>"
                       "<li><span style='text-decoration: underline;'>earlier</span></ul>"
                       "<div style='margin-top: 2px;'>Начиная со сборки 1965:</div><ul>"
                       "<li><span style=''>later</span><li><span style=''>also later</span></ul>"));
}

void test_self_update::each_build_is_announced_once()
{
    svcsim_harness service;
    const QString file = service.add_file("b.bin", update_folder::new_build());
    QVERIFY2(service.start({ { "repository", build_record(1964, file) } }), qPrintable(service.error()));
    QTemporaryDir dir;
    updater u(1, 1964, dir.path());
    u.set_server(service.address(), service.port());
    QSignalSpy announced(&u, &updater::new_update_available);
    int asked = 0;
    // Each check is answered before the next goes out, so the answers arrive in order.
    const auto check = [&] {
        u.check();
        return service.wait_for_requests(++asked, "repo_check");
    };

    QVERIFY(check()); // the running build itself
    QVERIFY(service.set_repository(build_record(1965, file, changelog_of(3))));
    QVERIFY(check());
    QTRY_COMPARE_WITH_TIMEOUT(announced.size(), 1, 5000);
    const auto info = announced.at(0).at(0).value<updater::update_info>();
    QCOMPARE(QPair(info.build, info.time), QPair(1965, QDateTime(QDate(2025, 2, 1), QTime(10, 0))));
    QCOMPARE(info.changes.size(), 3);
    const updater::change first = info.changes.at(0);
    QCOMPARE(std::tie(first.message, first.important, first.since_rev), std::tuple("Change 1", true, 1960));
    QCOMPARE(u.offered_build(), 1965);

    // Neither the same build again, nor answers that say nothing, nor a malformed one announce anything.
    QVERIFY(check());
    QVERIFY(service.set_fault("repo_check", QJsonObject { { "garbage", "not json" }, { "times", 1 } }));
    QVERIFY(check());
    QVERIFY(service.set_fault("repo_check", QJsonObject { { "garbage", R"({"latest":1970,"time":"x"})" }, { "times", 1 } }));
    QVERIFY(check());
    QVERIFY(service.set_repository({}));
    QVERIFY(check());
    QVERIFY(service.set_repository(build_record(1966, file)));
    QVERIFY(check());
    QTRY_COMPARE_WITH_TIMEOUT(announced.size(), 2, 5000);
    QCOMPARE(announced.at(1).at(0).value<updater::update_info>().build, 1966);
    QCOMPARE(service.requests("repo_check").at(0).toObject()["path"].toString(), QStringLiteral("/repo/check/l/1964/"));
}

void test_self_update::downloaded_file_data()
{
    QTest::addColumn<int>("size");
    QTest::addColumn<bool>("folder_exists");
    QTest::addColumn<int>("offered"); // the build announced; the repository has 1965
    QTest::addColumn<QString>("failure");
    QTest::newRow("one byte short") << 51199 << true << 1965 << "Получен неправильный файл обновления.";
    QTest::newRow("just big enough") << 51200 << true << 1965 << "";
    QTest::newRow("no such build") << 80000 << true << 1966 << "Получен неправильный файл обновления.";
    QTest::newRow("folder gone") << 80000 << false << 1965 << "Невозможно сохранить файл обновления.";
}

void test_self_update::downloaded_file()
{
    QFETCH(int, size);
    QFETCH(bool, folder_exists);
    QFETCH(int, offered);
    QFETCH(QString, failure);
    svcsim_harness service;
    const QByteArray body = update_folder::new_build().leftJustified(size, '\0', true);
    const QString file = service.add_file("b.bin", body);
    QVERIFY2(service.start({ { "repository", build_record(1965, file) } }), qPrintable(service.error()));
    if (offered != 1965)
        QVERIFY(service.set_repository(build_record(offered, file)));
    QTemporaryDir dir;
    const QString folder = folder_exists ? dir.path() : dir.filePath("gone");
    updater u(1, 1964, folder);
    u.set_server(service.address(), service.port());
    QSignalSpy announced(&u, &updater::new_update_available);
    u.check();
    QTRY_COMPARE_WITH_TIMEOUT(announced.size(), 1, 5000);
    QVERIFY(service.set_repository(build_record(1965, file)));

    QSignalSpy downloaded(&u, &updater::downloaded);
    QSignalSpy failed(&u, &updater::download_failed);
    u.download(false);
    QTRY_COMPARE_WITH_TIMEOUT(downloaded.size() + failed.size(), 1, 5000);
    QCOMPARE(service.requests("repo_file").at(0).toObject()["path"].toString(),
        QStringLiteral("/repo/file/l/%1/").arg(offered));
    QCOMPARE(failed.isEmpty() ? QString() : failed.at(0).at(0).toString(), failure);
    const QString saved = QDir(folder).filePath("tmp-newer-version.bin");
    QCOMPARE(QFile::exists(saved), failure.isEmpty());
    if (failure.isEmpty())
        QCOMPARE(update_folder::read(saved), body);
}

void test_self_update::prompt_answers_data()
{
    QTest::addColumn<bool>("busy");
    QTest::addColumn<int>("answer");
    QTest::addColumn<QString>("then_told"); // the box after the prompt, if any
    QTest::addColumn<bool>("downloads");
    QTest::addColumn<bool>("checking");
    const QString postponed = "Tasks are in progress at the moment, the update will be postponed until a restart.";
    QTest::newRow("no: next start") << false << int(QMessageBox::No) << "" << true << true;
    QTest::newRow("yes while tasks run") << true << int(QMessageBox::Yes) << postponed << true << true;
    QTest::newRow("cancel: no more checks") << false << int(QMessageBox::Cancel)
                                            << "Update checking is disabled until next start." << false << false;
}

void test_self_update::prompt_answers()
{
    QFETCH(bool, busy);
    QFETCH(int, answer);
    QFETCH(QString, then_told);
    QFETCH(bool, downloads);
    svcsim_harness service;
    const QString file = service.add_file("b.bin", update_folder::new_build());
    QVERIFY2(service.start({ { "repository", build_record(1965, file, changelog_of(11)) } }), qPrintable(service.error()));
    QTemporaryDir dir;
    box_answers answers([&](const QMessageBox& box) {
        return box.standardButtons().testFlag(QMessageBox::Cancel) ? QMessageBox::StandardButton(answer) : QMessageBox::Ok;
    });
    const auto c = start_core(dir.path(), service);
    QVERIFY(c);
    if (busy) {
        // A flow held at a task nobody does keeps running.
        const task_element row(endpoint { {}, {}, QStringLiteral("127.0.0.1"), 1, QStringLiteral("admin"), {} }, device());
        c->introduce(row);
        c->task_manager().add_task(row.ident, tasks::task(QStringLiteral("hold")));
        c->task_manager().set_launch_list({ row.ident });
        c->task_manager().launch();
        QCOMPARE(c->task_manager().running_count(), 1u);
    }
    QTRY_COMPARE_WITH_TIMEOUT(answers.boxes.size(), then_told.isEmpty() ? 1 : 2, 10000);
    QCOMPARE(answers.boxes[0].title, QStringLiteral("Update available"));
    QVERIFY2(answers.boxes[0].text.startsWith("<h3>Build 1965 is available for updating.</h3>"), qPrintable(answers.boxes[0].text));
    if (!then_told.isEmpty())
        QCOMPARE(answers.boxes[1].text, then_told);
    if (downloads) {
        QTRY_VERIFY_WITH_TIMEOUT(QFile::exists(dir.filePath("tmp-newer-version.bin")), 5000);
        // Kept for the next start: nothing was launched and the program goes on.
        QVERIFY(c->self_updater().postponed());
        QVERIFY(!QFile::exists(dir.filePath("client_updating.lock")));
    }
    QTEST(c->self_updater().checking(), "checking");
    QCOMPARE(service.requests("repo_file").size(), downloads ? 1 : 0);
    QCOMPARE(answers.boxes.size(), then_told.isEmpty() ? 1 : 2);
}

void test_self_update::self_update_end_to_end()
{
    update_folder folder;
    QVERIFY(folder.set_up(false, false));
    svcsim_harness service;
    const QString file = service.add_file("new.bin", update_folder::new_build());
    QVERIFY2(service.start({ { "repository", build_record(1965, file, changelog_of(11)) } }), qPrintable(service.error()));
    box_answers answers([](const QMessageBox&) { return QMessageBox::Yes; });
    const auto c = start_core(folder.dir.path(), service);
    QVERIFY(c);

    // The program's own loop runs until the core quits it, as it does once the updater has started.
    QTimer watchdog;
    bool timed_out = false;
    watchdog.setSingleShot(true);
    QObject::connect(&watchdog, &QTimer::timeout, [&] {
        timed_out = true;
        QCoreApplication::quit();
    });
    watchdog.start(20000);
    QCoreApplication::exec();
    QVERIFY(!timed_out);

    QCOMPARE(answers.boxes.size(), 1);
    QVERIFY2(answers.boxes[0].informative.endsWith("<div>+ ещё 1 изменений.</div>"), qPrintable(answers.boxes[0].informative));

    // The updater program, started detached, swaps the files (shown in full below).
    QTRY_VERIFY_WITH_TIMEOUT(!folder.exists("tmp-newer-version.bin"), 10000);
    QCOMPARE(folder.run_program(), new_marker);
}

void test_self_update::start_finds_a_waiting_build_data()
{
    QTest::addColumn<bool>("lock");
    QTest::addColumn<bool>("updater_present");
    QTest::addColumn<bool>("launched");
    QTest::addColumn<bool>("goes_on"); // the start continues (and prints its help)
    QTest::newRow("an updater at work: quit, launch nothing") << true << true << false << false;
    QTest::newRow("hand over to the updater and quit") << false << true << true << false;
    QTest::newRow("no updater to start: go on") << false << false << false << true;
}

void test_self_update::start_finds_a_waiting_build()
{
    QFETCH(bool, lock);
    QFETCH(bool, updater_present);
    QFETCH(bool, launched);
    update_folder folder;
    QVERIFY(folder.put("orvane", update_folder::read(QStringLiteral(ORVANE_BINARY)), true));
    QVERIFY(folder.put("tmp-newer-version.bin", update_folder::new_build()));
    if (lock)
        QVERIFY(folder.put("client_updating.lock", {}));
    // Stands in for the updater program: it only leaves a mark of having run.
    if (updater_present)
        QVERIFY(folder.put("updater", "#!/bin/sh\ntouch launched\n", true));

    QProcess p;
    p.start(folder.path("orvane"), { "--help" });
    QVERIFY(p.waitForFinished(20000));
    QCOMPARE(p.exitStatus(), QProcess::NormalExit);
    QCOMPARE(p.exitCode(), 0);
    QTEST(QString::fromUtf8(p.readAllStandardOutput()).contains("Orvane by Kelmar"), "goes_on");
    if (launched)
        QTRY_VERIFY_WITH_TIMEOUT(folder.exists("launched"), 5000);
    else
        QVERIFY(!QTest::qWaitFor([&] { return folder.exists("launched"); }, 300));
    // The lock is the updater's to remove; one that can't be started mustn't leave one behind.
    QCOMPARE(folder.exists("client_updating.lock"), lock || launched);
    QVERIFY(folder.exists("tmp-newer-version.bin"));
    QVERIFY(!folder.exists("ov.config")); // the help is no start of the program
}

void test_self_update::initTestCase()
{
    QVERIFY(update_folder::old_build().size() >= 51200);
    QVERIFY(update_folder::old_build() != update_folder::new_build());
}

void test_self_update::stopped_at_any_step_leaves_a_whole_program_data()
{
    QTest::addColumn<QString>("step"); // empty: never stopped
    QTest::addColumn<bool>("swapped");
    QTest::newRow("never stopped") << "" << true;
    QTest::newRow("before anything") << "started" << false;
    QTest::newRow("program ended") << "waited" << false;
    QTest::newRow("half of the new build written") << "writing" << false;
    QTest::newRow("new build written") << "written" << false;
    QTest::newRow("new build checked") << "checked" << false;
    QTest::newRow("old build kept") << "backed_up" << false;
    QTest::newRow("renamed into place") << "swapped" << true;
    QTest::newRow("download removed, lock not yet") << "cleaned" << true;
}

void test_self_update::stopped_at_any_step_leaves_a_whole_program()
{
    QFETCH(QString, step);
    QFETCH(bool, swapped);
    update_folder f;
    QVERIFY(f.set_up());
    QCOMPARE(f.run_program(), old_marker);
    QCOMPARE(f.run_updater(step.isEmpty() ? QStringList() : QStringList { "ORVANE_UPDATER_STOP_AT=" + step }),
        step.isEmpty() ? 0 : -1);
    // Byte for byte one build or the other, and it runs.
    QCOMPARE(f.content("orvane"), swapped ? update_folder::new_build() : update_folder::old_build());
    QCOMPARE(f.run_program(), swapped ? new_marker : old_marker);

    // The next run, which the next start of the program brings about, finishes the work; after a whole run
    // nothing waits and it changes nothing.
    QCOMPARE(f.run_updater(), 0);
    QCOMPARE(f.run_program(), new_marker);
    QCOMPARE(f.content("orvane.previous"), update_folder::old_build());
    for (const char* gone : { "tmp-newer-version.bin", "client_updating.lock", "orvane.new", "orvane.previous.new" })
        QVERIFY2(!f.exists(gone), gone);
    QVERIFY(!step.isEmpty() || f.content("updater.log").contains("updater: installed the new build"));
}

void test_self_update::refusals_leave_the_old_build_data()
{
    QTest::addColumn<QByteArray>("candidate"); // empty: the new build
    QTest::addColumn<bool>("blocked"); // a folder stands where the new build is to be written
    QTest::addColumn<bool>("running"); // the old build runs all the while
    QTest::addColumn<int>("code");
    QTest::addColumn<QString>("logged");
    const QByteArray build = update_folder::new_build();
    QByteArray foreign = build;
    foreign[18] = char(foreign[18] ^ 0x40); // e_machine: another processor
    QByteArray library_like = build;
    library_like[16] = 1; // e_type: a relocatable object
    QTest::newRow("an error page") << QByteArray("<html>502 Bad Gateway</html>").repeated(3000) << false << false << 4
                                   << "not an ELF file";
    QTest::newRow("another machine") << foreign << false << false << 4 << "another machine";
    QTest::newRow("not executable") << library_like << false << false << 4 << "isn't executable";
    QTest::newRow("cut short") << build.left(build.size() - 700) << false << false << 4 << "cut short";
    QTest::newRow("can't stage") << QByteArray() << true << false << 3 << "can't stage the new build";
    QTest::newRow("the program runs on") << QByteArray() << false << true << 2 << "the program is still running";
}

void test_self_update::refusals_leave_the_old_build()
{
    QFETCH(QByteArray, candidate);
    QFETCH(bool, blocked);
    QFETCH(bool, running);
    QFETCH(int, code);
    QFETCH(QString, logged);
    update_folder f;
    QVERIFY(f.set_up());
    QVERIFY(candidate.isEmpty() || f.put("tmp-newer-version.bin", candidate));
    QVERIFY(!blocked || QDir(f.dir.path()).mkpath("orvane.new/in-the-way"));
    QProcess program;
    if (running) {
        program.start(f.path("orvane"), { "3000" });
        QVERIFY(program.waitForReadyRead(5000));
    }
    QCOMPARE(f.run_updater({ "ORVANE_UPDATER_WAIT_MS=200" }), code);
    program.kill();
    program.waitForFinished(2000);
    QCOMPARE(f.content("orvane"), update_folder::old_build());
    QCOMPARE(f.run_program(), old_marker);
    // A file that would fail again at every start goes; one that waited for the program stays for the next
    // start. No lock holds either back.
    QCOMPARE(f.exists("tmp-newer-version.bin"), running);
    QVERIFY(!f.exists("client_updating.lock"));
    QVERIFY(blocked || !f.exists("orvane.new"));
    const QString log = QString::fromUtf8(f.content("updater.log"));
    QVERIFY2(log.contains(logged) && (code != 4 || log.contains("refused")), qPrintable(log));
}

void test_self_update::waits_for_the_program_to_end()
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

QTEST_MAIN(test_self_update)
#include "test_self_update.moc"
