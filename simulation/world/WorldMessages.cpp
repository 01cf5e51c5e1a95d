// What the board hands to the library, message by message, led to the rules.
#include <algorithm>
#include <cstring>
#include <utility>

#include "simulation/base/EventBits.h"
#include "simulation/base/WatchedAllocator.h"
#include "simulation/rules/BoardMap.h"
#include "simulation/rules/Rules.h"
#include "simulation/world/World.h"

namespace simulation {
namespace {

/// First and last minute of the day of each window in which silence is expected.
constexpr int QUIET[][2] = {{535, 539}, {1255, 1259}, {540, 540}, {1260, 1260}, {615, 615},
                            {625, 630}, {690, 690},   {805, 810}, {900, 959},   {150, 150}};

bool IsQuiet(uint64_t seconds) {
    const auto minute = static_cast<int>(seconds / 60 % (24 * 60));
    return std::any_of(std::begin(QUIET), std::end(QUIET),
                       [=](const int(&window)[2]) { return window[0] <= minute && minute <= window[1]; });
}

uint32_t TypeOf(const unsigned char* message) {
    uint32_t type = 0;
    std::memcpy(&type, message, sizeof type);
    return type;
}

}  // namespace

void World::BeforeReceive(int32_t channel) {
    if (IsOfDestructor()) return;
    CountCall();
    const bool isLate = channel == 0 && m_isEnding && m_order.IsLoading();
    const bool isLie = m_order.Phase() == ESessionPhase::Loading && m_canary.Lies(ERule::RightEnds);
    Require(!isLate && !isLie, ERule::RightEnds,
            [] { return std::string("the snapshot is waited for after the session's end"); });
    if (channel == 0) {
        FireTrigger();
        DealEvents();
    }
    m_looksAtReceive = m_clock.Looks();
}

void World::AfterReceive(int32_t) {
    if (m_looksAtReceive != UINT64_MAX) m_boardLooks += m_clock.Looks() - m_looksAtReceive;
}

void World::OnMessage(int32_t channel, const unsigned char* data, unsigned int length, VexaBoardMessageHandler handler,
                      void* user) {
    m_boardLooks += m_clock.Looks() - m_looksAtReceive;
    m_looksAtReceive = UINT64_MAX;
    Note(EEvent::Message, channel, TypeOf(data), HashOf(data, length));
    Follow();
    const ECounted expected = ExpectedCount(channel, data, length);
    if (channel != 0) return HandOver(data, length, handler, user);
    const bool wasLoading = m_order.Phase() == ESessionPhase::Loading;
    const CCounters before = m_manager->Counters();
    HandOver(data, length, handler, user);
    m_order.RequireNothingAnnounced();
    if (wasLoading) CheckReckoning(before[ECounter::PriceCheckFailed]);
    if (wasLoading && expected == ECounted::Sound && m_reckoning.IsKnown()) CheckDropped(before);
    CheckManager(before, expected);
    if (m_order.Phase() == ESessionPhase::Loading) WatchSnapshot();
}

// What the message is, told to the rules it concerns, and what it may count on the managing channel.
ECounted World::ExpectedCount(int32_t channel, const unsigned char* data, unsigned int length) {
    const uint32_t type = TypeOf(data);
    bool isLoss = false;
    if (type == DMA_EVENT) {
        U50Event event;
        std::memcpy(&event, data, sizeof event);
        isLoss = OnEvent(channel, event);
    }
    if (!m_order.IsLoading()) return isLoss ? ECounted::EventLoss : ECounted::Nothing;
    if (type != DMA_TCP) return ECounted::Foreign;
    const unsigned char* frame = data + DMA_TCP_FRAME_OFFSET;
    const uint32_t frameLength = length - DMA_TCP_FRAME_OFFSET;
    if (channel == 0) m_snapshot.OnFrame(frame, frameLength, EnabledFeeds());
    if (!m_snapshot.IsSound(frame, frameLength)) return ECounted::Unsound;
    if (channel == 0) ReckonFrame(frame);
    return m_reckoning.IsKnown() ? ECounted::Sound : ECounted::Astray;
}

void World::ReckonFrame(const unsigned char* frame) {
    if (m_isMemoryShort || m_faults.Has(exchange::EFault::SplitAnywhere)) m_reckoning.GiveUp();
    m_order.SetSnapshotUnknown(!m_reckoning.IsKnown());
    if (!m_reckoning.IsKnown()) return;
    m_outcome = m_reckoning.OnFrame(frame);
    for (const SnapshotContents::RegisterWrite& told : m_reckoning.RegisterWrites()) {
        m_order.Announce(EAccess::Write, told.index, told.value);
    }
}

// What became of the snapshot with this message, against what had to.
void World::CheckReckoning(uint64_t failedBefore) {
    using EOutcome = SnapshotReckoning::EOutcome;
    const EOutcome due = std::exchange(m_outcome, EOutcome::GoesOn);
    if (!m_reckoning.IsKnown()) return;
    const bool isRefused = m_manager->PriceChecksFailed() != failedBefore;
    const EOutcome came = isRefused                                  ? EOutcome::Refused
                          : m_order.Phase() > ESessionPhase::Loading ? EOutcome::Used
                                                                     : EOutcome::GoesOn;
    constexpr const char* NAMES[] = {"still loading", "used", "refused"};
    Require(came == due && !m_canary.Lies(ERule::SnapshotContents), ERule::SnapshotContents, [=] {
        return std::string("the snapshot is ") + NAMES[static_cast<int>(came)] + ", not " +
               NAMES[static_cast<int>(due)];
    });
    if (m_reckoning.IsUsedAndCleared()) {
        m_order.OnCleared();
        m_ledger.CountQuirk(EQuirk::ResetAtTheEnd);
    }
    const uint8_t mask = m_manager->FinishedMask();
    Require(mask == m_reckoning.FinishedMask(), ERule::SnapshotContents,
            [&] { return "the finished feeds are " + Hex(mask) + ", not " + Hex(m_reckoning.FinishedMask()); });
}

void World::HandOver(const unsigned char* data, unsigned int length, VexaBoardMessageHandler handler, void* user) {
    if (TypeOf(data) == DMA_UDP) return Deliver(data, length, handler, user);
    const WatchedAllocator::Watch watched(true);
    handler(data, length, user);
}

void World::CheckDropped(const CCounters& before) {
    const CCounters& now = m_manager->Counters();
    const auto moved = [&](ECounter counter) { return now[counter] - before[counter]; };
    const SnapshotReckoning::Dropped dropped{moved(ECounter::SegmentOtherHost), moved(ECounter::SegmentRepeated),
                                             moved(ECounter::SegmentEarlyDropped), moved(ECounter::SegmentRefused)};
    const SnapshotReckoning::Dropped& due = m_reckoning.LastDropped();
    Require(dropped == due, ERule::Counters, [&] {
        const auto text = [](const SnapshotReckoning::Dropped& some) {
            return std::to_string(some.otherHost) + " of another host, " + std::to_string(some.repeated) +
                   " repeated, " + std::to_string(some.earlyEmpty) + " early and empty, " +
                   std::to_string(some.refused) + " refused";
        };
        return "dropped were " + text(dropped) + "; not " + text(due);
    });
}

void World::CheckManager(const CCounters& before, ECounted expected) {
    Require(IsCountedOnce(before, m_manager->Counters(), expected) && !m_canary.Lies(ERule::Counters), ERule::Counters,
            [&] {
                return "not counted as " + std::string(CountedName(expected)) + ":" +
                       Moved(before, m_manager->Counters());
            });
    const char* inconsistency = m_canary.Lies(ERule::Reassembly) ? "nothing, really" : m_manager->Inconsistency();
    Require(inconsistency == nullptr, ERule::Reassembly, [&] { return std::string(inconsistency); });
}

void World::Deliver(const unsigned char* data, unsigned int length, VexaBoardMessageHandler handler, void* user) {
    ++m_messagesInCall;
    std::memcpy(&m_lastMessage, data + DMA_UDP_RECORD_OFFSET, sizeof m_lastMessage);
    const uint64_t allocations = WatchedAllocator::Count();
    {
        const WatchedAllocator::Watch watched(true);
        handler(data, length, user);
        if (m_canary.Lies(ERule::BareDelivery)) ::operator delete(::operator new(1));
    }
    Require(WatchedAllocator::Count() == allocations, ERule::BareDelivery,
            [] { return std::string("a delivery allocated"); });
}

void World::WatchSnapshot() {
    const uint8_t mask = m_manager->FinishedMask();
    const bool isLie = mask != 0 && mask == m_snapshot.FinishedMask() && m_canary.Lies(ERule::FinishedFeeds);
    m_snapshot.OnFinishedMask(isLie ? 0 : mask, m_manager->Clears());
    const uint64_t failed = m_manager->PriceChecksFailed();
    if (failed == m_priceChecksFailed) return;
    m_priceChecksFailed = failed;
    m_snapshot.OnPriceCheckFailed();
    const bool isSpoiled = m_faults.Has(exchange::EFault::CrossedBook) || m_faults.Has(exchange::EFault::OutsideLimits);
    Require(m_reckoning.IsKnown() || (isSpoiled && !m_plan.isShielded), ERule::SnapshotUse,
            [] { return std::string("a sane snapshot failed its price check"); });
}

// ---- events ---------------------------------------------------------------------------------------------------------

// True when a recovery must follow.
bool World::OnEvent(int32_t channel, const U50Event& event) {
    const bool isLost = (event.event_data0 & LOST_BITS) != 0;
    if (isLost) Deliveries(channel).OnGap();
    if (channel != 0) return false;
    const ESessionPhase phase = m_order.Phase();
    if (phase == ESessionPhase::Loading && isLost) m_ledger.OnLossWhileStarting();
    if (phase != ESessionPhase::Live || !IsLoss(event)) return false;
    for (const uint32_t index : board::DIAGNOSTICS) m_order.Announce(EAccess::Read32, index);
    m_order.OnLoss();
    return true;
}

bool World::IsLoss(const U50Event& event) {
    if ((event.event_data0 & LOST_BITS) != 0 || (event.event_data1 & PRICE_ERROR_BITS) != 0) return true;
    if ((event.event_data0 & TIME_OUT_BITS) == 0) return (event.event_data3 & LOST_COUNT_BITS) != 0;
    for (uint32_t feed = 0; feed < FEED_COUNT; ++feed) m_order.Announce(EAccess::Read64, board::LAST_UPDATE + feed);
    if (!IsQuiet(LastUpdateSeconds())) return true;
    m_ledger.CountQuirk(EQuirk::QuietTimeOut);
    return false;
}

uint64_t World::LastUpdateSeconds() {
    uint64_t latest = 0;
    for (uint32_t feed = 0; feed < FEED_COUNT; ++feed) {
        latest = std::max(latest, m_board.Read64(board::LAST_UPDATE + feed));
    }
    return latest;
}

}  // namespace simulation
