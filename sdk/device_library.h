#pragma once

#include <QHash>
#include <QLibrary>
#include <QMutex>
#include <QString>
#include <QStringList>

#include <initializer_list>

namespace sdk {

// A closed device library, looked for at run time: in the program's folders first, then on
// the system library path. Once loaded it stays for the life of the process, since its own
// threads may call back at any time.
class device_library final
{
public:
    // The folders searched first, in order. Set by the core at start.
    static void set_folders(const QStringList& folders);

    // `name` without "lib" and ".so"; every one of `symbols` must resolve.
    device_library(const QString& name, std::initializer_list<const char*> symbols);
    Q_DISABLE_COPY_MOVE(device_library)

    // Loads on first use; after a failure the next call searches again.
    bool load();
    // "libXCloudSDK.so": how messages name it.
    QString file_name() const;
    // Why the last load failed.
    QString error() const;
    // A resolved function; call only after load() returned true.
    template <typename F> F function(const char* symbol) const
    {
        QMutexLocker lock(&m_mutex);
        return reinterpret_cast<F>(m_functions.value(symbol));
    }

private:
    bool load_from(const QString& path);

    const QString m_name;
    const QList<const char*> m_symbols;
    mutable QMutex m_mutex; // guards what follows
    QLibrary m_library;
    QHash<QByteArray, QFunctionPointer> m_functions;
    QString m_error;
};

} // namespace sdk
