#include "simulation/Session.h"

#include "simulation/Player.h"

namespace simulation {
namespace {

constexpr uint8_t FILLER = 0xA5;
constexpr uint8_t OTHER_FILLER = 0x5A;

void CollectCounts(World& world, const Player& player, Outcome& outcome) {
    outcome.updates = world.Deliveries(0).Records() + world.Deliveries(1).Records();
    outcome.losses = player.Losses();
    outcome.recoveries = world.Order().EngineStarts();
    outcome.reach = world.Reached();
    world.Quirks().AddTo(outcome.quirks);
}

Outcome PlayOnce(const SessionPlan& plan, Canary canary, std::FILE* file, uint8_t filler) {
    Outcome outcome;
    EventTrace trace(file);
    try {
        const Holdings before = Holdings::Now();
        {
            World world(plan, canary, trace, filler);
            Player player(plan, world);
            player.Play();
            CollectCounts(world, player, outcome);
        }
        RequireSame(before, Holdings::Now());
    } catch (const Breach& breach) {
        outcome.breach = breach;
    }
    if (outcome.breach || plan.isRepeated) outcome.lastEvents = trace.LastLines();
    outcome.traceHash = trace.Hash();
    return outcome;
}

}  // namespace

Outcome RunSession(const SessionPlan& plan, ERule toBreak, std::FILE* file) {
    Canary canary(toBreak);
    Outcome outcome = PlayOnce(plan, canary, file, FILLER);
    if (outcome.breach || !plan.isRepeated) return outcome;
    const uint64_t again = PlayOnce(plan, canary, nullptr, OTHER_FILLER).traceHash;
    if (again != outcome.traceHash || canary.Lies(ERule::Bounds)) {
        outcome.breach =
            Breach{ERule::Bounds, "trace " + Hex(again) + " with other bytes, not " + Hex(outcome.traceHash)};
    }
    return outcome;
}

}  // namespace simulation
