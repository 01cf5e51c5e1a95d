#include "simulation/base/Reach.h"

#include <cinttypes>
#include <cstdio>

namespace simulation {

void Reach::Add(const Reach& other) {
    for (const auto& [what, cells] : other.m_counts) {
        Cells& ours = m_counts[what];
        for (std::size_t phase = 0; phase < PHASE_COUNT; ++phase) {
            for (std::size_t form = 0; form < FORM_COUNT; ++form) ours[phase][form] += cells[phase][form];
        }
    }
}

uint64_t Reach::Count(const std::string& what, ESessionPhase phase, EForm form) const {
    const auto found = m_counts.find(what);
    if (found == m_counts.end()) return 0;
    return found->second[static_cast<std::size_t>(phase)][static_cast<std::size_t>(form)];
}

// Each cell by callback and by polling.
std::string Reach::Text() const {
    char cell[64];
    std::snprintf(cell, sizeof cell, "%-24s", "");
    std::string text = cell;
    for (const char* name : PHASE_NAMES) {
        std::snprintf(cell, sizeof cell, " %13s", name);
        text += cell;
    }
    text += "\n";
    for (const auto& [what, cells] : m_counts) {
        std::snprintf(cell, sizeof cell, "%-24s", what.c_str());
        text += cell;
        for (const auto& [byCallback, byPolling] : cells) {
            std::snprintf(cell, sizeof cell, " %6" PRIu64 " %6" PRIu64, byCallback, byPolling);
            text += cell;
        }
        text += "\n";
    }
    return text;
}

}  // namespace simulation
