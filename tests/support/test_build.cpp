// A stand-in for a build of the program in the self-update tests: prints its build
// number and, given a number of milliseconds, keeps running that long. Built twice with
// different numbers; padded so it is as big as the repository's smallest answer.
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <thread>

namespace {

// Kept by the reference below, so the linker can't drop it.
const char padding[64 * 1024] = { 1 };

} // namespace

int main(int argc, char* argv[])
{
    std::printf("test build %d %d\n", TEST_BUILD_NUMBER, padding[0]);
    std::fflush(stdout);
    if (argc > 1)
        std::this_thread::sleep_for(std::chrono::milliseconds(std::atol(argv[1])));
    return 0;
}
