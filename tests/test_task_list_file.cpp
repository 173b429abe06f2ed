#include "tasks/task_list_file.h"

#include "delivery/task_list_password.h"

#include <QRegularExpression>
#include <QTemporaryDir>
#include <QtTest>

using tasks::task_list_file;

namespace
{

const QString malformed = QStringLiteral("Malformed line, skipping...");
const QString empty_line = QStringLiteral("Empty line, skipping...");

QString at(int line, const QString& text)
{
    return QStringLiteral("%1:%2").arg(line).arg(text);
}

// name|host|port|user|flag|password
QString flat(const endpoint& ep)
{
    return QStringList { ep.name, ep.host, QString::number(ep.port), ep.user, QString::number(ep.password_encrypted),
        ep.password }
        .join(QLatin1Char('|'));
}

endpoint make(const QString& name, const QString& host, uint16_t port, const QString& user, const QString& password)
{
    endpoint ep;
    ep.name = name;
    ep.host = host;
    ep.port = port;
    ep.user = user;
    ep.password = password;
    return ep;
}

} // namespace

class test_task_list_file : public QObject
{
    Q_OBJECT
private slots:
    void parse_data();
    void parse();
    void export_then_import();
    void unreadable_and_unwritable_files();
    void refused_exactly_when_it_would_not_come_back_data();
    void refused_exactly_when_it_would_not_come_back();
};

void test_task_list_file::parse_data()
{
    QTest::addColumn<QByteArray>("content");
    QTest::addColumn<uint>("format");
    QTest::addColumn<QStringList>("messages");
    QTest::addColumn<QStringList>("records");

    QTest::newRow("format 1, all three defaults")
        << QByteArray("192.168.1.10,,,\n") << 1u
        << QStringList { at(1, "Empty port, assuming default (\"34567\") value"),
               at(1, "Empty user, assuming default (\"admin\") value"),
               at(1, "Empty password, assuming default (no password) value") }
        << QStringList { "|192.168.1.10|34567|admin|0|" };
    QTest::newRow("format 3, flag is any non-zero number")
        << QByteArray("a,h,1,u,0,pw\nb,h,2,u,7,X\nd,h,4,u,yes,Y\n") << 3u << QStringList()
        << QStringList { "a|h|1|u|0|pw", "b|h|2|u|1|X", "d|h|4|u|0|Y" };
    QTest::newRow("a line of blanks is malformed, blanks between commas are not")
        << QByteArray("   \nh,1,u,p\n \t \n , , , \n") << 1u << QStringList { at(1, malformed), at(3, malformed) }
        << QStringList { "|h|1|u|0|p", "| |0| |0| " };
    QTest::newRow("port 70000 wraps to 4464, a text port gives 0") << QByteArray(
        "h,70000,u,p\nh,http,u,p\n") << 1u << QStringList() << QStringList { "|h|4464|u|0|p", "|h|0|u|0|p" };
    QTest::newRow("line numbers count every line, an empty host drops the record")
        << QByteArray("x\n\nh,1,u,p\n,,,\nh2,,u,p\n") << 1u
        << QStringList { at(1, malformed), at(2, empty_line), at(4, "Address field is empty"),
               at(5, "Empty port, assuming default (\"34567\") value") }
        << QStringList { "|h|1|u|0|p", "|h2|34567|u|0|p" };
}

void test_task_list_file::parse()
{
    QFETCH(QByteArray, content);
    QTemporaryDir dir;
    const QString path = dir.filePath(QStringLiteral("tasks.csv"));
    QFile f(path);
    QVERIFY(f.open(QIODevice::WriteOnly) && f.write(content) == content.size());
    f.close();

    const task_list_file list = task_list_file::import_file(path);
    QVERIFY(!list.failed);
    QTEST(list.format, "format");
    QStringList messages, records;
    for (const task_list_file::message& m : list.messages)
        messages << at(int(m.line), m.text);
    for (const endpoint& ep : list.records)
        records << flat(ep);
    QTEST(messages, "messages");
    QTEST(records, "records");
}

void test_task_list_file::export_then_import()
{
    const QVector<endpoint> devices {
        make("cam1", "10.0.0.1", 34567, "admin", "secret"),
        make("", "10.0.0.2", 8000, "root", ""),
        make("склад", "dvr.local", 1, "оператор", "пароль"),
    };
    QTemporaryDir dir;
    const QString path = dir.filePath(QStringLiteral("out.csv"));
    QCOMPARE(task_list_file::export_file(path, devices, true, delivery::encrypt_task_list_password), 3);
    QFile f(path);
    QVERIFY(f.open(QIODevice::ReadOnly));
    const QString first = QString::fromUtf8(f.readLine());
    QVERIFY2(QRegularExpression("^cam1,10\\.0\\.0\\.1,,,1,[A-Za-z0-9+/]{20,}={0,2}\\n$").match(first).hasMatch(),
        qPrintable(first));

    const task_list_file list = task_list_file::import_file(path);
    QCOMPARE(list.format, task_list_file::export_format);
    QCOMPARE(list.records.size(), devices.size());
    for (int i = 0; i < devices.size(); ++i) {
        QVERIFY(list.records.at(i).password_encrypted);
        const endpoint back = task_list_file::opened(list.records.at(i), delivery::decrypt_task_list_password);
        QCOMPARE(flat(back), flat(devices.at(i)));
    }
}

void test_task_list_file::unreadable_and_unwritable_files()
{
    QTemporaryDir dir;
    const task_list_file list = task_list_file::import_file(dir.filePath(QStringLiteral("absent.csv")));
    QVERIFY(list.failed);
    QCOMPARE(list.error, QStringLiteral("File not found"));
    QVERIFY(list.records.isEmpty());
    const QVector<endpoint> devices { make("cam", "h", 1, "u", "p") };
    QCOMPARE(task_list_file::export_file(dir.path(), devices, false, {}), 0);
    QCOMPARE(task_list_file::export_file(dir.filePath(QStringLiteral("no/such/dir.csv")), devices, false, {}), 0);
}

void test_task_list_file::refused_exactly_when_it_would_not_come_back_data()
{
    QTest::addColumn<endpoint>("ep");
    QTest::newRow("plain fields come back") << make("hall", "10.0.0.1", 34567, "admin", "secret");
    QTest::newRow("a comma in the name") << make("hall, left", "10.0.0.1", 34567, "admin", "secret");
    QTest::newRow("a comma in the password") << make("hall", "10.0.0.1", 34567, "admin", "se,cret");
    QTest::newRow("a comma in the user") << make("hall", "10.0.0.1", 34567, "ad,min", "secret");
    QTest::newRow("a comma in the address") << make("hall", "10.0.0.1,2", 34567, "admin", "secret");
}

// The check at entry stands for the file itself: what it refuses is what a list file would split.
void test_task_list_file::refused_exactly_when_it_would_not_come_back()
{
    QFETCH(endpoint, ep);
    QTemporaryDir dir;
    const QString path = dir.filePath(QStringLiteral("tasks.csv"));
    QCOMPARE(task_list_file::export_file(path, { ep }, false, {}), 1);
    const task_list_file back = task_list_file::import_file(path);
    const bool same = back.records.size() == 1 && flat(back.records[0]) == flat(ep);
    const QString refusal = task_list_file::unwritable(ep);
    QCOMPARE(refusal.isEmpty(), same);
    QVERIFY(same || refusal.contains("comma"));
}

QTEST_GUILESS_MAIN(test_task_list_file)
#include "test_task_list_file.moc"
