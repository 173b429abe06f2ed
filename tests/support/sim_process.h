#pragma once

#include <QCoreApplication>
#include <QDeadlineTimer>
#include <QFile>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QRegularExpression>

// What both simulator harnesses share: the process, the wait for its "ready" line, and a control channel that
// answers each command with one JSON line. Binaries are found through ORVANE_TOOLS_DIR; every wait is bounded.
class sim_process
{
public:
    virtual ~sim_process() = default;

    // Closes the simulator's standard input and waits for it to end, killing it when it won't. True when it ended
    // by itself with exit code 0.
    bool stop(int timeout_ms = 5000)
    {
        close_channel();
        if (!running())
            return false;
        m_process.closeWriteChannel();
        if (m_process.waitForFinished(timeout_ms))
            return m_process.exitStatus() == QProcess::NormalExit && m_process.exitCode() == 0;
        m_error = QStringLiteral("simulator didn't stop in %1 ms").arg(timeout_ms);
        kill_process();
        return false;
    }
    bool running() const { return m_process.state() != QProcess::NotRunning; }
    // Why the last failed call failed.
    const QString& error() const { return m_error; }
    // What the simulator wrote to its standard error so far.
    QString log()
    {
        QCoreApplication::processEvents(); // the pipe is read by the event loop
        m_stderr += m_process.readAllStandardError();
        return QString::fromUtf8(m_stderr);
    }

    // Any control command; its answer, {"ok": false} with error() set when there was none.
    QJsonObject command(const QJsonObject& cmd, int timeout_ms = 5000)
    {
        QIODevice* ch = channel();
        if (ch)
            ch->write(QJsonDocument(cmd).toJson(QJsonDocument::Compact) + '\n');
        QDeadlineTimer deadline(timeout_ms);
        while (channel() && !ch->canReadLine() && !deadline.hasExpired())
            ch->waitForReadyRead(int(qBound<qint64>(1, deadline.remainingTime(), 100)));
        const QJsonObject answer = channel() && ch->canReadLine() ? QJsonDocument::fromJson(ch->readLine()).object()
                                                                  : QJsonObject { { "ok", false } };
        if (!answer.value("ok").toBool())
            m_error = answer.value("error").toString("no answer to " + cmd.value("cmd").toString());
        return answer;
    }

protected:
    sim_process()
    {
        QObject::connect(&m_process, &QProcess::readyReadStandardError, &m_process,
            [this] { m_stderr += m_process.readAllStandardError(); });
    }

    // The simulator's binary under ORVANE_TOOLS_DIR; empty, with error() set, when it isn't there.
    QString binary(const QString& relative)
    {
        const QString path = qEnvironmentVariable("ORVANE_TOOLS_DIR") + QLatin1Char('/') + relative;
        if (qEnvironmentVariableIsEmpty("ORVANE_TOOLS_DIR") || !QFile::exists(path)) {
            m_error = QStringLiteral("no simulator at \"%1\" (is ORVANE_TOOLS_DIR set?)").arg(path);
            return {};
        }
        return path;
    }

    bool write_file(const QString& path, const QByteArray& data)
    {
        QFile file(path);
        if (file.open(QIODevice::WriteOnly | QIODevice::Truncate) && file.write(data) == data.size())
            return true;
        m_error = QStringLiteral("can't write %1").arg(path);
        return false;
    }

    // Starts the process and reads its output up to the line that matches `ready`; no match, with error() set,
    // when it ended first or took too long.
    QRegularExpressionMatch launch(
        const QString& program, const QStringList& args, const QRegularExpression& ready, int timeout_ms)
    {
        m_stderr.clear();
        m_process.setReadChannel(QProcess::StandardOutput);
        m_process.start(program, args);
        QDeadlineTimer deadline(timeout_ms);
        while (!deadline.hasExpired()) {
            if (m_process.canReadLine()) {
                const QRegularExpressionMatch m = ready.match(QString::fromUtf8(m_process.readLine()).trimmed());
                if (m.hasMatch())
                    return m;
            } else if (m_process.state() == QProcess::NotRunning) {
                m_error = QStringLiteral("simulator ended before ready (%1): %2").arg(m_process.errorString(), log());
                return {};
            } else {
                m_process.waitForReadyRead(50);
            }
        }
        m_error = QStringLiteral("simulator not ready after %1 ms").arg(timeout_ms);
        kill_process();
        return {};
    }

    void kill_process()
    {
        close_channel();
        m_process.kill();
        m_process.waitForFinished(2000);
    }

    // The control channel while it is connected; null otherwise.
    virtual QIODevice* channel() = 0;
    virtual void close_channel() = 0;

    QProcess m_process;
    QByteArray m_stderr;
    QString m_error;
};
