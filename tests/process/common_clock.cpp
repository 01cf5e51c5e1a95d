// Preloaded into the processes of one test: a time that moves only when they do. Each has a time of its own, which
// moves as it sleeps and, a little, whenever it looks; none runs further ahead of another than WINDOW_NS. However slow
// the machine, no process is late for another, and a start of ten seconds takes no longer than the work of all of them.
// One that polls without looking is taken along, but for the time that the machine does not let it run.
// The file COMMON_CLOCK holds the times; without it a process goes by its own time alone.
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>

#include "tests/process/CommonClock.h"

namespace {

constexpr int64_t NANOSECONDS_PER_SECOND = 1'000'000'000;
constexpr int64_t WALL_ORIGIN = 1'777'541'400 * NANOSECONDS_PER_SECOND;  // 2026-04-30 09:30 UTC
constexpr int64_t LOOK_NS = 20'000;
constexpr int64_t WINDOW_NS = 50'000'000;
constexpr int64_t PAUSE_NS = 50'000;  // real
constexpr int PAUSES_PER_LOOK_AROUND = 10;
// Of its processor's time: after how much one that does not look is a poller, no longer in the midst of a long step,
// and how much it then gets to poll for each step of the others.
constexpr int64_t LONGEST_STEP_NS = 20'000'000;
constexpr int64_t POLLING_NS = 500'000;

common_clock::Clock g_own;  // where there is no file
common_clock::Clock* g_clock = nullptr;
common_clock::Slot* g_slot = nullptr;
pid_t g_pid = 0;
int64_t g_horizon = 0;

void RealPause() {
    const timespec pause{0, PAUSE_NS};
    syscall(SYS_clock_nanosleep, CLOCK_MONOTONIC, 0, &pause, nullptr);
}

common_clock::Clock* Open() {
    const char* path = std::getenv("COMMON_CLOCK");
    const int file = path == nullptr ? -1 : open(path, O_RDWR | O_CLOEXEC);
    if (file < 0) return &g_own;
    void* shared = mmap(nullptr, sizeof(common_clock::Clock), PROT_READ | PROT_WRITE, MAP_SHARED, file, 0);
    close(file);
    return shared == MAP_FAILED ? &g_own : static_cast<common_clock::Clock*>(shared);
}

/// Gone, or dead and not yet waited for.
bool IsGone(pid_t pid) {
    if (kill(pid, 0) != 0 && errno == ESRCH) return true;
    char path[32];
    std::snprintf(path, sizeof path, "/proc/%d/stat", static_cast<int>(pid));
    char text[256] = {};
    const int file = open(path, O_RDONLY | O_CLOEXEC);
    if (file < 0) return true;
    const ssize_t length = read(file, text, sizeof text - 1);
    close(file);
    const char* name = length > 0 ? std::strrchr(text, ')') : nullptr;
    return name != nullptr && name[1] == ' ' && name[2] == 'Z';
}

void Join() {
    g_pid = getpid();
    g_clock = Open();
    const int64_t now = g_clock->Latest();
    for (common_clock::Slot& slot : g_clock->slots) {
        pid_t nobody = 0;
        if (!slot.pid.compare_exchange_strong(nobody, g_pid)) continue;
        slot.time.store(now);
        g_slot = &slot;
        return;
    }
    std::abort();  // more processes than any test has
}

/// What a process has used of its processor; it does not move while the process waits for one.
int64_t ProcessorTime(pid_t pid) {
    clockid_t clock{};
    timespec used{};
    if (clock_getcpuclockid(pid, &clock) != 0 || syscall(SYS_clock_gettime, clock, &used) != 0) return 0;
    return int64_t{used.tv_sec} * NANOSECONDS_PER_SECOND + used.tv_nsec;
}

/// Frees the slots of those that are gone, and takes along those that run without ever looking at the time.
void LookAround(int64_t now) {
    for (common_clock::Slot& slot : g_clock->slots) {
        pid_t pid = slot.pid.load();
        int64_t time = slot.time.load();
        if (pid == 0 || time >= now - WINDOW_NS) continue;
        if (IsGone(pid)) {
            slot.pid.compare_exchange_strong(pid, 0);
            continue;
        }
        const int64_t used = ProcessorTime(pid);
        if (slot.seenTime.exchange(time) != time) slot.seenUsed = used;
        if (used - slot.seenUsed <= (slot.isPoller ? POLLING_NS : LONGEST_STEP_NS)) continue;
        slot.isPoller = true;
        slot.time.compare_exchange_strong(time, now);
    }
}

void WaitForTheOthers(int64_t now) {
    for (int pauses = 1;; ++pauses) {
        int64_t last = now;
        for (common_clock::Slot& slot : g_clock->slots) {
            if (slot.pid.load() != 0) last = std::min(last, slot.time.load());
        }
        g_horizon = last + WINDOW_NS;
        if (now <= g_horizon) return;
        if (pauses % PAUSES_PER_LOOK_AROUND == 0) LookAround(now);
        RealPause();
    }
}

int64_t Advance(int64_t nanoseconds) {
    if (g_pid != getpid()) Join();
    g_slot->isPoller = false;
    const int64_t now = g_slot->time.fetch_add(nanoseconds) + nanoseconds;
    if (now > g_horizon) WaitForTheOthers(now);
    return now;
}

__attribute__((destructor)) void Leave() {
    if (g_slot != nullptr && g_pid == getpid()) g_slot->pid.store(0);
}

int Sleep(const timespec& time) {
    Advance(int64_t{time.tv_sec} * NANOSECONDS_PER_SECOND + time.tv_nsec);
    return 0;
}

}  // namespace

extern "C" __attribute__((visibility("default"))) int clock_gettime(clockid_t clock, timespec* now) noexcept {
    const int64_t passed = Advance(LOOK_NS) + NANOSECONDS_PER_SECOND;  // no clock stands at 0
    const int64_t time = clock == CLOCK_REALTIME ? WALL_ORIGIN + passed : passed;
    *now = {time / NANOSECONDS_PER_SECOND, time % NANOSECONDS_PER_SECOND};
    return 0;
}

extern "C" __attribute__((visibility("default"))) int clock_nanosleep(clockid_t, int, const timespec* time, timespec*) {
    return Sleep(*time);
}

extern "C" __attribute__((visibility("default"))) int nanosleep(const timespec* time, timespec*) {
    return Sleep(*time);
}
