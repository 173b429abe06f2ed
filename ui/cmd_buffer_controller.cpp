#include "ui/cmd_buffer_controller.h"

#include "diagnostics/text_animations.h"

#include <memory>

cmd_buffer_controller::cmd_buffer_controller(QObject* parent)
    : QThread(parent)
{
}

cmd_buffer_controller::~cmd_buffer_controller()
{
    stop_animation();
}

void cmd_buffer_controller::append(const QString& html, bool replace_last)
{
    {
        QMutexLocker lock(&m_mutex);
        if (replace_last && !m_lines.isEmpty())
            m_lines.removeLast();
        m_lines << html;
    }
    changed();
}

void cmd_buffer_controller::remove_last()
{
    {
        QMutexLocker lock(&m_mutex);
        if (m_lines.isEmpty())
            return;
        m_lines.removeLast();
    }
    changed();
}

void cmd_buffer_controller::clear()
{
    {
        QMutexLocker lock(&m_mutex);
        m_lines.clear();
    }
    changed();
}

QString cmd_buffer_controller::html() const
{
    QMutexLocker lock(&m_mutex);
    return m_lines.join(QString()) + m_tail;
}

int cmd_buffer_controller::line_count() const
{
    QMutexLocker lock(&m_mutex);
    return m_lines.size();
}

bool cmd_buffer_controller::take_changed()
{
    QMutexLocker lock(&m_mutex);
    return std::exchange(m_changed, false);
}

void cmd_buffer_controller::changed()
{
    {
        QMutexLocker lock(&m_mutex);
        m_changed = true;
    }
    emit buffer_updated();
}

QString cmd_buffer_controller::frame_html(const QString& message, const QString& frame)
{
    return QStringLiteral("<div style='color: gray;'>%1 <span style='font-family: mono; color: orange;'>%2</div>")
        .arg(message.toHtmlEscaped(), frame.toHtmlEscaped());
}

void cmd_buffer_controller::start_animation(const QString& message, kind animation)
{
    if (isRunning())
        return;
    {
        QMutexLocker lock(&m_mutex);
        m_stopping = false;
    }
    m_message = message;
    m_kind = animation;
    start(QThread::InheritPriority);
}

void cmd_buffer_controller::stop_animation()
{
    {
        QMutexLocker lock(&m_mutex);
        m_stopping = true;
        m_stop_requested.wakeAll();
    }
    wait();
}

void cmd_buffer_controller::run()
{
    std::unique_ptr<text_animations::waiting> animator;
    switch (m_kind) {
    case spinning: animator = std::make_unique<text_animations::spinning>(); break;
    case scanning: animator = std::make_unique<text_animations::scanning>(); break;
    default: animator = std::make_unique<text_animations::waiting>(); break;
    }
    QMutexLocker lock(&m_mutex);
    while (!m_stopping) {
        m_tail = frame_html(m_message, animator->next());
        m_changed = true;
        lock.unlock();
        emit buffer_updated();
        lock.relock();
        // A stop wakes the wait at once: the main thread never waits a frame for it.
        if (!m_stopping)
            m_stop_requested.wait(&m_mutex, frame_ms);
    }
    m_tail.clear();
    m_changed = true;
    lock.unlock();
    emit buffer_updated();
}
