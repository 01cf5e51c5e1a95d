/// The file in which the processes of one test keep their times; a test reads it, too.
#pragma once

#include <sys/types.h>

#include <algorithm>
#include <atomic>
#include <cstdint>

namespace common_clock {

struct alignas(64) Slot {
    std::atomic<pid_t> pid{0};     ///< 0: free; the time stays
    std::atomic<int64_t> time{0};  ///< nanoseconds
    std::atomic<bool> isPoller{false};

    // What another process that waits for this one saw of it: its time, and what it had used of its processor then.
    std::atomic<int64_t> seenTime{0};
    std::atomic<int64_t> seenUsed{0};
};

struct Clock {
    static constexpr int SLOTS = 64;

    int64_t Latest() const {
        int64_t latest = 0;
        for (const Slot& slot : slots) latest = std::max(latest, slot.time.load());
        return latest;
    }

    Slot slots[SLOTS];  // 4,096 bytes
};

}  // namespace common_clock
