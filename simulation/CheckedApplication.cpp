#include "simulation/CheckedApplication.h"

#include <csignal>
#include <cstring>
#include <utility>

#include "simulation/base/Results.h"
#include "simulation/rules/Rules.h"

namespace simulation {

using Watch = WatchedAllocator::Watch;

namespace {

/// Memory is short for its lifetime.
class ShortMemory {
public:
    ShortMemory(uint64_t number, WatchedAllocator::Failure failure) : m_number(number) {
        WatchedAllocator::FailAt(number, failure);
    }
    ~ShortMemory() { WatchedAllocator::FailAt(0); }
    ShortMemory(const ShortMemory&) = delete;
    ShortMemory& operator=(const ShortMemory&) = delete;

    bool HasRunOut() const { return m_number != 0 && WatchedAllocator::Count() >= m_number; }

private:
    uint64_t m_number;
};

}  // namespace

CheckedApplication::CheckedApplication(World& world, int32_t channel) : m_world(world), m_channel(channel) {
    {
        const Watch watched(true);
        m_api = std::make_unique<SimulatedApi>();
    }
    if (channel == 0) world.OnNewManager(m_api.get());
}

CheckedApplication::~CheckedApplication() {
    m_world.OnDestroying();
    const Watch watched(true);
    m_api.reset();
}

void CheckedApplication::OnVexaShfeMd(VexaShfeMdType& md) {
    m_world.OnRecord(m_channel, md);
    if (m_isStoppingAtUpdate) Stop();
    m_isStoppingAtUpdate = false;
}

// ---- starting -------------------------------------------------------------------------------------------------------

int32_t CheckedApplication::Start(bool isPolling, const std::string& remark) {
    const std::string path = m_world.ConfigPath(m_channel, remark);
    m_isPolling = isPolling;
    if (!isPolling) {
        m_isStopped = false;
        if (!m_isSignalled) m_endedIn = ESessionPhase::Closed;
    } else if (m_isStopped) {
        m_world.Quirks().CountQuirk(EQuirk::StopKeptByPolling);
        m_endedIn = ESessionPhase::Closed;
    }
    const uint64_t bringUps = m_world.Order().BringUps();
    const bool hasAttempts = m_world.Order().Attempts() < m_world.GetPlan().attempts;
    m_world.BeginCall(m_channel, true, m_shortage.number != 0);
    if (m_channel == 0) {
        m_world.SetEnding(IsEnding());
        m_world.Reached().SetForm(isPolling ? EForm::Polling : EForm::Callback);
        m_world.OnStart();
    }
    const int32_t result = CallStart(path.c_str());
    m_isLive = result == STARTED;
    m_world.EndCall(m_channel, result != STARTED, m_hasRunOut);
    const bool hasBroughtUp = m_world.Order().BringUps() != bringUps;
    if (m_channel == 0 && !hasAttempts && result != STARTED) {
        m_world.Quirks().CountQuirk(EQuirk::AttemptsUsedUp);
    } else {
        const int32_t expected = hasBroughtUp ? ExpectedStart() : STARTED;
        const bool isGivenUp = m_hasRunOut && result == START_FAILED;
        Require(result == expected || isGivenUp, ERule::Results, [=] {
            return "a start returned " + std::to_string(result) + " instead of " + std::to_string(expected);
        });
    }
    CheckLevel();
    return result;
}

int32_t CheckedApplication::CallStart(const char* path) {
    const Shortage shortage = std::exchange(m_shortage, {});
    const ShortMemory memory(shortage.number, shortage.failure);
    const Watch watched(true);
    const int32_t result = m_isPolling ? m_api->VexaStart(path) : m_api->VexaStart(*this, path);
    m_hasRunOut = memory.HasRunOut();
    return result;
}

// A stop during the snapshot fails the start; one that comes later ends the first step.
int32_t CheckedApplication::ExpectedStart() const {
    if (m_world.GetPlan().isMemoryDead) return START_FAILED;
    return IsEnding() && m_endedIn <= ESessionPhase::Tables ? START_FAILED : STARTED;
}

void CheckedApplication::CheckLevel() {
    const SessionPlan& plan = m_world.GetPlan();
    if (plan.isMemoryDead) return m_world.Quirks().CountQuirk(EQuirk::LevelLeftRaised);
    Require(LogRules::Level() == plan.logLevel, ERule::Log, [&] {
        return "the log level is " + std::to_string(LogRules::Level()) + " instead of " + std::to_string(plan.logLevel);
    });
}

// ---- receiving ------------------------------------------------------------------------------------------------------

bool CheckedApplication::MayBringUp() const {
    return m_channel == 0 && (m_world.Order().IsRecoveryDue() || m_world.Order().Phase() == ESessionPhase::Closed);
}

int32_t CheckedApplication::CallReceive(bool mayBringUp) {
    const Shortage shortage = mayBringUp ? std::exchange(m_shortage, {}) : Shortage();
    const ShortMemory memory(shortage.number, shortage.failure);
    const Watch watched(true);
    const int32_t result = m_isPolling ? m_api->VexaRecv(m_record) : m_api->VexaRecv();
    m_hasRunOut = memory.HasRunOut();
    return result;
}

int32_t CheckedApplication::Step() {
    const bool wasEnding = IsEnding();
    const bool mayBringUp = MayBringUp();
    m_world.BeginCall(m_channel, mayBringUp, mayBringUp && m_shortage.number != 0);
    int32_t result = CallReceive(mayBringUp);
    m_isLive = result != SESSION_ENDED;
    if (result == ONE_UPDATE && m_isPolling) m_world.OnRecord(m_channel, m_record);
    m_world.EndCall(m_channel, result == SESSION_ENDED, m_hasRunOut);
    if (wasEnding && m_world.GetCanary().Lies(ERule::End)) result = NO_UPDATE;
    Require(!wasEnding || result == SESSION_ENDED, ERule::End,
            [=] { return "a step returned " + std::to_string(result); });
    if (!wasEnding && m_world.GetCanary().Lies(ERule::Results)) result = result == ONE_UPDATE ? NO_UPDATE : ONE_UPDATE;
    CheckResult(result);
    CheckLevel();
    return result;
}

void CheckedApplication::CheckResult(int32_t result) {
    const bool hasRecord = m_world.RecordsInCall() == 1;
    Require(hasRecord == (result == ONE_UPDATE) && m_world.RecordsInCall() <= 1, ERule::Results, [&] {
        return "a step that delivered " + std::to_string(m_world.RecordsInCall()) + " records returned " +
               std::to_string(result);
    });
    Require(result != SESSION_ENDED || IsEnding() || m_hasRunOut || m_world.GetPlan().isMemoryDead, ERule::Results,
            [] { return std::string("a step returned -1 without a reason"); });
    if (!m_isPolling || result != ONE_UPDATE) return;
    Require(std::memcmp(&m_record, &m_world.LastMessage(), sizeof m_record) == 0, ERule::Once,
            [] { return std::string("the polled record is not the message's"); });
}

// ---- ending ---------------------------------------------------------------------------------------------------------

void CheckedApplication::Stop() {
    if (!IsEnding()) m_endedIn = m_world.Order().Phase();
    m_isStopped = true;
    if (m_channel == 0) m_world.SetEnding(true);
    m_api->VexaStop();
}

void CheckedApplication::Signal() {
    if (!IsEnding()) m_endedIn = m_world.Order().Phase();
    m_isSignalled = true;
    if (m_channel == 0) m_world.SetEnding(true);
    std::raise(SIGTERM);
}

void CheckedApplication::RunOutOfMemory(uint64_t number, WatchedAllocator::Failure failure) {
    m_shortage = {number, failure};
}

void CheckedApplication::CheckEnded() {
    for (int step = 0; step < 3; ++step) Step();
    const uint32_t alive =
        m_api->EarlySegments() + m_api->CarryOvers() + (m_world.GetCanary().Lies(ERule::Memory) ? 1 : 0);
    Require(alive == 0, ERule::Memory, [=] { return std::to_string(alive) + " entries or buffers are alive"; });
}

}  // namespace simulation
