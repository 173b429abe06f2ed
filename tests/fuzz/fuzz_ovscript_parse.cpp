#include "scripting/cmddb.h"
#include "scripting/statement_parser.h"

#include <QMap>
#include <QString>

#include <cstddef>
#include <cstdint>
#include <cstdlib>

namespace {

const scripting::cmddb& vocabulary()
{
    static const scripting::cmddb db = [] {
        scripting::cmddb d;
        d.build();
        return d;
    }();
    return db;
}

// Every entry, argument and text of a parse, so that growth beyond the input shows.
size_t weight(const scripting::queue_entry& e)
{
    size_t total = 1 + size_t(e.line.size()) + size_t(e.args.size());
    for (const QString& a : e.args)
        total += size_t(a.size());
    for (auto it = e.params.cbegin(); it != e.params.cend(); ++it)
        total += size_t(it.key().size() + it.value().size());
    for (const auto& list : e.branches) {
        for (const scripting::queue_entry& inner : list)
            total += weight(inner);
    }
    return total;
}

} // namespace

// Whatever a console line or script line holds, the parse stage must neither crash nor
// loop nor make more than a bounded amount of work out of it. Alias definitions in the
// input are taken up for the statements after them, as the interpreter does between lines.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    const QString text = QString::fromUtf8(reinterpret_cast<const char*>(data), int(size));
    QMap<QString, QString> aliases { { "self", "self x" }, { "ping", "pong a" }, { "pong", "ping b" },
        { "p", "print --k=\"v w\"" }, { "add", "devices.add" } };
    size_t messages = 0;
    const auto errors = [&](const QUuid&, const QString& message) {
        if (message.isEmpty())
            std::abort();
        ++messages;
    };

    const QList<scripting::input_line> statements =
        scripting::statement_parser::split({ QUuid::createUuid(), QUuid::createUuid(), text });
    if (size_t(statements.size()) > size + 1)
        std::abort();
    size_t total = 0;
    for (const scripting::input_line& statement : statements) {
        const scripting::statement_parser parser(vocabulary(), aliases, errors);
        const std::optional<scripting::queue_entry> e = parser.parse(statement, 0);
        if (!e)
            continue;
        total += weight(*e);
        if (e->kind == scripting::assignment_entry && e->params.size() != 1)
            std::abort();
        if (e->command.number == qint64(scripting::commands::alias_definition) && aliases.size() < 64)
            aliases.insert(e->params.firstKey(), e->params.first());
    }
    // Aliases may multiply a line by their depth, nesting by its own: far below this.
    if (total > 1024 * (size + 64) || messages > size + 1)
        std::abort();
    scripting::statement_parser::tokenize(text);
    return 0;
}
