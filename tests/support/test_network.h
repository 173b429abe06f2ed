#pragma once

#include <QHostAddress>
#include <QJsonArray>
#include <QJsonObject>
#include <QObject>
#include <QStringList>

class devsim_harness;

// A private network for tests that broadcast: a bridge in a namespace of its own, one namespace for the
// program side and some for simulated devices, joined by veth pairs, in 10.213.0.0/16. Links are made inside
// the namespaces only. Names start with "orvt<pid>x", so build() removes what a dead test process left.
// Declare the network before the harnesses and processes that run inside it.
class test_network final : public QObject
{
    Q_OBJECT
public:
    explicit test_network(QObject* parent = nullptr);
    ~test_network() override { tear_down(); }
    Q_DISABLE_COPY_MOVE(test_network)

    // Whether namespaces can be made here; why not otherwise.
    static bool available(QString* why = nullptr);

    // False with error() set; what was made by then is removed again.
    bool build(int device_namespaces = 1);
    void tear_down();
    const QString& error() const { return m_error; }

    QString program_namespace() const { return m_prefix + QStringLiteral("prog"); }
    QString device_namespace(int index = 0) const { return m_prefix + QStringLiteral("dev%1").arg(index); }
    // Device `device` of device namespace `index`: from 10.213.(16 * (index + 1)).1 on.
    static QHostAddress device_address(int index, int device);
    // More addresses (/16) on a namespace's interface, e.g. where a device is to move.
    bool add_addresses(const QString& ns, const QList<QHostAddress>& addresses);

    // Runs a program inside a namespace to its end; false when it fails. Both its channels go to *output.
    bool run(const QString& ns, const QString& program, const QStringList& args, QString* output = nullptr,
        int timeout_ms = 10000);
    // orvane-devsim inside device namespace `index`, devices from device_address(index, 0) on.
    bool start_devices(devsim_harness& sim, int count, const QJsonObject& defaults = {}, const QJsonArray& devices = {},
        int index = 0);

    // Runs this test executable's `function` (row `tag`) again inside `ns` with `arguments`; true when it passed.
    bool run_self(const QString& ns, const QString& function, const QString& tag, const QJsonObject& arguments,
        QString* output, int timeout_ms = 60000);
    // In a process that run_self() started: the namespace it runs in; empty otherwise.
    static QString inside();
    static QJsonObject inside_arguments();
    // True when this process runs in the namespace that `ip netns add` named so.
    static bool in_named_namespace(const QString& name);

    // The same without a network: a fresh namespace (`unshare -n`) holding only lo, with a broadcast route.
    static bool isolation_available(QString* why = nullptr);
    static bool run_isolated(const QString& function, const QString& tag, QString* output, int timeout_ms = 60000);
    // True in a process that run_isolated() started.
    static bool isolated();

private:
    // `ip` with these arguments; false (and error() set) when it fails.
    bool ip(const QStringList& args, const QByteArray& input = {});

    QString m_prefix;
    QStringList m_namespaces; // bridge first
    QString m_error;
};

// Outside, a two-part test declares `net` and builds it (skipped where that can't be done)...
#define BUILD_TEST_NETWORK(net)                                                                                        \
    QString why_not_##net;                                                                                             \
    if (!test_network::available(&why_not_##net))                                                                      \
        QSKIP(qPrintable(why_not_##net));                                                                              \
    test_network net;                                                                                                  \
    QVERIFY2(net.build(), qPrintable(net.error()))

// ...and runs itself again inside the program's namespace, passing or failing with that run.
#define RUN_INSIDE(net, arguments)                                                                                     \
    do {                                                                                                               \
        QString inner_output;                                                                                          \
        QVERIFY2((net).run_self((net).program_namespace(), QString::fromLatin1(QTest::currentTestFunction()),          \
                     QString::fromLatin1(QTest::currentDataTag()), (arguments), &inner_output, 120000),                \
            qPrintable(inner_output));                                                                                 \
    } while (false)

// Runs the current test again in a namespace of its own and passes or fails with it; the inner run
// carries on past this point. For tests that broadcast on loopback.
#define TEST_NETWORK_IN_ISOLATION()                                                                                    \
    do {                                                                                                               \
        if (!test_network::isolated()) {                                                                               \
            QString why_not_isolated;                                                                                  \
            if (!test_network::isolation_available(&why_not_isolated))                                                 \
                QSKIP(qPrintable(why_not_isolated));                                                                   \
            QString isolated_output;                                                                                   \
            QVERIFY2(test_network::run_isolated(QString::fromLatin1(QTest::currentTestFunction()),                     \
                         QString::fromLatin1(QTest::currentDataTag()), &isolated_output),                              \
                qPrintable(isolated_output));                                                                          \
            return;                                                                                                    \
        }                                                                                                              \
    } while (false)
