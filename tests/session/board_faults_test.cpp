// Each fault of the board, and what the session makes of it.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <ctime>
#include <string>
#include <vector>

#include "common/RegisterMap.h"
#include "tests/support/SessionWorld.h"

using testing::IsEmpty;

namespace {

/// A loss that the session rebuilds from, or an event that it passes over.
struct EventFault {
    const char* name;
    uint64_t bringUps;
    ELOGLEVEL level;
    const char* line;
};

void PrintTo(const EventFault& fault, std::ostream* out) { *out << fault.name; }

constexpr EventFault EVENT_FAULTS[] = {
    {"packet-lost", 2, LOG_WARNING, "received lost pkt event, event_data0=00000080"},
    {"price-error", 2, LOG_WARNING, "received px error event, event_data1=00000001"},
    {"timeout", 2, LOG_WARNING, "received pkt timeout event, event_data0=00000040 last_update_time["},
    {"timeout-quiet", 1, LOG_INFO, "received pkt timeout event, ignore. event_data0=00000040 last_update_time["},
    {"ring-overflow", 2, LOG_WARNING, "received lost pkt event, event_data0=00000080"},
    {"event-storm", 2, LOG_WARNING, "received lost pkt event, event_data0=00000080"},
};

class BoardEvents : public testing::TestWithParam<EventFault> {
protected:
    BoardEvents() {
        setenv("TZ", "Asia/Shanghai", 1);
        tzset();
    }
};

INSTANTIATE_TEST_SUITE_P(Each, BoardEvents, testing::ValuesIn(EVENT_FAULTS), [](const auto& fault) {
    std::string name = fault.param.name;
    std::replace(name.begin(), name.end(), '-', '_');
    return name;
});

TEST_P(BoardEvents, AreToldAndTheSessionGoesOnWithTheTruth) {
    SessionWorld world(WithFaults(GetParam().name));
    ASSERT_EQ(world.Start(Delivery::Polling), 0);
    ASSERT_TRUE(world.Receive(1500));
    EXPECT_EQ(world.board.Statistics().bringUps, GetParam().bringUps);
    const std::vector<std::string> lines = world.log.Texts(GetParam().level);
    EXPECT_EQ(std::count_if(lines.begin(), lines.end(),
                            [](const std::string& line) { return line.rfind(GetParam().line, 0) == 0; }),
              1);
    EXPECT_EQ(world.api->m_counters[ECounter::EventLoss], GetParam().bringUps - 1);
    ASSERT_TRUE(world.ReceiveTheRest());
    EXPECT_THAT(world.DifferencesFromTruth(), IsEmpty());
}

TEST_P(BoardEvents, MayComeOneAfterTheOther) {
    SessionWorld world;
    ASSERT_EQ(world.Start(Delivery::Callback), 0);
    for (int time = 0; time < 5; ++time) {
        std::string error;
        ASSERT_TRUE(world.board.Inject(GetParam().name, error)) << error;
        ASSERT_TRUE(world.Receive(200));
    }
    EXPECT_EQ(world.board.Statistics().bringUps, 1 + 5 * (GetParam().bringUps - 1));
    ASSERT_TRUE(world.ReceiveTheRest());
    EXPECT_THAT(world.DifferencesFromTruth(), IsEmpty());
}

TEST(BoardFaults, AllOfThemInOneSessionAreSurvived) {
    SessionWorld world(WithFaults("packet-lost,price-error,timeout,timeout-quiet,ring-overflow,event-storm"));
    ASSERT_EQ(world.Start(Delivery::Callback), 0);
    ASSERT_TRUE(world.Receive(4000));
    ASSERT_TRUE(world.ReceiveTheRest());
    EXPECT_THAT(world.DifferencesFromTruth(), IsEmpty());
    EXPECT_GE(world.board.Statistics().bringUps, 5U);
}

TEST(BoardFaults, MomentCountsLiveUpdates) {
    SessionWorld world(WithFaults("price-error@100"));
    ASSERT_EQ(world.Start(Delivery::Callback), 0);
    ASSERT_TRUE(world.Receive(90));
    EXPECT_EQ(world.board.Statistics().bringUps, 1U);
    ASSERT_TRUE(world.Receive(60));
    EXPECT_EQ(world.board.Statistics().bringUps, 2U);
}

TEST(BoardFaults, UnknownOneIsNotInjected) {
    SessionWorld world;
    std::string error;
    EXPECT_FALSE(world.board.Inject("gremlin", error));
    EXPECT_THAT(error, testing::StartsWith("unknown fault \"gremlin\"; known are reorder, "));
}

TEST(BoardFaults, InjectedSnapshotFaultWaitsForTheNextConnect) {
    SessionWorld world;
    ASSERT_EQ(world.Start(Delivery::Callback), 0);
    std::string error;
    ASSERT_TRUE(world.board.Inject("reset,duplicate", error)) << error;
    ASSERT_TRUE(world.Receive(10));
    world.board.LosePackets(1);
    ASSERT_TRUE(world.Receive(500));
    EXPECT_EQ(world.api->m_counters[ECounter::ResetByPeer], 1U);
    EXPECT_GT(world.api->m_counters[ECounter::SegmentRepeated], 0U);
}

/// A board on which no session can start.
struct BrokenBoard {
    const char* fault;
    ELOGLEVEL level;
    const char* line;
};

void PrintTo(const BrokenBoard& broken, std::ostream* out) { *out << broken.fault; }

constexpr BrokenBoard BROKEN_BOARDS[] = {
    {"memory-not-ready", LOG_WARNING, "HBM2 init timeout, Please check whether the FPGA is normal."},
    {"old-firmware", LOG_ERROR, "you will need to update your hardware version."},
    {"version-write-lost", LOG_INFO, "soft version write is fail."},
    {"register-all-ones@0", LOG_WARNING, "HBM2 init timeout, Please check whether the FPGA is normal."},
    {"stream-open-fails", LOG_ERROR, "DMA Init failed"},
    {"registers-open-fail", LOG_ERROR, "Reg Init failed"},
};

class Broken : public testing::TestWithParam<BrokenBoard> {};

INSTANTIATE_TEST_SUITE_P(Each, Broken, testing::ValuesIn(BROKEN_BOARDS), [](const auto& broken) {
    std::string name = broken.param.fault;
    name.resize(std::min(name.find('@'), name.size()));
    std::replace(name.begin(), name.end(), '-', '_');
    return name;
});

TEST_P(Broken, BoardRefusesTheStartWithItsLine) {
    SessionWorld world(WithFaults(GetParam().fault));
    EXPECT_EQ(world.Start(Delivery::Callback), -2);
    EXPECT_TRUE(world.log.Has(GetParam().level, GetParam().line));
    EXPECT_FALSE(world.board.IsLive());
    EXPECT_EQ(world.updates, 0U);
}

TEST_P(Broken, BoardIsWholeAgainOnceItsFaultsAreCleared) {
    SessionWorld world(WithFaults(GetParam().fault));
    ASSERT_EQ(world.Start(Delivery::Callback), -2);
    world.board.ClearFaults();
    ASSERT_EQ(world.Start(Delivery::Callback), 0);
    ASSERT_TRUE(world.ReceiveTheRest());
    EXPECT_THAT(world.DifferencesFromTruth(), IsEmpty());
}

TEST(BoardFaults, ThoseStillToComeAreClearedToo) {
    SessionWorld world(WithFaults("price-error@300"));
    ASSERT_EQ(world.Start(Delivery::Callback), 0);
    std::string error;
    ASSERT_TRUE(world.board.Inject("packet-lost@100,event-storm@200,reset,duplicate", error)) << error;
    ASSERT_TRUE(world.Receive(50));
    world.board.ClearFaults();
    ASSERT_TRUE(world.Receive(500));
    EXPECT_EQ(world.board.Statistics().bringUps, 1U);
    world.board.LosePackets(1);
    ASSERT_TRUE(world.Receive(50));
    EXPECT_EQ(world.board.Statistics().bringUps, 2U);
    EXPECT_EQ(world.api->m_counters[ECounter::ResetByPeer], 0U);
    EXPECT_EQ(world.api->m_counters[ECounter::SegmentRepeated], 0U);
}

TEST(VanishedCard, DeliversNothingAndLetsTheSessionBeStopped) {
    SessionWorld world(WithFaults("register-all-ones@300"));
    ASSERT_EQ(world.Start(Delivery::Callback), 0);
    for (int step = 0; step < 2000; ++step) ASSERT_NE(world.Step(), -1);
    const uint64_t received = world.updates;
    EXPECT_LE(received, 300U);
    for (int step = 0; step < 2000; ++step) ASSERT_EQ(world.Step(), 0);
    world.api->VexaStop();
    EXPECT_EQ(world.Step(), -1);
    EXPECT_EQ(world.Start(Delivery::Callback), -2);
}

}  // namespace
