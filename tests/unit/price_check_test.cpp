#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <cstring>
#include <string>
#include <vector>

#include "testing/LogCapture.h"
#include "tests/support/FilledSlot.h"
#include "tests/support/TestableApi.h"

using testing::ElementsAre;
using testing::IsEmpty;

namespace {

/// ask5 .. ask1, bid1 .. bid5
using Book = std::vector<int>;

class PriceCheck : public testing::Test {
protected:
    static int32_t Check(Book book, int32_t upper = 1000, int32_t lower = 1) {
        return TestableApi::CheckPrice(book, upper, lower);
    }
    void Put(EMDQPDataType feed, int32_t instNo, const char* id, const Book& book) {
        SInstTableType& slot = *api->m_store.Slot(feed, instNo);
        std::strncpy(slot.inst_id, id, sizeof slot.inst_id - 1);
        slot.upper_limit_price = 1000;
        slot.lower_limit_price = 1;
        slot.ask5_price = book[0];
        slot.ask4_price = book[1];
        slot.ask3_price = book[2];
        slot.ask2_price = book[3];
        slot.ask1_price = book[4];
        slot.bid1_price = book[5];
        slot.bid2_price = book[6];
        slot.bid3_price = book[7];
        slot.bid4_price = book[8];
        slot.bid5_price = book[9];
        uint64_t& count = api->m_u50InstCount.*TraitsOf(feed).instCount;
        count = std::max(count, static_cast<uint64_t>(instNo) + 1);
    }
    int32_t CheckAll() { return TestableApi::ShfePriceCheck(*api); }

    LogCapture log;
    std::unique_ptr<TestableApi> api = MakeApi();
    const Book sane{0, 0, 105, 104, 103, 102, 101, 0, 0, 0};
    const Book crossed{0, 0, 105, 104, 103, 103, 101, 0, 0, 0};
};

TEST_F(PriceCheck, EmptyBookPasses) { EXPECT_EQ(Check(Book(10, 0)), 0); }

TEST_F(PriceCheck, EmptyLevelsOutsideTheQuotedOnesPass) { EXPECT_EQ(Check(sane), 0); }

TEST_F(PriceCheck, GapBetweenBidsFailsAtTheQuoteBehindIt) {
    EXPECT_EQ(Check({0, 0, 0, 0, 0, 102, 0, 100, 0, 0}), -2);
    EXPECT_TRUE(log.Has(LOG_WARNING, "The price is abnormal, price index is :7 "));
}

TEST_F(PriceCheck, AskEqualToTheBidFails) {
    EXPECT_EQ(Check(crossed), -2);
    EXPECT_TRUE(log.Has(LOG_WARNING, "The price is abnormal, price index is :5 "));
}

TEST_F(PriceCheck, LimitsAreInclusive) {
    EXPECT_EQ(Check({0, 0, 0, 0, 200, 100, 0, 0, 0, 0}, 200, 100), 0);
    EXPECT_EQ(Check({0, 0, 0, 0, 201, 100, 0, 0, 0, 0}, 200, 100), -1);
    EXPECT_TRUE(log.Has(LOG_WARNING,
                        "(price > up) or (price < lower), price is 201, up is 200, lower is 100, shfe2psInstTable "
                        "index is :4"));
    EXPECT_EQ(Check({0, 0, 0, 0, 200, 99, 0, 0, 0, 0}, 200, 100), -1);
}

TEST_F(PriceCheck, ZeroIsExemptFromNegativeLimits) {
    EXPECT_EQ(Check(Book(10, 0), -10, -20), 0);
    EXPECT_EQ(Check({0, 0, 0, 0, -11, -12, 0, 0, 0, 0}, -10, -20), -2);  // the zero behind them is above them
}

TEST_F(PriceCheck, TasInstrumentsAreSkippedWhereverTheLettersStand) {
    for (const char* id : {"TAScu", "cuTAS12", "cu2612TAS"}) EXPECT_TRUE(TestableApi::isShfeTasInst(id));
    for (const char* id : {"cu2612tas", "cu2612TA", ""}) EXPECT_FALSE(TestableApi::isShfeTasInst(id));
    Put(SHFE_2PS, 0, "cu2612TAS", crossed);
    EXPECT_EQ(CheckAll(), 0);
    EXPECT_THAT(api->m_setPriceErrorInstId, IsEmpty());
}

TEST_F(PriceCheck, FailingInstrumentIsRememberedAndLoggedInThirteenLines) {
    Put(INE_4PS, 4, "sane", sane);
    Put(INE_4PS, 5, "sc2612", {110, 109, 108, 107, 106, 105, 104, 104, 102, 101});
    api->m_store.Slot(INE_4PS, 5)->upper_limit_price = 2000;
    api->m_store.Slot(INE_4PS, 5)->lower_limit_price = -3;
    EXPECT_EQ(CheckAll(), -2);
    EXPECT_THAT(api->m_setPriceErrorInstId, ElementsAre("sc2612"));
    EXPECT_THAT(log.Texts(LOG_ERROR),
                ElementsAre("inst_id [sc2612] inst_no[5]", "upper_price is [    2000]", "lower_price is [      -3]",
                            "ask5_price is [     110]", "ask4_price is [     109]", "ask3_price is [     108]",
                            "ask2_price is [     107]", "ask1_price is [     106]", "bid1_price is [     105]",
                            "bid2_price is [     104]", "bid3_price is [     104]", "bid4_price is [     102]",
                            "bid5_price is [     101]"));
    EXPECT_THAT(log.Texts(LOG_WARNING), ElementsAre("The price is abnormal, price index is :7 "));
}

TEST_F(PriceCheck, FirstFailureEndsTheCheck) {
    Put(SHFE_2PS, 0, "first", crossed);
    Put(SHFE_2PS, 1, "second", crossed);
    EXPECT_EQ(CheckAll(), -2);
    EXPECT_THAT(api->m_setPriceErrorInstId, ElementsAre("first"));
}

TEST_F(PriceCheck, ShieldedFailuresAreLoggedRememberedAndPassed) {
    api->m_u50ConfigInfo.shield_price_check = true;
    Put(SHFE_2PS, 0, "first", crossed);
    Put(SHFE_2PS, 1, "second", crossed);
    EXPECT_EQ(CheckAll(), 0);
    EXPECT_THAT(api->m_setPriceErrorInstId, ElementsAre("first", "second"));
    EXPECT_EQ(log.Texts(LOG_ERROR).size(), 26U);
}

TEST_F(PriceCheck, TablesAreVisitedInterleavedBySlot) {
    Put(SHFE_2PS, 1, "shfe", crossed);
    Put(INE_4PS, 0, "ine", {0, 0, 0, 0, 2000, 0, 0, 0, 0, 0});
    EXPECT_EQ(CheckAll(), -1);
    EXPECT_THAT(api->m_setPriceErrorInstId, ElementsAre("ine"));
}

TEST_F(PriceCheck, FeedsOfOneSlotAreVisitedInTheirOrder) {
    api->m_u50ConfigInfo.shield_price_check = true;
    Put(INE_4PS, 2, "d", crossed);
    Put(INE_2PS, 2, "c", crossed);
    Put(SHFE_4PS, 2, "b", crossed);
    Put(SHFE_2PS, 2, "a", crossed);
    Put(INE_2PS, 1, "before", crossed);
    EXPECT_EQ(CheckAll(), 0);
    std::vector<std::string> visited;
    for (const std::string& line : log.Texts(LOG_ERROR)) {
        if (line.find("inst_id") == 0) visited.push_back(line);
    }
    EXPECT_THAT(visited, ElementsAre("inst_id [before] inst_no[1]", "inst_id [a] inst_no[2]", "inst_id [b] inst_no[2]",
                                     "inst_id [c] inst_no[2]", "inst_id [d] inst_no[2]"));
}

TEST_F(PriceCheck, LastSlotsOfTheTablesAreVisited) {
    api->m_u50ConfigInfo.shield_price_check = true;
    Put(SHFE_2PS, 16383, "a", crossed);
    Put(SHFE_4PS, 16383, "b", crossed);
    Put(INE_2PS, 4095, "c", crossed);
    Put(INE_4PS, 4095, "d", crossed);
    EXPECT_EQ(CheckAll(), 0);
    EXPECT_THAT(api->m_setPriceErrorInstId, ElementsAre("a", "b", "c", "d"));
}

TEST_F(PriceCheck, SlotAtTheCountIsNotVisited) {
    Put(SHFE_4PS, 6, "cu2612", crossed);
    api->m_u50InstCount = {7, 6, 7, 7};
    EXPECT_EQ(CheckAll(), 0);
    EXPECT_THAT(log.lines, IsEmpty());
    api->m_u50InstCount.shfe_inst_cnt_4ps = 7;
    EXPECT_EQ(CheckAll(), -2);
}

TEST_F(PriceCheck, TableWithoutInstrumentsIsNeverVisited) {
    Put(SHFE_2PS, 0, "cu2612", crossed);
    api->m_u50InstCount = U50InstCount();
    EXPECT_EQ(CheckAll(), 0);
    EXPECT_THAT(log.lines, IsEmpty());
}

// The tables lie one behind another: what is read behind one of them begins the next.
TEST_F(PriceCheck, CountsBeyondTheTablesReadNoFurther) {
    api->m_u50InstCount = {16384, 0, 100000, 0};
    for (const EMDQPDataType next : {SHFE_4PS, INE_4PS}) {
        *api->m_store.Slot(next, 0) = FilledSlot("behind", 1);
        *api->m_store.Slot(next, 700) = FilledSlot("far", 1);
    }
    EXPECT_EQ(CheckAll(), 0);
    EXPECT_THAT(log.lines, IsEmpty());
    api->m_u50InstCount = {100000, 0, 16384, 0};
    EXPECT_EQ(CheckAll(), 0);
    EXPECT_THAT(log.lines, IsEmpty());
    EXPECT_THAT(api->m_setPriceErrorInstId, IsEmpty());
}

TEST_F(PriceCheck, CountsAreTakenAsSigned32BitNumbers) {
    Put(INE_2PS, 3, "sc2612", crossed);
    for (const uint64_t none : {uint64_t{0x80000004}, uint64_t{0xFFFFFFFF}, uint64_t{0x1'0000'0003}}) {
        api->m_u50InstCount.ine_inst_cnt_2ps = none;
        EXPECT_EQ(CheckAll(), 0) << none;
    }
    api->m_u50InstCount.ine_inst_cnt_2ps = 0x1'0000'0004;
    EXPECT_EQ(CheckAll(), -2);
}

TEST_F(PriceCheck, IdWithoutATerminatorIsReadNoFurtherThanItsField) {
    Put(SHFE_2PS, 0, "x", crossed);
    std::memset(api->m_store.Slot(SHFE_2PS, 0)->inst_id, 'x', 16);
    CheckAll();
    EXPECT_THAT(api->m_setPriceErrorInstId, ElementsAre(std::string(16, 'x')));
}

/// Read off the rule: quoted prices fall strictly, zeros only outside, all within the limits.
int32_t SecondOpinion(const Book& book, int32_t upper, int32_t lower) {
    bool hasQuote = false;
    bool hasEnded = false;
    int previous = INT_MAX;
    for (const int price : book) {
        if (price == 0) {
            hasEnded = hasQuote;
            continue;
        }
        if (price < lower || price > upper) return -1;
        if (hasEnded || (hasQuote && price >= previous)) return -2;
        hasQuote = true;
        previous = price;
    }
    return 0;
}

TEST_F(PriceCheck, AllSmallBooksAreJudgedAsByASecondImplementation) {
    CCommonLog::GetInstance().SetLogLevel(LOG_NONE);
    for (int code = 0; code < 1 << 20; code += 7) {
        Book book;
        for (int i = 0; i < 10; ++i) book.push_back(code >> (2 * i) & 3);
        ASSERT_EQ(Check(book, 3, 1), SecondOpinion(book, 3, 1)) << code;
    }
}

}  // namespace
