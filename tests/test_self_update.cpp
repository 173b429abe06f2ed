// The program keeping itself current, from the repository's answers to the updater program that swaps the build.
#include "app/core.h"
#include "delivery/updater.h"
#include "tests/support/box_answers.h"
#include "tests/support/svcsim_harness.h"
#include "tests/support/update_folder.h"

#include <QtTest>
#include <QtWidgets>

namespace {

const QString old_marker = QStringLiteral("test build 1964 1");
const QString new_marker = QStringLiteral("test build 1965 1");

QJsonObject changelog_of(int count)
{
    QJsonObject log;
    for (int i = 1; i <= count; ++i)
        log.insert(QStringLiteral("%1").arg(i, 2, 10, QLatin1Char('0')),
            QJsonObject { { "message", QStringLiteral("Change %1").arg(i) }, { "since_rev", i <= 4 ? 1960 : 1965 },
                { "important", i == 1 } });
    return log;
}

// The build on offer in the repository: `file` under the service's folder.
QJsonObject build_record(int latest, const QString& file, const QJsonObject& changelog = changelog_of(2))
{
    return QJsonObject { { "latest", latest }, { "time", "01.02.2025 10:00:00" }, { "changelog", changelog },
        { "file", file } };
}

} // namespace

class test_self_update : public QObject
{
    Q_OBJECT
private slots:
    void each_build_is_announced_once();
    void downloaded_file_data();
    void downloaded_file();
    void prompt_answers_data();
    void prompt_answers();
    void start_finds_a_waiting_build_data();
    void start_finds_a_waiting_build();
    void updater_runs_data();
    void updater_runs();
};

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

    // Neither the same build again, nor malformed answers, nor one that says nothing announce anything.
    for (const char* garbage : { "", "not json", R"({"latest":1970,"time":"x"})" }) {
        QVERIFY(!*garbage || service.set_fault("repo_check", QJsonObject { { "garbage", garbage }, { "times", 1 } }));
        QVERIFY(check());
    }
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
    QTest::addColumn<QString>("failure");
    QTest::newRow("one byte short") << 51199 << true << "Получен неправильный файл обновления.";
    QTest::newRow("just big enough") << 51200 << true << "";
    QTest::newRow("folder gone") << 80000 << false << "Невозможно сохранить файл обновления.";
}

void test_self_update::downloaded_file()
{
    QFETCH(int, size);
    QFETCH(bool, folder_exists);
    QFETCH(QString, failure);
    svcsim_harness service;
    const QByteArray body = update_folder::new_build().leftJustified(size, '\0', true);
    const QString file = service.add_file("b.bin", body);
    QVERIFY2(service.start({ { "repository", build_record(1965, file) } }), qPrintable(service.error()));
    QTemporaryDir dir;
    const QString folder = folder_exists ? dir.path() : dir.filePath("gone");
    updater u(1, 1964, folder);
    u.set_server(service.address(), service.port());
    QSignalSpy announced(&u, &updater::new_update_available);
    u.check();
    QTRY_COMPARE_WITH_TIMEOUT(announced.size(), 1, 5000);

    QSignalSpy downloaded(&u, &updater::downloaded);
    QSignalSpy failed(&u, &updater::download_failed);
    u.download(false);
    QTRY_COMPARE_WITH_TIMEOUT(downloaded.size() + failed.size(), 1, 5000);
    QCOMPARE(service.requests("repo_file").at(0).toObject()["path"].toString(), QStringLiteral("/repo/file/l/1965/"));
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
    const QString postponed = "Tasks are in progress at the moment, the update will be postponed until a restart.";
    QTest::newRow("yes: installed") << false << int(QMessageBox::Yes) << "";
    QTest::newRow("no: next start") << false << int(QMessageBox::No) << "";
    QTest::newRow("yes while tasks run") << true << int(QMessageBox::Yes) << postponed;
    QTest::newRow("cancel: no more checks, no download")
        << false << int(QMessageBox::Cancel) << "Update checking is disabled until next start.";
}

void test_self_update::prompt_answers()
{
    QFETCH(bool, busy);
    QFETCH(int, answer);
    QFETCH(QString, then_told);
    const bool downloads = answer != QMessageBox::Cancel;
    const bool installs = answer == QMessageBox::Yes && !busy;
    update_folder folder;
    QVERIFY(folder.set_up(false, false));
    svcsim_harness service;
    const QString file = service.add_file("b.bin", update_folder::new_build());
    QVERIFY2(service.start({ { "repository", build_record(1965, file, changelog_of(11)) } }),
        qPrintable(service.error()));
    box_answers answers([&](const QMessageBox& box) {
        return box.standardButtons().testFlag(QMessageBox::Cancel) ? QMessageBox::StandardButton(answer) : QMessageBox::Ok;
    });
    QSettings settings(folder.path("ov.config"), QSettings::IniFormat);
    settings.setValue("usage_warning_accepted", true);
    settings.setValue("Service/address", service.address().toString());
    settings.setValue("Service/port", service.port());
    settings.sync();
    const auto c = std::make_unique<core>(QString(), folder.dir.path());
    QVERIFY(c->operate(core::interactive, false));
    if (busy) {
        // A flow held at a task nobody does keeps running.
        const task_element row(endpoint { {}, {}, QStringLiteral("127.0.0.1"), 1, QStringLiteral("admin"), {} }, device());
        c->introduce(row);
        c->task_manager().add_task(row.ident, tasks::task(QStringLiteral("hold")));
        c->task_manager().set_launch_list({ row.ident });
        c->task_manager().launch();
        QCOMPARE(c->task_manager().running_count(), 1u);
    }
    if (installs) {
        // The program's own loop runs until the core quits it, as it does once the updater has started.
        QObject watchdog;
        bool timed_out = false;
        QTimer::singleShot(20000, &watchdog, [&] {
            timed_out = true;
            QCoreApplication::quit();
        });
        QCoreApplication::exec();
        QVERIFY(!timed_out);
        // The updater program, started detached, swaps the files.
        QTRY_VERIFY_WITH_TIMEOUT(!folder.exists("tmp-newer-version.bin"), 10000);
        QCOMPARE(folder.run_program(), new_marker);
    }
    QTRY_COMPARE_WITH_TIMEOUT(answers.boxes.size(), then_told.isEmpty() ? 1 : 2, 10000);
    QVERIFY(answers.boxes[0].text.startsWith("<h3>Build 1965 is available for updating.</h3>"));
    // Ten changes listed, the eleventh counted.
    QVERIFY(answers.boxes[0].informative.endsWith("<div>+ ещё 1 изменений.</div>"));
    if (!then_told.isEmpty())
        QCOMPARE(answers.boxes[1].text, then_told);
    if (downloads && !installs) {
        QTRY_VERIFY_WITH_TIMEOUT(folder.exists("tmp-newer-version.bin"), 5000);
        // Kept for the next start: nothing was launched and the program goes on.
        QVERIFY(c->self_updater().postponed());
        QVERIFY(!folder.exists("client_updating.lock"));
    }
    QCOMPARE(c->self_updater().checking(), downloads);
    QCOMPARE(service.requests("repo_file").size(), downloads ? 1 : 0);
    QCOMPARE(answers.boxes.size(), then_told.isEmpty() ? 1 : 2);
}

void test_self_update::start_finds_a_waiting_build_data()
{
    QTest::addColumn<bool>("lock");
    QTest::addColumn<bool>("updater_present");
    QTest::newRow("an updater at work: quit, launch nothing") << true << true;
    QTest::newRow("hand over to the updater and quit") << false << true;
    QTest::newRow("no updater to start: go on") << false << false;
}

void test_self_update::start_finds_a_waiting_build()
{
    QFETCH(bool, lock);
    QFETCH(bool, updater_present);
    const bool launched = updater_present && !lock;
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
    // Only a start with nothing to hand over goes on (and prints its help).
    QCOMPARE(QString::fromUtf8(p.readAllStandardOutput()).contains("Orvane by Kelmar"), !updater_present);
    if (launched)
        QTRY_VERIFY_WITH_TIMEOUT(folder.exists("launched"), 5000);
    else
        QVERIFY(!QTest::qWaitFor([&] { return folder.exists("launched"); }, 300));
    // The lock is the updater's to remove; one that can't be started mustn't leave one behind.
    QCOMPARE(folder.exists("client_updating.lock"), lock || launched);
    QVERIFY(folder.exists("tmp-newer-version.bin"));
}

void test_self_update::updater_runs_data()
{
    QTest::addColumn<QString>("stop_at"); // the step the run is killed after
    QTest::addColumn<QByteArray>("candidate"); // empty: the new build
    QTest::addColumn<bool>("blocked"); // a folder stands where the new build is to be written
    QTest::addColumn<bool>("running"); // the old build runs all the while
    QTest::addColumn<int>("code"); // of the run; -1 killed
    QTest::addColumn<bool>("swapped");
    QTest::addColumn<QString>("logged");
    const auto stopped = [](const char* name, const char* step, bool swapped) {
        QTest::newRow(name) << step << QByteArray() << false << false << -1 << swapped << "";
    };
    const auto refused = [](const char* name, const QByteArray& candidate, bool blocked, bool running, int code,
                             const char* logged) {
        QTest::newRow(name) << "" << candidate << blocked << running << code << false << logged;
    };
    QTest::newRow("installed") << "" << QByteArray() << false << false << 0 << true << "installed the new build";
    stopped("stopped before anything", "started", false);
    stopped("stopped when the program ended", "waited", false);
    stopped("stopped with half of the new build written", "writing", false);
    stopped("stopped with the new build written", "written", false);
    stopped("stopped with the new build checked", "checked", false);
    stopped("stopped with the old build kept", "backed_up", false);
    stopped("stopped once renamed into place", "swapped", true);
    stopped("stopped with the download removed, the lock not yet", "cleaned", true);
    const QByteArray build = update_folder::new_build();
    QByteArray foreign = build;
    foreign[18] = char(foreign[18] ^ 0x40); // e_machine: another processor
    QByteArray library_like = build;
    library_like[16] = 1; // e_type: a relocatable object
    refused("an error page", QByteArray("<html>502 Bad Gateway</html>").repeated(3000), false, false, 4,
        "not an ELF file");
    refused("another machine", foreign, false, false, 4, "another machine");
    refused("not executable", library_like, false, false, 4, "isn't executable");
    refused("cut short", build.left(build.size() - 700), false, false, 4, "cut short");
    refused("can't stage", {}, true, false, 3, "can't stage the new build");
    refused("the program runs on", {}, false, true, 2, "the program is still running");
}

// Whatever happens to a run, the program is byte for byte one build or the other, and it runs.
void test_self_update::updater_runs()
{
    QFETCH(QString, stop_at);
    QFETCH(QByteArray, candidate);
    QFETCH(bool, blocked);
    QFETCH(bool, running);
    QFETCH(int, code);
    QFETCH(bool, swapped);
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
    QStringList environment { "ORVANE_UPDATER_WAIT_MS=200" };
    if (!stop_at.isEmpty())
        environment << "ORVANE_UPDATER_STOP_AT=" + stop_at;
    QCOMPARE(f.run_updater(environment), code);
    program.kill();
    program.waitForFinished(2000);
    QCOMPARE(f.content("orvane"), swapped ? update_folder::new_build() : update_folder::old_build());
    QCOMPARE(f.run_program(), swapped ? new_marker : old_marker);
    const QString log = QString::fromUtf8(f.content("updater.log"));
    QVERIFY2(log.contains(logged) && (code != 4 || log.contains("refused")), qPrintable(log));
    if (code > 0) {
        // A file that would fail again at every start goes; one that waited for the program stays for the next
        // start. No lock holds either back.
        QCOMPARE(f.exists("tmp-newer-version.bin"), running);
        QVERIFY(!f.exists("client_updating.lock"));
        QVERIFY(blocked || !f.exists("orvane.new"));
        return;
    }
    // The next run, which the next start of the program brings about, finishes the work; after a whole run
    // nothing waits and it changes nothing.
    QCOMPARE(f.run_updater(), 0);
    QCOMPARE(f.run_program(), new_marker);
    QCOMPARE(f.content("orvane.previous"), update_folder::old_build());
    for (const char* gone : { "tmp-newer-version.bin", "client_updating.lock", "orvane.new", "orvane.previous.new" })
        QVERIFY2(!f.exists(gone), gone);
}

QTEST_MAIN(test_self_update)
#include "test_self_update.moc"
