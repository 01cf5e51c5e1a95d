/// A whole start, access by access: written down from what the configuration means, table words and whatever the
/// snapshot brings left out.
#pragma once

#include <cstdint>
#include <initializer_list>
#include <optional>
#include <vector>

#include "simulation/base/SessionPhase.h"
#include "simulation/base/SessionPlan.h"
#include "simulation/rules/RegisterRules.h"

namespace simulation {

struct Stop {
    EAccess access;
    uint32_t index;
    ESessionPhase phase;            ///< entered here
    std::optional<uint32_t> value;  ///< of a write; none: told by the rules of another file
};

class StartScript {
public:
    explicit StartScript(const SessionPlan& plan);

    const std::vector<Stop>& Stops() const { return m_stops; }
    std::size_t BringUpStop() const { return m_bringUpStop; }  ///< where recoveries begin

private:
    void Read(ESessionPhase phase, std::initializer_list<uint32_t> indices);
    void Read64(ESessionPhase phase, std::initializer_list<uint32_t> indices);
    void Write(ESessionPhase phase, uint32_t index, std::optional<uint32_t> value);

    void Identity();
    void Programming(const Settings& settings);
    void Groups(const SessionPlan& plan);
    void Engines(const Settings& settings);

    std::vector<Stop> m_stops;
    std::size_t m_bringUpStop = 0;
};

}  // namespace simulation
