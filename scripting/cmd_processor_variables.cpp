// Variables, aliases and the resolution of ${...} forms in command arguments.
#include "scripting/cmd_processor.h"

namespace {

// Beyond the limits of depth and count a hostile set of variables could still fan out
// exponentially or grow a text without end; these bound one resolution as a whole.
constexpr int lookup_budget = 4096;
constexpr int max_resolved_length = 1 << 20;

} // namespace

QUuid cmd_processor::register_var_handler(const var_handler& handler)
{
    const QRegularExpression::PatternOptions options = QRegularExpression::UseUnicodePropertiesOption;
    compiled_handler compiled { QRegularExpression(handler.regex, options), QRegularExpression(handler.separator, options),
        handler.resolve };
    const QUuid key = QUuid::createUuid();
    QMutexLocker lock(&m_mutex);
    m_handlers.insert(key, compiled);
    return key;
}

QMap<QString, QString> cmd_processor::aliases() const
{
    QMutexLocker lock(&m_mutex);
    return m_aliases;
}

QMap<QString, cmd_processor::variable_record> cmd_processor::variables() const
{
    QMutexLocker lock(&m_mutex);
    return m_variables;
}

cmd_processor::var_handler_resp cmd_processor::variable(const QString& name) const
{
    QMutexLocker lock(&m_mutex);
    const auto found = m_variables.constFind(name);
    if (found == m_variables.cend())
        return {};
    return { true, found->value };
}

bool cmd_processor::remove_alias(const QString& name)
{
    QMutexLocker lock(&m_mutex);
    return m_aliases.remove(name) > 0;
}

bool cmd_processor::remove_variable(const QString& name)
{
    QMutexLocker lock(&m_mutex);
    return m_variables.remove(name) > 0;
}

QString cmd_processor::resolve(const QString& text, quint64 depth, resolution& r)
{
    if (depth > variable_depth) {
        queue_print(tr("Variable resolution depth (%1) reached for %2").arg(variable_depth).arg(text));
        r.error = true;
        return text;
    }
    QMap<QUuid, compiled_handler> handlers;
    {
        QMutexLocker lock(&m_mutex);
        handlers = m_handlers;
    }
    // One count for the whole text, shared by all handlers; the search restarts from the
    // beginning after each replacement.
    int count = 0;
    QString resolved = text;
    for (const compiled_handler& handler : qAsConst(handlers)) {
        for (QRegularExpressionMatch m = handler.regex.match(resolved); m.hasMatch(); m = handler.regex.match(resolved)) {
            if (count >= variables_per_line) {
                queue_print(tr("Max amount of variables per line (%1) reached for %2").arg(variables_per_line).arg(text));
                r.error = true;
                break;
            }
            if (++r.lookups > lookup_budget || resolved.size() > max_resolved_length) {
                r.error = true;
                return resolved;
            }
            QString value;
            if (handler.resolve) {
                const QString capture = m.captured(1);
                const QStringList path =
                    handler.separator.pattern().isEmpty() ? QStringList { capture } : capture.split(handler.separator);
                const var_handler_resp answer = handler.resolve(path);
                // Not an error: the form becomes empty and the command goes on.
                if (!answer.found)
                    queue_print(tr("Variable not found: %1").arg(capture));
                resolution inner { false, r.lookups };
                value = resolve(answer.found ? answer.value : QString(), depth + 1, inner);
                r.lookups = inner.lookups;
                if (inner.error) {
                    r.error = true;
                    break;
                }
            }
            resolved.replace(m.capturedStart(), m.capturedLength(), value);
            ++count;
        }
    }
    return resolved;
}
