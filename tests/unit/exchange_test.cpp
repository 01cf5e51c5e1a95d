#include "exchange/Exchange.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <map>
#include <set>
#include <string>

#include "tests/unit/SnapshotReader.h"

namespace exchange {
namespace {

constexpr std::size_t LEVEL_BYTES = 8;

void Advance(Exchange& market, int updates) {
    for (int i = 0; i < updates; ++i) market.Next();
}

bool IsSameRecord(const VexaShfeMdType& left, const VexaShfeMdType& right) {
    return std::memcmp(&left, &right, sizeof(left)) == 0;
}

const Instrument* Find(const Exchange& market, EMDQPDataType feed, const std::string& id) {
    for (const Instrument& instrument : market.Instruments(feed)) {
        if (instrument.id == id) return &instrument;
    }
    return nullptr;
}

class SyntheticExchange : public testing::Test {
protected:
    template <typename Check>
    void ForEachInstrument(Check check) {
        for (const EMDQPDataType feed : QUOTED_FEEDS) {
            for (const Instrument& instrument : market.Instruments(feed)) {
                SCOPED_TRACE(instrument.id);
                check(instrument, market.Truth(feed, instrument.instNo));
            }
        }
    }

    Exchange market{ExchangeOptions{}};
};

// ---- what is listed -------------------------------------------------------------------------------------------

TEST_F(SyntheticExchange, ListsAsManyInstrumentsAsAsked) {
    for (const auto& [shfe, ine] : {std::pair{1, 1}, std::pair{37, 3}, std::pair{600, 200}, std::pair{16384, 4096}}) {
        ExchangeOptions options;
        options.shfeInstruments = shfe;
        options.ineInstruments = ine;
        const Exchange sized(options);
        EXPECT_EQ(sized.Instruments(SHFE_2PS).size(), static_cast<std::size_t>(shfe));
        EXPECT_EQ(sized.Instruments(INE_2PS).size(), static_cast<std::size_t>(ine));
    }
}

TEST_F(SyntheticExchange, CountsStayWithinTheTables) {
    ExchangeOptions options;
    options.shfeInstruments = 20000;
    options.ineInstruments = 0;
    const Exchange cut(options);
    EXPECT_EQ(cut.Options().shfeInstruments, SHFE_INST_CAPACITY);
    EXPECT_EQ(cut.Options().ineInstruments, 1);
}

TEST_F(SyntheticExchange, InstrumentNumberIsTheIndex) {
    for (const EMDQPDataType feed : QUOTED_FEEDS) {
        for (std::size_t i = 0; i < market.Instruments(feed).size(); ++i) {
            EXPECT_EQ(market.Instruments(feed)[i].instNo, static_cast<int32_t>(i));
            EXPECT_EQ(market.Truth(feed, static_cast<int32_t>(i)).inst_no, i);
        }
    }
}

TEST_F(SyntheticExchange, IdsAreUniqueAndFitTheRecord) {
    ExchangeOptions options;
    options.shfeInstruments = SHFE_INST_CAPACITY;
    options.ineInstruments = INE_INST_CAPACITY;
    const Exchange full(options);
    std::set<std::string> ids;
    for (const EMDQPDataType feed : QUOTED_FEEDS) {
        for (const Instrument& instrument : full.Instruments(feed)) {
            EXPECT_LE(instrument.id.size(), sizeof(VexaShfeMdType::inst_id) - 1) << instrument.id;
            EXPECT_TRUE(ids.insert(instrument.id).second) << instrument.id;
        }
    }
}

TEST_F(SyntheticExchange, ProductsAreThoseOfTheTwoExchanges) {
    const std::set<std::string> shfe{"cu", "al", "zn", "pb", "ni", "sn", "au", "ag", "rb", "wr",
                                     "hc", "ss", "fu", "bu", "ru", "sp", "ao", "br", "ad", "op"};
    const std::set<std::string> ine{"sc", "lu", "nr", "bc", "ec"};
    std::set<std::string> listedShfe;
    std::set<std::string> listedIne;
    for (const Instrument& instrument : market.Instruments(SHFE_2PS)) listedShfe.insert(instrument.product);
    for (const Instrument& instrument : market.Instruments(INE_2PS)) listedIne.insert(instrument.product);
    EXPECT_EQ(listedShfe, shfe);
    EXPECT_EQ(listedIne, ine);
}

TEST_F(SyntheticExchange, BothExchangesListEveryKind) {
    for (const EMDQPDataType feed : QUOTED_FEEDS) {
        std::map<InstrumentKind, int> kinds;
        for (const Instrument& instrument : market.Instruments(feed)) ++kinds[instrument.kind];
        EXPECT_GT(kinds[InstrumentKind::Future], 20);
        EXPECT_GT(kinds[InstrumentKind::Option], 20);
        EXPECT_GT(kinds[InstrumentKind::Tas], 2);
    }
}

TEST_F(SyntheticExchange, OnlyTradeAtSettlementIdsSayTas) {
    ForEachInstrument([](const Instrument& instrument, const VexaShfeMdType&) {
        EXPECT_EQ(instrument.id.find("TAS") != std::string::npos, instrument.kind == InstrumentKind::Tas);
    });
}

TEST_F(SyntheticExchange, DeliveryMonthsFollowTheTradingDay) {
    EXPECT_NE(Find(market, SHFE_2PS, "cu2605"), nullptr);
    EXPECT_NE(Find(market, SHFE_2PS, "cu2704"), nullptr);
    EXPECT_EQ(Find(market, SHFE_2PS, "cu2604"), nullptr);
    EXPECT_NE(Find(market, INE_2PS, "sc2605TAS"), nullptr);
}

TEST_F(SyntheticExchange, DeliveryMonthsRunOverTheTurnOfTheYear) {
    ExchangeOptions options;
    options.tradingDay = 20261215;
    EXPECT_EQ(Exchange(options).Instruments(SHFE_2PS).front().id, "cu2701");
}

TEST_F(SyntheticExchange, TicksAndMultipliersAreTheRealOnes) {
    const Instrument* copper = Find(market, SHFE_2PS, "cu2606");
    const Instrument* gold = Find(market, SHFE_2PS, "au2606");
    const Instrument* crude = Find(market, INE_2PS, "sc2606");
    ASSERT_TRUE(copper && gold && crude);
    EXPECT_EQ(copper->priceTick, 1000);
    EXPECT_EQ(copper->volumeMultiple, 5);
    EXPECT_EQ(gold->priceTick, 2);
    EXPECT_EQ(gold->volumeMultiple, 1000);
    EXPECT_EQ(crude->priceTick, 10);
    EXPECT_EQ(crude->volumeMultiple, 1000);
}

TEST_F(SyntheticExchange, LimitsEncloseTheReferencePrice) {
    ForEachInstrument([](const Instrument& instrument, const VexaShfeMdType&) {
        EXPECT_GT(instrument.lowerLimit, 0);
        EXPECT_LT(instrument.lowerLimit, instrument.codecPrice);
        EXPECT_GT(instrument.upperLimit, instrument.codecPrice);
        EXPECT_EQ(instrument.lowerLimit % instrument.priceTick, 0);
        EXPECT_EQ(instrument.codecPrice % instrument.priceTick, 0);
        EXPECT_EQ(instrument.upperLimit % instrument.priceTick, 0);
    });
}

TEST_F(SyntheticExchange, FourPsFeedsListNothing) {
    EXPECT_TRUE(market.Instruments(SHFE_4PS).empty());
    EXPECT_TRUE(market.Instruments(INE_4PS).empty());
    EXPECT_TRUE(market.SnapshotMessages(SHFE_4PS).empty());
}

// ---- books and the day's figures ------------------------------------------------------------------------------

void ExpectQuoted(const Instrument& instrument, const Levels& levels, int32_t direction) {
    for (std::size_t i = 0; i < levels.size(); ++i) {
        const auto& [price, volume] = levels[i];
        EXPECT_EQ(price == 0, volume == 0);
        if (price == 0) continue;
        EXPECT_EQ(price % instrument.priceTick, 0);
        EXPECT_GE(price, instrument.lowerLimit);
        EXPECT_LE(price, instrument.upperLimit);
        if (i == 0) continue;
        EXPECT_NE(levels[i - 1].first, 0) << "an empty level between quoted ones";
        EXPECT_GT(price * direction, levels[i - 1].first * direction);
    }
}

TEST_F(SyntheticExchange, BooksStayStrictlyOrderedAndWithinTheLimits) {
    for (int round = 0; round < 20; ++round) {
        ForEachInstrument([](const Instrument& instrument, const VexaShfeMdType& truth) {
            ExpectQuoted(instrument, Bids(truth), -1);
            ExpectQuoted(instrument, Asks(truth), 1);
            if (truth.bid1_px != 0 && truth.ask1_px != 0) {
                EXPECT_LT(Copy(truth.bid1_px), Copy(truth.ask1_px));
            }
        });
        Advance(market, 2000);
    }
}

TEST_F(SyntheticExchange, QuotesTurnBackAtTheLimits) {
    const Instrument* narrow = Find(market, SHFE_2PS, "cu2605TAS");
    ASSERT_NE(narrow, nullptr);
    const VexaShfeMdType& truth = market.Truth(SHFE_2PS, narrow->instNo);
    int32_t lowest = narrow->codecPrice;
    int32_t highest = narrow->codecPrice;
    for (int i = 0; i < 20000; ++i) {
        market.Move(SHFE_2PS, narrow->instNo);
        ASSERT_TRUE(truth.bid1_px != 0 && truth.ask1_px != 0) << "after " << i << " moves";
        lowest = std::min(lowest, Copy(truth.bid1_px));
        highest = std::max(highest, Copy(truth.ask1_px));
    }
    EXPECT_EQ(lowest, narrow->lowerLimit);
    EXPECT_EQ(highest, narrow->upperLimit);
}

TEST_F(SyntheticExchange, MostBooksAreFullAndSomeAreThin) {
    int full = 0;
    int all = 0;
    ForEachInstrument([&](const Instrument&, const VexaShfeMdType& truth) {
        ++all;
        if (truth.bid5_px != 0 && truth.ask5_px != 0) ++full;
    });
    EXPECT_GT(full, all / 2);
    EXPECT_LT(full, all);
}

TEST_F(SyntheticExchange, HighAndLowEncloseTheLastPrice) {
    Advance(market, 20000);
    ForEachInstrument([](const Instrument& instrument, const VexaShfeMdType& truth) {
        EXPECT_GE(Copy(truth.high_price), Copy(truth.last_px));
        EXPECT_LE(Copy(truth.low_price), Copy(truth.last_px));
        EXPECT_LE(Copy(truth.high_price), instrument.upperLimit);
        EXPECT_GE(Copy(truth.low_price), instrument.lowerLimit);
    });
}

TEST_F(SyntheticExchange, TurnoverIsVolumeAtPricesOfTheDay) {
    Advance(market, 20000);
    ForEachInstrument([](const Instrument& instrument, const VexaShfeMdType& truth) {
        const int64_t units = int64_t{truth.volume} * instrument.volumeMultiple;
        EXPECT_GE(Copy(truth.turnover), units * Copy(truth.low_price));
        EXPECT_LE(Copy(truth.turnover), units * Copy(truth.high_price));
        EXPECT_GE(Copy(truth.open_interest), 0);
    });
}

TEST_F(SyntheticExchange, OrderStatisticsCoverTheLevelsShown) {
    ForEachInstrument([](const Instrument& instrument, const VexaShfeMdType& truth) {
        uint32_t volume = 0;
        int64_t amount = 0;
        for (const auto& [price, lots] : Bids(truth)) {
            volume += lots;
            amount += int64_t{price} * lots * instrument.volumeMultiple;
        }
        EXPECT_GE(Copy(truth.bid_volume), volume);
        EXPECT_GE(Copy(truth.bid_amount), amount);
        EXPECT_EQ(truth.bid_volume == volume, truth.bid_amount == amount);
    });
}

TEST_F(SyntheticExchange, AmountsStayBelowWhatTheWireCarries) {
    Advance(market, 50000);
    ForEachInstrument([](const Instrument&, const VexaShfeMdType& truth) {
        EXPECT_LT(Copy(truth.turnover), AMOUNT_LIMIT);
        EXPECT_LT(Copy(truth.bid_amount), AMOUNT_LIMIT);
        EXPECT_LT(Copy(truth.ask_amount), AMOUNT_LIMIT);
    });
}

TEST(WireDouble, GivesBackEveryIntegerBelowTheAmountLimit) {
    Random random(1, "wire");
    for (int i = 0; i < 200000; ++i) {
        const auto amount = static_cast<int64_t>(random.Next() >> (14 + random.Below(40)));
        ASSERT_EQ(Hundredths(static_cast<double>(amount) / 100.0), amount);
    }
    EXPECT_EQ(Hundredths(static_cast<double>(AMOUNT_LIMIT - 1) / 100.0), AMOUNT_LIMIT - 1);
}

// ---- live updates ---------------------------------------------------------------------------------------------

TEST_F(SyntheticExchange, ChangeNumberGrowsByOneAtEachMove) {
    const uint32_t before = market.Truth(SHFE_2PS, 5).change_no;
    EXPECT_EQ(market.Move(SHFE_2PS, 5).changeNo, before + 1);
    EXPECT_EQ(market.Move(SHFE_2PS, 5).changeNo, before + 2);
    EXPECT_EQ(market.Truth(SHFE_2PS, 5).change_no, before + 2);
}

TEST_F(SyntheticExchange, TimeOfTheExchangeOnlyAdvances) {
    int64_t before = 0;
    for (int i = 0; i < 5000; ++i) {
        const LiveUpdate update = market.Next();
        const int64_t now = int64_t{update.updateTime} * 1000 + update.updateMilliSec;
        ASSERT_LT(update.updateMilliSec, 1000);
        ASSERT_GT(now, before);
        before = now;
    }
}

void LayOver(const LiveUpdate& update, VexaShfeMdType& record) {
    record.change_no = update.changeNo;
    record.update_time = update.updateTime;
    record.update_milli_sec = update.updateMilliSec;
    if (update.hasDeal) {
        record.last_px = update.lastPrice;
        record.volume = update.volume;
        record.turnover = update.turnover;
        record.open_interest = update.openInterest;
        record.high_price = update.highPrice;
        record.low_price = update.lowPrice;
    }
    if (!update.hasBook) return;
    auto* bytes = reinterpret_cast<char*>(&record);
    for (std::size_t i = 0; i < BOOK_LEVELS; ++i) {  // the levels lie in pairs of price and volume, best first
        std::memcpy(bytes + offsetof(VexaShfeMdType, bid1_px) + LEVEL_BYTES * i, &update.bidPrice[i], 4);
        std::memcpy(bytes + offsetof(VexaShfeMdType, bid1_vol) + LEVEL_BYTES * i, &update.bidVolume[i], 4);
        std::memcpy(bytes + offsetof(VexaShfeMdType, ask1_px) + LEVEL_BYTES * i, &update.askPrice[i], 4);
        std::memcpy(bytes + offsetof(VexaShfeMdType, ask1_vol) + LEVEL_BYTES * i, &update.askVolume[i], 4);
    }
    record.bid_volume = update.totalBidVolume;
    record.bid_amount = update.totalBidAmount;
    record.ask_volume = update.totalAskVolume;
    record.ask_amount = update.totalAskAmount;
}

TEST_F(SyntheticExchange, UpdateLaidOverTheOldRecordGivesTheTruth) {
    for (int i = 0; i < 2000; ++i) {
        const int32_t instNo = i % 200;
        VexaShfeMdType record = market.Truth(INE_2PS, instNo);
        LayOver(market.Move(INE_2PS, instNo), record);
        ASSERT_TRUE(IsSameRecord(record, market.Truth(INE_2PS, instNo))) << i;
    }
}

TEST_F(SyntheticExchange, UpdatesCarryADealOrABookOrBoth) {
    std::set<std::pair<bool, bool>> seen;
    for (int i = 0; i < 200; ++i) {
        const LiveUpdate update = market.Next();
        seen.insert({update.hasDeal, update.hasBook});
    }
    EXPECT_EQ(seen, (std::set<std::pair<bool, bool>>{{true, false}, {false, true}, {true, true}}));
}

TEST_F(SyntheticExchange, UnknownInstrumentDoesNotMove) {
    for (const int32_t instNo : {-1, 200, INE_INST_CAPACITY}) {
        const LiveUpdate update = market.Move(INE_2PS, instNo);
        EXPECT_EQ(update.changeNo, 0U);
        EXPECT_FALSE(update.hasDeal || update.hasBook);
        EXPECT_EQ(market.Truth(INE_2PS, instNo).inst_id[0], '\0');
    }
}

// ---- chance ---------------------------------------------------------------------------------------------------

TEST_F(SyntheticExchange, SameSeedGivesTheSameRun) {
    Exchange twin{ExchangeOptions{}};
    Advance(market, 5000);
    Advance(twin, 5000);
    EXPECT_EQ(market.SnapshotMessages(SHFE_2PS), twin.SnapshotMessages(SHFE_2PS));
    EXPECT_EQ(market.SnapshotMessages(INE_2PS), twin.SnapshotMessages(INE_2PS));
}

TEST_F(SyntheticExchange, AnotherSeedGivesAnotherRun) {
    ExchangeOptions options;
    options.seed = 2;
    EXPECT_NE(market.SnapshotMessages(SHFE_2PS), Exchange(options).SnapshotMessages(SHFE_2PS));
}

TEST_F(SyntheticExchange, SnapshotsLeaveTheRunAsItWas) {
    Exchange twin{ExchangeOptions{}};
    twin.SnapshotMessages(SHFE_2PS, Only(EFault::CrossedBook));
    Advance(market, 1000);
    Advance(twin, 1000);
    for (const Instrument& instrument : market.Instruments(SHFE_2PS)) {
        EXPECT_TRUE(IsSameRecord(market.Truth(SHFE_2PS, instrument.instNo), twin.Truth(SHFE_2PS, instrument.instNo)));
    }
}

}  // namespace
}  // namespace exchange
