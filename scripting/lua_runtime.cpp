#include "scripting/lua_runtime.h"

#include <QCoreApplication>
#include <QDeadlineTimer>
#include <QEvent>

#include <lua.hpp>

#include <algorithm>
#include <climits>
#include <exception>
#include <map>
#include <string>
#include <utility>

namespace {

// Instructions between two looks at the stop flag.
constexpr int stop_check_interval = 1000;
// How long a script stuck in a blocking library call (io.read) may hold up the shut-down.
constexpr int stop_grace_ms = 3000;

// Raised as it stands, for scripts to compare; shown translated.
const char not_enough_parameters[] = "Not enough parameters.";
const char script_stopped[] = "Script stopped";

int clamped(size_t size)
{
    return int(std::min<size_t>(size, INT_MAX));
}

// A text argument, read as Latin-1; empty for what isn't a string or a number.
QString text_argument(lua_State* L, int index)
{
    size_t size = 0;
    const char* data = lua_tolstring(L, index, &size);
    return data ? QString::fromLatin1(data, clamped(size)) : QString();
}

void push_text(lua_State* L, const QString& text)
{
    const QByteArray utf8 = text.toUtf8();
    lua_pushlstring(L, utf8.constData(), size_t(utf8.size()));
}

// Booleans stay booleans; every other value becomes its text.
void push_map(lua_State* L, const QVariantMap& map)
{
    lua_createtable(L, 0, map.size());
    for (auto it = map.cbegin(); it != map.cend(); ++it) {
        push_text(L, it.key());
        if (it.value().type() == QVariant::Bool)
            lua_pushboolean(L, it.value().toBool());
        else
            push_text(L, it.value().toString());
        lua_settable(L, -3);
    }
}

void push_list(lua_State* L, const QStringList& list)
{
    lua_createtable(L, list.size(), 0);
    for (int i = 0; i < list.size(); ++i) {
        lua_pushnumber(L, i + 1);
        push_text(L, list.at(i));
        lua_settable(L, -3);
    }
}

// The text of an error object, read without calling into Lua: outside a protected call a
// __tostring that fails would end the process.
QString error_text(lua_State* L, int index)
{
    size_t size = 0;
    const char* data = lua_tolstring(L, index, &size);
    if (data)
        return QString::fromUtf8(data, clamped(size));
    return QStringLiteral("(error object is a %1 value)").arg(QString::fromLatin1(luaL_typename(L, index)));
}

} // namespace

// Lua calls these with C linkage rules: an error leaves them through longjmp, so no C++
// object with a destructor may be alive in a frame when one is raised.
struct lua_runtime::entry
{
    static lua_runtime* runtime_of(lua_State* L) { return *static_cast<lua_runtime**>(lua_getextraspace(L)); }

    static const std::map<lua_CFunction, lua_function_record>& records()
    {
        using c = scripting::commands;
        static const std::map<lua_CFunction, lua_function_record> map {
            { &rfn_log, { QStringLiteral("rfn_log"), c::log, 1 } },
            { &rfn_caps, { QStringLiteral("rfn_caps"), c::caps, 0 } },
            { &rfn_version, { QStringLiteral("rfn_version"), c::version, 0 } },
            { &rfn_download_file, { QStringLiteral("rfn_download_file"), c::download_file, 2 } },
            { &rfn_url_contents, { QStringLiteral("rfn_url_contents"), c::url_contents, 1 } },
            { &rfn_pack_list, { QStringLiteral("rfn_pack_list"), c::list_packs, 0 } },
            { &rfn_devices_scan, { QStringLiteral("rfn_devices_scan"), c::scan_devices, 0 } },
            { &rfn_devices_import, { QStringLiteral("rfn_devices_import"), c::import_devices, 1 } },
            { &rfn_devices_export, { QStringLiteral("rfn_devices_export"), c::export_devices, 1 } },
        };
        return map;
    }

    // The check at the start of every bound function; raises the Lua error itself when
    // the function's instance is missing or it has fewer parameters than it needs.
    static lua_runtime& check(lua_State* L, lua_CFunction function)
    {
        const lua_function_record* r = record(function);
        auto* self = static_cast<lua_runtime*>(const_cast<void*>(lua_topointer(L, lua_upvalueindex(1))));
        // The debug library can swap an upvalue for anything: only this state's runtime is one.
        if (self != runtime_of(L))
            self = nullptr;
        if (!self) {
            push_text(L, QStringLiteral("%1 instance is null").arg(r->name));
            lua_error(L);
        }
        if (lua_gettop(L) < r->min_params) {
            self->m_told_parameters = true;
            emit self->error(tr("Not enough parameters."));
            lua_pushstring(L, not_enough_parameters);
            lua_error(L);
        }
        return *self;
    }

    // A bound function: the check, then the body, which pushes its results and gives their
    // count. What the body throws becomes the function's Lua error.
    template <typename Body>
    static int call(lua_State* L, lua_CFunction function, Body body)
    {
        lua_runtime& self = check(L, function);
        bool failed = false;
        int results = 0;
        try {
            results = body(self, L);
        } catch (const QString& text) {
            failed = true;
            push_text(L, text);
        } catch (const std::exception& e) {
            failed = true;
            lua_pushstring(L, e.what());
        }
        return failed ? lua_error(L) : results;
    }

    static int rfn_log(lua_State* L)
    {
        return call(L, &rfn_log, [](lua_runtime& self, lua_State* L) {
            emit self.log(text_argument(L, 1));
            return 0;
        });
    }

    static int rfn_caps(lua_State* L)
    {
        return call(L, &rfn_caps, [](lua_runtime& self, lua_State* L) {
            QVariantMap caps;
            self.on_owner_thread([&] { caps = self.m_functions.caps(); });
            push_map(L, caps);
            return 1;
        });
    }

    static int rfn_version(lua_State* L)
    {
        return call(L, &rfn_version, [](lua_runtime& self, lua_State* L) {
            QString version;
            self.on_owner_thread([&] { version = self.m_functions.version(); });
            push_text(L, version);
            return 1;
        });
    }

    static int rfn_download_file(lua_State* L)
    {
        return call(L, &rfn_download_file, [](lua_runtime& self, lua_State* L) {
            const QString url = text_argument(L, 1);
            const QString file = text_argument(L, 2);
            bool ok = false;
            self.on_owner_thread([&] { ok = self.m_functions.download_file(url, file); });
            lua_pushboolean(L, ok);
            return 1;
        });
    }

    static int rfn_url_contents(lua_State* L)
    {
        return call(L, &rfn_url_contents, [](lua_runtime& self, lua_State* L) {
            const QString url = text_argument(L, 1);
            QString contents;
            self.on_owner_thread([&] { contents = self.m_functions.url_contents(url); });
            push_text(L, contents);
            return 1;
        });
    }

    static int rfn_pack_list(lua_State* L)
    {
        return call(L, &rfn_pack_list, [](lua_runtime& self, lua_State* L) {
            QStringList packs;
            self.on_owner_thread([&] { packs = self.m_functions.pack_list(); });
            push_list(L, packs);
            return 1;
        });
    }

    static int rfn_devices_scan(lua_State* L)
    {
        return call(L, &rfn_devices_scan, [](lua_runtime& self, lua_State* L) {
            unsigned long found = 0;
            self.on_owner_thread([&] { found = self.m_functions.devices_scan(); });
            lua_pushinteger(L, lua_Integer(found));
            return 1;
        });
    }

    static int rfn_devices_import(lua_State* L)
    {
        return call(L, &rfn_devices_import, [](lua_runtime& self, lua_State* L) {
            const QString file = text_argument(L, 1);
            unsigned long count = 0;
            self.on_owner_thread([&] { count = self.m_functions.devices_import(file); });
            lua_pushinteger(L, lua_Integer(count));
            return 1;
        });
    }

    static int rfn_devices_export(lua_State* L)
    {
        return call(L, &rfn_devices_export, [](lua_runtime& self, lua_State* L) {
            const QString file = text_argument(L, 1);
            unsigned long count = 0;
            self.on_owner_thread([&] { count = self.m_functions.devices_export(file); });
            lua_pushinteger(L, lua_Integer(count));
            return 1;
        });
    }

    // Lua's print, into the program's log rather than a terminal nobody may watch.
    static int print(lua_State* L)
    {
        const int count = lua_gettop(L);
        luaL_Buffer line;
        luaL_buffinit(L, &line);
        for (int i = 1; i <= count; ++i) {
            if (i > 1)
                luaL_addchar(&line, '\t');
            luaL_tolstring(L, i, nullptr);
            luaL_addvalue(&line);
        }
        luaL_pushresult(&line);
        emit runtime_of(L)->log(text_argument(L, -1));
        return 0;
    }

    static void stop_hook(lua_State* L, lua_Debug*)
    {
        if (!runtime_of(L)->m_stop.load())
            return;
        // From now on at every instruction, so that no pcall on the way out holds the script.
        lua_sethook(L, &stop_hook, LUA_MASKCOUNT, 1);
        luaL_error(L, "%s", script_stopped);
    }

    // The `orvane` table, a metatable of that name whose functions find the runtime in
    // their first upvalue, with a table of its own for each further level.
    static void open(lua_State* L, lua_runtime* self)
    {
        *static_cast<lua_runtime**>(lua_getextraspace(L)) = self;
        lua_sethook(L, &stop_hook, LUA_MASKCOUNT, stop_check_interval);
        const luaL_Reg root[] = { { "log", &rfn_log }, { "caps", &rfn_caps }, { "version", &rfn_version },
            { "download_file", &rfn_download_file }, { "url_contents", &rfn_url_contents }, { nullptr, nullptr } };
        const luaL_Reg pack[] = { { "list", &rfn_pack_list }, { nullptr, nullptr } };
        const luaL_Reg devices[] = { { "scan", &rfn_devices_scan }, { "import", &rfn_devices_import },
            { "export", &rfn_devices_export }, { nullptr, nullptr } };
        luaL_newmetatable(L, "orvane");
        lua_pushlightuserdata(L, self);
        luaL_setfuncs(L, root, 1);
        for (const auto& [name, functions] : { std::pair { "pack", pack }, std::pair { "devices", devices } }) {
            luaL_newmetatable(L, (std::string("orvane::") + name).c_str());
            lua_pushlightuserdata(L, self);
            luaL_setfuncs(L, functions, 1);
            lua_setfield(L, -2, name);
        }
        lua_setglobal(L, "orvane");
        lua_pushcfunction(L, &print);
        lua_setglobal(L, "print");
        // The program's stop needs the one hook a thread has: scripts don't get to replace it.
        lua_getglobal(L, "debug");
        lua_pushnil(L);
        lua_setfield(L, -2, "sethook");
        lua_pop(L, 1);
    }
};

lua_runtime::lua_runtime(bindings functions, QObject* parent)
    : QThread(parent)
    , m_functions(std::move(functions))
{
}

lua_runtime::~lua_runtime()
{
    request_stop();
    const QDeadlineTimer grace(stop_grace_ms);
    while (!wait(QDeadlineTimer(10))) {
        // A call of the script's that waits for this thread would never run now: dropping
        // it releases the script, which then meets the stop.
        QCoreApplication::removePostedEvents(this, QEvent::MetaCall);
        if (grace.hasExpired()) {
            // Stuck in a library call that no hook reaches; its state is left as it is.
            terminate();
            wait();
            return;
        }
    }
    if (m_state)
        lua_close(m_state);
}

const lua_function_record* lua_runtime::record(lua_CFunction entry_function)
{
    const auto& map = entry::records();
    const auto found = map.find(entry_function);
    return found == map.end() ? nullptr : &found->second;
}

bool lua_runtime::initialize()
{
    if (m_state)
        return true;
    m_state = luaL_newstate();
    if (!m_state)
        return false;
    luaL_openlibs(m_state);
    entry::open(m_state, this);
    return true;
}

bool lua_runtime::load_file(const QString& path)
{
    if (!m_state || m_running)
        return false;
    lua_settop(m_state, 0);
    return loaded(luaL_loadfilex(m_state, path.toUtf8().constData(), nullptr));
}

bool lua_runtime::load_string(const QString& code)
{
    if (!m_state || m_running)
        return false;
    lua_settop(m_state, 0);
    return loaded(luaL_loadstring(m_state, code.toUtf8().constData()));
}

bool lua_runtime::loaded(int status)
{
    if (status == LUA_OK)
        return true;
    const QString message = error_text(m_state, -1);
    lua_settop(m_state, 0);
    emit error(message);
    return false;
}

bool lua_runtime::start_run()
{
    if (!m_state || m_running || lua_gettop(m_state) != 1 || !lua_isfunction(m_state, 1))
        return false;
    // The thread of the run before may still be on its way out.
    wait();
    m_stop = false;
    m_told_parameters = false;
    lua_sethook(m_state, &entry::stop_hook, LUA_MASKCOUNT, stop_check_interval);
    m_running = true;
    start();
    return true;
}

void lua_runtime::request_stop()
{
    m_stop = true;
}

void lua_runtime::run()
{
    const int status = lua_pcallk(m_state, 0, LUA_MULTRET, 0, 0, nullptr);
    const QString message = status == LUA_OK ? QString() : error_text(m_state, -1);
    lua_settop(m_state, 0);
    // A missing parameter was told when it was found, also under pcall.
    if (status != LUA_OK && (!m_told_parameters || message != QLatin1String(not_enough_parameters)))
        emit error(message);
    // Whoever learns of the end may load the next chunk at once.
    m_running = false;
    emit completed(status == LUA_OK);
}

void lua_runtime::on_owner_thread(const std::function<void()>& work)
{
    if (m_stop.load())
        throw QString::fromLatin1(script_stopped);
    std::exception_ptr failure;
    bool done = false;
    const auto guarded = [&] {
        try {
            work();
        } catch (...) {
            failure = std::current_exception();
        }
        done = true;
    };
    if (QThread::currentThread() == thread())
        guarded();
    else
        QMetaObject::invokeMethod(this, guarded, Qt::BlockingQueuedConnection);
    if (failure)
        std::rethrow_exception(failure);
    if (!done)
        throw QString::fromLatin1(script_stopped);
}
