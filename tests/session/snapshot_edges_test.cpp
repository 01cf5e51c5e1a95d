// Whole start-ups whose snapshots are cut where receivers are easily wrong.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

#include "tests/support/SessionWorld.h"

using testing::IsEmpty;

namespace {

/// Few enough instruments for a whole snapshot to fit one segment, with a last message shorter than the first.
software_board::BoardOptions FewInstruments(const std::string& faults, uint64_t seed) {
    software_board::BoardOptions options = WithFaults(faults, seed);
    options.exchange.shfeInstruments = 2;
    options.exchange.ineInstruments = 1;
    return options;
}

TEST(SnapshotOfOneSegment, StartsTheSessionWithTwoAcknowledgementsBehindIt) {
    int ofOneSegment = 0;
    for (uint64_t seed = 1; seed <= 10; ++seed) {
        SCOPED_TRACE(seed);
        SessionWorld world(FewInstruments("long-first-segment", seed));
        world.configKeys = "shfe2ps=enabled\nine2ps=disabled\n";
        ASSERT_EQ(world.Start(Delivery::Callback), 0);
        const uint64_t frames = world.board.Statistics().snapshotFrames;
        EXPECT_EQ(world.board.Statistics().bringUps, 1U);
        EXPECT_EQ(world.board.Statistics().snapshotConnections, 1U);
        ofOneSegment += frames == 3 ? 1 : 0;
        ASSERT_TRUE(world.ReceiveTheRest());
        EXPECT_THAT(world.DifferencesFromTruth({SHFE_2PS}), IsEmpty());
    }
    EXPECT_GT(ofOneSegment, 0);
}

TEST(SnapshotOfOneSegment, OfBothExchangesStartsTheSession) {
    for (uint64_t seed = 1; seed <= 10; ++seed) {
        SCOPED_TRACE(seed);
        SessionWorld world(FewInstruments("long-first-segment,bare-ack,split-headers", seed));
        ASSERT_EQ(world.Start(Delivery::Polling), 0);
        EXPECT_EQ(world.board.Statistics().bringUps, 1U);
        EXPECT_EQ(world.board.Statistics().snapshotConnections, 2U);
        ASSERT_TRUE(world.ReceiveTheRest());
        EXPECT_THAT(world.DifferencesFromTruth(), IsEmpty());
    }
}

class AmongEarlySegments : public testing::TestWithParam<std::string> {};

INSTANTIATE_TEST_SUITE_P(EachOne, AmongEarlySegments,
                         testing::Values("bare-ack,reorder,drop", "bare-ack,drop,split-small",
                                         "split-headers,reorder,drop", "split-headers,drop,duplicate,split-small"));

TEST_P(AmongEarlySegments, NothingStallsAndNothingIsMissing) {
    for (uint64_t seed = 1; seed <= 5; ++seed) {
        SCOPED_TRACE(GetParam() + ", seed " + std::to_string(seed));
        SessionWorld world(WithFaults(GetParam(), seed));
        ASSERT_EQ(world.Start(Delivery::Callback), 0);
        EXPECT_EQ(world.board.Statistics().snapshotConnections, 2U);
        EXPECT_EQ(world.api->m_counters[ECounter::PayloadNotMdqp], 0U);
        EXPECT_FALSE(world.log.Has(LOG_ERROR, "not a mdqp header, check program logic"));
        ASSERT_TRUE(world.ReceiveTheRest());
        EXPECT_THAT(world.DifferencesFromTruth(), IsEmpty());
    }
}

}  // namespace
