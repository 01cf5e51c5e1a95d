#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <utility>
#include <vector>

#include "common/Feed.h"
#include "common/RegisterMap.h"
#include "software_board/SoftwareBoard.h"
#include "testing/ManualClock.h"

using software_board::BoardOptions;
using testing::HasSubstr;
using testing::IsEmpty;

namespace {

using Message = std::vector<uint8_t>;

void Collect(const unsigned char* data, unsigned int length, void* user) {
    static_cast<std::vector<Message>*>(user)->emplace_back(data, data + length);
}

class SoftwareBoard : public testing::Test {
protected:
    explicit SoftwareBoard(const BoardOptions& options = {}) : board(options) { board.OpenStream(0); }

    std::vector<Message> Poll(int times, int32_t channel = 0) {
        std::vector<Message> messages;
        for (int i = 0; i < times; ++i) board.Receive(channel, Collect, &messages);
        return messages;
    }
    static uint32_t TypeOf(const Message& message) {
        uint32_t type = 0;
        std::memcpy(&type, message.data(), sizeof type);
        return type;
    }
    static int Count(const std::vector<Message>& messages, uint32_t type) {
        return static_cast<int>(
            std::count_if(messages.begin(), messages.end(), [=](const Message& one) { return TypeOf(one) == type; }));
    }
    void WriteWord(const reg::TableRegisters& port, uint32_t word, uint32_t value) {
        board.Write(port.writeData, value);
        board.Write(port.writeAddr, word);
    }
    uint32_t ReadWord(const reg::TableRegisters& port, uint32_t word) {
        board.Write(port.readAddr, word);
        return board.Read(port.readData);
    }
    /// As the host would after a snapshot, for every instrument; `config` is the control word.
    void FillTables(uint32_t config) {
        for (const EMDQPDataType feed : {SHFE_2PS, INE_2PS}) {
            for (const exchange::Instrument& instrument : board.Market().Instruments(feed)) {
                Fill(feed, instrument.instNo, config);
            }
        }
    }
    void Fill(EMDQPDataType feed, int32_t instNo, uint32_t config) {
        const VexaShfeMdType& truth = board.Market().Truth(feed, instNo);
        SInstTableType slot{};
        slot.config = config;
        std::memcpy(slot.inst_id, truth.inst_id, sizeof slot.inst_id);
        slot.last_price = truth.last_px;
        slot.volume = truth.volume;
        slot.turnover = static_cast<uint64_t>(truth.turnover);
        slot.open_interest = static_cast<uint64_t>(truth.open_interest);
        slot.high_price = truth.high_price;
        slot.low_price = truth.low_price;
        uint32_t words[WORDS_PER_SLOT];
        std::memcpy(words, &slot, sizeof words);
        for (uint32_t word = 0; word < WORDS_PER_SLOT; ++word) {
            WriteWord(TraitsOf(feed).registers.table, static_cast<uint32_t>(instNo) * WORDS_PER_SLOT + word,
                      words[word]);
        }
    }
    /// As the host does it, without a group, so that no snapshot is sent.
    void BringUp() {
        board.Write(0x0010, 1);
        board.Write(0x1000, 15);
        board.Write(0x1000, 0);
    }
    void Start() {
        board.Write(0x11120, 1);
        board.Write(0x21120, 1);
    }
    /// A snapshot session's source address and port.
    void WriteSession(uint32_t session) {
        board.Write(0x3007 + 16 * session, 0x0A140002);
        board.Write(0x3008 + 16 * session, 40000);
    }
    /// Line A of SHFE 2ps, whose session is the first.
    void WriteShfeGroup(uint32_t ip = 0xEF032A47) {
        board.Write(0x11100, ip);
        board.Write(0x11102, 34567);
    }
    void WriteIneGroup() {
        board.Write(0x11101, 0xEF032A48);
        board.Write(0x11103, 34567);
    }
    void OpenSnapshot() {
        board.Write(0x0010, 1);
        board.Write(0x1000, 15);
    }
    uint64_t Connections() const { return board.Statistics().snapshotConnections; }
    ManualClock clock;
    software_board::SoftwareBoard board;
};

const reg::TableRegisters& TABLE = TraitsOf(INE_4PS).registers.table;

TEST_F(SoftwareBoard, PlainRegistersKeepWhatWasWritten) {
    board.Write(reg::TARGET_ROUTE, 7);
    EXPECT_EQ(board.Read(reg::TARGET_ROUTE), 7U);
    EXPECT_EQ(board.Read(0xFFFFFFFF), 0U);
}

TEST_F(SoftwareBoard, HardwareVersionIsIndependentOfWhatIsWrittenThere) {
    board.Write(reg::EVENT_MODEL_SEL, 1);
    EXPECT_EQ(board.Read(reg::HARDWARE_VERSION), 0x20260420U);
}

TEST_F(SoftwareBoard, VerdictFollowsTheVersionWritten) {
    EXPECT_EQ(board.Read(reg::VERSION_VERDICT), 0U);
    board.Write(reg::SOFTWARE_VERSION, 0x01010133);
    EXPECT_EQ(board.Read(reg::VERSION_VERDICT), 1U);
    board.Write(reg::SOFTWARE_VERSION, 0x01010132);
    EXPECT_EQ(board.Read(reg::VERSION_VERDICT), 2U);
    board.Write(reg::BRING_UP_START, 1);
    EXPECT_EQ(board.Read(reg::VERSION_VERDICT), 0U);
}

TEST_F(SoftwareBoard, MemoryBecomesReadyAWhileAfterTheBringUp) {
    EXPECT_EQ(board.Read(reg::HBM2_STATUS), 0U);
    board.Write(reg::BRING_UP_START, 1);
    EXPECT_EQ(board.Read(reg::HBM2_STATUS), 0U);
    clock.Advance(500'000'000);
    EXPECT_EQ(board.Read(reg::HBM2_STATUS), 3U);
    EXPECT_EQ(Count(Poll(2), DMA_EVENT), 1);
}

TEST_F(SoftwareBoard, TableWordsAreWrittenAndReadInTwoSteps) {
    board.Write(reg::BRING_UP_START, 1);
    WriteWord(TABLE, 65, 0xABCD);
    EXPECT_EQ(ReadWord(TABLE, 65), 0xABCDU);
    EXPECT_EQ(board.Slot(INE_4PS, 1).price_tick, 0xABCD);
    EXPECT_EQ(ReadWord(TraitsOf(INE_2PS).registers.table, 65), 0U);
}

TEST_F(SoftwareBoard, WordsBeyondTheTableAreIgnored) {
    board.Write(reg::BRING_UP_START, 1);
    WriteWord(TABLE, 4096 * 64, 1);
    WriteWord(TABLE, 0xFFFFFFFE, 1);
    EXPECT_EQ(ReadWord(TABLE, 4096 * 64), 0U);
    EXPECT_EQ(board.Statistics().refusedTableWrites, 0U);
}

TEST_F(SoftwareBoard, ClosedPortRefusesAndOnlyABringUpOpensIt) {
    board.Write(reg::BRING_UP_START, 1);
    WriteWord(TABLE, reg::PORT_CLOSE_ADDRESS, reg::PORT_CLOSE_DATA);
    EXPECT_FALSE(board.IsPortOpen(INE_4PS));
    EXPECT_TRUE(board.IsPortOpen(INE_2PS));
    WriteWord(TABLE, 0, 5);
    EXPECT_EQ(ReadWord(TABLE, 0), 0U);
    EXPECT_EQ(board.Statistics().refusedTableWrites, 1U);
    board.Write(reg::BRING_UP_START, 0);
    EXPECT_FALSE(board.IsPortOpen(INE_4PS));
    board.Write(reg::BRING_UP_START, 1);
    EXPECT_TRUE(board.IsPortOpen(INE_4PS));
}

TEST_F(SoftwareBoard, SnapshotPhaseSendsFramesOfTheFeedsWithAGroup) {
    OpenSnapshot();
    WriteSession(0);
    WriteShfeGroup();
    EXPECT_EQ(Count(Poll(50), DMA_TCP), 50);
    EXPECT_EQ(Connections(), 1U);
    board.Write(0x1000, 0);
    EXPECT_THAT(Poll(10), IsEmpty());
}

// However slow the host is: any of the four may be the last, and nothing is sent before it.
TEST_F(SoftwareBoard, FeedConnectsOnceAllThatItNeedsIsWritten) {
    const std::pair<uint32_t, uint32_t> needed[] = {
        {0x3027, 0x0A140002}, {0x3028, 40000}, {0x11101, 0xEF032A48}, {0x11103, 34567}};  // INE 2ps
    uint64_t connections = 0;
    for (const auto& last : needed) {
        OpenSnapshot();
        for (const auto& [index, value] : needed) {
            if (index != last.first) board.Write(index, value);
        }
        clock.Advance(60'000'000'000);
        EXPECT_EQ(Count(Poll(20), DMA_TCP), 0) << std::hex << last.first;
        EXPECT_EQ(Connections(), connections);
        board.Write(last.first, last.second);
        EXPECT_EQ(Count(Poll(20), DMA_TCP), 20) << std::hex << last.first;
        EXPECT_EQ(Connections(), ++connections);
    }
}

TEST_F(SoftwareBoard, LateFeedKeepsNoOtherWaitingAndConnectsToo) {
    OpenSnapshot();
    for (uint32_t session = 0; session < 4; ++session) WriteSession(session);
    WriteShfeGroup();
    EXPECT_EQ(Count(Poll(20), DMA_TCP), 20);
    EXPECT_EQ(Connections(), 1U);
    clock.Advance(60'000'000'000);
    Poll(1);  // the memory is ready
    WriteIneGroup();
    EXPECT_EQ(Count(Poll(20), DMA_TCP), 20);
    EXPECT_EQ(Connections(), 2U);
}

TEST_F(SoftwareBoard, FeedWithoutAGroupIsNotConnected) {
    OpenSnapshot();
    WriteSession(0);
    WriteShfeGroup(0);
    EXPECT_THAT(Poll(20), IsEmpty());
    WriteShfeGroup();
    EXPECT_EQ(Count(Poll(20), DMA_TCP), 20);
}

TEST_F(SoftwareBoard, WhatAnEarlierAttemptWroteDoesNotCount) {
    WriteSession(0);
    WriteShfeGroup();
    OpenSnapshot();
    EXPECT_THAT(Poll(20), IsEmpty());
    WriteSession(0);
    WriteShfeGroup();
    EXPECT_EQ(Count(Poll(20), DMA_TCP), 20);
    OpenSnapshot();
    Poll(20);
    EXPECT_EQ(Connections(), 1U);
    WriteSession(0);
    EXPECT_THAT(Poll(20), IsEmpty());
    WriteShfeGroup();
    EXPECT_EQ(Count(Poll(20), DMA_TCP), 20);
    EXPECT_EQ(Connections(), 2U);
}

TEST_F(SoftwareBoard, SnapshotBeginsAgainWhereTheHostKeepsThePhaseOpen) {
    OpenSnapshot();
    WriteSession(2);
    WriteIneGroup();
    Poll(3000);
    EXPECT_GT(Connections(), 1U);
}

TEST_F(SoftwareBoard, SnapshotIsNotOpenedBeforeTheFirstBringUp) {
    board.Write(0x1000, 15);
    WriteSession(0);
    WriteShfeGroup();
    EXPECT_THAT(Poll(20), IsEmpty());
    EXPECT_EQ(board.Read(0x1000), 0U);
    EXPECT_EQ(board.Statistics().refusedSnapshotOpens, 1U);
    EXPECT_EQ(board.Statistics().refusedEngineStarts, 0U);
    OpenSnapshot();
    WriteSession(0);
    WriteShfeGroup();
    EXPECT_EQ(Count(Poll(20), DMA_TCP), 20);
    EXPECT_EQ(board.Statistics().refusedSnapshotOpens, 1U);
}

TEST_F(SoftwareBoard, EnginesStartOnlyBehindABringUpAndASnapshotPhase) {
    const auto expectRefused = [this](uint64_t starts) {
        Start();
        EXPECT_FALSE(board.IsLive());
        EXPECT_EQ(board.Read(0x11120), 0U);
        EXPECT_EQ(board.Read(0x21120), 0U);
        EXPECT_EQ(board.Statistics().refusedEngineStarts, starts);
    };
    expectRefused(2);
    board.Write(0x0010, 1);
    expectRefused(4);
    board.Write(0x1000, 15);
    expectRefused(6);
    board.Write(0x1000, 0);
    board.Write(0x21120, 1);
    EXPECT_FALSE(board.IsLive());
    board.Write(0x11120, 1);
    EXPECT_TRUE(board.IsLive());
    EXPECT_EQ(board.Statistics().refusedEngineStarts, 6U);
}

// A running object that is started a second time writes them again, without a bring-up.
TEST_F(SoftwareBoard, RunningEnginesMayBeStartedAgain) {
    BringUp();
    Start();
    Start();
    EXPECT_TRUE(board.IsLive());
    EXPECT_EQ(board.Statistics().refusedEngineStarts, 0U);
    board.Write(0x0010, 1);
    Start();
    EXPECT_FALSE(board.IsLive());
    EXPECT_EQ(board.Statistics().refusedEngineStarts, 2U);
}

TEST_F(SoftwareBoard, NothingIsLiveBeforeBothEnginesRun) {
    BringUp();
    FillTables(SLOT_IN_USE | 1U);
    board.Write(reg::LOGICAL_START_2PS, 1);
    EXPECT_EQ(Count(Poll(10), DMA_UDP), 0);
    board.Write(reg::LOGICAL_START_4PS, 1);
    EXPECT_EQ(Count(Poll(10), DMA_UDP), 10);
}

TEST_F(SoftwareBoard, RecordsGoToTheChannelsThatSubscribed) {
    board.OpenStream(3);
    BringUp();
    FillTables(SLOT_IN_USE | 1U << 3);
    Start();
    EXPECT_EQ(Count(Poll(10, 0), DMA_UDP), 0);
    EXPECT_GT(Count(Poll(10, 3), DMA_UDP), 0);
}

TEST_F(SoftwareBoard, UnusedSlotsAreNotDelivered) {
    BringUp();
    FillTables(1U);
    Start();
    EXPECT_EQ(Count(Poll(100), DMA_UDP), 0);
    EXPECT_GT(board.Statistics().liveUpdates, 0U);
}

TEST_F(SoftwareBoard, EveryRecordEqualsTheTruthOnceAllHaveMoved) {
    BringUp();
    FillTables(SLOT_IN_USE | 1U);
    Start();
    board.FinishAfterOneMoreOfEach();
    for (const Message& message : Poll(2000)) {
        if (TypeOf(message) != DMA_UDP) continue;
        ASSERT_EQ(message.size(), DMA_UDP_RECORD_OFFSET + sizeof(VexaShfeMdType));
        VexaShfeMdType record;
        std::memcpy(&record, message.data() + DMA_UDP_RECORD_OFFSET, sizeof record);
        const EMDQPDataType feed =
            std::strcmp(record.inst_id, board.Market().Truth(SHFE_2PS, static_cast<int32_t>(record.inst_no)).inst_id) ==
                    0
                ? SHFE_2PS
                : INE_2PS;
        const VexaShfeMdType& truth = board.Market().Truth(feed, static_cast<int32_t>(record.inst_no));
        EXPECT_EQ(record.change_no, truth.change_no);
        EXPECT_EQ(record.last_px, truth.last_px);
    }
    EXPECT_TRUE(board.IsDrained());
}

TEST_F(SoftwareBoard, LostPacketsAreToldAndCounted) {
    board.LosePackets(5);
    const auto messages = Poll(1);
    ASSERT_EQ(Count(messages, DMA_EVENT), 1);
    EXPECT_EQ(messages[0][8], 0x80);
    EXPECT_EQ(board.Statistics().lostUpdates, 5U);
    EXPECT_EQ(board.Read64(reg::EVENT_PKTS), 1U);
}

TEST_F(SoftwareBoard, CountersMoveWhileTheEnginesRun) {
    BringUp();
    Start();
    const uint64_t first = board.Read64(reg::SHFE_2PS_PKTS) + board.Read64(reg::INE_2PS_PKTS);
    for (int i = 0; i < 4; ++i) board.Read64(reg::SHFE_2PS_PKTS);
    EXPECT_GT(board.Read64(reg::SHFE_2PS_PKTS) + board.Read64(reg::INE_2PS_PKTS), first);
}

TEST_F(SoftwareBoard, ClearedFaultsLetAQuietMarketAndFullRingsMoveAtOnce) {
    BringUp();
    FillTables(SLOT_IN_USE | 1U);
    Start();
    Poll(5);
    std::string error;
    ASSERT_TRUE(board.Inject("timeout,ring-overflow", error)) << error;
    EXPECT_EQ(Count(Poll(100), DMA_UDP), 0);
    board.ClearFaults();
    EXPECT_EQ(Count(Poll(10), DMA_UDP), 10);
    EXPECT_EQ(board.Statistics().overruns, 0U);
}

class SmallRing : public SoftwareBoard {
protected:
    static BoardOptions Options() {
        BoardOptions options;
        options.ringMessages = 4;
        return options;
    }
    SmallRing() : SoftwareBoard(Options()) {}
};

TEST_F(SmallRing, OverrunDropsCountsAndIsToldOnceThereIsRoom) {
    for (int i = 0; i < 6; ++i) board.RaiseEvent(0, {DMA_EVENT, 32, 0, 0, 0, 1, 0, 0});
    EXPECT_EQ(board.Statistics().overruns, 2U);
    const auto messages = Poll(10);
    ASSERT_EQ(messages.size(), 5U);
    EXPECT_EQ(messages.back()[8], 0x80);
}

class PacedBoard : public SoftwareBoard {
protected:
    static BoardOptions Options() {
        BoardOptions options;
        options.updatesPerSecond = 10;
        return options;
    }
    PacedBoard() : SoftwareBoard(Options()) {}
};

TEST_F(PacedBoard, UpdatesFollowTheClock) {
    clock.step = 0;
    BringUp();
    FillTables(SLOT_IN_USE | 1U);
    Start();
    EXPECT_EQ(Count(Poll(50), DMA_UDP), 0);
    clock.Advance(1'000'000'000);
    EXPECT_EQ(Count(Poll(50), DMA_UDP), 10);
}

TEST(SoftwareBoardProvider, ChecksumSurvivesTheHandles) {
    ManualClock clock;
    const VexaBoardProvider& provider = software_board::Provider();
    VexaBoardRegisters* registers = nullptr;
    ASSERT_EQ(provider.open_registers("seed=3", 5, 474, &registers), 0);
    provider.write32(registers, reg::CONFIG_CHECKSUM, 0xC0FFEE);
    provider.close_registers(registers);
    ASSERT_EQ(provider.open_registers("seed=3", 5, 474, &registers), 0);
    uint32_t value = 0;
    provider.read32(registers, reg::CONFIG_CHECKSUM, &value);
    provider.close_registers(registers);
    EXPECT_EQ(value, 0xC0FFEEU);
}

/// Polls until `polls` have gone by; the frames that came.
int FramesOf(const VexaBoardProvider& provider, VexaBoardStream* stream, int polls) {
    int frames = 0;
    const auto count = [](const unsigned char* data, unsigned int, void* user) {
        if (data[0] == DMA_TCP) ++*static_cast<int*>(user);
    };
    for (int poll = 0; poll < polls; ++poll) provider.receive(stream, count, &frames);
    return frames;
}

// A host that cannot use what it is sent would otherwise be sent it thousands of times a second.
TEST(SoftwareBoardProvider, SnapshotThatIsNotTakenIsSentAnewByTheClockAndNotByThePolls) {
    ManualClock clock;
    clock.step = 0;
    const VexaBoardProvider& provider = software_board::Provider();
    VexaBoardRegisters* registers = nullptr;
    VexaBoardStream* stream = nullptr;
    ASSERT_EQ(provider.open_registers("seed=3,shfe=6,ine=6", 8, 474, &registers), 0);
    ASSERT_EQ(provider.open_stream("seed=3,shfe=6,ine=6", 8, "CUSTOM_CHAN0_DATA", &stream), 0);
    for (const auto& [index, value] : {std::pair{0x0010U, 1U},
                                       {0x1000U, 15U},
                                       {0x3007U, 0x0A140002U},
                                       {0x3008U, 40000U},
                                       {0x11100U, 0xEF032A47U},
                                       {0x11102U, 21000U}}) {
        provider.write32(registers, index, value);
    }
    const int snapshot = FramesOf(provider, stream, 5000);
    EXPECT_GT(snapshot, 1);
    EXPECT_EQ(FramesOf(provider, stream, 5000), 0);
    int frames = 0;
    for (int step = 0; step < 20; ++step) {
        clock.Advance(20'000'000);
        frames += FramesOf(provider, stream, 5000);
    }
    EXPECT_GE(frames, 15 + snapshot);
    EXPECT_LT(frames, 30 + snapshot);
    provider.close_stream(stream);
    provider.close_registers(registers);
}

TEST(SoftwareBoardProvider, UnknownStreamsAndBadArgumentsAreRefused) {
    const VexaBoardProvider& provider = software_board::Provider();
    VexaBoardStream* stream = nullptr;
    EXPECT_LT(provider.open_stream("", 6, "CUSTOM_CHAN16_DATA", &stream), 0);
    EXPECT_LT(provider.open_stream("", 6, "", &stream), 0);
    VexaBoardRegisters* registers = nullptr;
    EXPECT_LT(provider.open_registers("speed=1", 7, 474, &registers), 0);
    EXPECT_STREQ(provider.last_error(), "unknown key speed; known are seed, shfe, ine, rate, faults, lost_after");
    EXPECT_LT(provider.open_stream("", 6, "CUSTOM_CHAN16_DATA", &stream), 0);
    EXPECT_STREQ(provider.last_error(),
                 "no stream CUSTOM_CHAN16_DATA; there are CUSTOM_CHAN0_DATA to CUSTOM_CHAN15_DATA");
}

TEST(SoftwareBoardArgument, PairsAreRead) {
    BoardOptions options;
    std::string error;
    ASSERT_TRUE(
        software_board::ParseArgument("seed=7,shfe=5,ine=6,rate=9,lost_after=8,faults=reorder+stall", options, error));
    EXPECT_EQ(options.exchange.seed, 7U);
    EXPECT_EQ(options.exchange.shfeInstruments, 5);
    EXPECT_EQ(options.exchange.ineInstruments, 6);
    EXPECT_EQ(options.updatesPerSecond, 9U);
    EXPECT_EQ(options.lostPacketAfter, 8U);
    EXPECT_TRUE(options.faults.Has(exchange::EFault::Reorder) && options.faults.Has(exchange::EFault::Stall) &&
                !options.faults.Has(exchange::EFault::Reset));
}

TEST(SoftwareBoardArgument, WhatIsWrongIsNamedWithWhatIsAllowed) {
    BoardOptions options;
    std::string error;
    for (const char* argument : {"seed", "seed=x", "shfe=0", "ine=4097", "rate=-1", "faults=flood", "speed=1"}) {
        EXPECT_FALSE(software_board::ParseArgument(argument, options, error)) << argument;
        EXPECT_THAT(error, testing::AnyOf(HasSubstr("seed"), HasSubstr("shfe=0"), HasSubstr("ine=4097"),
                                          HasSubstr("rate=-1"), HasSubstr("flood")));
    }
}

}  // namespace
