#pragma once

#include <QByteArray>
#include <QProcessEnvironment>
#include <QString>
#include <QStringList>

// Running programs from tests, and this test executable again inside something (a namespace, a mount of its own).
namespace self_run
{

// The exit code; -1 when the program didn't start, crashed or outlasted the time. Both channels go to *output.
int run_to_end(const QString& program, const QStringList& args, QString* output = nullptr, int timeout_ms = 10000,
    const QProcessEnvironment& env = {}, const QByteArray& input = {});

// Runs this executable's function (and row) through `program` with `args` before it; true when every test passed
// and none was skipped.
bool run_test(const QString& program, QStringList args, const QString& function, const QString& tag,
    const QProcessEnvironment& env, QString* output, int timeout_ms);

} // namespace self_run
