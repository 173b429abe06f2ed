#include "diagnostics/blackbox.h"
#include "diagnostics/latched_thread.h"

#include <QAtomicInt>
#include <QFile>
#include <QRegularExpression>
#include <QTemporaryDir>
#include <QtTest>

#include <thread>
#include <vector>

namespace
{

QStringList read_lines(const QString& path)
{
    QFile f(path);
    return f.open(QIODevice::ReadOnly) ? QString::fromUtf8(f.readAll()).split('\n', Qt::SkipEmptyParts) : QStringList();
}

// Never finds work, so after its first round it sleeps until woken.
class idle_thread final : public background::latched_thread
{
public:
    ~idle_thread() override { stop_and_wait(); }
    QAtomicInt rounds;

protected:
    bool process() override
    {
        rounds.fetchAndAddOrdered(1);
        return false;
    }
};

} // namespace

class test_diagnostics : public QObject
{
    Q_OBJECT
private slots:
    void line_format_data();
    void line_format();
    void long_line_is_cut_at_buffer();
    void lines_of_many_threads_stay_whole();
    void latched_thread_ends_while_waiting();
};

void test_diagnostics::line_format_data()
{
    QTest::addColumn<int>("level");
    QTest::addColumn<QString>("level_text");
    QTest::newRow("debug") << 0 << "debug";
    QTest::newRow("error") << 4 << "error";
    QTest::newRow("unknown level") << 9 << "---";
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
        QVERIFY(box.open()); // the session line is written once
        box.write("unit", level, "value %d and %s", 42, "text");
    }
    const QStringList lines = read_lines(path);
    QCOMPARE(lines.size(), 2);
    const QRegularExpression stamp("^\\d\\d\\.\\d\\d\\.\\d\\d, \\d\\d:\\d\\d:\\d\\d, ");
    QVERIFY2(stamp.match(lines[0]).hasMatch(), qPrintable(lines[0]));
    QVERIFY(lines[0].endsWith(QStringLiteral(", ---, plain, Новая сессия работы начата")));
    QVERIFY2(stamp.match(lines[1]).hasMatch(), qPrintable(lines[1]));
    QCOMPARE(lines[1].mid(20), QStringLiteral("unit, %1, value 42 and text").arg(level_text));
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

void test_diagnostics::lines_of_many_threads_stay_whole()
{
    QTemporaryDir dir;
    const QString path = dir.filePath("b.log");
    constexpr int writers = 8;
    constexpr int lines_each = 300;
    {
        blackbox box(path);
        QVERIFY(box.open());
        std::vector<std::thread> threads;
        for (int t = 0; t < writers; ++t) {
            threads.emplace_back([&box, t] {
                const QByteArray ident = "writer " + QByteArray::number(t);
                for (int i = 0; i < lines_each; ++i)
                    box.write(ident.constData(), blackbox::debug, "line %d of %d, %s", i, t, "done");
            });
        }
        for (auto& thread : threads)
            thread.join();
    }
    const QStringList lines = read_lines(path);
    QCOMPARE(lines.size(), 1 + writers * lines_each);
    const QRegularExpression whole(
        "^\\d\\d\\.\\d\\d\\.\\d\\d, \\d\\d:\\d\\d:\\d\\d, writer (\\d), debug, line (\\d+) of (\\d), done$");
    QVector<int> next(writers, 0);
    for (const QString& line : lines.mid(1)) {
        const QRegularExpressionMatch m = whole.match(line);
        QVERIFY2(m.hasMatch(), qPrintable(line));
        const int t = m.captured(1).toInt();
        QCOMPARE(m.captured(3).toInt(), t);
        // Each writer's lines come in its own order.
        QCOMPARE(m.captured(2).toInt(), next[t]++);
    }
}

void test_diagnostics::latched_thread_ends_while_waiting()
{
    QElapsedTimer timer;
    {
        idle_thread t;
        t.start();
        QTRY_COMPARE_WITH_TIMEOUT(t.rounds.loadAcquire(), 1, 5000);
        // Only the destruction is timed: it must wake the sleeping thread, not wait it out.
        timer.start();
    }
    QVERIFY2(timer.elapsed() < 500, qPrintable(QString::number(timer.elapsed())));
}

QTEST_GUILESS_MAIN(test_diagnostics)
#include "test_diagnostics.moc"
