#pragma once

#include <QMap>
#include <QMutex>
#include <QString>

#include <functional>

namespace sdk {

// The process-wide maps of one closed library: which worker an id handed out by the library
// belongs to, and how to reach that worker. The library calls back on threads of its own, so
// every access takes the one mutex, and a worker that forgets itself waits for a callback
// that is reaching it at that moment.
class callback_registry final
{
public:
    using handler = std::function<int(int id, int message, int p1, int p2, int p3)>;

    callback_registry() = default;
    Q_DISABLE_COPY_MOVE(callback_registry)

    // Stores the worker's function object under its ident, replacing an old one, and the id.
    void bind(const QString& ident, const void* owner, const handler& call, int id);
    // Stores one more id; the function object only when the ident has none.
    void add_id(const QString& ident, const void* owner, const handler& call, int id);
    // Forgets the owner's function object and every id of its ident. Another worker that
    // has since taken the ident over keeps its entries.
    void remove(const QString& ident, const void* owner);
    // Calls the worker that the id belongs to; 0 for an id nobody knows.
    int dispatch(int id, int message, int p1, int p2, int p3);

private:
    struct entry
    {
        const void* owner = nullptr;
        handler call;
    };

    QMutex m_mutex; // guards both maps, and is held while a handler runs
    QMap<int, QString> m_id_to_ident;
    QMap<QString, entry> m_ident_to_callback;
};

} // namespace sdk
