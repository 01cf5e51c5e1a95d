#include "public/clock/Clock.h"

#include <atomic>
#include <cerrno>

namespace {

constexpr int64_t NANOSECONDS_PER_SECOND = 1'000'000'000;

int64_t Read(clockid_t clock) {
    timespec now{};
    clock_gettime(clock, &now);
    return int64_t{now.tv_sec} * NANOSECONDS_PER_SECOND + now.tv_nsec;
}

class SystemClockSource final : public IClockSource {
public:
    int64_t WallNanoseconds() override { return Read(CLOCK_REALTIME); }
    int64_t MonotonicNanoseconds() override { return Read(CLOCK_MONOTONIC); }
    // A sleep that a signal cuts short ends early: the caller looks at the exit flag next.
    void SleepNanoseconds(int64_t nanoseconds) override {
        const timespec time{nanoseconds / NANOSECONDS_PER_SECOND, nanoseconds % NANOSECONDS_PER_SECOND};
        clock_nanosleep(CLOCK_MONOTONIC, 0, &time, nullptr);
    }
};

SystemClockSource g_systemClock;
std::atomic<IClockSource*> g_source{nullptr};

IClockSource& Source() {
    IClockSource* source = g_source.load(std::memory_order_acquire);
    return source == nullptr ? g_systemClock : *source;
}

}  // namespace

void CClock::Use(IClockSource* source) { g_source.store(source, std::memory_order_release); }

int64_t CClock::WallNanoseconds() { return Source().WallNanoseconds(); }

int64_t CClock::MonotonicNanoseconds() { return Source().MonotonicNanoseconds(); }

void CClock::SleepSeconds(uint32_t seconds) { Source().SleepNanoseconds(seconds * NANOSECONDS_PER_SECOND); }

void CClock::SleepMicroseconds(uint32_t microseconds) { Source().SleepNanoseconds(int64_t{microseconds} * 1000); }

bool CClock::LocalTime(int64_t seconds, std::tm& local) {
    const auto time = static_cast<std::time_t>(seconds);
    return localtime_r(&time, &local) != nullptr;
}

int64_t CWaitTimer::ElapsedSeconds() const {
    return (CClock::MonotonicNanoseconds() - m_start) / NANOSECONDS_PER_SECOND;
}
