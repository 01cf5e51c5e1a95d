// What snapshot servers send, sound and otherwise, through the snapshot's handler: filter, reassembly, decoding,
// identification, price check and the tables on the board.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>

#include "fuzz/FuzzBoard.h"
#include "fuzz/Oracle.h"
#include "fuzz/SnapshotWatch.h"
#include "src/snapshot/SnapshotFrame.h"
#include "testing/LogCapture.h"
#include "testing/ManualClock.h"

namespace fuzz {
namespace {

constexpr int32_t TOPICS[FEED_COUNT] = {1000, 1001, 5000, 5001};
constexpr std::size_t SEGMENT_BYTES = 1400;
constexpr std::size_t SEGMENT_BYTES_MAX = 1970;  // with headers and padding still a DMA message
constexpr std::size_t FIRST_SCANNED_PORT = 50000;
constexpr int32_t SCANNED_PORTS = 600;

struct World {
    World() : receiver(std::make_unique<SnapshotReceiver>()) {
        board.Open();
        receiver->state.config.snapTcpPort = {SNAP_PORT, SNAP_PORT, SNAP_PORT, SNAP_PORT};
        receiver->state.config.topicID = {TOPICS[SHFE_2PS], TOPICS[SHFE_4PS], TOPICS[INE_2PS], TOPICS[INE_4PS]};
    }

    void Configure(const Script& script) {
        U50ConfigInfo& config = receiver->state.config;
        config.enabled_mask.enabled_mask = script.options & 0x0F;
        config.shield_price_check = (script.options & OPTION_SHIELD) != 0;
        config.debug_flag = (script.options & OPTION_DEBUG) != 0;
        config.error_case = script.debugCase & 3;
        config.error_instno = (script.debugCase >> 2) & 7;
        config.error_limit_parts = script.debugCase >> 5;
        config.dma_data_flag = (script.options & OPTION_TALK) != 0;  // no capture is open: nothing is kept
        config.log_level = (script.options & OPTION_TALK) != 0 ? static_cast<ELOGLEVEL>(15) : LOG_NONE;
        CCommonLog::GetInstance().SetLogLevel(config.log_level);
        SnapshotState::WarnAgain();
        board.Clear();
    }

    SilentLog silence;
    ManualClock clock;
    Board board;
    std::unique_ptr<SnapshotReceiver> receiver;
};

/// The checksum becomes right if the headers lead to one.
void MendChecksum(std::vector<uint8_t>& message) {
    if (message.size() < DMA_TCP_FRAME_OFFSET || message.size() > DMA_MESSAGE_CAPACITY) return;
    uint8_t* frameBytes = message.data() + DMA_TCP_FRAME_OFFSET;
    SnapshotFrame frame{};
    const auto frameLength = static_cast<uint32_t>(message.size() - DMA_TCP_FRAME_OFFSET);
    if (!snapshot_frame::ReadHeaders(frameBytes, frameLength, frame) || !snapshot_frame::IsTcpCaptured(frame)) return;
    if (frame.tcpLength >= TCP_LENGTH_LIMIT) return;
    const uint16_t check = snapshot_frame::TcpChecksum(frame);
    std::memcpy(frameBytes + (frame.tcp - frameBytes) + frame_headers::TCP_CHECKSUM, &check, sizeof check);
}

class Player {
public:
    explicit Player(World& world) : m_world(world), m_watch(*world.receiver) {}

    void Play(const Script& script) {
        for (const Step& step : script.steps) {
            if (IsLoaded()) break;
            Take(step);
        }
        if ((script.options & OPTION_PLAY_OUT) != 0) {
            for (Stream& stream : m_watch.streams) PlayOut(stream);
        }
        if (IsLoaded()) RequireTablesOnBoard();
        m_watch.Clear();
    }

private:
    bool IsLoaded() const { return m_world.receiver->state.isLoaded; }

    void Take(const Step& step) {
        Stream& stream = m_watch.streams[step.stream];
        const int64_t wanted = std::max(step.number, 0);
        switch (step.kind) {
            case EStep::Open: return stream.Open(static_cast<uint32_t>(step.number));
            case EStep::Message: return stream.Add(step.block);
            case EStep::Oversized: return stream.Add(OversizedMessage(step.number));
            case EStep::Segment:
                return SendNext(stream, std::min<std::size_t>(static_cast<std::size_t>(wanted), SEGMENT_BYTES_MAX),
                                static_cast<EWrong>(step.fault));
            case EStep::Jump: return Jump(stream, step.number);
            case EStep::Raw: return SendRaw(step);
            case EStep::Scan: return Scan(stream, step);
            default: return PlayOut(stream);
        }
    }

    static std::vector<uint8_t> OversizedMessage(int32_t number) {
        const uint16_t length = static_cast<uint16_t>(std::clamp(number, 4, int32_t{UINT16_MAX}));
        std::vector<uint8_t> message(sizeof(mdqp_t) + length);
        const mdqp_t header{mdqp::FLAG_MORE, mdqp::TYPE_SNAPSHOT, length, 0};
        const field_t field{0x0201, static_cast<uint16_t>(length - sizeof(field_t))};
        std::memcpy(message.data(), &header, sizeof header);
        std::memcpy(message.data() + sizeof header, &field, sizeof field);
        return message;
    }

    static void Jump(Stream& stream, int32_t number) {
        const int64_t to = static_cast<int64_t>(stream.cursor) + number;
        stream.cursor = static_cast<std::size_t>(std::clamp<int64_t>(to, 0, static_cast<int64_t>(stream.bytes.size())));
    }

    void SendNext(Stream& stream, std::size_t length, EWrong wrong) {
        const std::size_t begin = std::min(stream.cursor, stream.bytes.size());
        const std::size_t end = std::min(begin + length, stream.bytes.size());
        m_watch.Send(stream, begin, end, wrong);
        if (wrong == EWrong::Nothing || wrong == EWrong::Padded) stream.cursor = end;
    }

    void SendRaw(const Step& step) {
        std::vector<uint8_t> message = step.block;
        if (step.fault != 0) MendChecksum(message);
        m_watch.SendStranger(message);
    }

    void Scan(const Stream& stream, const Step& step) {
        if (m_hasScanned) return;
        m_hasScanned = true;
        Stream stranger = stream;
        const std::size_t size = step.fault == 0 ? 0 : std::min(SEGMENT_BYTES, stranger.bytes.size());
        for (int32_t i = 0; i < std::min(step.number, SCANNED_PORTS) && !IsLoaded(); ++i) {
            stranger.port = static_cast<uint16_t>(FIRST_SCANNED_PORT + static_cast<std::size_t>(i));
            m_watch.SendStranger(stranger.Message(0, size, EWrong::Nothing));
        }
    }

    // As a server does: the first message alone, and none is cut in its header. Two bare segments end it.
    void PlayOut(Stream& stream) {
        while (stream.cursor < stream.bytes.size() && !IsLoaded()) {
            std::size_t length = SEGMENT_BYTES;
            if (const std::size_t first = stream.MessageAt(0); stream.cursor == 0 && first > 0) {
                length = std::min(length, first);
            }
            while (length > 1 && stream.CutsHeader(stream.cursor + length)) --length;
            SendNext(stream, length, EWrong::Nothing);
        }
        for (int i = 0; i < 2 && !IsLoaded(); ++i) SendNext(stream, 0, EWrong::Nothing);
    }

    // Slots in use as the host has them, all others empty.
    void RequireTablesOnBoard() const {
        const SnapshotState& state = m_world.receiver->state;
        const U50InstCount& counts = state.counts;
        const uint64_t used[FEED_COUNT] = {counts.shfe_inst_cnt_2ps, counts.shfe_inst_cnt_4ps, counts.ine_inst_cnt_2ps,
                                           counts.ine_inst_cnt_4ps};
        const SInstTableType* tables[FEED_COUNT] = {state.tables.shfe2psInstTable, state.tables.shfe4psInstTable,
                                                    state.tables.ine2psInstTable, state.tables.ine4psInstTable};
        for (int32_t feed = 0; feed < FEED_COUNT; ++feed) {
            const std::size_t slots = feed < INE_2PS ? SHFE_INST_CAPACITY : INE_INST_CAPACITY;
            for (std::size_t word = 0; word < slots * WORDS_PER_SLOT; ++word) {
                uint32_t expected = 0;
                if (word / WORDS_PER_SLOT < used[feed]) {
                    std::memcpy(&expected, reinterpret_cast<const uint8_t*>(tables[feed]) + word * 4, 4);
                }
                FUZZ_REQUIRE(m_world.board.TableWord(static_cast<EMDQPDataType>(feed), word) == expected);
            }
        }
    }

    World& m_world;
    SnapshotWatch m_watch;
    bool m_hasScanned = false;
};

}  // namespace
}  // namespace fuzz

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size) {
    static fuzz::World world;
    const fuzz::Script script = fuzz::ReadScript(data, size);
    world.Configure(script);
    fuzz::Player(world).Play(script);
    return 0;
}
