// Pace of one discovery pass: a test network of simulated devices, one single pass,
// and how long the pass goes on after the last reply (about one second: the pass
// ends when a second has gone by without a datagram).
//
// Run as root through bench/scan.sh. Outside, it builds the network and starts the
// devices, then runs itself inside the program's namespace, where the pass is made,
// and passes that run's report on. Broadcasts never leave from anywhere else.
#include "sdk/scanner.h"
#include "tests/scan_reports.h"
#include "tests/support/devsim_harness.h"
#include "tests/support/test_network.h"

#include <QCoreApplication>
#include <QStringList>

#include <cstdio>

namespace
{

constexpr int pass_limit_ms = 60000;

int inside(const QString& ns, int count)
{
    if (!test_network::in_named_namespace(ns)) {
        std::fprintf(stderr, "bench_scan: not inside namespace %s, no broadcast made\n", qPrintable(ns));
        return 2;
    }
    scanner s;
    scan_reports reports(s);
    s.start_single_pass();
    // Bounded from outside: the run is ended when it outlasts the limit.
    s.wait();
    const auto found = reports.found();
    const qint64 last = found.isEmpty() ? 0 : found.last().ms;
    const qint64 end = reports.done_ms();
    std::printf("single pass over %d simulated devices: found %d, last reply at %lld ms, end of pass at %lld ms, "
                "gap %lld ms (%.3f of the one-second wait)\n",
        count, int(found.size()), static_cast<long long>(last), static_cast<long long>(end),
        static_cast<long long>(end - last), double(end - last) / 1000.0);
    return found.size() == count ? 0 : 1;
}

int outside(int count)
{
    QString why;
    if (!test_network::available(&why)) {
        std::fprintf(stderr, "bench_scan: no test network here: %s\n", qPrintable(why));
        return 2;
    }
    test_network net;
    if (!net.build()) {
        std::fprintf(stderr, "bench_scan: %s\n", qPrintable(net.error()));
        return 2;
    }
    devsim_harness sim;
    if (!net.start_devices(sim, count)) {
        std::fprintf(stderr, "bench_scan: %s\n", qPrintable(net.error()));
        return 2;
    }
    QString output;
    const bool good = net.run(net.program_namespace(), QCoreApplication::applicationFilePath(),
        { QStringLiteral("--inside"), net.program_namespace(), QString::number(count) }, &output,
        pass_limit_ms + 10000);
    std::printf("%s\n", qPrintable(output.trimmed()));
    if (!good)
        std::fprintf(stderr, "bench_scan: %s\n", qPrintable(net.error()));
    return good ? 0 : 1;
}

} // namespace

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    const QStringList args = app.arguments().mid(1);
    if (args.value(0) == QLatin1String("--inside"))
        return inside(args.value(1), args.value(2).toInt());
    bool ok = false;
    const int count = args.isEmpty() ? 250 : args.value(0).toInt(&ok);
    if (!args.isEmpty() && (!ok || count < 1 || count > 4000)) {
        std::fprintf(stderr, "usage: bench_scan [devices, 1 to 4000; 250]\n");
        return 2;
    }
    return outside(count);
}
