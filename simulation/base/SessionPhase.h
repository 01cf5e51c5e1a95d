/// Where a session of the managing channel stands, as its register accesses show.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

namespace simulation {

enum class ESessionPhase : uint8_t {
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

constexpr std::size_t PHASE_COUNT = static_cast<std::size_t>(ESessionPhase::Count_);

inline constexpr std::array<const char*, PHASE_COUNT> PHASE_NAMES{
    "closed", "identity", "memory", "programming", "loading", "tables", "versions", "subscribing", "engines", "live"};

constexpr const char* SessionPhaseName(ESessionPhase phase) { return PHASE_NAMES[static_cast<std::size_t>(phase)]; }

}  // namespace simulation
