#include "diagnostics/blackbox.h"

#include <QFile>

#include <cerrno>
#include <ctime>

#include <unistd.h>

namespace {

std::shared_ptr<blackbox> g_instance;
QMutex g_instance_mutex;

// The time that starts a line, formatted once a second by each thread that writes.
const char* stamp_now()
{
    thread_local time_t stamped = -1;
    thread_local char stamp[32] = {};
    const time_t now = time(nullptr);
    if (now != stamped) {
        tm local {};
        localtime_r(&now, &local);
        strftime(stamp, sizeof stamp, "%d.%m.%y, %H:%M:%S", &local);
        stamped = now;
    }
    return stamp;
}

} // namespace

blackbox::blackbox(QString file_name, bool quiet)
    : m_file_name(std::move(file_name))
    , m_quiet(quiet)
{
}

blackbox::~blackbox()
{
    if (m_file)
        fclose(m_file);
}

bool blackbox::open()
{
    {
        QMutexLocker lock(&m_mutex);
        if (m_file)
            return true;
        m_file = fopen(QFile::encodeName(m_file_name).constData(), "a");
        if (!m_file)
            return false;
        m_descriptor = fileno(m_file);
    }
    write("---", plain, "%s", "Новая сессия работы начата");
    return true;
}

bool blackbox::is_open() const
{
    QMutexLocker lock(&m_mutex);
    return m_file != nullptr;
}

QString blackbox::file_name() const
{
    return m_file_name;
}

const char* blackbox::level_text(int level)
{
    switch (level) {
    case debug: return "debug";
    case plain: return "plain";
    case information: return "information";
    case warning: return "warning";
    case error: return "error";
    default: return "---";
    }
}

void blackbox::write(const char* ident, int level, const char* format, ...)
{
    va_list args;
    va_start(args, format);
    vwrite(ident, level, format, args);
    va_end(args);
}

void blackbox::vwrite(const char* ident, int level, const char* format, va_list args)
{
    // The line is made on the caller's stack and leaves in one write: a fleet's workers write
    // two lines for every chunk, and a lock held over the file's write made them queue.
    char line[buffer_size];
    const int prefix = snprintf(line, buffer_size, "%s, %s, %s, ", stamp_now(), ident, level_text(level));
    size_t used = prefix < 0 ? 0 : std::min(size_t(prefix), buffer_size - 1);
    // The line end belongs to the message: one cut off at the buffer's end loses it, as its tail.
    const int text = vsnprintf(line + used, buffer_size - used, format, args);
    if (text >= 0) {
        used = std::min(used + size_t(text), buffer_size - 1);
        if (used < buffer_size - 1)
            line[used++] = '\n';
    }

    if (!m_quiet) {
        QMutexLocker lock(&m_mutex);
        fwrite(line, 1, used, stdout);
        fflush(stdout);
    }
    const int descriptor = m_descriptor;
    if (descriptor >= 0 && ::write(descriptor, line, used) <= 0)
        printf("Ошибка записи в файл журнала: %i\n", errno);
}

void blackbox::set_global(std::shared_ptr<blackbox> instance)
{
    QMutexLocker lock(&g_instance_mutex);
    g_instance = std::move(instance);
}

std::shared_ptr<blackbox> blackbox::global()
{
    QMutexLocker lock(&g_instance_mutex);
    return g_instance;
}

void write_sub(const char* parent_ident, const char* ident, int level, const char* format, ...)
{
    auto box = blackbox::global();
    if (!box)
        return;
    char joined[128];
    snprintf(joined, sizeof joined, "%s/%s", parent_ident, ident);
    va_list args;
    va_start(args, format);
    box->vwrite(joined, level, format, args);
    va_end(args);
}
