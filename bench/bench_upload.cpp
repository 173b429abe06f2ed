// Firmware upload speed: the program's client against a minimal stop-and-wait sender
// that sends the same 32768-byte chunks over the same socket kind and waits for each
// answer. Both talk to one simulated device; runs alternate and the medians are compared.
// With --fleet the minimal sender alone uploads to many devices at once, one thread each:
// the floor a fleet update of the program is measured against.
#include "diagnostics/blackbox.h"
#include "netip/dvr_networking.h"
#include "netip/password_digest.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QHostAddress>
#include <QJsonDocument>
#include <QJsonObject>
#include <QRandomGenerator>
#include <QTemporaryDir>
#include <QThread>
#include <QTcpSocket>
#include <QtEndian>

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <ctime>
#include <thread>
#include <vector>

namespace {

constexpr int chunk = 32768;

// The minimal sender's own framing: header fields little-endian, then the payload.
QByteArray frame(uint16_t id, uint32_t session, uint32_t sequence, const QByteArray& payload, uint8_t current = 0)
{
    QByteArray out(20, '\0');
    out[0] = char(0xFF);
    out[1] = 1;
    qToLittleEndian<uint32_t>(session, out.data() + 4);
    qToLittleEndian<uint32_t>(sequence, out.data() + 8);
    out[13] = char(current);
    qToLittleEndian<uint16_t>(id, out.data() + 14);
    qToLittleEndian<uint32_t>(uint32_t(payload.size()), out.data() + 16);
    return out + payload;
}

bool read_exact(QTcpSocket& s, char* dst, int n)
{
    int got = 0;
    while (got < n) {
        if (s.bytesAvailable() == 0 && !s.waitForReadyRead(15000))
            return false;
        const qint64 r = s.read(dst + got, n - got);
        if (r < 0)
            return false;
        got += int(r);
    }
    return true;
}

// One reply: its id, session and "Ret".
bool read_reply(QTcpSocket& s, uint16_t& id, uint32_t& session, int& ret)
{
    char header[20];
    if (!read_exact(s, header, 20))
        return false;
    id = qFromLittleEndian<uint16_t>(header + 14);
    session = qFromLittleEndian<uint32_t>(header + 4);
    QByteArray body(int(qFromLittleEndian<uint32_t>(header + 16)), '\0');
    if (!read_exact(s, body.data(), body.size()))
        return false;
    ret = QJsonDocument::fromJson(body.left(body.indexOf('\n'))).object().value("Ret").toInt(-1);
    return true;
}

// CPU seconds the calling thread has used.
double thread_cpu()
{
    timespec t {};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &t);
    return double(t.tv_sec) + double(t.tv_nsec) / 1e9;
}

// Seconds from the first chunk to the last answer, or a negative value on failure.
double minimal_sender(const QString& host, uint16_t port, const QByteArray& image)
{
    QTcpSocket s;
    s.connectToHost(host, port);
    if (!s.waitForConnected(2000))
        return -1;
    const QByteArray login = QJsonDocument(QJsonObject { { "EncryptType", "MD5" }, { "LoginType", "DVRIP-Web" },
                                               { "UserName", "admin" }, { "PassWord", QString::fromLatin1(netip::password_digest("")) } })
                                 .toJson(QJsonDocument::Compact);
    uint16_t id;
    uint32_t session;
    int ret;
    s.write(frame(1000, 0, 0, login));
    if (!read_reply(s, id, session, ret) || ret != 100)
        return -1;
    s.write(frame(1520, session, 0, R"({"Name":"OPSystemUpgrade","OPSystemUpgrade":{"Action":"Start","Type":"System"}})"));
    uint32_t ignored;
    if (!read_reply(s, id, ignored, ret) || ret != 100)
        return -1;

    QElapsedTimer timer;
    timer.start();
    const int count = (image.size() + chunk - 1) / chunk;
    for (int i = 0; i < count; ++i) {
        s.write(frame(1522, session, uint32_t(i), image.mid(i * chunk, chunk)));
        if (!read_reply(s, id, ignored, ret) || id != 1523 || ret != 100)
            return -1;
    }
    const double seconds = double(timer.nsecsElapsed()) / 1e9;
    s.write(frame(1522, session, uint32_t(count), {}, 1));
    do {
        if (!read_reply(s, id, ignored, ret))
            return -1;
    } while (!(id == 1524 && ret == 515));
    return seconds;
}

double program_client(const QString& host, uint16_t port, const QByteArray& image)
{
    dvr_networking c;
    if (!c.connect_to(host, port) || !c.login("admin", dvr_networking::encrypt_password(""), nullptr))
        return -1;
    QElapsedTimer timer;
    double sent = -1;
    const dvr_networking::progress_callback progress = [&](const dvr_networking::upgrade_task_progress_type& stage,
                                                           const unsigned char& percent) {
        if (stage == dvr_networking::sending && percent == 0)
            timer.start();
        if (stage == dvr_networking::sending && percent == 100)
            sent = double(timer.nsecsElapsed()) / 1e9;
    };
    return c.upgrade(dvr_networking::reader_of(image), progress) ? sent : -1;
}

double median(std::vector<double> v)
{
    std::sort(v.begin(), v.end());
    return v[v.size() / 2];
}

QByteArray random_image(int mib)
{
    QByteArray image(mib * 1024 * 1024, Qt::Uninitialized);
    QRandomGenerator rng(1964);
    rng.fillRange(reinterpret_cast<quint32*>(image.data()), image.size() / 4);
    return image;
}

// Every device from the base address on gets the image at once; the wall time runs from
// the first connection to the last device's "written", like the program's fleet run.
int fleet(const QHostAddress& base, uint16_t port, int count, int mib)
{
    const QByteArray image = random_image(mib);
    std::atomic<int> done { 0 };
    QElapsedTimer timer;
    timer.start();
    std::vector<std::thread> senders;
    for (int i = 0; i < count; ++i) {
        const QString host = QHostAddress(base.toIPv4Address() + quint32(i)).toString();
        senders.emplace_back([&, host] {
            if (minimal_sender(host, port, image) >= 0)
                ++done;
        });
    }
    for (auto& t : senders)
        t.join();
    printf("minimal fleet %d devices: wall %.2f s, upgraded %d/%d\n", count, double(timer.nsecsElapsed()) / 1e9,
        done.load(), count);
    return done == count ? 0 : 1;
}

} // namespace

int main(int argc, char* argv[])
{
    QCoreApplication app(argc, argv);
    const QStringList args = app.arguments();
    if (args.size() == 6 && args[1] == QLatin1String("--fleet"))
        return fleet(QHostAddress(args[2]), uint16_t(args[3].toUInt()), args[4].toInt(), args[5].toInt());
    if (args.size() < 5) {
        fprintf(stderr, "usage: bench_upload <host> <port> <MiB> <rounds>\n"
                        "       bench_upload --fleet <first host> <port> <devices> <MiB>\n");
        return 2;
    }
    const QString host = args[1];
    const auto port = uint16_t(args[2].toUInt());
    const QByteArray image = random_image(args[3].toInt());
    const int rounds = std::max(1, args[4].toInt());
    // The program logs every packet to its blackbox; so does the benchmark.
    QTemporaryDir dir;
    auto box = std::make_shared<blackbox>(dir.filePath("blackbox.log"));
    box->open();
    blackbox::set_global(box);

    // Wall time of the sending, and the CPU the whole upload cost the sending thread.
    std::vector<double> minimal, program, minimal_cpu, program_cpu;
    for (int i = 0; i < rounds; ++i) {
        // The device reboots after each upload; both sides wait for it the same way.
        for (auto* results : { &minimal, &program }) {
            double t = -1;
            double cpu = 0;
            for (int attempt = 0; attempt < 50 && t < 0; ++attempt) {
                const double before = thread_cpu();
                t = results == &minimal ? minimal_sender(host, port, image) : program_client(host, port, image);
                cpu = thread_cpu() - before;
                if (t < 0)
                    QThread::msleep(200);
            }
            if (t < 0) {
                fprintf(stderr, "upload failed\n");
                return 1;
            }
            results->push_back(t);
            (results == &minimal ? minimal_cpu : program_cpu).push_back(cpu);
        }
    }
    const double m = median(minimal), p = median(program);
    const double mc = median(minimal_cpu), pc = median(program_cpu);
    printf("upload %s MiB: minimal sender %.3f s (%.1f MiB/s), program %.3f s (%.1f MiB/s), ratio %.3f; "
           "sending thread's cpu: minimal %.3f s, program %.3f s, ratio %.2f\n",
        qPrintable(args[3]), m, args[3].toDouble() / m, p, args[3].toDouble() / p, p / m, mc, pc, pc / mc);
    return 0;
}
