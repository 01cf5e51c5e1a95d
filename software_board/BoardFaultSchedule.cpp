#include "software_board/BoardFaultSchedule.h"

#include <algorithm>

namespace software_board {

namespace {

using exchange::EFault;

bool IsFromTheBeginning(EFault fault) {
    switch (fault) {
        case EFault::MemoryNotReady:
        case EFault::OldFirmware:
        case EFault::VersionWriteLost:
        case EFault::StreamOpenFails:
        case EFault::RegistersOpenFail: return true;
        default: return false;
    }
}

}  // namespace

BoardFaultSchedule::BoardFaultSchedule(const exchange::Faults& faults, uint32_t apart) {
    uint64_t next = apart;
    for (const exchange::FaultRow& row : exchange::FaultTable()) {
        if (row.place != exchange::EFaultPlace::Board || !faults.Has(row.kind)) continue;
        if (const auto moment = faults.MomentOf(row.kind)) {
            Add(row.kind, *moment);
        } else if (IsFromTheBeginning(row.kind)) {
            Add(row.kind, 0);
        } else {
            Add(row.kind, next);
            next += apart;
        }
    }
}

void BoardFaultSchedule::Add(EFault fault, uint64_t afterUpdates) {
    const auto later = [&](const ScheduledFault& scheduled) { return scheduled.afterUpdates > afterUpdates; };
    const auto place = std::find_if_not(m_scheduled.begin(), m_scheduled.end(), later);
    m_scheduled.insert(place, {fault, afterUpdates});
}

std::optional<EFault> BoardFaultSchedule::TakeDue(uint64_t updates) {
    if (m_scheduled.empty() || m_scheduled.back().afterUpdates > updates) return {};
    const EFault fault = m_scheduled.back().fault;
    m_scheduled.pop_back();
    return fault;
}

}  // namespace software_board
