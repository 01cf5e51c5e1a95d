#include "simulation/rules/QuirkLedger.h"

namespace simulation {

const char* QuirkName(EQuirk quirk) {
    constexpr std::array<const char*, QUIRK_COUNT> NAMES{
        "loss not yet rebuilt", "loss while starting",  "loss unheard",  "quiet time-out", "attempts used up",
        "level left raised",    "stop kept by polling", "shielded book", "injected fault", "reset at the end"};
    return NAMES[static_cast<std::size_t>(quirk)];
}

void QuirkLedger::AddTo(std::array<uint64_t, QUIRK_COUNT>& totals) const {
    for (std::size_t quirk = 0; quirk < QUIRK_COUNT; ++quirk) totals[quirk] += m_booked[quirk];
}

bool QuirkLedger::IsDifferenceExpected(EMDQPDataType feed, int32_t instNo) {
    const auto found = m_differences.find({feed, instNo});
    if (found == m_differences.end()) return false;
    CountQuirk(found->second);
    return true;
}

void QuirkLedger::MarkLossesLasting(EQuirk why) {
    for (auto& [instrument, reason] : m_differences) {
        if (reason == EQuirk::LossNotYetRebuilt) reason = why;
    }
}

}  // namespace simulation
