/// What the benchmarks measure on: a provider that replays one live update, and a whole session in virtual time.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "public/clock/Clock.h"
#include "software_board/SoftwareBoard.h"
#include "src/VexaShfeMdApiImpl.h"

/// Time that moves a millisecond at every look.
class BenchClock : public IClockSource {
public:
    BenchClock() { CClock::Use(this); }
    ~BenchClock() override { CClock::Use(nullptr); }
    BenchClock(const BenchClock&) = delete;
    BenchClock& operator=(const BenchClock&) = delete;
    int64_t WallNanoseconds() override { return 1'777'500'000'000'000'000 + (m_now += STEP_NS); }
    int64_t MonotonicNanoseconds() override { return m_now += STEP_NS; }
    void SleepNanoseconds(int64_t nanoseconds) override { m_now += nanoseconds; }

private:
    static constexpr int64_t STEP_NS = 1'000'000;
    int64_t m_now = 0;
};

/// A provider whose stream gives the same DMA_UDP message at every poll, or nothing.
class ReplayProvider {
public:
    explicit ReplayProvider(bool isEmpty);
    ~ReplayProvider();
    ReplayProvider(const ReplayProvider&) = delete;
    ReplayProvider& operator=(const ReplayProvider&) = delete;
};

/// A configuration file in the temporary directory; `keys` go into [config].
class BenchConfig {
public:
    explicit BenchConfig(const std::string& keys);
    ~BenchConfig();
    BenchConfig(const BenchConfig&) = delete;
    BenchConfig& operator=(const BenchConfig&) = delete;
    const char* Path() const { return m_path.c_str(); }

private:
    std::string m_path;
};

/// The snapshot of SHFE as DMA_TCP messages; with `isSwapped` about one segment in a hundred comes one place late.
std::vector<std::vector<uint8_t>> SnapshotDmaMessages(bool isSwapped);
