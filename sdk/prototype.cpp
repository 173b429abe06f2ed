#include "sdk/prototype.h"

#include "sdk/exceptions.h"
#include "sdk/legacy.h"
#include "sdk/thread_starter.h"
#include "sdk/worker_dispatcher.h"
#include "sdk/xcloud.h"
#include "sdk/xnet.h"

#include <QTemporaryFile>

#include <algorithm>

namespace sdk {

prototype* prototype::create(int type)
{
    switch (sdk::type(type)) {
    case sdk::type::legacy: return new sdk::legacy();
    case sdk::type::xcloud: return new sdk::xcloud();
    case sdk::type::xnet: return new sdk::xnet();
    default: throw creating_exception(type);
    }
}

prototype::prototype(sdk::type kind, QObject* parent)
    : QThread(parent)
    , m_type(kind)
{
    if (kind == type::unknown)
        throw creating_exception(int(kind));
}

prototype::~prototype()
{
    stop_queue();
    wait();
    delete m_temporary_file;
}

device prototype::current_device() const
{
    return m_device;
}

bool prototype::init(const QString& ident, const device& dev)
{
    m_ident = ident;
    m_device = dev;
    return true;
}

void prototype::update_device(const device& dev)
{
    m_device = dev;
}

void prototype::enqueue(const step& s, bool with_client, bool with_login, bool with_done)
{
    QMutexLocker lock(&m_queue_mutex);
    const quint64 batch = ++m_batch;
    const auto append = [&](int code, const QVariantList& args) { m_queue.append({ code, args, batch }); };
    if (with_client)
        append(step_create_client, {});
    if (with_login) {
        append(step_login, {});
        append(s.code, s.args);
        append(step_close, {});
    } else {
        append(s.code, s.args);
    }
    if (with_client)
        append(step_destroy_client, {});
    if (with_done)
        append(step_emit_done, {});

    if (!m_active) {
        m_active = true;
        lock.unlock();
        // A thread that has just seen its queue run empty may still be returning.
        wait();
        // The dispatcher goes with the thread that ends; each start gets a new one.
        if (!eventDispatcher())
            setEventDispatcher(new worker_dispatcher);
        thread_starter::start(this);
    }
}

QList<int> prototype::queued_codes() const
{
    QMutexLocker lock(&m_queue_mutex);
    QList<int> codes;
    for (const step& s : m_queue)
        codes << s.code;
    return codes;
}

bool prototype::take_next(step& out, quint64& newest)
{
    QMutexLocker lock(&m_queue_mutex);
    if (m_queue.isEmpty()) {
        m_current = {};
        m_active = false;
        return false;
    }
    m_current = m_queue.takeFirst();
    out = m_current;
    newest = m_batch;
    return true;
}

void prototype::drop_through(quint64 batch)
{
    QMutexLocker lock(&m_queue_mutex);
    m_queue.erase(std::remove_if(m_queue.begin(), m_queue.end(), [batch](const step& s) { return s.batch <= batch; }),
        m_queue.end());
}

void prototype::stop_queue()
{
    QMutexLocker lock(&m_queue_mutex);
    m_queue.clear();
}

void prototype::run()
{
    step s;
    quint64 newest = 0;
    while (take_next(s, newest)) {
        // A failed step has said what it had to say; the rest of the queue goes with it. Steps
        // queued after it started stay: they answer its failure report.
        if (!run_step(s))
            drop_through(newest);
    }
}

bool prototype::run_step(const step& s)
{
    if (s.code == step_emit_done) {
        emit done(m_ident);
        return true;
    }
    return false;
}

bool prototype::write_temporary_file(const QByteArray& data, bool verify)
{
    delete m_temporary_file;
    m_temporary_file = new QTemporaryFile();
    if (!m_temporary_file->open())
        return false;
    const qint64 written = m_temporary_file->write(data);
    if (written != data.size()) {
        m_temporary_file->close();
        if (verify)
            throw tmp_file_exception::size_mismatch(data.size(), written);
        return true;
    }
    if (!verify) {
        m_temporary_file->close();
        return true;
    }
    m_temporary_file->flush();
    m_temporary_file->seek(0);
    const QByteArray back = m_temporary_file->readAll();
    m_temporary_file->close();
    if (back != data)
        throw tmp_file_exception::data_mismatch();
    return true;
}

void prototype::remove_temporary_file()
{
    delete m_temporary_file;
    m_temporary_file = nullptr;
}

QString prototype::temporary_file_name() const
{
    if (!m_temporary_file)
        throw tmp_file_exception::not_set();
    return m_temporary_file->fileName();
}

void prototype::set_parameter(const QString& key, const QVariant& value)
{
    m_parameters.insert(key, value);
}

} // namespace sdk
