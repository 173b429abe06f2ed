#include "sdk/device_library.h"

#include <QCoreApplication>
#include <QDir>
#include <QFileInfo>

namespace sdk {

namespace {

QMutex g_folders_mutex; // guards g_folders
QStringList g_folders;

QStringList folders()
{
    QMutexLocker lock(&g_folders_mutex);
    return g_folders;
}

} // namespace

void device_library::set_folders(const QStringList& folders)
{
    QMutexLocker lock(&g_folders_mutex);
    g_folders = folders;
}

device_library::device_library(const QString& name, std::initializer_list<const char*> symbols)
    : m_name(name)
    , m_symbols(symbols)
{
}

QString device_library::file_name() const
{
    return QStringLiteral("lib%1.so").arg(m_name);
}

QString device_library::error() const
{
    QMutexLocker lock(&m_mutex);
    return m_error;
}

bool device_library::load()
{
    QMutexLocker lock(&m_mutex);
    if (!m_functions.isEmpty())
        return true;
    m_error.clear();
    const QStringList searched = folders();
    for (const QString& folder : searched) {
        const QString path = QDir(folder).filePath(file_name());
        if (QFileInfo::exists(path) && load_from(path))
            return true;
    }
    // A name without a folder goes through the dynamic loader's own search.
    const bool found_nowhere = m_error.isEmpty();
    if (load_from(file_name()))
        return true;
    if (found_nowhere && !searched.isEmpty())
        m_error = QCoreApplication::translate("sdk::device_library", "not found in %1; %2")
                      .arg(searched.join(QStringLiteral(", ")), m_error);
    return false;
}

bool device_library::load_from(const QString& path)
{
    m_library.setFileName(path);
    QString error;
    QHash<QByteArray, QFunctionPointer> functions;
    if (!m_library.load())
        error = m_library.errorString();
    for (auto it = m_symbols.cbegin(); error.isEmpty() && it != m_symbols.cend(); ++it) {
        const QFunctionPointer f = m_library.resolve(*it);
        if (!f)
            error = QCoreApplication::translate("sdk::device_library", "Cannot resolve symbol \"%1\" in %2")
                        .arg(QString::fromLatin1(*it), m_library.fileName());
        functions.insert(*it, f);
    }
    if (error.isEmpty()) {
        m_functions = functions;
        return true;
    }
    // A file that is there but unusable says more than the system search after it.
    if (m_error.isEmpty())
        m_error = error;
    m_library.unload();
    return false;
}

} // namespace sdk
