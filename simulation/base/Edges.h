/// Events and times at the edges of what means a loss, dealt out by the seed like cards: two thousand sessions in a row
/// meet each of them in each phase and form several times.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "common/FpgaStructCommon.h"
#include "simulation/base/SessionPhase.h"

namespace simulation {

/// One or two bits of an event's words, by a name that tells them.
struct EventCard {
    std::string name;
    U50Event event;
};

/// Every single bit, and pairs of bits that mean different things.
std::vector<EventCard> AllSingles();
std::vector<EventCard> AllPairs();

/// Events of phases in which none of them counts: many of both kinds.
std::vector<EventCard> DealBeforeTables(uint64_t seed, ESessionPhase phase);

/// Events that wait until the session is live: many that mean nothing, and a last one that may be a loss.
struct LateDeal {
    ESessionPhase phase;
    std::vector<EventCard> cards;
};
/// Two for each session, one behind the other.
std::vector<LateDeal> DealLate(uint64_t seed);

/// The form of delivery that the late deals count on.
bool IsPollingDealt(uint64_t seed);

/// A time of day of the last update, at an edge of a window in which silence is expected.
struct TimeCard {
    std::string name;
    int32_t second;  ///< of the day
};
std::vector<TimeCard> AllTimes();
/// For one session in three; empty for the others.
std::vector<TimeCard> DealTimes(uint64_t seed);

}  // namespace simulation
