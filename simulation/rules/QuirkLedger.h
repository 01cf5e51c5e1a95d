/// Rules of the system that can part a correct library from the exchange's truth. Each is booked when it comes into
/// play; a difference that no booking explains is a breach.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <map>
#include <utility>

#include "common/FpgaStructCommon.h"

namespace simulation {

enum class EQuirk : uint8_t {
    LossNotYetRebuilt,  ///< between a loss and its recovery the other channels go on with what the board has
    LossWhileStarting,  ///< a loss told while the snapshot is loading is passed over
    LossUnheard,        ///< a start that leaves the board alone does not see a loss told before it
    QuietTimeOut,       ///< a time-out in a quiet window is no loss
    AttemptsUsedUp,     ///< attempts of failed starts stay used until a start succeeds or a new object is made
    LevelLeftRaised,    ///< after a wait for the memory that failed the log level stays raised
    StopKeptByPolling,  ///< a start of the polling form leaves an earlier stop in force
    ShieldedBook,       ///< an abnormal book is accepted, its instrument not subscribed to
    InjectedFault,      ///< the configuration asks for a wrong book on the board
    ResetAtTheEnd,      ///< a reset is the segment that shows a snapshot complete: used, then cleared, then waited for
    Count_
};

constexpr std::size_t QUIRK_COUNT = static_cast<std::size_t>(EQuirk::Count_);

const char* QuirkName(EQuirk quirk);

class QuirkLedger {
public:
    void CountQuirk(EQuirk quirk) { ++m_booked[static_cast<std::size_t>(quirk)]; }
    void AddTo(std::array<uint64_t, QUIRK_COUNT>& totals) const;

    /// Until the next bring-up this instrument may differ from the truth, because of `why`.
    void ExpectDifference(EMDQPDataType feed, int32_t instNo, EQuirk why) { m_differences[{feed, instNo}] = why; }
    /// True, and booked, where the board cannot know better.
    bool IsDifferenceExpected(EMDQPDataType feed, int32_t instNo);
    void OnBringUp() { m_differences.clear(); }
    void OnLossWhileStarting() { MarkLossesLasting(EQuirk::LossWhileStarting); }
    void OnBoardLeftAlone() { MarkLossesLasting(EQuirk::LossUnheard); }

private:
    /// No recovery will follow the losses so far.
    void MarkLossesLasting(EQuirk why);

    std::array<uint64_t, QUIRK_COUNT> m_booked{};
    std::map<std::pair<int32_t, int32_t>, EQuirk> m_differences;
};

}  // namespace simulation
