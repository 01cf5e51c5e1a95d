#include "simulation/Session.h"

#include "simulation/Player.h"

namespace simulation {
namespace {

void CollectCounts(World& world, const Player& player, Outcome& outcome) {
    outcome.updates = world.Deliveries(0).Records() + world.Deliveries(1).Records();
    outcome.losses = player.Losses();
    outcome.recoveries = world.Order().EngineStarts();
    outcome.reach = world.Reached();
    world.Quirks().AddTo(outcome.quirks);
}

}  // namespace

Outcome RunSession(const Plan& plan, int canaryNumber, std::FILE* file) {
    Outcome outcome;
    Canary canary(canaryNumber);
    EventTrace trace(file);
    try {
        const Holdings before = Holdings::Now();
        {
            World world(plan, canary, trace);
            Player player(plan, world);
            player.Play();
            CollectCounts(world, player, outcome);
        }
        RequireSame(before, Holdings::Now());
    } catch (const Breach& breach) {
        outcome.breach = breach;
        outcome.lastEvents = trace.LastLines();
    }
    outcome.traceHash = trace.Hash();
    return outcome;
}

}  // namespace simulation
