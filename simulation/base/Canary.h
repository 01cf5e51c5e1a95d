/// One lie, told once, between the library and the checks: shows that the check of that rule can fail.
#pragma once

#include "simulation/base/Rule.h"

namespace simulation {

class Canary {
public:
    /// With ERule::None everything is told as it is.
    explicit Canary(ERule rule = ERule::None) : m_rule(rule) {}

    /// True at the first opportunity to break `rule`, if that is the one to break.
    bool Lies(ERule rule) {
        if (rule != m_rule || m_hasLied) [[likely]]
            return false;
        m_hasLied = true;
        return true;
    }

    ERule Rule() const { return m_rule; }

private:
    ERule m_rule;
    bool m_hasLied = false;
};

}  // namespace simulation
