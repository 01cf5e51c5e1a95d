// A whole start in virtual time, and a session behind it, on a board of which the input says what each register answers
// and what each poll brings. Where the input ends the board does what it should.
//
//     configuration   one byte; its highest bit asks for the polling form
//     overrides       a byte that counts them, each of a register's number, a kind of answer and a value
//     start, session  answers in turn, each part with two bytes of size before it
#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <iterator>
#include <memory>
#include <utility>
#include <vector>

#include "fuzz/Bytes.h"
#include "fuzz/FuzzBoard.h"
#include "fuzz/Oracle.h"
#include "fuzz/SnapshotFrames.h"
#include "testing/LogCapture.h"
#include "testing/ManualClock.h"
#include "testing/TemporaryDirectory.h"
#include "tests/support/TestableApi.h"

namespace fuzz {
namespace {

constexpr uint64_t CALLS_MAX = 50'000'000;
constexpr int STEPS = 300;
constexpr uint32_t FAILS_STEP = 8;
constexpr std::size_t RECORD_BYTES = 176;

#define COMMON_KEYS \
    "[config]\nwait_snap_timeout=2\ninit_tcpcnt=2\nshfe2ps=enabled\nine2ps=enabled\nSRCIP=10.20.0.2\nSRCPORT=40000\n"
constexpr const char* CONFIGURATIONS[] = {
    COMMON_KEYS "log_level=0\n[channel0]\ninsts=all\noptions=recv\n[channel3]\ninsts=cu,sc2612,none\n",
    COMMON_KEYS "log_level=15\ncrc_mux_check=1\n[channel1]\ninsts=cu2605\n",
    COMMON_KEYS "log_level=0\ndevice=xilinx0:3\n[channel0]\ninsts=all\n",
    COMMON_KEYS
    "log_level=15\nshield_price_check=1\ndebug_flag=1\nerror_case=0\nDSTMAC=01:02:03:04:05:06\n"
    "shfe2ps_ip_a=nowhere\n[channel15]\ninsts=all\n",
};
constexpr std::size_t OTHER_CHANNEL = 2;
constexpr std::size_t SKIPS_UNCHANGED = 1;

/// Registers whose answers a session acts on.
constexpr uint32_t ANSWERS[] = {0x0101, 0x0103, 0x1001, 0x1207, 0x1220, 0x1F14, 0x1F15, 0x2032, 0x2040};

struct Override {
    uint32_t index;
    uint8_t kind;
    uint32_t value;
};

class StartedApi : public TestableApi {
public:
    static void EndProcess() { m_isExit = true; }

    /// What is polled next goes to the application.
    bool IsLive() const {
        const bool isRebuilt = m_isAllInitFinished || m_u50ConfigInfo.channel_id != MANAGER_CHANNEL;
        return isRebuilt && !m_isExit && !m_isStopflag;
    }
};

class AnsweringBoard : public Board {
public:
    explicit AnsweringBoard(const std::vector<std::vector<uint8_t>>& frames) : m_frames(frames) {}

    StartedApi* api = nullptr;
    uint32_t storedChecksum = 0;
    bool isStarted = false;  ///< the engines
    uint64_t writes = 0;
    std::vector<Override> overrides;

    void Answer(const std::vector<uint8_t>& answers) {
        m_answers = answers;
        m_input = ByteReader(m_answers.data(), m_answers.size());
    }

    int32_t OpenRegisters(const char* argument, uint16_t bus, uint16_t core, VexaBoardRegisters** registers) override {
        return Fails() ? -1 : Board::OpenRegisters(argument, bus, core, registers);
    }
    int32_t OpenStream(const char* argument, uint16_t bus, const char* name, VexaBoardStream** stream) override {
        return Fails() ? -1 : Board::OpenStream(argument, bus, name, stream);
    }

    int32_t Write(uint32_t index, uint32_t value) override {
        ++writes;
        FUZZ_REQUIRE(calls < CALLS_MAX);
        if (IsTable(index)) return WriteTable(index, value);
        if (index == 0x1000) OpenSnapshot(value);
        if (index == 0x10) BeginBringUp();
        if (index == 0x11120 || index == 0x21120) StartEngine();
        if (index == 0x1001) FUZZ_REQUIRE(m_verdict == 1);
        return Fails() ? -1 : Board::Write(index, value);
    }

    int32_t Read(uint32_t index, uint64_t& value) override {
        FUZZ_REQUIRE(calls < CALLS_MAX);
        Board::Read(index, value);
        if (IsTable(index)) {
            value ^= m_lie;
            return 0;
        }
        value = RightAnswer(index, value);
        int32_t result = Disturb(m_input.Take<uint8_t>(), m_input, value);
        for (const Override& wanted : overrides) {
            ByteReader bytes(reinterpret_cast<const uint8_t*>(&wanted.value), sizeof wanted.value);
            if (wanted.index == index) result = Disturb(wanted.kind, bytes, value);
        }
        if (index == 0x103) m_verdict = result == 0 ? static_cast<uint32_t>(value) : 0;
        if (index == 0x101) m_hardware = result == 0 ? static_cast<uint32_t>(value) : 0;
        return result;
    }

    int32_t Receive(VexaBoardStream*, VexaBoardMessageHandler handler, void* user) override {
        FUZZ_REQUIRE(calls < CALLS_MAX);
        lastRecord.clear();
        if (m_failsLeft > 0) {
            --m_failsLeft;
            return -1;
        }
        const uint8_t kind = m_input.Take<uint8_t>() & 15;
        switch (kind) {
            case 1: m_failsLeft = m_input.Take<uint8_t>() * FAILS_STEP; return -1;
            case 2: return HandBlock(DMA_EVENT, sizeof(U50Event) - 8, handler, user);
            case 3: return HandRaw(handler, user);
            case 4: return 0;
            case 5: api->VexaStop(); return 0;
            case 6: StartedApi::EndProcess(); return 0;
            case 7: m_nextFrame = 0; return 0;
            case 8: return HandBlock(DMA_UDP, RECORD_BYTES, handler, user);
            case 9: m_lie = m_input.Take<uint32_t>(); return 0;
            default: return HandNext(handler, user);
        }
    }

    std::vector<uint8_t> lastRecord;  ///< that the last poll handed over

private:
    bool IsTable(uint32_t index) const { return ((index & 0xFFFF0) == 0x11000 || (index & 0xFFFF0) == 0x21000); }

    int32_t WriteTable(uint32_t index, uint32_t value) {
        const bool isAddress = (index & 3) == 0;
        const auto feed = static_cast<EMDQPDataType>(((index & 4) != 0 ? 2 : 0) + (index >= 0x21000 ? 1 : 0));
        // A closed table is the engines' alone until the next bring-up.
        FUZZ_REQUIRE(!isAddress || !IsTableClosed(feed));
        return Board::Write(index, value);
    }

    void BeginBringUp() {
        ReopenTables();
        isStarted = false;
        m_verdict = m_hardware = 0;
    }

    void OpenSnapshot(uint32_t value) {
        m_isSnapshotOpen = value == 15;
        m_nextFrame = 0;
    }

    // The last thing of all: versions agree, the snapshot is over, the tables are closed.
    void StartEngine() {
        FUZZ_REQUIRE(m_verdict == 1 && m_hardware >= 0x20260420);
        FUZZ_REQUIRE(!m_isSnapshotOpen);
        for (const EMDQPDataType feed : {SHFE_2PS, SHFE_4PS, INE_2PS, INE_4PS}) FUZZ_REQUIRE(IsTableClosed(feed));
        isStarted = true;
    }

    uint64_t RightAnswer(uint32_t index, uint64_t value) {
        switch (index) {
            case 0x2032: return 3;          // the memory is ready
            case 0x101: return 0x20260420;  // the hardware's version
            case 0x103: return 1;           // the versions agree
            case 0x1001: return storedChecksum;
            case 0x1220: return ++m_packets;
            default: return value;
        }
    }

    static int32_t Disturb(uint8_t kind, ByteReader& input, uint64_t& value) {
        switch (kind & 7) {
            case 4: value = UINT64_MAX; return 0;
            case 5: value = input.Take<uint32_t>(); return 0;
            case 6: return -1;
            case 7: value = 0; return 0;
            default: return 0;
        }
    }

    bool Fails() { return (m_input.Take<uint8_t>() & 7) == 6; }

    int32_t HandNext(VexaBoardMessageHandler handler, void* user) {
        if (!m_isSnapshotOpen || m_nextFrame == m_frames.size()) return 0;
        Hand(m_frames[m_nextFrame++], handler, user);
        return 1;
    }

    int32_t HandBlock(uint32_t type, std::size_t size, VexaBoardMessageHandler handler, void* user) {
        std::vector<uint8_t> message;
        Put(message, type);
        Put(message, static_cast<uint32_t>(size));
        std::vector<uint8_t> body = m_input.TakeBlock(size);
        body.resize(size);
        message.insert(message.end(), body.begin(), body.end());
        if (type == DMA_UDP) lastRecord = body;
        Hand(message, handler, user);
        return 1;
    }

    int32_t HandRaw(VexaBoardMessageHandler handler, void* user) {
        std::vector<uint8_t> message = m_input.TakeBlock(m_input.Take<uint8_t>());
        message.resize(std::max<std::size_t>(message.size(), 4));
        if (message[0] == DMA_UDP) message[0] = DMA_TCP;  // updates come whole
        Hand(message, handler, user);
        return 1;
    }

    const std::vector<std::vector<uint8_t>>& m_frames;
    std::vector<uint8_t> m_answers;
    ByteReader m_input{nullptr, 0};
    std::size_t m_nextFrame = 0;
    bool m_isSnapshotOpen = false;
    uint32_t m_failsLeft = 0;
    uint32_t m_verdict = 0;
    uint32_t m_hardware = 0;
    uint32_t m_lie = 0;
    uint64_t m_packets = 0;
};

struct Application : CVexaShfeMdSpi {
    void OnVexaShfeMd(VexaShfeMdType& md) override {
        std::memcpy(&record, &md, sizeof record);
        ++records;
    }
    int32_t Start(CVexaShfeMdApi& api, const char* path) {
        return isPolling ? api.VexaStart(path) : api.VexaStart(*this, path);
    }
    int32_t Step(CVexaShfeMdApi& api) {
        if (!isPolling) return api.VexaRecv();
        const int32_t result = api.VexaRecv(record);
        if (result == 1) ++records;
        return result;
    }

    bool isPolling = false;
    VexaShfeMdType record{};
    uint64_t records = 0;
};

/// What lasts from input to input.
struct Place {
    Place() {
        TestableApi::s_indexDirectory = directory.Path();
        for (std::size_t i = 0; i < std::size(CONFIGURATIONS); ++i) files[i].Write(CONFIGURATIONS[i]);
        const auto api = MakeApi();
        api->m_configFileName.UnSafeCopyFrom(files[SKIPS_UNCHANGED].Path().c_str());
        FUZZ_REQUIRE(api->_GetConfigCrc(checksum) == 0);
    }

    SilentLog silence;
    TemporaryDirectory directory;
    std::array<TemporaryFile, std::size(CONFIGURATIONS)> files;
    uint32_t checksum = 0;
    std::vector<std::vector<uint8_t>> frames = SnapshotFrames();
};

void RequireStart(int32_t result, std::size_t configuration, const TestableApi& api, const AnsweringBoard& board) {
    FUZZ_REQUIRE(result == 0 || result == -2);
    FUZZ_REQUIRE(board.openRegisters == board.openStreams);
    if (configuration == OTHER_CHANNEL) {
        FUZZ_REQUIRE(board.writes == 0);
    } else {
        FUZZ_REQUIRE((result == 0) == api.m_isAllInitFinished);
        const bool isLeftAlone = result == 0 && board.writes == 0;
        FUZZ_REQUIRE((result == 0) == (board.isStarted || isLeftAlone));
    }
}

/// A record is delivered exactly when a step says so, and it is the board's; in a live session none is left out.
void Receive(StartedApi& api, AnsweringBoard& board, Application& application) {
    for (int i = 0; i < STEPS; ++i) {
        const bool isLive = api.IsLive();
        const uint64_t before = application.records;
        board.lastRecord.clear();
        const int32_t result = application.Step(api);
        FUZZ_REQUIRE(application.records - before == (result == 1 ? 1 : 0));
        if (result == 1) {
            FUZZ_REQUIRE(board.lastRecord.size() == RECORD_BYTES);
            FUZZ_REQUIRE(std::memcmp(&application.record, board.lastRecord.data(), RECORD_BYTES) == 0);
        }
        if (isLive && !board.lastRecord.empty()) FUZZ_REQUIRE(result == 1);
        if (result == -1) return;
    }
}

void Run(Place& place, ByteReader input) {
    Application application;
    const auto first = input.Take<uint8_t>();
    application.isPolling = (first & 0x80) != 0;
    const std::size_t configuration = first % std::size(CONFIGURATIONS);
    std::vector<Override> overrides;
    for (auto left = input.Take<uint8_t>() & 7; left > 0; --left) {
        const uint32_t index = ANSWERS[input.Take<uint8_t>() % std::size(ANSWERS)];
        const auto kind = input.Take<uint8_t>();
        overrides.push_back({index, kind, input.Take<uint32_t>()});
    }
    const std::vector<uint8_t> start = input.TakeBlock(input.Take<uint16_t>());
    const std::vector<uint8_t> session = input.TakeBlock(input.Take<uint16_t>());
    ManualClock clock;
    clock.step = 5'000'000;
    AnsweringBoard board(place.frames);
    board.storedChecksum = configuration == SKIPS_UNCHANGED ? place.checksum : 0;
    board.overrides = std::move(overrides);
    auto api = std::make_unique<StartedApi>();
    board.api = api.get();
    board.Answer(start);
    const int32_t result = application.Start(*api, place.files[configuration].Path().c_str());
    RequireStart(result, configuration, *api, board);
    board.Answer(session);
    Receive(*api, board, application);
    api->VexaStop();
    board.Answer({});
    FUZZ_REQUIRE(application.Step(*api) == -1);
    FUZZ_REQUIRE(api->m_reassembly.EarlySegments() == 0 && api->m_reassembly.CarryOverBuffers() == 0);
    api.reset();
    FUZZ_REQUIRE(board.openRegisters == 0 && board.openStreams == 0);
}

}  // namespace
}  // namespace fuzz

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size) {
    static fuzz::Place place;
    fuzz::Run(place, fuzz::ByteReader(data, size));
    return 0;
}
