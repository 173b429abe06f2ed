#include "tests/support/svcsim_harness.h"

#include <QCoreApplication>
#include <QDeadlineTimer>
#include <QFile>
#include <QJsonDocument>
#include <QRandomGenerator>
#include <QRegularExpression>
#include <QTest>

namespace
{

QString binary_path()
{
    const QString dir = qEnvironmentVariable("ORVANE_TOOLS_DIR");
    return dir.isEmpty() ? QString() : dir + QStringLiteral("/svcsim/orvane-svcsim");
}

QJsonObject failure(const QString& why)
{
    return QJsonObject { { "ok", false }, { "error", why } };
}

QByteArray random_bytes(int count)
{
    QByteArray out(count, '\0');
    QRandomGenerator::global()->fillRange(reinterpret_cast<quint32*>(out.data()), count / 4);
    return out;
}

} // namespace

svcsim_harness::svcsim_harness(QObject* parent)
    : QObject(parent)
{
    connect(
        &m_process, &QProcess::readyReadStandardError, this, [this] { m_stderr += m_process.readAllStandardError(); });
}

svcsim_harness::~svcsim_harness()
{
    m_control.abort();
    if (running())
        stop(2000);
}

QString svcsim_harness::add_file(const QString& name, const QByteArray& data)
{
    const QString path = m_dir.filePath(name);
    QFile file(path);
    if (!m_dir.isValid() || !file.open(QIODevice::WriteOnly | QIODevice::Truncate) || file.write(data) != data.size()) {
        m_error = QStringLiteral("can't write %1").arg(path);
        return {};
    }
    return path;
}

bool svcsim_harness::start(const QJsonObject& config_in, int timeout_ms)
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

    QJsonObject config = config_in;
    if (!config.contains("client_id"))
        config.insert("client_id", QString::fromLatin1(random_bytes(8).toHex()));
    if (!config.contains("client_key"))
        config.insert("client_key", QString::fromLatin1(random_bytes(32).toHex()));
    if (!config.contains("port"))
        config.insert("port", 0);
    m_client_id = QByteArray::fromHex(config.value("client_id").toString().toLatin1());
    m_client_key = QByteArray::fromHex(config.value("client_key").toString().toLatin1());

    const QString path = m_dir.filePath(QStringLiteral("service.json"));
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly | QIODevice::Truncate) || file.write(QJsonDocument(config).toJson()) < 0) {
        m_error = QStringLiteral("can't write %1").arg(path);
        return false;
    }
    file.close();

    m_stderr.clear();
    m_process.setReadChannel(QProcess::StandardOutput);
    m_process.start(binary_path(),
        { QStringLiteral("--config"), path, QStringLiteral("--control-port"), QStringLiteral("0"),
            QStringLiteral("--exit-on-stdin-eof") });
    if (!m_process.waitForStarted(timeout_ms)) {
        m_error = QStringLiteral("simulator didn't start: %1").arg(m_process.errorString());
        return false;
    }

    static const QRegularExpression ready(QStringLiteral("^ready address=(\\S+) port=(\\d+) control_port=(\\d+)"));
    QDeadlineTimer deadline(timeout_ms);
    while (!deadline.hasExpired()) {
        if (m_process.canReadLine()) {
            const QRegularExpressionMatch m = ready.match(QString::fromUtf8(m_process.readLine()).trimmed());
            if (!m.hasMatch())
                continue;
            m_address = QHostAddress(m.captured(1));
            m_port = quint16(m.captured(2).toUInt());
            m_control_port = quint16(m.captured(3).toUInt());
            m_control.connectToHost(QHostAddress::LocalHost, m_control_port);
            if (!m_control.waitForConnected(int(qMax<qint64>(deadline.remainingTime(), 100)))) {
                m_error = QStringLiteral("control channel: %1").arg(m_control.errorString());
                kill_process();
                return false;
            }
            return true;
        }
        if (m_process.state() == QProcess::NotRunning) {
            m_stderr += m_process.readAllStandardError();
            m_error = QStringLiteral("simulator ended before it was ready: %1").arg(QString::fromUtf8(m_stderr));
            return false;
        }
        m_process.waitForReadyRead(50);
    }
    m_error = QStringLiteral("simulator not ready after %1 ms").arg(timeout_ms);
    kill_process();
    return false;
}

bool svcsim_harness::stop(int timeout_ms)
{
    m_control.abort();
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

void svcsim_harness::kill_process()
{
    m_control.abort();
    m_process.kill();
    m_process.waitForFinished(2000);
}

QString svcsim_harness::log()
{
    // The pipe is read by the event loop.
    QCoreApplication::processEvents();
    m_stderr += m_process.readAllStandardError();
    return QString::fromUtf8(m_stderr);
}

QUrl svcsim_harness::base_url() const
{
    return QUrl(QStringLiteral("http://%1:%2/").arg(m_address.toString()).arg(m_port));
}

QJsonObject svcsim_harness::command(const QJsonObject& cmd, int timeout_ms)
{
    if (m_control.state() != QAbstractSocket::ConnectedState)
        return failure(QStringLiteral("control channel isn't connected"));
    m_control.write(QJsonDocument(cmd).toJson(QJsonDocument::Compact) + '\n');
    QDeadlineTimer deadline(timeout_ms);
    while (!m_control.canReadLine()) {
        if (deadline.hasExpired() || m_control.state() != QAbstractSocket::ConnectedState)
            return failure(QStringLiteral("no answer to %1").arg(cmd.value("cmd").toString()));
        m_control.waitForReadyRead(int(qBound<qint64>(1, deadline.remainingTime(), 100)));
    }
    const QJsonDocument doc = QJsonDocument::fromJson(m_control.readLine());
    if (!doc.isObject())
        return failure(QStringLiteral("answer isn't JSON"));
    const QJsonObject answer = doc.object();
    if (!answer.value("ok").toBool())
        m_error = answer.value("error").toString();
    return answer;
}

QJsonArray svcsim_harness::requests(const QString& kind, const QString& serial, bool clear)
{
    QJsonObject cmd { { "cmd", "requests" }, { "clear", clear } };
    if (!kind.isEmpty())
        cmd.insert("kind", kind);
    if (!serial.isEmpty())
        cmd.insert("serial", serial);
    return command(cmd).value("requests").toArray();
}

bool svcsim_harness::clear_requests()
{
    return command(QJsonObject { { "cmd", "clear_requests" } }).value("ok").toBool();
}

bool svcsim_harness::wait_for_requests(int count, const QString& kind, int timeout_ms)
{
    QDeadlineTimer deadline(timeout_ms);
    do {
        if (requests(kind).size() >= count)
            return true;
        QTest::qWait(20);
    } while (!deadline.hasExpired());
    m_error = QStringLiteral("fewer than %1 %2 requests in %3 ms").arg(count).arg(kind).arg(timeout_ms);
    return false;
}

QJsonObject svcsim_harness::stats()
{
    return command(QJsonObject { { "cmd", "stats" } });
}

bool svcsim_harness::set_fault(const QString& kind, const QJsonObject& fault, const QString& serial)
{
    QJsonObject cmd { { "cmd", "set_fault" }, { "kind", kind }, { "fault", fault } };
    if (!serial.isEmpty())
        cmd.insert("serial", serial);
    return command(cmd).value("ok").toBool();
}

bool svcsim_harness::clear_faults(const QString& serial)
{
    QJsonObject cmd { { "cmd", "clear_faults" } };
    if (!serial.isEmpty())
        cmd.insert("serial", serial);
    return command(cmd).value("ok").toBool();
}

bool svcsim_harness::set_verdict(const QString& serial, const QJsonObject& entry)
{
    QJsonObject cmd = entry;
    cmd.insert("cmd", "set_verdict");
    cmd.insert("serial", serial);
    return command(cmd).value("ok").toBool();
}

bool svcsim_harness::set_default_verdict(const QJsonObject& entry)
{
    QJsonObject cmd = entry;
    cmd.insert("cmd", "set_verdict");
    cmd.insert("default", true);
    return command(cmd).value("ok").toBool();
}
