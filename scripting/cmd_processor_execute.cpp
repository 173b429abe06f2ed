// The execution stage: entries run one at a time, commands reach the core by the blocking signal.
#include "scripting/cmd_processor.h"

#include "scripting/text_values.h"

#include <QCoreApplication>

namespace {

using scripting::commands;

const QString substitution_label = QStringLiteral("subcmd");

bool is_builtin(const scripting::cmd_id& id, commands number)
{
    return id.plugin.isEmpty() && id.number == qint64(number);
}

QString placeholder(int index)
{
    return QStringLiteral("-//%1//-").arg(index);
}

} // namespace

void cmd_processor::execution_stage()
{
    while (m_state.running()) {
        scripting::queue_entry entry;
        {
            QMutexLocker lock(&m_mutex);
            if (m_queue.isEmpty())
                return;
            entry = m_queue.first();
        }
        const bool finished = execute(entry);
        QMutexLocker lock(&m_mutex);
        // Other threads only append, so the head is still this entry.
        if (finished && !m_queue.isEmpty())
            m_queue.removeFirst();
        while (m_queue.isEmpty() && !m_saved.isEmpty())
            m_queue = m_saved.pop();
        if (m_queue.isEmpty())
            return;
    }
}

bool cmd_processor::execute(scripting::queue_entry& entry)
{
    switch (entry.kind) {
    case scripting::assignment_entry:
        run_assignment(entry);
        return true;
    case scripting::command_entry:
        return run_command(entry);
    case scripting::flow_entry:
        if (entry.mode == execution_mode::conditional)
            return run_conditional(entry);
        if (entry.mode == execution_mode::substitution)
            return run_substitution(entry);
        return true;
    case scripting::help_entry:
        show_help(entry);
        return true;
    case scripting::print_entry:
        emit output(entry.line);
        return true;
    default:
        return true;
    }
}

void cmd_processor::run_assignment(const scripting::queue_entry& entry)
{
    const QString name = entry.params.firstKey();
    const QString value = entry.params.first();
    QString message;
    {
        QMutexLocker lock(&m_mutex);
        if (is_builtin(entry.command, commands::variable_assignment)) {
            const QDateTime now = QDateTime::currentDateTime();
            auto found = m_variables.find(name);
            if (found == m_variables.end()) {
                m_variables.insert(name, { value, {}, now, now });
            } else {
                found->modified = now;
                if (found->value != value) {
                    found->history.append(found->value);
                    found->value = value;
                }
            }
            if (m_echo)
                message = tr("%1 set to \"%2\"").arg(name, value);
        } else if (is_builtin(entry.command, commands::alias_definition)) {
            m_aliases.insert(name, value);
            if (m_echo)
                message = tr("%1 is now alias for \"%2\"").arg(name, value);
        } else {
            message = tr("Internal error: incorrect command");
        }
    }
    if (!message.isEmpty())
        emit output(message);
}

bool cmd_processor::run_command(scripting::queue_entry& entry)
{
    {
        QMutexLocker lock(&m_mutex);
        ++m_executed;
    }
    const scripting::cmd_id& id = entry.command;
    if (is_builtin(id, commands::macro_record)) {
        if (m_recorder.start_recording(entry.args.value(0)))
            return true;
        clear_current();
        return false;
    }
    if (is_builtin(id, commands::macro_stop)) {
        m_recorder.stop_recording();
        return true;
    }
    const bool recording = m_recorder.is_recording();
    if (is_builtin(id, commands::macro_run) && !recording) {
        m_recorder.play(entry.args.value(0));
        return true;
    }
    if (is_builtin(id, commands::echo)) {
        const std::optional<bool> on = scripting::text_to_bool(entry.args.value(0));
        if (on) {
            QMutexLocker lock(&m_mutex);
            m_echo = *on;
        } else {
            emit output(QCoreApplication::translate("sapi", "Unsupported value: %1").arg(entry.args.value(0)));
        }
        return true;
    }
    if (recording) {
        m_recorder.add_line(entry.line);
        return true;
    }
    if (is_builtin(id, commands::stop)) {
        // Saved queues stay, so a stop inside a branch ends only that branch.
        clear_current();
        return false;
    }

    resolution r;
    QStringList args = entry.args;
    for (QString& arg : args)
        arg = resolve(arg, 0, r);
    param_list params = entry.params;
    for (QString& value : params)
        value = resolve(value, 0, r);
    if (r.error)
        emit parse_error(entry.ident, tr("Processing limit reached (%1)").arg(tr("variables")));

    uint executed = 0;
    size_t queued = 0;
    // A condition's commands are seen only through their result, as a substitution's are.
    execution_mode mode = m_flow_state == flow_condition ? execution_mode::conditional : entry.mode;
    {
        QMutexLocker lock(&m_mutex);
        executed = m_executed;
        queued = m_queued;
        if (!m_saved.isEmpty() && !m_saved.top().isEmpty()
            && m_saved.top().first().mode == execution_mode::substitution)
            mode = execution_mode::substitution;
    }
    emit command(entry.ident, executed, queued, entry.line, id, args, params, mode);
    return true;
}

bool cmd_processor::run_conditional(const scripting::queue_entry& entry)
{
    if (m_flow_state == flow_idle) {
        // The entry stays at the head of the saved queue until the condition has run.
        m_flow_state = flow_condition;
        enter(entry.branches.value(0));
        return false;
    }
    m_flow_state = flow_idle;
    const QList<scripting::queue_entry> chosen = last_result().ok ? entry.branches.value(1) : entry.branches.value(2);
    QMutexLocker lock(&m_mutex);
    if (!m_queue.isEmpty())
        m_queue.removeFirst();
    m_saved.push(m_queue);
    m_queue = chosen;
    return false;
}

bool cmd_processor::run_substitution(scripting::queue_entry& entry)
{
    if (m_label != substitution_label) {
        m_saved_labels.push({ m_label, m_index });
        m_label = substitution_label;
        m_index = 0;
    }
    if (m_flow_state == flow_idle) {
        if (m_index < entry.branches.size()) {
            m_flow_state = flow_substitution;
            enter(entry.branches[m_index]);
            return false;
        }
        // Every sub-command has run: what is left is the command itself.
        entry.kind = scripting::command_entry;
        entry.mode = execution_mode::plain;
        replace_head(entry);
        const QPair<QString, int> saved = m_saved_labels.isEmpty() ? QPair<QString, int>() : m_saved_labels.pop();
        m_label = saved.first;
        m_index = saved.second;
        return false;
    }
    m_flow_state = flow_idle;
    const QString result = last_result().result;
    entry.line.replace(placeholder(m_index), result);
    for (QString& arg : entry.args)
        arg.replace(placeholder(m_index), result);
    ++m_index;
    replace_head(entry);
    return false;
}

void cmd_processor::show_help(const scripting::queue_entry& entry)
{
    static const scripting::cmddb::tree nothing;
    const scripting::cmddb::tree* level = &m_db.commands_tree();
    for (const QString& part : entry.args) {
        const auto child = level->constFind(part);
        level = child == level->cend() ? &nothing : &child->children;
    }
    QStringList names;
    for (auto it = level->cbegin(); it != level->cend(); ++it) {
        if (!it.key().isEmpty() && !it->hidden)
            names.append(it.key());
    }
    if (level->contains(QString()))
        names.append(QStringLiteral("&lt;%1&gt;").arg(tr("argument as the next subcommand")));
    if (names.isEmpty())
        emit output(QStringLiteral("<span style=\"color: gray;\">%1</span>").arg(tr("No subcommands")));
    else
        emit output(QStringLiteral("[ <span style=\"color: blue; font-weight: bold;\">%1</span> ]: %2")
                        .arg(entry.args.join(QLatin1Char('.')), names.join(QStringLiteral(", "))));
}

void cmd_processor::enter(const QList<scripting::queue_entry>& list)
{
    QMutexLocker lock(&m_mutex);
    m_saved.push(m_queue);
    m_queue = list;
}

void cmd_processor::replace_head(const scripting::queue_entry& entry)
{
    QMutexLocker lock(&m_mutex);
    if (!m_queue.isEmpty())
        m_queue.first() = entry;
}

void cmd_processor::clear_current()
{
    QMutexLocker lock(&m_mutex);
    m_queue.clear();
}
