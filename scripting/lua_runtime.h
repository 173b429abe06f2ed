#pragma once

#include "scripting/commands.h"

#include <QString>
#include <QStringList>
#include <QThread>
#include <QVariantMap>

#include <atomic>
#include <functional>

struct lua_State;

// A function of the `orvane` table, found by the address of its C entry function.
struct lua_function_record
{
    QString name;
    scripting::commands command = scripting::commands::null_command; // for bookkeeping
    int min_params = 0;
};

// Runs Lua 5.4 on a thread of its own, in one state that lives from one run to the next,
// so that a script sees the globals of the scripts before it. Scripts reach the program
// through the global table `orvane`:
//   orvane.log(text), orvane.caps(), orvane.version(), orvane.download_file(url, name),
//   orvane.url_contents(url), orvane.pack.list(), orvane.devices.scan(),
//   orvane.devices.import(file), orvane.devices.export(file)
// and `print` writes to the program's log. Text arguments are read as Latin-1, texts
// come back as UTF-8.
class lua_runtime final : public QThread
{
    Q_OBJECT
public:
    // What the `orvane` functions do. Each runs on the thread that made the runtime, while
    // the script waits for it; a thrown QString ends the function with a Lua error.
    struct bindings
    {
        std::function<QVariantMap()> caps;
        std::function<QString()> version;
        std::function<bool(const QString& url, const QString& file)> download_file;
        std::function<QString(const QString& url)> url_contents;
        std::function<QStringList()> pack_list;
        std::function<unsigned long()> devices_scan;
        std::function<unsigned long(const QString& file)> devices_import;
        std::function<unsigned long(const QString& file)> devices_export;
    };

    explicit lua_runtime(bindings functions, QObject* parent = nullptr);
    // Stops a running script first, even one that never calls out.
    ~lua_runtime() override;
    Q_DISABLE_COPY_MOVE(lua_runtime)

    // Builds the state and the `orvane` table once; whether the state exists.
    bool initialize();
    bool is_initialized() const { return m_state != nullptr; }
    // From start_run to the end of the script. The thread itself may linger a moment after
    // completed(); the state is free by then.
    bool is_running() const { return m_running.load(); }
    // Compiles a chunk for the next run; false, with the compiler's message as error(),
    // when it doesn't compile or a run is under way.
    bool load_file(const QString& path);
    bool load_string(const QString& code);
    // Runs the loaded chunk on the runtime's thread; false without a state or while a run
    // is under way.
    bool start_run();
    // Ends a running script within its next few instructions, with an error that no pcall
    // holds; a call into the program under way returns first.
    void request_stop();

    // The record of an entry function of the `orvane` table; null for any other function.
    static const lua_function_record* record(int (*entry)(lua_State*));

signals:
    // The end of a run: false when it raised an error, which came through error() first.
    void completed(bool success);
    void error(const QString& message);
    void log(const QString& message);

protected:
    void run() override;

private:
    struct entry; // the C side: the functions Lua calls

    // Runs work on the runtime's own thread and waits for it; what it throws is thrown here.
    void on_owner_thread(const std::function<void()>& work);
    // After a load: true for status 0, otherwise the stack is cleared and the message told.
    bool loaded(int status);

    bindings m_functions;
    lua_State* m_state = nullptr;
    std::atomic_bool m_running { false };
    std::atomic_bool m_stop { false };
    // A function's check told of a missing parameter in this run: its error isn't told again
    // when it ends the run.
    bool m_told_parameters = false;
};
