#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstring>
#include <map>
#include <vector>

#include "testing/LogCapture.h"
#include "tests/support/FilledSlot.h"
#include "tests/support/RecordingBoard.h"
#include "tests/support/TestableApi.h"

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
    uint32_t HostWord(uint32_t word) {
        uint32_t value = 0;
        std::memcpy(&value, reinterpret_cast<const char*>(Slots()) + word * 4, 4);
        return value;
    }
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
    const auto words = Words();
    EXPECT_EQ(words.size(), 256U);
    for (const auto& [word, value] : words) EXPECT_EQ(value, 0U) << word;
}

TEST_F(InstrumentTable, UsedSlotsAreWrittenWordByWordAndTheRestCleared) {
    Write(2);
    const auto words = Words();
    ASSERT_EQ(words.size(), 256U);
    for (uint32_t word = 0; word < 128; ++word) {
        EXPECT_EQ(words.at(word), HostWord(word)) << word;
    }
    for (uint32_t word = 128; word < 256; ++word) EXPECT_EQ(words.at(word), 0U);
}

TEST_F(InstrumentTable, DisabledFeedLeavesItsUsedSlotsAndLogsThem) {
    Write(2, false);
    const auto words = Words();
    EXPECT_EQ(words.begin()->first, 128U);
    EXPECT_EQ(words.size(), 128U);
    for (const auto& [word, value] : words) EXPECT_EQ(value, 0U) << word;
    EXPECT_EQ(log.Texts(LOG_DEBUG).size(), 2U);
}

TEST_F(InstrumentTable, CountBeyondTheCapacityIsCut) {
    Slots()[CAPACITY] = FilledSlot("behind", 1000);
    Write(100);
    EXPECT_EQ(board.accesses.size(), 2U * 256);
    const auto words = Words();
    ASSERT_EQ(words.size(), 256U);
    for (uint32_t word = 0; word < 256; ++word) EXPECT_EQ(words.at(word), HostWord(word)) << word;
    EXPECT_EQ(log.Texts().size(), 4U);
}

/// The columns of FilledSlot("cu2701", 1000), whose config is 1000 and whose numbers rise by one from field to field.
const std::string COLUMNS =
    "inst_id:cu2701,price_tick:1001,codec_price:1002,vol_multiple:1003,change_no:1004,update_mill_sec:1005,"
    "updatetime:1006,bid5_price:1007,bid5_vol:1008,bid4_price:1009,bid4_vol:1010,bid3_price:1011,bid3_vol:1012,"
    "bid2_price:1013,bid2_vol:1014,bid1_price:1015,bid1_vol:1016,ask5_price:1017,ask5_vol:1018,ask4_price:1019,"
    "ask4_vol:1020,ask3_price:1021,ask3_vol:1022,ask2_price:1023,ask2_vol:1024,ask1_price:1025,ask1_vol:1026,"
    "open_interest:4415226381315,turnover:4423816315909,volume:1031,last_price:1032,upper_limit_price:1037,"
    "lower_limit_price:1038,bid_volume=1039,bid_amount:4471060956176,ask_volume=1042,ask_amount:4483945858067";

TEST_F(InstrumentTable, EachUsedSlotIsLogged) {
    Slots()[1] = FilledSlot("cu2701", 1000);
    Write(2);
    const std::vector<std::string> lines = log.Texts();
    ASSERT_EQ(lines.size(), 2U);
    EXPECT_THAT(lines[0], testing::StartsWith("index:0,inst_id:cu2612,"));
    EXPECT_EQ(lines[1], "index:1," + COLUMNS + ",high_price:1045,low_price:1046.");
    EXPECT_EQ(log.lines[1].level, LOG_DEBUG);
}

TEST_F(InstrumentTable, LargestAndSmallestNumbersAreLoggedWithTheirSigns) {
    SInstTableType& slot = Slots()[0];
    std::memset(&slot, 0xFF, sizeof slot);
    std::memcpy(slot.inst_id, "cu2612", 7);
    Write(1);
    EXPECT_THAT(log.Texts(),
                testing::ElementsAre(
                    "index:0,inst_id:cu2612,price_tick:-1,codec_price:-1,vol_multiple:4294967295,change_no:4294967295,"
                    "update_mill_sec:4294967295,updatetime:4294967295,bid5_price:-1,bid5_vol:4294967295,bid4_price:-1,"
                    "bid4_vol:4294967295,bid3_price:-1,bid3_vol:4294967295,bid2_price:-1,bid2_vol:4294967295,"
                    "bid1_price:-1,bid1_vol:4294967295,ask5_price:-1,ask5_vol:4294967295,ask4_price:-1,"
                    "ask4_vol:4294967295,ask3_price:-1,ask3_vol:4294967295,ask2_price:-1,ask2_vol:4294967295,"
                    "ask1_price:-1,ask1_vol:4294967295,open_interest:18446744073709551615,"
                    "turnover:18446744073709551615,volume:4294967295,last_price:-1,upper_limit_price:-1,"
                    "lower_limit_price:-1,bid_volume=4294967295,bid_amount:-1,ask_volume=4294967295,ask_amount:-1,"
                    "high_price:-1,low_price:-1."));
}

TEST_F(InstrumentTable, IdWithoutATerminatorIsPrintedNoFurtherThanItsField) {
    std::memset(Slots()[0].inst_id, 'x', 16);
    Write(1);
    EXPECT_THAT(log.Texts(),
                testing::ElementsAre(testing::StartsWith("index:0,inst_id:xxxxxxxxxxxxxxxx,price_tick:0,")));
}

TEST_F(InstrumentTable, FaultNumberAtOrAboveTheCountInjectsNothing) {
    const std::string before = TextOf(Slots()[2]);
    for (const int32_t count : {2, 1, 0, -1}) {
        Inject(0, 2);
        Write(count);
    }
    EXPECT_EQ(TextOf(Slots()[2]), before);
    EXPECT_THAT(log.Texts(LOG_WARNING), IsEmpty());
}

TEST_F(InstrumentTable, FaultNumberBeyondTheTableInjectsNothing) {
    Inject(0, CAPACITY);
    Slots()[CAPACITY] = FilledSlot("behind", 1000);
    const std::string before = TextOf(Slots()[CAPACITY]);
    Write(100);
    EXPECT_EQ(TextOf(Slots()[CAPACITY]), before);
    EXPECT_THAT(log.Texts(LOG_WARNING), IsEmpty());
}

TEST_F(InstrumentTable, WithoutDebugModeNothingIsInjected) {
    const std::string before = TextOf(Slots()[1]);
    Inject(0, 1);
    api->m_u50ConfigInfo.debug_flag = false;
    Write(2);
    EXPECT_EQ(TextOf(Slots()[1]), before);
    EXPECT_THAT(log.Texts(LOG_WARNING), IsEmpty());
}

/// A fault in the second of three instruments, each field of which has a value of its own.
class InjectedFault : public InstrumentTable {
protected:
    InjectedFault() { Slots()[1] = expected = FilledSlot("cu2701", 1000); }

    /// The slot in the host's table and its words on the board are both as expected; nothing else has changed.
    void WriteAndExpect() {
        const std::string first = TextOf(Slots()[0]);
        const std::string third = TextOf(Slots()[2]);
        Write(3);
        EXPECT_EQ(TextOf(Slots()[1]), TextOf(expected));
        uint32_t words[64];
        std::memcpy(words, &expected, sizeof words);
        const auto written = Words();
        for (uint32_t word = 0; word < 64; ++word) EXPECT_EQ(written.at(64 + word), words[word]) << word;
        EXPECT_EQ(TextOf(Slots()[0]), first);
        EXPECT_EQ(TextOf(Slots()[2]), third);
    }

    SInstTableType expected;
};

TEST_F(InjectedFault, IsToldWithTheSlotAsItWasAndThenMade) {
    Inject(2, 1);
    Write(3);
    const std::vector<std::string> lines = log.Texts();
    ASSERT_EQ(lines.size(), 5U);
    EXPECT_EQ(lines[0], "error_instno:1," + COLUMNS);
    EXPECT_EQ(lines[1], "debug mode error_case:2");
    EXPECT_THAT(lines[2], testing::StartsWith("index:0,"));
    EXPECT_THAT(lines[3], testing::StartsWith("index:1,"));
    EXPECT_THAT(lines[3], HasSubstr("bid2_price:1013,bid2_vol:0,bid1_price:0,bid1_vol:1016"));
    EXPECT_EQ(log.lines[0].level, LOG_DEBUG);
    EXPECT_EQ(log.lines[1].level, LOG_WARNING);
}

TEST_F(InjectedFault, OfCaseZeroSwapsTwoBidsAndTwoAsks) {
    Inject(0, 1);
    Slots()[1].upper_limit_price = expected.upper_limit_price = 30000;
    expected.bid1_price = 1013;
    expected.bid2_price = 1015;
    expected.ask5_price = 1019;
    expected.ask4_price = 1017;
    WriteAndExpect();
}

TEST_F(InjectedFault, OfCaseOneNarrowsTheLimitsAlone) {
    Inject(1, 1, 2);
    Slots()[1].upper_limit_price = 3000;
    Slots()[1].lower_limit_price = -1003;
    expected.upper_limit_price = 2000;  // 4003 / 4 * 2 / 2 = 1000
    expected.lower_limit_price = -3;
    WriteAndExpect();
}

TEST_F(InjectedFault, OfCaseTwoZeroesTheBestBidAndTheSecondVolume) {
    Inject(2, 1);
    expected.bid1_price = 0;
    expected.bid2_vol = 0;
    WriteAndExpect();
}

TEST_F(InjectedFault, OfAnyOtherCaseIsNone) {
    for (const uint16_t errorCase : std::initializer_list<uint16_t>{3, 4, 256, 65535}) {
        Inject(errorCase, 1);
        board.Forget();
        WriteAndExpect();
    }
}

TEST_F(InjectedFault, IsMadeInTheFirstAndInTheLastUsedSlot) {
    Inject(2, 0);
    Write(3);
    EXPECT_EQ(Slots()[0].bid1_price, 0);
    Inject(2, 2);
    Write(3);
    EXPECT_EQ(Slots()[2].bid1_price, 0);
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
    EXPECT_EQ(Slots()[0].lower_limit_price, 100);
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

}  // namespace
