#include "software_board/SoftwareBoard.h"

#include <array>
#include <optional>

#include "common/RegisterMap.h"
#include "software_board/BoardEngine.h"
#include "software_board/BoardTables.h"
#include "software_board/DmaRing.h"
#include "software_board/MappedMemory.h"
#include "software_board/RegisterFile.h"

namespace software_board {

namespace {
constexpr int LIVE_STEPS_PER_POLL = 64;
constexpr uint64_t THIS_PROCESS = 1;  // any holder will do where there is no other process
}  // namespace

struct SoftwareBoard::State {
    explicit State(const BoardOptions& options) : engine(options, *memory) {}

    /// What was on its way to the host before a bring-up never arrives.
    void DiscardMessages() {
        for (auto& stream : streams) {
            if (stream) stream->Discard();
        }
    }

    /// Lets the board work until there is something for this channel, or nothing to do.
    void Fill(int32_t channel, RingConsumer& stream) {
        engine.TellOverrun(channel);
        if (!stream.IsEmpty()) return;
        if (channel == 0) {
            engine.TellMemoryReady();
            engine.SnapshotStep();
        }
        for (int step = 0; step < LIVE_STEPS_PER_POLL && stream.IsEmpty() && engine.LiveStep(); ++step) {
        }
    }

    MappedMemory<BoardMemory> memory;
    BoardEngine engine;
    std::array<std::optional<RingConsumer>, CHANNEL_SIZE> streams;
};

SoftwareBoard::SoftwareBoard(const BoardOptions& options) : m_state(std::make_unique<State>(options)) {}

SoftwareBoard::~SoftwareBoard() = default;

void SoftwareBoard::Write(uint32_t index, uint32_t value) {
    if (onWrite) onWrite(index, value);
    if (!WriteRegister(*m_state->memory, index, value)) return;
    m_state->engine.Execute(index, value);
    if (index == reg::BRING_UP_START && value == START_VALUE) m_state->DiscardMessages();
}

uint32_t SoftwareBoard::Read(uint32_t index) { return static_cast<uint32_t>(Read64(index)); }

uint64_t SoftwareBoard::Read64(uint32_t index) {
    Add(m_state->memory->statistics.registerReads, uint64_t{1});
    if (index == reg::HBM2_STATUS) m_state->engine.TellMemoryReady();
    // A running board takes packets also while nobody polls a stream: a host that samples its counters sees them move.
    if (index == reg::SHFE_2PS_PKTS) m_state->engine.LiveStep();
    return ReadRegister(*m_state->memory, index);
}

bool SoftwareBoard::Receive(int32_t channel, VexaBoardMessageHandler handler, void* user) {
    std::optional<RingConsumer>& stream = m_state->streams[static_cast<std::size_t>(channel)];
    if (!stream) return false;
    m_state->Fill(channel, *stream);
    return stream->HandOver(handler, user);
}

void SoftwareBoard::OpenStream(int32_t channel) {
    ChannelMemory& memory = m_state->memory->channels[channel];
    Store(memory.holder, THIS_PROCESS);
    Store(memory.hasOverrun, 0U);
    m_state->streams[static_cast<std::size_t>(channel)].emplace(memory.ring, m_state->engine.RingLineCount()).Discard();
}

void SoftwareBoard::CloseStream(int32_t channel) {
    Store(m_state->memory->channels[channel].holder, uint64_t{0});
    m_state->streams[static_cast<std::size_t>(channel)].reset();
}

const SInstTableType& SoftwareBoard::Slot(EMDQPDataType feed, int32_t instNo) const {
    return board_tables::Slot(*m_state->memory, feed, instNo);
}

bool SoftwareBoard::IsPortOpen(EMDQPDataType feed) const { return board_tables::IsOpen(*m_state->memory, feed); }

bool SoftwareBoard::IsLive() const { return m_state->engine.IsLive(); }

void SoftwareBoard::FinishAfterOneMoreOfEach() { m_state->engine.FinishAfterOneMoreOfEach(); }

bool SoftwareBoard::IsDrained() const {
    if (!m_state->engine.HasFinished()) return false;
    for (int32_t channel = 0; channel < CHANNEL_SIZE; ++channel) {
        if (HasMessageFor(channel)) return false;
    }
    return true;
}

bool SoftwareBoard::HasMessageFor(int32_t channel) const {
    std::optional<RingConsumer>& stream = m_state->streams[static_cast<std::size_t>(channel)];
    return stream && (!stream->IsEmpty() || Load(m_state->memory->channels[channel].hasOverrun) != 0);
}

void SoftwareBoard::LosePackets(uint32_t updates) { m_state->engine.LosePackets(updates); }

void SoftwareBoard::RaiseEvent(int32_t channel, const U50Event& event) {
    Add(m_state->memory->registers.events, uint64_t{1});
    m_state->engine.PutEvent(channel, event);
}

void SoftwareBoard::SetLastUpdate(EMDQPDataType feed, uint64_t seconds) {
    Store(m_state->memory->registers.lastUpdate[static_cast<std::size_t>(feed)], seconds);
}

bool SoftwareBoard::Inject(std::string_view names, std::string& error) { return m_state->engine.Inject(names, error); }

void SoftwareBoard::ClearFaults() { m_state->engine.ClearFaults(); }

const BoardMemory& SoftwareBoard::Memory() const { return *m_state->memory; }

exchange::Exchange& SoftwareBoard::Market() { return m_state->engine.Market(); }

const BoardStatistics& SoftwareBoard::Statistics() const { return m_state->memory->statistics; }

}  // namespace software_board
