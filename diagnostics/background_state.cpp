#include "diagnostics/background_state.h"

namespace background {

void state::set(uint16_t value)
{
    QMutexLocker lock(&m_mutex);
    m_running = value;
}

uint16_t state::value() const
{
    QMutexLocker lock(&m_mutex);
    return m_running;
}

} // namespace background
