#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstring>
#include <map>
#include <vector>

#include "src/RegisterMap.h"
#include "tests/support/LogCapture.h"
#include "tests/support/RecordingBoard.h"
#include "tests/support/TestableApi.h"

using testing::Each;
using testing::HasSubstr;
using testing::IsEmpty;

namespace {

constexpr int32_t CAPACITY = 4;

class InstrumentTable : public testing::Test {
protected:
    InstrumentTable() {
        CDrvRegEnyx::GetInstance().Init(0, 474);
        CCommonLog::GetInstance().SetLogLevel(LOG_ERROR | LOG_WARNING | LOG_INFO | LOG_DEBUG);
        for (int32_t i = 0; i < CAPACITY; ++i) {
            SInstTableType& slot = Slots()[i];
            std::memcpy(slot.inst_id, "cu2612", 7);
            slot.upper_limit_price = 300;
            slot.lower_limit_price = 100;
            slot.bid1_price = 50;
            slot.bid2_price = 40;
            slot.ask5_price = 90;
            slot.ask4_price = 80;
            slot.bid2_vol = 7;
            slot.low_price = 1000 + i;
        }
    }
    SInstTableType* Slots() { return api->m_u50InstTable.shfe2psInstTable; }
    void Write(int32_t count, bool enabled = true) {
        EXPECT_EQ(api->_WriteContractTable(Slots(), enabled, 0x11000, 0x11001, count, CAPACITY), 0);
    }
    void Inject(uint16_t errorCase, uint16_t instNo, uint16_t parts = 4) {
        api->m_u50ConfigInfo.debug_flag = true;
        api->m_u50ConfigInfo.error_case = errorCase;
        api->m_u50ConfigInfo.error_instno = instNo;
        api->m_u50ConfigInfo.error_limit_parts = parts;
    }
    /// What the table holds after the writes, word by word; words never written are absent.
    std::map<uint64_t, uint64_t> Words() {
        std::map<uint64_t, uint64_t> words;
        for (std::size_t i = 0; i + 1 < board.accesses.size(); i += 2) {
            EXPECT_EQ(board.accesses[i].index, 0x11001U);
            EXPECT_EQ(board.accesses[i + 1].index, 0x11000U);
            words[board.accesses[i + 1].value] = board.accesses[i].value;
        }
        return words;
    }
    RecordingBoard board;
    LogCapture log;
    std::unique_ptr<TestableApi> api = MakeApi();
};

TEST_F(InstrumentTable, CountOfZeroClearsEverySlotAndWritesNoInstrument) {
    Write(0);
    const auto words = Words();
    EXPECT_EQ(words.size(), 256U);
    for (const auto& [word, value] : words) EXPECT_EQ(value, 0U) << word;
    EXPECT_THAT(log.Texts(), IsEmpty());
}

TEST_F(InstrumentTable, NegativeCountClearsEverySlot) {
    Write(-1);
    EXPECT_EQ(Words().size(), 256U);
}

TEST_F(InstrumentTable, UsedSlotsAreWrittenWordByWordAndTheRestCleared) {
    Write(2);
    const auto words = Words();
    ASSERT_EQ(words.size(), 256U);
    for (uint32_t word = 0; word < 128; ++word) {
        uint32_t expected = 0;
        std::memcpy(&expected, reinterpret_cast<const char*>(Slots()) + word * 4, 4);
        EXPECT_EQ(words.at(word), expected) << word;
    }
    for (uint32_t word = 128; word < 256; ++word) EXPECT_EQ(words.at(word), 0U);
}

TEST_F(InstrumentTable, DisabledFeedLeavesItsUsedSlotsAndLogsThem) {
    Write(2, false);
    EXPECT_EQ(Words().begin()->first, 128U);
    EXPECT_EQ(log.Texts(LOG_DEBUG).size(), 2U);
}

TEST_F(InstrumentTable, CountBeyondTheCapacityIsCut) {
    Write(100);
    EXPECT_EQ(Words().size(), 256U);
}

TEST_F(InstrumentTable, EachUsedSlotIsLogged) {
    Write(1);
    EXPECT_TRUE(log.Has(
        LOG_DEBUG,
        "index:0,inst_id:cu2612,price_tick:0,codec_price:0,vol_multiple:0,change_no:0,update_mill_sec:0,updatetime:0,"
        "bid5_price:0,bid5_vol:0,bid4_price:0,bid4_vol:0,bid3_price:0,bid3_vol:0,bid2_price:40,bid2_vol:7,"
        "bid1_price:50,bid1_vol:0,ask5_price:90,ask5_vol:0,ask4_price:80,ask4_vol:0,ask3_price:0,ask3_vol:0,"
        "ask2_price:0,ask2_vol:0,ask1_price:0,ask1_vol:0,open_interest:0,turnover:0,volume:0,last_price:0,"
        "upper_limit_price:300,lower_limit_price:100,bid_volume=0,bid_amount:0,ask_volume=0,ask_amount:0,high_price:0,"
        "low_price:1000."));
}

TEST_F(InstrumentTable, IdWithoutATerminatorIsPrintedNoFurtherThanItsField) {
    std::memset(Slots()[0].inst_id, 'x', 16);
    Write(1);
    EXPECT_THAT(log.Texts(), Each(HasSubstr("inst_id:xxxxxxxxxxxxxxxx,price_tick")));
}

TEST_F(InstrumentTable, FaultNumberAtOrAboveTheCountInjectsNothing) {
    Inject(0, 2);
    Write(2);
    EXPECT_EQ(Slots()[2].bid1_price, 50);
    EXPECT_THAT(log.Texts(LOG_WARNING), IsEmpty());
}

TEST_F(InstrumentTable, WithoutDebugModeNothingIsInjected) {
    Inject(0, 1);
    api->m_u50ConfigInfo.debug_flag = false;
    Write(2);
    EXPECT_EQ(Slots()[1].bid1_price, 50);
}

TEST_F(InstrumentTable, CaseZeroSwapsLevelsAndTellsIt) {
    Inject(0, 1);
    Write(2);
    EXPECT_EQ(Slots()[1].bid1_price, 40);
    EXPECT_EQ(Slots()[1].bid2_price, 50);
    EXPECT_EQ(Slots()[1].ask5_price, 80);
    EXPECT_EQ(Slots()[1].ask4_price, 90);
    EXPECT_TRUE(log.Has(LOG_WARNING, "debug mode error_case:0"));
    EXPECT_THAT(log.Texts(LOG_DEBUG)[0], testing::StartsWith("error_instno:1,inst_id:cu2612,"));
}

TEST_F(InstrumentTable, CaseOneHalvesTheBandForTwoParts) {
    Inject(1, 0, 2);
    Write(1);
    EXPECT_EQ(Slots()[0].upper_limit_price, 250);
    EXPECT_EQ(Slots()[0].lower_limit_price, 150);
}

TEST_F(InstrumentTable, CaseOneLeavesTheBandForOnePart) {
    Inject(1, 0, 1);
    Write(1);
    EXPECT_EQ(Slots()[0].upper_limit_price, 300);
}

TEST_F(InstrumentTable, CaseOneWithNoPartsDoublesTheBand) {
    Inject(1, 0, 0);
    Write(1);
    EXPECT_EQ(Slots()[0].upper_limit_price, 400);
    EXPECT_EQ(Slots()[0].lower_limit_price, 0);
}

// A band wider than an int wraps to -1, or here to -294,967,296; a power of two beyond an int leaves it.
TEST_F(InstrumentTable, CaseOneSurvivesAnyExponentAndAnyLimits) {
    struct Case {
        uint16_t parts;
        int32_t limit;     ///< upper, and lower with the other sign
        int32_t narrowed;  ///< the same
    };
    constexpr int32_t WIDE = 2'000'000'000;
    for (const Case& c : {Case{0, WIDE, 1'852'516'352},
                          {1, WIDE, WIDE},
                          {2, WIDE, 2'073'741'824},
                          {30, WIDE, WIDE},
                          {31, WIDE, WIDE},
                          {32, WIDE, WIDE},
                          {65535, WIDE, WIDE}}) {
        Slots()[2].upper_limit_price = c.limit;
        Slots()[2].lower_limit_price = -c.limit;
        Inject(1, 2, c.parts);
        Write(3);
        EXPECT_EQ(Slots()[2].upper_limit_price, c.narrowed) << c.parts;
        EXPECT_EQ(Slots()[2].lower_limit_price, -c.narrowed) << c.parts;
        Slots()[2].upper_limit_price = INT32_MAX;
        Slots()[2].lower_limit_price = INT32_MIN;
        Write(3);
        EXPECT_EQ(Slots()[2].upper_limit_price, INT32_MAX) << c.parts;
        EXPECT_EQ(Slots()[2].lower_limit_price, INT32_MIN) << c.parts;
    }
}

TEST_F(InstrumentTable, CaseTwoZeroesTheBestBidAndTheSecondVolume) {
    Inject(2, 0);
    Write(1);
    EXPECT_EQ(Slots()[0].bid1_price, 0);
    EXPECT_EQ(Slots()[0].bid2_vol, 0U);
}

TEST_F(InstrumentTable, OtherCasesChangeNothing) {
    Inject(65535, 0);
    const SInstTableType before = Slots()[0];
    Write(1);
    EXPECT_EQ(std::memcmp(&before, &Slots()[0], sizeof before), 0);
}

}  // namespace
