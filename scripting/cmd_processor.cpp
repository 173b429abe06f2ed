#include "scripting/cmd_processor.h"

#include "scripting/statement_parser.h"

#include <QFile>
#include <QTextStream>

using scripting::macro_recorder;

cmd_processor::cmd_processor(const scripting::cmddb& db, QObject* parent)
    : background::latched_thread(parent)
    , m_db(db)
{
    qRegisterMetaType<scripting::cmd_id>("scripting::cmd_id");
    qRegisterMetaType<scripting::execution_mode>("cmd_processor::execution_mode");
    qRegisterMetaType<param_list>("param_list");
    qRegisterMetaType<size_t>("size_t");

    // The recorder is driven from this thread, so its signals arrive here at once.
    connect(&m_recorder, &macro_recorder::macro_line, this, &cmd_processor::on_macro_line, Qt::DirectConnection);
    connect(&m_recorder, &macro_recorder::error, this, &cmd_processor::output, Qt::DirectConnection);
    connect(&m_recorder, &macro_recorder::playback_started, this, &cmd_processor::macro_playback_started,
        Qt::DirectConnection);
    connect(&m_recorder, &macro_recorder::playback_stopped, this, &cmd_processor::macro_playback_stopped,
        Qt::DirectConnection);
    connect(&m_recorder, &macro_recorder::recording_started, this, &cmd_processor::macro_recording_started,
        Qt::DirectConnection);
    connect(&m_recorder, &macro_recorder::recording_stopped, this, &cmd_processor::macro_recording_stopped,
        Qt::DirectConnection);

    register_var_handler({ QStringLiteral("\\$\\{(\\w+)\\}"), QString(), [this](const QStringList& path) {
                              return variable(path.value(0));
                          } });
}

cmd_processor::~cmd_processor()
{
    stop_and_wait();
}

bool cmd_processor::execute_line(const QUuid& ident, const QString& text, bool hold)
{
    ensure_started();
    {
        QMutexLocker lock(&m_mutex);
        m_input.append({ ident, ident, text });
    }
    if (!hold)
        wake();
    return true;
}

void cmd_processor::execute_script(const QList<QPair<QUuid, QString>>& lines)
{
    ensure_started();
    const QUuid group = QUuid::createUuid();
    {
        QMutexLocker lock(&m_mutex);
        for (const auto& [ident, text] : lines)
            m_input.append({ ident, group, text });
    }
    wake();
}

void cmd_processor::queue_print(const QString& text, quint64 depth)
{
    {
        QMutexLocker lock(&m_mutex);
        if (!m_echo)
            return;
        scripting::queue_entry e;
        e.ident = e.group = QUuid::createUuid();
        e.kind = scripting::print_entry;
        e.line = text;
        e.depth = depth;
        m_queue.append(e);
    }
    // Usually called while the thread runs; a print queued while it sleeps must not wait for the next line.
    wake();
}

QUuid cmd_processor::queue_entry(
    qint32 kind, const QString& line, const scripting::cmd_id& command, const QStringList& args, const param_list& params)
{
    ensure_started();
    scripting::queue_entry e;
    e.ident = e.group = QUuid::createUuid();
    e.kind = kind;
    e.line = line;
    e.command = command;
    e.args = args;
    e.params = params;
    {
        QMutexLocker lock(&m_mutex);
        ++m_queued;
        m_queue.append(e);
    }
    wake();
    return e.ident;
}

void cmd_processor::set_last_result(bool ok, const QString& text)
{
    QMutexLocker lock(&m_mutex);
    m_last = { ok, text };
}

scripting::command_result cmd_processor::last_result() const
{
    QMutexLocker lock(&m_mutex);
    return m_last;
}

bool cmd_processor::echo_enabled() const
{
    QMutexLocker lock(&m_mutex);
    return m_echo;
}

bool cmd_processor::idle() const
{
    QMutexLocker lock(&m_mutex);
    return !m_busy && m_input.isEmpty() && m_queue.isEmpty();
}

cmd_processor::script_file cmd_processor::read_script_file(const QString& path)
{
    script_file result;
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly | QIODevice::Text)) {
        result.error = file.errorString();
        return result;
    }
    QTextStream in(&file);
    in.setCodec("UTF-8");
    while (!in.atEnd()) {
        QString line = in.readLine();
        const int nul = line.indexOf(QChar(0));
        if (nul >= 0)
            line.truncate(nul);
        result.lines.append(line);
    }
    result.ok = true;
    return result;
}

void cmd_processor::on_macro_line(const QString& line)
{
    execute_line(QUuid::createUuid(), line, false);
}

void cmd_processor::ensure_started()
{
    QMutexLocker lock(&m_mutex);
    // Never restarted once its owner has stopped it.
    if (!isRunning() && m_state.running())
        start(QThread::InheritPriority);
}

bool cmd_processor::process()
{
    {
        QMutexLocker lock(&m_mutex);
        // Both queues may be empty for a moment while a line is parsed: busy covers it.
        m_busy = !m_input.isEmpty() || !m_queue.isEmpty();
        if (!m_busy) {
            if (!m_running)
                return false;
            m_running = false;
            m_executed = 0;
            m_queued = 0;
            lock.unlock();
            // Nothing of a flow outlives the span; a dropped one must not steer the next.
            m_flow_state = flow_idle;
            m_label.clear();
            m_index = 0;
            m_saved_labels.clear();
            emit queue_stopped();
            return false;
        }
    }
    parse_stage();
    {
        QMutexLocker lock(&m_mutex);
        if (m_queue.isEmpty())
            return true;
    }
    if (!m_running) {
        m_running = true;
        emit queue_started();
    }
    execution_stage();
    return true;
}

void cmd_processor::parse_stage()
{
    while (m_state.running()) {
        scripting::input_line line;
        QMap<QString, QString> aliases;
        {
            QMutexLocker lock(&m_mutex);
            if (m_input.isEmpty())
                return;
            line = m_input.takeFirst();
            aliases = m_aliases;
        }
        const scripting::statement_parser parser(
            m_db, aliases, [this](const QUuid& ident, const QString& message) { emit parse_error(ident, message); });
        for (const scripting::input_line& statement : scripting::statement_parser::split(line)) {
            std::optional<scripting::queue_entry> entry = parser.parse(statement, 0);
            if (!entry)
                continue;
            QMutexLocker lock(&m_mutex);
            if (entry->kind != scripting::print_entry)
                ++m_queued;
            m_queue.append(std::move(*entry));
        }
    }
}
