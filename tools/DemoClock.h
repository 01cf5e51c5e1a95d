/// The demo's clock: real time, or, where waits are to pass quickly, real time that also runs ahead at every look and
/// sleep while a start-up is under way. The live phase always keeps real time.
#pragma once

#include <ctime>
#include <functional>

#include "public/clock/Clock.h"

class DemoClock : public IClockSource {
public:
    explicit DemoClock(bool isFast) : m_isFast(isFast) { CClock::Use(this); }
    ~DemoClock() override { CClock::Use(nullptr); }
    DemoClock(const DemoClock&) = delete;
    DemoClock& operator=(const DemoClock&) = delete;

    int64_t WallNanoseconds() override { return Read(CLOCK_REALTIME) + m_ahead; }

    int64_t MonotonicNanoseconds() override {
        if (isStarting) {
            if (m_isFast) m_ahead += FAST_STEP_NS;
            if (onLook) onLook();
        }
        return RealNanoseconds() + m_ahead;
    }

    void SleepNanoseconds(int64_t nanoseconds) override {
        if (m_isFast) {
            m_ahead += nanoseconds;
            return;
        }
        const timespec time{nanoseconds / 1'000'000'000, nanoseconds % 1'000'000'000};
        nanosleep(&time, nullptr);
    }

    static int64_t RealNanoseconds() { return Read(CLOCK_MONOTONIC); }

    bool isStarting = true;
    std::function<void()> onLook;  ///< the start-up's waits look at the clock on every pass

private:
    static constexpr int64_t FAST_STEP_NS = 1'000'000;

    static int64_t Read(clockid_t clock) {
        timespec now{};
        clock_gettime(clock, &now);
        return int64_t{now.tv_sec} * 1'000'000'000 + now.tv_nsec;
    }

    bool m_isFast;
    int64_t m_ahead = 0;
};
