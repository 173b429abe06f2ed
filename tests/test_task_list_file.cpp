#include "tasks/file_filters.h"
#include "tasks/task_list_file.h"

#include "delivery/task_list_password.h"

#include <QRegularExpression>
#include <QTemporaryDir>
#include <QtTest>

using tasks::task_list_file;

namespace {

const QString no_port = QStringLiteral("Empty port, assuming default (\"34567\") value");
const QString no_user = QStringLiteral("Empty user, assuming default (\"admin\") value");
const QString no_password = QStringLiteral("Empty password, assuming default (no password) value");
const QString malformed = QStringLiteral("Malformed line, skipping...");
const QString empty_line = QStringLiteral("Empty line, skipping...");
const QString no_address = QStringLiteral("Address field is empty");

QString at(int line, const QString& text)
{
    return QStringLiteral("%1:%2").arg(line).arg(text);
}

// name|host|port|user|flag|password
QString flat(const endpoint& ep)
{
    return QStringList { ep.name, ep.host, QString::number(ep.port), ep.user,
        ep.password_encrypted ? QStringLiteral("1") : QStringLiteral("0"), ep.password }
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

QString fake_encrypt(const QString& plain)
{
    return QStringLiteral("ENC(%1)").arg(plain);
}

} // namespace

class test_task_list_file : public QObject
{
    Q_OBJECT
private slots:
    void parse_data();
    void parse();
    void missing_file();
    void export_line_data();
    void export_line();
    void export_then_import_data();
    void export_then_import();
    void export_to_unwritable_path();
    void filters_data();
    void filters();
};

void test_task_list_file::parse_data()
{
    QTest::addColumn<QByteArray>("content");
    QTest::addColumn<uint>("format");
    QTest::addColumn<QStringList>("messages");
    QTest::addColumn<QStringList>("records");

    QTest::newRow("format 1") << QByteArray("10.0.0.1,80,root,secret\n") << 1u << QStringList()
                              << QStringList { "|10.0.0.1|80|root|0|secret" };
    QTest::newRow("format 2") << QByteArray("cam1,10.0.0.2,34568,op,pw\n") << 2u << QStringList()
                              << QStringList { "cam1|10.0.0.2|34568|op|0|pw" };
    QTest::newRow("format 3, flag is any non-zero number")
        << QByteArray("a,10.0.0.3,1,u,0,pw\nb,10.0.0.4,2,u,1,QUJD\nc,10.0.0.5,3,u,7,X\nd,10.0.0.6,4,u,yes,Y\n") << 3u
        << QStringList()
        << QStringList { "a|10.0.0.3|1|u|0|pw", "b|10.0.0.4|2|u|1|QUJD", "c|10.0.0.5|3|u|1|X", "d|10.0.0.6|4|u|0|Y" };
    QTest::newRow("all three defaults, one record")
        << QByteArray("192.168.1.10,,,\n") << 1u << QStringList { at(1, no_port), at(1, no_user), at(1, no_password) }
        << QStringList { "|192.168.1.10|34567|admin|0|" };
    QTest::newRow("3 fields then 4: the second fixes the format")
        << QByteArray("a,b,c\nh,1,u,p\n") << 1u << QStringList { at(1, malformed) } << QStringList { "|h|1|u|0|p" };
    QTest::newRow("6 fields after a 4-field first line") << QByteArray("h,1,u,p\nn,h,1,u,0,p\n") << 1u
                                                         << QStringList { at(2, malformed) }
                                                         << QStringList { "|h|1|u|0|p" };
    QTest::newRow("blanks before the first line fix nothing")
        << QByteArray("   \nh,1,u,p\n") << 1u << QStringList { at(1, malformed) } << QStringList { "|h|1|u|0|p" };
    QTest::newRow("blanks later are malformed") << QByteArray("h,1,u,p\n \t \n") << 1u
                                                << QStringList { at(2, malformed) } << QStringList { "|h|1|u|0|p" };
    QTest::newRow("blanks with the commas pass") << QByteArray("h,1,u,p\n , , , \n") << 1u << QStringList()
                                                 << QStringList { "|h|1|u|0|p", "| |0| |0| " };
    QTest::newRow("empty lines") << QByteArray("\nh,1,u,p\n\nh2,2,u,p\n") << 1u
                                 << QStringList { at(1, empty_line), at(3, empty_line) }
                                 << QStringList { "|h|1|u|0|p", "|h2|2|u|0|p" };
    QTest::newRow("port 70000 wraps to 4464") << QByteArray("h,70000,u,p") << 1u << QStringList()
                                              << QStringList { "|h|4464|u|0|p" };
    QTest::newRow("ports that aren't numbers give 0")
        << QByteArray("h,http,u,p\nh,-1,u,p\nh,99999999999,u,p\n") << 1u << QStringList()
        << QStringList { "|h|0|u|0|p", "|h|0|u|0|p", "|h|0|u|0|p" };
    QTest::newRow("empty host drops the record, before the port complaint")
        << QByteArray(",,u,p\nh,,u,p\n") << 1u << QStringList { at(1, no_address), at(2, no_port) }
        << QStringList { "|h|34567|u|0|p" };
    QTest::newRow("line numbers count every line")
        << QByteArray("x\n\nh,1,u,p\n,,,\nbad\nh2,2,u,\n") << 1u
        << QStringList { at(1, malformed), at(2, empty_line), at(4, no_address), at(5, malformed),
               at(6, no_password) }
        << QStringList { "|h|1|u|0|p", "|h2|2|u|0|" };
    QTest::newRow("windows line ends") << QByteArray("n,h,1,u,p\r\nm,h2,2,u2,\r\n") << 2u
                                       << QStringList { at(2, no_password) }
                                       << QStringList { "n|h|1|u|0|p", "m|h2|2|u2|0|" };
    QTest::newRow("empty file") << QByteArray() << 0u << QStringList() << QStringList();
    QTest::newRow("only empty lines") << QByteArray("\n\n") << 0u
                                      << QStringList { at(1, empty_line), at(2, empty_line) } << QStringList();
    QTest::newRow("no line fixes the format") << QByteArray("a,b\na,b,c,d,e,f,g\n") << 0u
                                              << QStringList { at(1, malformed), at(2, malformed) } << QStringList();
}

void test_task_list_file::parse()
{
    QFETCH(QByteArray, content);
    QFETCH(uint, format);
    QFETCH(QStringList, messages);
    QFETCH(QStringList, records);

    QTemporaryDir dir;
    QVERIFY(dir.isValid());
    const QString path = dir.filePath(QStringLiteral("tasks.csv"));
    QFile f(path);
    QVERIFY(f.open(QIODevice::WriteOnly));
    QCOMPARE(f.write(content), qint64(content.size()));
    f.close();

    const task_list_file list = task_list_file::import_file(path);
    QVERIFY(!list.failed);
    QVERIFY(list.error.isEmpty());
    QCOMPARE(list.format, format);
    QStringList got_messages;
    for (const task_list_file::message& m : list.messages)
        got_messages << at(int(m.line), m.text);
    QCOMPARE(got_messages, messages);
    QStringList got_records;
    for (const endpoint& ep : list.records) {
        got_records << flat(ep);
        QVERIFY(ep.mac.isEmpty());
        QCOMPARE(ep.mtype, uint16_t(0));
    }
    QCOMPARE(got_records, records);
}

void test_task_list_file::missing_file()
{
    QTemporaryDir dir;
    QVERIFY(dir.isValid());
    const task_list_file list = task_list_file::import_file(dir.filePath(QStringLiteral("absent.csv")));
    QVERIFY(list.failed);
    QCOMPARE(list.error, QStringLiteral("File not found"));
    QVERIFY(list.records.isEmpty());
    QVERIFY(list.messages.isEmpty());
}

void test_task_list_file::export_line_data()
{
    QTest::addColumn<endpoint>("ep");
    QTest::addColumn<bool>("encrypt");
    QTest::addColumn<QString>("line");

    QTest::newRow("defaults are left out") << make("cam", "10.0.0.1", 34567, "admin", "pw") << true
                                           << "cam,10.0.0.1,,,1,ENC(pw)\n";
    QTest::newRow("encryption off, empty password ends in ,0,") << make("cam", "10.0.0.1", 34567, "admin", "") << false
                                                                 << "cam,10.0.0.1,,,0,\n";
    QTest::newRow("other port and user are written") << make("cam", "10.0.0.1", 8000, "root", "pw") << false
                                                     << "cam,10.0.0.1,8000,root,0,pw\n";
    QTest::newRow("no name") << make("", "10.0.0.1", 34567, "admin", "pw") << false << ",10.0.0.1,,,0,pw\n";
}

void test_task_list_file::export_line()
{
    QFETCH(endpoint, ep);
    QFETCH(bool, encrypt);
    QFETCH(QString, line);
    QCOMPARE(task_list_file::export_line(ep, encrypt, fake_encrypt), line);
}

void test_task_list_file::export_then_import_data()
{
    QTest::addColumn<bool>("encrypt");
    QTest::newRow("encrypted passwords") << true;
    QTest::newRow("plain passwords") << false;
}

void test_task_list_file::export_then_import()
{
    QFETCH(bool, encrypt);
    const QVector<endpoint> devices {
        make("cam1", "10.0.0.1", 34567, "admin", "secret"),
        make("", "10.0.0.2", 8000, "root", ""),
        make("склад", "dvr.local", 1, "оператор", "пароль"),
    };
    QTemporaryDir dir;
    QVERIFY(dir.isValid());
    const QString path = dir.filePath(QStringLiteral("out.csv"));
    QCOMPARE(task_list_file::export_file(path, devices, encrypt, delivery::encrypt_task_list_password), 3);

    QFile f(path);
    QVERIFY(f.open(QIODevice::ReadOnly));
    const QString first = QString::fromUtf8(f.readLine());
    const QString shape = encrypt ? QStringLiteral("^cam1,10\\.0\\.0\\.1,,,1,[A-Za-z0-9+/]{20,}={0,2}\\n$")
                                  : QStringLiteral("^cam1,10\\.0\\.0\\.1,,,0,secret\\n$");
    QVERIFY2(QRegularExpression(shape).match(first).hasMatch(), qPrintable(first));
    f.close();

    const task_list_file list = task_list_file::import_file(path);
    QCOMPARE(list.format, task_list_file::export_format);
    QCOMPARE(list.records.size(), devices.size());
    for (int i = 0; i < devices.size(); ++i) {
        QCOMPARE(list.records.at(i).password_encrypted, encrypt);
        const endpoint back = task_list_file::opened(list.records.at(i), delivery::decrypt_task_list_password);
        QCOMPARE(flat(back), flat(devices.at(i)));
    }
}

void test_task_list_file::export_to_unwritable_path()
{
    QTemporaryDir dir;
    QVERIFY(dir.isValid());
    const QVector<endpoint> devices { make("cam", "h", 1, "u", "p") };
    QCOMPARE(task_list_file::export_file(dir.path(), devices, false, {}), 0);
    QCOMPARE(task_list_file::export_file(dir.filePath(QStringLiteral("no/such/dir.csv")), devices, false, {}), 0);
}

void test_task_list_file::filters_data()
{
    QTest::addColumn<QList<int>>("kinds");
    QTest::addColumn<QString>("filter");
    QTest::newRow("csv") << QList<int> { 3 } << "CSV (*.csv)";
    QTest::newRow("configuration") << QList<int> { 4 } << "Configuration file (*.cfg)";
    QTest::newRow("scripts joined with ;;") << QList<int> { 0, 1, 2 }
                                            << "All supported scripts (*.script *.ovscript *.lua);;"
                                               "Orvane scripts (*.script *.ovscript);;Lua scripts (*.lua)";
    QTest::newRow("unknown kind is left out") << QList<int> { 3, 99 } << "CSV (*.csv)";
}

void test_task_list_file::filters()
{
    QFETCH(QList<int>, kinds);
    QFETCH(QString, filter);
    QVector<tasks::file_kind> typed;
    for (int k : kinds)
        typed << tasks::file_kind(k);
    QCOMPARE(tasks::file_filters(typed), filter);
}

QTEST_GUILESS_MAIN(test_task_list_file)
#include "test_task_list_file.moc"
