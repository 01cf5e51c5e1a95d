/// Plays one plan from the first start to the end of the last object.
#pragma once

#include <array>
#include <cstdio>
#include <optional>
#include <string>
#include <vector>

#include "simulation/base/Reach.h"
#include "simulation/base/SessionPlan.h"
#include "simulation/rules/QuirkLedger.h"
#include "simulation/rules/Rules.h"

namespace simulation {

struct Outcome {
    std::optional<Breach> breach;
    std::vector<std::string> lastEvents;
    uint64_t updates = 0;
    uint64_t losses = 0;
    uint64_t recoveries = 0;
    uint64_t traceHash = 0;
    std::array<uint64_t, QUIRK_COUNT> quirks{};
    Reach reach;
};

/// `toBreak`: the rule to break by a lie, or none. `trace` may be null.
Outcome RunSession(const SessionPlan& plan, ERule toBreak, std::FILE* trace);

}  // namespace simulation
