#include "sdk/library_backend.h"

#include "sdk/exceptions.h"

namespace sdk {

namespace {

constexpr int message_login = 12500;
constexpr int login_ready = 6;
constexpr int message_progress = 13006;

} // namespace

library_backend::progress library_backend::translate(int p1, int p2, int p3)
{
    using stage = flash_progress_type;
    const uint current = uint(p2);
    const uint total = uint(p3);
    switch (p1) {
    case 2: return { stage::sending, current, total, false };
    case 3: return { stage::sending_complete, current, total, false };
    case 4:
        if (p2 < 501)
            return { stage::upgrading, current, total, false };
        if (p2 == 515)
            return { stage::done, current, total, true };
        return { stage::failure, current, 0, true };
    case 5: return { stage::upgrading_complete, current, total, false };
    case 6:
        // Negated in unsigned arithmetic: the lowest int has no positive counterpart.
        if (p2 < 0)
            return { stage::failure, 0u - current, 0, true };
        return { stage::done, current, total, true };
    default: return { stage::misinterpreted, current, total, false };
    }
}

library_backend::library_backend(sdk::type kind, process_state& state, QObject* parent)
    : prototype(kind, parent)
    , m_state(state)
{
    if (!m_state.library.load())
        throw creating_exception::library_missing(m_state.library.file_name(), m_state.library.error());
}

library_backend::~library_backend()
{
    // A late message then finds no worker; one being delivered is waited for.
    m_state.registry.remove(m_ident, this);
}

bool library_backend::init_library(const std::function<bool()>& call)
{
    QMutexLocker lock(&m_state.init_mutex);
    if (!m_state.initialised)
        m_state.initialised = call();
    return m_state.initialised;
}

QStringList library_backend::operations() const
{
    return { QStringLiteral("flash") };
}

int library_backend::uses_sdk_session(const QString& task_name) const
{
    Q_UNUSED(task_name)
    return int(sdk::type::legacy);
}

void library_backend::clean_up()
{
    remove_temporary_file();
}

bool library_backend::upgrade_firmware_file(const QString& path)
{
    if (!path.isEmpty()) {
        m_firmware_path = path;
    } else {
        try {
            m_firmware_path = temporary_file_name();
        } catch (const tmp_file_exception&) {
            m_firmware_path.clear();
        }
    }
    {
        QMutexLocker lock(&m_stages_mutex);
        m_stages << stage_login << stage_upgrade;
    }
    run_first_stage();
    return true;
}

bool library_backend::await_device(const QHostAddress&, float)
{
    return true;
}

bool library_backend::change_ip(const QHostAddress&, const QHostAddress&)
{
    return false;
}

bool library_backend::change_port(const QString&, uint16_t)
{
    return false;
}

bool library_backend::change_subnet(const QHostAddress&)
{
    return false;
}

bool library_backend::set_dhcp(bool)
{
    return false;
}

bool library_backend::fix_device(bool)
{
    return false;
}

bool library_backend::upgrade_firmware(const QByteArray&)
{
    return false;
}

bool library_backend::import_configuration(const QString&)
{
    return false;
}

bool library_backend::reboot()
{
    return false;
}

bool library_backend::reset_configuration(const parameters&)
{
    return false;
}

bool library_backend::set_language(const QString&)
{
    return false;
}

bool library_backend::execute(const QString&, const QVariantList&, bool, bool, bool, bool)
{
    return false;
}

bool library_backend::run_step(const step&)
{
    return true;
}

void library_backend::next_stage()
{
    {
        QMutexLocker lock(&m_stages_mutex);
        if (!m_stages.isEmpty())
            m_stages.removeFirst();
    }
    run_first_stage();
}

void library_backend::run_first_stage()
{
    int code = 0;
    {
        QMutexLocker lock(&m_stages_mutex);
        if (m_stages.isEmpty())
            return;
        code = m_stages.constFirst();
    }
    run_stage(code);
}

void library_backend::fail_stage(int code)
{
    {
        QMutexLocker lock(&m_stages_mutex);
        m_stages.clear();
    }
    if (code == stage_login)
        emit failed(m_ident, 1, QStringLiteral("Ошибка входа"));
    else
        emit failed(m_ident, 2, QStringLiteral("Ошибка запуска обновления"));
}

callback_registry::handler library_backend::message_handler()
{
    return [this](int id, int message, int p1, int p2, int p3) { return on_sdk_message(id, message, p1, p2, p3); };
}

void library_backend::bind_login(int id)
{
    m_state.registry.bind(m_ident, this, message_handler(), id);
    m_sdk_id = id;
}

void library_backend::bind_upgrade(int id)
{
    m_state.registry.add_id(m_ident, this, message_handler(), id);
}

int library_backend::on_sdk_message(int id, int message, int p1, int p2, int p3)
{
    Q_UNUSED(id)
    if (message == message_login && p1 == login_ready) {
        // Stages run on the owner's thread; the posted call dies with the worker.
        QMetaObject::invokeMethod(
            this, [this] { next_stage(); }, Qt::QueuedConnection);
        return 0;
    }
    if (message != message_progress)
        return 0;
    const progress p = translate(p1, p2, p3);
    bool more = false;
    {
        QMutexLocker lock(&m_stages_mutex);
        if (m_stages.value(0, -1) != stage_upgrade)
            return 0;
        // Left at once, so that a late report finds the stage gone.
        if (p.ends) {
            m_stages.removeFirst();
            more = !m_stages.isEmpty();
        }
    }
    emit flash_progress(m_ident, p.stage, p.current, p.total);
    if (more)
        QMetaObject::invokeMethod(
            this, [this] { run_first_stage(); }, Qt::QueuedConnection);
    return 0;
}

} // namespace sdk
