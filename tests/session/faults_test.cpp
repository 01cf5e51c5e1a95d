// Each fault of the exchange and the board, and what the session makes of it.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

#include "src/RegisterMap.h"
#include "tests/support/SessionWorld.h"

using testing::IsEmpty;

namespace {

struct FaultCase {
    std::string name;
    Delivery delivery;
    uint64_t seed;
};

void PrintTo(const FaultCase& fault, std::ostream* out) { *out << fault.name << ", seed " << fault.seed; }

class Recovers : public testing::TestWithParam<FaultCase> {};

std::vector<FaultCase> EveryFaultInBothForms() {
    std::vector<FaultCase> cases;
    for (const char* name :
         {"reorder", "duplicate", "corrupt", "reset", "stall", "crossed-book", "lost-packet", "all"}) {
        for (const Delivery delivery : {Delivery::Callback, Delivery::Polling}) {
            for (const uint64_t seed : {1, 2}) cases.push_back({name, delivery, seed});
        }
    }
    return cases;
}

std::string CaseName(const testing::TestParamInfo<FaultCase>& fault) {
    std::string name = fault.param.name + (fault.param.delivery == Delivery::Callback ? "_callback" : "_polling") +
                       "_seed" + std::to_string(fault.param.seed);
    std::replace(name.begin(), name.end(), '-', '_');
    return name;
}

INSTANTIATE_TEST_SUITE_P(EveryFault, Recovers, testing::ValuesIn(EveryFaultInBothForms()), CaseName);

TEST_P(Recovers, AndEveryLastRecordEqualsTheTruth) {
    SessionWorld world(WithFaults(GetParam().name, GetParam().seed));
    world.configKeys += "wait_snap_timeout=20\n";
    ASSERT_EQ(world.Start(GetParam().delivery), 0);
    ASSERT_TRUE(world.Receive(1500));
    ASSERT_TRUE(world.ReceiveTheRest());
    EXPECT_EQ(world.last.size(), 800U);
    EXPECT_THAT(world.DifferencesFromTruth(), IsEmpty());
    EXPECT_EQ(world.board.Statistics().refusedTableWrites, 0U);
}

TEST(Reordering, StoresEarlySegmentsAndFreesThemAll) {
    SessionWorld world(WithFaults("reorder"));
    ASSERT_EQ(world.Start(Delivery::Callback), 0);
    EXPECT_EQ(world.api->m_earlySegmentCount, 0U);
    EXPECT_EQ(world.api->m_counters[ECounter::EarlyOverflow], 0U);
}

TEST(Duplicates, AreDroppedAndCounted) {
    SessionWorld world(WithFaults("duplicate"));
    ASSERT_EQ(world.Start(Delivery::Callback), 0);
    EXPECT_GT(world.api->m_counters[ECounter::SegmentRepeated], 0U);
}

TEST(Corruption, IsDroppedByTheChecksumAndCounted) {
    SessionWorld world(WithFaults("corrupt"));
    ASSERT_EQ(world.Start(Delivery::Callback), 0);
    EXPECT_GT(world.api->m_counters[ECounter::ChecksumWrong], 0U);
}

TEST(Reset, ClearsEverythingAndLoadsAgainWithoutANewAttempt) {
    SessionWorld world(WithFaults("reset"));
    ASSERT_EQ(world.Start(Delivery::Callback), 0);
    EXPECT_EQ(world.api->m_counters[ECounter::ResetByPeer], 1U);
    EXPECT_EQ(world.board.Statistics().bringUps, 1U);
}

TEST(Stall, EndsInATimeOutAndASecondAttempt) {
    SessionWorld world(WithFaults("stall"));
    world.configKeys += "wait_snap_timeout=20\n";
    ASSERT_EQ(world.Start(Delivery::Callback), 0);
    EXPECT_TRUE(world.log.Has(LOG_WARNING, "channel0 u50 Init time out Cnt == 1"));
    EXPECT_EQ(world.board.Statistics().bringUps, 2U);
}

TEST(Stall, FailsTheStartOnceTheAttemptsAreUsedUp) {
    SessionWorld world(WithFaults("stall"));
    world.configKeys += "wait_snap_timeout=20\ninit_tcpcnt=1\n";
    EXPECT_EQ(world.Start(Delivery::Callback), -2);
    EXPECT_TRUE(world.log.Has(LOG_WARNING, "channel0 m_u50InitCnt > 1"));
    // The limit stays used up: every later start of this object fails at once.
    EXPECT_EQ(world.Start(Delivery::Callback), -2);
    EXPECT_EQ(world.board.Statistics().bringUps, 1U);
}

TEST(CrossedBook, IsDiscardedAndLoadedAgain) {
    SessionWorld world(WithFaults("crossed-book"));
    ASSERT_EQ(world.Start(Delivery::Callback), 0);
    EXPECT_EQ(world.api->m_counters[ECounter::PriceCheckFailed], 1U);
    EXPECT_TRUE(world.log.Has(LOG_WARNING, "price check is error, shot cnt is 0."));
}

TEST(CrossedBook, ShieldedIsAcceptedAndItsInstrumentIsNeverSubscribed) {
    SessionWorld world(WithFaults("crossed-book"));
    world.configKeys += "shield_price_check=1\n";
    ASSERT_EQ(world.Start(Delivery::Callback), 0);
    EXPECT_EQ(world.api->m_counters[ECounter::PriceCheckFailed], 0U);
    ASSERT_EQ(world.api->m_setPriceErrorInstId.size(), 1U);
    ASSERT_TRUE(world.ReceiveTheRest());
    for (const std::string& id : world.api->m_setPriceErrorInstId) EXPECT_EQ(world.last.count(id), 0U) << id;
}

TEST(LostPackets, RebuildTheSessionFromTheReceiveStep) {
    SessionWorld world(WithFaults("lost-packet"));
    ASSERT_EQ(world.Start(Delivery::Callback), 0);
    ASSERT_TRUE(world.Receive(1500));
    EXPECT_EQ(world.api->m_counters[ECounter::EventLoss], 1U);
    EXPECT_EQ(world.board.Statistics().bringUps, 2U);
    EXPECT_GT(world.board.Statistics().lostUpdates, 0U);
}

TEST(LostPackets, AgainAndAgainAreSurvivedOneAtATime) {
    SessionWorld world;
    ASSERT_EQ(world.Start(Delivery::Polling), 0);
    for (int loss = 0; loss < 5; ++loss) {
        ASSERT_TRUE(world.Receive(200));
        world.board.LosePackets(7);
    }
    ASSERT_TRUE(world.ReceiveTheRest());
    EXPECT_THAT(world.DifferencesFromTruth(), IsEmpty());
    EXPECT_EQ(world.board.Statistics().bringUps, 6U);
}

TEST(LostPackets, LeaveTheStoredChecksumAsItWas) {
    SessionWorld world(WithFaults("lost-packet"));
    ASSERT_EQ(world.Start(Delivery::Callback), 0);
    const uint32_t checksum = world.board.Read(reg::CONFIG_CHECKSUM);
    ASSERT_TRUE(world.Receive(1500));
    EXPECT_EQ(world.board.Read(reg::CONFIG_CHECKSUM), checksum);
}

TEST(SameSeed, GivesTheSameSession) {
    const auto run = [] {
        SessionWorld world(WithFaults("all", 7));
        world.configKeys += "wait_snap_timeout=20\n";
        EXPECT_EQ(world.Start(Delivery::Callback), 0);
        EXPECT_TRUE(world.Receive(1500));
        std::string bytes;
        for (const auto& [id, record] : world.last) bytes.append(reinterpret_cast<const char*>(&record), sizeof record);
        return bytes;
    };
    EXPECT_EQ(run(), run());
}

}  // namespace
