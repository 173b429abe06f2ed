#include <QCommandLineParser>
#include <QCoreApplication>
#include <QHostAddress>

#include <csignal>
#include <cstdio>

#include "tools/common/service_identity.h"
#include "tools/common/shutdown_watch.h"
#include "tools/svcsim/config_loader.h"
#include "tools/svcsim/control_commands.h"
#include "tools/svcsim/control_server.h"
#include "tools/svcsim/fault_table.h"
#include "tools/svcsim/firmware_store.h"
#include "tools/svcsim/fleet.h"
#include "tools/svcsim/http_server.h"
#include "tools/svcsim/repository.h"
#include "tools/svcsim/request_log.h"
#include "tools/svcsim/rpc_service.h"
#include "tools/svcsim/service.h"
#include "tools/svcsim/svcsim_log.h"

namespace
{

// Exit codes a caller can act on: a taken port can be retried elsewhere.
constexpr int exit_bad_config = 2;
constexpr int exit_cannot_listen = 3;

int fail(int code, const QString& why)
{
    std::fprintf(stderr, "orvane-svcsim: %s\n", qPrintable(why));
    return code;
}

} // namespace

int main(int argc, char* argv[])
{
    QCoreApplication app(argc, argv);
    QCoreApplication::setApplicationName(QStringLiteral("orvane-svcsim"));
    qSetMessagePattern(QStringLiteral("svcsim %{if-warning}warning: %{endif}%{message}"));
    // A client gone while a file is written must not end the process.
    std::signal(SIGPIPE, SIG_IGN);

    QCommandLineParser parser;
    parser.setApplicationDescription(QStringLiteral("Simulated firmware update service on a loopback address."));
    parser.addHelpOption();
    const QCommandLineOption config_option(
        QStringLiteral("config"), QStringLiteral("Service file (JSON)."), QStringLiteral("file"));
    const QCommandLineOption id_option(
        QStringLiteral("client-id"), QStringLiteral("Client id, 16 hexadecimal digits."), QStringLiteral("hex"));
    const QCommandLineOption key_option(
        QStringLiteral("client-key"), QStringLiteral("Client key, 64 hexadecimal digits."), QStringLiteral("hex"));
    const QCommandLineOption address_option(QStringLiteral("address"),
        QStringLiteral("Loopback address to listen on (default 127.0.0.1)."), QStringLiteral("address"));
    const QCommandLineOption port_option(QStringLiteral("port"),
        QStringLiteral("HTTP port; 0 picks a free one (default 8088)."), QStringLiteral("port"));
    const QCommandLineOption default_option(QStringLiteral("default-verdict"),
        QStringLiteral("Verdict for serials not in the fleet (default no_binding)."), QStringLiteral("verdict"));
    const QCommandLineOption control_option(QStringLiteral("control-port"),
        QStringLiteral("Control channel port on 127.0.0.1; 0 picks a free one (default 0)."), QStringLiteral("port"),
        QStringLiteral("0"));
    const QCommandLineOption stdin_option(
        QStringLiteral("exit-on-stdin-eof"), QStringLiteral("Exit when standard input closes."));
    const QCommandLineOption verbose_option(
        QStringLiteral("verbose"), QStringLiteral("Trace every request to stderr."));
    parser.addOptions({ config_option, id_option, key_option, address_option, port_option, default_option,
        control_option, stdin_option, verbose_option });
    parser.process(app);

    if (parser.isSet(verbose_option))
        QLoggingCategory::setFilterRules(QStringLiteral("orvane.svcsim.debug=true"));

    svcsim::config_loader config;
    QString error;
    if (parser.isSet(config_option) && !config.load_file(parser.value(config_option), &error))
        return fail(exit_bad_config, error);

    tools::service_identity id;
    const QString key_hex = parser.isSet(key_option) ? parser.value(key_option) : config.client_key();
    if (!tools::service_identity::from_hex(
            parser.isSet(id_option) ? parser.value(id_option) : config.client_id(), &key_hex, &id, &error))
        return fail(exit_bad_config, error);

    const QHostAddress address(parser.isSet(address_option) ? parser.value(address_option) : config.address());
    bool ok = true;
    const uint port = parser.isSet(port_option) ? parser.value(port_option).toUInt(&ok) : uint(config.port());
    if (!ok || port > 65535)
        return fail(exit_bad_config, QStringLiteral("bad port"));
    const uint control_port = parser.value(control_option).toUInt(&ok);
    if (!ok || control_port > 65535)
        return fail(exit_bad_config, QStringLiteral("bad --control-port"));

    svcsim::fleet devices;
    svcsim::firmware_store store(config.base());
    svcsim::fault_table faults;
    svcsim::request_log log;
    svcsim::repository builds(config.base(), faults, log);
    if (!config.apply(devices, store, faults, &error) || !config.apply(builds, &error))
        return fail(exit_bad_config, error);
    if (parser.isSet(default_option)) {
        svcsim::fleet_entry entry;
        entry.verdict = parser.value(default_option);
        devices.set_default(entry);
    }

    svcsim::service answers(id, devices, store, faults, log);
    svcsim::rpc_service registrations(faults, log);
    answers.add_route(svcsim::rpc_service::path, [&](const svcsim::http_request& r) { return registrations.handle(r); });
    answers.add_route(svcsim::repository::path, [&](const svcsim::http_request& r) { return builds.handle(r); });
    svcsim::http_server server(answers);
    if (address.isNull())
        return fail(exit_bad_config, QStringLiteral("bad address"));
    if (!server.listen(address, quint16(port), &error))
        return fail(address.isLoopback() ? exit_cannot_listen : exit_bad_config, error);

    svcsim::control_commands commands(devices, store, faults, log, server, builds);
    svcsim::control_server control(commands);
    if (!control.listen(quint16(control_port), &error))
        return fail(exit_cannot_listen, error);

    tools::shutdown_watch watch(parser.isSet(stdin_option));
    QObject::connect(&watch, &tools::shutdown_watch::shutdown_requested, &app, [](const QString& reason) {
        qCInfo(lc_svcsim, "stopping: %s", qPrintable(reason));
        QCoreApplication::quit();
    });
    QObject::connect(
        &control, &svcsim::control_server::quit_requested, &app, &QCoreApplication::quit, Qt::QueuedConnection);

    // Tests wait for this line before they connect.
    std::printf("ready address=%s port=%u control_port=%u serials=%d firmwares=%d\n",
        qPrintable(server.address().toString()), server.port(), control.port(), devices.count(), store.count());
    std::fflush(stdout);
    return app.exec();
}
