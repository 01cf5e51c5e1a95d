/// Time that moves only when the monotonic clock is looked at or slept on; the wall clock alone can be set. A look at
/// it takes no time: each log line may be one, and nothing waits by it. Beyond testing/ManualClock.h: one look moves
/// both clocks, looks are counted, for the rules, and time can be held.
#pragma once

#include <cstdint>

#include "public/clock/Clock.h"

namespace simulation {

constexpr int64_t NANOSECONDS_PER_SECOND = 1'000'000'000;

class SimulatedClock final : public IClockSource {
public:
    SimulatedClock() { CClock::Use(this); }
    ~SimulatedClock() override { CClock::Use(nullptr); }
    SimulatedClock(const SimulatedClock&) = delete;
    SimulatedClock& operator=(const SimulatedClock&) = delete;

    int64_t WallNanoseconds() override {
        ++m_looks;
        return m_wall;
    }
    int64_t MonotonicNanoseconds() override {
        ++m_looks;
        Advance(m_step);
        return m_monotonic;
    }
    void SleepNanoseconds(int64_t nanoseconds) override {
        ++m_looks;
        Advance(nanoseconds);
    }

    void Advance(int64_t nanoseconds) {
        m_wall += nanoseconds;
        m_monotonic += nanoseconds;
    }
    void SetWall(int64_t nanoseconds) { m_wall = nanoseconds; }

    /// Time stands still for its lifetime: what the script does takes none.
    class Hold {
    public:
        explicit Hold(SimulatedClock& clock) : m_clock(clock) { m_clock.m_step = 0; }
        ~Hold() { m_clock.m_step = STEP_NS; }
        Hold(const Hold&) = delete;
        Hold& operator=(const Hold&) = delete;

    private:
        SimulatedClock& m_clock;
    };

    int64_t Wall() const { return m_wall; }
    int64_t Now() const { return m_monotonic; }  ///< without being a look
    uint64_t Looks() const { return m_looks; }

    static constexpr int64_t STEP_NS = 5'000'000;  ///< added by every look at the monotonic clock

private:
    int64_t m_wall = 1'777'540'500'000'000'000;  // 2026-04-30 09:15 UTC
    int64_t m_monotonic = 0;
    int64_t m_step = STEP_NS;
    uint64_t m_looks = 0;
};

}  // namespace simulation
