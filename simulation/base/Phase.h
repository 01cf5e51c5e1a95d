/// Where a session of the managing channel stands, as its register accesses show.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

namespace simulation {

enum class EPhase : uint8_t {
    Closed,
    Identity,
    Memory,
    Programming,
    Loading,
    Tables,
    Versions,
    Subscribing,
    Engines,
    Live,
    Count_
};

constexpr std::size_t PHASE_COUNT = static_cast<std::size_t>(EPhase::Count_);

inline constexpr std::array<const char*, PHASE_COUNT> PHASE_NAMES{
    "closed", "identity", "memory", "programming", "loading", "tables", "versions", "subscribing", "engines", "live"};

constexpr const char* PhaseName(EPhase phase) { return PHASE_NAMES[static_cast<std::size_t>(phase)]; }

}  // namespace simulation
