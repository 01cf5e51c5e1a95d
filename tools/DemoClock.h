/// The demo's clock: real time, or, where waits are to pass quickly, real time that also runs ahead at every look and
/// sleep while a start-up is under way. The live phase keeps real time until the session is to end.
#pragma once

#include <algorithm>
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
            if (onLook) onLook();
            if (m_isFast) m_ahead += FAST_STEP_NS;
        }
        return RealNanoseconds() + m_ahead;
    }

    void SleepNanoseconds(int64_t nanoseconds) override {
        for (; nanoseconds > 0 && !m_isFast; nanoseconds -= SLEEP_STEP_NS) {
            const timespec time{0, std::min(nanoseconds, SLEEP_STEP_NS)};
            clock_nanosleep(CLOCK_MONOTONIC, 0, &time, nullptr);
            if (onLook) onLook();
        }
        m_ahead += std::max<int64_t>(nanoseconds, 0);
    }

    static int64_t RealNanoseconds() { return Read(CLOCK_MONOTONIC); }

    /// From now on waits pass at once.
    void Hurry() { m_isFast = true; }

    bool isStarting = true;
    std::function<void()> onLook;  ///< called on every pass of the start-up's waits

private:
    static constexpr int64_t FAST_STEP_NS = 1'000'000;
    static constexpr int64_t SLEEP_STEP_NS = 20'000'000;

    static int64_t Read(clockid_t clock) {
        timespec now{};
        clock_gettime(clock, &now);
        return int64_t{now.tv_sec} * 1'000'000'000 + now.tv_nsec;
    }

    bool m_isFast;
    int64_t m_ahead = 0;
};
