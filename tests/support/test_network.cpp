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

namespace
{

const QString name_start = QStringLiteral("orvt");
const QString bridge = QStringLiteral("br0");
const QString inside_variable = QStringLiteral("ORVANE_TEST_NETNS");
const QString arguments_variable = QStringLiteral("ORVANE_TEST_ARGS");
const QString isolated_variable = QStringLiteral("ORVANE_TEST_ISOLATED");
constexpr int ip_timeout_ms = 10000;
constexpr int prefix_length = 16;

quint32 base_v4()
{
    return QHostAddress(QStringLiteral("10.213.0.0")).toIPv4Address();
}

// Passed when every test of the run passed and none was skipped.
bool passed(const QProcess& process, const QString& output)
{
    static const QRegularExpression totals(QStringLiteral("Totals: \\d+ passed, 0 failed, 0 skipped"));
    return process.exitStatus() == QProcess::NormalExit && process.exitCode() == 0 && totals.match(output).hasMatch();
}

QString test_selector(const QString& function, const QString& tag)
{
    return tag.isEmpty() ? function : function + QLatin1Char(':') + tag;
}

} // namespace

test_network::test_network(QObject* parent)
    : QObject(parent)
{
    static int serial = 0;
    m_prefix = QStringLiteral("%1%2x%3").arg(name_start).arg(QCoreApplication::applicationPid()).arg(serial++);
}

test_network::~test_network()
{
    tear_down();
}

bool test_network::available(QString* why)
{
    static int known = -1; // the probe makes a namespace, so it runs once
    static QString reason;
    if (known < 0) {
        if (::geteuid() != 0) {
            reason = QStringLiteral("network namespaces need root");
        } else if (QStandardPaths::findExecutable(QStringLiteral("ip")).isEmpty()) {
            reason = QStringLiteral("no `ip` (iproute2)");
        } else {
            const QString probe = QStringLiteral("%1%2xprobe").arg(name_start).arg(QCoreApplication::applicationPid());
            QProcess p;
            p.start(QStringLiteral("ip"), { QStringLiteral("netns"), QStringLiteral("add"), probe });
            const bool made = p.waitForFinished(ip_timeout_ms) && p.exitCode() == 0;
            if (made) {
                p.start(QStringLiteral("ip"), { QStringLiteral("netns"), QStringLiteral("del"), probe });
                p.waitForFinished(ip_timeout_ms);
            } else {
                reason
                    = QStringLiteral("`ip netns add` fails here: %1").arg(QString::fromUtf8(p.readAllStandardError()));
            }
        }
        known = reason.isEmpty() ? 1 : 0;
    }
    if (why)
        *why = reason;
    return known == 1;
}

bool test_network::build(int device_namespaces)
{
    m_error.clear();
    if (built()) {
        m_error = QStringLiteral("already built");
        return false;
    }
    if (device_namespaces < 1 || device_namespaces > 8) {
        m_error = QStringLiteral("1 to 8 device namespaces");
        return false;
    }
    if (!available(&m_error))
        return false;
    remove_stale();

    const QString br = m_prefix + QStringLiteral("br");
    QStringList ends { program_namespace() };
    m_device_namespaces = device_namespaces;
    for (int i = 0; i < device_namespaces; ++i)
        ends << device_namespace(i);

    // Every namespace is listed as soon as it exists, so a failure halfway removes it.
    for (const QString& ns : QStringList { br } + ends) {
        if (!ip({ QStringLiteral("netns"), QStringLiteral("add"), ns })) {
            tear_down();
            return false;
        }
        m_namespaces << ns;
    }

    bool good = ip({ QStringLiteral("-n"), br, QStringLiteral("link"), QStringLiteral("add"), bridge,
                    QStringLiteral("type"), QStringLiteral("bridge") })
        && ip(
            { QStringLiteral("-n"), br, QStringLiteral("link"), QStringLiteral("set"), bridge, QStringLiteral("up") });
    for (int i = 0; good && i < ends.size(); ++i) {
        const QString ns = ends.at(i);
        const QString port = QStringLiteral("v%1").arg(i);
        const QHostAddress address = i == 0 ? program_address() : device_host_address(i - 1);
        const QString cidr = QStringLiteral("%1/%2").arg(address.toString()).arg(prefix_length);
        // Both ends are made inside the namespaces: the bridge's side first, its peer
        // straight into the end's namespace.
        good = ip({ QStringLiteral("-n"), br, QStringLiteral("link"), QStringLiteral("add"), port,
                   QStringLiteral("type"), QStringLiteral("veth"), QStringLiteral("peer"), QStringLiteral("name"),
                   QStringLiteral("eth0"), QStringLiteral("netns"), ns })
            && ip({ QStringLiteral("-n"), br, QStringLiteral("link"), QStringLiteral("set"), port,
                QStringLiteral("master"), bridge, QStringLiteral("up") })
            && ip({ QStringLiteral("-n"), ns, QStringLiteral("link"), QStringLiteral("set"), QStringLiteral("lo"),
                QStringLiteral("up") })
            && ip({ QStringLiteral("-n"), ns, QStringLiteral("addr"), QStringLiteral("add"), cidr,
                QStringLiteral("broadcast"), QStringLiteral("+"), QStringLiteral("dev"), QStringLiteral("eth0") })
            && ip({ QStringLiteral("-n"), ns, QStringLiteral("link"), QStringLiteral("set"), QStringLiteral("eth0"),
                QStringLiteral("up") })
            && ip({ QStringLiteral("-n"), ns, QStringLiteral("route"), QStringLiteral("add"), QStringLiteral("default"),
                QStringLiteral("dev"), QStringLiteral("eth0") })
            && ip({ QStringLiteral("-n"), ns, QStringLiteral("route"), QStringLiteral("add"),
                QStringLiteral("broadcast"), QStringLiteral("255.255.255.255"), QStringLiteral("dev"),
                QStringLiteral("eth0"), QStringLiteral("src"), address.toString() });
    }
    if (!good) {
        const QString why = m_error;
        tear_down();
        m_error = why;
        return false;
    }
    return true;
}

void test_network::tear_down()
{
    // The bridge's namespace goes last; deleting the others takes their veth pairs along.
    while (!m_namespaces.isEmpty()) {
        const QString ns = m_namespaces.takeLast();
        QProcess p;
        p.start(QStringLiteral("ip"), { QStringLiteral("netns"), QStringLiteral("del"), ns });
        if (!p.waitForFinished(ip_timeout_ms) || p.exitCode() != 0)
            qWarning(
                "test_network: can't delete namespace %s: %s", qPrintable(ns), p.readAllStandardError().constData());
    }
    m_device_namespaces = 0;
}

QString test_network::program_namespace() const
{
    return m_prefix + QStringLiteral("prog");
}

QString test_network::device_namespace(int index) const
{
    return m_prefix + QStringLiteral("dev%1").arg(index);
}

QHostAddress test_network::program_address()
{
    return QHostAddress(base_v4() + 1);
}

QHostAddress test_network::device_host_address(int index)
{
    return QHostAddress(base_v4() + 2 + quint32(index));
}

QHostAddress test_network::device_address(int index, int device)
{
    return QHostAddress(base_v4() + (quint32(16 * (index + 1)) << 8) + 1 + quint32(device));
}

bool test_network::add_addresses(const QString& ns, const QList<QHostAddress>& addresses)
{
    if (!m_namespaces.contains(ns)) {
        m_error = QStringLiteral("%1 isn't a namespace of this network").arg(ns);
        return false;
    }
    // One `ip` for all: hundreds of devices would otherwise take seconds.
    QByteArray batch;
    for (const QHostAddress& a : addresses)
        batch += QStringLiteral("addr add %1/%2 dev eth0\n").arg(a.toString()).arg(prefix_length).toUtf8();
    return ip({ QStringLiteral("-n"), ns, QStringLiteral("-batch"), QStringLiteral("-") }, batch);
}

void test_network::start(QProcess& process, const QString& ns, const QString& program, const QStringList& args)
{
    process.start(
        QStringLiteral("ip"), QStringList { QStringLiteral("netns"), QStringLiteral("exec"), ns, program } + args);
}

bool test_network::run(
    const QString& ns, const QString& program, const QStringList& args, QString* output, int timeout_ms)
{
    QProcess p;
    p.setProcessChannelMode(QProcess::MergedChannels);
    start(p, ns, program, args);
    const bool finished = p.waitForFinished(timeout_ms);
    if (!finished) {
        p.kill();
        p.waitForFinished(2000);
    }
    const QString text = QString::fromUtf8(p.readAll());
    if (output)
        *output = text;
    if (!finished || p.exitStatus() != QProcess::NormalExit || p.exitCode() != 0) {
        m_error = QStringLiteral("%1 in %2: %3").arg(program, ns, finished ? text : QStringLiteral("timed out"));
        return false;
    }
    return true;
}

bool test_network::start_devices(
    devsim_harness& sim, int count, const QJsonObject& defaults, const QJsonArray& devices, int index)
{
    if (index < 0 || index >= m_device_namespaces) {
        m_error = QStringLiteral("no device namespace %1").arg(index);
        return false;
    }
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
    QProcess p;
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.insert(inside_variable, ns);
    env.insert(arguments_variable, QString::fromUtf8(QJsonDocument(arguments).toJson(QJsonDocument::Compact)));
    p.setProcessEnvironment(env);
    start(p, ns, QCoreApplication::applicationFilePath(), { test_selector(function, tag) });
    return run_test_process(p, output, timeout_ms);
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

bool test_network::isolation_available(QString* why)
{
    static int known = -1;
    static QString reason;
    if (known < 0) {
        if (::geteuid() != 0) {
            reason = QStringLiteral("a network namespace of its own needs root");
        } else if (QStandardPaths::findExecutable(QStringLiteral("unshare")).isEmpty()
            || QStandardPaths::findExecutable(QStringLiteral("ip")).isEmpty()) {
            reason = QStringLiteral("no `unshare` or `ip`");
        } else {
            QProcess p;
            p.start(QStringLiteral("unshare"), { QStringLiteral("-n"), QStringLiteral("true") });
            if (!p.waitForFinished(ip_timeout_ms) || p.exitCode() != 0)
                reason = QStringLiteral("`unshare -n` fails here: %1").arg(QString::fromUtf8(p.readAllStandardError()));
        }
        known = reason.isEmpty() ? 1 : 0;
    }
    if (why)
        *why = reason;
    return known == 1;
}

bool test_network::run_isolated(const QString& function, const QString& tag, QString* output, int timeout_ms)
{
    QProcess p;
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    // The child compares its namespace with this one, which it must not be in.
    env.insert(isolated_variable, namespace_id(QStringLiteral("/proc/self/ns/net")));
    p.setProcessEnvironment(env);
    // The set-up runs in the new namespace only: it is the shell that unshare starts there.
    const QString setup = QStringLiteral("ip link set lo up && ip route add broadcast 255.255.255.255 dev lo src "
                                         "127.0.0.1 && exec \"$@\"");
    p.start(QStringLiteral("unshare"),
        { QStringLiteral("-n"), QStringLiteral("--"), QStringLiteral("sh"), QStringLiteral("-c"), setup,
            QStringLiteral("sh"), QCoreApplication::applicationFilePath(), test_selector(function, tag) });
    return run_test_process(p, output, timeout_ms);
}

bool test_network::isolated()
{
    const QString outer = qEnvironmentVariable(qPrintable(isolated_variable));
    const QString own = namespace_id(QStringLiteral("/proc/self/ns/net"));
    // Process 1's namespace, where it can be read, is the machine's own.
    const QString first = namespace_id(QStringLiteral("/proc/1/ns/net"));
    return !outer.isEmpty() && !own.isEmpty() && own != outer && own != first;
}

bool test_network::ip(const QStringList& args, const QByteArray& input)
{
    QProcess p;
    p.setProcessChannelMode(QProcess::MergedChannels);
    p.start(QStringLiteral("ip"), args);
    if (!input.isEmpty())
        p.write(input);
    p.closeWriteChannel();
    if (!p.waitForFinished(ip_timeout_ms)) {
        p.kill();
        p.waitForFinished(2000);
        m_error = QStringLiteral("ip %1: timed out").arg(args.join(QLatin1Char(' ')));
        return false;
    }
    if (p.exitStatus() != QProcess::NormalExit || p.exitCode() != 0) {
        m_error
            = QStringLiteral("ip %1: %2").arg(args.join(QLatin1Char(' ')), QString::fromUtf8(p.readAll()).trimmed());
        return false;
    }
    return true;
}

void test_network::remove_stale()
{
    QProcess p;
    p.start(QStringLiteral("ip"), { QStringLiteral("netns"), QStringLiteral("list") });
    if (!p.waitForFinished(ip_timeout_ms))
        return;
    static const QRegularExpression ours(QStringLiteral("^%1(\\d+)x\\S*").arg(name_start));
    const QStringList lines = QString::fromUtf8(p.readAllStandardOutput()).split(QLatin1Char('\n'));
    for (const QString& line : lines) {
        const QRegularExpressionMatch m = ours.match(line.trimmed());
        // A namespace of a test process that still runs is that process's business.
        if (!m.hasMatch() || QFileInfo::exists(QStringLiteral("/proc/%1").arg(m.captured(1))))
            continue;
        const QString ns = m.captured(0);
        qInfo("test_network: removing namespace %s left by an earlier run", qPrintable(ns));
        QProcess del;
        del.start(QStringLiteral("ip"), { QStringLiteral("netns"), QStringLiteral("del"), ns });
        del.waitForFinished(ip_timeout_ms);
    }
}

QString test_network::namespace_id(const QString& path)
{
    struct stat st {
    };
    if (::stat(QFile::encodeName(path).constData(), &st) != 0)
        return QString();
    return QStringLiteral("%1:%2").arg(st.st_dev).arg(st.st_ino);
}

bool test_network::in_named_namespace(const QString& name)
{
    if (name.isEmpty() || name.contains(QLatin1Char('/')) || name.startsWith(QLatin1Char('.')))
        return false;
    const QString own = namespace_id(QStringLiteral("/proc/self/ns/net"));
    const QString named = namespace_id(QStringLiteral("/run/netns/") + name);
    return !own.isEmpty() && own == named;
}

bool test_network::run_test_process(QProcess& process, QString* output, int timeout_ms)
{
    process.setProcessChannelMode(QProcess::MergedChannels);
    if (!process.waitForStarted(10000)) {
        if (output)
            *output = process.errorString();
        return false;
    }
    const bool finished = process.waitForFinished(timeout_ms);
    if (!finished) {
        process.kill();
        process.waitForFinished(2000);
    }
    QString text = QString::fromUtf8(process.readAll());
    if (!finished)
        text += QStringLiteral("\n(killed after %1 ms)").arg(timeout_ms);
    if (output)
        *output = text;
    return finished && passed(process, text);
}
