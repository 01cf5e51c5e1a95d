// Each fault of the exchange and the board, and what the session makes of it.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <utility>

#include "common/RegisterMap.h"
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

/// Every fault that is recovered from, and all of them in one session.
std::vector<FaultCase> EveryFaultInBothForms() {
    std::vector<std::string> names{"all"};
    for (const exchange::FaultRow& row : exchange::FaultTable()) {
        if (row.isRecovered) names.emplace_back(row.name);
    }
    std::vector<FaultCase> cases;
    for (const std::string& name : names) {
        cases.push_back({name, Delivery::Callback, 1});
        cases.push_back({name, Delivery::Polling, 2});
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
    world.configKeys += "wait_snap_timeout=480\n";
    ASSERT_EQ(world.Start(GetParam().delivery), 0);
    ASSERT_TRUE(world.Receive(GetParam().name == "all" ? 4000 : 1500));
    ASSERT_TRUE(world.ReceiveTheRest());
    EXPECT_EQ(world.last.size(), 800U);
    EXPECT_THAT(world.DifferencesFromTruth(), IsEmpty());
    EXPECT_EQ(world.board.Statistics().refusedTableWrites, 0U);
}

TEST(Reordering, StoresEarlySegmentsAndFreesThemAll) {
    SessionWorld world(WithFaults("reorder"));
    ASSERT_EQ(world.Start(Delivery::Callback), 0);
    EXPECT_EQ(world.api->m_reassembly.EarlySegments(), 0U);
    EXPECT_EQ(world.api->m_counters[ECounter::EarlyOverflow], 0U);
}

TEST(Duplicates, AreDroppedAndCounted) {
    SessionWorld world(WithFaults("duplicate"));
    ASSERT_EQ(world.Start(Delivery::Callback), 0);
    EXPECT_GT(world.api->m_counters[ECounter::SegmentRepeated], 0U);
}

TEST(Corruption, IsDroppedByTheChecksumAndCounted) {
    SessionWorld world(WithFaults("corrupt-checksum"));
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

TEST(OutsideLimits, IsDiscardedAndLoadedAgain) {
    SessionWorld world(WithFaults("outside-limits"));
    ASSERT_EQ(world.Start(Delivery::Callback), 0);
    EXPECT_EQ(world.api->m_counters[ECounter::PriceCheckFailed], 1U);
    EXPECT_EQ(world.board.Statistics().bringUps, 1U);
}

// ---- disturbances: each leaves its mark in a counter and nowhere else
// ------------------------------------------------

/// What a start under one fault counts, and nothing but that.
struct Mark {
    std::string name;
    ECounter counter;
};

void PrintTo(const Mark& mark, std::ostream* out) { *out << mark.name; }

class Disturbance : public testing::TestWithParam<Mark> {};

INSTANTIATE_TEST_SUITE_P(
    EachOne, Disturbance,
    testing::Values(Mark{"duplicate", ECounter::SegmentRepeated}, Mark{"corrupt-checksum", ECounter::ChecksumWrong},
                    Mark{"corrupt-length", ECounter::FrameMalformed}, Mark{"foreign-host", ECounter::SegmentOtherHost},
                    Mark{"bare-ack", ECounter::SegmentEarlyDropped}, Mark{"unknown-field", ECounter::FieldUnknown},
                    Mark{"instrument-out-of-range", ECounter::InstNoOutOfRange},
                    Mark{"second-connection", ECounter::MessageOfNoFeed}),
    [](const testing::TestParamInfo<Mark>& mark) {
        std::string name = mark.param.name;
        std::replace(name.begin(), name.end(), '-', '_');
        return name;
    });

/// What every start counts: frames that are no TCP, and acknowledgements behind a finished feed.
bool IsOrdinary(ECounter counter) { return counter == ECounter::FrameForeign || counter == ECounter::SegmentRefused; }

TEST_P(Disturbance, CountsWhatItDropsAndNothingElse) {
    SessionWorld world(WithFaults(GetParam().name));
    ASSERT_EQ(world.Start(Delivery::Callback), 0);
    EXPECT_EQ(world.board.Statistics().bringUps, 1U);
    for (std::size_t i = 0; i < static_cast<std::size_t>(ECounter::Count_); ++i) {
        const auto counter = static_cast<ECounter>(i);
        if (IsOrdinary(counter)) continue;
        EXPECT_EQ(world.api->m_counters[counter] > 0, counter == GetParam().counter) << COUNTER_NAMES[i];
    }
}

class Silent : public testing::TestWithParam<std::string> {};

INSTANTIATE_TEST_SUITE_P(EachOne, Silent,
                         testing::Values("reorder", "drop", "split-small", "split-headers", "long-first-segment",
                                         "wrong-field-size", "absent-values", "sequence-wrap", "reset-without-ack",
                                         "tail-field", "repeated-level", "settlement-limits", "same-port"),
                         [](const testing::TestParamInfo<std::string>& name) {
                             std::string text = name.param;
                             std::replace(text.begin(), text.end(), '-', '_');
                             return text;
                         });

TEST_P(Silent, LosesNothingAndCountsNothing) {
    SessionWorld world(WithFaults(GetParam()));
    ASSERT_EQ(world.Start(Delivery::Callback), 0);
    EXPECT_EQ(world.board.Statistics().snapshotConnections, 2U);
    EXPECT_EQ(world.api->m_reassembly.EarlySegments(), 0U);
    for (std::size_t i = 0; i < static_cast<std::size_t>(ECounter::Count_); ++i) {
        const auto counter = static_cast<ECounter>(i);
        if (IsOrdinary(counter)) continue;
        EXPECT_EQ(world.api->m_counters[counter], 0U) << COUNTER_NAMES[i];
    }
}

TEST(ForeignPort, IsDroppedAsForeign) {
    uint64_t ordinary = 0;
    {
        SessionWorld plain;
        ASSERT_EQ(plain.Start(Delivery::Callback), 0);
        ordinary = plain.api->m_counters[ECounter::FrameForeign];
    }
    SessionWorld world(WithFaults("foreign-port"));
    ASSERT_EQ(world.Start(Delivery::Callback), 0);
    EXPECT_GT(world.api->m_counters[ECounter::FrameForeign], ordinary + 5);
}

TEST(AbsentValues, AreZeroInTheRecordsUntilTheNextDeal) {
    SessionWorld world(WithFaults("absent-values"));
    ASSERT_EQ(world.Start(Delivery::Callback), 0);
    const std::vector<exchange::Instrument>& instruments = world.board.Market().Instruments(SHFE_2PS);
    const auto absent = std::count_if(instruments.begin(), instruments.end(), [&](const auto& instrument) {
        return world.board.Slot(SHFE_2PS, instrument.instNo).last_price == 0;
    });
    EXPECT_GT(absent, 30);
    EXPECT_LT(absent, 120);
}

TEST(SecondConnection, TakesTheFeedOverFromTheFirst) {
    SessionWorld world(WithFaults("second-connection"));
    ASSERT_EQ(world.Start(Delivery::Callback), 0);
    EXPECT_EQ(world.board.Statistics().snapshotConnections, 4U);
    EXPECT_EQ(world.board.Statistics().bringUps, 1U);
}

TEST(SecondConnection, DoesNotMakeUpForAStalledFirstOne) {
    SessionWorld world(WithFaults("second-connection,stall"));
    world.configKeys += "wait_snap_timeout=20\n";
    ASSERT_EQ(world.Start(Delivery::Callback), 0);
    EXPECT_EQ(world.board.Statistics().bringUps, 2U);
}

TEST(SplitAnywhere, MayCostInstrumentsButTellsNothingWrong) {
    uint64_t outOfPlace = 0;
    for (uint64_t seed = 1; seed <= 12; ++seed) {
        SCOPED_TRACE(seed);
        SessionWorld world(WithFaults("split-anywhere", seed));
        ASSERT_EQ(world.Start(Delivery::Callback), 0);
        ASSERT_TRUE(world.ReceiveTheRest());
        outOfPlace += world.api->m_counters[ECounter::PayloadNotMdqp];
        for (const std::string& id : world.DifferencesFromTruth()) EXPECT_EQ(world.last.count(id), 0U) << id;
    }
    EXPECT_GT(outOfPlace, 0U);
}

// ---- faults of one connect ------------------------------------------------------------------------------------------

TEST(DropForGood, EndsInATimeOutAndASecondAttempt) {
    SessionWorld world(WithFaults("drop-for-good"));
    world.configKeys += "wait_snap_timeout=20\n";
    ASSERT_EQ(world.Start(Delivery::Callback), 0);
    EXPECT_TRUE(world.log.Has(LOG_WARNING, "channel0 u50 Init time out Cnt == 1"));
    EXPECT_EQ(world.board.Statistics().bringUps, 2U);
    EXPECT_EQ(world.api->m_reassembly.EarlySegments(), 0U);
    EXPECT_EQ(world.api->m_counters[ECounter::EarlyOverflow], 0U);
}

TEST(EarlyFlood, ClearsEverythingAndLoadsAgainWithoutANewAttempt) {
    SessionWorld world(WithFaults("early-flood"));
    ASSERT_EQ(world.Start(Delivery::Callback), 0);
    EXPECT_EQ(world.api->m_counters[ECounter::EarlyOverflow], 1U);
    EXPECT_TRUE(world.log.Has(LOG_WARNING, "packet loss > 20 msg, free cache, init again."));
    EXPECT_EQ(world.board.Statistics().bringUps, 1U);
    EXPECT_EQ(world.board.Statistics().snapshotConnections, 4U);
}

TEST(OversizedMessage, IsGivenUpAndTheNextSnapshotLoaded) {
    SessionWorld world(WithFaults("oversized-message"));
    ASSERT_EQ(world.Start(Delivery::Callback), 0);
    EXPECT_EQ(world.api->m_counters[ECounter::CarryOverGivenUp], 1U);
    EXPECT_TRUE(world.log.Has(LOG_WARNING, "ignore tcp message!"));
    EXPECT_EQ(world.board.Statistics().bringUps, 1U);
}

TEST(WrongBook, IsDiscardedAndLoadedAgain) {
    SessionWorld world(WithFaults("wrong-book"));
    ASSERT_EQ(world.Start(Delivery::Callback), 0);
    EXPECT_EQ(world.api->m_counters[ECounter::PriceCheckFailed], 1U);
    EXPECT_EQ(world.board.Statistics().bringUps, 1U);
}

TEST(SamePort, IsBegunAnewWhereOneFeedWasKept) {
    SessionWorld world(WithFaults("same-port,oversized-message"));
    ASSERT_EQ(world.Start(Delivery::Callback), 0);
    EXPECT_EQ(world.board.Statistics().bringUps, 1U);
    EXPECT_EQ(world.api->m_reassembly.TouchedSessions(), 2U);
}

TEST(UnaskedFeed, LeavesItsTablesEmpty) {
    SessionWorld world(WithFaults("unasked-feed"));
    ASSERT_EQ(world.Start(Delivery::Callback), 0);
    EXPECT_EQ(world.board.Statistics().snapshotConnections, 4U);
    EXPECT_GT(world.api->m_counters[ECounter::SegmentRefused], 100U);
    EXPECT_EQ(world.board.Slot(SHFE_4PS, 0).change_no, 0U);
    EXPECT_EQ(world.board.Slot(INE_4PS, 3).change_no, 0U);
}

TEST(ChangingList, ClearsWhatIsNoLongerListed) {
    SessionWorld world(WithFaults("changing-list,packet-lost@100,packet-lost@200"));
    ASSERT_EQ(world.Start(Delivery::Callback), 0);
    ASSERT_TRUE(world.Receive(1500));
    ASSERT_TRUE(world.ReceiveTheRest());
    const exchange::Exchange& market = world.board.Market();
    int32_t listed = 0;
    for (int32_t instNo = 0; instNo < 600; ++instNo) {
        listed += market.IsListed(SHFE_2PS, instNo) ? 1 : 0;
        EXPECT_EQ(world.board.Slot(SHFE_2PS, instNo).change_no != 0, market.IsListed(SHFE_2PS, instNo)) << instNo;
    }
    EXPECT_LT(listed, 550);
}

TEST(WrongTopic, IsRefusedAndTheNextSnapshotLoaded) {
    SessionWorld world(WithFaults("wrong-topic"));
    ASSERT_EQ(world.Start(Delivery::Callback), 0);
    EXPECT_TRUE(world.log.Has(LOG_WARNING, "invalide topic id[-1]"));
    EXPECT_EQ(world.board.Statistics().bringUps, 1U);
    EXPECT_EQ(world.board.Statistics().snapshotConnections, 4U);
}

// ---- moments --------------------------------------------------------------------------------------------------------

TEST(Moments, OneShotsKeepTheirConnectAndTheOthersTakeTheFreeOnes) {
    SessionWorld world(WithFaults("reset@2,crossed-book,early-flood"));
    ASSERT_EQ(world.Start(Delivery::Callback), 0);
    const std::vector<std::string> lines = world.log.Texts(LOG_WARNING);
    const auto place = [&](const std::string& text) {
        return std::find_if(lines.begin(), lines.end(),
                            [&](const std::string& line) { return line.rfind(text, 0) == 0; }) -
               lines.begin();
    };
    EXPECT_LT(place("packet loss > 20 msg"), place("rst msg"));
    EXPECT_LT(place("rst msg"), place("price check is error"));
    EXPECT_LT(place("price check is error"), std::ssize(lines));
    EXPECT_EQ(world.board.Statistics().bringUps, 1U);
}

TEST(Moments, DisturbanceActsAtItsConnectAlone) {
    for (const auto& [names, isSeen] : {std::pair("corrupt-length@1", true), std::pair("corrupt-length@2", false)}) {
        SessionWorld world(WithFaults(names));
        ASSERT_EQ(world.Start(Delivery::Callback), 0);
        EXPECT_EQ(world.api->m_counters[ECounter::FrameMalformed] > 0, isSeen) << names;
    }
}

TEST(Moments, OneShotOfALaterConnectSpoilsTheRebuild) {
    SessionWorld world(WithFaults("packet-lost@100,reset@2"));
    ASSERT_EQ(world.Start(Delivery::Callback), 0);
    EXPECT_EQ(world.api->m_counters[ECounter::ResetByPeer], 0U);
    ASSERT_TRUE(world.Receive(500));
    EXPECT_EQ(world.api->m_counters[ECounter::ResetByPeer], 1U);
    ASSERT_TRUE(world.ReceiveTheRest());
    EXPECT_THAT(world.DifferencesFromTruth(), IsEmpty());
}

// ---- faults of the board --------------------------------------------------------------------------------------------

TEST(LostPackets, RebuildTheSessionFromTheReceiveStep) {
    SessionWorld world(WithFaults("packet-lost"));
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
    SessionWorld world(WithFaults("packet-lost"));
    ASSERT_EQ(world.Start(Delivery::Callback), 0);
    const uint32_t checksum = world.board.Read(reg::CONFIG_CHECKSUM);
    ASSERT_TRUE(world.Receive(1500));
    EXPECT_EQ(world.board.Read(reg::CONFIG_CHECKSUM), checksum);
}

TEST(SameSeed, GivesTheSameSession) {
    const auto run = [] {
        SessionWorld world(WithFaults("all", 7));
        world.configKeys += "wait_snap_timeout=480\n";
        EXPECT_EQ(world.Start(Delivery::Callback), 0);
        EXPECT_TRUE(world.Receive(1500));
        std::string bytes;
        for (const auto& [id, record] : world.last) bytes.append(reinterpret_cast<const char*>(&record), sizeof record);
        return bytes;
    };
    EXPECT_EQ(run(), run());
}

}  // namespace
