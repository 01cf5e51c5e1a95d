// Frames the library's calls, does what a script asks for, and keeps the truth up to date.
#include "simulation/world/World.h"

#include <algorithm>
#include <stdexcept>

#include "simulation/base/WatchedAllocator.h"
#include "simulation/rules/Rules.h"
#include "simulation/rules/Wanted.h"
#include "testing/IniText.h"

namespace simulation {
namespace {

constexpr uint64_t LIVE_CALLS_MAX = 64;
constexpr uint64_t SLOTS_OF_AN_ENGINE = uint64_t{SHFE_INST_CAPACITY} + uint64_t{INE_INST_CAPACITY};
constexpr uint64_t WORDS_OF_ALL_TABLES = 2 * SLOTS_OF_AN_ENGINE * WORDS_PER_SLOT;
constexpr uint64_t CALLS_OF_A_POLL = 8;
constexpr uint64_t CALLS_BESIDES = 2000;
constexpr uint64_t CALLS_OF_A_SLOT = 400;
constexpr int64_t MEMORY_SECONDS = 8;
constexpr int64_t POLLS_PER_SECOND = NANOSECONDS_PER_SECOND / SimulatedClock::STEP_NS;

/// Far above what a start needs, far below what never ends.
uint64_t StartCallsMax(const SessionPlan& plan) {
    const auto seconds = static_cast<uint64_t>(MEMORY_SECONDS + plan.waitSeconds);
    const uint64_t slots = static_cast<uint64_t>(plan.shfeInstruments) + static_cast<uint64_t>(plan.ineInstruments);
    return static_cast<uint64_t>(plan.attempts) *
               (2 * WORDS_OF_ALL_TABLES + CALLS_BESIDES + seconds * POLLS_PER_SECOND * CALLS_OF_A_POLL) +
           CHANNEL_SIZE * 2 * slots * CALLS_OF_A_SLOT;
}

/// Of a snapshot that nobody asked for. One that is a loaded feed's as well would be taken for that feed's.
int32_t UnaskedTopic(const SessionPlan& plan, EMDQPDataType feed) {
    constexpr int32_t NOBODYS = -2;
    const auto& topics = plan.settings.topics;
    const bool isShared = topics[feed] == topics[SHFE_2PS] || topics[feed] == topics[INE_2PS];
    return isShared ? NOBODYS : topics[feed];
}

}  // namespace

software_board::BoardOptions BoardOptionsOf(const SessionPlan& plan) {
    software_board::BoardOptions options;
    options.exchange.seed = plan.seed;
    options.exchange.shfeInstruments = plan.shfeInstruments;
    options.exchange.ineInstruments = plan.ineInstruments;
    options.exchange.shfeTopicId = plan.settings.topics[SHFE_2PS];
    options.exchange.ineTopicId = plan.settings.topics[INE_2PS];
    options.exchange.shfe4psTopicId = UnaskedTopic(plan, SHFE_4PS);
    options.exchange.ine4psTopicId = UnaskedTopic(plan, INE_4PS);
    options.exchange.hasNarrowLimits = plan.hasNarrowLimits;
    options.shfeSnapPort = plan.settings.shfeServerPort;
    options.ineSnapPort = plan.settings.ineServerPort;
    options.lostPacketAfter = plan.lostPacketAfter;
    options.hbm2ReadyMs = plan.isMemoryDead ? 1'000'000'000 : 500;
    options.ringMessages = 256;
    std::string error;
    if (!exchange::ParseFaults(plan.FaultList(), options.faults, error)) throw std::invalid_argument(error);
    return options;
}

World::World(const SessionPlan& plan, Canary& canary, EventTrace& trace, uint8_t filler)
    : m_plan(plan),
      m_canary(canary),
      m_trace(trace),
      m_board(BoardOptionsOf(plan)),
      m_place(m_board, plan.settings.bus),
      m_truth(BoardOptionsOf(plan).exchange),
      m_faults(BoardOptionsOf(plan).faults),
      m_order(plan),
      m_decision(plan.seed),
      m_snapshot(plan.settings.snapPorts),
      m_reckoning(plan),
      m_subscription(plan),
      m_log(trace, canary, m_clock),
      m_managing(plan, m_truth, m_ledger, 0),
      m_other(plan, m_truth, m_ledger, plan.otherChannel),
      m_provider(*this, filler) {
    m_lateDeals = DealLate(plan.seed);
    std::reverse(m_lateDeals.begin(), m_lateDeals.end());
    BeginProcess();
}

void World::CheckDestroyed() {
    Require(!m_hasDestructorCalled, ERule::End,
            [] { return std::string("an object made an outside call as it ended"); });
}

void World::BeginProcess(const std::string& directory) {
    m_indexDirectory = directory.empty() ? m_directory.Path().string() : m_directory.File(directory);
    SimulatedApi::NewProcess(m_indexDirectory);
}

void World::Note(EEvent kind, int32_t channel, uint64_t what, uint64_t value) {
    m_trace.Add({kind, channel, what, value, m_clock.Now()});
}

std::string World::ConfigPath(int32_t channel, const std::string& remark) {
    IniText text;
    text.Line("# " + remark).Section("config").Device(m_plan.settings.bus, channel).Key("log_level", m_plan.logLevel);
    text.Enabled("shfe2ps", m_plan.hasShfe).Enabled("ine2ps", m_plan.hasIne);
    text.Key("shield_price_check", m_plan.isShielded).Key("crc_mux_check", m_plan.isChecksumAsked);
    text.Key("wait_snap_timeout", m_plan.waitSeconds).Key("init_tcpcnt", m_plan.attempts);
    for (const auto& [key, value] : m_plan.settings.lines) text.Key(key, value);
    for (int32_t user = 0; user < CHANNEL_SIZE; ++user) {
        const ChannelPlan& planned = m_plan.channels[user];
        if (!planned.insts.empty()) text.Channel(user, planned.insts, planned.hasOptions);
    }
    if (channel == 0) m_fileChecksum = ChecksumOf(text.Text());
    return m_directory.Write("channel" + std::to_string(channel) + ".ini", text.Text());
}

void World::OnStart() {
    m_order.OnStart(m_fileChecksum);
    m_decision.OnStart(m_plan.isChecksumAsked, m_fileChecksum, m_board.IsLive());
    m_reach.Note(m_decision.Shown(), ESessionPhase::Identity);
}

void World::OnNewManager(SimulatedApi* api) {
    m_manager = api;
    m_priceChecksFailed = 0;
    m_order.OnNewObject();
    m_isEnding = false;
    m_snapshot.OnBringUp();
    m_managing.OnSession();
}

// ---- calls ----------------------------------------------------------------------------------------------------------

void World::BeginCall(int32_t channel, bool mayBringUp, bool isMemoryShort) {
    m_isMemoryShort = isMemoryShort;
    m_isDestroying = false;
    m_caller = channel;
    m_calls = 0;
    m_callsMax = mayBringUp ? StartCallsMax(m_plan) : LIVE_CALLS_MAX;
    m_recordsInCall = m_messagesInCall = 0;
    m_looksBefore = m_clock.Looks();
    m_boardLooks = 0;
    m_bringUpsBefore = m_order.BringUps();
    m_wasRecoveryDue = m_order.IsRecoveryDue();
    Note(EEvent::Call, channel, mayBringUp ? 1 : 0, 0);
}

void World::EndCall(int32_t channel, bool isOver, bool hasRunOut) {
    Follow();
    m_calls += m_clock.Looks() - m_looksBefore - m_boardLooks;
    CountCall();
    const bool hasBroughtUp = m_order.BringUps() != m_bringUpsBefore;
    if (channel == 0) {
        if (isOver) RequireRightEnd(hasRunOut);
        const bool isLeftAlone = m_order.OnReturn(isOver, m_clock.Now());
        Require(!m_wasRecoveryDue || hasBroughtUp || isOver || isLeftAlone, ERule::Silence,
                [] { return std::string("a step after a loss began no recovery"); });
        const bool isRight = m_decision.MayLeaveAlone() && !m_canary.Lies(ERule::LeftAlone);
        Require(!isLeftAlone || isRight, ERule::LeftAlone,
                [] { return std::string("a board was left alone that had to be brought up"); });
    }
    if (m_messagesInCall > 0 && !hasBroughtUp) {
        Require(m_clock.Looks() == m_looksBefore + m_boardLooks, ERule::BareDelivery,
                [] { return std::string("a step that delivered looked at the clock"); });
    }
    Require(m_board.Statistics().refusedTableWrites == 0, ERule::RegisterMap,
            [] { return std::string("the board refused a write"); });
    Note(EEvent::Result, channel, isOver ? 1 : 0, m_recordsInCall);
}

// A start or a recovery gives up in few places: without an attempt left, without memory on the board, and where a stop
// or a signal ends the wait for the snapshot.
void World::RequireRightEnd(bool hasRunOut) {
    const ESessionPhase phase = m_order.Phase();
    const bool isSpent = m_order.Attempts() >= m_plan.attempts;
    const bool isRight = phase == ESessionPhase::Closed || phase == ESessionPhase::Live ||
                         (phase == ESessionPhase::Identity && isSpent) ||
                         (phase == ESessionPhase::Memory && m_plan.isMemoryDead) ||
                         (phase == ESessionPhase::Loading && (m_isEnding || isSpent)) ||
                         (phase == ESessionPhase::Tables && (m_isEnding || (m_order.IsLoading() && isSpent)));
    Require(isRight || hasRunOut, ERule::RightEnds,
            [=] { return std::string("a start gave up in phase ") + SessionPhaseName(phase); });
}

void World::OnRecord(int32_t channel, const VexaShfeMdType& record) {
    const WatchedAllocator::Watch unwatched(false);
    ++m_recordsInCall;
    Note(EEvent::Record, channel, uint64_t{record.inst_no} << 32 | record.change_no, HashOf(&record, sizeof record));
    const bool isSilent = channel == 0 && (m_order.Phase() != ESessionPhase::Live || m_order.IsRecoveryDue());
    Require(!isSilent && !m_canary.Lies(ERule::Silence), ERule::Silence,
            [&] { return IdOf(record) + " in phase " + SessionPhaseName(m_order.Phase()); });
    if (m_truth.IsInRound() && m_canary.Lies(ERule::Complete)) return;
    if (m_canary.Rule() == ERule::Once && !m_truth.IsInRound() &&
        Deliveries(channel).HasSeen(FeedOfRecord(record), record) && m_canary.Lies(ERule::Once))
        return;
    Deliveries(channel).OnRecord(AsTold(channel, record));
}

EMDQPDataType World::FeedOfRecord(const VexaShfeMdType& record) const {
    return record.max_inst_no == static_cast<uint32_t>(m_plan.settings.maxInstNo[SHFE_2PS]) ? SHFE_2PS : INE_2PS;
}

// The record as the checks are to see it: as it is, but for the canaries of the rules about records.
VexaShfeMdType World::AsTold(int32_t channel, const VexaShfeMdType& record) {
    VexaShfeMdType told = record;
    const EMDQPDataType feed = FeedOfRecord(record);
    if (m_canary.Lies(ERule::Truth)) told.bid_volume ^= 1;
    if (m_canary.Rule() == ERule::NeverBack && Deliveries(channel).HasSeen(feed, record) && record.change_no > 2 &&
        m_canary.Lies(ERule::NeverBack)) {
        told = *m_truth.Find(feed, record.inst_no, record.change_no - 2);
    }
    for (int32_t instNo = 0; m_canary.Rule() == ERule::Subscribed && instNo < m_truth.Count(feed); ++instNo) {
        const VexaShfeMdType& other = m_truth.Latest(feed, instNo);
        if (!IsWanted(m_plan.channels[channel], IdOf(other)) && m_canary.Lies(ERule::Subscribed)) told = other;
    }
    told.max_inst_no = record.max_inst_no;
    return told;
}

// ---- the market -----------------------------------------------------------------------------------------------------

void World::Follow() {
    const software_board::BoardStatistics& statistics = m_board.Statistics();
    if (statistics.snapshotConnections != m_connections) {
        m_connections = statistics.snapshotConnections;
        m_truth.OnSnapshots(m_plan.hasShfe, m_plan.hasIne, m_faults);
    }
    m_truth.Follow(statistics.liveUpdates, statistics.lostUpdates,
                   [this](EMDQPDataType feed, int32_t instNo, bool isLost) {
                       if (!isLost) return;
                       m_ledger.ExpectDifference(feed, instNo, EQuirk::LossNotYetRebuilt);
                       m_managing.OnLoss();
                       m_other.OnLoss();
                   });
    if (statistics.overruns == m_overruns) return;
    m_overruns = statistics.overruns;
    m_managing.OnLoss();
    m_other.OnLoss();
}

void World::Lose(uint32_t updates) {
    Follow();
    Note(EEvent::Script, 0, static_cast<uint64_t>(EStep::Lose), updates);
    {
        const SimulatedClock::Hold hold(m_clock);
        m_board.LosePackets(updates);
    }
    Follow();
}

void World::Raise(const EventCard& card) {
    m_reach.Note(card.name, m_order.Phase());
    Note(EEvent::Script, 0, card.event.event_data0, card.event.event_data1);
    m_board.RaiseEvent(0, card.event);
}

// Once a session in each phase before the tables; behind it one late deal, and another when that has been rebuilt
// after.
void World::DealEvents() {
    const ESessionPhase phase = m_order.Phase();
    const auto index = static_cast<std::size_t>(phase);
    if (phase == ESessionPhase::Closed || m_truth.IsInRound()) return;
    if (phase <= ESessionPhase::Loading) {
        if (m_isDealt[index]) return;
        m_isDealt.set(index);
        for (const EventCard& card : DealBeforeTables(m_plan.seed, phase)) Raise(card);
        return;
    }
    if (m_lateDeals.empty() || m_lateDeals.back().phase != phase || m_dealtAtBringUp == m_order.BringUps()) return;
    if (phase == ESessionPhase::Live && m_order.IsRecoveryDue()) return;
    m_dealtAtBringUp = m_order.BringUps();
    for (const EventCard& card : m_lateDeals.back().cards) Raise(card);
    m_lateDeals.pop_back();
}

void World::BeginClosingRound() {
    Follow();
    m_truth.BeginRound();
    m_other.OnRound();
    m_board.FinishAfterOneMoreOfEach();
}

}  // namespace simulation
