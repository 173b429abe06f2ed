#include <QCommandLineParser>
#include <QCoreApplication>

#include <sys/resource.h>

#include <csignal>
#include <cstdio>

#include "tools/common/shutdown_watch.h"
#include "tools/devsim/address_policy.h"
#include "tools/devsim/config_loader.h"
#include "tools/devsim/control_commands.h"
#include "tools/devsim/control_server.h"
#include "tools/devsim/devsim_log.h"
#include "tools/devsim/simulator.h"

namespace
{

// Exit codes a caller can act on: a taken address can be retried elsewhere.
constexpr int exit_bad_config = 2;
constexpr int exit_cannot_listen = 3;

int fail(int code, const QString& why)
{
    std::fprintf(stderr, "orvane-devsim: %s\n", qPrintable(why));
    return code;
}

// A device holds a listener and its client's connection: a thousand of them need more
// descriptors than the 1024 a session usually starts with.
void raise_open_file_limit()
{
    rlimit limit {};
    if (getrlimit(RLIMIT_NOFILE, &limit) == 0 && limit.rlim_cur < limit.rlim_max) {
        limit.rlim_cur = limit.rlim_max;
        setrlimit(RLIMIT_NOFILE, &limit);
    }
}

} // namespace

int main(int argc, char* argv[])
{
    // Hundreds of devices keep a thousand sockets in one loop: Qt's own dispatcher finds a
    // notifier by hash where the glib one walks a list at each toggle.
    qputenv("QT_NO_GLIB", "1");
    QCoreApplication app(argc, argv);
    QCoreApplication::setApplicationName(QStringLiteral("orvane-devsim"));
    qSetMessagePattern(QStringLiteral("devsim %{if-warning}warning: %{endif}%{message}"));
    // A client gone while an answer is written must not end the process.
    std::signal(SIGPIPE, SIG_IGN);
    raise_open_file_limit();

    QCommandLineParser parser;
    parser.setApplicationDescription(
        QStringLiteral("Simulated NETIP cameras and recorders on loopback addresses (or, with --netns, "
                       "on the addresses of a test network namespace)."));
    parser.addHelpOption();
    const QCommandLineOption config_option(
        QStringLiteral("config"), QStringLiteral("Devices file (JSON)."), QStringLiteral("file"));
    const QCommandLineOption count_option(
        QStringLiteral("count"), QStringLiteral("Number of devices."), QStringLiteral("n"));
    const QCommandLineOption base_option(QStringLiteral("base"),
        QStringLiteral("Address of the first device; the others follow (default 127.0.0.2)."),
        QStringLiteral("address"));
    const QCommandLineOption port_option(
        QStringLiteral("port"), QStringLiteral("NETIP port of every device (default 34567)."), QStringLiteral("port"));
    const QCommandLineOption set_option(QStringLiteral("set"),
        QStringLiteral("Per-device value, repeatable: <index or *>.<member>=<value>."), QStringLiteral("setting"));
    const QCommandLineOption control_option(QStringLiteral("control-port"),
        QStringLiteral("Control channel port on 127.0.0.1; 0 picks a free one (default 0)."), QStringLiteral("port"),
        QStringLiteral("0"));
    const QCommandLineOption control_socket_option(QStringLiteral("control-socket"),
        QStringLiteral("Control channel on this Unix socket too (reachable from another network namespace)."),
        QStringLiteral("path"));
    const QCommandLineOption udp_option(QStringLiteral("udp-port"),
        QStringLiteral("Discovery and configuration by broadcast on this UDP port; 0 turns them off (default 34569)."),
        QStringLiteral("port"), QStringLiteral("34569"));
    const QCommandLineOption netns_option(QStringLiteral("netns"),
        QStringLiteral("Runs inside this network namespace (made by `ip netns add`): any address of its interfaces "
                       "may be used, not only loopback, and UDP peers on its networks are answered. Refused "
                       "unless the process really is in it."),
        QStringLiteral("name"));
    const QCommandLineOption stdin_option(
        QStringLiteral("exit-on-stdin-eof"), QStringLiteral("Exit when standard input closes."));
    const QCommandLineOption verbose_option(QStringLiteral("verbose"), QStringLiteral("Trace every frame to stderr."));
    parser.addOptions({ config_option, count_option, base_option, port_option, set_option, control_option,
        control_socket_option, udp_option, netns_option, stdin_option, verbose_option });
    parser.process(app);

    if (parser.isSet(verbose_option))
        QLoggingCategory::setFilterRules(QStringLiteral("orvane.devsim.debug=true"));

    QString error;
    if (parser.isSet(netns_option)
        && !devsim::address_policy::allow_local_addresses(parser.value(netns_option), &error))
        return fail(exit_bad_config, error);
    devsim::config_loader loader;
    if (parser.isSet(config_option) && !loader.load_file(parser.value(config_option), &error))
        return fail(exit_bad_config, error);
    bool ok = true;
    if (parser.isSet(count_option)) {
        const int count = parser.value(count_option).toInt(&ok);
        if (!ok || count < 0)
            return fail(exit_bad_config, QStringLiteral("bad --count"));
        loader.set_count(count);
    }
    if (parser.isSet(base_option))
        loader.set_base(parser.value(base_option));
    if (parser.isSet(port_option)) {
        const uint port = parser.value(port_option).toUInt(&ok);
        if (!ok || port > 65535)
            return fail(exit_bad_config, QStringLiteral("bad --port"));
        loader.set_port(int(port));
    }
    for (const QString& setting : parser.values(set_option)) {
        if (!loader.add_override(setting, &error))
            return fail(exit_bad_config, error);
    }
    const uint control_port = parser.value(control_option).toUInt(&ok);
    if (!ok || control_port > 65535)
        return fail(exit_bad_config, QStringLiteral("bad --control-port"));
    const uint udp_port = parser.value(udp_option).toUInt(&ok);
    if (!ok || udp_port > 65535)
        return fail(exit_bad_config, QStringLiteral("bad --udp-port"));

    QList<QJsonObject> descriptions;
    devsim::simulator sim;
    sim.set_udp_port(quint16(udp_port));
    if (!loader.descriptions(&descriptions, &error) || !sim.create(descriptions, &error))
        return fail(exit_bad_config, error);
    if (!sim.start(&error))
        return fail(exit_cannot_listen, error);

    devsim::control_commands commands(sim);
    devsim::control_server control(commands);
    if (!control.listen(quint16(control_port), &error))
        return fail(exit_cannot_listen, error);
    if (parser.isSet(control_socket_option) && !control.listen_local(parser.value(control_socket_option), &error))
        return fail(exit_cannot_listen, error);

    tools::shutdown_watch watch(parser.isSet(stdin_option));
    QObject::connect(&watch, &tools::shutdown_watch::shutdown_requested, &app, [](const QString& reason) {
        qCInfo(lc_devsim, "stopping: %s", qPrintable(reason));
        QCoreApplication::quit();
    });
    QObject::connect(
        &control, &devsim::control_server::quit_requested, &app, &QCoreApplication::quit, Qt::QueuedConnection);

    // Tests wait for this line before they connect.
    std::printf("ready control_port=%u devices=%d\n", control.port(), sim.count());
    std::fflush(stdout);
    return app.exec();
}
