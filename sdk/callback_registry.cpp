#include "sdk/callback_registry.h"

namespace sdk {

void callback_registry::bind(const QString& ident, const void* owner, const handler& call, int id)
{
    QMutexLocker lock(&m_mutex);
    m_ident_to_callback.insert(ident, { owner, call });
    m_id_to_ident.insert(id, ident);
}

void callback_registry::add_id(const QString& ident, const void* owner, const handler& call, int id)
{
    QMutexLocker lock(&m_mutex);
    if (!m_ident_to_callback.contains(ident))
        m_ident_to_callback.insert(ident, { owner, call });
    m_id_to_ident.insert(id, ident);
}

void callback_registry::remove(const QString& ident, const void* owner)
{
    QMutexLocker lock(&m_mutex);
    const auto found = m_ident_to_callback.find(ident);
    if (found == m_ident_to_callback.end() || found->owner != owner)
        return;
    m_ident_to_callback.erase(found);
    for (auto it = m_id_to_ident.begin(); it != m_id_to_ident.end();)
        it = it.value() == ident ? m_id_to_ident.erase(it) : std::next(it);
}

int callback_registry::dispatch(int id, int message, int p1, int p2, int p3)
{
    // Held through the call: the worker can't be destroyed under it. Handlers only post and
    // emit, and never come back here on the same thread.
    QMutexLocker lock(&m_mutex);
    const auto ident = m_id_to_ident.constFind(id);
    if (ident == m_id_to_ident.constEnd())
        return 0;
    const auto found = m_ident_to_callback.constFind(ident.value());
    if (found == m_ident_to_callback.constEnd())
        return 0;
    return found->call(id, message, p1, p2, p3);
}

} // namespace sdk
