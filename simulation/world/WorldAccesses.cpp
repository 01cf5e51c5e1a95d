// What the library does to the board, access by access, led to the rules.
#include <algorithm>
#include <cstring>
#include <fstream>
#include <iterator>

#include "simulation/base/WatchedAllocator.h"
#include "simulation/rules/BoardMap.h"
#include "simulation/rules/IndexFile.h"
#include "simulation/rules/Rules.h"
#include "simulation/rules/Wanted.h"
#include "simulation/world/World.h"

namespace simulation {
namespace {

constexpr EMDQPDataType LISTED[] = {SHFE_2PS, INE_2PS};
constexpr uint32_t NOWHERE = 0x2F000;

}  // namespace

void World::CountCall() {
    if (m_canary.Lies(ERule::BoundedSteps)) m_calls += m_callsMax;
    Require(++m_calls <= m_callsMax, ERule::BoundedSteps,
            [this] { return "more than " + std::to_string(m_callsMax) + " outside calls in one step"; });
}

// Destructors must not throw: what they do is told when they are through.
bool World::IsOfDestructor() {
    m_hasDestructorCalled = m_hasDestructorCalled || m_isDestroying;
    return m_isDestroying;
}

void World::FireTrigger() {
    if (m_trigger.at == 0 || m_trigger.phase != m_order.Phase()) [[likely]]
        return;
    if (--m_trigger.at != 0) return;
    m_reach.Note(m_trigger.what, m_order.Phase());
    m_trigger.action();
}

// ---- registers ------------------------------------------------------------------------------------------------------

bool World::OnWrite(uint32_t index, uint32_t value) {
    if (m_caller == 0 && m_trigger.at == 0) {
        if (m_tables.TakesEmptyWord(index, value)) [[likely]]
            return false;
        if (m_isPassKnown && m_subscription.TakesReadAddress(index, value)) return true;
    }
    const WatchedAllocator::Watch unwatched(false);
    if (IsOfDestructor()) return false;
    CountCall();
    Require(m_caller == 0, ERule::OneManager,
            [=, this] { return "channel " + std::to_string(m_caller) + " wrote register " + Hex(index); });
    FireTrigger();
    if (TableRules::IsPort(index)) return OnTableWrite(index, value);
    OnControlWrite(index, value);
    return true;
}

bool World::OnTableWrite(uint32_t index, uint32_t value) {
    const ESessionPhase phase = m_order.Phase();
    if (phase == ESessionPhase::Engines || phase == ESessionPhase::Live) {
        m_order.OnAccess(EAccess::Write, index, value, m_clock.Now());
        Note(EEvent::Write, 0, index, value);
    } else if (m_canary.Lies(ERule::TablePairs)) {
        return true;
    }
    if (phase == ESessionPhase::Subscribing && m_isPassKnown) {
        if (m_subscription.TakesReadAddress(index, value)) return true;
        m_subscription.OnWrite(index, m_canary.Lies(ERule::Passes) ? value ^ 2 : value);
        if (TableRules::IsReadAddress(index)) return true;
    }
    const bool isForBoard = m_tables.OnWrite(index, value, phase);
    // The word's data waited for its address to show whether the board must hear of it.
    if (isForBoard && TableRules::IsWriteAddress(index)) m_board.Write(index + 1, m_tables.Data());
    return isForBoard;
}

void World::OnControlWrite(uint32_t index, uint32_t value) {
    Note(EEvent::Write, 0, index, value);
    m_map.Check(EAccess::Write, m_canary.Lies(ERule::RegisterMap) ? NOWHERE : index);
    if (index == board::ROUTE && m_canary.Lies(ERule::Order)) return;
    if (index == board::SRC_PORT && m_canary.Lies(ERule::Values)) value ^= 1;
    const ESessionPhase before = m_order.Phase();
    if (index == board::BRING_UP && before == ESessionPhase::Identity) {
        Require(!m_decision.MayLeaveAlone(), ERule::LeftAlone,
                [] { return std::string("a board was brought up that runs this very configuration"); });
    }
    m_order.OnAccess(EAccess::Write, index, value, m_clock.Now());
    if (index == board::SNAPSHOT && value != board::SNAPSHOT_CLOSED) Relist();
    OnPhase(before, index);
    if (before != m_order.Phase()) DealEvents();
}

// As the board's exchange does when the snapshot phase is opened.
void World::Relist() {
    Follow();
    m_truth.Relist(m_faults.Has(exchange::EFault::ChangingList) ? ++m_lists : 0);
}

void World::OnPhase(ESessionPhase before, uint32_t index) {
    if (index == board::BRING_UP) return OnBringUp();
    const ESessionPhase now = m_order.Phase();
    if (index == board::ENGINE_2PS) CheckSubscriptions();
    if (now == before) return;
    if (now == ESessionPhase::Tables) OnSnapshotUsed();
    if (now == ESessionPhase::Versions) {
        CheckTables();
        TellTables();
        LeaveStaleWords();
    }
    if (now == ESessionPhase::Engines && m_isPassKnown) m_subscription.RequireComplete();
    if (now == ESessionPhase::Loading || now == ESessionPhase::Live) NoteFaults(now);
    if (now != ESessionPhase::Live) return;
    Follow();
    m_truth.RestartRound();
    m_other.OnRound();
}

void World::NoteFaults(ESessionPhase phase) {
    for (const exchange::FaultRow& row : exchange::FaultTable()) {
        const bool isOfBoard = row.place == exchange::EFaultPlace::Board;
        if (m_faults.Has(row.kind) && isOfBoard == (phase == ESessionPhase::Live)) m_reach.Note(row.name, phase);
    }
}

void World::OnBringUp() {
    Follow();
    m_tables.OpenPorts();
    m_snapshot.OnBringUp();
    m_reckoning.OnBringUp();
    m_outcome = SnapshotReckoning::EOutcome::GoesOn;
    m_ledger.OnBringUp();
    m_managing.OnGap();
    m_other.OnGap();
    m_insane.clear();
}

void World::BeforeRead(EAccess access, uint32_t index) {
    if (IsOfDestructor()) return;
    CountCall();
    FireTrigger();
    m_looksAtReceive = m_clock.Looks();
    if (TableRules::IsPort(index)) return;
    m_map.Check(access, index);
    if (m_caller != 0) {
        Require(!m_canary.Lies(ERule::OneManager), ERule::OneManager,
                [] { return std::string("another channel's read told as a write"); });
        return;
    }
    const int64_t late = index == board::MEMORY_STATUS && m_canary.Lies(ERule::Waits) ? 10 * NANOSECONDS_PER_SECOND : 0;
    m_order.OnAccess(access, index, 0, m_clock.Now() + late);
    if (m_order.Phase() == ESessionPhase::Subscribing) OnPassRead(index);
    DealEvents();
    if (index == board::VERDICT && m_order.EngineStarts() > 0 && m_wasRecoveryDue && m_canary.Lies(ERule::Checksum)) {
        m_order.OnAccess(EAccess::Write, board::CHECKSUM, 0, m_clock.Now());
    }
}

void World::AfterRead(EAccess access, uint32_t index, uint64_t& value) {
    if (m_isDestroying) return;
    m_boardLooks += m_clock.Looks() - m_looksAtReceive;
    if (TableRules::IsPort(index)) return OnTableRead(index, static_cast<uint32_t>(value));
    if (m_order.Phase() == ESessionPhase::Identity) value = m_decision.ShownValue(index, value);
    Note(access == EAccess::Read64 ? EEvent::Read64 : EEvent::Read32, m_caller, index, value);
    Follow();
}

void World::OnTableRead(uint32_t index, uint32_t value) {
    if (m_order.Phase() != ESessionPhase::Subscribing || !m_isPassKnown) return m_tables.OnRead(index);
    const bool isControlWord = m_subscription.IsControlWord();
    if (!m_subscription.TakesReadData(index)) {
        m_subscription.OnRead(index);
        m_subscription.OnControlWord(value);
    } else if (isControlWord) {
        m_subscription.OnControlWord(value);
    }
}

// Each channel's pass begins with the two counts.
void World::OnPassRead(uint32_t index) {
    if (index == board::SHFE_COUNT && !m_isPassBegun) {
        CheckIndexFile();
        m_isPassBegun = true;
    }
    if (!m_isPassKnown) return;
    m_subscription.RequireComplete();
    if (index == board::INE_COUNT) m_subscription.BeginChannel();
}

// ---- tables ---------------------------------------------------------------------------------------------------------

bool World::IsEnabled(EMDQPDataType feed) const {
    return feed == SHFE_2PS ? m_plan.hasShfe : feed == INE_2PS && m_plan.hasIne;
}

void World::OnSnapshotUsed() {
    if (m_canary.Lies(ERule::SnapshotUse)) m_snapshot.OnPriceCheckFailed();
    m_snapshot.OnUsed();
    std::array<bool, FEED_COUNT> isEnabled{};
    std::array<int32_t, FEED_COUNT> counts{};
    for (const EMDQPDataType feed : LISTED) {
        isEnabled[static_cast<std::size_t>(feed)] = IsEnabled(feed);
        const uint32_t expected = IsEnabled(feed) ? static_cast<uint32_t>(m_truth.ListedEnd(feed)) : 0;
        const uint32_t told = m_board.Read(board::FEEDS[static_cast<std::size_t>(feed)].count);
        Require(told == expected, ERule::Tables, [=] {
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
        const bool isWrong = m_plan.settings.isFaultInjected && IsEnabled(feed);
        if (isWrong) m_ledger.ExpectDifference(feed, m_plan.settings.faultInstNo, EQuirk::InjectedFault);
        if (m_reckoning.IsKnown()) CheckContents(feed);
        const int32_t slots = std::max(m_tables.SlotsTouched(feed), IsEnabled(feed) ? m_truth.Count(feed) : 0);
        for (int32_t instNo = 0; instNo < slots; ++instNo) CheckSlot(feed, instNo, IsEnabled(feed));
    }
}

// Word by word what the snapshot held, with the fault that the configuration asks for.
void World::CheckContents(EMDQPDataType feed) {
    const std::vector<SInstTableType> slots = m_reckoning.Contents().ForBoard(feed, m_plan.settings);
    for (std::size_t slot = 0; slot < slots.size(); ++slot) {
        const auto instNo = static_cast<int32_t>(slot);
        const SInstTableType told = m_board.Slot(feed, instNo);
        Require(std::memcmp(&told, &slots[slot], sizeof told) == 0, ERule::SnapshotContents, [=] {
            return "slot " + std::to_string(instNo) + " of feed " + std::to_string(feed) +
                   " is not what the snapshot held";
        });
    }
}

// Whether what the snapshot held of it cannot be told from what the configuration has made of it.
bool World::IsBlurred(int32_t instNo) const {
    return !m_reckoning.IsKnown() && m_plan.settings.isFaultInjected && m_plan.settings.faultInstNo == instNo;
}

void World::CheckSlot(EMDQPDataType feed, int32_t instNo, bool isEnabled) {
    SInstTableType slot = m_board.Slot(feed, instNo);
    if (m_canary.Lies(ERule::Tables)) slot.last_price ^= 1;
    if (!isEnabled || !m_truth.IsListed(feed, instNo)) {
        const SInstTableType empty{};
        Require(std::memcmp(&slot, &empty, sizeof slot) == 0, ERule::Tables,
                [=] { return "unused slot " + std::to_string(instNo) + " of feed " + std::to_string(feed); });
        return;
    }
    const exchange::Instrument& instrument = m_truth.Market().Instruments(feed)[static_cast<std::size_t>(instNo)];
    const bool isInsane = m_reckoning.IsKnown()
                              ? m_reckoning.Insane().count({feed, instNo}) != 0
                              : !IsSane(slot) && !IsSettlementTrade(instrument.id) && !IsBlurred(instNo);
    if (isInsane && m_plan.isShielded) {
        m_ledger.CountQuirk(EQuirk::ShieldedBook);
        m_insane.emplace(feed, instNo);
        return;
    }
    const bool hasTrueLimits = !m_faults.Has(exchange::EFault::SettlementLimits) || !IsSettlementTrade(instrument.id);
    const std::string difference = Difference(slot, instrument, m_truth.Latest(feed, instNo), hasTrueLimits);
    if (difference.empty() || m_ledger.IsDifferenceExpected(feed, instNo)) return;
    ThrowBreach(ERule::Tables, difference + " of " + instrument.id + " differs from the snapshot");
}

// What the tables hold, as the subscriptions and the index file find it.
void World::TellTables() {
    std::array<std::vector<std::string>, FEED_COUNT> ids;
    for (const EMDQPDataType feed : LISTED) {
        for (int32_t instNo = 0; IsEnabled(feed) && instNo < m_truth.ListedEnd(feed); ++instNo) {
            const SInstTableType slot = m_board.Slot(feed, instNo);
            ids[static_cast<std::size_t>(feed)].emplace_back(slot.inst_id, strnlen(slot.inst_id, sizeof slot.inst_id));
        }
    }
    m_subscription.OnTables(std::move(ids), m_insane);
    m_isPassKnown = m_reckoning.IsKnown();
    m_isPassBegun = false;
}

void World::CheckIndexFile() {
    if (m_isMemoryShort || !std::filesystem::exists(m_indexDirectory)) return;
    std::array<std::vector<SInstTableType>, 2> slots;
    for (const EMDQPDataType feed : LISTED) {
        for (int32_t instNo = 0; IsEnabled(feed) && instNo < m_truth.ListedEnd(feed); ++instNo) {
            slots[feed == SHFE_2PS ? 0 : 1].push_back(m_board.Slot(feed, instNo));
        }
    }
    const std::string path = m_indexDirectory + IndexName(m_clock.Wall());
    std::ifstream in(path);
    std::string text((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    if (m_canary.Lies(ERule::IndexFile)) text += "0";
    Require(text == IndexText(slots[0], slots[1]), ERule::IndexFile,
            [&] { return "in " + path + " stands:\n" + text; });
    std::filesystem::remove(path);
}

// A board may keep control words of before; the passes rid it of them.
void World::LeaveStaleWords() {
    if (!m_plan.hasStaleWords) return;
    exchange::Random random(m_plan.seed + m_order.BringUps(), "stale words");
    for (std::size_t feed = 0; feed < FEED_COUNT; ++feed) {
        const EMDQPDataType listed = feed < INE_2PS ? SHFE_2PS : INE_2PS;
        for (int32_t slot = 0; IsEnabled(listed) && slot < m_truth.ListedEnd(listed); ++slot) {
            const auto channels = static_cast<uint32_t>(random.Next()) & 0xFFFF;
            if (!random.OneIn(3)) continue;
            uint32_t word = random.OneIn(4) ? SLOT_IN_USE : SLOT_IN_USE | channels;
            // A channel that wants the slot rights the kind; nobody does where none wants it.
            if (IsSubscribed(static_cast<EMDQPDataType>(feed), slot)) word |= SLOT_TAS;
            m_board.Write(board::FEEDS[feed].table + 1, word);
            m_board.Write(board::FEEDS[feed].table, static_cast<uint32_t>(slot) * board::TABLE_WORDS);
            m_tables.Touch(static_cast<EMDQPDataType>(feed), slot);
        }
    }
}

bool World::IsSubscribed(EMDQPDataType feed, int32_t instNo) const {
    if (!IsEnabled(feed) || !m_truth.IsListed(feed, instNo) || m_insane.count({feed, instNo}) != 0) return false;
    return ControlWord(m_plan, m_truth.Market().Instruments(feed)[static_cast<std::size_t>(instNo)].id) != 0;
}

void World::CheckSubscriptions() {
    for (const EMDQPDataType feed : {SHFE_4PS, INE_4PS}) {
        for (int32_t slot = 0; slot < m_tables.SlotsTouched(feed); ++slot) {
            const uint32_t told = m_board.Slot(feed, slot).config;
            Require(told == 0, ERule::Subscriptions, [=] {
                return "slot " + std::to_string(slot) + " of feed " + std::to_string(feed) + " is left at " + Hex(told);
            });
        }
    }
    for (const EMDQPDataType feed : LISTED) {
        for (int32_t instNo = 0; IsEnabled(feed) && instNo < m_truth.ListedEnd(feed); ++instNo) {
            if (IsBlurred(instNo)) continue;
            const bool isListed = m_truth.IsListed(feed, instNo);  // a gap has no id
            const std::string id =
                isListed ? m_truth.Market().Instruments(feed)[static_cast<std::size_t>(instNo)].id : "";
            const uint32_t expected = m_insane.count({feed, instNo}) != 0 ? 0 : ControlWord(m_plan, id);
            const uint32_t told = m_board.Slot(feed, instNo).config ^ (m_canary.Lies(ERule::Subscriptions) ? 1U : 0U);
            Require(told == expected, ERule::Subscriptions,
                    [&] { return "control word of " + id + " is " + Hex(told) + ", not " + Hex(expected); });
            if (expected != ControlWord(m_plan, id)) m_ledger.ExpectDifference(feed, instNo, EQuirk::ShieldedBook);
        }
    }
}

}  // namespace simulation
