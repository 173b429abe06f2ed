#pragma once

#include "scripting/cmddb.h"
#include "scripting/queue_entry.h"

#include <QCoreApplication>
#include <QMap>
#include <QString>

#include <functional>
#include <optional>

namespace scripting {

// The parse stage of OVScript: a line into statements, a statement into tokens, and a
// statement into the queue entry that runs it. Faults go to the error sink with the
// statement's ident; only that statement is dropped.
class statement_parser
{
    Q_DECLARE_TR_FUNCTIONS(cmd_processor)
public:
    using error_sink = std::function<void(const QUuid& ident, const QString& message)>;

    static constexpr int alias_depth = 15;
    // Conditionals and substitutions nested deeper than this are refused, so a hostile
    // line can't exhaust the stack.
    static constexpr quint64 nesting_depth = 15;

    // The aliases are a snapshot taken for this parse.
    statement_parser(const cmddb& db, QMap<QString, QString> aliases, error_sink errors);

    // A line without ";" is one statement with its own idents; otherwise each piece gets
    // a fresh ident. ";" inside if(...), then(...) or else(...) doesn't split, and the
    // last piece starts at its last run of text, so one ending in ")" is dropped.
    static QList<input_line> split(const input_line& line);
    // Blank-separated tokens without their quotes; a "--" token keeps quoted parts whole.
    static QStringList tokenize(const QString& text);

    // The entry of one statement; none for an empty text, a comment or a fault.
    std::optional<queue_entry> parse(const input_line& statement, quint64 depth) const;

private:
    std::optional<queue_entry> parse_conditional(
        const input_line& statement, const QString& text, const QStringList& captures, quint64 depth) const;
    std::optional<queue_entry> parse_substitution(const input_line& statement, const QString& text, quint64 depth) const;
    std::optional<queue_entry> parse_command(const input_line& statement, const QString& text, quint64 depth) const;
    void fail(const input_line& statement, const QString& message) const;

    const cmddb& m_db;
    QMap<QString, QString> m_aliases;
    error_sink m_errors;
};

} // namespace scripting
