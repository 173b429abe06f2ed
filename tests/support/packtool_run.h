#pragma once

#include <QProcess>
#include <QStringList>

// The independent pack builder, found through ORVANE_TOOLS_DIR.
inline QString packtool_path()
{
    return qEnvironmentVariable("ORVANE_TOOLS_DIR") + QStringLiteral("/packtool/orvane-packtool");
}

// Runs it to the end: its exit code, or -1 when it didn't finish. What it printed, standard
// output before standard error, goes to `output` when given.
inline int run_packtool(const QStringList& args, QByteArray* output = nullptr)
{
    QProcess p;
    p.start(packtool_path(), args);
    if (!p.waitForStarted(10000) || !p.waitForFinished(60000) || p.exitStatus() != QProcess::NormalExit)
        return -1;
    if (output)
        *output = p.readAllStandardOutput() + p.readAllStandardError();
    return p.exitCode();
}
