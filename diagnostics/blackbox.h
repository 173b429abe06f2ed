#pragma once

#include <QMutex>
#include <QString>

#include <atomic>
#include <cstdarg>
#include <cstdio>
#include <memory>

// Crash-surviving text log: every line is formatted, written and flushed at once,
// so the last line before an abnormal end is on disk. A line, its end included, takes at
// most buffer_size - 1 bytes; a longer one is cut there.
class blackbox final
{
public:
    enum level : int { debug = 0, plain = 1, information = 2, warning = 3, error = 4 };
    static constexpr size_t buffer_size = 2048;

    explicit blackbox(QString file_name = QStringLiteral("blackbox.log"), bool quiet = true);
    ~blackbox();
    Q_DISABLE_COPY_MOVE(blackbox)

    // Opens the file for appending and writes the session line; true if already open.
    bool open();
    bool is_open() const;
    QString file_name() const;

    void write(const char* ident, int level, const char* format, ...) __attribute__((format(printf, 4, 5)));
    void vwrite(const char* ident, int level, const char* format, va_list args);

    static const char* level_text(int level);

    // The process-wide instance that code outside any loggable writes through.
    static void set_global(std::shared_ptr<blackbox> instance);
    static std::shared_ptr<blackbox> global();

private:
    QString m_file_name;
    bool m_quiet;
    FILE* m_file = nullptr;
    // The file's descriptor, opened for appending: a line goes out in one write, which the
    // kernel keeps whole and in order, so writers don't queue on the mutex for the file.
    std::atomic<int> m_descriptor { -1 };
    mutable QMutex m_mutex; // guards opening the file and the writing of a line to the console
};

// For code that isn't a loggable: writes "parent/ident" through the global instance, if any.
void write_sub(const char* parent_ident, const char* ident, int level, const char* format, ...)
    __attribute__((format(printf, 4, 5)));
