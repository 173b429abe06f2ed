#include "tools/packtool/commands.h"

#include <QCommandLineParser>
#include <QCoreApplication>
#include <QTextStream>

namespace
{

const char* const usage = R"(Builds, lists and checks firmware packs (*.ovpack) and cache files.

  orvane-packtool build --client-id HEX [--format 2|3] -o OUT [--force]
                        [--entries FILE] [--script FILE[:VALUE]] SERIAL:FILE[:SDK] ...
  orvane-packtool build --client-id HEX [--format 2|3] -o OUT --cache FILE ...
  orvane-packtool list  --client-id HEX PACK
  orvane-packtool check --client-id HEX PACK

Exit codes: 0 done, 1 check found a fault, 2 wrong usage, 3 a file can't be read,
written or parsed.)";

} // namespace

int main(int argc, char* argv[])
{
    QCoreApplication app(argc, argv);
    QCoreApplication::setApplicationName(QStringLiteral("orvane-packtool"));

    QCommandLineParser parser;
    parser.setApplicationDescription(QString::fromUtf8(usage));
    parser.addHelpOption();
    parser.addPositionalArgument(QStringLiteral("command"), QStringLiteral("build, list or check"));
    const QCommandLineOption client_id({ "i", "client-id" }, "Service client id, 16 hexadecimal digits.", "hex");
    const QCommandLineOption format({ "f", "format" }, "Format version of a new file, 2 or 3 (default 3).", "n", "3");
    const QCommandLineOption output({ "o", "output" }, "File to write.", "file");
    const QCommandLineOption force("force", "Replace an existing output file.");
    const QCommandLineOption cache("cache", "Build a cache (kind 1): entries are firmware files, no targets.");
    const QCommandLineOption entries("entries", "Entries from a file, one a line: SERIAL<TAB>FILE[<TAB>SDK].", "file");
    const QCommandLineOption script("script", "A script block from a text file (version 3), value 0..255.", "file");
    parser.addOptions({ client_id, format, output, force, cache, entries, script });

    QTextStream err(stderr);
    if (!parser.parse(QCoreApplication::arguments())) {
        err << "orvane-packtool: " << parser.errorText() << "\n\n" << parser.helpText();
        return packtool::usage_error;
    }
    if (parser.isSet(QStringLiteral("help"))) {
        QTextStream(stdout) << parser.helpText();
        return packtool::success;
    }
    QStringList args = parser.positionalArguments();
    const QString command = args.isEmpty() ? QString() : args.takeFirst();

    if (command == QLatin1String("build")) {
        packtool::build_options o;
        o.client_id = parser.value(client_id);
        bool numeric = false;
        o.version = parser.value(format).toInt(&numeric);
        if (!numeric)
            o.version = 0;
        o.output = parser.value(output);
        o.force = parser.isSet(force);
        o.cache = parser.isSet(cache);
        o.entries = args;
        o.entry_files = parser.values(entries);
        o.scripts = parser.values(script);
        return packtool::run_build(o);
    }
    if (command == QLatin1String("list") || command == QLatin1String("check")) {
        if (args.size() != 1) {
            err << "orvane-packtool: " << command << " takes one file\n\n" << parser.helpText();
            return packtool::usage_error;
        }
        return command == QLatin1String("list") ? packtool::run_list(parser.value(client_id), args.first())
                                                : packtool::run_check(parser.value(client_id), args.first());
    }
    err << "orvane-packtool: "
        << (command.isEmpty() ? QStringLiteral("no command") : "unknown command \"" + command + "\"") << "\n\n"
        << parser.helpText();
    return packtool::usage_error;
}
