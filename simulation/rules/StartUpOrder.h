/// The one order of a start's and a recovery's register accesses, as an automaton over what the managing channel does.
/// Table words are looked at elsewhere; here they are known by the phase alone.
#pragma once

#include <cstdint>
#include <vector>

#include "simulation/base/Phase.h"
#include "simulation/rules/RegisterRules.h"

namespace simulation {

class StartUpOrder {
public:
    /// How long a wait may take, and how many bring-ups may follow one another without success.
    struct Limits {
        int64_t waitSeconds = 0;
        int32_t attempts = 0;
    };

    explicit StartUpOrder(const Limits& limits);

    void OnAccess(EAccess access, uint32_t index, uint32_t value, int64_t now);

    /// A new object: nothing is remembered of the one before it.
    void OnNewObject();
    void OnStart();
    /// A start or a step has come back; `isOver`: without a session. True when the start left a running board as it is.
    bool OnReturn(bool isOver, int64_t now);
    /// The board tells a loss; a recovery is what must come next.
    void OnLoss() { m_isRecoveryDue = true; }

    EPhase Phase() const { return m_phase; }
    bool IsRecoveryDue() const { return m_isRecoveryDue; }
    int32_t Attempts() const { return m_attempts; }
    /// The last bring-up came to its end.
    bool IsBoardWhole() const { return m_isBoardWhole; }
    uint64_t BringUps() const { return m_bringUps; }
    uint64_t EngineStarts() const { return m_engineStarts; }

private:
    struct Stop {
        EAccess access;
        uint32_t index;
        EPhase phase;  ///< entered here
        bool isOptional = false;
    };

    void Plan();
    void PlanProgramming();
    void PlanSubscribing();
    void PlanEngines();
    void Put(EAccess access, EPhase phase, std::initializer_list<uint32_t> indices);
    bool IsFree(EAccess access, uint32_t index) const;
    bool IsNext(EAccess access, uint32_t index);
    bool MayBringUp() const;
    void Enter(const Stop& stop, uint32_t value, int64_t now);
    void BeginBringUp();
    void CheckWait(int64_t now) const;
    [[noreturn]] void OutOfOrder(EAccess access, uint32_t index) const;

    Limits m_limits;
    std::vector<Stop> m_stops;
    std::size_t m_bringUpStop = 0;
    std::size_t m_next = 0;
    EPhase m_phase = EPhase::Closed;
    int64_t m_since = 0;  ///< of the phase
    bool m_isRecoveryDue = false;
    bool m_carriesChecksum = false;
    int32_t m_attempts = 0;
    bool m_isBoardWhole = false;
    uint64_t m_bringUps = 0;
    uint64_t m_engineStarts = 0;
};

}  // namespace simulation
