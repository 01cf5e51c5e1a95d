// The messages of a snapshot, and the faults that spoil their contents.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cfloat>
#include <set>
#include <string>
#include <utility>

#include "exchange/Exchange.h"
#include "tests/unit/SnapshotReader.h"

namespace exchange {
namespace {

constexpr std::size_t SEGMENT = 1460;

class SyntheticSnapshot : public testing::Test {
protected:
    Exchange market{ExchangeOptions{}};
};

// ---- snapshots ------------------------------------------------------------------------------------------------

TEST_F(SyntheticSnapshot, FirstSnapshotTellsTheTruth) {
    ExpectSnapshotTellsTheTruth(market, SHFE_2PS);
    ExpectSnapshotTellsTheTruth(market, INE_2PS);
}

TEST_F(SyntheticSnapshot, LaterSnapshotTellsTheTruthOfThatMoment) {
    for (int i = 0; i < 30000; ++i) market.Next();
    ExpectSnapshotTellsTheTruth(market, SHFE_2PS);
    ExpectSnapshotTellsTheTruth(market, INE_2PS);
}

TEST_F(SyntheticSnapshot, SmallestExchangeHasAWholeSnapshot) {
    ExchangeOptions options;
    options.shfeInstruments = 1;
    options.ineInstruments = 1;
    Exchange smallest(options);
    ExpectSnapshotTellsTheTruth(smallest, SHFE_2PS);
    EXPECT_EQ(SnapshotReader(smallest.SnapshotMessages(SHFE_2PS)).Flags(),
              (std::vector<uint8_t>{mdqp::FLAG_MORE, mdqp::FLAG_LAST}));
}

TEST_F(SyntheticSnapshot, OnlyTheLastMessageClosesTheFeed) {
    std::vector<uint8_t> flags = SnapshotReader(market.SnapshotMessages(SHFE_2PS)).Flags();
    EXPECT_EQ(flags.back(), mdqp::FLAG_LAST);
    flags.pop_back();
    EXPECT_THAT(flags, testing::Each(mdqp::FLAG_MORE));
}

TEST_F(SyntheticSnapshot, FirstMessageNamesTopicAndPacket) {
    for (int i = 0; i < 7; ++i) market.Move(INE_2PS, i);
    const Messages messages = market.SnapshotMessages(INE_2PS);
    const SnapshotReader first({messages.front()});
    EXPECT_EQ(int{first.Snap().topic_id}, market.Options().ineTopicId);
    EXPECT_EQ(int32_t{first.Snap().snap_no}, 1);
    EXPECT_EQ(int32_t{first.PacketNo().packet_no}, 7);
    EXPECT_GT(messages.front().size(), 200U);
    EXPECT_LT(messages.front().size(), 1400U);
}

TEST_F(SyntheticSnapshot, NoFieldBeginsInTheLastBytesOfItsMessage) {
    for (const EMDQPDataType feed : QUOTED_FEEDS) {
        EXPECT_GT(SnapshotReader(market.SnapshotMessages(feed)).ShortestTail(), sizeof(mdqp_t));
    }
}

TEST_F(SyntheticSnapshot, SomeMessagesAreLongerThanASegmentAndNoneIsHuge) {
    int longOnes = 0;
    for (const std::vector<uint8_t>& message : market.SnapshotMessages(SHFE_2PS)) {
        EXPECT_LT(message.size(), 60000U);
        if (message.size() > SEGMENT) ++longOnes;
    }
    EXPECT_GT(longOnes, 5);
}

TEST_F(SyntheticSnapshot, CrossedSnapshotHoldsOneCrossedFuture) {
    const SnapshotReader reader(market.SnapshotMessages(SHFE_2PS, Only(EFault::CrossedBook)));
    int crossed = 0;
    for (const auto& [instNo, seen] : reader.Instruments()) {
        const VexaShfeMdType& truth = market.Truth(SHFE_2PS, instNo);
        if (seen.bids == Bids(truth) && seen.asks == Asks(truth)) continue;
        ++crossed;
        EXPECT_GT(seen.bids[0].first, seen.asks[0].first);
        EXPECT_LT(Copy(truth.bid1_px), Copy(truth.ask1_px));
        EXPECT_EQ(market.Instruments(SHFE_2PS)[static_cast<std::size_t>(instNo)].kind, InstrumentKind::Future);
    }
    EXPECT_EQ(crossed, 1);
}

TEST_F(SyntheticSnapshot, SnapshotAfterACrossedOneIsCleanAgain) {
    market.SnapshotMessages(INE_2PS, Only(EFault::CrossedBook));
    ExpectSnapshotTellsTheTruth(market, INE_2PS);
}

TEST_F(SyntheticSnapshot, EvenTheSmallestExchangeCanBeCrossed) {
    ExchangeOptions options;
    options.shfeInstruments = 1;
    Exchange smallest(options);
    const SnapshotReader reader(smallest.SnapshotMessages(SHFE_2PS, Only(EFault::CrossedBook)));
    const Seen& seen = reader.Instruments().at(0);
    EXPECT_GT(seen.bids[0].first, seen.asks[0].first);
}

// ---- faults ---------------------------------------------------------------------------------------------------

int32_t InstrumentsOf(const Exchange& market, EMDQPDataType feed) {
    return static_cast<int32_t>(market.Instruments(feed).size());
}

TEST_F(SyntheticSnapshot, OutsideLimitsRaisesOneFuturesLastAsk) {
    const SnapshotReader reader(market.SnapshotMessages(SHFE_2PS, Only(EFault::OutsideLimits)));
    int outside = 0;
    for (const auto& [instNo, seen] : reader.Instruments()) {
        const Instrument& instrument = market.Instruments(SHFE_2PS)[static_cast<std::size_t>(instNo)];
        const VexaShfeMdType& truth = market.Truth(SHFE_2PS, instNo);
        EXPECT_EQ(seen.bids, Bids(truth));
        if (seen.asks == Asks(truth)) continue;
        ++outside;
        EXPECT_EQ(instrument.kind, InstrumentKind::Future);
        for (std::size_t i = 0; i < seen.asks.size(); ++i) {
            const bool isLast = i + 1 == seen.asks.size() || seen.asks[i + 1].first == 0;
            EXPECT_EQ(seen.asks[i].first > instrument.upperLimit, isLast && seen.asks[i].first != 0);
            if (isLast) break;
        }
    }
    EXPECT_EQ(outside, 1);
}

TEST_F(SyntheticSnapshot, UnknownFieldsStandBetweenInstrumentsAndTouchNone) {
    const SnapshotReader reader(market.SnapshotMessages(SHFE_2PS, Only(EFault::UnknownField)));
    EXPECT_GT(reader.UnknownFields().size(), 20U);
    EXPECT_EQ(reader.Instruments().size(), market.Instruments(SHFE_2PS).size());
    ExpectTruth(reader, market, SHFE_2PS);
}

TEST_F(SyntheticSnapshot, StrayInstrumentsLieBelowAndBehindTheTable) {
    for (const auto& [feed, capacity] :
         {std::pair(SHFE_2PS, SHFE_INST_CAPACITY), std::pair(INE_2PS, INE_INST_CAPACITY)}) {
        const SnapshotReader reader(market.SnapshotMessages(feed, Only(EFault::InstrumentOutOfRange)));
        int below = 0;
        int behind = 0;
        for (const auto& [instNo, seen] : reader.Instruments()) {
            below += instNo < 0;
            behind += instNo >= capacity;
            EXPECT_EQ(Copy(seen.info.inst_no), instNo);
            EXPECT_EQ(Copy(seen.deal.inst_no), instNo);
        }
        EXPECT_GT(below, 0);
        EXPECT_GT(behind, 0);
        EXPECT_EQ(reader.Instruments().size(), static_cast<std::size_t>(InstrumentsOf(market, feed) + below + behind));
        ExpectTruth(reader, market, feed);
    }
}

TEST_F(SyntheticSnapshot, AbsentPricesAreZeroInTheTruthToo) {
    const SnapshotReader reader(market.SnapshotMessages(SHFE_2PS, Only(EFault::AbsentValues)));
    int absent = 0;
    for (const auto& [instNo, seen] : reader.Instruments()) {
        EXPECT_EQ(double{seen.deal.open_price}, DBL_MAX);
        const bool isAbsent = seen.deal.last_price == DBL_MAX;
        absent += isAbsent;
        EXPECT_EQ(seen.deal.highest_price == DBL_MAX, isAbsent);
        EXPECT_EQ(seen.deal.lowest_price == DBL_MAX, isAbsent);
        EXPECT_EQ(market.Truth(SHFE_2PS, instNo).last_px == 0, isAbsent);
    }
    EXPECT_GT(absent, 30);
    EXPECT_LT(absent, 120);
    ExpectTruth(reader, market, SHFE_2PS);
}

TEST_F(SyntheticSnapshot, NextDealBringsAbsentPricesBack) {
    market.SnapshotMessages(INE_2PS, Only(EFault::AbsentValues));
    for (int32_t instNo = 0; instNo < InstrumentsOf(market, INE_2PS); ++instNo) {
        while (!market.Move(INE_2PS, instNo).hasDeal) {
        }
        EXPECT_NE(Copy(market.Truth(INE_2PS, instNo).last_px), 0);
        EXPECT_NE(Copy(market.Truth(INE_2PS, instNo).low_price), 0);
    }
}

TEST_F(SyntheticSnapshot, SamePricesAreAbsentEachTime) {
    market.SnapshotMessages(INE_2PS, Only(EFault::AbsentValues));
    std::vector<int32_t> before;
    for (int32_t i = 0; i < InstrumentsOf(market, INE_2PS); ++i) before.push_back(market.Truth(INE_2PS, i).last_px);
    market.SnapshotMessages(INE_2PS, Only(EFault::AbsentValues));
    for (int32_t i = 0; i < InstrumentsOf(market, INE_2PS); ++i) {
        EXPECT_EQ(Copy(market.Truth(INE_2PS, i).last_px), before[static_cast<std::size_t>(i)]);
    }
}

TEST_F(SyntheticSnapshot, WrongTopicIsNeitherExchanges) {
    const SnapshotReader reader(market.SnapshotMessages(SHFE_2PS, Only(EFault::WrongTopic)));
    EXPECT_EQ(int{reader.Snap().topic_id}, -1);
    ExpectTruth(reader, market, SHFE_2PS);
}

TEST_F(SyntheticSnapshot, UnaskedOneTellsTheSameUnderTheOtherTopic) {
    const SnapshotReader reader(market.UnaskedMessages(INE_2PS));
    EXPECT_EQ(int{reader.Snap().topic_id}, 5101);
    ExpectTruth(reader, market, INE_2PS);
}

TEST_F(SyntheticSnapshot, TailsBeginAtEachOfTheLastTwelveBytes) {
    std::set<std::size_t> added;
    for (int snapshot = 0; snapshot < 4; ++snapshot) {
        const Messages plain = market.SnapshotMessages(SHFE_2PS);
        Exchange twin{ExchangeOptions{}};
        for (int before = 0; before < 2 * snapshot; ++before) twin.SnapshotMessages(SHFE_2PS);
        const Messages tailed = twin.SnapshotMessages(SHFE_2PS, Only(EFault::TailField));
        ASSERT_EQ(tailed.size(), plain.size());
        for (std::size_t i = 0; i < plain.size(); ++i) added.insert(tailed[i].size() - plain[i].size());
        market.SnapshotMessages(SHFE_2PS);
    }
    EXPECT_EQ(added, (std::set<std::size_t>{0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12}));
}

TEST_F(SyntheticSnapshot, WrongBooksHaveEveryDepthAndAreWrongByAUnitOrATick) {
    std::set<std::pair<int, int>> depths;
    std::set<std::string> wrongs;
    for (int snapshot = 0; snapshot < 400; ++snapshot) {
        const SnapshotReader reader(market.SnapshotMessages(INE_2PS, Only(EFault::WrongBook)));
        for (const auto& [instNo, seen] : reader.Instruments()) {
            const Instrument& instrument = market.Instruments(INE_2PS)[static_cast<std::size_t>(instNo)];
            const auto cents = [](double yuan) { return static_cast<int32_t>(yuan * 100 + 0.5); };
            const int32_t upper = cents(seen.deal.upper_limit_price);
            const int32_t lower = cents(seen.deal.lower_limit_price);
            if (upper == instrument.upperLimit && lower == instrument.lowerLimit) continue;
            std::vector<int32_t> prices;
            for (auto ask = seen.asks.rbegin(); ask != seen.asks.rend(); ++ask) prices.push_back(ask->first);
            for (const auto& bid : seen.bids) prices.push_back(bid.first);
            const auto quoted = [](const auto& side) {
                return static_cast<int>(
                    std::count_if(side.begin(), side.end(), [](auto level) { return level.first != 0; }));
            };
            depths.emplace(quoted(seen.asks), quoted(seen.bids));
            std::erase(prices, 0);
            const auto tell = [&](const char* what, int32_t by) {
                if (by == 1) wrongs.insert(std::string(what) + " by a unit");
                if (by == instrument.priceTick) wrongs.insert(std::string(what) + " by a tick");
            };
            const auto [least, most] = std::minmax_element(prices.begin(), prices.end());
            tell("above", *most - upper);
            tell("below", lower - *least);
            if (depths.empty() || seen.asks[0].first == 0 || seen.bids[0].first == 0) continue;
            if (seen.bids[0].first == seen.asks[0].first) wrongs.insert("met");
            tell("crossed", seen.bids[0].first - seen.asks[0].first);
        }
    }
    EXPECT_EQ(depths.size(), 35U);  // all of six by six but the empty book
    EXPECT_EQ(wrongs, (std::set<std::string>{"above by a tick", "above by a unit", "below by a tick", "below by a unit",
                                             "crossed by a tick", "crossed by a unit", "met"}));
}

TEST_F(SyntheticSnapshot, SettlementLimitsAreImpossibleAndTheOthersTrue) {
    const SnapshotReader reader(market.SnapshotMessages(SHFE_2PS, Only(EFault::SettlementLimits)));
    int impossible = 0;
    for (const auto& [instNo, seen] : reader.Instruments()) {
        const bool isTas = market.Instruments(SHFE_2PS)[static_cast<std::size_t>(instNo)].kind == InstrumentKind::Tas;
        EXPECT_EQ(seen.deal.upper_limit_price < seen.deal.lower_limit_price, isTas) << instNo;
        impossible += isTas ? 1 : 0;
    }
    EXPECT_GT(impossible, 3);
}

TEST_F(SyntheticSnapshot, ListsChangeWithTheirNumberAndKeepTheFirst) {
    std::set<std::size_t> sizes;
    for (uint64_t number = 1; number <= 20; ++number) {
        market.Relist(number);
        const SnapshotReader reader(market.SnapshotMessages(SHFE_2PS));
        sizes.insert(reader.Instruments().size());
        EXPECT_TRUE(market.IsListed(SHFE_2PS, 0));
        EXPECT_EQ(reader.Instruments().rbegin()->first + 1, market.ListedEnd(SHFE_2PS));
        for (const auto& [instNo, seen] : reader.Instruments()) EXPECT_TRUE(market.IsListed(SHFE_2PS, instNo));
        for (int move = 0; move < 50; ++move) {
            const LiveUpdate update = market.Next();
            EXPECT_TRUE(market.IsListed(update.feed, update.instNo));
        }
    }
    EXPECT_GT(sizes.size(), 10U);
    market.Relist(0);
    ExpectSnapshotTellsTheTruth(market, SHFE_2PS);
}

TEST_F(SyntheticSnapshot, OversizedMessageEndsTheStreamHalfWay) {
    Exchange twin{ExchangeOptions{}};
    const std::size_t whole = twin.SnapshotMessages(SHFE_2PS).size();
    const Messages messages = market.SnapshotMessages(SHFE_2PS, Only(EFault::OversizedMessage));
    EXPECT_EQ(messages.size(), whole / 2 + 1);
    EXPECT_EQ(messages.back().size(), sizeof(mdqp_t) + UINT16_MAX);
    EXPECT_THAT(SnapshotReader(messages).Flags(), testing::Each(mdqp::FLAG_MORE));
}

TEST_F(SyntheticSnapshot, FaultsOfContentsMoveNoMessageEnd) {
    Exchange twin{ExchangeOptions{}};
    const Messages right = market.SnapshotMessages(SHFE_2PS);
    const Messages spoiled = twin.SnapshotMessages(
        SHFE_2PS, Only(EFault::CrossedBook, EFault::OutsideLimits, EFault::AbsentValues, EFault::WrongTopic));
    ASSERT_EQ(right.size(), spoiled.size());
    for (std::size_t i = 0; i < right.size(); ++i) EXPECT_EQ(right[i].size(), spoiled[i].size());
}

}  // namespace
}  // namespace exchange
