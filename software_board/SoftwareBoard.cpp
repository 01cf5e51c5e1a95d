#include "software_board/SoftwareBoard.h"

#include <array>
#include <cstring>
#include <optional>
#include <utility>
#include <vector>

#include "public/clock/Clock.h"
#include "software_board/BoardTables.h"
#include "software_board/MessageRing.h"
#include "software_board/SnapshotService.h"
#include "src/RegisterMap.h"

namespace software_board {

namespace {

constexpr uint32_t REGISTER_COUNT = 0x30000;
constexpr uint32_t BUILD_DATE = 0x20260420;
constexpr uint32_t BUILD_VERSION = 0x00010007;
constexpr uint32_t DNA[] = {0x02005E10, 0x20300000, 0x50F7B0A2};
constexpr uint32_t VERDICT_MATCH = 1;
constexpr uint32_t VERDICT_SOFTWARE_TOO_OLD = 2;
constexpr uint32_t OLDEST_SOFTWARE = 0x01010133;  // 1.1.1.33, first number in the highest byte
constexpr uint32_t LOST_BY_FAULT = 20;
constexpr int LIVE_STEPS_PER_POLL = 64;
constexpr uint32_t DEFAULT_HOST_IP = 0x0A140002;
constexpr uint16_t DEFAULT_HOST_PORT = 40000;
constexpr int64_t NANOSECONDS_PER_SECOND = 1'000'000'000;
constexpr uint32_t EVENT_LOST = 1U << 7;
constexpr uint32_t EVENT_MEMORY_READY = 1U << 0;

void LayOver(const exchange::LiveUpdate& update, SInstTableType& slot) {
    slot.change_no = update.changeNo;
    slot.updatetime = update.updateTime;
    slot.update_mill_sec = update.updateMilliSec;
    if (update.hasDeal) {
        slot.last_price = update.lastPrice;
        slot.volume = update.volume;
        slot.turnover = static_cast<uint64_t>(update.turnover);
        slot.open_interest = static_cast<uint64_t>(update.openInterest);
        slot.high_price = update.highPrice;
        slot.low_price = update.lowPrice;
    }
    if (!update.hasBook) return;
    slot.bid1_price = update.bidPrice[0];
    slot.bid2_price = update.bidPrice[1];
    slot.bid3_price = update.bidPrice[2];
    slot.bid4_price = update.bidPrice[3];
    slot.bid5_price = update.bidPrice[4];
    slot.bid1_vol = update.bidVolume[0];
    slot.bid2_vol = update.bidVolume[1];
    slot.bid3_vol = update.bidVolume[2];
    slot.bid4_vol = update.bidVolume[3];
    slot.bid5_vol = update.bidVolume[4];
    slot.ask1_price = update.askPrice[0];
    slot.ask2_price = update.askPrice[1];
    slot.ask3_price = update.askPrice[2];
    slot.ask4_price = update.askPrice[3];
    slot.ask5_price = update.askPrice[4];
    slot.ask1_vol = update.askVolume[0];
    slot.ask2_vol = update.askVolume[1];
    slot.ask3_vol = update.askVolume[2];
    slot.ask4_vol = update.askVolume[3];
    slot.ask5_vol = update.askVolume[4];
    slot.bid_volume = update.totalBidVolume;
    slot.bid_amount = update.totalBidAmount;
    slot.ask_volume = update.totalAskVolume;
    slot.ask_amount = update.totalAskAmount;
}

/// The record is made of the board's own slot, so that whatever the host wrote wrongly shows.
VexaShfeMdType RecordOf(const SInstTableType& slot, int32_t instNo, uint32_t maxInstNo) {
    VexaShfeMdType record{};
    record.inst_no = static_cast<uint32_t>(instNo);
    std::memcpy(record.inst_id, slot.inst_id, sizeof record.inst_id);
    record.update_time = slot.updatetime;
    record.update_milli_sec = static_cast<uint16_t>(slot.update_mill_sec);
    record.change_no = slot.change_no;
    record.last_px = slot.last_price;
    record.volume = slot.volume;
    record.turnover = static_cast<int64_t>(slot.turnover);
    record.open_interest = static_cast<int64_t>(slot.open_interest);
    record.bid1_px = slot.bid1_price;
    record.bid1_vol = slot.bid1_vol;
    record.bid2_px = slot.bid2_price;
    record.bid2_vol = slot.bid2_vol;
    record.bid3_px = slot.bid3_price;
    record.bid3_vol = slot.bid3_vol;
    record.bid4_px = slot.bid4_price;
    record.bid4_vol = slot.bid4_vol;
    record.bid5_px = slot.bid5_price;
    record.bid5_vol = slot.bid5_vol;
    record.ask1_px = slot.ask1_price;
    record.ask1_vol = slot.ask1_vol;
    record.ask2_px = slot.ask2_price;
    record.ask2_vol = slot.ask2_vol;
    record.ask3_px = slot.ask3_price;
    record.ask3_vol = slot.ask3_vol;
    record.ask4_px = slot.ask4_price;
    record.ask4_vol = slot.ask4_vol;
    record.ask5_px = slot.ask5_price;
    record.ask5_vol = slot.ask5_vol;
    record.bid_volume = slot.bid_volume;
    record.bid_amount = slot.bid_amount;
    record.ask_volume = slot.ask_volume;
    record.ask_amount = slot.ask_amount;
    record.high_price = slot.high_price;
    record.low_price = slot.low_price;
    record.max_inst_no = maxInstNo;
    return record;
}

}  // namespace

struct SoftwareBoard::State {
    explicit State(const BoardOptions& wanted)
        : options(wanted), market(options.exchange), registers(REGISTER_COUNT), snapshot(options, market, statistics) {}

    struct Channel {
        std::unique_ptr<MessageRing> ring;
        bool hasOverrun = false;  ///< the host has not been told yet
    };

    // ---- registers ----
    void Write(uint32_t index, uint32_t value);
    uint64_t Value(uint32_t index) const;
    void BringUp();
    void OpenSnapshot();
    void ConnectSnapshot();
    void StartEngine();

    // ---- messages ----
    void PutEvent(Channel& channel, const U50Event& event);
    void PutEventToAll(uint32_t eventData0);
    void PutRecord(Channel& channel, const VexaShfeMdType& record);
    void Fill(int32_t channel);
    void TellMemoryReady();

    // ---- the market ----
    bool IsDue();
    bool LiveStep();
    bool NextOfSweep(exchange::LiveUpdate& update);
    void Note(EMDQPDataType feed);
    void Apply(const exchange::LiveUpdate& update);
    void LosePackets(uint32_t updates);

    BoardOptions options;
    exchange::Exchange market;
    BoardTables tables;
    std::vector<uint32_t> registers;
    BoardStatistics statistics;
    SnapshotService snapshot;
    std::array<Channel, CHANNEL_SIZE> channels;
    std::vector<uint8_t> frame;

    std::optional<int64_t> memoryReadyAt;  ///< on the monotonic clock; none before the first bring-up
    bool hasToldMemoryReady = false;
    bool isSnapshotOpen = false;
    bool isConnectDue = false;
    bool isLive = false;
    int64_t liveSince = 0;
    uint64_t updatesSinceLive = 0;
    bool hasLostByFault = false;
    bool isFinishing = false;
    std::size_t sweepPosition = 0;
    std::array<uint64_t, FEED_COUNT> packets{};
    std::array<uint64_t, FEED_COUNT> lastUpdate{};
    uint64_t events = 0;
};

// ---- registers ------------------------------------------------------------------------------------------------------

void SoftwareBoard::State::Write(uint32_t index, uint32_t value) {
    ++statistics.registerWrites;
    if (BoardTables::IsPort(index)) {
        if (!tables.Write(index, value)) ++statistics.refusedTableWrites;
        return;
    }
    if (index >= REGISTER_COUNT) return;
    registers[index] = value;
    switch (index) {
        case reg::BRING_UP_START:
            if (value == 1) BringUp();
            return;
        case reg::SNAPSHOT_CONTROL:
            if (value == reg::SNAPSHOT_OPEN) return OpenSnapshot();
            isSnapshotOpen = false;
            return snapshot.Close();
        case reg::SOFTWARE_VERSION:
            registers[reg::VERSION_VERDICT] = value >= OLDEST_SOFTWARE ? VERDICT_MATCH : VERDICT_SOFTWARE_TOO_OLD;
            return;
        case reg::LOGICAL_START_2PS:
        case reg::LOGICAL_START_4PS: return StartEngine();
        default: return;
    }
}

uint64_t SoftwareBoard::State::Value(uint32_t index) const {
    if (BoardTables::IsPort(index)) return tables.Read(index);
    switch (index) {
        case reg::BUILD_DATE: return BUILD_DATE;
        case reg::BUILD_VERSION: return BUILD_VERSION;
        case reg::DNA_0: return DNA[0];
        case reg::DNA_1: return DNA[1];
        case reg::DNA_2: return DNA[2];
        case reg::HARDWARE_VERSION: return options.hardwareVersion;
        case reg::HBM2_STATUS:
            return memoryReadyAt && CClock::MonotonicNanoseconds() >= *memoryReadyAt ? reg::HBM2_READY : 0;
        case reg::SHFE_2PS_PKTS: return packets[SHFE_2PS];
        case reg::INE_2PS_PKTS: return packets[INE_2PS];
        case reg::SHFE_4PS_PKTS: return packets[SHFE_4PS];
        case reg::INE_4PS_PKTS: return packets[INE_4PS];
        case reg::EVENT_PKTS: return events;
        case reg::LAST_UPDATE_TIME:
        case reg::LAST_UPDATE_TIME + 1:
        case reg::LAST_UPDATE_TIME + 2:
        case reg::LAST_UPDATE_TIME + 3: return lastUpdate[index - reg::LAST_UPDATE_TIME];
        default: return index < REGISTER_COUNT ? registers[index] : 0;
    }
}

void SoftwareBoard::State::BringUp() {
    ++statistics.bringUps;
    isLive = false;
    isSnapshotOpen = false;
    snapshot.Close();
    tables.OpenPorts();
    for (Channel& channel : channels) {
        if (channel.ring) channel.ring->Clear();
        channel.hasOverrun = false;
    }
    registers[reg::VERSION_VERDICT] = 0;
    registers[reg::LOGICAL_START_2PS] = 0;
    registers[reg::LOGICAL_START_4PS] = 0;
    memoryReadyAt = CClock::MonotonicNanoseconds() + int64_t{options.hbm2ReadyMs} * 1'000'000;
    hasToldMemoryReady = false;
}

// The host opens the phase first and programs routes and groups afterwards; connections are made at its first poll.
void SoftwareBoard::State::OpenSnapshot() {
    isSnapshotOpen = true;
    isConnectDue = true;
}

void SoftwareBoard::State::ConnectSnapshot() {
    isConnectDue = false;
    std::vector<SnapshotService::Request> requests;
    for (uint32_t session = 0; session < reg::SESSION_COUNT; ++session) {
        const auto feed = static_cast<EMDQPDataType>(session);
        if (registers[reg::FEEDS[session].lineA.ip] == 0 || market.Instruments(feed).empty()) continue;
        const uint32_t hostIp = registers[reg::SRC_IP + reg::SESSION_STRIDE * session];
        const uint32_t port = registers[reg::SRC_PORT + reg::SESSION_STRIDE * session];
        requests.push_back({feed, hostIp == 0 ? DEFAULT_HOST_IP : hostIp,
                            static_cast<uint16_t>((port == 0 ? DEFAULT_HOST_PORT : port) + session)});
    }
    snapshot.Open(std::move(requests));
}

void SoftwareBoard::State::StartEngine() {
    if (registers[reg::LOGICAL_START_2PS] != 1 || registers[reg::LOGICAL_START_4PS] != 1) return;
    isLive = true;
    liveSince = CClock::MonotonicNanoseconds();
    updatesSinceLive = 0;
    sweepPosition = 0;
}

// ---- messages -------------------------------------------------------------------------------------------------------

void SoftwareBoard::State::PutEvent(Channel& channel, const U50Event& event) {
    if (!channel.ring) return;
    if (!channel.ring->Put(&event, sizeof event, nullptr, 0)) {
        ++statistics.overruns;
        channel.hasOverrun = true;
    }
}

void SoftwareBoard::State::PutEventToAll(uint32_t eventData0) {
    ++events;
    for (Channel& channel : channels) PutEvent(channel, {DMA_EVENT, sizeof(U50Event), eventData0, 0, 0, 0, 0, 0});
}

void SoftwareBoard::State::PutRecord(Channel& channel, const VexaShfeMdType& record) {
    const uint32_t head[] = {DMA_UDP, DMA_UDP_RECORD_OFFSET + sizeof record};
    if (channel.ring->Put(head, sizeof head, &record, sizeof record)) {
        ++statistics.delivered;
    } else {
        ++statistics.overruns;
        channel.hasOverrun = true;
    }
}

void SoftwareBoard::State::TellMemoryReady() {
    if (hasToldMemoryReady || !memoryReadyAt || CClock::MonotonicNanoseconds() < *memoryReadyAt) return;
    hasToldMemoryReady = true;
    PutEvent(channels[0], {DMA_EVENT, sizeof(U50Event), 0, 0, EVENT_MEMORY_READY, 0, 0, 0});
}

// Lets the board work until there is something for this channel, or nothing to do.
void SoftwareBoard::State::Fill(int32_t index) {
    Channel& channel = channels[static_cast<std::size_t>(index)];
    if (channel.hasOverrun && !channel.ring->IsFull()) {
        channel.hasOverrun = false;
        ++events;
        PutEvent(channel, {DMA_EVENT, sizeof(U50Event), EVENT_LOST, 0, 0, 0, 0, 0});
    }
    if (!channel.ring->IsEmpty()) return;
    if (index == 0) {
        if (!hasToldMemoryReady) TellMemoryReady();
        if (isSnapshotOpen && isConnectDue) ConnectSnapshot();
        if (isSnapshotOpen && snapshot.NextFrame(frame)) {
            const uint32_t head[] = {DMA_TCP, static_cast<uint32_t>(DMA_TCP_FRAME_OFFSET + frame.size()), 0};
            channel.ring->Put(head, sizeof head, frame.data(), static_cast<uint32_t>(frame.size()));
        }
    }
    for (int step = 0; step < LIVE_STEPS_PER_POLL && channel.ring->IsEmpty() && LiveStep(); ++step) {
    }
}

// ---- the market -----------------------------------------------------------------------------------------------------

bool SoftwareBoard::State::IsDue() {
    if (options.updatesPerSecond == 0) return true;
    const int64_t elapsed = CClock::MonotonicNanoseconds() - liveSince;
    const double due = static_cast<double>(elapsed) / NANOSECONDS_PER_SECOND * options.updatesPerSecond;
    return static_cast<double>(updatesSinceLive) < due;
}

bool SoftwareBoard::State::LiveStep() {
    if (!isLive) return false;
    if (!isFinishing && !IsDue()) return false;
    exchange::LiveUpdate update;
    if (isFinishing) {
        if (!NextOfSweep(update)) return false;
    } else {
        update = market.Next();
    }
    ++statistics.liveUpdates;
    ++updatesSinceLive;
    Note(update.feed);
    Apply(update);
    const uint64_t lossDueAt = options.faults.MomentOf(exchange::EFault::PacketLost).value_or(options.lostPacketAfter);
    if (options.faults.Has(exchange::EFault::PacketLost) && !hasLostByFault && statistics.liveUpdates >= lossDueAt) {
        hasLostByFault = true;
        LosePackets(LOST_BY_FAULT);
    }
    return true;
}

bool SoftwareBoard::State::NextOfSweep(exchange::LiveUpdate& update) {
    std::size_t position = sweepPosition;
    for (const EMDQPDataType feed : {SHFE_2PS, INE_2PS}) {
        const std::size_t count = market.Instruments(feed).size();
        if (position < count) {
            ++sweepPosition;
            update = market.Move(feed, static_cast<int32_t>(position));
            return true;
        }
        position -= count;
    }
    return false;
}

void SoftwareBoard::State::Note(EMDQPDataType feed) {
    const auto index = static_cast<std::size_t>(feed);
    ++packets[index];
    lastUpdate[index] = static_cast<uint64_t>(CClock::WallNanoseconds() / NANOSECONDS_PER_SECOND);
}

void SoftwareBoard::State::Apply(const exchange::LiveUpdate& update) {
    SInstTableType& slot = tables.Slot(update.feed, update.instNo);
    LayOver(update, slot);
    if ((slot.config & SLOT_IN_USE) == 0) return;
    const uint32_t maxInstNo = registers[reg::FEEDS[static_cast<std::size_t>(update.feed)].maxInstNo];
    const VexaShfeMdType record = RecordOf(slot, update.instNo, maxInstNo);
    for (std::size_t channel = 0; channel < channels.size(); ++channel) {
        const bool isWanted = (slot.config >> channel & 1U) != 0;
        if (isWanted && channels[channel].ring) PutRecord(channels[channel], record);
    }
}

void SoftwareBoard::State::LosePackets(uint32_t updates) {
    for (uint32_t i = 0; i < updates; ++i) Note(market.Next().feed);
    statistics.liveUpdates += updates;
    statistics.lostUpdates += updates;
    PutEventToAll(EVENT_LOST);
}

// ---- the face -------------------------------------------------------------------------------------------------------

SoftwareBoard::SoftwareBoard(const BoardOptions& options) : m_state(std::make_unique<State>(options)) {}

SoftwareBoard::~SoftwareBoard() = default;

void SoftwareBoard::Write(uint32_t index, uint32_t value) {
    if (onWrite) onWrite(index, value);
    m_state->Write(index, value);
}

uint32_t SoftwareBoard::Read(uint32_t index) { return static_cast<uint32_t>(Read64(index)); }

uint64_t SoftwareBoard::Read64(uint32_t index) {
    ++m_state->statistics.registerReads;
    // A running board takes packets also while nobody polls a stream: a host that samples its counters sees them move.
    if (index == reg::SHFE_2PS_PKTS) m_state->LiveStep();
    return m_state->Value(index);
}

bool SoftwareBoard::Receive(int32_t channel, VexaBoardMessageHandler handler, void* user) {
    State::Channel& from = m_state->channels[static_cast<std::size_t>(channel)];
    if (!from.ring) return false;
    m_state->Fill(channel);
    if (from.ring->IsEmpty()) return false;
    // The message stays in its place until the handler has returned, by whatever way.
    struct Popper {
        MessageRing& ring;
        ~Popper() { ring.PopFront(); }
    } const popper{*from.ring};
    handler(from.ring->FrontBytes(), from.ring->FrontLength(), user);
    return true;
}

void SoftwareBoard::OpenStream(int32_t channel) {
    State::Channel& opened = m_state->channels[static_cast<std::size_t>(channel)];
    opened.ring = std::make_unique<MessageRing>(m_state->options.ringMessages);
    opened.hasOverrun = false;
}

void SoftwareBoard::CloseStream(int32_t channel) { m_state->channels[static_cast<std::size_t>(channel)].ring.reset(); }

const SInstTableType& SoftwareBoard::Slot(EMDQPDataType feed, int32_t instNo) const {
    return m_state->tables.Slot(feed, instNo);
}

bool SoftwareBoard::IsPortOpen(EMDQPDataType feed) const { return m_state->tables.IsOpen(feed); }

bool SoftwareBoard::IsLive() const { return m_state->isLive; }

void SoftwareBoard::FinishAfterOneMoreOfEach() {
    m_state->isFinishing = true;
    m_state->sweepPosition = 0;
}

bool SoftwareBoard::IsDrained() const {
    const State& state = *m_state;
    const std::size_t all = state.market.Instruments(SHFE_2PS).size() + state.market.Instruments(INE_2PS).size();
    if (!state.isFinishing || !state.isLive || state.sweepPosition < all) return false;
    for (const State::Channel& channel : state.channels) {
        if (channel.ring && (!channel.ring->IsEmpty() || channel.hasOverrun)) return false;
    }
    return true;
}

void SoftwareBoard::LosePackets(uint32_t updates) { m_state->LosePackets(updates); }

void SoftwareBoard::RaiseEvent(int32_t channel, const U50Event& event) {
    ++m_state->events;
    m_state->PutEvent(m_state->channels[static_cast<std::size_t>(channel)], event);
}

exchange::Exchange& SoftwareBoard::Market() { return m_state->market; }

const BoardStatistics& SoftwareBoard::Statistics() const { return m_state->statistics; }

}  // namespace software_board
