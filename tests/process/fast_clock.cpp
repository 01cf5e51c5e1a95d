// Preloaded into a process: time that moves only when it is looked at or slept on, so that a start of ten seconds takes
// no longer than its work.
#include <cerrno>
#include <cstdint>
#include <ctime>

namespace {

constexpr int64_t NANOSECONDS_PER_SECOND = 1'000'000'000;
constexpr int64_t START = 1'777'541'400 * NANOSECONDS_PER_SECOND;  // 2026-04-30 09:30 UTC
constexpr int64_t NANOSECONDS_PER_LOOK = 100'000;

int64_t g_passed = 0;

}  // namespace

extern "C" __attribute__((visibility("default"))) int clock_gettime(clockid_t, timespec* now) noexcept {
    g_passed += NANOSECONDS_PER_LOOK;
    const int64_t time = START + g_passed;
    *now = {time / NANOSECONDS_PER_SECOND, time % NANOSECONDS_PER_SECOND};
    return 0;
}

extern "C" __attribute__((visibility("default"))) int clock_nanosleep(clockid_t, int, const timespec* time, timespec*) {
    g_passed += int64_t{time->tv_sec} * NANOSECONDS_PER_SECOND + time->tv_nsec;
    return 0;
}
