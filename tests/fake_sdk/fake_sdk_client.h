#pragma once

// A test's handle on a stand-in device library (fake_sdk.h): its journal of calls, and
// messages sent back to the program from the library's threads. It opens the same file
// the program loads, so both share one copy of the library.
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
        if (!m_library.load())
            return;
        m_journal = reinterpret_cast<int (*)(char*, int)>(m_library.resolve("fake_sdk_journal"));
        m_clear = reinterpret_cast<void (*)()>(m_library.resolve("fake_sdk_clear"));
        m_last_id = reinterpret_cast<int (*)()>(m_library.resolve("fake_sdk_last_id"));
        m_send = reinterpret_cast<int (*)(int, int, int, int, int)>(m_library.resolve("fake_sdk_emit"));
        m_send_async
            = reinterpret_cast<void (*)(int, int, int, int, int, int, int)>(m_library.resolve("fake_sdk_emit_async"));
        m_join = reinterpret_cast<void (*)()>(m_library.resolve("fake_sdk_join"));
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

    bool loaded() const { return m_journal && m_clear && m_last_id && m_send && m_send_async && m_join; }
    QString error() const { return m_library.errorString(); }

    QStringList journal() const
    {
        QByteArray text(m_journal(nullptr, 0) + 1, '\0');
        m_journal(text.data(), text.size());
        return QString::fromUtf8(text.constData()).split('\n', Qt::SkipEmptyParts);
    }
    void clear() { m_clear(); }
    // The id or handle the library handed out last.
    int last_id() const { return m_last_id(); }
    // One message from a thread of the library's, waited for: what the program's callback returned.
    int send(int id, int message, int p1, int p2, int p3) { return m_send(id, message, p1, p2, p3); }
    // `count` messages from each of `threads` threads, not waited for; join() waits.
    void send_async(int id, int message, int p1, int p2, int p3, int threads, int count)
    {
        m_send_async(id, message, p1, p2, p3, threads, count);
    }
    void join() { m_join(); }

private:
    QLibrary m_library;
    int (*m_journal)(char*, int) = nullptr;
    void (*m_clear)() = nullptr;
    int (*m_last_id)() = nullptr;
    int (*m_send)(int, int, int, int, int) = nullptr;
    void (*m_send_async)(int, int, int, int, int, int, int) = nullptr;
    void (*m_join)() = nullptr;
};
