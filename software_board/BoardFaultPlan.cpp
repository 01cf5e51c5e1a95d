#include "software_board/BoardFaultPlan.h"

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

BoardFaultPlan::BoardFaultPlan(const exchange::Faults& faults, uint32_t apart) {
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

void BoardFaultPlan::Add(EFault fault, uint64_t afterUpdates) {
    const auto later = [&](const Planned& planned) { return planned.afterUpdates > afterUpdates; };
    const auto place = std::find_if_not(m_planned.begin(), m_planned.end(), later);
    m_planned.insert(place, {fault, afterUpdates});
}

std::optional<EFault> BoardFaultPlan::TakeDue(uint64_t updates) {
    if (m_planned.empty() || m_planned.back().afterUpdates > updates) return {};
    const EFault fault = m_planned.back().fault;
    m_planned.pop_back();
    return fault;
}

}  // namespace software_board
