/// Which faults of the board are still to happen, and after how many live updates.
#pragma once

#include <cstdint>
#include <optional>
#include <vector>

#include "exchange/Faults.h"

namespace software_board {

class BoardFaultSchedule {
public:
    /// Of the faults without a moment, those that a session meets while it runs come `apart` updates after each other;
    /// those of a board that is broken from the beginning come at once.
    BoardFaultSchedule(const exchange::Faults& faults, uint32_t apart);

    void Add(exchange::EFault fault, uint64_t afterUpdates);
    void Clear() { m_scheduled.clear(); }

    /// A fault that is due once there were so many updates; each is taken once.
    std::optional<exchange::EFault> TakeDue(uint64_t updates);

private:
    struct ScheduledFault {
        exchange::EFault fault;
        uint64_t afterUpdates;
    };
    std::vector<ScheduledFault> m_scheduled;  ///< the next one last
};

}  // namespace software_board
