#include "tests/support/devsim_harness.h"

#include <QCoreApplication>
#include <QDeadlineTimer>
#include <QFile>
#include <QJsonDocument>
#include <QRandomGenerator>
#include <QRegularExpression>
#include <QTest>

namespace
{

// The simulator's exit code for an address or port it couldn't bind.
constexpr int exit_cannot_listen = 3;
constexpr int block_tries = 5;

QString binary_path()
{
    const QString dir = qEnvironmentVariable("ORVANE_TOOLS_DIR");
    return dir.isEmpty() ? QString() : dir + QStringLiteral("/devsim/orvane-devsim");
}

QJsonObject failure(const QString& why)
{
    return QJsonObject { { "ok", false }, { "error", why } };
}

} // namespace

devsim_harness::devsim_harness(QObject* parent)
    : QObject(parent)
{
    connect(
        &m_process, &QProcess::readyReadStandardError, this, [this] { m_stderr += m_process.readAllStandardError(); });
}

devsim_harness::~devsim_harness()
{
    m_control.abort();
    m_local_control.abort();
    if (running())
        stop(2000);
}

bool devsim_harness::start(int count, const QJsonObject& defaults, const QJsonArray& devices, int timeout_ms)
{
    m_error.clear();
    if (running()) {
        m_error = QStringLiteral("already running");
        return false;
    }
    if (binary_path().isEmpty() || !QFile::exists(binary_path())) {
        m_error = QStringLiteral("no simulator at \"%1\" (is ORVANE_TOOLS_DIR set?)").arg(binary_path());
        return false;
    }
    if (!m_dir.isValid()) {
        m_error = QStringLiteral("no temporary folder");
        return false;
    }

    QJsonObject config { { "count", count }, { "defaults", defaults }, { "devices", devices } };
    if (!m_base.isNull()) {
        config.insert("base", m_base.toString());
        const attempt a = start_once(config, timeout_ms);
        if (a == attempt::ready)
            m_count = count;
        else if (a == attempt::address_taken)
            m_error = QStringLiteral("simulator can't listen from %1: %2").arg(m_base.toString(), log());
        return a == attempt::ready;
    }
    for (int i = 0; i < block_tries; ++i) {
        auto* random = QRandomGenerator::global();
        config.insert("base", QStringLiteral("127.%1.%2.2").arg(random->bounded(1, 255)).arg(random->bounded(0, 255)));
        const attempt a = start_once(config, timeout_ms);
        if (a == attempt::ready) {
            m_count = count;
            return true;
        }
        if (a == attempt::failed)
            return false;
    }
    m_error = QStringLiteral("no free address block after %1 tries").arg(block_tries);
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

    m_stderr.clear();
    m_process.setReadChannel(QProcess::StandardOutput);
    QStringList args { QStringLiteral("--config"), path, QStringLiteral("--control-port"), QStringLiteral("0"),
        QStringLiteral("--exit-on-stdin-eof") };
    args += m_extra_arguments;
    const QString socket_path = control_socket();
    if (m_namespace.isEmpty()) {
        m_channel = &m_control;
        m_process.start(binary_path(), args);
    } else {
        m_channel = &m_local_control;
        args += { QStringLiteral("--netns"), m_namespace, QStringLiteral("--control-socket"), socket_path };
        // `ip netns exec` becomes the simulator (exec, no fork), so the process is its own.
        m_process.start(QStringLiteral("ip"),
            QStringList { QStringLiteral("netns"), QStringLiteral("exec"), m_namespace, binary_path() } + args);
    }
    if (!m_process.waitForStarted(timeout_ms)) {
        m_error = QStringLiteral("simulator didn't start: %1").arg(m_process.errorString());
        return attempt::failed;
    }

    static const QRegularExpression ready(QStringLiteral("^ready control_port=(\\d+) devices=(\\d+)"));
    QDeadlineTimer deadline(timeout_ms);
    while (!deadline.hasExpired()) {
        if (m_process.canReadLine()) {
            const QString line = QString::fromUtf8(m_process.readLine()).trimmed();
            const QRegularExpressionMatch m = ready.match(line);
            if (!m.hasMatch())
                continue;
            m_control_port = quint16(m.captured(1).toUInt());
            const int wait_ms = int(qMax<qint64>(deadline.remainingTime(), 100));
            bool connected = false;
            if (m_namespace.isEmpty()) {
                m_control.connectToHost(QHostAddress::LocalHost, m_control_port);
                connected = m_control.waitForConnected(wait_ms);
            } else {
                m_local_control.connectToServer(socket_path);
                connected = m_local_control.waitForConnected(wait_ms);
            }
            if (!connected) {
                m_error = QStringLiteral("control channel: %1").arg(m_channel->errorString());
                kill_process();
                return attempt::failed;
            }
            return attempt::ready;
        }
        if (m_process.state() == QProcess::NotRunning) {
            m_stderr += m_process.readAllStandardError();
            if (m_process.exitStatus() == QProcess::NormalExit && m_process.exitCode() == exit_cannot_listen)
                return attempt::address_taken;
            m_error = QStringLiteral("simulator ended before it was ready: %1").arg(QString::fromUtf8(m_stderr));
            return attempt::failed;
        }
        m_process.waitForReadyRead(50);
    }
    m_error = QStringLiteral("simulator not ready after %1 ms").arg(timeout_ms);
    kill_process();
    return attempt::failed;
}

bool devsim_harness::attach(const QString& control_socket, int timeout_ms)
{
    m_error.clear();
    if (running() || channel_open()) {
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

bool devsim_harness::stop(int timeout_ms)
{
    m_control.abort();
    m_local_control.abort();
    if (!running())
        return false;
    m_process.closeWriteChannel();
    if (m_process.waitForFinished(timeout_ms)) {
        m_stderr += m_process.readAllStandardError();
        return m_process.exitStatus() == QProcess::NormalExit && m_process.exitCode() == 0;
    }
    m_error = QStringLiteral("simulator didn't stop in %1 ms").arg(timeout_ms);
    kill_process();
    return false;
}

void devsim_harness::kill_process()
{
    m_control.abort();
    m_local_control.abort();
    m_process.kill();
    m_process.waitForFinished(2000);
}

QString devsim_harness::log()
{
    // The pipe is read by the event loop.
    QCoreApplication::processEvents();
    m_stderr += m_process.readAllStandardError();
    return QString::fromUtf8(m_stderr);
}

bool devsim_harness::channel_open() const
{
    if (m_channel == &m_control)
        return m_control.state() == QAbstractSocket::ConnectedState;
    return m_local_control.state() == QLocalSocket::ConnectedState;
}

QJsonObject devsim_harness::command(const QJsonObject& cmd, int timeout_ms)
{
    if (!channel_open())
        return failure(QStringLiteral("control channel isn't connected"));
    m_channel->write(QJsonDocument(cmd).toJson(QJsonDocument::Compact) + '\n');
    QDeadlineTimer deadline(timeout_ms);
    while (!m_channel->canReadLine()) {
        if (deadline.hasExpired() || !channel_open())
            return failure(QStringLiteral("no answer to %1").arg(cmd.value("cmd").toString()));
        m_channel->waitForReadyRead(int(qBound<qint64>(1, deadline.remainingTime(), 100)));
    }
    const QJsonDocument doc = QJsonDocument::fromJson(m_channel->readLine());
    if (!doc.isObject())
        return failure(QStringLiteral("answer isn't JSON"));
    const QJsonObject answer = doc.object();
    if (!answer.value("ok").toBool())
        m_error = answer.value("error").toString();
    return answer;
}

QJsonObject devsim_harness::device_command(const QString& cmd, int device, QJsonObject extra)
{
    extra.insert("cmd", cmd);
    extra.insert("device", device == all ? QJsonValue(QStringLiteral("*")) : QJsonValue(device));
    return command(extra);
}

QJsonObject devsim_harness::summary(int device)
{
    const QJsonArray list = command(QJsonObject { { "cmd", "list" } }).value("devices").toArray();
    return list.at(device).toObject();
}

QHostAddress devsim_harness::address(int device)
{
    return QHostAddress(summary(device).value("address").toString());
}

quint16 devsim_harness::port(int device)
{
    return quint16(summary(device).value("port").toInt());
}

QJsonArray devsim_harness::requests(int device, bool clear)
{
    return device_command(QStringLiteral("requests"), device, { { "clear", clear } }).value("requests").toArray();
}

QJsonArray devsim_harness::requests_of(int device, int message_id)
{
    QJsonArray out;
    const QJsonArray all_requests = requests(device);
    for (const QJsonValue& r : all_requests) {
        if (r.toObject().value("id").toInt() == message_id)
            out.append(r);
    }
    return out;
}

bool devsim_harness::clear_requests(int device)
{
    return device_command(QStringLiteral("clear_requests"), device).value("ok").toBool();
}

bool devsim_harness::wait_for_request(int device, int message_id, int timeout_ms)
{
    QDeadlineTimer deadline(timeout_ms);
    do {
        if (!requests_of(device, message_id).isEmpty())
            return true;
        QTest::qWait(20);
    } while (!deadline.hasExpired());
    m_error = QStringLiteral("no request %1 in %2 ms").arg(message_id).arg(timeout_ms);
    return false;
}

QJsonObject devsim_harness::state(int device)
{
    return device_command(QStringLiteral("get_state"), device).value("state").toObject();
}

bool devsim_harness::set_state(int device, const QJsonObject& changes)
{
    return device_command(QStringLiteral("set_state"), device, { { "state", changes } }).value("ok").toBool();
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
