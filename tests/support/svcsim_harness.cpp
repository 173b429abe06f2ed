#include "tests/support/svcsim_harness.h"

#include <QRandomGenerator>
#include <QTest>

namespace
{

QString random_hex(int count)
{
    QByteArray out(count, '\0');
    QRandomGenerator::global()->fillRange(reinterpret_cast<quint32*>(out.data()), count / 4);
    return QString::fromLatin1(out.toHex());
}

} // namespace

svcsim_harness::svcsim_harness(QObject* parent)
    : QObject(parent)
{
}

svcsim_harness::~svcsim_harness()
{
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
    QJsonObject config = config_in;
    if (!config.contains("client_id"))
        config.insert("client_id", random_hex(8));
    if (!config.contains("client_key"))
        config.insert("client_key", random_hex(32));
    if (!config.contains("port"))
        config.insert("port", 0);
    m_client_id = QByteArray::fromHex(config.value("client_id").toString().toLatin1());
    m_client_key = QByteArray::fromHex(config.value("client_key").toString().toLatin1());
    const QString path = add_file(QStringLiteral("service.json"), QJsonDocument(config).toJson());
    const QString program = binary(QStringLiteral("svcsim/orvane-svcsim"));
    if (path.isEmpty() || program.isEmpty())
        return false;

    static const QRegularExpression ready(QStringLiteral("^ready address=(\\S+) port=(\\d+) control_port=(\\d+)"));
    const QRegularExpressionMatch m = launch(program,
        { QStringLiteral("--config"), path, QStringLiteral("--control-port"), QStringLiteral("0"),
            QStringLiteral("--exit-on-stdin-eof") },
        ready, timeout_ms);
    if (!m.hasMatch())
        return false;
    m_address = QHostAddress(m.captured(1));
    m_port = quint16(m.captured(2).toUInt());
    m_control.connectToHost(QHostAddress::LocalHost, quint16(m.captured(3).toUInt()));
    if (!m_control.waitForConnected(timeout_ms)) {
        m_error = QStringLiteral("control channel: %1").arg(m_control.errorString());
        kill_process();
        return false;
    }
    return true;
}

QIODevice* svcsim_harness::channel()
{
    return m_control.state() == QAbstractSocket::ConnectedState ? &m_control : nullptr;
}

QUrl svcsim_harness::base_url() const
{
    return QUrl(QStringLiteral("http://%1:%2/").arg(m_address.toString()).arg(m_port));
}

namespace
{

// A command, for one serial when one is named.
QJsonObject for_serial(QJsonObject cmd, const QString& serial)
{
    if (!serial.isEmpty())
        cmd.insert("serial", serial);
    return cmd;
}

} // namespace

QJsonArray svcsim_harness::requests(const QString& kind, const QString& serial, bool clear)
{
    QJsonObject cmd { { "cmd", "requests" }, { "clear", clear } };
    if (!kind.isEmpty())
        cmd.insert("kind", kind);
    return command(for_serial(cmd, serial)).value("requests").toArray();
}

bool svcsim_harness::clear_requests()
{
    return command(QJsonObject { { "cmd", "clear_requests" } }).value("ok").toBool();
}

bool svcsim_harness::wait_for_requests(int count, const QString& kind, int timeout_ms)
{
    if (QTest::qWaitFor([&] { return requests(kind).size() >= count; }, timeout_ms))
        return true;
    m_error = QStringLiteral("fewer than %1 %2 requests in %3 ms").arg(count).arg(kind).arg(timeout_ms);
    return false;
}

QJsonObject svcsim_harness::stats()
{
    return command(QJsonObject { { "cmd", "stats" } });
}

bool svcsim_harness::set_fault(const QString& kind, const QJsonObject& fault, const QString& serial)
{
    return command(for_serial({ { "cmd", "set_fault" }, { "kind", kind }, { "fault", fault } }, serial))
        .value("ok")
        .toBool();
}

bool svcsim_harness::clear_faults(const QString& serial)
{
    return command(for_serial({ { "cmd", "clear_faults" } }, serial)).value("ok").toBool();
}
