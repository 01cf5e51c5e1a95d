/// The one order of a start's and a recovery's register accesses, with their values, as an automaton over what the
/// managing channel does. Table words are looked at elsewhere; here they are known by the phase alone.
#pragma once

#include <cstdint>
#include <vector>

#include "simulation/base/SessionPhase.h"
#include "simulation/rules/RegisterRules.h"
#include "simulation/rules/StartScript.h"

namespace simulation {

class StartUpOrder {
public:
    explicit StartUpOrder(const SessionPlan& plan);

    void OnAccess(EAccess access, uint32_t index, uint32_t value, int64_t now);

    /// Accesses that what comes next must bring, in this order and before any other.
    void Announce(EAccess access, uint32_t index, uint32_t value = 0) { m_announced.push_back({access, index, value}); }
    void RequireNothingAnnounced();
    /// What a snapshot brings is not known: its registers may be written at any time.
    void SetSnapshotUnknown(bool isUnknown) { m_isSnapshotUnknown = isUnknown; }

    /// A new object: nothing is remembered of the one before it.
    void OnNewObject();
    void OnStart(uint32_t fileChecksum);
    /// A start or a step has come back; `isOver`: without a session. True when the start left a running board as it is.
    bool OnReturn(bool isOver, int64_t now);
    /// The board tells a loss; a recovery is what must come next.
    void OnLoss() { m_isRecoveryDue = true; }

    /// What has just been used was cleared again with the same segment: the wait for a snapshot goes on.
    void OnCleared() { m_isWaitGoingOn = true; }

    ESessionPhase Phase() const { return m_phase; }
    /// Messages go to the snapshot's handler.
    bool IsLoading() const { return m_phase == ESessionPhase::Loading || m_isWaitGoingOn; }
    bool IsRecoveryDue() const { return m_isRecoveryDue; }
    int32_t Attempts() const { return m_attempts; }
    /// The last bring-up came to its end.
    bool IsBoardWhole() const { return m_isBoardWhole; }
    uint64_t BringUps() const { return m_bringUps; }
    uint64_t EngineStarts() const { return m_engineStarts; }

private:
    struct Access {
        EAccess access;
        uint32_t index;
        uint32_t value;
    };

    void ForgetAnnounced();
    bool IsAnnounced(EAccess access, uint32_t index, uint32_t value);
    bool IsFree(EAccess access, uint32_t index) const;
    bool IsNext(EAccess access, uint32_t index);
    bool MayBringUp() const;
    void CheckValue(const Stop& stop, uint32_t value) const;
    void Enter(const Stop& stop, int64_t now);
    void BeginBringUp();
    void CheckWait(int64_t now, bool isOver) const;
    [[noreturn]] void OutOfOrder(EAccess access, uint32_t index) const;

    StartScript m_script;
    int64_t m_waitSeconds;
    int32_t m_attemptsMax;
    std::vector<Access> m_announced;
    std::size_t m_announcedDone = 0;
    bool m_isSnapshotUnknown = false;
    std::size_t m_next = 0;
    ESessionPhase m_phase = ESessionPhase::Closed;
    int64_t m_since = 0;           ///< of the wait at hand
    bool m_isWaitGoingOn = false;  ///< although the tables have been written
    bool m_isRecoveryDue = false;
    uint32_t m_fileChecksum = 0;  ///< 0: carried by starts alone
    int32_t m_attempts = 0;
    bool m_isBoardWhole = false;
    uint64_t m_bringUps = 0;
    uint64_t m_engineStarts = 0;
};

}  // namespace simulation
