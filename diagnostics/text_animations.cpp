#include "diagnostics/text_animations.h"

namespace text_animations {

waiting::waiting()
    : m_frames { QStringLiteral("."), QStringLiteral(".."), QStringLiteral("...") }
{
}

void waiting::reset()
{
    m_index = 0;
}

QString waiting::next()
{
    if (m_frames.isEmpty())
        return {};
    if (m_index >= m_frames.size())
        m_index = 0;
    return m_frames.at(m_index++);
}

spinning::spinning()
{
    m_frames = QStringList { QStringLiteral("/"), QStringLiteral("-"), QStringLiteral("\\"), QStringLiteral("|") };
}

scanning::scanning()
{
    m_frames = QStringList { QStringLiteral("[|------]"), QStringLiteral("[-|-----]"), QStringLiteral("[--|----]"),
        QStringLiteral("[---|---]"), QStringLiteral("[----|--]"), QStringLiteral("[-----|-]"),
        QStringLiteral("[------|]") };
}

} // namespace text_animations
