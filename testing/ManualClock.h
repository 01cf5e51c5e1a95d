/// Time that moves only when it is looked at or slept on; in place for its lifetime.
#pragma once

#include "public/clock/Clock.h"

class ManualClock : public IClockSource {
public:
    ManualClock() { CClock::Use(this); }
    ~ManualClock() override { CClock::Use(nullptr); }
    ManualClock(const ManualClock&) = delete;
    ManualClock& operator=(const ManualClock&) = delete;

    int64_t WallNanoseconds() override { return wall += step; }
    int64_t MonotonicNanoseconds() override { return monotonic += step; }
    void SleepNanoseconds(int64_t nanoseconds) override {
        Advance(nanoseconds);
        slept += nanoseconds;
    }
    void Advance(int64_t nanoseconds) {
        wall += nanoseconds;
        monotonic += nanoseconds;
    }

    int64_t wall = 1'777'500'000'000'000'000;  ///< since the epoch
    int64_t monotonic = 0;
    int64_t step = 1'000'000;  ///< added by every look, to the clock that is looked at
    int64_t slept = 0;
};
