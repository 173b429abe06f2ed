#include "diagnostics/loggable.h"

#include "diagnostics/blackbox.h"

#include <cstdarg>

loggable::loggable(QByteArray ident, std::shared_ptr<blackbox> box)
    : m_ident(std::move(ident))
    , m_box(std::move(box))
{
}

loggable::~loggable() = default;

void loggable::attach(std::shared_ptr<blackbox> box)
{
    m_box = std::move(box);
}

std::shared_ptr<blackbox> loggable::box() const
{
    return m_box ? m_box : blackbox::global();
}

void loggable::log(int level, const char* format, ...) const
{
    auto target = box();
    if (!target)
        return;
    va_list args;
    va_start(args, format);
    target->vwrite(m_ident.constData(), level, format, args);
    va_end(args);
}
