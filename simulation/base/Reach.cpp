#include "simulation/base/Reach.h"

#include <cinttypes>
#include <cstdio>

namespace simulation {

void Reach::Add(const Reach& other) {
    for (const auto& [what, counts] : other.m_counts) {
        auto& ours = m_counts[what];
        for (std::size_t phase = 0; phase < PHASE_COUNT; ++phase) ours[phase] += counts[phase];
    }
}

std::string Reach::Text() const {
    char cell[64];
    std::snprintf(cell, sizeof cell, "%-19s", "");
    std::string text = cell;
    for (const char* name : PHASE_NAMES) {
        std::snprintf(cell, sizeof cell, " %11s", name);
        text += cell;
    }
    text += "\n";
    for (const auto& [what, counts] : m_counts) {
        std::snprintf(cell, sizeof cell, "%-19s", what.c_str());
        text += cell;
        for (const uint64_t count : counts) {
            std::snprintf(cell, sizeof cell, " %11" PRIu64, count);
            text += cell;
        }
        text += "\n";
    }
    return text;
}

}  // namespace simulation
