#include "app/core.h"
#include "app/fixed_names.h"
#include "diagnostics/stall_probe.h"

#include <QApplication>
#include <QCommandLineParser>
#include <QCoreApplication>
#include <QCryptographicHash>
#include <QFile>
#include <QLocale>

#include <cstdio>
#include <memory>

namespace {

QString own_checksum(const QString& path)
{
    QFile self(path);
    if (!self.open(QIODevice::ReadOnly))
        return {};
    QCryptographicHash md5(QCryptographicHash::Md5);
    md5.addData(&self);
    return QString::fromLatin1(md5.result().toHex());
}

void print_help(const QCommandLineParser& parser)
{
    const QByteArray text = parser.helpText().toLocal8Bit();
    fwrite(text.constData(), 1, size_t(text.size()), stdout);
    fflush(stdout);
}

} // namespace

int main(int argc, char* argv[])
{
    const QString display_name = fixed_names::display_name;

    // The application object must be chosen before the options are parsed: the parser
    // needs one, and batch mode must never have widgets. Help and the refusals print
    // and leave, so they need no display either.
    bool batch_requested = false;
    bool prints_only = false;
    bool fetch_only_requested = false;
    bool script_requested = false;
    for (int i = 1; i < argc; ++i) {
        const QByteArray arg(argv[i]);
        batch_requested = batch_requested || arg == "--batch";
        fetch_only_requested = fetch_only_requested || arg == "--fetch-only";
        script_requested = script_requested || arg == "--script" || arg.startsWith("--script=");
        prints_only = prints_only || arg == "--help" || arg == "-h" || arg == "--help-all" || arg == "-?";
    }
    prints_only = prints_only || ((fetch_only_requested || script_requested) && !batch_requested);
    std::unique_ptr<QCoreApplication> app = batch_requested || prints_only
        ? std::make_unique<QCoreApplication>(argc, argv)
        : std::make_unique<QApplication>(argc, argv);

    // A downloaded build of the program waits: it is installed before anything else runs.
    if (install_pending(fixed_names::platform, QCoreApplication::applicationDirPath())) {
        const int code = QCoreApplication::exec();
        app.reset();
        return code;
    }

    QCoreApplication::setOrganizationDomain(fixed_names::organisation_domain);
    QCoreApplication::setApplicationName(display_name.toLower());
    QCoreApplication::setApplicationVersion(QStringLiteral("%1.%2.%3")
                                               .arg(fixed_names::version_major)
                                               .arg(fixed_names::version_minor)
                                               .arg(fixed_names::version_build));
    const QString system_locale = QLocale::system().name();

    auto parser = std::make_unique<QCommandLineParser>();
    parser->setApplicationDescription(QCoreApplication::translate("main", "Orvane by Kelmar"));
    const QCommandLineOption help_option = parser->addHelpOption();
    parser->addPositionalArgument(QStringLiteral("taskfile.csv"),
        QCoreApplication::translate("main", "CSV file, formatted as \"host,port,user,pass\"."));
    const QCommandLineOption batch_option(QStringLiteral("batch"),
        QCoreApplication::translate("main", "Batch mode, requires a CSV file to be supplied in the arguments."));
    const QCommandLineOption fetch_only_option(QStringLiteral("fetch-only"),
        QCoreApplication::translate("main", "Only fetch update status, no firmware upgrading."));
    const QCommandLineOption force_update_option(QStringLiteral("force-update"),
        QCoreApplication::translate("main", "Force device updates."));
    const QCommandLineOption offline_option(QStringLiteral("offline"),
        QCoreApplication::translate("main", "Offline mode (no external communications)."));
    const QCommandLineOption script_option(QStringLiteral("script"),
        QCoreApplication::translate("main",
            "With --batch: run this script file (OVScript, or Lua for .lua) on the devices of the optional CSV "
            "file, and quit once the script and all device tasks have ended."),
        QCoreApplication::translate("main", "file"));
    parser->addOptions({ batch_option, fetch_only_option, force_update_option, offline_option, script_option });

    if (!parser->parse(QCoreApplication::arguments())) {
        fprintf(stderr, "%s\n", qPrintable(parser->errorText()));
        return 1;
    }
    const bool batch = parser->isSet(batch_option);
    const bool fetch_only = parser->isSet(fetch_only_option);
    // --force-update without --batch is accepted and does nothing, unlike --fetch-only.
    const bool force_update = parser->isSet(force_update_option);
    const bool offline = parser->isSet(offline_option);
    const QString script = parser->value(script_option);
    const QStringList positional = parser->positionalArguments();
    // A script run needs no CSV file; the script may bring its own devices.
    if (parser->isSet(help_option) || (batch && positional.isEmpty() && script.isEmpty()) || (fetch_only && !batch)
        || (!script.isEmpty() && !batch)) {
        print_help(*parser);
        return 0;
    }

    int exit_code = 0;
    {
        // The real file and folder, whether started through PATH, a symlink or from another folder.
        auto controller = std::make_unique<core>(
            own_checksum(QCoreApplication::applicationFilePath()), QCoreApplication::applicationDirPath());
        if (controller->current_language().isEmpty())
            controller->apply_language(system_locale);

        if (batch) {
            if (!controller->operate(core::batch, offline)) {
                exit_code = 1;
            } else if (!script.isEmpty()) {
                // The script decides what the devices of the file are to do.
                if (!positional.isEmpty())
                    controller->import_task_file(positional.constFirst());
                exit_code = controller->run_batch_script(script) ? QCoreApplication::exec() : 1;
            } else {
                controller->import_task_file(positional.constFirst());
                controller->on_window_run_list(false, fetch_only, force_update, {});
                exit_code = QCoreApplication::exec();
            }
        } else {
            const auto probe = stall_probe::from_environment();
            if (!controller->operate(core::interactive, offline))
                exit_code = 1;
            else
                exit_code = QCoreApplication::exec();
        }
    }
    parser.reset();
    app.reset();
    return exit_code;
}
