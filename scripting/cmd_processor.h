#pragma once

#include "diagnostics/latched_thread.h"
#include "scripting/cmddb.h"
#include "scripting/command_result.h"
#include "scripting/macro_recorder.h"
#include "scripting/queue_entry.h"

#include <QDateTime>
#include <QList>
#include <QMap>
#include <QPair>
#include <QRegularExpression>
#include <QStack>
#include <QStringList>
#include <QUuid>

#include <functional>

// The OVScript interpreter. Producers in any thread hand it lines; its own thread parses
// them into queue entries and hands each command to the core through command(), which
// the core connects blocking: the thread stands still until the command has run, so lines
// that arrive meanwhile wait in the input queue.
class cmd_processor final : public background::latched_thread
{
    Q_OBJECT
public:
    using execution_mode = scripting::execution_mode;

    struct var_handler_resp
    {
        bool found = false;
        QString value;
    };
    // A source of ${...} values: the first capture of regex, split by separator when one
    // is given, is what resolve is asked for.
    struct var_handler
    {
        QString regex;
        QString separator;
        std::function<var_handler_resp(const QStringList& path)> resolve;
    };
    struct variable_record
    {
        QString value;
        QStringList history; // older values, in order of replacement
        QDateTime created;
        QDateTime modified;
    };
    struct script_file
    {
        bool ok = false;
        QString error;
        QStringList lines;
    };

    static constexpr quint64 variable_depth = 15;
    static constexpr int variables_per_line = 60;

    explicit cmd_processor(const scripting::cmddb& db, QObject* parent = nullptr);
    ~cmd_processor() override;
    Q_DISABLE_COPY_MOVE(cmd_processor)

    // Queues a typed line (its ident is also its group); starts the thread when needed and
    // wakes it unless hold.
    bool execute_line(const QUuid& ident, const QString& text, bool hold = false);
    // Queues the lines of one script under one fresh group and wakes the thread once.
    void execute_script(const QList<QPair<QUuid, QString>>& lines);
    // Appends a print entry behind everything queued, if echo is on.
    void queue_print(const QString& text, quint64 depth = 0);
    // Queues an entry built without parsing; its ident.
    QUuid queue_entry(
        qint32 kind, const QString& line, const scripting::cmd_id& command, const QStringList& args, const param_list& params);
    QUuid register_var_handler(const var_handler& handler);

    QMap<QString, QString> aliases() const;
    QMap<QString, variable_record> variables() const;
    var_handler_resp variable(const QString& name) const;
    bool remove_alias(const QString& name);
    bool remove_variable(const QString& name);

    // The outcome of the command just run, stored by whoever ran it.
    void set_last_result(bool ok, const QString& text);
    scripting::command_result last_result() const;
    bool echo_enabled() const;
    // Nothing queued and nothing being worked on; any thread.
    bool idle() const;
    scripting::macro_recorder& recorder() { return m_recorder; }

    // The lines of a script file as UTF-8, each cut at its first NUL.
    static script_file read_script_file(const QString& path);

signals:
    void output(const QString& message);
    void command(QUuid ident, uint command_n, size_t commands_total, QString line, scripting::cmd_id command,
        QStringList args, param_list params, cmd_processor::execution_mode mode);
    void parse_error(QUuid ident, QString message);
    void queue_started();
    void queue_stopped();
    void macro_playback_started(QString name);
    void macro_playback_stopped();
    void macro_recording_started(QString name);
    void macro_recording_stopped();

protected:
    bool process() override;

private:
    struct compiled_handler
    {
        QRegularExpression regex;
        QRegularExpression separator; // empty pattern: no split
        std::function<var_handler_resp(const QStringList&)> resolve;
    };
    // One resolution of a text and everything it leads to.
    struct resolution
    {
        bool error = false;
        int lookups = 0;
    };
    enum flow_state { flow_idle = 0, flow_condition = 1, flow_substitution = 2 };

    void on_macro_line(const QString& line);
    void ensure_started();
    void parse_stage();
    void execution_stage();
    // True when the entry is finished and leaves the queue.
    bool execute(scripting::queue_entry& entry);
    void run_assignment(const scripting::queue_entry& entry);
    bool run_command(scripting::queue_entry& entry);
    bool run_conditional(const scripting::queue_entry& entry);
    bool run_substitution(scripting::queue_entry& entry);
    void show_help(const scripting::queue_entry& entry);
    // Makes list the current queue, the current one waiting on the stack beneath it.
    void enter(const QList<scripting::queue_entry>& list);
    void replace_head(const scripting::queue_entry& entry);
    void clear_current();
    QString resolve(const QString& text, quint64 depth, resolution& r);

    const scripting::cmddb& m_db;
    scripting::macro_recorder m_recorder;

    // Guards the queues, the counters, the maps, the handlers, the last result and echo:
    // producers and the core reach them from other threads. Never held across a signal.
    mutable QMutex m_mutex;
    QList<scripting::input_line> m_input;
    QList<scripting::queue_entry> m_queue;
    QStack<QList<scripting::queue_entry>> m_saved;
    uint m_executed = 0;
    size_t m_queued = 0;
    QMap<QString, variable_record> m_variables;
    QMap<QString, QString> m_aliases;
    QMap<QUuid, compiled_handler> m_handlers;
    scripting::command_result m_last;
    bool m_echo = true;
    bool m_busy = false; // from a round that found work to the round that finds none

    // The interpreter thread's own.
    bool m_running = false;
    flow_state m_flow_state = flow_idle;
    QString m_label; // "subcmd" while a substitution runs
    int m_index = 0; // its next sub-command
    QStack<QPair<QString, int>> m_saved_labels;
};
