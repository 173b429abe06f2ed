#include "tests/support/devsim_harness.h"

#include <QRandomGenerator>

namespace
{

// The simulator's exit code for an address or port it couldn't bind.
constexpr int exit_cannot_listen = 3;
constexpr int block_tries = 5;

} // namespace

devsim_harness::devsim_harness(QObject* parent)
    : QObject(parent)
{
}

devsim_harness::~devsim_harness()
{
    stop(2000);
}

bool devsim_harness::start(int count, const QJsonObject& defaults, const QJsonArray& devices, int timeout_ms)
{
    m_error.clear();
    if (running()) {
        m_error = QStringLiteral("already running");
        return false;
    }
    if (!m_dir.isValid()) {
        m_error = QStringLiteral("no temporary folder");
        return false;
    }
    QJsonObject config { { "count", count }, { "defaults", defaults }, { "devices", devices } };
    const bool fixed = !m_base.isNull();
    for (int i = 0; i < (fixed ? 1 : block_tries); ++i) {
        auto* random = QRandomGenerator::global();
        config.insert("base",
            fixed ? m_base.toString()
                  : QStringLiteral("127.%1.%2.2").arg(random->bounded(1, 255)).arg(random->bounded(0, 255)));
        const attempt a = start_once(config, timeout_ms);
        if (a == attempt::ready)
            m_count = count;
        if (a != attempt::address_taken)
            return a == attempt::ready;
    }
    m_error = fixed ? QStringLiteral("simulator can't listen from %1: %2").arg(m_base.toString(), log())
                    : QStringLiteral("no free address block after %1 tries").arg(block_tries);
    return false;
}

devsim_harness::attempt devsim_harness::start_once(const QJsonObject& config, int timeout_ms)
{
    const QString path = m_dir.filePath(QStringLiteral("devices.json"));
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly | QIODevice::Truncate) || file.write(QJsonDocument(config).toJson()) < 0) {
        m_error = QStringLiteral("can't write %1").arg(path);
        return attempt::failed;
    }
    file.close();
    const QString program = binary(QStringLiteral("devsim/orvane-devsim"));
    if (program.isEmpty())
        return attempt::failed;

    QStringList args { QStringLiteral("--config"), path, QStringLiteral("--control-port"), QStringLiteral("0"),
        QStringLiteral("--exit-on-stdin-eof") };
    m_channel = m_namespace.isEmpty() ? static_cast<QIODevice*>(&m_control) : &m_local_control;
    QRegularExpressionMatch m;
    static const QRegularExpression ready(QStringLiteral("^ready control_port=(\\d+) devices=(\\d+)"));
    if (m_namespace.isEmpty()) {
        m = launch(program, args, ready, timeout_ms);
    } else {
        args += { QStringLiteral("--netns"), m_namespace, QStringLiteral("--control-socket"), control_socket() };
        // `ip netns exec` becomes the simulator (exec, no fork), so the process is its own.
        m = launch(QStringLiteral("ip"), QStringList { QStringLiteral("netns"), QStringLiteral("exec"), m_namespace, program } + args,
            ready, timeout_ms);
    }
    if (!m.hasMatch()) {
        const bool taken = !running() && m_process.exitStatus() == QProcess::NormalExit
            && m_process.exitCode() == exit_cannot_listen;
        return taken ? attempt::address_taken : attempt::failed;
    }
    bool connected = false;
    if (m_namespace.isEmpty()) {
        m_control.connectToHost(QHostAddress::LocalHost, quint16(m.captured(1).toUInt()));
        connected = m_control.waitForConnected(timeout_ms);
    } else {
        m_local_control.connectToServer(control_socket());
        connected = m_local_control.waitForConnected(timeout_ms);
    }
    if (!connected) {
        m_error = QStringLiteral("control channel: %1").arg(m_channel->errorString());
        kill_process();
        return attempt::failed;
    }
    return attempt::ready;
}

bool devsim_harness::attach(const QString& control_socket, int timeout_ms)
{
    m_error.clear();
    if (running() || channel()) {
        m_error = QStringLiteral("already running");
        return false;
    }
    m_channel = &m_local_control;
    m_local_control.connectToServer(control_socket);
    if (!m_local_control.waitForConnected(timeout_ms)) {
        m_error = QStringLiteral("control channel %1: %2").arg(control_socket, m_local_control.errorString());
        return false;
    }
    const QJsonObject answer = command(QJsonObject { { "cmd", "list" } }, timeout_ms);
    if (!answer.value("ok").toBool()) {
        m_local_control.abort();
        return false;
    }
    m_count = answer.value("devices").toArray().size();
    return true;
}

QString devsim_harness::control_socket() const
{
    return m_namespace.isEmpty() ? QString() : m_dir.filePath(QStringLiteral("control.sock"));
}

QIODevice* devsim_harness::channel()
{
    const bool open = m_channel == &m_control ? m_control.state() == QAbstractSocket::ConnectedState
                                              : m_local_control.state() == QLocalSocket::ConnectedState;
    return open ? m_channel : nullptr;
}

void devsim_harness::close_channel()
{
    m_control.abort();
    m_local_control.abort();
}

QJsonObject devsim_harness::device_command(const QString& cmd, int device, QJsonObject extra)
{
    extra.insert("cmd", cmd);
    extra.insert("device", device == all ? QJsonValue(QStringLiteral("*")) : QJsonValue(device));
    return command(extra);
}

QHostAddress devsim_harness::address(int device)
{
    return QHostAddress(summary(device).value("address").toString());
}

quint16 devsim_harness::port(int device)
{
    return quint16(summary(device).value("port").toInt());
}

QJsonObject devsim_harness::summary(int device)
{
    return command(QJsonObject { { "cmd", "list" } }).value("devices").toArray().at(device).toObject();
}

QJsonArray devsim_harness::requests(int device, bool clear)
{
    return device_command(QStringLiteral("requests"), device, { { "clear", clear } }).value("requests").toArray();
}

QJsonArray devsim_harness::requests_of(int device, int message_id)
{
    QJsonArray out;
    for (const QJsonValue& r : requests(device)) {
        if (r.toObject().value("id").toInt() == message_id)
            out.append(r);
    }
    return out;
}

QJsonObject devsim_harness::state(int device)
{
    return device_command(QStringLiteral("get_state"), device).value("state").toObject();
}

QJsonObject devsim_harness::faults(int device)
{
    return device_command(QStringLiteral("get_faults"), device).value("faults").toObject();
}

bool devsim_harness::set_faults(int device, const QJsonObject& faults)
{
    return device_command(QStringLiteral("set_faults"), device, { { "faults", faults } }).value("ok").toBool();
}

bool devsim_harness::clear_faults(int device)
{
    return device_command(QStringLiteral("clear_faults"), device).value("ok").toBool();
}

bool devsim_harness::reboot(int device)
{
    return device_command(QStringLiteral("reboot"), device).value("ok").toBool();
}
