#include "tests/support/small_disk.h"

#include <QFile>
#include <QFileInfo>
#include <QTemporaryDir>

#include <sys/stat.h>
#include <unistd.h>

#include "tests/support/self_run.h"

namespace small_disk
{

namespace
{

    const QString folder_variable = QStringLiteral("ORVANE_TEST_SMALL_DISK");

    // The device a path lies on; 0 when it can't be read.
    dev_t device_of(const QString& path)
    {
        struct stat st {
        };
        return ::stat(QFile::encodeName(path).constData(), &st) == 0 ? st.st_dev : 0;
    }

} // namespace

bool available(QString* why)
{
    static const QString reason = [] {
        if (::geteuid() != 0)
            return QStringLiteral("mount namespaces need root");
        QString output;
        if (self_run::run_to_end(QStringLiteral("unshare"), { QStringLiteral("-m"), QStringLiteral("true") }, &output)
            != 0)
            return QStringLiteral("`unshare -m` fails here: %1").arg(output);
        return QString();
    }();
    if (why)
        *why = reason;
    return reason.isEmpty();
}

bool run(const QString& function, const QString& tag, int kib, QString* output)
{
    QTemporaryDir mount_point;
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.insert(folder_variable, mount_point.path());
    // The mount is made by the shell that unshare starts, so only the new namespace has it.
    const QString setup = QStringLiteral("mount -t tmpfs -o size=%1k tmpfs \"$0\" && exec \"$@\"").arg(kib);
    return self_run::run_test(QStringLiteral("unshare"),
        { QStringLiteral("-m"), QStringLiteral("--"), QStringLiteral("sh"), QStringLiteral("-c"), setup,
            mount_point.path() },
        function, tag, env, output, 60000);
}

bool requested()
{
    return qEnvironmentVariableIsSet(qPrintable(folder_variable));
}

QString folder()
{
    const QString path = qEnvironmentVariable(qPrintable(folder_variable));
    // Only where the tmpfs really is mounted: another device than the folder above it.
    if (path.isEmpty() || device_of(path) == 0 || device_of(path) == device_of(QFileInfo(path).absolutePath()))
        return QString();
    return path;
}

} // namespace small_disk
