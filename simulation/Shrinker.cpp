#include "simulation/Shrinker.h"

#include "simulation/Session.h"

namespace simulation {
namespace {

bool StillBreaks(const Plan& plan, int canary, int invariant) {
    const Outcome outcome = RunSession(plan, canary, nullptr);
    return outcome.breach && outcome.breach->invariant == invariant;
}

template <typename Element>
void ShrinkList(Plan& plan, std::vector<Element> Plan::*list, int canary, int invariant) {
    for (std::size_t at = (plan.*list).size(); at-- > 0;) {
        Plan smaller = plan;
        (smaller.*list).erase((smaller.*list).begin() + static_cast<std::ptrdiff_t>(at));
        if (StillBreaks(smaller, canary, invariant)) plan = smaller;
    }
}

}  // namespace

Plan Shrink(Plan plan, int canary, int invariant) {
    ShrinkList(plan, &Plan::faults, canary, invariant);
    ShrinkList(plan, &Plan::steps, canary, invariant);
    return plan;
}

}  // namespace simulation
