/// Takes faults and script steps away from a plan that breaks a rule, one by one, for as long as it still breaks the
/// same.
#pragma once

#include "simulation/base/SessionPlan.h"

namespace simulation {

SessionPlan Shrink(SessionPlan plan, int canary, int invariant);

}  // namespace simulation
