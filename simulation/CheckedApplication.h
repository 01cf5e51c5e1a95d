/// One session object of one channel with the application that uses it; every result is held against what happened.
#pragma once

#include <memory>
#include <string>

#include "interface/VexaShfeMdApi.h"
#include "simulation/base/WatchedAllocator.h"
#include "simulation/world/SimulatedApi.h"
#include "simulation/world/World.h"

namespace simulation {

class CheckedApplication final : public CVexaShfeMdSpi {
public:
    CheckedApplication(World& world, int32_t channel);
    ~CheckedApplication() override;
    CheckedApplication(const CheckedApplication&) = delete;
    CheckedApplication& operator=(const CheckedApplication&) = delete;

    void OnVexaShfeMd(VexaShfeMdType& md) override;

    int32_t Start(bool isPolling, const std::string& remark = "");
    int32_t Step();
    void Stop();
    void Signal();

    /// Whether the application stops at its next update.
    void SetStopAtUpdate(bool isStopping) { m_isStoppingAtUpdate = isStopping; }

    /// In the next call that may bring the board up, the `number`-th allocation fails.
    void RunOutOfMemory(uint64_t number, WatchedAllocator::Failure failure);

    /// After the end: nothing of the snapshot is alive, and every step says so.
    void CheckEnded();

    bool IsLive() const { return m_isLive; }
    bool IsEnding() const { return m_isStopped || m_isSignalled; }

private:
    struct Shortage {
        uint64_t number = 0;  ///< of the allocation that fails; 0: none
        WatchedAllocator::Failure failure = WatchedAllocator::Failure::Once;
    };

    bool MayBringUp() const;
    int32_t CallStart(const char* path);
    int32_t CallReceive(bool mayBringUp);
    int32_t ExpectedStart() const;
    void CheckResult(int32_t result);
    void CheckLevel();

    World& m_world;
    int32_t m_channel;
    std::unique_ptr<SimulatedApi> m_api;
    VexaShfeMdType m_record{};
    bool m_isPolling = false;
    bool m_isLive = false;
    bool m_isStopped = false;
    bool m_isSignalled = false;
    bool m_isStoppingAtUpdate = false;
    Shortage m_shortage;
    bool m_hasRunOut = false;                         ///< of memory, in the last call
    ESessionPhase m_endedIn = ESessionPhase::Closed;  ///< where the stop or signal came
};

}  // namespace simulation
