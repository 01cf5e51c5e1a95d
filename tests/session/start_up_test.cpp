// Whole start-ups on the software board: INI file to live records, in both forms of delivery.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <utility>

#include "testing/TemporaryDirectory.h"
#include "tests/support/SessionWorld.h"

using testing::Contains;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

namespace {

class StartUp : public testing::TestWithParam<Delivery> {};

std::string FormName(const testing::TestParamInfo<Delivery>& form) {
    return form.param == Delivery::Callback ? "Callback" : "Polling";
}

INSTANTIATE_TEST_SUITE_P(BothForms, StartUp, testing::Values(Delivery::Callback, Delivery::Polling), FormName);

TEST_P(StartUp, WithBothExchangesEveryLastRecordEqualsTheTruth) {
    SessionWorld world;
    ASSERT_EQ(world.Start(GetParam()), 0);
    ASSERT_TRUE(world.Receive(3000));
    ASSERT_TRUE(world.ReceiveTheRest());
    EXPECT_EQ(world.last.size(), 800U);
    EXPECT_THAT(world.DifferencesFromTruth(), IsEmpty());
}

TEST_P(StartUp, WithShfeAloneNothingOfIneIsDelivered) {
    SessionWorld world;
    world.configKeys = "shfe2ps=enabled\nine2ps=disabled\n";
    ASSERT_EQ(world.Start(GetParam()), 0);
    ASSERT_TRUE(world.ReceiveTheRest());
    EXPECT_EQ(world.last.size(), 600U);
    EXPECT_THAT(world.DifferencesFromTruth({SHFE_2PS}), IsEmpty());
}

TEST_P(StartUp, WithIneAloneNothingOfShfeIsDelivered) {
    SessionWorld world;
    world.configKeys = "shfe2ps=disabled\nine2ps=enabled\n";
    ASSERT_EQ(world.Start(GetParam()), 0);
    ASSERT_TRUE(world.ReceiveTheRest());
    EXPECT_EQ(world.last.size(), 200U);
    EXPECT_THAT(world.DifferencesFromTruth({INE_2PS}), IsEmpty());
}

TEST_P(StartUp, DeliversOnlyWhatTheChannelSubscribedTo) {
    SessionWorld world;
    world.channelSections = "[channel0]\ninsts=cu\noptions=norecv\n";
    ASSERT_EQ(world.Start(GetParam()), 0);
    ASSERT_TRUE(world.ReceiveTheRest());
    ASSERT_FALSE(world.last.empty());
    for (const auto& [id, record] : world.last) {
        EXPECT_EQ(id.substr(0, 2), "cu");
        EXPECT_LE(id.size(), 6U);
    }
}

TEST(StartUpBoard, TablesOnTheBoardEqualTheHostsAndTheRestIsZero) {
    SessionWorld world;
    ASSERT_EQ(world.Start(Delivery::Callback), 0);
    const SInstTableType empty{};
    for (int32_t slot = 0; slot < SHFE_INST_CAPACITY; ++slot) {
        const SInstTableType& onBoard = world.board.Slot(SHFE_2PS, slot);
        const SInstTableType& expected = slot < 600 ? world.api->m_u50InstTable.shfe2psInstTable[slot] : empty;
        ASSERT_EQ(std::memcmp(&onBoard, &expected, sizeof expected), 0) << "slot " << slot;
    }
}

TEST(StartUpBoard, NoTableIsWrittenThroughAClosedPort) {
    SessionWorld world;
    ASSERT_EQ(world.Start(Delivery::Callback), 0);
    for (const EMDQPDataType feed : ALL_FEEDS) EXPECT_FALSE(world.board.IsPortOpen(feed));
    EXPECT_EQ(world.board.Statistics().refusedTableWrites, 0U);
}

TEST(StartUpBoard, TheChecksumIsStoredAfterAFullStart) {
    SessionWorld world;
    ASSERT_EQ(world.Start(Delivery::Callback), 0);
    uint32_t checksum = 0;
    ASSERT_EQ(world.api->_GetConfigCrc(checksum), 0);
    EXPECT_EQ(world.board.Read(0x1001), checksum);
}

TEST(StartUpBoard, ANonManagingChannelReceivesWithoutWritingARegister) {
    SessionWorld manager;
    manager.channelSections = "[channel0]\ninsts=all\noptions=recv\n[channel2]\ninsts=cu\noptions=recv\n";
    ASSERT_EQ(manager.Start(Delivery::Callback), 0);

    auto other = MakeApi();
    struct Spi : CVexaShfeMdSpi {
        void OnVexaShfeMd(VexaShfeMdType& md) override { ids.insert(md.inst_id); }
        std::set<std::string> ids;
    } spi;
    manager.configKeys += "device=xilinx0:2\n";
    const uint64_t writesBefore = manager.board.Statistics().registerWrites;
    ASSERT_EQ(other->VexaStart(spi, manager.ConfigPath().c_str()), 0);
    manager.board.FinishAfterOneMoreOfEach();
    for (int step = 0; step < 5000; ++step) ASSERT_NE(other->VexaRecv(), -1);

    EXPECT_EQ(manager.board.Statistics().registerWrites, writesBefore);
    ASSERT_FALSE(spi.ids.empty());
    for (const std::string& id : spi.ids) EXPECT_EQ(id.substr(0, 2), "cu");
}

// ---- the skip of an unchanged, running board ------------------------------------------------------------------------

class ChecksumSkip : public testing::Test {
protected:
    /// A session that runs and whose process then ends; the board goes on.
    void StartOnce() {
        world.configKeys += "crc_mux_check=1\n";
        ASSERT_EQ(world.Start(Delivery::Callback), 0);
        ASSERT_TRUE(world.Receive(100));
        world.api = MakeApi();
        bringUps = world.board.Statistics().bringUps;
    }
    uint64_t BringUpsSince() const { return world.board.Statistics().bringUps - bringUps; }

    SessionWorld world;
    uint64_t bringUps = 0;
};

TEST_F(ChecksumSkip, ARunningBoardWithTheSameFileIsLeftAlone) {
    StartOnce();
    ASSERT_EQ(world.Start(Delivery::Callback), 0);
    EXPECT_EQ(BringUpsSince(), 0U);
    ASSERT_TRUE(world.ReceiveTheRest());
    EXPECT_THAT(world.DifferencesFromTruth(), IsEmpty());
}

TEST_F(ChecksumSkip, AnIdleBoardIsBroughtUpAgain) {
    StartOnce();
    world.board.Write(0x0010, 1);  // stops the engines: the counters stand still
    bringUps = world.board.Statistics().bringUps;
    ASSERT_EQ(world.Start(Delivery::Callback), 0);
    EXPECT_EQ(BringUpsSince(), 1U);
}

TEST_F(ChecksumSkip, AnEventBetweenTheSamplesBringsTheBoardUpAgain) {
    StartOnce();
    struct EventDuringSleep : ManualClock {
        void SleepNanoseconds(int64_t nanoseconds) override {
            ManualClock::SleepNanoseconds(nanoseconds);
            board->RaiseEvent(0, U50Event{DMA_EVENT, sizeof(U50Event), 0, 0, 0, 1, 0, 0});
        }
        software_board::SoftwareBoard* board = nullptr;
    } clock;
    clock.monotonic = world.clock.monotonic;
    clock.wall = world.clock.wall;
    clock.board = &world.board;
    ASSERT_EQ(world.Start(Delivery::Callback), 0);
    EXPECT_EQ(BringUpsSince(), 1U);
}

TEST_F(ChecksumSkip, AnEditedFileBringsTheBoardUpAgain) {
    StartOnce();
    world.channelSections += "# a remark\n";
    ASSERT_EQ(world.Start(Delivery::Callback), 0);
    EXPECT_EQ(BringUpsSince(), 1U);
}

TEST(SecondStart, OfTheSameObjectReopensTheStreamAndDelivers) {
    SessionWorld world;
    ASSERT_EQ(world.Start(Delivery::Callback), 0);
    ASSERT_TRUE(world.Receive(10));
    ASSERT_EQ(world.Start(Delivery::Polling), 0);
    ASSERT_TRUE(world.ReceiveTheRest());
    EXPECT_THAT(world.DifferencesFromTruth(), IsEmpty());
}

/// A second session in the world's process, in the polling form.
struct OtherSession {
    explicit OtherSession(const std::string& device)
        : file("[config]\ndevice=" + device + "\nlog_level=7\nshfe2ps=enabled\nine2ps=enabled\n") {}
    int32_t Start() { return api->VexaStart(file.Path().c_str()); }

    TemporaryFile file;
    std::unique_ptr<TestableApi> api = MakeApi();
    VexaShfeMdType md{};
};

TEST(OneProcess, TwoChannelsOfOneBoardBothReceive) {
    SessionWorld world;
    world.channelSections = "[channel0]\ninsts=all\noptions=recv\n[channel3]\ninsts=cu\noptions=norecv\n";
    ASSERT_EQ(world.Start(Delivery::Callback), 0);
    OtherSession reader("xilinx0:3");
    ASSERT_EQ(reader.Start(), 0);
    ASSERT_TRUE(world.Receive(2000));
    int received = 0;
    while (reader.api->VexaRecv(reader.md) == 1) {
        EXPECT_EQ(std::string(reader.md.inst_id).substr(0, 2), "cu");
        ++received;
    }
    EXPECT_GT(received, 10);
    // The reader's end leaves the board to the manager.
    reader.api.reset();
    ASSERT_TRUE(world.ReceiveTheRest());
    EXPECT_THAT(world.DifferencesFromTruth(), IsEmpty());
}

// A second managing session of another board, tried while the first is live, and a step on it all the same.
TEST(OneProcess, SecondBoardIsRefusedAndHarmsNothing) {
    SessionWorld world;
    ASSERT_EQ(world.Start(Delivery::Polling), 0);
    const uint64_t writes = world.board.Statistics().registerWrites;
    OtherSession other("xilinx1:0");
    EXPECT_EQ(other.Start(), -2);
    EXPECT_EQ(other.api->VexaRecv(other.md), -1);
    EXPECT_EQ(world.board.Statistics().registerWrites, writes);
    other.api.reset();
    ASSERT_TRUE(world.Receive(1000));
    world.board.LosePackets(20);
    ASSERT_TRUE(world.ReceiveTheRest());
    EXPECT_EQ(world.board.Statistics().bringUps, 2U);
    EXPECT_THAT(world.DifferencesFromTruth(), IsEmpty());
}

TEST(OldFirmware, IsRefusedWithWhatToDo) {
    software_board::BoardOptions options;
    options.hardwareVersion = 0x20250101;
    SessionWorld world(options);
    EXPECT_EQ(world.Start(Delivery::Callback), -2);
    EXPECT_TRUE(world.log.Has(LOG_ERROR, "you will need to update your hardware version."));
    EXPECT_TRUE(world.log.Has(LOG_ERROR, "check version is fail."));
    EXPECT_FALSE(world.board.IsLive());
}

}  // namespace
