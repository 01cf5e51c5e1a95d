#include "simulation/base/SessionPlan.h"

#include <algorithm>
#include <array>

#include "exchange/Faults.h"
#include "exchange/InstrumentList.h"
#include "exchange/Random.h"
#include "simulation/base/Edges.h"

namespace simulation {
namespace {

using exchange::Random;

constexpr uint32_t FULL_SIZE_ONE_IN = 40;
constexpr uint32_t MEMORY_DEAD_ONE_IN = 100;
constexpr uint32_t REPEATED_ONE_IN = 25;
constexpr int32_t FULL_SHFE = std::min(600, SHFE_INST_CAPACITY);
constexpr int32_t FULL_INE = std::min(200, INE_INST_CAPACITY);
constexpr int32_t TRADING_DAY = 20260430;

constexpr std::array<const char*, static_cast<std::size_t>(EStep::Count_)> STEP_NAMES{"live",
                                                                                      "lose",
                                                                                      "lose-later",
                                                                                      "time-outs",
                                                                                      "stop-and-start",
                                                                                      "stop-in-start",
                                                                                      "stop-in-recovery",
                                                                                      "stop-from-callback",
                                                                                      "new-object",
                                                                                      "skip-unchanged",
                                                                                      "skip-edited",
                                                                                      "other-channel",
                                                                                      "kill",
                                                                                      "kill-in-recovery",
                                                                                      "out-of-memory",
                                                                                      "out-of-memory-later",
                                                                                      "index-unwritable",
                                                                                      "set-wall-clock",
                                                                                      "signal"};

constexpr ESessionPhase START_PHASES[] = {ESessionPhase::Identity,    ESessionPhase::Memory, ESessionPhase::Programming,
                                          ESessionPhase::Loading,     ESessionPhase::Tables, ESessionPhase::Versions,
                                          ESessionPhase::Subscribing, ESessionPhase::Engines};

std::vector<std::string> Split(const std::string& names) {
    std::vector<std::string> parts;
    for (std::size_t begin = 0; begin < names.size();) {
        const std::size_t end = std::min(names.find(',', begin), names.size());
        parts.push_back(names.substr(begin, end - begin));
        begin = end + 1;
    }
    return parts;
}

std::vector<std::string> FaultsOf(const std::string& faultNames, uint64_t seed) {
    if (faultNames != ALL_FAULTS) return Split(faultNames);
    Random random(seed, "swarm");
    std::vector<std::string> faults;
    for (const exchange::FaultRow& row : exchange::FaultTable()) {
        const bool isMeant = row.isRecovered || row.kind == exchange::EFault::ChangingList;
        if (isMeant && random.OneIn(2)) faults.emplace_back(row.name);
    }
    return faults;
}

/// An entry of a channel's list: a product, a future, a whole id, or something that no exchange lists.
std::string Entry(const std::vector<exchange::Instrument>& instruments, Random& random) {
    const std::string& id = instruments[random.Below(static_cast<uint32_t>(instruments.size()))].id;
    switch (random.Below(4)) {
        case 0: return id.substr(0, 2);
        case 1: return id.substr(0, 6);
        case 2: return id;
        default: return random.OneIn(2) ? "zz" : id + "X";
    }
}

void PlanChannels(SessionPlan& plan, Random& random) {
    auto instruments = exchange::ListInstruments(exchange::Venue::Shfe, plan.shfeInstruments, TRADING_DAY, plan.seed);
    const auto ine = exchange::ListInstruments(exchange::Venue::Ine, plan.ineInstruments, TRADING_DAY, plan.seed);
    instruments.insert(instruments.end(), ine.begin(), ine.end());
    plan.otherChannel = random.Between(1, CHANNEL_SIZE - 1);
    for (int32_t channel = 0; channel < CHANNEL_SIZE; ++channel) {
        ChannelPlan& planned = plan.channels[channel];
        planned.hasOptions = random.OneIn(2);
        if (channel != 0 && channel != plan.otherChannel && !random.OneIn(8)) continue;
        planned.insts = "all";
        if (random.OneIn(2)) continue;
        planned.insts = Entry(instruments, random);
        for (uint32_t more = random.Below(4); more > 0; --more) planned.insts += "," + Entry(instruments, random);
    }
}

void PlanConfiguration(SessionPlan& plan, Random& random) {
    const uint32_t feeds = random.Below(6);
    plan.hasShfe = feeds != 0;
    plan.hasIne = feeds != 1;
    plan.isShielded = random.OneIn(4);
    plan.isChecksumAsked = random.OneIn(2);
    plan.isMemoryDead = random.OneIn(MEMORY_DEAD_ONE_IN);
    constexpr int32_t LEVELS[] = {0, 1, 3, 7, 7, 15};
    plan.logLevel = LEVELS[random.Below(std::size(LEVELS))];
    plan.waitSeconds = random.Between(4, 12);
    plan.attempts = random.Between(3, 5);
    plan.lostPacketAfter = random.Below(60) + 1;
    plan.isRepeated = random.OneIn(REPEATED_ONE_IN);
    plan.hasWitness = random.OneIn(2);
    plan.hasStaleWords = random.OneIn(3);
    plan.hasNarrowLimits = random.OneIn(2);
}

/// A poll takes five milliseconds here: an attempt needs longer where many snapshots come before a good one, tiny
/// segments, or acknowledgements between them.
int32_t SecondsForFaults(const SessionPlan& plan) {
    const auto has = [&](exchange::EFault fault) {
        return std::find(plan.faults.begin(), plan.faults.end(), exchange::FaultName(fault)) != plan.faults.end();
    };
    int32_t connects = 1;
    for (const exchange::FaultRow& row : exchange::FaultTable()) {
        if (row.place == exchange::EFaultPlace::OneConnection && has(row.kind)) ++connects;
    }
    const int32_t instruments = plan.shfeInstruments + plan.ineInstruments;
    const bool isTiny = has(exchange::EFault::SplitSmall);
    const int32_t msEach = (isTiny ? 160 : 12) * (has(exchange::EFault::BareAck) ? 2 : 1);
    const int32_t floodSeconds = has(exchange::EFault::EarlyFlood) ? 8 : 0;
    const int32_t oversizedSeconds = has(exchange::EFault::OversizedMessage) ? (isTiny ? 20 : 2) : 0;
    const int32_t streams =
        (has(exchange::EFault::SecondConnection) ? 2 : 1) + (has(exchange::EFault::UnaskedFeed) ? 1 : 0);
    return (connects * instruments * msEach / 1000 + floodSeconds + oversizedSeconds) * streams;
}

bool HappensInStart(EStep kind) { return kind == EStep::StopInStart || kind == EStep::Kill; }

Step PlanStep(Random& random) {
    Step step;
    step.kind = static_cast<EStep>(random.Below(static_cast<uint32_t>(EStep::Signal)));
    const bool isOfStart = HappensInStart(step.kind);
    step.phase = START_PHASES[random.Below(static_cast<uint32_t>(std::size(START_PHASES)) - (isOfStart ? 0U : 1U)) +
                              (isOfStart ? 0U : 1U)];
    step.at = 1 + random.Below(random.OneIn(2) ? 3 : 16);
    step.count = random.Between(1, 60);
    if (step.kind == EStep::SetWallClock) step.count = random.Between(-3000, 3000);
    return step;
}

}  // namespace

const char* StepName(EStep step) { return STEP_NAMES[static_cast<std::size_t>(step)]; }

std::string Step::Text() const {
    return std::string(StepName(kind)) + " phase=" + SessionPhaseName(phase) + " at=" + std::to_string(at) +
           " count=" + std::to_string(count);
}

std::string SessionPlan::FaultList() const {
    std::string list;
    for (const std::string& name : faults) list += (list.empty() ? "" : ",") + name;
    return list;
}

SessionPlan MakePlan(uint64_t seed, const std::string& faultNames) {
    SessionPlan plan;
    plan.seed = seed;
    Random sizes(seed, "sizes");
    const bool isFull = sizes.OneIn(FULL_SIZE_ONE_IN);
    plan.shfeInstruments = isFull ? FULL_SHFE : sizes.Between(1, 16);
    plan.ineInstruments = isFull ? FULL_INE : sizes.Between(1, sizes.OneIn(4) ? 16 : 8);
    plan.faults = FaultsOf(faultNames, seed);
    Random configuration(seed, "configuration");
    PlanConfiguration(plan, configuration);
    plan.settings = DrawSettings(seed, plan.hasShfe);
    plan.isPolling = IsPollingDealt(seed);
    plan.waitSeconds += SecondsForFaults(plan);
    Random channels(seed, "channels");
    PlanChannels(plan, channels);
    Random script(seed, "script");
    for (uint32_t left = 2 + script.Below(isFull ? 2 : 5); left > 0; --left) plan.steps.push_back(PlanStep(script));
    if (!DealTimes(seed).empty()) {
        const uint32_t place = script.Below(static_cast<uint32_t>(plan.steps.size()));
        plan.steps[place] = {EStep::TimeOuts, ESessionPhase::Live, 1, 1};
    }
    if (script.OneIn(6)) {
        plan.steps.push_back(PlanStep(script));
        Step& last = plan.steps.back();
        last.kind = EStep::Signal;
        last.count = 2 * script.Between(1, 9);  // in a start
        last.phase = START_PHASES[script.Below(std::size(START_PHASES))];
        if (script.OneIn(2) && last.phase != ESessionPhase::Identity) ++last.count;
    }
    return plan;
}

}  // namespace simulation
