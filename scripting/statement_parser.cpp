#include "scripting/statement_parser.h"

#include <QRegularExpression>

#include <utility>

namespace scripting {

namespace {

const QLatin1String comment_marker("#");
const QLatin1Char silent_marker('@');
const QLatin1String help_marker("?");
const QLatin1Char print_marker('^');
const QLatin1String parameter_prefix("--");
const QLatin1Char subcommand_separator('.');

constexpr QRegularExpression::PatternOptions word_options = QRegularExpression::UseUnicodePropertiesOption;

queue_entry entry_of(const input_line& statement, qint32 kind, const QString& line, quint64 depth)
{
    queue_entry e;
    e.ident = statement.ident;
    e.group = statement.group;
    e.kind = kind;
    e.line = line;
    e.depth = depth;
    return e;
}

queue_entry definition(const input_line& statement, const QString& text, commands number, const QString& name,
    const QString& value, quint64 depth)
{
    queue_entry e = entry_of(statement, assignment_entry, text, depth);
    e.command = { QString(), qint64(number) };
    e.params.insert(name, value);
    return e;
}

bool is_quote(QChar ch)
{
    return ch == QLatin1Char('"') || ch == QLatin1Char('\'');
}

} // namespace

statement_parser::statement_parser(const cmddb& db, QMap<QString, QString> aliases, error_sink errors)
    : m_db(db)
    , m_aliases(std::move(aliases))
    , m_errors(std::move(errors))
{
}

QList<input_line> statement_parser::split(const input_line& line)
{
    if (!line.text.contains(QLatin1Char(';')))
        return { line };

    // Scanned as UTF-8 bytes: every byte that matters is ASCII, so a cut never falls
    // inside a character.
    const QByteArray bytes = line.text.toUtf8();
    QList<input_line> pieces;
    const auto push = [&](int from, int to) {
        pieces.append({ QUuid::createUuid(), line.group, QString::fromUtf8(bytes.mid(from, to - from)).trimmed() });
    };
    int start = 0;
    int word = -1;
    int block = -1;
    for (int i = 0; i < bytes.size(); ++i) {
        switch (bytes[i]) {
        case ' ':
            break;
        case '(':
            if (word >= 0) {
                const QByteArray run = bytes.mid(word, i - word);
                if (run == "if" || run == "then" || run == "else") {
                    block = word;
                    word = -1;
                }
            }
            break;
        case ')':
            word = -1;
            block = -1;
            break;
        case ';':
            if (block >= 0)
                break;
            push(start, i);
            start = i + 1;
            word = -1;
            block = -1;
            break;
        default:
            if (word < 0)
                word = i;
        }
    }
    if (word > 0)
        push(word, bytes.size());
    return pieces;
}

QStringList statement_parser::tokenize(const QString& text)
{
    QStringList tokens;
    QString token;
    bool in_token = false;
    bool opened_quoted = false; // the token began with a quote
    QChar quote; // the quote of the open quoted part; null outside one
    bool keep_quotes = false; // a "--" token keeps them for the second pass of its value

    for (const QChar ch : text) {
        if (!quote.isNull()) {
            if (ch == quote) {
                quote = QChar();
                if (keep_quotes)
                    token += ch;
            } else {
                token += ch;
            }
            continue;
        }
        if (ch == QLatin1Char(' ')) {
            if (in_token)
                tokens.append(token);
            token.clear();
            in_token = false;
            continue;
        }
        if (is_quote(ch)) {
            if (!in_token) {
                in_token = true;
                opened_quoted = true;
                keep_quotes = false;
                quote = ch;
            } else if (token.startsWith(parameter_prefix)) {
                keep_quotes = true;
                quote = ch;
                token += ch;
            } else if (opened_quoted) {
                // Glued after a closing quote: another quoted part of the same token.
                quote = ch;
            }
            // In a plain token a quote opens nothing and is dropped.
            continue;
        }
        if (!in_token) {
            in_token = true;
            opened_quoted = false;
            keep_quotes = false;
        }
        token += ch;
    }
    if (in_token)
        tokens.append(token);
    return tokens;
}

std::optional<queue_entry> statement_parser::parse(const input_line& statement, quint64 depth) const
{
    const QString text = statement.text.trimmed();
    if (text.isEmpty() || text.startsWith(comment_marker))
        return std::nullopt;
    if (depth > nesting_depth) {
        fail(statement, tr("Processing limit reached (%1)").arg(tr("nesting")));
        return std::nullopt;
    }

    static const QRegularExpression assignment(
        QStringLiteral("\\A\\w+\\s?=\\s?.*\\z"), word_options | QRegularExpression::DotMatchesEverythingOption);
    if (assignment.match(text).hasMatch()) {
        const int equals = text.indexOf(QLatin1Char('='));
        return definition(statement, text, commands::variable_assignment, text.left(equals).trimmed(),
            text.mid(equals + 1).trimmed(), depth);
    }

    static const QRegularExpression alias(
        QStringLiteral("\\A%\\w+\\s+.*\\z"), word_options | QRegularExpression::DotMatchesEverythingOption);
    if (alias.match(text).hasMatch()) {
        // With a tab and no blank, -1 makes both the name and the value the whole line.
        const int blank = text.indexOf(QLatin1Char(' '));
        return definition(statement, text, commands::alias_definition, text.mid(1, blank).trimmed(),
            text.mid(blank + 1).trimmed(), depth);
    }

    static const QRegularExpression substitution(QStringLiteral("\\$\\((.*)\\)"));
    if (substitution.match(text).hasMatch())
        return parse_substitution(statement, text, depth);

    static const QRegularExpression conditional(
        QStringLiteral("^if\\((.*)\\)\\s+then\\((.*?)\\)(?:\\s+else\\((.*)\\))?"));
    const QRegularExpressionMatch found = conditional.match(text);
    if (found.hasMatch()) {
        // Captures that didn't take part or are empty leave no gap: the next one moves up.
        QStringList captures;
        for (int i = 1; i <= found.lastCapturedIndex(); ++i) {
            if (!found.captured(i).isEmpty())
                captures.append(found.captured(i));
        }
        return parse_conditional(statement, text, captures, depth);
    }

    return parse_command(statement, text, depth);
}

std::optional<queue_entry> statement_parser::parse_conditional(
    const input_line& statement, const QString& text, const QStringList& captures, quint64 depth) const
{
    queue_entry e = entry_of(statement, flow_entry, text, depth);
    e.mode = execution_mode::conditional;
    for (const QString& capture : captures) {
        QList<queue_entry> list;
        for (const input_line& piece : split({ statement.ident, statement.group, capture })) {
            std::optional<queue_entry> inner = parse(piece, depth + 1);
            if (!inner)
                return std::nullopt;
            list.append(std::move(*inner));
        }
        e.branches.append(list);
    }
    return e;
}

std::optional<queue_entry> statement_parser::parse_substitution(
    const input_line& statement, const QString& text, quint64 depth) const
{
    // Minimal, so that each sub-command ends at its first ")".
    static const QRegularExpression sub_command(QStringLiteral("\\$\\((.*?)\\)"));
    QString rewritten = text;
    QList<QList<queue_entry>> subs;
    int from = 0;
    for (QRegularExpressionMatch m = sub_command.match(rewritten); m.hasMatch(); m = sub_command.match(rewritten, from)) {
        std::optional<queue_entry> sub = parse({ statement.ident, statement.group, m.captured(1) }, depth + 1);
        if (!sub)
            return std::nullopt;
        subs.append({ std::move(*sub) });
        const QString placeholder = QStringLiteral("-//%1//-").arg(subs.size() - 1);
        rewritten.replace(m.capturedStart(), m.capturedLength(), placeholder);
        from = m.capturedStart() + placeholder.size();
    }
    std::optional<queue_entry> e = parse({ statement.ident, statement.group, rewritten }, depth);
    if (!e)
        return std::nullopt;
    e->kind = flow_entry;
    e->mode = execution_mode::substitution;
    e->line = text;
    e->branches = subs;
    return e;
}

std::optional<queue_entry> statement_parser::parse_command(
    const input_line& statement, const QString& text, quint64 depth) const
{
    QStringList tokens = tokenize(text);
    QStringList args;
    param_list params;
    for (int i = 1; i < tokens.size(); ++i) {
        if (!tokens[i].startsWith(parameter_prefix)) {
            args.append(tokens[i]);
            continue;
        }
        // Only the first two parts count, so a second "=" ends the value.
        const QStringList parts = tokens[i].mid(2).split(QLatin1Char('='), Qt::SkipEmptyParts);
        if (!parts.isEmpty())
            params.insert(parts[0], parts.size() > 1 ? tokenize(parts[1]).value(0) : QString());
    }
    if (tokens.isEmpty())
        return std::nullopt;

    QString name = tokens.first();
    if (text.startsWith(silent_marker))
        name.remove(0, 1);
    if (name.startsWith(print_marker))
        return entry_of(statement, print_entry, text.mid(1).trimmed(), depth);

    for (int expansions = 0; m_aliases.contains(name); ++expansions) {
        if (expansions > alias_depth) {
            fail(statement, tr("Processing limit reached (%1)").arg(tr("aliases")));
            return std::nullopt;
        }
        QStringList value = tokenize(m_aliases.value(name));
        name = value.isEmpty() ? QString() : value.takeFirst();
        args = value + args;
    }

    const QStringList parts = name.split(subcommand_separator, Qt::SkipEmptyParts);
    const cmddb::tree* level = &m_db.commands_tree();
    cmd_id current;
    for (int i = 0; i < parts.size(); ++i) {
        if (parts[i] == help_marker) {
            queue_entry help = entry_of(statement, help_entry, text, depth);
            help.command = { QString(), qint64(commands::help_query) };
            help.args = parts.mid(0, i);
            return help;
        }
        auto child = level->constFind(parts[i]);
        if (child == level->cend())
            child = level->constFind(QString());
        if (child == level->cend()) {
            fail(statement,
                i == 0 ? tr("Unknown command: %1").arg(name) : tr("Unknown subcommand for %1: %2").arg(parts[0], parts[i]));
            return std::nullopt;
        }
        current = child->command;
        level = &child->children;
        if (!current.is_null()) {
            const qint32 name_arguments = m_db.commands_table().value(current).name_arguments;
            if (name_arguments != 0 && parts.size() - name_arguments == i)
                break;
        }
        if (i == parts.size() - 1 && current.is_null() && !level->isEmpty()) {
            fail(statement, tr("Subcommand required for %1. Type %1.? to view available variants.").arg(name));
            return std::nullopt;
        }
    }
    if (current.is_null()) {
        fail(statement, tr("Unknown command: %1").arg(name));
        return std::nullopt;
    }

    const command_row row = m_db.commands_table().value(current);
    if (row.name_arguments > 0)
        args = parts.mid(parts.size() - row.name_arguments) + args;
    if (args.size() < row.min_args) {
        QStringList expected;
        for (int i = args.size(); i < row.args.size(); ++i) {
            const QString word = cmddb::argument_word(row.args[i].kind);
            expected.append(row.args[i].required ? word : QStringLiteral("[%1]").arg(word));
        }
        fail(statement, tr("Not enough arguments. Expected: %1").arg(expected.join(QStringLiteral(", "))));
        return std::nullopt;
    }

    queue_entry e = entry_of(statement, command_entry, text, depth);
    e.command = current;
    e.args = args;
    e.params = params;
    return e;
}

void statement_parser::fail(const input_line& statement, const QString& message) const
{
    if (m_errors)
        m_errors(statement.ident, message);
}

} // namespace scripting
