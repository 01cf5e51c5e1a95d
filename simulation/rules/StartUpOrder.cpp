#include "simulation/rules/StartUpOrder.h"

#include <algorithm>

#include "simulation/base/SimulatedClock.h"
#include "simulation/rules/BoardMap.h"
#include "simulation/rules/Rules.h"

namespace simulation {
namespace {

constexpr int64_t MEMORY_SECONDS = 6;
constexpr int64_t ONE_POLL_NS = 100'000'000;

bool IsSnapshotField(uint32_t index) {
    return std::any_of(board::FEEDS.begin(), board::FEEDS.end(),
                       [=](const board::FeedMap& feed) { return index == feed.count || index == feed.packetNo; });
}

}  // namespace

StartUpOrder::StartUpOrder(const SessionPlan& plan)
    : m_script(plan), m_waitSeconds(plan.waitSeconds), m_attemptsMax(plan.attempts) {}

bool StartUpOrder::IsAnnounced(EAccess access, uint32_t index, uint32_t value) {
    if (m_announcedDone == m_announced.size()) return false;
    const Access& due = m_announced[m_announcedDone];
    Require(due.access == access && due.index == index, ERule::Order,
            [&] { return "access of " + Hex(index) + " where that of " + Hex(due.index) + " was due"; });
    Require(access != EAccess::Write || due.value == value, ERule::Values,
            [&] { return "register " + Hex(index) + " is told " + Hex(value) + ", not " + Hex(due.value); });
    ++m_announcedDone;
    return true;
}

void StartUpOrder::RequireNothingAnnounced() {
    Require(m_announcedDone == m_announced.size(), ERule::Order,
            [&] { return "no access of " + Hex(m_announced[m_announcedDone].index) + ", which was due"; });
    ForgetAnnounced();
}

bool StartUpOrder::IsFree(EAccess access, uint32_t index) const {
    return m_isSnapshotUnknown && m_phase == ESessionPhase::Loading && access == EAccess::Write &&
           IsSnapshotField(index);
}

bool StartUpOrder::IsNext(EAccess access, uint32_t index) {
    const std::vector<Stop>& stops = m_script.Stops();
    if (m_phase == ESessionPhase::Closed || m_next >= stops.size()) return false;
    const auto isAt = [&](std::size_t at) { return stops[at].access == access && stops[at].index == index; };
    // A recovery leaves the checksum out.
    const bool isLeftOut = m_fileChecksum == 0 && stops[m_next].access == EAccess::Write &&
                           stops[m_next].index == board::CHECKSUM && isAt(m_next + 1);
    if (isLeftOut) ++m_next;
    return isAt(m_next);
}

// A step after a start that failed tries once more.
bool StartUpOrder::MayBringUp() const {
    return IsLoading() || m_phase == ESessionPhase::Live || m_phase == ESessionPhase::Closed;
}

void StartUpOrder::OnAccess(EAccess access, uint32_t index, uint32_t value, int64_t now) {
    if (IsAnnounced(access, index, value)) return;
    if (access == EAccess::Write && index == board::BRING_UP && MayBringUp()) {
        if (m_phase == ESessionPhase::Live && !m_isRecoveryDue) OutOfOrder(access, index);
        m_next = m_script.BringUpStop();
    } else if (!IsNext(access, index)) {
        if (IsFree(access, index)) return;
        OutOfOrder(access, index);
    }
    const Stop& stop = m_script.Stops()[m_next++];
    CheckValue(stop, value);
    Enter(stop, now);
}

void StartUpOrder::CheckValue(const Stop& stop, uint32_t value) const {
    if (stop.access != EAccess::Write) return;
    if (stop.index == board::CHECKSUM) {
        Require(m_fileChecksum != 0, ERule::Checksum,
                [] { return std::string("a recovery wrote the configuration's checksum"); });
        Require(value == m_fileChecksum, ERule::Checksum,
                [=, this] { return "the checksum " + Hex(value) + " is not the file's, " + Hex(m_fileChecksum); });
        return;
    }
    Require(value == stop.value, ERule::Values, [&] {
        return "register " + Hex(stop.index) + " is told " + Hex(value) + ", not " + Hex(stop.value.value_or(0));
    });
}

void StartUpOrder::Enter(const Stop& stop, int64_t now) {
    const bool isMemoryTold = stop.index == board::MEMORY_STATUS;
    if (stop.index == board::BRING_UP || m_phase != stop.phase || isMemoryTold) {
        CheckWait(now, stop.phase == ESessionPhase::Memory);
    }
    if (stop.index == board::BRING_UP) BeginBringUp();
    if (stop.index == board::SOFTWARE) m_attempts = 0;
    if (stop.index == board::ENGINE_4PS) {
        m_isRecoveryDue = false;
        m_isBoardWhole = true;
        ++m_engineStarts;
    }
    if (stop.index == board::BRING_UP || (m_phase != stop.phase && stop.phase == ESessionPhase::Loading)) m_since = now;
    m_phase = stop.phase;
}

void StartUpOrder::BeginBringUp() {
    ++m_bringUps;
    m_isBoardWhole = false;
    m_isWaitGoingOn = false;
    ++m_attempts;
    Require(m_attempts <= m_attemptsMax, ERule::Checksum,
            [this] { return "bring-up " + std::to_string(m_attempts) + " without success"; });
}

// The memory is always waited for in full, for the board's own word about it is discarded unread. The snapshot is
// waited for in full where nothing else has ended the wait.
void StartUpOrder::CheckWait(int64_t now, bool isInFull) const {
    int64_t limit = 0;
    if (m_phase == ESessionPhase::Memory) limit = MEMORY_SECONDS;
    if (IsLoading()) limit = m_waitSeconds + 1;
    if (limit == 0) return;
    const int64_t waited = now - m_since;
    const int64_t full = limit * NANOSECONDS_PER_SECOND;
    Require(waited <= full + ONE_POLL_NS && (!isInFull || waited >= full), ERule::Waits, [=, this] {
        return std::string(SessionPhaseName(m_phase)) + " took " + std::to_string(waited / 1'000'000) + " ms of " +
               std::to_string(limit) + " s";
    });
}

void StartUpOrder::OnNewObject() {
    m_attempts = 0;
    m_phase = ESessionPhase::Closed;
    m_isRecoveryDue = false;
    m_isWaitGoingOn = false;
    ForgetAnnounced();
}

void StartUpOrder::ForgetAnnounced() {
    m_announced.clear();
    m_announcedDone = 0;
}

void StartUpOrder::OnStart(uint32_t fileChecksum) {
    m_fileChecksum = fileChecksum;
    m_phase = ESessionPhase::Identity;
    m_next = 0;
}

bool StartUpOrder::OnReturn(bool isOver, int64_t now) {
    CheckWait(now, false);
    m_fileChecksum = 0;
    if (isOver) {
        m_phase = ESessionPhase::Closed;
        m_isWaitGoingOn = false;
        ForgetAnnounced();
    }
    if (isOver || m_phase == ESessionPhase::Live) return false;
    Require(m_phase == ESessionPhase::Identity && m_next == m_script.BringUpStop(), ERule::Order,
            [this] { return std::string("a start or step came back in the middle of ") + SessionPhaseName(m_phase); });
    m_phase = ESessionPhase::Live;
    m_isRecoveryDue = false;
    return true;
}

void StartUpOrder::OutOfOrder(EAccess access, uint32_t index) const {
    std::string expected;
    if (m_phase != ESessionPhase::Closed && m_next < m_script.Stops().size()) {
        expected = ", next is " + Hex(m_script.Stops()[m_next].index);
    }
    ThrowBreach(ERule::Order, std::string(access == EAccess::Write ? "write of " : "read of ") + Hex(index) +
                                  " in phase " + SessionPhaseName(m_phase) + expected);
}

}  // namespace simulation
