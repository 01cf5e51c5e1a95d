/// Takes faults and script steps away from a plan that breaks a rule, one by one, for as long as it still breaks the
/// same.
#pragma once

#include "simulation/base/Rule.h"
#include "simulation/base/SessionPlan.h"

namespace simulation {

SessionPlan Shrink(SessionPlan plan, ERule canary, ERule broken);

}  // namespace simulation
