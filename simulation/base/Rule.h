/// The rules that every session must keep. The values are the numbers that users know them by: never change them.
#pragma once

#include <cstdint>

namespace simulation {

enum class ERule : uint8_t {
    None = 0,
    Truth = 1,
    NeverBack = 2,
    Subscribed = 3,
    Silence = 4,
    Complete = 5,
    RegisterMap = 6,
    TablePairs = 7,
    Order = 8,
    Tables = 9,
    Subscriptions = 10,
    Reassembly = 12,
    Memory = 13,
    SnapshotUse = 14,
    Counters = 15,
    Checksum = 16,
    Waits = 17,
    BoundedSteps = 18,
    BareDelivery = 19,
    Results = 20,
    Once = 21,
    End = 22,
    Log = 23,
    Holdings = 24,
    Bounds = 25,
    OneManager = 26,
    FinishedFeeds = 27,
    Values = 29,
    LeftAlone = 30,
    RightEnds = 31,
    IndexFile = 32,
    Passes = 33,
    SnapshotContents = 34
};

constexpr int NumberOf(ERule rule) { return static_cast<int>(rule); }

}  // namespace simulation
