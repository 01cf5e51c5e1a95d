/// A whole start, access by access: written down from what the configuration means, table words and whatever the
/// snapshot brings left out.
#pragma once

#include <cstdint>
#include <initializer_list>
#include <optional>
#include <vector>

#include "simulation/base/Phase.h"
#include "simulation/base/Plan.h"
#include "simulation/rules/RegisterRules.h"

namespace simulation {

struct Stop {
    EAccess access;
    uint32_t index;
    EPhase phase;                   ///< entered here
    std::optional<uint32_t> value;  ///< of a write; none: told by the rules of another file
};

class StartScript {
public:
    explicit StartScript(const Plan& plan);

    const std::vector<Stop>& Stops() const { return m_stops; }
    std::size_t BringUpStop() const { return m_bringUpStop; }  ///< where recoveries begin

private:
    void Read(EPhase phase, std::initializer_list<uint32_t> indices);
    void Read64(EPhase phase, std::initializer_list<uint32_t> indices);
    void Write(EPhase phase, uint32_t index, std::optional<uint32_t> value);

    void Identity();
    void Programming(const Settings& settings);
    void Groups(const Plan& plan);
    void Engines(const Settings& settings);

    std::vector<Stop> m_stops;
    std::size_t m_bringUpStop = 0;
};

}  // namespace simulation
