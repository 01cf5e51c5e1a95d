/// Plays a plan's script: every step leaves a session running, or the next one begins with a new object.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "simulation/CheckedApplication.h"
#include "simulation/world/Holdings.h"
#include "simulation/world/World.h"

namespace simulation {

class Player {
public:
    Player(const SessionPlan& plan, World& world) : m_plan(plan), m_world(world) {}

    /// Every step of the script, then the end.
    void Play();

    uint64_t Losses() const { return m_losses; }

private:
    void PlayStep(const Step& step);
    void PlayEndingStep(const Step& step);
    void Start(bool isPolling, const std::string& remark = "");
    void EndObject();
    void NewObject(bool isPolling, const std::string& remark = "");
    void MakeLive();
    void Receive(int32_t updates);
    void Recover();
    void Lose(const Step& step);
    void RaiseTimeOuts();
    void StopAndStart(const Step& step);
    void Kill(const Step& step);
    void RunOutOfMemory(const Step& step);
    void NewObjectWithoutIndex(const Step& step);
    void StopInStarts(const Step& step);
    void OtherChannel(int32_t steps);
    void SetTriggerAt(const Step& step, const char* what, std::function<void()> action);
    void Close();
    void CloseRound();
    bool StepAll();

    const SessionPlan& m_plan;
    World& m_world;
    std::unique_ptr<CheckedApplication> m_manager;
    std::unique_ptr<CheckedApplication> m_witness;  ///< receives another channel in the closing round
    std::optional<Holdings> m_heldByNone;           ///< while no object lives, after the first one
    std::string m_remark;
    uint64_t m_losses = 0;
};

}  // namespace simulation
