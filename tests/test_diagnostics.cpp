#include "diagnostics/blackbox.h"
#include "diagnostics/latched_thread.h"
#include "diagnostics/log_history.h"
#include "diagnostics/loggable.h"
#include "diagnostics/text_animations.h"

#include <QAtomicInt>
#include <QFile>
#include <QRegularExpression>
#include <QTemporaryDir>
#include <QtTest>

namespace {

QStringList read_lines(const QString& path)
{
    QFile f(path);
    if (!f.open(QIODevice::ReadOnly))
        return {};
    return QString::fromUtf8(f.readAll()).split('\n', Qt::SkipEmptyParts);
}

// Counts its rounds; does `work_rounds` rounds of work, then sleeps until woken.
class counting_thread final : public background::latched_thread
{
public:
    explicit counting_thread(int work_rounds)
        : m_work(work_rounds)
    {
    }
    ~counting_thread() override { stop_and_wait(); }
    void add_work(int n)
    {
        m_work.fetchAndAddOrdered(n);
        wake();
    }
    QAtomicInt rounds;

protected:
    bool process() override
    {
        rounds.fetchAndAddOrdered(1);
        if (m_work.loadAcquire() <= 0)
            return false;
        m_work.fetchAndAddOrdered(-1);
        return true;
    }

private:
    QAtomicInt m_work;
};

} // namespace

class test_diagnostics : public QObject
{
    Q_OBJECT
private slots:
    void line_format_data();
    void line_format();
    void session_line_only_once();
    void long_line_is_cut_at_buffer();
    void loggable_falls_back_to_global();
    void history_filters();
    void animations_data();
    void animations();
    void latched_thread_sleeps_and_wakes();
    void latched_thread_ends_while_waiting();
};

void test_diagnostics::line_format_data()
{
    QTest::addColumn<int>("level");
    QTest::addColumn<QString>("level_text");
    QTest::newRow("debug") << 0 << "debug";
    QTest::newRow("plain") << 1 << "plain";
    QTest::newRow("information") << 2 << "information";
    QTest::newRow("warning") << 3 << "warning";
    QTest::newRow("error") << 4 << "error";
    QTest::newRow("unknown level") << 9 << "---";
    QTest::newRow("negative level") << -1 << "---";
}

void test_diagnostics::line_format()
{
    QFETCH(int, level);
    QFETCH(QString, level_text);
    QTemporaryDir dir;
    const QString path = dir.filePath("blackbox.log");
    {
        blackbox box(path);
        QVERIFY(box.open());
        box.write("unit", level, "value %d and %s", 42, "text");
    }
    const QStringList lines = read_lines(path);
    QCOMPARE(lines.size(), 2);
    const QRegularExpression stamp("^\\d\\d\\.\\d\\d\\.\\d\\d, \\d\\d:\\d\\d:\\d\\d, ");
    QVERIFY(stamp.match(lines[0]).hasMatch());
    QVERIFY(lines[0].endsWith(QStringLiteral(", ---, plain, Новая сессия работы начата")));
    QVERIFY2(stamp.match(lines[1]).hasMatch(), qPrintable(lines[1]));
    QCOMPARE(lines[1].mid(20), QStringLiteral("unit, %1, value 42 and text").arg(level_text));
}

void test_diagnostics::session_line_only_once()
{
    QTemporaryDir dir;
    const QString path = dir.filePath("b.log");
    blackbox box(path);
    QVERIFY(box.open());
    QVERIFY(box.open());
    box.write("x", 1, "one");
    QCOMPARE(read_lines(path).size(), 2);

    blackbox unwritable(dir.filePath("missing/dir/b.log"));
    QVERIFY(!unwritable.open());
    unwritable.write("x", 1, "no file, no crash");
}

void test_diagnostics::long_line_is_cut_at_buffer()
{
    QTemporaryDir dir;
    const QString path = dir.filePath("b.log");
    blackbox box(path);
    QVERIFY(box.open());
    const QByteArray big(5000, 'z');
    box.write("x", 1, "%s", big.constData());
    box.write("x", 1, "after");
    QFile f(path);
    QVERIFY(f.open(QIODevice::ReadOnly));
    const QList<QByteArray> lines = f.readAll().split('\n');
    // Session line, the cut line (no newline room left, so it runs into the next), then the rest.
    QVERIFY(lines.size() >= 2);
    const QByteArray cut = lines[1];
    QCOMPARE(cut.count('z') + cut.indexOf('z'), int(blackbox::buffer_size) - 1);
    QVERIFY(cut.endsWith("after") || lines.value(2).endsWith("after"));
}

void test_diagnostics::loggable_falls_back_to_global()
{
    QTemporaryDir dir;
    auto global = std::make_shared<blackbox>(dir.filePath("g.log"));
    QVERIFY(global->open());
    blackbox::set_global(global);

    loggable lonely("lonely");
    lonely.log(blackbox::warning, "via %s", "global");
    write_sub("parent", "child", blackbox::error, "sub %d", 7);
    blackbox::set_global(nullptr);
    write_sub("parent", "child", blackbox::error, "dropped");

    const QStringList lines = read_lines(dir.filePath("g.log"));
    QCOMPARE(lines.size(), 3);
    QVERIFY(lines[1].endsWith("lonely, warning, via global"));
    QVERIFY(lines[2].endsWith("parent/child, error, sub 7"));

    // Copies share the blackbox.
    auto own = std::make_shared<blackbox>(dir.filePath("own.log"));
    QVERIFY(own->open());
    loggable a("a", own);
    loggable b = a;
    b.log(1, "from copy");
    QCOMPARE(read_lines(dir.filePath("own.log")).size(), 2);
}

void test_diagnostics::history_filters()
{
    log_history h;
    QStringList seen;
    int rebuilds = 0;
    h.add_listener(0, { "core" }, [&](const log_history::entry& e) { seen << e.text; }, [&] { ++rebuilds; });
    h.add("a", { "core" });
    h.add("b", { "tasks" });
    h.add("c", { "tasks", "core" });
    QCOMPARE(seen, (QStringList { "a", "c" }));

    h.set_filter(0, { "core" });
    QCOMPARE(rebuilds, 1);
    h.set_filter(0, {});
    QCOMPARE(rebuilds, 2);
    h.add("d", { "core" });
    QCOMPARE(seen.size(), 2);
    QCOMPARE(h.entries({}).size(), 0);
    QCOMPARE(h.size(), 4);
    QCOMPARE(h.entries({ "tasks" }).size(), 2);
    QCOMPARE(h.entries({ "nonexistent" }).size(), 0);
}

void test_diagnostics::animations_data()
{
    QTest::addColumn<int>("kind");
    QTest::addColumn<QStringList>("expected");
    QTest::newRow("waiting wraps after three") << 0 << QStringList { ".", "..", "...", "." };
    QTest::newRow("spinning") << 1 << QStringList { "/", "-", "\\", "|", "/" };
    QTest::newRow("scanning") << 2
                              << QStringList { "[|------]", "[-|-----]", "[--|----]", "[---|---]", "[----|--]",
                                     "[-----|-]", "[------|]", "[|------]" };
}

void test_diagnostics::animations()
{
    QFETCH(int, kind);
    QFETCH(QStringList, expected);
    std::unique_ptr<text_animations::waiting> a;
    if (kind == 0)
        a = std::make_unique<text_animations::waiting>();
    else if (kind == 1)
        a = std::make_unique<text_animations::spinning>();
    else
        a = std::make_unique<text_animations::scanning>();
    QStringList got;
    for (int i = 0; i < expected.size(); ++i)
        got << a->next();
    QCOMPARE(got, expected);
    a->next();
    a->reset();
    QCOMPARE(a->next(), expected.first());
}

void test_diagnostics::latched_thread_sleeps_and_wakes()
{
    counting_thread t(3);
    t.start();
    // Three rounds of work plus one that finds nothing, then it sleeps.
    QTRY_COMPARE_WITH_TIMEOUT(t.rounds.loadAcquire(), 4, 5000);
    QTest::qWait(50);
    QCOMPARE(t.rounds.loadAcquire(), 4);
    t.add_work(2);
    QTRY_COMPARE_WITH_TIMEOUT(t.rounds.loadAcquire(), 7, 5000);
}

void test_diagnostics::latched_thread_ends_while_waiting()
{
    QElapsedTimer timer;
    {
        counting_thread t(0);
        t.start();
        QTRY_COMPARE_WITH_TIMEOUT(t.rounds.loadAcquire(), 1, 5000);
        // Only the destruction is timed: it must wake the sleeping thread, not wait it out.
        timer.start();
    }
    QVERIFY2(timer.elapsed() < 500, qPrintable(QString::number(timer.elapsed())));
}

QTEST_GUILESS_MAIN(test_diagnostics)
#include "test_diagnostics.moc"
