// What each fault does to the board. The others act on the snapshot connections.
#include <ctime>

#include "public/clock/Clock.h"
#include "software_board/BoardEngine.h"

namespace software_board {

namespace {

using exchange::EFault;

constexpr uint32_t LOST_UPDATES = 20;
constexpr uint32_t DROPPED_RECORDS = 50;
constexpr uint32_t STORM_EVENTS = 1000;
constexpr uint32_t QUIET_STEPS = 500;
constexpr uint32_t OLD_FIRMWARE = 0x20200101;
constexpr int64_t NANOSECONDS_PER_SECOND = 1'000'000'000;

U50Event EventOf(uint32_t data0, uint32_t data1) { return {DMA_EVENT, sizeof(U50Event), data0, data1, 0, 0, 0, 0}; }

}  // namespace

bool BoardEngine::Inject(std::string_view names, std::string& error) {
    exchange::Faults faults;
    if (!exchange::ParseFaults(names, faults, error)) return false;
    for (const exchange::FaultRow& row : exchange::FaultTable()) {
        if (!faults.Has(row.kind)) continue;
        const auto moment = faults.MomentOf(row.kind);
        switch (row.place) {
            case exchange::EFaultPlace::EveryConnection: m_options.faults.Set(row.kind, moment); break;
            case exchange::EFaultPlace::OneConnection: m_snapshot.AddOneShot({row.kind, moment}); break;
            case exchange::EFaultPlace::Board: m_faultSchedule.Add(row.kind, m_updates + moment.value_or(0)); break;
        }
    }
    ApplyDueFaults();
    return true;
}

void BoardEngine::ClearFaults() {
    m_options.faults = exchange::Faults();
    m_snapshot.ClearOneShots();
    m_faultSchedule.Clear();
    m_quietSteps = 0;
    m_dropRecords = 0;
    Store(m_memory.registers.broken, 0U);
    Store(m_memory.registers.hardwareVersion, m_options.hardwareVersion);
}

void BoardEngine::ApplyDueFaults() {
    while (const auto fault = m_faultSchedule.TakeDue(m_updates)) ApplyFault(*fault);
}

void BoardEngine::ApplyFault(EFault fault) {
    switch (fault) {
        case EFault::PacketLost: return LosePackets(LOST_UPDATES);
        case EFault::PriceError: return PutEventToAll(EventOf(0, EVENT_PRICE_ERROR & 1U));
        case EFault::Timeout: return StopTheMarketAt(10, 45);
        case EFault::TimeoutQuiet: return StopTheMarketAt(15, 5);
        case EFault::RingOverflow: m_dropRecords = DROPPED_RECORDS; return;
        case EFault::EventStorm:
            for (uint32_t event = 0; event < STORM_EVENTS; ++event) PutEventToAll(EventOf(EVENT_LOST & EVENT_GROUP, 0));
            return;
        case EFault::MemoryNotReady: return MarkBroken(BROKEN_MEMORY);
        case EFault::OldFirmware: return Store(m_memory.registers.hardwareVersion, OLD_FIRMWARE);
        case EFault::VersionWriteLost: return MarkBroken(BROKEN_VERSION_WRITE);
        case EFault::RegisterAllOnes: return MarkBroken(BROKEN_CARD);
        case EFault::StreamOpenFails: return MarkBroken(BROKEN_STREAMS);
        case EFault::RegistersOpenFail: return MarkBroken(BROKEN_REGISTERS);
        default: return;
    }
}

void BoardEngine::MarkBroken(EBroken what) {
    Store(m_memory.registers.broken, Load(m_memory.registers.broken) | static_cast<uint32_t>(what));
}

// The last updates bear a local time of today's, and nothing follows them for a while.
void BoardEngine::StopTheMarketAt(int hour, int minute) {
    const int64_t now = CClock::WallNanoseconds() / NANOSECONDS_PER_SECOND;
    std::tm local{};
    if (!CClock::LocalTime(now, local)) return;
    const int64_t midnight = now - (local.tm_hour * 60 + local.tm_min) * 60 - local.tm_sec;
    const auto stoppedAt = static_cast<uint64_t>(midnight + (hour * 60 + minute) * 60);
    for (uint64_t& last : m_memory.registers.lastUpdate) Store(last, stoppedAt);
    m_quietSteps = QUIET_STEPS;
    PutEventToAll(EventOf(EVENT_TIME_OUT & EVENT_GROUP, 0));
}

}  // namespace software_board
