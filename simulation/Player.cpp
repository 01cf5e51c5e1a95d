#include "simulation/Player.h"

#include "simulation/base/Edges.h"
#include "simulation/base/EventBits.h"
#include "simulation/base/Results.h"
#include "simulation/rules/Rules.h"

namespace simulation {
namespace {

constexpr int EMPTY_STEPS_MAX = 5000;
constexpr int64_t NANOSECONDS_PER_MINUTE = 60 * NANOSECONDS_PER_SECOND;
constexpr uint64_t DAY_SECONDS = 1'777'507'200;  // 2026-04-30 00:00 UTC
constexpr const char* NOWHERE = "gone";

/// Thrown through the library's frames, which must not take it for an error of their own.
struct Killed {};

}  // namespace

void Player::Play() {
    m_manager = std::make_unique<CheckedApplication>(m_world, 0);
    Start(m_plan.isPolling);
    for (const Step& step : m_plan.steps) {
        if (m_plan.isMemoryDead) break;
        m_world.Note(EEvent::Script, 0, static_cast<uint64_t>(step.kind), step.at);
        PlayStep(step);
    }
    Close();
}

// ---- starts ---------------------------------------------------------------------------------------------------------

void Player::Start(bool isPolling, const std::string& remark) {
    m_remark = remark;
    const uint64_t bringUps = m_world.Order().BringUps();
    if (m_manager->Start(isPolling, remark) != STARTED || m_world.Order().BringUps() != bringUps) return;
    m_world.Quirks().OnBoardLeftAlone();
    Require(m_world.Order().IsBoardWhole(), ERule::Order,
            [] { return std::string("a half-started board was left alone"); });
}

void Player::EndObject() {
    m_manager.reset();
    m_world.CheckDestroyed();
    Holdings held = Holdings::Now();
    if (m_world.GetCanary().Lies(ERule::Holdings)) ++held.blocks;
    if (m_heldByNone) RequireSame(*m_heldByNone, held);
    m_heldByNone = held;
}

void Player::NewObject(bool isPolling, const std::string& remark) {
    EndObject();
    m_manager = std::make_unique<CheckedApplication>(m_world, 0);
    Start(isPolling, remark);
}

// Whatever state the last step left: afterwards a session runs.
void Player::MakeLive() {
    if (m_manager->IsLive() && !m_manager->IsEnding()) return;
    if (m_manager->IsEnding()) m_manager->CheckEnded();
    NewObject(m_plan.isPolling, m_remark);
}

void Player::Receive(int32_t updates) {
    const uint64_t target = m_world.Deliveries(0).Records() + static_cast<uint64_t>(updates);
    for (int step = 0; step < EMPTY_STEPS_MAX && m_world.Deliveries(0).Records() < target; ++step) {
        if (m_manager->Step() == SESSION_ENDED) return;
        if (m_world.Board().IsDrained() || step > 20 * updates) return;
    }
}

// ---- losses ---------------------------------------------------------------------------------------------------------

void Player::Recover() {
    const uint64_t started = m_world.Order().EngineStarts();
    for (int step = 0; step < EMPTY_STEPS_MAX && m_world.Order().EngineStarts() == started; ++step) {
        if (m_manager->Step() == SESSION_ENDED) return;
    }
}

void Player::SetTriggerAt(const Step& step, const char* what, std::function<void()> action) {
    m_world.SetTrigger({step.phase, step.at, what, std::move(action)});
}

void Player::Lose(const Step& step) {
    if (step.kind == EStep::LoseLater) {
        SetTriggerAt(step, "loss in recovery", [this, step] { m_world.Lose(static_cast<uint32_t>(step.count)); });
    }
    ++m_losses;
    m_world.Lose(static_cast<uint32_t>(step.count));
    Recover();
    m_world.SetTrigger({});
}

// What waits is taken first, so that the event is the next message and no update comes between. One feed has the time,
// the others are earlier.
void Player::RaiseTimeOuts() {
    uint64_t turn = m_plan.seed;
    for (const TimeCard& card : DealTimes(m_plan.seed)) {
        while (m_world.Board().HasMessageFor(0) && m_manager->Step() != SESSION_ENDED) continue;
        MakeLive();
        const uint64_t latest = DAY_SECONDS + static_cast<uint64_t>(card.second);
        for (uint64_t feed = 0; feed < FEED_COUNT; ++feed) {
            const uint64_t before = feed == turn % FEED_COUNT ? 0 : 1 + (turn * 7919 + feed * 104729) % 7200;
            m_world.Board().SetLastUpdate(static_cast<EMDQPDataType>(feed), latest - before);
        }
        const uint32_t timeOut = TIME_OUT_BITS & EVENT_GROUP << LINE_GROUP_BITS * (turn % LINE_GROUPS);
        m_world.Raise({card.name, {DMA_EVENT, sizeof(U50Event), timeOut, 0, 0, 0, 0, 0}});
        m_manager->Step();
        if (m_world.Order().IsRecoveryDue()) Recover();
        ++turn;
    }
}

// ---- the script -----------------------------------------------------------------------------------------------------

void Player::PlayStep(const Step& step) {
    MakeLive();
    m_world.Reached().Note(StepName(step.kind), m_world.Order().Phase());
    switch (step.kind) {
        case EStep::Live: return Receive(step.count);
        case EStep::Lose:
        case EStep::LoseLater: return Lose(step);
        case EStep::TimeOuts: return RaiseTimeOuts();
        case EStep::NewObject:
        case EStep::SkipUnchanged: return NewObject(step.count % 2 == 0, m_remark);
        case EStep::SkipEdited: return NewObject(step.count % 2 == 0, m_remark + "edited ");
        case EStep::OtherChannel: return OtherChannel(step.count);
        case EStep::IndexUnwritable: return NewObjectWithoutIndex(step);
        case EStep::OutOfMemory:
        case EStep::OutOfMemoryLater: return RunOutOfMemory(step);
        case EStep::SetWallClock:
            return m_world.Clock().SetWall(m_world.Clock().Wall() + step.count * NANOSECONDS_PER_MINUTE);
        default: return PlayEndingStep(step);
    }
}

void Player::PlayEndingStep(const Step& step) {
    switch (step.kind) {
        case EStep::StopAndStart: return StopAndStart(step);
        case EStep::StopInStart: return StopInStarts(step);
        case EStep::Kill:
        case EStep::KillInRecovery: return Kill(step);
        case EStep::StopInRecovery:
            SetTriggerAt(step, "stop in recovery", [this] { m_manager->Stop(); });
            m_world.Lose(1);
            Recover();
            break;
        case EStep::Signal:
            SetTriggerAt(step, step.count % 2 == 0 ? "signal in start" : "signal in recovery",
                         [this] { m_manager->Signal(); });
            if (step.count % 2 == 0) NewObject(m_plan.isPolling, m_remark);
            m_world.Lose(1);
            if (!m_manager->IsEnding()) Recover();
            break;
        default:  // from the callback
            m_manager->SetStopAtUpdate(true);
            Receive(1);
            m_manager->SetStopAtUpdate(false);
            break;
    }
    m_world.SetTrigger({});
    if (m_manager->IsEnding()) m_manager->CheckEnded();
}

// What a process holds goes with it; what it wrote to the board stays.
void Player::Kill(const Step& step) {
    const bool isInRecovery = step.kind == EStep::KillInRecovery;
    SetTriggerAt(step, isInRecovery ? "kill in recovery" : "kill in start", [] { throw Killed(); });
    try {
        if (isInRecovery) {
            m_world.Lose(1);
            Recover();
        } else {
            NewObject(step.count % 2 == 0, m_remark);
        }
    } catch (const Killed&) {
        m_world.BeginProcess();
    }
    m_world.SetTrigger({});
    NewObject(m_plan.isPolling, m_remark);
}

void Player::RunOutOfMemory(const Step& step) {
    const auto failure = step.count % 2 == 0 ? WatchedAllocator::Failure::Once : WatchedAllocator::Failure::FromThenOn;
    const uint64_t number = uint64_t{step.at} * static_cast<uint64_t>(step.count);
    if (step.kind == EStep::OutOfMemoryLater) {
        m_manager->RunOutOfMemory(number, failure);
        m_world.Lose(1);
        return Recover();
    }
    EndObject();
    m_manager = std::make_unique<CheckedApplication>(m_world, 0);
    m_manager->RunOutOfMemory(number, failure);
    Start(m_plan.isPolling, m_remark);
}

void Player::NewObjectWithoutIndex(const Step& step) {
    m_world.BeginProcess(NOWHERE);
    NewObject(step.count % 2 == 0, m_remark);
    m_world.BeginProcess();
}

// A fresh start of the same object may be stopped again, until its attempts are used up; one of the polling form keeps
// the stop.
void Player::StopInStarts(const Step& step) {
    const auto stopAt = [&] { SetTriggerAt(step, "stop in start", [this] { m_manager->Stop(); }); };
    stopAt();
    NewObject(step.count / 6 % 2 == 0, m_remark);
    for (int32_t again = step.count % 6; again > 0 && m_manager->IsEnding(); --again) {
        m_world.SetTrigger({});
        m_manager->CheckEnded();
        if (again != 1 || step.at % 2 == 0) stopAt();
        Start(again == 2, m_remark);
    }
    m_world.SetTrigger({});
    if (m_manager->IsEnding()) m_manager->CheckEnded();
}

void Player::StopAndStart(const Step& step) {
    Receive(step.count % 8);
    m_manager->Stop();
    m_manager->CheckEnded();
    Start(false, m_remark);
}

void Player::OtherChannel(int32_t steps) {
    CheckedApplication other(m_world, m_plan.otherChannel);
    m_world.OnOtherSession();
    other.Start(steps % 2 == 0);
    for (int32_t step = 0; step < steps; ++step) {
        other.Step();
        if (step % 3 == 0) m_manager->Step();
        if (step == steps / 2) m_world.Lose(2);
    }
    other.Stop();
    other.CheckEnded();
}

// ---- the end --------------------------------------------------------------------------------------------------------

void Player::CloseRound() {
    // A loss that the board makes by itself must come before the round, in which the exchange moves by another order.
    const auto& statistics = m_world.Board().Statistics();
    for (int step = 0; step < EMPTY_STEPS_MAX && statistics.liveUpdates < m_plan.lostPacketAfter; ++step) {
        if (m_manager->Step() == SESSION_ENDED) return;
    }
    if (m_plan.hasWitness) {
        m_witness = std::make_unique<CheckedApplication>(m_world, m_plan.otherChannel);
        m_world.OnOtherSession();
        m_witness->Start(!m_plan.isPolling);
    }
    m_world.BeginClosingRound();
    int steps = 0;
    while (StepAll() && ++steps < EMPTY_STEPS_MAX) continue;
    Require(m_world.Board().IsDrained(), ERule::Complete, [] { return std::string("the last updates never arrived"); });
    m_world.Deliveries(0).CheckComplete();
    if (m_witness == nullptr) return;
    const DeliveryRules& witnessed = m_world.Deliveries(m_plan.otherChannel);
    if (witnessed.IsRoundWhole()) witnessed.CheckComplete();
    m_witness->Stop();
    m_witness->CheckEnded();
    m_witness.reset();
}

// False when nothing was received and nothing more will come. The witness takes what waits, no more: polls of an empty
// ring move the market, faster than the manager can follow.
bool Player::StepAll() {
    while (m_witness != nullptr && m_world.Board().HasMessageFor(m_plan.otherChannel)) m_witness->Step();
    const int32_t result = m_manager->Step();
    if (result == SESSION_ENDED) return false;
    return result == ONE_UPDATE || !m_world.Board().IsDrained() || m_world.Order().IsRecoveryDue();
}

void Player::Close() {
    const bool isSignalled =
        !m_plan.steps.empty() && m_plan.steps.back().kind == EStep::Signal && m_manager->IsEnding();
    if (!m_plan.isMemoryDead && !isSignalled) {
        MakeLive();
        if (m_manager->IsLive()) CloseRound();
    }
    m_manager->Stop();
    m_manager->CheckEnded();
    EndObject();
}

}  // namespace simulation
