#include "simulation/Simulation.h"

#include <cstdlib>
#include <ctime>
#include <sstream>
#include <stdexcept>

#include "exchange/Faults.h"
#include "simulation/ReachTable.h"
#include "simulation/Shrinker.h"
#include "simulation/base/EventTrace.h"

namespace simulation {
namespace {

#ifdef VEXA_SMALL_TABLES
constexpr const char* PROGRAM = "vexa-sim-small";
#else
constexpr const char* PROGRAM = "vexa-sim";
#endif

double RealSeconds() {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) / 1e9;
}

void CheckFaults(const std::string& names) {
    exchange::Faults faults;
    std::string error;
    if (!exchange::ParseFaults(names, faults, error)) throw std::invalid_argument("--faults: " + error);
    if (faults.MomentOf(exchange::EFault::AbsentValues)) {
        throw std::invalid_argument(
            "--faults: absent-values takes no moment here: it changes the truth from the beginning");
    }
}

void Add(const Outcome& outcome, Totals& totals) {
    ++totals.sessions;
    totals.updates += outcome.updates;
    totals.losses += outcome.losses;
    totals.recoveries += outcome.recoveries;
    totals.traceHash = Mix(totals.traceHash, outcome.traceHash);
    for (std::size_t quirk = 0; quirk < QUIRK_COUNT; ++quirk) totals.quirks[quirk] += outcome.quirks[quirk];
    totals.reach.Add(outcome.reach);
}

void TellPlan(std::ostream& out, const SessionPlan& plan) {
    out << "faults: " << (plan.faults.empty() ? "none" : plan.FaultList()) << "\n";
    for (const Step& step : plan.steps) out << "step: " << step.Text() << "\n";
}

}  // namespace

Totals RunSessions(const RunOptions& options) {
    CheckFaults(options.faults);
    setenv("TZ", "UTC", 1);  // the quiet windows are local time
    tzset();
    Totals totals;
    const double start = RealSeconds();
    for (uint64_t session = 0; session < options.sessions && !totals.broken; ++session) {
        if (options.minutes > 0 && RealSeconds() - start >= options.minutes * 60) break;
        const SessionPlan plan = MakePlan(options.seed + session, options.faults);
        const Outcome outcome = RunSession(plan, options.canary, options.trace);
        Add(outcome, totals);
        if (!outcome.breach) continue;
        totals.broken = plan;
        totals.outcome = outcome;
    }
    totals.seconds = RealSeconds() - start;
    return totals;
}

std::string TellBreach(const Totals& totals, const RunOptions& options) {
    const Breach& breach = *totals.outcome.breach;
    std::ostringstream out;
    out << "the last events:\n";
    for (const std::string& line : totals.outcome.lastEvents) out << line << "\n";
    const Rule& rule = FindRule(breach.rule);
    out << "\nbroken: " << rule.number << " (" << rule.name << "): " << rule.text << "\n  " << breach.what << "\n";
    out << "seed " << totals.broken->seed << "; again with: " << PROGRAM << " --seed " << totals.broken->seed
        << " --faults " << (options.faults.empty() ? "\"\"" : options.faults);
    if (options.canary != ERule::None) out << " --canary " << NumberOf(options.canary);
    out << "\n\nthe least that breaks it:\n";
    TellPlan(out, Shrink(*totals.broken, options.canary, breach.rule));
    return out.str();
}

std::string TellHoles(const Totals& totals) { return Holes(totals.reach, totals.sessions); }

std::string TellReach(const Totals& totals) {
    std::ostringstream out;
    out << "what was tried in which phase, by callback and by polling:\n"
        << totals.reach.Text() << "\nwhat cannot be:\n"
        << WhatCannotBe() << "\nquirks booked:\n";
    for (std::size_t quirk = 0; quirk < QUIRK_COUNT; ++quirk) {
        out << "  " << QuirkName(static_cast<EQuirk>(quirk)) << ": " << totals.quirks[quirk] << "\n";
    }
    return out.str();
}

}  // namespace simulation
