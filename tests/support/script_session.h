#pragma once

// Runs script lines through a core's interpreter. Header-only: the shared support library doesn't link the core.
#include "app/core.h"
#include "scripting/sapi.h"
#include "tests/support/fleet_fixture.h"
#include "tests/support/recording_console.h"

#include <QDir>
#include <QEventLoop>
#include <QMutex>
#include <QRegularExpression>
#include <QTest>
#include <QTimer>

#include <functional>
#include <memory>
#include <optional>

// Runs lines through the core's interpreter and keeps the arguments each command was
// given once its variables were resolved, and the interpreter's messages.
struct session
{
    explicit session(core& c)
        : c(c)
    {
        // Made after the core's own connection, so it runs once the core's slot has returned. The record is
        // shared with the connections: a command the interpreter runs while this session goes away (a quit
        // at the end of a batch run) must not write into it.
        QObject::connect(&c.processor(), &cmd_processor::command, &c,
            [r = records](QUuid, uint, size_t, QString, scripting::cmd_id, QStringList args) {
                QMutexLocker lock(&r->mutex);
                r->resolved.append(args);
            },
            Qt::DirectConnection);
        QObject::connect(&c.processor(), &cmd_processor::queue_stopped, &loop, &QEventLoop::quit);
        limit.setSingleShot(true);
        QObject::connect(&limit, &QTimer::timeout, &loop, [this] { loop.exit(1); });
    }

    bool run(const QString& line, int timeout_ms = 5000)
    {
        limit.start(timeout_ms);
        c.processor().execute_line(QUuid::createUuid(), line);
        const bool stopped = loop.exec() == 0;
        limit.stop();
        return stopped;
    }

    QStringList last_args() const
    {
        QMutexLocker lock(&records->mutex);
        return records->resolved.value(records->resolved.size() - 1);
    }
    struct record
    {
        QMutex mutex; // the command connection writes on the interpreter thread
        QList<QStringList> resolved;
    };

    core& c;
    QEventLoop loop;
    QTimer limit;
    const std::shared_ptr<record> records = std::make_shared<record>();
};

// A core among simulated devices (when asked for) whose console keeps what scripts show.
struct scripted : fleet::fixture
{
    // Gets the program's folder ready (its plugins, its files) before the program starts.
    using preparation = std::function<void(const QDir& folder)>;

    explicit scripted(core::operation_mode mode = core::batch, int devices = 0, const QJsonObject& device_defaults = {},
        const preparation& prepare = {})
    {
        if (devices > 0)
            devices_up = start_devices(devices, device_defaults);
        if (prepare)
            prepare(QDir(dir.path()));
        make_core(false, mode);
        c->api().set_console(&console);
        s.emplace(*c);
    }
    // The core goes first: its interpreter may still be running a command that writes to the console.
    ~scripted() { end_run(); }
    Q_DISABLE_COPY_MOVE(scripted)

    // The outcome of the line's last command; its messages are in shown().
    scripting::command_result run(const QString& line, int timeout_ms = 5000)
    {
        console.lines.clear();
        if (!s->run(line, timeout_ms))
            return { false, QStringLiteral("(timed out)") };
        return c->processor().last_result();
    }
    // What the console showed, as plain text, errors marked.
    QStringList shown() const { return console.plain(); }

    bool devices_up = true;
    recording_console console;
    std::optional<session> s;
};

// Records a macro of these lines in the core's interpreter.
inline void record_macro(core& c, const QString& name, const QStringList& lines)
{
    scripting::macro_recorder& r = c.processor().recorder();
    QVERIFY(r.start_recording(name));
    for (const QString& line : lines)
        QVERIFY(r.add_line(line));
    QVERIFY(r.stop_recording());
}

// What the macros printed: the console lines that start "fired".
inline QStringList fired(const scripted& f)
{
    return f.shown().filter(QRegularExpression(QStringLiteral("^fired")));
}
