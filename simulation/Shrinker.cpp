#include "simulation/Shrinker.h"

#include "simulation/Session.h"

namespace simulation {
namespace {

bool StillBreaks(const SessionPlan& plan, ERule canary, ERule broken) {
    const Outcome outcome = RunSession(plan, canary, nullptr);
    return outcome.breach && outcome.breach->rule == broken;
}

template <typename Element>
void ShrinkList(SessionPlan& plan, std::vector<Element> SessionPlan::*list, ERule canary, ERule broken) {
    for (std::size_t at = (plan.*list).size(); at-- > 0;) {
        SessionPlan smaller = plan;
        (smaller.*list).erase((smaller.*list).begin() + static_cast<std::ptrdiff_t>(at));
        if (StillBreaks(smaller, canary, broken)) plan = smaller;
    }
}

}  // namespace

SessionPlan Shrink(SessionPlan plan, ERule canary, ERule broken) {
    ShrinkList(plan, &SessionPlan::faults, canary, broken);
    ShrinkList(plan, &SessionPlan::steps, canary, broken);
    return plan;
}

}  // namespace simulation
