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

bool svcsim_harness::start(const QJsonObject& config_in, int timeout_ms)
{
    if (running()) {
        m_error = QStringLiteral("already running");
        return false;
    }
    QJsonObject config { { "client_id", random_hex(8) }, { "client_key", random_hex(32) }, { "port", 0 } };
    for (auto it = config_in.begin(); it != config_in.end(); ++it)
        config.insert(it.key(), it.value());
    m_client_id = QByteArray::fromHex(config.value("client_id").toString().toLatin1());
    m_client_key = QByteArray::fromHex(config.value("client_key").toString().toLatin1());
    const QString path = add_file(QStringLiteral("service.json"), QJsonDocument(config).toJson());
    const QString program = binary(QStringLiteral("svcsim/orvane-svcsim"));
    if (path.isEmpty() || program.isEmpty())
        return false;

    static const QRegularExpression ready(QStringLiteral("^ready address=(\\S+) port=(\\d+) control_port=(\\d+)"));
    const QRegularExpressionMatch m
        = launch(program, { "--config", path, "--control-port", "0", "--exit-on-stdin-eof" }, ready, timeout_ms);
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

bool svcsim_harness::wait_for_requests(int count, const QString& kind, int timeout_ms)
{
    if (QTest::qWaitFor([&] { return requests(kind).size() >= count; }, timeout_ms))
        return true;
    m_error = QStringLiteral("fewer than %1 %2 requests in %3 ms").arg(count).arg(kind).arg(timeout_ms);
    return false;
}
