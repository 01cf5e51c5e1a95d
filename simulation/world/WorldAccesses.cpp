// What the library does to the board, access by access, led to the rules.
#include <algorithm>
#include <cstring>

#include "simulation/base/WatchedAllocator.h"
#include "simulation/rules/Invariants.h"
#include "simulation/rules/Wanted.h"
#include "simulation/world/World.h"
#include "src/RegisterMap.h"

namespace simulation {
namespace {

constexpr EMDQPDataType LISTED[] = {SHFE_2PS, INE_2PS};
constexpr uint32_t NOWHERE = 0x2F000;

}  // namespace

void World::CountCall() {
    if (m_canary.Lies(18)) m_calls += m_callsMax;
    Require(++m_calls <= m_callsMax, 18,
            [this] { return "more than " + std::to_string(m_callsMax) + " outside calls in one step"; });
}

// Destructors must not throw: what they do is told when they are through.
bool World::IsOfDestructor() {
    m_hasDestructorCalled = m_hasDestructorCalled || m_isDestroying;
    return m_isDestroying;
}

void World::Fire() {
    if (m_trigger.at == 0 || m_trigger.phase != m_order.Phase()) [[likely]]
        return;
    if (--m_trigger.at == 0) m_trigger.action();
}

// ---- registers ------------------------------------------------------------------------------------------------------

bool World::OnWrite(uint32_t index, uint32_t value) {
    if (m_caller == 0 && m_trigger.at == 0 && m_tables.TakesEmptyWord(index, value)) [[likely]]
        return false;
    const WatchedAllocator::Watch unwatched(false);
    if (IsOfDestructor()) return false;
    CountCall();
    Require(m_caller == 0, 26,
            [=, this] { return "channel " + std::to_string(m_caller) + " wrote register " + Hex(index); });
    Fire();
    if (TableRules::IsPort(index)) return OnTableWrite(index, value);
    OnControlWrite(index, value);
    return true;
}

bool World::OnTableWrite(uint32_t index, uint32_t value) {
    const EPhase phase = m_order.Phase();
    if (phase == EPhase::Engines || phase == EPhase::Live) {
        m_order.OnAccess(EAccess::Write, index, value, m_clock.Now());
        Note(EEvent::Write, 0, index, value);
    } else if (m_canary.Lies(7)) {
        return true;
    }
    const bool isForBoard = m_tables.OnWrite(index, value, phase);
    // The word's data waited for its address to show whether the board must hear of it.
    if (isForBoard && TableRules::IsWriteAddress(index)) m_board.Write(index + 1, m_tables.Data());
    return isForBoard;
}

void World::OnControlWrite(uint32_t index, uint32_t value) {
    Note(EEvent::Write, 0, index, value);
    m_map.Check(EAccess::Write, m_canary.Lies(6) ? NOWHERE : index);
    if (index == reg::TARGET_ROUTE && m_canary.Lies(8)) return;
    const EPhase before = m_order.Phase();
    m_order.OnAccess(EAccess::Write, index, value, m_clock.Now());
    OnPhase(before, index);
}

void World::OnPhase(EPhase before, uint32_t index) {
    if (index == reg::BRING_UP_START) return OnBringUp();
    const EPhase now = m_order.Phase();
    if (index == reg::LOGICAL_START_2PS) CheckSubscriptions();
    if (now == before) return;
    if (now == EPhase::Tables) OnSnapshotUsed();
    if (now == EPhase::Versions) CheckTables();
    if (now == EPhase::Loading) {
        for (const std::string& fault : m_plan.faults) m_reach.Note(fault, now);
    }
    if (now != EPhase::Live) return;
    Follow();
    m_truth.RestartRound();
    m_other.OnRound();
}

void World::OnBringUp() {
    Follow();
    m_tables.OpenPorts();
    m_snapshot.OnBringUp();
    m_ledger.OnBringUp();
    m_managing.OnGap();
    m_other.OnGap();
    m_insane.clear();
    m_reach.Note(m_order.IsRecoveryDue() ? "recovery" : "bring-up", EPhase::Memory);
}

void World::BeforeRead(EAccess access, uint32_t index) {
    if (IsOfDestructor()) return;
    CountCall();
    Fire();
    m_looksAtReceive = m_clock.Looks();
    if (TableRules::IsPort(index)) return;
    m_map.Check(access, index);
    if (m_caller != 0) {
        Require(!m_canary.Lies(26), 26, [] { return std::string("another channel's read told as a write"); });
        return;
    }
    const int64_t late = index == reg::HBM2_STATUS && m_canary.Lies(17) ? 10 * NANOSECONDS_PER_SECOND : 0;
    m_order.OnAccess(access, index, 0, m_clock.Now() + late);
    if (index == reg::VERSION_VERDICT && m_order.EngineStarts() > 0 && m_wasRecoveryDue && m_canary.Lies(16)) {
        m_order.OnAccess(EAccess::Write, reg::CONFIG_CHECKSUM, 0, m_clock.Now());
    }
}

void World::AfterRead(EAccess access, uint32_t index, uint64_t value) {
    if (m_isDestroying) return;
    m_boardLooks += m_clock.Looks() - m_looksAtReceive;
    if (TableRules::IsPort(index)) return m_tables.OnRead(index);
    Note(access == EAccess::Read64 ? EEvent::Read64 : EEvent::Read32, m_caller, index, value);
    Follow();
}

// ---- tables ---------------------------------------------------------------------------------------------------------

bool World::IsEnabled(EMDQPDataType feed) const {
    return feed == SHFE_2PS ? m_plan.hasShfe : feed == INE_2PS && m_plan.hasIne;
}

void World::OnSnapshotUsed() {
    if (m_canary.Lies(14)) m_snapshot.OnPriceCheckFailed();
    m_snapshot.OnUsed();
    std::array<bool, FEED_COUNT> isEnabled{};
    std::array<int32_t, FEED_COUNT> counts{};
    for (const EMDQPDataType feed : LISTED) {
        isEnabled[static_cast<std::size_t>(feed)] = IsEnabled(feed);
        const uint32_t expected = IsEnabled(feed) ? static_cast<uint32_t>(m_truth.Count(feed)) : 0;
        const uint32_t told = m_board.Read(reg::FEEDS[static_cast<std::size_t>(feed)].instCount);
        Require(told == expected, 9, [=] {
            return "the count of feed " + std::to_string(feed) + " is " + std::to_string(told) + ", not " +
                   std::to_string(expected);
        });
    }
    m_tables.BeginTables(isEnabled, counts);
}

void World::CheckTables() {
    m_tables.EndTables();
    Note(EEvent::Slots, 0, m_tables.Writes(), m_tables.Hash());
    for (const EMDQPDataType feed : {SHFE_2PS, SHFE_4PS, INE_2PS, INE_4PS}) {
        const int32_t slots = std::max(m_tables.SlotsTouched(feed), IsEnabled(feed) ? m_truth.Count(feed) : 0);
        for (int32_t instNo = 0; instNo < slots; ++instNo) CheckSlot(feed, instNo, IsEnabled(feed));
    }
}

void World::CheckSlot(EMDQPDataType feed, int32_t instNo, bool isEnabled) {
    SInstTableType slot = m_board.Slot(feed, instNo);
    if (m_canary.Lies(9)) slot.last_price ^= 1;
    if (!isEnabled || instNo >= m_truth.Count(feed)) {
        const SInstTableType empty{};
        Require(std::memcmp(&slot, &empty, sizeof slot) == 0, 9,
                [=] { return "unused slot " + std::to_string(instNo) + " of feed " + std::to_string(feed); });
        return;
    }
    const exchange::Instrument& instrument = m_truth.Market().Instruments(feed)[static_cast<std::size_t>(instNo)];
    if (!IsSane(slot) && m_plan.isShielded && !IsSettlementTrade(instrument.id)) {
        m_ledger.Book(EQuirk::ShieldedBook);
        m_insane.emplace(feed, instNo);
        return;
    }
    const std::string difference = Difference(slot, instrument, m_truth.Latest(feed, instNo));
    if (difference.empty() || m_ledger.Explains(feed, instNo)) return;
    Break(9, difference + " of " + instrument.id + " differs from the snapshot");
}

void World::CheckSubscriptions() {
    for (const EMDQPDataType feed : LISTED) {
        for (int32_t instNo = 0; IsEnabled(feed) && instNo < m_truth.Count(feed); ++instNo) {
            const std::string& id = m_truth.Market().Instruments(feed)[static_cast<std::size_t>(instNo)].id;
            const uint32_t expected = m_insane.count({feed, instNo}) != 0 ? 0 : ControlWord(m_plan, id);
            const uint32_t told = m_board.Slot(feed, instNo).config ^ (m_canary.Lies(10) ? 1U : 0U);
            Require(told == expected, 10,
                    [&] { return "control word of " + id + " is " + Hex(told) + ", not " + Hex(expected); });
            if (expected != ControlWord(m_plan, id)) m_ledger.Taint(feed, instNo, EQuirk::ShieldedBook);
        }
    }
}

}  // namespace simulation
