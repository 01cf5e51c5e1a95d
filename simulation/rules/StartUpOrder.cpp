#include "simulation/rules/StartUpOrder.h"

#include <algorithm>

#include "simulation/base/SimulatedClock.h"
#include "simulation/rules/Invariants.h"
#include "src/RegisterMap.h"

namespace simulation {
namespace {

constexpr int64_t MEMORY_SECONDS = 6;
constexpr int64_t ONE_POLL_NS = 100'000'000;

constexpr uint32_t EVENT_READS[] = {reg::DIAGNOSTIC_2030,      reg::DIAGNOSTIC_2031,     reg::HBM2_STATUS,
                                    reg::DIAGNOSTIC_12015,     reg::DIAGNOSTIC_1201B,    reg::DIAGNOSTIC_22015,
                                    reg::DIAGNOSTIC_2201B,     reg::LAST_UPDATE_TIME,    reg::LAST_UPDATE_TIME + 1,
                                    reg::LAST_UPDATE_TIME + 2, reg::LAST_UPDATE_TIME + 3};

template <typename List>
bool Has(const List& list, uint32_t index) {
    return std::find(std::begin(list), std::end(list), index) != std::end(list);
}

bool IsSnapshotField(uint32_t index) {
    return std::any_of(reg::FEEDS.begin(), reg::FEEDS.end(), [=](const reg::FeedRegisters& feed) {
        return index == feed.instCount || index == feed.snapshotPacketNo;
    });
}

}  // namespace

StartUpOrder::StartUpOrder(const Limits& limits) : m_limits(limits) { Plan(); }

void StartUpOrder::Put(EAccess access, EPhase phase, std::initializer_list<uint32_t> indices) {
    for (const uint32_t index : indices) m_stops.push_back({access, index, phase});
}

void StartUpOrder::Plan() {
    Put(EAccess::Read32, EPhase::Identity, {reg::BUILD_DATE, reg::BUILD_VERSION, reg::DNA_0, reg::DNA_1, reg::DNA_2});
    for (int sample = 0; sample < 2; ++sample) {
        Put(EAccess::Read64, EPhase::Identity,
            {reg::SHFE_2PS_PKTS, reg::INE_2PS_PKTS, reg::SHFE_4PS_PKTS, reg::INE_4PS_PKTS, reg::EVENT_PKTS});
    }
    Put(EAccess::Read32, EPhase::Identity, {reg::CONFIG_CHECKSUM});
    m_bringUpStop = m_stops.size();
    Put(EAccess::Write, EPhase::Memory, {reg::BRING_UP_START, reg::PRICE_PROTECT_EVENT_MASK});
    Put(EAccess::Read32, EPhase::Memory, {reg::HBM2_STATUS});
    PlanProgramming();
    Put(EAccess::Write, EPhase::Tables, {reg::SNAPSHOT_CONTROL});
    Put(EAccess::Write, EPhase::Versions, {reg::SOFTWARE_VERSION});
    Put(EAccess::Read32, EPhase::Versions, {reg::HARDWARE_VERSION, reg::VERSION_VERDICT});
    m_stops.push_back({EAccess::Write, reg::CONFIG_CHECKSUM, EPhase::Versions, true});
    PlanSubscribing();
    PlanEngines();
}

void StartUpOrder::PlanProgramming() {
    Put(EAccess::Write, EPhase::Programming,
        {reg::SNAPSHOT_CONTROL, reg::SHFE_INST_COUNT, reg::INE_INST_COUNT, reg::DETECT_INTERVAL_2PS,
         reg::DETECT_INTERVAL_4PS, reg::TARGET_ROUTE});
    // Registers that are written together, session by session.
    const std::initializer_list<uint32_t> groups[] = {
        {reg::DST_MAC_HIGH, reg::DST_MAC_LOW}, {reg::DST_IP}, {reg::DST_PORT}, {reg::SRC_MAC_HIGH}, {reg::SRC_MAC_LOW},
        {reg::SRC_IP, reg::SRC_PORT}};
    for (const auto& group : groups) {
        for (uint32_t session = 0; session < reg::SESSION_COUNT; ++session) {
            for (const uint32_t index : group) {
                Put(EAccess::Write, EPhase::Programming, {index + reg::SESSION_STRIDE * session});
            }
        }
    }
    for (const EMDQPDataType feed : {SHFE_2PS, INE_2PS, SHFE_4PS, INE_4PS}) {
        const reg::FeedRegisters& registers = reg::FEEDS[static_cast<std::size_t>(feed)];
        Put(EAccess::Write, EPhase::Programming,
            {registers.lineA.ip, registers.lineA.port, registers.lineB.ip, registers.lineB.port});
    }
    m_stops.back().phase = EPhase::Loading;
}

void StartUpOrder::PlanSubscribing() {
    Put(EAccess::Read32, EPhase::Versions, {reg::SHFE_INST_COUNT, reg::INE_INST_COUNT});  // for the index file
    for (int32_t channel = 0; channel < CHANNEL_SIZE; ++channel) {
        Put(EAccess::Read32, EPhase::Subscribing, {reg::SHFE_INST_COUNT, reg::INE_INST_COUNT});
    }
}

void StartUpOrder::PlanEngines() {
    Put(EAccess::Write, EPhase::Engines,
        {reg::SHFE_2PS_MAX_INST_NO, reg::SHFE_4PS_MAX_INST_NO, reg::INE_2PS_MAX_INST_NO, reg::INE_4PS_MAX_INST_NO,
         reg::LAST_TICK_CHANNEL, reg::REPEAT_QUOTE_UPLOAD, reg::MODEL_SEL, reg::EVENT_MODEL_SEL});
    for (const EMDQPDataType feed : {SHFE_4PS, SHFE_2PS, INE_2PS, INE_4PS}) {
        const reg::TablePort& port = reg::FEEDS[static_cast<std::size_t>(feed)].table;
        Put(EAccess::Write, EPhase::Engines, {port.writeData, port.writeAddr});
    }
    Put(EAccess::Write, EPhase::Engines, {reg::LOGICAL_START_2PS});
    Put(EAccess::Write, EPhase::Live, {reg::LOGICAL_START_4PS});
}

// What may come any number of times in a phase, besides the next stop.
bool StartUpOrder::IsFree(EAccess access, uint32_t index) const {
    switch (m_phase) {
        case EPhase::Loading: return access == EAccess::Write && IsSnapshotField(index);
        case EPhase::Live: return access != EAccess::Write && Has(EVENT_READS, index);
        default: return false;
    }
}

bool StartUpOrder::IsNext(EAccess access, uint32_t index) {
    if (m_phase == EPhase::Closed || m_next >= m_stops.size()) return false;
    const auto matches = [&](const Stop& stop) { return stop.access == access && stop.index == index; };
    if (matches(m_stops[m_next])) return true;
    if (!m_stops[m_next].isOptional || !matches(m_stops[m_next + 1])) return false;
    ++m_next;
    return true;
}

// A step after a start that failed tries once more.
bool StartUpOrder::MayBringUp() const {
    return m_phase == EPhase::Loading || m_phase == EPhase::Live || m_phase == EPhase::Closed;
}

void StartUpOrder::OnAccess(EAccess access, uint32_t index, uint32_t value, int64_t now) {
    if (access == EAccess::Write && index == reg::BRING_UP_START && MayBringUp()) {
        if (m_phase == EPhase::Live && !m_isRecoveryDue) OutOfOrder(access, index);
        m_next = m_bringUpStop;
    } else if (!IsNext(access, index)) {
        if (IsFree(access, index)) return;
        OutOfOrder(access, index);
    }
    Enter(m_stops[m_next++], value, now);
}

void StartUpOrder::Enter(const Stop& stop, uint32_t value, int64_t now) {
    if (stop.index == reg::CONFIG_CHECKSUM && stop.access == EAccess::Write) {
        Require(m_carriesChecksum, 16, [] { return std::string("a recovery wrote the configuration's checksum"); });
    }
    if (stop.index == reg::BRING_UP_START || m_phase != stop.phase || stop.index == reg::HBM2_STATUS) CheckWait(now);
    if (stop.index == reg::BRING_UP_START) BeginBringUp();
    if (stop.index == reg::SNAPSHOT_CONTROL) {
        const bool isOpening = stop.phase == EPhase::Programming;
        Require(value == (isOpening ? reg::SNAPSHOT_OPEN : reg::SNAPSHOT_CLOSED), 8,
                [=] { return "snapshot control is " + std::to_string(value); });
    }
    if (stop.index == reg::SOFTWARE_VERSION) m_attempts = 0;
    if (stop.index == reg::LOGICAL_START_4PS) {
        m_isRecoveryDue = false;
        m_isBoardWhole = true;
        ++m_engineStarts;
    }
    if (m_phase != stop.phase || stop.index == reg::BRING_UP_START) m_since = now;
    m_phase = stop.phase;
}

void StartUpOrder::BeginBringUp() {
    ++m_bringUps;
    m_isBoardWhole = false;
    ++m_attempts;
    Require(m_attempts <= m_limits.attempts, 16,
            [this] { return "bring-up " + std::to_string(m_attempts) + " without success"; });
}

void StartUpOrder::CheckWait(int64_t now) const {
    int64_t limit = 0;
    if (m_phase == EPhase::Memory) limit = MEMORY_SECONDS;
    if (m_phase == EPhase::Loading) limit = m_limits.waitSeconds + 1;
    if (limit == 0) return;
    Require(now - m_since <= limit * NANOSECONDS_PER_SECOND + ONE_POLL_NS, 17, [=, this] {
        return std::string(PhaseName(m_phase)) + " took " + std::to_string((now - m_since) / 1'000'000) + " ms of " +
               std::to_string(limit) + " s";
    });
}

void StartUpOrder::OnNewObject() {
    m_attempts = 0;
    m_phase = EPhase::Closed;
    m_isRecoveryDue = false;
}

void StartUpOrder::OnStart() {
    m_carriesChecksum = true;
    m_phase = EPhase::Identity;
    m_next = 0;
}

bool StartUpOrder::OnReturn(bool isOver, int64_t now) {
    CheckWait(now);
    m_carriesChecksum = false;
    if (isOver) m_phase = EPhase::Closed;
    if (isOver || m_phase == EPhase::Live) return false;
    Require(m_phase == EPhase::Identity && m_next == m_bringUpStop, 8,
            [this] { return std::string("a start or step came back in the middle of ") + PhaseName(m_phase); });
    m_phase = EPhase::Live;
    m_isRecoveryDue = false;
    return true;
}

void StartUpOrder::OutOfOrder(EAccess access, uint32_t index) const {
    std::string expected;
    if (m_phase != EPhase::Closed && m_next < m_stops.size()) expected = ", next is " + Hex(m_stops[m_next].index);
    Break(8, std::string(access == EAccess::Write ? "write of " : "read of ") + Hex(index) + " in phase " +
                 PhaseName(m_phase) + expected);
}

}  // namespace simulation
