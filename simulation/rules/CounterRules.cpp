#include "simulation/rules/CounterRules.h"

#include <initializer_list>

namespace simulation {
namespace {

constexpr std::initializer_list<ECounter> OF_FRAMES{ECounter::MessageTooLong, ECounter::FrameMalformed,
                                                    ECounter::FrameForeign, ECounter::ChecksumWrong};

}  // namespace

const char* CountedName(ECounted expected) {
    constexpr const char* NAMES[] = {"nothing",       "a foreign message", "an unsound frame",
                                     "a sound frame", "a frame astray",    "a loss"};
    return NAMES[static_cast<std::size_t>(expected)];
}

std::string Moved(const CCounters& before, const CCounters& after) {
    std::string text;
    for (uint32_t counter = 0; counter < COUNTER_NAMES.size(); ++counter) {
        const uint64_t moved = after[ECounter{counter}] - before[ECounter{counter}];
        if (moved != 0) text += std::string(" ") + COUNTER_NAMES[counter] + "=" + std::to_string(moved);
    }
    return text;
}

bool IsCountedOnce(const CCounters& before, const CCounters& after, ECounted expected) {
    const auto moved = [&](ECounter counter) { return after[counter] - before[counter]; };
    uint64_t all = 0;
    for (uint32_t counter = 0; counter < COUNTER_NAMES.size(); ++counter) all += moved(ECounter{counter});
    uint64_t ofFrames = 0;
    for (const ECounter counter : OF_FRAMES) ofFrames += moved(counter);
    switch (expected) {
        case ECounted::Nothing: return all == 0;
        case ECounted::Foreign: return all == 1 && moved(ECounter::FrameForeign) == 1;
        case ECounted::Unsound: return all == 1 && ofFrames == 1;
        case ECounted::Sound:
            return ofFrames == 0 && moved(ECounter::PayloadNotMdqp) == 0 && moved(ECounter::FieldMalformed) == 0;
        case ECounted::Astray: return ofFrames == 0;
        case ECounted::EventLoss: return all == 1 && moved(ECounter::EventLoss) == 1;
    }
    return false;
}

}  // namespace simulation
