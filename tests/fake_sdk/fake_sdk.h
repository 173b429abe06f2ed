#pragma once

// What the two stand-in device libraries share, written from the call shapes the program relies on, nothing more.
// Each call reads FAKE_SDK_MODE and behaves accordingly:
//   flash (or unset)  log-in and upgrade accepted; the upgrade's progress is reported to its end
//   refuse_init, refuse_login, refuse_upgrade
//   fail_501          the upgrade ends with 13006 p1 4, p2 501
//   manual            everything accepted and nothing reported: the test sends with fake_sdk_emit
// With FAKE_SDK_KEEP set, an upgrade copies the file it was given there.
// Reports come from threads of the library's own, 50 ms after the call and 2 ms apart. Hooks for the tests: a
// journal of the calls, one line each, and sending messages at will.

#include <chrono>
#include <cstdlib>
#include <fstream>
#include <functional>
#include <iterator>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#define FAKE_SDK_EXPORT extern "C" __attribute__((visibility("default")))

namespace
{

struct message {
    int message, p1, p2, p3;
};

// Defined by each library: its callback, called as the library calls it; -1 when none is set.
int deliver(int id, int message, int p1, int p2, int p3);

std::string mode()
{
    const char* text = std::getenv("FAKE_SDK_MODE");
    return text ? text : "flash";
}

class fake_state
{
    // Defined first: the one-line members below deduce their types from it.
    template <typename F>
    auto locked(F f)
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        return f();
    }

public:
    ~fake_state() { join(); }

    void note(const std::string& line) { locked([&] { m_journal += line + '\n'; }); }
    std::string journal() { return locked([&] { return m_journal; }); }
    void clear() { locked([&] { m_journal.clear(); }); }
    int next_id() { return locked([&] { return ++m_last_id; }); }
    int last_id() { return locked([&] { return m_last_id; }); }
    void start(std::function<void()> work) { locked([&] { m_threads.emplace_back(std::move(work)); }); }
    void join()
    {
        std::vector<std::thread> threads;
        locked([&] { threads.swap(m_threads); });
        for (std::thread& t : threads)
            t.join();
    }

private:
    std::mutex m_mutex;
    std::string m_journal;
    int m_last_id = 100;
    std::vector<std::thread> m_threads;
};

fake_state& fake()
{
    static fake_state instance;
    return instance;
}

void send_later(int id, std::vector<message> messages)
{
    fake().start([id, messages] {
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
        for (const message& m : messages) {
            deliver(id, m.message, m.p1, m.p2, m.p3);
            std::this_thread::sleep_for(std::chrono::milliseconds(2));
        }
    });
}

// The size of the file an upgrade was given, -1 when it can't be read; kept where the test asked.
long take_firmware(const char* path)
{
    std::ifstream in(path ? path : "", std::ios::binary);
    if (!in)
        return -1;
    const std::string data((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    if (const char* keep = std::getenv("FAKE_SDK_KEEP"))
        std::ofstream(keep, std::ios::binary | std::ios::trunc) << data;
    return long(data.size());
}

// The end of an upgrade as the mode wants it, after the file went over. Devices of the two
// libraries report their percentages in different places; `percent_last` says where.
std::vector<message> upgrade_report(long size, bool percent_last, const message& success)
{
    std::vector<message> out;
    const int whole = int(size);
    for (int percent = 0; percent <= 100; percent += 25) {
        const int sent = int(size * percent / 100);
        out.push_back({ 13006, 2, sent, percent_last ? percent : whole });
    }
    out.push_back({ 13006, 3, whole, percent_last ? 100 : whole });
    if (mode() == "fail_501") {
        out.push_back({ 13006, 4, 501, 0 });
        return out;
    }
    for (int percent = 0; percent <= 100; percent += 50)
        out.push_back({ 13006, 4, percent, percent_last ? percent : 100 });
    out.push_back({ 13006, 5, 100, 100 });
    out.push_back(success);
    return out;
}

// An upgrade call with the firmware's size read: refused (0) in that mode or without a file, else a new id whose
// report follows unless the test sends it by hand.
int upgrade(const std::string& call, long size, bool percent_last, const message& success)
{
    if (mode() == "refuse_upgrade" || size < 0) {
        fake().note(call + " refused");
        return 0;
    }
    const int id = fake().next_id();
    fake().note(call + " as " + std::to_string(id));
    if (mode() != "manual")
        send_later(id, upgrade_report(size, percent_last, success));
    return id;
}

} // namespace

// The journal, one call a line; valid until the next call from the same thread.
FAKE_SDK_EXPORT const char* fake_sdk_journal()
{
    static thread_local std::string copy;
    copy = fake().journal();
    return copy.c_str();
}

FAKE_SDK_EXPORT void fake_sdk_clear() { fake().clear(); }
// The id or handle handed out last.
FAKE_SDK_EXPORT int fake_sdk_last_id() { return fake().last_id(); }

// Calls the program back from a thread of the library's and waits for it: the callback's result.
FAKE_SDK_EXPORT int fake_sdk_emit(int id, int message, int p1, int p2, int p3)
{
    int result = 0;
    std::thread([&] { result = deliver(id, message, p1, p2, p3); }).join();
    return result;
}

// The same message `count` times from each of `threads` threads at once, without waiting.
FAKE_SDK_EXPORT void fake_sdk_emit_async(int id, int message, int p1, int p2, int p3, int threads, int count)
{
    for (int t = 0; t < threads; ++t) {
        fake().start([=] {
            for (int i = 0; i < count; ++i)
                deliver(id, message, p1, p2, p3);
        });
    }
}

// Until every thread of the library has finished.
FAKE_SDK_EXPORT void fake_sdk_join() { fake().join(); }
