#include "tests/support/devsim_harness.h"

#include <QRandomGenerator>

namespace
{

// The simulator's exit code for an address or port it couldn't bind.
constexpr int exit_cannot_listen = 3;
constexpr int block_tries = 5;

} // namespace

bool devsim_harness::start(int count, const QJsonObject& defaults, const QJsonArray& devices, int timeout_ms)
{
    m_error.clear();
    if (running() || !m_dir.isValid()) {
        m_error = running() ? QStringLiteral("already running") : QStringLiteral("no temporary folder");
        return false;
    }
    QJsonObject config { { "count", count }, { "defaults", defaults }, { "devices", devices } };
    const bool fixed = !m_base.isNull();
    auto* random = QRandomGenerator::global();
    for (int i = 0; i < (fixed ? 1 : block_tries); ++i) {
        const QString block = QStringLiteral("127.%1.%2.2").arg(random->bounded(1, 255)).arg(random->bounded(0, 255));
        config.insert("base", fixed ? m_base.toString() : block);
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
    QString program = binary(QStringLiteral("devsim/orvane-devsim"));
    if (!write_file(path, QJsonDocument(config).toJson()) || program.isEmpty())
        return attempt::failed;
    QStringList args { "--config", path, "--control-port", "0", "--exit-on-stdin-eof" };
    m_channel = m_namespace.isEmpty() ? static_cast<QIODevice*>(&m_control) : &m_local_control;
    if (!m_namespace.isEmpty()) {
        // `ip netns exec` becomes the simulator (exec, no fork), so the process is its own.
        args = QStringList { "netns", "exec", m_namespace, program } + args
            + QStringList { "--netns", m_namespace, "--control-socket", control_socket() };
        program = QStringLiteral("ip");
    }
    static const QRegularExpression ready(QStringLiteral("^ready control_port=(\\d+) devices=(\\d+)"));
    const QRegularExpressionMatch m = launch(program, args, ready, timeout_ms);
    if (!m.hasMatch()) {
        const bool taken = !running() && m_process.exitStatus() == QProcess::NormalExit
            && m_process.exitCode() == exit_cannot_listen;
        return taken ? attempt::address_taken : attempt::failed;
    }
    if (m_namespace.isEmpty())
        m_control.connectToHost(QHostAddress::LocalHost, quint16(m.captured(1).toUInt()));
    else
        m_local_control.connectToServer(control_socket());
    const bool connected = m_namespace.isEmpty() ? m_control.waitForConnected(timeout_ms)
                                                 : m_local_control.waitForConnected(timeout_ms);
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
    m_channel = &m_local_control;
    m_local_control.connectToServer(control_socket);
    if (!m_local_control.waitForConnected(timeout_ms)) {
        m_error = QStringLiteral("control channel %1: %2").arg(control_socket, m_local_control.errorString());
        return false;
    }
    const QJsonObject answer = command(QJsonObject { { "cmd", "list" } }, timeout_ms);
    m_count = answer.value("devices").toArray().size();
    return answer.value("ok").toBool();
}

QIODevice* devsim_harness::channel()
{
    const bool open = m_channel == &m_control ? m_control.state() == QAbstractSocket::ConnectedState
                                              : m_local_control.state() == QLocalSocket::ConnectedState;
    return open ? m_channel : nullptr;
}
