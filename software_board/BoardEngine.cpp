#include "software_board/BoardEngine.h"

#include <algorithm>

#include "common/Feed.h"
#include "common/RegisterMap.h"
#include "public/clock/Clock.h"
#include "software_board/BoardRecord.h"
#include "software_board/BoardTables.h"
#include "software_board/RegisterFile.h"

namespace software_board {

namespace {

constexpr uint32_t DEFAULT_HOST_IP = 0x0A140002;
constexpr uint16_t DEFAULT_HOST_PORT = 40000;
constexpr int64_t NANOSECONDS_PER_SECOND = 1'000'000'000;
constexpr int64_t NANOSECONDS_PER_MS = 1'000'000;
constexpr int32_t SNAPSHOT_CHANNEL = 0;
constexpr uint32_t SNAPSHOT_RING_PART = 4;

}  // namespace

BoardEngine::BoardEngine(const BoardOptions& options, BoardMemory& memory)
    : m_options(options),
      m_memory(memory),
      m_market(options.exchange),
      m_snapshot(m_options, m_market, memory.statistics),
      m_ringLines(std::min(RING_LINES, options.ringMessages * RING_LINES_MIN + 1)),
      m_faultSchedule(options.faults, options.lostPacketAfter) {
    for (ChannelMemory& channel : memory.channels) m_rings.emplace_back(channel.ring, m_ringLines);
    Store(memory.registers.hardwareVersion, options.hardwareVersion);
    ApplyDueFaults();
}

// ---- commands -------------------------------------------------------------------------------------------------------

void BoardEngine::Execute(uint32_t index, uint32_t value) {
    switch (index) {
        case reg::BRING_UP_START:
            if (value == START_VALUE) BringUp();
            return;
        case reg::SNAPSHOT_CONTROL: return value == reg::SNAPSHOT_OPEN ? OpenSnapshot() : CloseSnapshot();
        case reg::LOGICAL_START_2PS:
        case reg::LOGICAL_START_4PS:
            if (value == START_VALUE) StartEngine(index);
            return;
        default: return;
    }
}

void BoardEngine::BringUp() {
    Add(m_memory.statistics.bringUps, uint64_t{1});
    EnterPhase(EBoardPhase::Memory);
    m_isLive = false;
    m_isSnapshotOpen = false;
    m_snapshot.Close();
    m_frame.clear();
    board_tables::OpenPorts(m_memory);
    for (ChannelMemory& channel : m_memory.channels) Store(channel.hasOverrun, 0U);
    for (const uint32_t index : {reg::VERSION_VERDICT, reg::LOGICAL_START_2PS, reg::LOGICAL_START_4PS}) {
        Store(m_memory.registers.values[index], 0U);
    }
    Store(m_memory.registers.isMemoryReady, 0U);
    m_memoryReadyAt = CClock::MonotonicNanoseconds() + int64_t{m_options.hbm2ReadyMs} * NANOSECONDS_PER_MS;
}

// A host that takes one board for another goes on in the middle of its start: nothing moves before a bring-up.
void BoardEngine::Refuse(uint32_t index, uint64_t& count) {
    Add(count, uint64_t{1});
    Store(m_memory.registers.values[index], 0U);
}

void BoardEngine::EnterPhase(EBoardPhase phase) {
    m_phase = phase;
    Store(m_memory.registers.phase, static_cast<uint32_t>(phase));
}

// The host opens the phase first and programs sessions and groups afterwards, at its own pace. What an earlier attempt
// left in the registers says nothing about this one.
void BoardEngine::OpenSnapshot() {
    if (m_phase == EBoardPhase::Idle) return Refuse(reg::SNAPSHOT_CONTROL, m_memory.statistics.refusedSnapshotOpens);
    EnterPhase(EBoardPhase::Snapshot);
    m_market.Relist(m_options.faults.Has(exchange::EFault::ChangingList) ? ++m_lists : 0);
    m_isSnapshotOpen = true;
    m_snapshot.Close();
    m_frame.clear();
    m_connected.reset();
    m_nextAcknowledgementAt.reset();
    ForgetProgramming(m_memory);
}

void BoardEngine::CloseSnapshot() {
    if (m_isSnapshotOpen) EnterPhase(EBoardPhase::Tables);
    m_isSnapshotOpen = false;
    m_snapshot.Close();
    m_frame.clear();
}

// Each feed by itself: one that the host comes to later keeps none waiting.
void BoardEngine::ConnectProgrammedFeeds() {
    const auto& values = m_memory.registers.values;
    for (uint32_t session = 0; session < reg::SESSION_COUNT; ++session) {
        const auto feed = static_cast<EMDQPDataType>(session);
        if (m_connected[session] || !IsProgrammed(m_memory, feed) || m_market.Instruments(feed).empty()) continue;
        if (Load(values[FEEDS[session].registers.lineA.ip]) == 0) continue;
        m_connected.set(session);
        const uint32_t hostIp = Load(values[reg::SRC_IP + reg::SESSION_STRIDE * session]);
        const uint32_t port = Load(values[reg::SRC_PORT + reg::SESSION_STRIDE * session]);
        m_snapshot.Add({feed, hostIp == 0 ? DEFAULT_HOST_IP : hostIp,
                        static_cast<uint16_t>((port == 0 ? DEFAULT_HOST_PORT : port) + session)});
    }
}

// An engine may be started again while it runs: a host does so whose session object is started a second time.
void BoardEngine::StartEngine(uint32_t index) {
    if (m_phase != EBoardPhase::Tables && m_phase != EBoardPhase::Live) {
        return Refuse(index, m_memory.statistics.refusedEngineStarts);
    }
    const auto& values = m_memory.registers.values;
    if (Load(values[reg::LOGICAL_START_2PS]) != START_VALUE || Load(values[reg::LOGICAL_START_4PS]) != START_VALUE)
        return;
    EnterPhase(EBoardPhase::Live);
    m_isLive = true;
    m_liveSince = CClock::MonotonicNanoseconds();
    m_updatesSinceLive = 0;
    m_sweepPosition = 0;
}

// ---- messages -------------------------------------------------------------------------------------------------------

bool BoardEngine::Put(std::size_t index, const void* head, uint32_t headBytes, const void* body, uint32_t bodyBytes) {
    ChannelMemory& channel = m_memory.channels[index];
    if (Load(channel.holder) == 0) return false;
    // Nothing that came later reaches the host before it knows of what was dropped.
    const bool isToBeTold = Load(channel.hasOverrun) != 0;
    if ((isToBeTold && !TellOverrun(static_cast<int32_t>(index))) ||
        !m_rings[index].Put(head, headBytes, body, bodyBytes)) {
        Drop(index);
        return false;
    }
    Store(channel.written, m_rings[index].Written());
    return true;
}

// What does not reach the ring of a channel that is read is counted, and told once there is room again.
void BoardEngine::Drop(std::size_t index) {
    ChannelMemory& channel = m_memory.channels[index];
    Add(m_memory.statistics.overruns, uint64_t{1});
    Add(channel.dropped, uint64_t{1});
    Store(channel.hasOverrun, 1U);
}

void BoardEngine::PutEvent(int32_t channel, const U50Event& event) {
    const auto index = static_cast<std::size_t>(channel);
    if (!Put(index, &event, sizeof event, nullptr, 0)) return;
    auto& last = m_memory.channels[index].lastEvent;
    const uint32_t words[] = {event.event_data0, event.event_data1, event.event_data2, event.event_data3};
    for (std::size_t word = 0; word < last.size(); ++word) Store(last[word], words[word]);
}

void BoardEngine::PutEventToAll(const U50Event& event) {
    Add(m_memory.registers.events, uint64_t{1});
    for (int32_t channel = 0; channel < CHANNEL_SIZE; ++channel) PutEvent(channel, event);
}

bool BoardEngine::TellMemoryReady() {
    if (!m_memoryReadyAt || IsBroken(m_memory, BROKEN_MEMORY)) return false;
    if (CClock::MonotonicNanoseconds() < *m_memoryReadyAt) return false;
    m_memoryReadyAt.reset();
    Store(m_memory.registers.isMemoryReady, 1U);
    PutEvent(SNAPSHOT_CHANNEL, {DMA_EVENT, sizeof(U50Event), 0, 0, EVENT_MEMORY_READY, 0, 0, 0});
    return true;
}

bool BoardEngine::TellOverrun(int32_t index) {
    ChannelMemory& channel = m_memory.channels[index];
    if (Load(channel.hasOverrun) == 0) return false;
    if (!m_rings[static_cast<std::size_t>(index)].HasRoomFor(sizeof(U50Event))) return false;
    Store(channel.hasOverrun, 0U);
    Add(m_memory.registers.events, uint64_t{1});
    PutEvent(index, LOST_EVENT);
    return true;
}

// A host that is slow to read is sent no more than a part of its ring: TCP does not lose what the receiver has no room
// for, and the live records that follow need theirs.
bool BoardEngine::SnapshotStep() {
    if (!m_isSnapshotOpen || IsBroken(m_memory, BROKEN_CARD) || Load(m_memory.channels[SNAPSHOT_CHANNEL].holder) == 0)
        return false;
    ConnectProgrammedFeeds();
    if (m_frame.empty() && !m_snapshot.NextFrame(m_frame, MayAcknowledge())) return false;
    const auto frameBytes = static_cast<uint32_t>(m_frame.size());
    RingProducer& ring = m_rings[SNAPSHOT_CHANNEL];
    if (ring.Waiting() > m_ringLines / SNAPSHOT_RING_PART || !ring.HasRoomFor(DMA_TCP_FRAME_OFFSET + frameBytes)) {
        return false;
    }
    const uint32_t head[] = {DMA_TCP, DMA_TCP_FRAME_OFFSET + frameBytes, 0};
    Put(SNAPSHOT_CHANNEL, head, sizeof head, m_frame.data(), frameBytes);
    // Bare acknowledgements follow a whole snapshot; they are there for a host that reads at its own pace.
    if (frameBytes <= frame_headers::BYTES_MIN && m_options.acknowledgeEveryMs > 0) {
        m_nextAcknowledgementAt =
            CClock::MonotonicNanoseconds() + int64_t{m_options.acknowledgeEveryMs} * NANOSECONDS_PER_MS;
    }
    m_frame.clear();
    return true;
}

bool BoardEngine::MayAcknowledge() {
    return !m_nextAcknowledgementAt || CClock::MonotonicNanoseconds() >= *m_nextAcknowledgementAt;
}

// ---- the market -----------------------------------------------------------------------------------------------------

bool BoardEngine::IsDue() const {
    if (m_options.updatesPerSecond == 0) return true;
    const int64_t elapsed = CClock::MonotonicNanoseconds() - m_liveSince;
    const double due = static_cast<double>(elapsed) / NANOSECONDS_PER_SECOND * m_options.updatesPerSecond;
    return static_cast<double>(m_updatesSinceLive) < due;
}

bool BoardEngine::LiveStep() {
    if (!m_isLive || IsBroken(m_memory, BROKEN_CARD)) return false;
    if (m_quietSteps > 0) {
        --m_quietSteps;
        return false;
    }
    if (!m_isFinishing && !IsDue()) return false;
    exchange::LiveUpdate update;
    if (m_isFinishing) {
        if (!NextOfSweep(update)) return false;
    } else {
        update = m_market.Next();
    }
    CountUpdates(1);
    ++m_updatesSinceLive;
    CountPacket(update.feed);
    ApplyUpdate(update);
    ApplyDueFaults();
    return true;
}

void BoardEngine::CountUpdates(uint32_t updates) {
    m_updates += updates;
    Store(m_memory.statistics.liveUpdates, m_updates);
}

void BoardEngine::FinishAfterOneMoreOfEach() {
    m_isFinishing = true;
    m_sweepPosition = 0;
}

bool BoardEngine::HasFinished() const {
    const std::size_t all = m_market.Instruments(SHFE_2PS).size() + m_market.Instruments(INE_2PS).size();
    return m_isFinishing && m_isLive && m_sweepPosition >= all;
}

bool BoardEngine::NextOfSweep(exchange::LiveUpdate& update) {
    std::size_t position = m_sweepPosition;
    for (const EMDQPDataType feed : {SHFE_2PS, INE_2PS}) {
        const std::size_t count = m_market.Instruments(feed).size();
        for (; position < count && !m_market.IsListed(feed, static_cast<int32_t>(position)); ++position) {
            ++m_sweepPosition;
        }
        if (position < count) {
            ++m_sweepPosition;
            update = m_market.Move(feed, static_cast<int32_t>(position));
            return true;
        }
        position -= count;
    }
    return false;
}

void BoardEngine::CountPacket(EMDQPDataType feed) {
    const auto index = static_cast<std::size_t>(feed);
    Add(m_memory.registers.packets[index], uint64_t{1});
    Store(m_memory.registers.lastUpdate[index],
          static_cast<uint64_t>(CClock::WallNanoseconds() / NANOSECONDS_PER_SECOND));
}

void BoardEngine::ApplyUpdate(const exchange::LiveUpdate& update) {
    SInstTableType& shared = board_tables::Slot(m_memory, update.feed, update.instNo);
    const SInstTableType before = board_tables::CopyOf(shared);
    SInstTableType slot = before;
    LayOver(update, slot);
    board_tables::Assign(shared, before, slot);
    if ((slot.config & SLOT_IN_USE) == 0) return;
    const uint32_t maxInstNo = Load(m_memory.registers.values[TraitsOf(update.feed).registers.maxInstNo]);
    const VexaShfeMdType record = RecordOf(slot, update.instNo, maxInstNo);
    const uint32_t head[] = {DMA_UDP, DMA_UDP_RECORD_OFFSET + sizeof record};
    for (std::size_t channel = 0; channel < m_rings.size(); ++channel) {
        if ((slot.config >> channel & 1U) == 0) continue;
        if (m_dropRecords > 0 && Load(m_memory.channels[channel].holder) != 0) {
            --m_dropRecords;
            Drop(channel);
            continue;
        }
        if (!Put(channel, head, sizeof head, &record, sizeof record)) continue;
        Add(m_memory.statistics.delivered, uint64_t{1});
        Add(m_memory.channels[channel].delivered, uint64_t{1});
    }
}

void BoardEngine::LosePackets(uint32_t updates) {
    for (uint32_t i = 0; i < updates; ++i) CountPacket(m_market.Next().feed);
    CountUpdates(updates);
    Add(m_memory.statistics.lostUpdates, uint64_t{updates});
    PutEventToAll(LOST_EVENT);
}

}  // namespace software_board
