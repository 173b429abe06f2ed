#pragma once

// A test's handle on a stand-in device library (fake_sdk.h): its journal of calls, and messages sent back to the
// program from the library's threads. It opens the file the program loads, so both share one copy of the library.
#include <QByteArray>
#include <QDir>
#include <QFile>
#include <QLibrary>
#include <QStringList>

class fake_sdk_client final
{
public:
    // "XCloudSDK" or "XNetSDK".
    explicit fake_sdk_client(const QString& name)
        : m_library(QDir(folder()).filePath(QStringLiteral("lib%1.so").arg(name)))
    {
        m_library.load();
    }
    Q_DISABLE_COPY_MOVE(fake_sdk_client)

    // Where the build puts both libraries.
    static QString folder() { return QStringLiteral(FAKE_SDK_DIR); }
    // How the next calls behave (see fake_sdk.h).
    static void set_mode(const char* mode) { qputenv("FAKE_SDK_MODE", mode); }
    // Links both libraries into `plugins` under `application_dir`, where the program looks first.
    static bool install(const QString& application_dir)
    {
        const QDir plugins(QDir(application_dir).filePath(QStringLiteral("plugins")));
        if (!plugins.mkpath(QStringLiteral(".")))
            return false;
        for (const char* name : { "libXCloudSDK.so", "libXNetSDK.so" }) {
            if (!QFile::link(QDir(folder()).filePath(name), plugins.filePath(name)))
                return false;
        }
        return true;
    }

    bool loaded() const { return m_library.isLoaded(); }
    QString error() const { return m_library.errorString(); }

    QStringList journal()
    {
        return QString::fromUtf8(hook<const char* (*)()>("fake_sdk_journal")()).split('\n', Qt::SkipEmptyParts);
    }
    void clear() { hook<void (*)()>("fake_sdk_clear")(); }
    // The id or handle the library handed out last.
    int last_id() { return hook<int (*)()>("fake_sdk_last_id")(); }
    // One message from a thread of the library's, waited for: what the program's callback returned.
    int send(int id, int message, int p1, int p2, int p3)
    {
        return hook<int (*)(int, int, int, int, int)>("fake_sdk_emit")(id, message, p1, p2, p3);
    }
    // `count` messages from each of `threads` threads, not waited for; join() waits.
    void send_async(int id, int message, int p1, int p2, int p3, int threads, int count)
    {
        hook<void (*)(int, int, int, int, int, int, int)>("fake_sdk_emit_async")(
            id, message, p1, p2, p3, threads, count);
    }
    void join() { hook<void (*)()>("fake_sdk_join")(); }

private:
    template <typename F> F hook(const char* name) { return reinterpret_cast<F>(m_library.resolve(name)); }

    QLibrary m_library;
};
