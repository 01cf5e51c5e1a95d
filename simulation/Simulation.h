/// Session after session from one seed, until their number or the time is up or a rule is broken.
#pragma once

#include <cstdint>
#include <cstdio>
#include <string>

#include "simulation/Session.h"

namespace simulation {

/// What a run of sessions is asked for.
struct RunOptions {
    uint64_t seed = 1;
    uint64_t sessions = 1;
    double minutes = 0;  ///< 0: no limit; of real time
    std::string faults = ALL_FAULTS;
    ERule canary = ERule::None;  ///< the rule to break by a lie
    std::FILE* trace = nullptr;
};

struct Totals {
    uint64_t sessions = 0;
    uint64_t updates = 0;
    uint64_t losses = 0;
    uint64_t recoveries = 0;
    std::array<uint64_t, QUIRK_COUNT> quirks{};
    Reach reach;
    double seconds = 0;
    uint64_t traceHash = 0;
    std::optional<SessionPlan> broken;  ///< the plan of the session that broke a rule
    Outcome outcome;                    ///< of that session
};

/// Session k has the seed `options.seed` + k. Throws std::invalid_argument for a fault that is not known.
Totals RunSessions(const RunOptions& options);

/// Seed, command, last events and rule, then what is left of the plan after shrinking.
std::string TellBreach(const Totals& totals, const RunOptions& options);

/// The cells that were not met as often as they should have been; empty when there is none.
std::string TellHoles(const Totals& totals);

std::string TellReach(const Totals& totals);

}  // namespace simulation
