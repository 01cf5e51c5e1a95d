/// One session before it runs: sizes, configuration, faults and script, all of them from the seed.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "common/FpgaStructCommon.h"
#include "simulation/base/SessionPhase.h"
#include "simulation/base/Settings.h"

namespace simulation {

enum class EStep : uint8_t {
    Live,              ///< receive `count` updates
    Lose,              ///< the board loses `count` updates while live
    LoseLater,         ///< a loss while live, and another one at the `at`-th outside call of `phase` of its recovery
    TimeOuts,          ///< events, the last update at edges of the quiet windows, then just outside one
    StopAndStart,      ///< stop while live, then a fresh start of the callback form
    StopInStart,       ///< a new object, stopped at the `at`-th outside call of `phase` of its start
    StopInRecovery,    ///< the same in a recovery
    StopFromCallback,  ///< the application stops while it is handed an update
    NewObject,         ///< a new process takes the board over
    SkipUnchanged,     ///< the same with the checksum asked for and the file unchanged
    SkipEdited,        ///< the same with the file edited
    OtherChannel,      ///< another channel's session receives `count` steps beside the managing one
    Kill,              ///< the process dies at the `at`-th outside call of `phase` of a start; another takes its place
    KillInRecovery,    ///< the same in a recovery
    OutOfMemory,       ///< an allocation of a start fails, that one alone or all from then on
    OutOfMemoryLater,  ///< the same in a recovery
    IndexUnwritable,   ///< a start whose contract index file has no directory to go to
    SetWallClock,      ///< the wall clock jumps by `count` minutes, back or forward
    Signal,            ///< SIGTERM at the `at`-th outside call of `phase` of a start or a recovery; the last step
    Count_
};

const char* StepName(EStep step);

struct Step {
    EStep kind = EStep::Live;
    ESessionPhase phase = ESessionPhase::Live;
    uint32_t at = 1;
    int32_t count = 0;
    std::string Text() const;
};

struct ChannelPlan {
    std::string insts;
    bool hasOptions = false;
};

struct SessionPlan {
    uint64_t seed = 1;
    int32_t shfeInstruments = 12;
    int32_t ineInstruments = 8;
    std::vector<std::string> faults;  ///< names
    bool hasShfe = true;
    bool hasIne = true;
    bool isShielded = false;
    bool isPolling = false;
    bool isChecksumAsked = false;
    bool isMemoryDead = false;
    int32_t logLevel = 7;
    int32_t waitSeconds = 10;
    int32_t attempts = 3;
    Settings settings;
    bool hasNarrowLimits = false;
    bool hasStaleWords = false;  ///< the board keeps control words of before
    uint32_t lostPacketAfter = 40;
    int32_t otherChannel = 2;
    bool isRepeated = false;  ///< the session is played twice, with something else behind every message
    bool hasWitness = false;  ///< the other channel receives to the end, too
    ChannelPlan channels[CHANNEL_SIZE];
    std::vector<Step> steps;

    std::string FaultList() const;
};

/// Asked for instead of names, gives each fault to half of the sessions.
inline constexpr const char* ALL_FAULTS = "all";

/// `faultNames` comma-separated: faults that the session has, whatever its seed.
SessionPlan MakePlan(uint64_t seed, const std::string& faultNames = ALL_FAULTS);

}  // namespace simulation
