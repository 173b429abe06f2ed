#include "tests/support/test_network.h"

#include <QCoreApplication>
#include <QFile>
#include <QFileInfo>
#include <QJsonDocument>
#include <QProcessEnvironment>
#include <QRegularExpression>
#include <QStandardPaths>

#include <sys/stat.h>
#include <unistd.h>

#include "tests/support/devsim_harness.h"
#include "tests/support/self_run.h"

using self_run::run_test;
using self_run::run_to_end;

namespace
{

const QString name_start = QStringLiteral("orvt");
const QString inside_variable = QStringLiteral("ORVANE_TEST_NETNS");
const QString arguments_variable = QStringLiteral("ORVANE_TEST_ARGS");
const QString isolated_variable = QStringLiteral("ORVANE_TEST_ISOLATED");

constexpr quint32 base_v4 = (10u << 24) | (213u << 16);

QStringList words(const QString& text)
{
    return text.split(QLatin1Char(' '), Qt::SkipEmptyParts);
}

int ip_run(const QString& command, QString* output = nullptr)
{
    return run_to_end(QStringLiteral("ip"), words(command), output);
}

// "device:inode" of a namespace file; empty when it can't be read.
QString namespace_id(const QString& path)
{
    struct stat st {
    };
    if (::stat(QFile::encodeName(path).constData(), &st) != 0)
        return QString();
    return QStringLiteral("%1:%2").arg(st.st_dev).arg(st.st_ino);
}

void remove_stale()
{
    QString list;
    if (ip_run(QStringLiteral("netns list"), &list) != 0)
        return;
    static const QRegularExpression ours(QStringLiteral("^%1(\\d+)x\\S*").arg(name_start));
    for (const QString& line : list.split(QLatin1Char('\n'))) {
        const QRegularExpressionMatch m = ours.match(line.trimmed());
        // A namespace of a test process that still runs is that process's business.
        if (m.hasMatch() && !QFileInfo::exists(QStringLiteral("/proc/%1").arg(m.captured(1))))
            ip_run(QStringLiteral("netns del ") + m.captured(0));
    }
}

// Why `probe` can't run here; empty when it can.
QString cannot(const QString& probe)
{
    QString output;
    const QStringList args = words(probe);
    if (::geteuid() != 0)
        return QStringLiteral("network namespaces need root");
    if (QStandardPaths::findExecutable(args.at(0)).isEmpty() || QStandardPaths::findExecutable("ip").isEmpty())
        return QStringLiteral("no `%1` or `ip`").arg(args.at(0));
    if (run_to_end(args.at(0), args.mid(1), &output) != 0)
        return QStringLiteral("`%1` fails here: %2").arg(probe, output);
    return QString();
}

} // namespace

test_network::test_network(QObject* parent)
    : QObject(parent)
{
    static int serial = 0;
    m_prefix = QStringLiteral("%1%2x%3").arg(name_start).arg(QCoreApplication::applicationPid()).arg(serial++);
}

bool test_network::available(QString* why)
{
    // The probe makes a namespace, so it runs once.
    static const QString reason = [] {
        const QString probe = QStringLiteral("%1%2xprobe").arg(name_start).arg(QCoreApplication::applicationPid());
        const QString r = cannot(QStringLiteral("ip netns add ") + probe);
        ip_run(QStringLiteral("netns del ") + probe);
        return r;
    }();
    if (why)
        *why = reason;
    return reason.isEmpty();
}

bool test_network::build(int device_namespaces)
{
    if (!available(&m_error))
        return false;
    remove_stale();
    const QString br = m_prefix + QStringLiteral("br");
    QStringList ends { program_namespace() };
    for (int i = 0; i < device_namespaces; ++i)
        ends << device_namespace(i);

    // Every namespace is listed as soon as it exists, so a failure halfway removes it.
    bool good = true;
    for (const QString& ns : QStringList { br } + ends) {
        if (!(good = ip(words(QStringLiteral("netns add ") + ns))))
            break;
        m_namespaces << ns;
    }
    good = good && ip(words(QStringLiteral("-n %1 link add br0 type bridge").arg(br)))
        && ip(words(QStringLiteral("-n %1 link set br0 up").arg(br)));
    for (int i = 0; good && i < ends.size(); ++i) {
        const QString address = QHostAddress(base_v4 + 1 + quint32(i)).toString(); // the program's is .1
        // The bridge's end first, its peer made straight into the end's namespace.
        for (QString command : QStringList { "-n BR link add vI type veth peer name eth0 netns NS",
                 "-n BR link set vI master br0 up", "-n NS link set lo up",
                 "-n NS addr add ADDR/16 broadcast + dev eth0", "-n NS link set eth0 up",
                 "-n NS route add default dev eth0", "-n NS route add broadcast 255.255.255.255 dev eth0 src ADDR" }) {
            command.replace(QLatin1String("BR"), br).replace(QLatin1String("NS"), ends.at(i));
            command.replace(QLatin1String("vI"), QStringLiteral("v%1").arg(i)).replace(QLatin1String("ADDR"), address);
            if (!(good = ip(words(command))))
                break;
        }
    }
    if (!good) {
        const QString why = m_error;
        tear_down();
        m_error = why;
    }
    return good;
}

void test_network::tear_down()
{
    // The bridge's namespace goes last; deleting the others takes their veth pairs along.
    while (!m_namespaces.isEmpty()) {
        const QString ns = m_namespaces.takeLast();
        QString output;
        if (ip_run(QStringLiteral("netns del ") + ns, &output) != 0)
            qWarning("test_network: can't delete namespace %s: %s", qPrintable(ns), qPrintable(output));
    }
}

QHostAddress test_network::device_address(int index, int device)
{
    return QHostAddress(base_v4 + (quint32(16 * (index + 1)) << 8) + 1 + quint32(device));
}

bool test_network::add_addresses(const QString& ns, const QList<QHostAddress>& addresses)
{
    // One `ip` for all: hundreds of devices would otherwise take seconds.
    QByteArray batch;
    for (const QHostAddress& a : addresses)
        batch += QStringLiteral("addr add %1/16 dev eth0\n").arg(a.toString()).toUtf8();
    return ip({ QStringLiteral("-n"), ns, QStringLiteral("-batch"), QStringLiteral("-") }, batch);
}

bool test_network::run(
    const QString& ns, const QString& program, const QStringList& args, QString* output, int timeout_ms)
{
    QString text;
    const QStringList exec { "netns", "exec", ns, program };
    const int code = run_to_end(QStringLiteral("ip"), exec + args, &text, timeout_ms);
    if (output)
        *output = text;
    if (code != 0)
        m_error = QStringLiteral("%1 in %2: %3").arg(program, ns, text);
    return code == 0;
}

bool test_network::start_devices(
    devsim_harness& sim, int count, const QJsonObject& defaults, const QJsonArray& devices, int index)
{
    QList<QHostAddress> addresses;
    for (int i = 0; i < count; ++i)
        addresses << device_address(index, i);
    if (!add_addresses(device_namespace(index), addresses))
        return false;
    sim.set_namespace(device_namespace(index));
    sim.set_base_address(device_address(index, 0));
    if (!sim.start(count, defaults, devices)) {
        m_error = sim.error();
        return false;
    }
    return true;
}

bool test_network::run_self(const QString& ns, const QString& function, const QString& tag,
    const QJsonObject& arguments, QString* output, int timeout_ms)
{
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.insert(inside_variable, ns);
    env.insert(arguments_variable, QString::fromUtf8(QJsonDocument(arguments).toJson(QJsonDocument::Compact)));
    return run_test(QStringLiteral("ip"), { QStringLiteral("netns"), QStringLiteral("exec"), ns }, function, tag, env,
        output, timeout_ms);
}

QString test_network::inside()
{
    const QString ns = qEnvironmentVariable(qPrintable(inside_variable));
    // Whatever the environment says, broadcasting needs the namespace itself.
    return in_named_namespace(ns) ? ns : QString();
}

QJsonObject test_network::inside_arguments()
{
    return QJsonDocument::fromJson(qgetenv(qPrintable(arguments_variable))).object();
}

bool test_network::in_named_namespace(const QString& name)
{
    if (name.isEmpty() || name.contains(QLatin1Char('/')) || name.startsWith(QLatin1Char('.')))
        return false;
    const QString own = namespace_id(QStringLiteral("/proc/self/ns/net"));
    return !own.isEmpty() && own == namespace_id(QStringLiteral("/run/netns/") + name);
}

bool test_network::isolation_available(QString* why)
{
    static const QString reason = cannot(QStringLiteral("unshare -n true"));
    if (why)
        *why = reason;
    return reason.isEmpty();
}

bool test_network::run_isolated(const QString& function, const QString& tag, QString* output, int timeout_ms)
{
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    // The child compares its namespace with this one, which it must not be in.
    env.insert(isolated_variable, namespace_id(QStringLiteral("/proc/self/ns/net")));
    // The set-up runs in the new namespace only: it is the shell that unshare starts there.
    const QString setup = QStringLiteral("ip link set lo up && ip route add broadcast 255.255.255.255 dev lo src "
                                         "127.0.0.1 && exec \"$@\"");
    return run_test(QStringLiteral("unshare"),
        { QStringLiteral("-n"), QStringLiteral("--"), QStringLiteral("sh"), QStringLiteral("-c"), setup,
            QStringLiteral("sh") },
        function, tag, env, output, timeout_ms);
}

bool test_network::isolated()
{
    const QString outer = qEnvironmentVariable(qPrintable(isolated_variable));
    const QString own = namespace_id(QStringLiteral("/proc/self/ns/net"));
    // Process 1's namespace, where it can be read, is the machine's own.
    return !outer.isEmpty() && !own.isEmpty() && own != outer && own != namespace_id(QStringLiteral("/proc/1/ns/net"));
}

bool test_network::ip(const QStringList& args, const QByteArray& input)
{
    QString output;
    if (run_to_end(QStringLiteral("ip"), args, &output, 10000, {}, input) == 0)
        return true;
    m_error = QStringLiteral("ip %1: %2").arg(args.join(QLatin1Char(' ')), output);
    return false;
}
