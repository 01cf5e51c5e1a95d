// The provider over a board that another process serves: a slow host; a board that ends, killed or in good order, and
// the next one of its bus.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sched.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstring>
#include <filesystem>
#include <initializer_list>
#include <memory>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "software_board/BoardServer.h"
#include "software_board/SharedClient.h"
#include "software_board/SoftwareBoard.h"
#include "testing/ManualClock.h"

namespace software_board {
namespace {

constexpr uint32_t UNTOUCHED = 0xDEADBEEF;
constexpr int POLLS_TO_NOTICE = 5000;
constexpr int64_t LOOK_NS = 50'000'000;

using Message = std::vector<unsigned char>;

void Keep(const unsigned char* data, unsigned int length, void* user) {
    static_cast<std::vector<Message>*>(user)->emplace_back(data, data + length);
}

/// A process that serves a board until it is killed.
class ServingProcess {
public:
    ServingProcess(uint16_t bus, const BoardOptions& options) {
        int ready[2];
        if (pipe(ready) != 0) std::abort();
        m_pid = fork();
        if (m_pid == 0) Serve(bus, options, ready[1]);
        close(ready[1]);
        char isReady = 0;
        EXPECT_EQ(read(ready[0], &isReady, 1), 1);
        close(ready[0]);
    }
    ~ServingProcess() { Kill(); }
    ServingProcess(const ServingProcess&) = delete;
    ServingProcess& operator=(const ServingProcess&) = delete;

    void Kill() {
        if (m_pid <= 0) return;
        kill(m_pid, SIGKILL);
        waitpid(m_pid, nullptr, 0);
        m_pid = 0;
    }

private:
    [[noreturn]] static void Serve(uint16_t bus, const BoardOptions& options, int ready) {
        BoardServer server;
        std::string error;
        if (!server.Open(bus, options, error) || write(ready, "r", 1) != 1) _exit(1);
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        for (uint32_t step = 0;; ++step) {
            if (!server.Step() && step % 64 == 0) sched_yield();
        }
    }
    pid_t m_pid = 0;
};

class Board : public testing::Test {
protected:
    Board() {
        std::filesystem::remove(SharedBoardPath(bus));
        options.exchange.shfeInstruments = 4;
        options.exchange.ineInstruments = 2;
        options.hbm2ReadyMs = 10;
    }
    ~Board() override {
        if (registers != nullptr) provider.close_registers(registers);
        for (VexaBoardStream* stream : {manager, reader}) {
            if (stream != nullptr) provider.close_stream(stream);
        }
        server.reset();
        std::filesystem::remove(SharedBoardPath(bus));
    }

    void Serve() { server = std::make_unique<ServingProcess>(bus, options); }
    void Open() {
        ASSERT_EQ(provider.open_registers("shared", bus, 474, &registers), 0);
        ASSERT_EQ(provider.open_stream("shared", bus, "CUSTOM_CHAN0_DATA", &manager), 0);
        ASSERT_EQ(provider.open_stream("shared", bus, "CUSTOM_CHAN3_DATA", &reader), 0);
    }
    int32_t Write(uint32_t index, uint32_t value) { return provider.write32(registers, index, value); }
    int32_t Poll(VexaBoardStream* stream) { return provider.receive(stream, Keep, &messages); }
    /// Polls until there is a message of this type.
    bool Receives(VexaBoardStream* stream, unsigned char type) {
        for (int poll = 0; poll < 300'000; ++poll) {
            messages.clear();
            if (Poll(stream) == 1 && messages.back()[0] == type) return true;
            sched_yield();
        }
        return false;
    }
    /// Polls until there is a TCP frame of this IPv4 source.
    bool ReceivesFrameFrom(VexaBoardStream* stream, const Message& source) {
        for (int frame = 0; frame < 2000; ++frame) {
            if (!Receives(stream, 2)) return false;
            const auto address = messages.back().begin() + 12 + 14 + 12;
            if (messages.back().size() > 60 && std::equal(source.begin(), source.end(), address)) return true;
        }
        return false;
    }
    /// True when a poll failed; what is still there is handed over before.
    bool Fails(VexaBoardStream* stream) {
        int empty = 0;
        while (empty < POLLS_TO_NOTICE) {
            const int32_t result = Poll(stream);
            if (result < 0) return true;
            if (result == 0) ++empty;
        }
        return false;
    }
    void ExpectLostPackets(VexaBoardStream* stream) {
        clock.Advance(LOOK_NS);
        messages.clear();
        ASSERT_EQ(Poll(stream), 1);
        unsigned char lost[32] = {0, 0, 0, 0, 32, 0, 0, 0, 0x80};  // an event, 32 bytes, bit 7 of its first word
        EXPECT_EQ(messages.back(), Message(lost, lost + sizeof lost));
        EXPECT_GE(Poll(stream), 0);
    }
    void ExpectRegistersFail() {
        uint32_t word = UNTOUCHED;
        uint64_t wide = UNTOUCHED;
        EXPECT_LT(provider.read32(registers, 0x0101, &word), 0);
        EXPECT_LT(provider.read64(registers, 0x1220, &wide), 0);
        EXPECT_EQ(word, UNTOUCHED);
        EXPECT_EQ(wide, UNTOUCHED);
        EXPECT_LT(Write(0x1001, 5), 0);
        EXPECT_LT(Write(0x11001, 5), 0);
        EXPECT_LT(Write(0x1000, 15), 0);
        EXPECT_LT(Write(0x11120, 1), 0);
        EXPECT_LT(Write(0x0010, 0), 0);
    }

    ManualClock clock;
    uint16_t bus = static_cast<uint16_t>(12'000 + getpid() % 8000);
    BoardOptions options;
    const VexaBoardProvider& provider = Provider();
    VexaBoardRegisters* registers = nullptr;
    VexaBoardStream* manager = nullptr;
    VexaBoardStream* reader = nullptr;
    std::unique_ptr<ServingProcess> server;
    std::vector<Message> messages;
};

enum class Moment { MemoryWait, Snapshot, Tables, Live };
enum class Next { IsThere, ComesLater };

/// Killed at some moment of a start; the next board is there at once, or after a gap.
class KilledBoard : public Board, public testing::WithParamInterface<std::tuple<Moment, Next>> {
protected:
    void DriveToMoment() {
        const Moment moment = std::get<0>(GetParam());
        ASSERT_EQ(Write(0x0010, 1), 0);
        if (moment == Moment::MemoryWait) return;
        ASSERT_TRUE(Receives(manager, 0));
        ASSERT_EQ(Write(0x1000, 15), 0);
        for (const auto& [index, value] : std::initializer_list<std::pair<uint32_t, uint32_t>>{
                 {0x3007, 0x0A140002}, {0x3008, 40000}, {0x11100, 0xEF032A47}, {0x11102, 34567}}) {
            ASSERT_EQ(Write(index, value), 0);
        }
        ASSERT_TRUE(Receives(manager, 2));
        if (moment == Moment::Snapshot) return;
        ASSERT_EQ(Write(0x1000, 0), 0);
        for (uint32_t slot = 0; slot < 4; ++slot) {
            ASSERT_EQ(Write(0x11001, 0x80000009), 0);  // in use, channels 0 and 3
            ASSERT_EQ(Write(0x11000, slot * 64), 0);
        }
        if (moment == Moment::Tables) return;
        ASSERT_EQ(Write(0x11120, 1), 0);
        ASSERT_EQ(Write(0x21120, 1), 0);
        ASSERT_TRUE(Receives(reader, 1));
    }
};

std::string NameOf(const testing::TestParamInfo<std::tuple<Moment, Next>>& tested) {
    static const std::string MOMENTS[] = {"MemoryWait", "Snapshot", "Tables", "Live"};
    const auto& [moment, next] = tested.param;
    return MOMENTS[static_cast<int>(moment)] + (next == Next::IsThere ? "NextIsThere" : "NextComesLater");
}

INSTANTIATE_TEST_SUITE_P(In, KilledBoard,
                         testing::Combine(testing::Values(Moment::MemoryWait, Moment::Snapshot, Moment::Tables,
                                                          Moment::Live),
                                          testing::Values(Next::IsThere, Next::ComesLater)),
                         NameOf);

TEST_P(KilledBoard, FailsItsHandlesAndTheNextOneBeginsWithABringUp) {
    Serve();
    Open();
    DriveToMoment();
    server->Kill();
    if (std::get<1>(GetParam()) == Next::ComesLater) {
        EXPECT_LT(Write(0x1000, 15), 0);  // what the board must act on is seen to fail at once
        ExpectRegistersFail();
        EXPECT_LT(Write(0x0010, 1), 0);
        EXPECT_TRUE(Fails(manager));
        for (int poll = 0; poll < 200; ++poll) ASSERT_LT(Poll(manager), 0);
    }
    Serve();
    ExpectRegistersFail();
    if (std::get<1>(GetParam()) == Next::IsThere) {
        EXPECT_TRUE(Fails(manager));
    }
    EXPECT_TRUE(Fails(reader));
    EXPECT_EQ(Write(0x0010, 1), 0);
    ExpectLostPackets(manager);
    ExpectLostPackets(reader);

    uint32_t checksum = UNTOUCHED;
    EXPECT_EQ(provider.read32(registers, 0x1001, &checksum), 0);
    EXPECT_EQ(checksum, 0U);
    SharedMapping board;
    std::string error;
    ASSERT_TRUE(board.Attach(bus, true, error)) << error;
    EXPECT_EQ(Load(board->memory.statistics.bringUps), 1U);
    EXPECT_EQ(Load(board->memory.statistics.refusedSnapshotOpens), 0U);
    EXPECT_EQ(Load(board->memory.statistics.refusedEngineStarts), 0U);
}

// The host may be kept from running for as long as the machine likes, between any two registers.
TEST_F(Board, ConnectsAFeedHoweverLateItIsProgrammed) {
    Serve();
    Open();
    SharedMapping board;
    std::string error;
    ASSERT_TRUE(board.Attach(bus, true, error)) << error;
    const auto connections = [&] { return Load(board->memory.statistics.snapshotConnections); };
    const auto letTheBoardRun = [&] {
        for (int time = 0; time < 300; ++time) ASSERT_EQ(Write(0x0010, 0), 0);  // nothing, and answered by a step
    };
    ASSERT_EQ(Write(0x0010, 1), 0);
    ASSERT_TRUE(Receives(manager, 0));
    ASSERT_EQ(Write(0x1000, 15), 0);
    letTheBoardRun();
    ASSERT_EQ(Write(0x3007, 0x0A140002), 0);
    ASSERT_EQ(Write(0x3008, 40000), 0);
    ASSERT_EQ(Write(0x11100, 0xEF032A47), 0);
    letTheBoardRun();
    EXPECT_EQ(connections(), 0U);
    ASSERT_EQ(Write(0x11102, 34567), 0);
    EXPECT_TRUE(ReceivesFrameFrom(manager, {10, 10, 1, 1}));
    ASSERT_EQ(Write(0x3027, 0x0A140002), 0);
    ASSERT_EQ(Write(0x3028, 40000), 0);
    ASSERT_EQ(Write(0x11101, 0xEF032A48), 0);
    ASSERT_EQ(Write(0x11103, 34567), 0);
    EXPECT_TRUE(ReceivesFrameFrom(manager, {10, 10, 2, 1}));
}

TEST_F(Board, ClosedInGoodOrderFailsItsHandlesAtOnce) {
    auto closing = std::make_unique<BoardServer>();
    std::string error;
    ASSERT_TRUE(closing->Open(bus, options, error)) << error;
    Open();
    ASSERT_EQ(Write(0x1001, 7), 0);
    EXPECT_EQ(Poll(manager), 0);
    closing.reset();
    ExpectRegistersFail();
    EXPECT_LT(Poll(manager), 0);
    EXPECT_LT(Poll(reader), 0);
    EXPECT_LT(Write(0x0010, 1), 0);
}

TEST_F(Board, KilledOneIsNoticedByPlainAccessesAlone) {
    Serve();
    Open();
    server->Kill();
    uint32_t word = 0;
    int accesses = 0;
    while (provider.read32(registers, 0x1001, &word) == 0 && accesses < 10'000) ++accesses;
    EXPECT_LT(accesses, POLLS_TO_NOTICE);
    ExpectRegistersFail();
}

TEST_F(Board, NextOneIsNoticedByTheVeryNextAccess) {
    Serve();
    Open();
    server->Kill();
    Serve();
    uint32_t word = UNTOUCHED;
    EXPECT_LT(provider.read32(registers, 0x1001, &word), 0);
    EXPECT_EQ(word, UNTOUCHED);
    EXPECT_STREQ(provider.last_error(),
                 "the board has ended or does not answer; registers go over to the next one with a bring-up");
    EXPECT_LT(Poll(reader), 0);
    EXPECT_STREQ(provider.last_error(),
                 "the board has ended; the stream goes over to the next one that has its channel free");
}

TEST_F(Board, FailedStreamLooksForTheNextOneNowAndThen) {
    Serve();
    Open();
    server->Kill();
    clock.step = 0;
    ASSERT_TRUE(Fails(reader));
    EXPECT_LT(Poll(reader), 0);  // looks, and finds none
    Serve();
    for (int poll = 0; poll < 100'000; ++poll) ASSERT_LT(Poll(reader), 0);
    clock.Advance(LOOK_NS - 1);
    EXPECT_LT(Poll(reader), 0);
    clock.Advance(1);
    EXPECT_EQ(Poll(reader), 1);
    EXPECT_EQ(Poll(reader), 0);
}

TEST_F(Board, StreamStaysFailedWhileAnotherHoldsItsChannel) {
    Serve();
    Open();
    server->Kill();
    Serve();
    ASSERT_TRUE(Fails(reader));
    {
        SharedStream other;
        std::string error;
        ASSERT_TRUE(other.Open(bus, 3, error)) << error;
        for (int look = 0; look < 5; ++look) {
            clock.Advance(LOOK_NS);
            EXPECT_LT(Poll(reader), 0);
        }
    }
    ExpectLostPackets(reader);
}

TEST_F(Board, FreshHandleAttachesToWhateverIsServed) {
    Serve();
    Open();
    server->Kill();
    Serve();
    provider.close_registers(registers);
    registers = nullptr;
    ASSERT_EQ(provider.open_registers("shared", bus, 474, &registers), 0);
    uint32_t version = 0;
    EXPECT_EQ(provider.read32(registers, 0x0101, &version), 0);
    EXPECT_EQ(version, 0x20260420U);
    // It may belong to a host in the middle of a start on the board before: that is refused by the board itself.
    EXPECT_EQ(Write(0x1000, 15), 0);
    EXPECT_EQ(Write(0x11120, 1), 0);
    EXPECT_EQ(Write(0x21120, 1), 0);
    SharedMapping board;
    std::string error;
    ASSERT_TRUE(board.Attach(bus, true, error)) << error;
    EXPECT_EQ(Load(board->memory.registers.phase), 0U);
    EXPECT_EQ(Load(board->memory.statistics.refusedSnapshotOpens), 1U);
    EXPECT_EQ(Load(board->memory.statistics.refusedEngineStarts), 2U);
}

}  // namespace
}  // namespace software_board
