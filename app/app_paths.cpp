#include "app/app_paths.h"

#include "app/fixed_names.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QStandardPaths>

namespace app_paths {

namespace {

QString in_writable(QStandardPaths::StandardLocation location, const QString& name)
{
    const QString folder = QStandardPaths::writableLocation(location);
    if (folder.isEmpty())
        return {};
    QDir().mkpath(folder);
    return QDir(folder).filePath(name);
}

} // namespace

bool is_portable(const QString& application_dir)
{
    return !application_dir.startsWith(QLatin1String("/usr/"));
}

QString settings_file(bool portable, const QString& application_dir)
{
    if (portable)
        return QDir(application_dir).filePath(fixed_names::settings_file);

    const QStringList data_dirs = QStandardPaths::standardLocations(QStandardPaths::DataLocation);
    const QString first = data_dirs.isEmpty() ? QString() : data_dirs.constFirst();
    const QString found = QStandardPaths::locate(QStandardPaths::DataLocation, fixed_names::settings_file);
    if (found.isEmpty())
        return first.isEmpty() ? QString() : QDir(first).filePath(fixed_names::settings_file);
    if (!found.startsWith(QLatin1String("/usr/")))
        return found;

    // A packaged default reaches the user's folder on first run.
    if (first.isEmpty())
        return found;
    QDir().mkpath(first);
    const QString copy = QDir(first).filePath(fixed_names::settings_file);
    return QFile::copy(found, copy) ? copy : found;
}

QString cache_file(bool portable, const QString& application_dir)
{
    if (portable)
        return QDir(application_dir).filePath(fixed_names::cache_file);
    return in_writable(QStandardPaths::CacheLocation, fixed_names::cache_file);
}

QString log_file(bool portable, const QString& application_dir)
{
    if (portable)
        return QDir(application_dir).filePath(fixed_names::log_file);
    return in_writable(QStandardPaths::DataLocation, fixed_names::log_file);
}

QString plugin_folder(bool portable, const QString& application_dir)
{
    if (portable)
        return QDir(application_dir).filePath(QStringLiteral("plugins"));
    return QDir(QStringLiteral("/usr/lib")).filePath(QCoreApplication::applicationName());
}

QString autorun_file(bool portable, const QString& application_dir, const QString& name)
{
    if (portable)
        return QDir(application_dir).filePath(name);
    return QStandardPaths::locate(QStandardPaths::DataLocation, name);
}

} // namespace app_paths
