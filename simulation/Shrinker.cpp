#include "simulation/Shrinker.h"

#include "simulation/Session.h"

namespace simulation {
namespace {

bool StillBreaks(const SessionPlan& plan, int canary, int invariant) {
    const Outcome outcome = RunSession(plan, canary, nullptr);
    return outcome.breach && outcome.breach->invariant == invariant;
}

template <typename Element>
void ShrinkList(SessionPlan& plan, std::vector<Element> SessionPlan::*list, int canary, int invariant) {
    for (std::size_t at = (plan.*list).size(); at-- > 0;) {
        SessionPlan smaller = plan;
        (smaller.*list).erase((smaller.*list).begin() + static_cast<std::ptrdiff_t>(at));
        if (StillBreaks(smaller, canary, invariant)) plan = smaller;
    }
}

}  // namespace

SessionPlan Shrink(SessionPlan plan, int canary, int invariant) {
    ShrinkList(plan, &SessionPlan::faults, canary, invariant);
    ShrinkList(plan, &SessionPlan::steps, canary, invariant);
    return plan;
}

}  // namespace simulation
