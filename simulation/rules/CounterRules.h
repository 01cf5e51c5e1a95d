/// Every dropped thing moves exactly one of the session's counters, and nothing else does.
#pragma once

#include <cstdint>
#include <string>

#include "src/Counters.h"

namespace simulation {

/// What one message may count.
enum class ECounted : uint8_t {
    Nothing,   ///< an update, or an event that is no loss
    Foreign,   ///< no frame, while the snapshot loads
    Unsound,   ///< a frame with something wrong, or from elsewhere
    Sound,     ///< a frame whose segment may still be refused, or give way to stored ones that are dropped; what it
               ///< holds is right
    Astray,    ///< the same of a stream that a receiver may lose its place in
    EventLoss  ///< an event that begins a recovery
};

const char* CountedName(ECounted expected);

/// " name=count" of each counter that moved.
std::string Moved(const CCounters& before, const CCounters& after);

/// Whether the counters moved as such a message allows.
bool IsCountedOnce(const CCounters& before, const CCounters& after, ECounted expected);

}  // namespace simulation
