/// What was tried in which phase: a cell that stays empty was never simulated.
#pragma once

#include <array>
#include <cstdint>
#include <map>
#include <string>

#include "simulation/base/Phase.h"

namespace simulation {

class Reach {
public:
    void Note(const std::string& what, EPhase phase) { ++m_counts[what][static_cast<std::size_t>(phase)]; }
    void Add(const Reach& other);
    std::string Text() const;

private:
    std::map<std::string, std::array<uint64_t, PHASE_COUNT>> m_counts;
};

}  // namespace simulation
