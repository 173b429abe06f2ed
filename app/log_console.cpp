#include "app/log_console.h"

#include "app/core.h"
#include "app/fixed_names.h"
#include "scripting/wait.h"

log_console::log_console(core& c)
    : m_core(c)
{
}

void log_console::log(const QString& text)
{
    m_core.log(fixed_names::sources::ovscript, text, { fixed_names::tags::scripting });
}

void log_console::append(const QString& html, bool replace_last)
{
    const QString text = plain_text(html);
    if (!text.isEmpty())
        log(text);
}

void log_console::append_error(const QString& text, bool replace_last)
{
    // Errors are plain text, which may hold a "<" of its own.
    log(text);
}

void log_console::show_input(const QString& line)
{
    log(QStringLiteral("$ %1").arg(line));
}

void log_console::wait(const std::function<bool()>& condition, const QString& message, bool replace_last,
    animation kind)
{
    scripting::wait_while(condition, 100);
}
