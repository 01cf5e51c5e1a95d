/// Everything outside the library for one session: virtual time, the board and its exchange, the log, the application's
/// view, and the rules that watch them.
#pragma once

#include <bitset>
#include <functional>
#include <string>
#include <vector>

#include "simulation/base/Canary.h"
#include "simulation/base/Edges.h"
#include "simulation/base/EventTrace.h"
#include "simulation/base/Reach.h"
#include "simulation/base/SessionPlan.h"
#include "simulation/base/SimulatedClock.h"
#include "simulation/rules/CounterRules.h"
#include "simulation/rules/DeliveryRules.h"
#include "simulation/rules/LogRules.h"
#include "simulation/rules/QuirkLedger.h"
#include "simulation/rules/SnapshotReckoning.h"
#include "simulation/rules/SnapshotRules.h"
#include "simulation/rules/StartDecision.h"
#include "simulation/rules/StartUpOrder.h"
#include "simulation/rules/SubscriptionRecord.h"
#include "simulation/rules/TableRules.h"
#include "simulation/rules/TruthHistory.h"
#include "simulation/world/SimulatedApi.h"
#include "simulation/world/WatchedProvider.h"
#include "software_board/SoftwareBoard.h"
#include "testing/InstalledBoard.h"
#include "testing/TemporaryDirectory.h"

namespace simulation {

/// Something that happens just before the `at`-th outside call of a phase.
struct Trigger {
    ESessionPhase phase = ESessionPhase::Closed;
    uint32_t at = 0;        ///< 0: none is set
    const char* what = "";  ///< for the reach
    std::function<void()> action;
};

class World final : public IBoardWatcher {
public:
    World(const SessionPlan& plan, Canary& canary, EventTrace& trace, uint8_t filler);
    World(const World&) = delete;
    World& operator=(const World&) = delete;

    // ---- calls of the library, framed by whoever makes them ----
    void BeginCall(int32_t channel, bool mayBringUp, bool isMemoryShort);
    /// `isOver`: the call came back without a session.
    /// `hasRunOut`: of memory, so that it may have come back from anywhere.
    void EndCall(int32_t channel, bool isOver, bool hasRunOut);
    /// The managing channel's session has been stopped, or the process signalled.
    void SetEnding(bool isEnding) { m_isEnding = isEnding; }
    void OnRecord(int32_t channel, const VexaShfeMdType& record);
    uint64_t RecordsInCall() const { return m_recordsInCall; }
    const VexaShfeMdType& LastMessage() const { return m_lastMessage; }

    // ---- what a script does ----
    void Lose(uint32_t updates);
    void Raise(const EventCard& card);
    void SetTrigger(Trigger trigger) { m_trigger = std::move(trigger); }
    void BeginClosingRound();
    void OnNewManager(SimulatedApi* api);
    /// A session object is being destroyed, by its application or because its process died: that frees what it holds
    /// and makes no outside call.
    void OnDestroying() { m_isDestroying = true; }
    void CheckDestroyed();
    /// A process in the dead one's place; its index file goes into `directory` below the session's own.
    void BeginProcess(const std::string& directory = "");
    void OnOtherSession() { m_other.OnSession(); }
    /// Writes the file; the managing channel's is the one that its next start is held against.
    std::string ConfigPath(int32_t channel, const std::string& remark);
    /// The managing channel starts.
    void OnStart();

    const SessionPlan& GetPlan() const { return m_plan; }
    Canary& GetCanary() { return m_canary; }
    SimulatedClock& Clock() { return m_clock; }
    software_board::SoftwareBoard& Board() { return m_board; }
    StartUpOrder& Order() { return m_order; }
    QuirkLedger& Quirks() { return m_ledger; }
    Reach& Reached() { return m_reach; }
    DeliveryRules& Deliveries(int32_t channel) { return channel == 0 ? m_managing : m_other; }
    void Note(EEvent kind, int32_t channel, uint64_t what, uint64_t value);
    void Follow();

    // ---- the board's watcher ----
    bool OnWrite(uint32_t index, uint32_t value) override;
    void BeforeRead(EAccess access, uint32_t index) override;
    void AfterRead(EAccess access, uint32_t index, uint64_t& value) override;
    /// What waited for the session before is discarded.
    void OnStreamOpened(int32_t channel) override { Deliveries(channel).OnGap(); }
    void BeforeReceive(int32_t channel) override;
    void OnMessage(int32_t channel, const unsigned char* data, unsigned int length, VexaBoardMessageHandler handler,
                   void* user) override;
    void AfterReceive(int32_t channel) override;

private:
    void CountCall();
    bool IsOfDestructor();
    void FireTrigger();
    void DealEvents();
    bool OnTableWrite(uint32_t index, uint32_t value);
    void OnTableRead(uint32_t index, uint32_t value);
    void OnPassRead(uint32_t index);
    void OnControlWrite(uint32_t index, uint32_t value);
    void OnPhase(ESessionPhase before, uint32_t index);
    void OnBringUp();
    void NoteFaults(ESessionPhase phase);
    void Relist();
    void OnSnapshotUsed();
    void CheckTables();
    void CheckSlot(EMDQPDataType feed, int32_t instNo, bool isEnabled);
    void CheckContents(EMDQPDataType feed);
    bool IsBlurred(int32_t instNo) const;
    void CheckSubscriptions();
    void CheckIndexFile();
    void TellTables();
    void LeaveStaleWords();
    bool IsSubscribed(EMDQPDataType feed, int32_t instNo) const;
    void RequireRightEnd(bool hasRunOut);
    bool OnEvent(int32_t channel, const U50Event& event);
    ECounted ExpectedCount(int32_t channel, const unsigned char* data, unsigned int length);
    void HandOver(const unsigned char* data, unsigned int length, VexaBoardMessageHandler handler, void* user);
    void CheckManager(const CCounters& before, ECounted expected);
    bool IsLoss(const U50Event& event);
    uint64_t LastUpdateSeconds();
    void Deliver(const unsigned char* data, unsigned int length, VexaBoardMessageHandler handler, void* user);
    void ReckonFrame(const unsigned char* frame);
    void CheckReckoning(uint64_t failedBefore);
    void CheckDropped(const CCounters& before);
    void WatchSnapshot();
    bool IsEnabled(EMDQPDataType feed) const;
    uint8_t EnabledFeeds() const {
        return static_cast<uint8_t>((m_plan.hasShfe ? 1U << SHFE_2PS : 0U) | (m_plan.hasIne ? 1U << INE_2PS : 0U));
    }
    EMDQPDataType FeedOfRecord(const VexaShfeMdType& record) const;
    VexaShfeMdType AsTold(int32_t channel, const VexaShfeMdType& record);

    const SessionPlan& m_plan;
    Canary& m_canary;
    EventTrace& m_trace;
    TemporaryDirectory m_directory{"vexa-sim"};
    SimulatedClock m_clock;
    software_board::SoftwareBoard m_board;
    BoardOnBus m_place;
    TruthHistory m_truth;
    QuirkLedger m_ledger;
    Reach m_reach;
    RegisterRules m_map;
    exchange::Faults m_faults;
    StartUpOrder m_order;
    StartDecision m_decision;
    uint32_t m_fileChecksum = 0;
    TableRules m_tables;
    SnapshotRules m_snapshot;
    SnapshotReckoning m_reckoning;
    SnapshotReckoning::EOutcome m_outcome = SnapshotReckoning::EOutcome::GoesOn;  ///< due with the message at hand
    SubscriptionRecord m_subscription;
    LogRules m_log;
    DeliveryRules m_managing;
    DeliveryRules m_other;
    WatchedProvider m_provider;

    Trigger m_trigger;
    std::bitset<PHASE_COUNT> m_isDealt;  ///< phases before the tables
    std::vector<LateDeal> m_lateDeals;   ///< those still to come, the next one last
    uint64_t m_dealtAtBringUp = 0;       ///< when the last of them was dealt
    SimulatedApi* m_manager = nullptr;
    uint64_t m_priceChecksFailed = 0;
    std::set<std::pair<int32_t, int32_t>> m_insane;  ///< on the board, accepted though abnormal

    std::string m_indexDirectory;
    bool m_isEnding = false;
    bool m_isPassBegun = false;
    bool m_isPassKnown = false;    ///< what the subscription passes must do
    bool m_isMemoryShort = false;  ///< in the call under way
    bool m_isDestroying = false;
    bool m_hasDestructorCalled = false;
    int32_t m_caller = 0;
    uint64_t m_calls = 0;
    uint64_t m_callsMax = 0;
    uint64_t m_looksBefore = 0;
    uint64_t m_boardLooks = 0;
    uint64_t m_looksAtReceive = 0;
    uint64_t m_recordsInCall = 0;
    uint64_t m_messagesInCall = 0;
    uint64_t m_bringUpsBefore = 0;
    bool m_wasRecoveryDue = false;
    uint64_t m_overruns = 0;
    uint64_t m_connections = 0;
    uint64_t m_lists = 0;  ///< of instruments, where they change
    VexaShfeMdType m_lastMessage{};
};

/// The board as the plan wants it.
software_board::BoardOptions BoardOptionsOf(const SessionPlan& plan);

}  // namespace simulation
