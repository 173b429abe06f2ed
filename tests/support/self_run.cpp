#include "tests/support/self_run.h"

#include <QCoreApplication>
#include <QProcess>
#include <QRegularExpression>

namespace self_run
{

int run_to_end(const QString& program, const QStringList& args, QString* output, int timeout_ms,
    const QProcessEnvironment& env, const QByteArray& input)
{
    QProcess p;
    p.setProcessChannelMode(QProcess::MergedChannels);
    if (!env.isEmpty())
        p.setProcessEnvironment(env);
    p.start(program, args);
    p.write(input);
    p.closeWriteChannel();
    const bool finished = p.waitForStarted(10000) && p.waitForFinished(timeout_ms);
    if (!finished) {
        p.kill();
        p.waitForFinished(2000);
    }
    if (output) {
        *output = QString::fromUtf8(p.readAll()).trimmed();
        if (!finished)
            *output += QStringLiteral("\n(%1 outlasted %2 ms: %3)").arg(program).arg(timeout_ms).arg(p.errorString());
    }
    return finished && p.exitStatus() == QProcess::NormalExit ? p.exitCode() : -1;
}

bool run_test(const QString& program, QStringList args, const QString& function, const QString& tag,
    const QProcessEnvironment& env, QString* output, int timeout_ms)
{
    args << QCoreApplication::applicationFilePath() << (tag.isEmpty() ? function : function + QLatin1Char(':') + tag);
    const int code = run_to_end(program, args, output, timeout_ms, env);
    static const QRegularExpression totals(QStringLiteral("Totals: \\d+ passed, 0 failed, 0 skipped"));
    if (code == 0 && totals.match(*output).hasMatch())
        return true;
    // QtTest cuts long messages short: the inner failures go first, so they are seen.
    static const QRegularExpression failures(QStringLiteral("^(FAIL!|SKIP|QFATAL|\\s+Loc:).*$|^==\\d+==ERROR.*$"),
        QRegularExpression::MultilineOption);
    QStringList found;
    for (auto it = failures.globalMatch(*output); it.hasNext();)
        found << it.next().captured(0).left(600);
    output->prepend(QStringLiteral("exit code %1; %2\n").arg(code).arg(found.join(QLatin1Char('\n'))));
    return false;
}

} // namespace self_run
