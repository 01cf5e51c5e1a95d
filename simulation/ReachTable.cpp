#include "simulation/ReachTable.h"

#include <algorithm>
#include <initializer_list>
#include <vector>

#include "exchange/Faults.h"
#include "simulation/base/Edges.h"
#include "simulation/base/SessionPlan.h"
#include "simulation/rules/StartDecision.h"

namespace simulation {
namespace {

using Phases = std::initializer_list<ESessionPhase>;

constexpr Phases LOADING{ESessionPhase::Loading};
constexpr Phases LIVE{ESessionPhase::Live};
constexpr Phases IDENTITY{ESessionPhase::Identity};
constexpr Phases RECOVERY{ESessionPhase::Memory, ESessionPhase::Programming, ESessionPhase::Loading,
                          ESessionPhase::Tables, ESessionPhase::Versions,    ESessionPhase::Subscribing,
                          ESessionPhase::Engines};
constexpr Phases START{ESessionPhase::Identity,    ESessionPhase::Memory, ESessionPhase::Programming,
                       ESessionPhase::Loading,     ESessionPhase::Tables, ESessionPhase::Versions,
                       ESessionPhase::Subscribing, ESessionPhase::Engines};
constexpr Phases OPEN{ESessionPhase::Identity,    ESessionPhase::Memory,  ESessionPhase::Programming,
                      ESessionPhase::Loading,     ESessionPhase::Tables,  ESessionPhase::Versions,
                      ESessionPhase::Subscribing, ESessionPhase::Engines, ESessionPhase::Live};

/// Rows of one kind: where they can happen, and why nowhere else.
struct Kind {
    const char* what;
    Phases phases;
    const char* whyNotElsewhere;
    bool hasPolling = true;
};

const Kind STREAM{"faults of snapshot connections", LOADING, "connections are open while the snapshot loads"};
const Kind BOARD{"faults of the board", LIVE, "they come by live updates"};
const Kind SCRIPT{"steps of the script", LIVE, "each step begins with a session that is live"};
const Kind IN_CALLBACK{"stop-from-callback", LIVE, "a polling application has no callback", false};
const Kind SAMPLES{"samples", IDENTITY, "the counters are sampled once, before the board is touched"};
const Kind IN_START{"... in start", START, "a start begins with the identity and ends with the engines"};
const Kind IN_RECOVERY{"... in recovery", RECOVERY, "a recovery begins with the bring-up"};
const Kind EVENTS{"event ...", OPEN, "without a stream no event arrives"};
const Kind TIMES{"last update ...", LIVE, "the time is asked for when a live session is told of silence"};

const Kind* const KINDS[] = {&STREAM,   &BOARD,       &SCRIPT, &IN_CALLBACK, &SAMPLES,
                             &IN_START, &IN_RECOVERY, &EVENTS, &TIMES};

struct Row {
    std::string what;
    const Kind* kind;
};

void AddFaults(std::vector<Row>& rows) {
    for (const exchange::FaultRow& row : exchange::FaultTable()) {
        const bool isMeant = row.isRecovered || row.kind == exchange::EFault::ChangingList;
        if (isMeant) rows.push_back({row.name, row.place == exchange::EFaultPlace::Board ? &BOARD : &STREAM});
    }
}

std::vector<Row> AllRows() {
    std::vector<Row> rows;
    AddFaults(rows);
    for (auto step = EStep{}; step < EStep::Count_; step = static_cast<EStep>(static_cast<int>(step) + 1)) {
        rows.push_back({StepName(step), step == EStep::StopFromCallback ? &IN_CALLBACK : &SCRIPT});
    }
    for (const char* shown : StartDecision::AllShown()) rows.push_back({shown, &SAMPLES});
    for (const char* what : {"stop", "kill", "signal"}) {
        rows.push_back({std::string(what) + " in start", &IN_START});
        rows.push_back({std::string(what) + " in recovery", &IN_RECOVERY});
    }
    rows.push_back({"loss in recovery", &IN_RECOVERY});
    for (const EventCard& card : AllSingles()) rows.push_back({card.name, &EVENTS});
    for (const EventCard& card : AllPairs()) rows.push_back({card.name, &EVENTS});
    for (const TimeCard& card : AllTimes()) rows.push_back({card.name, &TIMES});
    return rows;
}

}  // namespace

std::string Holes(const Reach& reach, uint64_t sessions) {
    constexpr uint64_t TIMES_DUE = 5;
    constexpr uint64_t SESSIONS_DUE = 2000;
    const uint64_t due = std::max<uint64_t>(1, TIMES_DUE * sessions / SESSIONS_DUE);
    std::string holes;
    for (const Row& row : AllRows()) {
        for (const ESessionPhase phase : row.kind->phases) {
            for (const EForm form : {EForm::Callback, EForm::Polling}) {
                if (form == EForm::Polling && !row.kind->hasPolling) continue;
                const uint64_t count = reach.Count(row.what, phase, form);
                if (count >= due) continue;
                holes += row.what + " in phase " + SessionPhaseName(phase) +
                         (form == EForm::Callback ? " by callback: " : " by polling: ") + std::to_string(count) +
                         " of " + std::to_string(due) + "\n";
            }
        }
    }
    return holes;
}

std::string WhatCannotBe() {
    std::string text;
    for (const Kind* kind : KINDS) text += std::string("  ") + kind->what + ": " + kind->whyNotElsewhere + "\n";
    return text;
}

}  // namespace simulation
