#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cfloat>
#include <cmath>
#include <cstring>
#include <limits>
#include <string>
#include <vector>

#include "exchange/MdqpWriter.h"
#include "src/RegisterMap.h"
#include "tests/support/LogCapture.h"
#include "tests/support/RecordingBoard.h"
#include "tests/support/TestableApi.h"

using exchange::MdqpWriter;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

constexpr uint16_t PORT = 40000;

class MdqpDecoding : public testing::Test {
protected:
    MdqpDecoding() {
        CDrvRegEnyx::GetInstance().Init(0, 474);
        api->m_u50DstPort.port_shfe_2ps = PORT;
    }
    /// The message in a heap block of its exact size.
    int32_t Parse(const MdqpWriter& message, uint16_t port = PORT) {
        std::vector<uint8_t> bytes = message.Bytes();
        bytes.shrink_to_fit();
        return api->_ParseMdqp(reinterpret_cast<mdqp_t*>(bytes.data()), port, *api);
    }
    /// Eight bytes behind the last field, so that it does not begin in the message's last eight bytes.
    static MdqpWriter Padded(MdqpWriter message) {
        const uint8_t zeros[8] = {};
        return message.Field(0x0031, zeros, sizeof zeros);
    }
    SInstTableType& Slot(int32_t instNo = 1) { return api->m_u50InstTable.shfe2psInstTable[instNo]; }
    static inst_info_t Info(int32_t instNo) {
        inst_info_t info{};
        info.inst_no = instNo;
        std::memcpy(info.inst_id, "cu2612", 7);
        return info;
    }
    static deal_info_t Deal(int32_t instNo) {
        deal_info_t deal{};
        deal.inst_no = instNo;
        return deal;
    }
    RecordingBoard board;
    LogCapture log;
    std::unique_ptr<TestableApi> api = MakeApi();
};

TEST_F(MdqpDecoding, FirstLevelClearsTheBookAndTheNextDoesNot) {
    Slot().bid5_price = 7;
    Parse(Padded(MdqpWriter().PriceDetail(1, '0', 100.5, 3).PriceDetail(1, '1', 100.6, 4)));
    EXPECT_EQ(Slot().bid5_price, 0);
    EXPECT_EQ(Slot().bid1_price, 10050);
    EXPECT_EQ(Slot().ask1_price, 10060);
    EXPECT_EQ(Slot().ask1_vol, 4U);
}

TEST_F(MdqpDecoding, LevelBehindAnotherFieldClearsTheBookAgain) {
    Parse(Padded(MdqpWriter().PriceDetail(1, '0', 100.5, 3).DealInfo(Deal(1)).PriceDetail(1, '1', 100.6, 4)));
    EXPECT_EQ(Slot().bid1_price, 0);
    EXPECT_EQ(Slot().ask1_price, 10060);
}

TEST_F(MdqpDecoding, BidsThatArriveBestFirstFillTheLevels) {
    Parse(
        Padded(MdqpWriter().PriceDetail(1, '0', 100.5, 1).PriceDetail(1, '0', 100.4, 2).PriceDetail(1, '0', 100.3, 3)));
    EXPECT_EQ(Slot().bid1_price, 10050);
    EXPECT_EQ(Slot().bid2_price, 10040);
    EXPECT_EQ(Slot().bid3_price, 10030);
}

TEST_F(MdqpDecoding, BidEqualToTheFirstOverwritesIt) {
    Parse(Padded(MdqpWriter().PriceDetail(1, '0', 100.5, 1).PriceDetail(1, '0', 100.5, 9)));
    EXPECT_EQ(Slot().bid1_vol, 9U);
    EXPECT_EQ(Slot().bid2_price, 0);
}

TEST_F(MdqpDecoding, SixthLevelOverwritesTheFifth) {
    MdqpWriter message;
    for (int i = 0; i < 6; ++i) message.PriceDetail(1, '1', 100 + i, i);
    Parse(Padded(message));
    EXPECT_EQ(Slot().ask4_price, 10300);
    EXPECT_EQ(Slot().ask5_price, 10500);
}

TEST_F(MdqpDecoding, OtherDirectionsAreIgnored) {
    Parse(Padded(MdqpWriter().PriceDetail(1, '2', 100, 1)));
    EXPECT_EQ(Slot().bid1_price, 0);
    EXPECT_EQ(Slot().ask1_price, 0);
}

TEST_F(MdqpDecoding, LargestDoubleStandsForAbsent) {
    deal_info_t deal = Deal(1);
    deal.last_price = DBL_MAX;
    deal.turnover = DBL_MAX;
    Slot().last_price = 5;
    Parse(Padded(MdqpWriter().DealInfo(deal).PriceDetail(1, '0', DBL_MAX, 3)));
    EXPECT_EQ(Slot().last_price, 0);
    EXPECT_EQ(uint64_t{Slot().turnover}, 0U);
    EXPECT_EQ(Slot().bid1_price, 0);
    EXPECT_EQ(Slot().bid1_vol, 3U);
}

TEST_F(MdqpDecoding, DealIsStoredInHundredths) {
    deal_info_t deal = Deal(1);
    deal.last_price = 4321.5;
    deal.turnover = 1234567.89;
    deal.open_interest = 99.0;
    deal.upper_limit_price = 5000;
    deal.lower_limit_price = -1.004;
    deal.volume = 12;
    deal.change_no = 13;
    deal.update_mill_sec = 500;
    std::memcpy(deal.action_day, "20260430", 9);
    Parse(Padded(MdqpWriter().DealInfo(deal)));
    EXPECT_EQ(Slot().last_price, 432150);
    EXPECT_EQ(uint64_t{Slot().turnover}, 123456789U);
    EXPECT_EQ(uint64_t{Slot().open_interest}, 99U);
    EXPECT_EQ(Slot().upper_limit_price, 500000);
    EXPECT_EQ(Slot().lower_limit_price, -99);  // -100.4 + 0.5, cut towards zero
    EXPECT_EQ(Slot().volume, 12U);
    EXPECT_EQ(Slot().change_no, 13U);
    EXPECT_EQ(Slot().update_mill_sec, 500U);
    EXPECT_EQ(api->m_tradingDay, 20260430);
}

TEST_F(MdqpDecoding, TradingDayIsTheGreatestSeen) {
    for (const char* day : {"20260430", "20260429", "garbage!"}) {
        deal_info_t deal = Deal(1);
        std::memcpy(deal.action_day, day, 9);
        Parse(Padded(MdqpWriter().DealInfo(deal)));
    }
    EXPECT_EQ(api->m_tradingDay, 20260430);
}

TEST_F(MdqpDecoding, WhatNoIntegerHoldsBecomesZero) {
    const double nan = std::numeric_limits<double>::quiet_NaN();
    const double inf = std::numeric_limits<double>::infinity();
    for (const double value : {nan, inf, -inf, 1e300, -1e300, 21474836.48, -21474836.5}) {
        deal_info_t deal = Deal(1);
        deal.last_price = value;
        inst_info_t info = Info(1);
        info.price_tick = value;
        Parse(Padded(MdqpWriter().DealInfo(deal).InstInfo(info).PriceDetail(1, '1', value, 1)));
        EXPECT_EQ(Slot().last_price, 0) << value;
        EXPECT_EQ(Slot().price_tick, 0) << value;
        EXPECT_EQ(Slot().ask1_price, 0) << value;
    }
    for (const double value : {nan, inf, -inf, 1e300, -5.0}) {
        deal_info_t deal = Deal(1);
        deal.turnover = value;
        deal.open_interest = value;
        Parse(Padded(MdqpWriter().DealInfo(deal)));
        EXPECT_EQ(uint64_t{Slot().turnover}, 0U) << value;
        EXPECT_EQ(uint64_t{Slot().open_interest}, 0U) << value;
    }
}

TEST_F(MdqpDecoding, EdgesOfTheIntegerAreHeld) {
    deal_info_t deal = Deal(1);
    deal.last_price = 21474836.47;
    deal.highest_price = -21474836.48;
    Parse(Padded(MdqpWriter().DealInfo(deal)));
    EXPECT_EQ(Slot().last_price, INT32_MAX);
    EXPECT_EQ(Slot().high_price, INT32_MIN + 1);  // half a hundredth up, cut towards zero
}

TEST_F(MdqpDecoding, OrderStatisticsAreStored) {
    order_statistics_info_t record{1, 5, 10.25, 6, DBL_MAX};
    Slot().ask_amount = 7;
    Parse(Padded(MdqpWriter().OrderStatistics(record)));
    EXPECT_EQ(Slot().bid_volume, 5U);
    EXPECT_EQ(int64_t{Slot().bid_amount}, 1025);
    EXPECT_EQ(Slot().ask_volume, 6U);
    EXPECT_EQ(int64_t{Slot().ask_amount}, 0);
}

TEST_F(MdqpDecoding, InstrumentNumberSetsTheCountOnePastIt) {
    Parse(MdqpWriter().InstInfo(Info(99)));
    EXPECT_EQ(api->m_u50InstCount.shfe_inst_cnt_2ps, 100U);
    Parse(MdqpWriter().InstInfo(Info(3)));
    EXPECT_EQ(api->m_u50InstCount.shfe_inst_cnt_2ps, 100U);
}

TEST_F(MdqpDecoding, IdTakesFifteenBytesAsTheyAreAlsoBehindATerminator) {
    inst_info_t info = Info(1);
    std::memcpy(info.inst_id, "ab\0cdefghijklmnopq", 19);
    Parse(MdqpWriter().InstInfo(info));
    EXPECT_EQ(std::string(Slot().inst_id, 16), std::string("ab\0cdefghijklmn\0", 16));
}

TEST_F(MdqpDecoding, EmptyIdClearsTheText) {
    std::memcpy(Slot().inst_id, "old", 4);
    inst_info_t info = Info(1);
    info.inst_id[0] = '\0';
    Parse(MdqpWriter().InstInfo(info));
    EXPECT_STREQ(Slot().inst_id, "");
}

TEST_F(MdqpDecoding, NegativeNumberIsRefusedAndCountsNothing) {
    for (const int32_t number : {-1, INT32_MIN}) {
        Parse(Padded(MdqpWriter()
                         .InstInfo(Info(number))
                         .DealInfo(Deal(number))
                         .PriceDetail(number, '0', 1, 1)
                         .OrderStatistics({number, 1, 1, 1, 1})));
    }
    EXPECT_EQ(api->m_u50InstCount.shfe_inst_cnt_2ps, 0U);
    EXPECT_EQ(api->m_counters[ECounter::InstNoOutOfRange], 8U);
}

TEST_F(MdqpDecoding, NumberBeyondTheTableIsRefusedAndToldOnce) {
    Parse(MdqpWriter().InstInfo(Info(16384)));
    Parse(MdqpWriter().InstInfo(Info(16385)));
    EXPECT_THAT(log.Texts(LOG_WARNING), ElementsAre("shfe inst_no[16384] is out of range [16384]"));
}

TEST_F(MdqpDecoding, MessageOfNoFeedIsRefused) {
    api->m_sessions[41000].src_port = 33022;
    EXPECT_EQ(Parse(MdqpWriter().InstInfo(Info(1)), 41000), -1);
    EXPECT_TRUE(log.Has(LOG_DEBUG, "src_host[0] src_port[33022] dst_host[0] dst_port[0] unknown."));
    EXPECT_EQ(api->m_u50InstCount.shfe_inst_cnt_2ps, 0U);
}

TEST_F(MdqpDecoding, PacketNumberGoesToTheFeedsRegister) {
    const uint32_t registers[] = {0x11110, 0x21110, 0x11111, 0x21111};
    for (const EMDQPDataType feed : ALL_FEEDS) {
        api->m_u50DstPort = U50DstPort();
        api->m_u50DstPort.*FEED_MEMBERS[static_cast<std::size_t>(feed)].dstPort = PORT;
        board.Forget();
        Parse(Padded(MdqpWriter().PacketNo(77)));
        EXPECT_THAT(board.accesses, ElementsAre(W(registers[feed], 77)));
    }
}

TEST_F(MdqpDecoding, FieldThatBeginsInTheLastEightBytesIsNotHandled) {
    Parse(MdqpWriter().PacketNo(77));
    EXPECT_THAT(board.accesses, IsEmpty());
}

TEST_F(MdqpDecoding, LastMessageWithoutFieldsFinishesTheFeed) {
    api->m_sessions[PORT].init = 1;
    api->m_u50InstCount.shfe_inst_cnt_2ps = 5;
    EXPECT_EQ(Parse(MdqpWriter(mdqp::FLAG_LAST)), 0);
    EXPECT_EQ(api->m_finishedMask.enabled_mask, 1);
    EXPECT_EQ(api->m_u50DstPort.port_shfe_2ps, 0);
    EXPECT_EQ(api->m_sessions[PORT].init, 0);
    EXPECT_THAT(board.accesses, ElementsAre(W(0x1F14, 5)));
    EXPECT_TRUE(log.Has(LOG_INFO, "shfe2ps init finished, total instruments:5"));
}

TEST_F(MdqpDecoding, MessageThatIsNotTheLastFinishesNothing) {
    Parse(MdqpWriter().InstInfo(Info(1)));
    EXPECT_EQ(api->m_finishedMask.enabled_mask, 0);
}

TEST_F(MdqpDecoding, EightyPercentAreToldOnceForBothFeedsOfAnExchange) {
    api->m_u50DstPort = {PORT, PORT + 1, PORT + 2, PORT + 3};
    api->m_u50InstCount = {12801, 12801, 3201, 3201};
    for (uint16_t i = 0; i < 4; ++i) Parse(MdqpWriter(mdqp::FLAG_LAST), static_cast<uint16_t>(PORT + i));
    EXPECT_THAT(log.Texts(LOG_WARNING), ElementsAre("shfe_inst_cnt_2ps is 12801, more than 80% max cnt.",
                                                    "ine_inst_cnt_2ps is 3201, more than 80% max cnt. "));
}

TEST_F(MdqpDecoding, EightyPercentExactlyAreNotTold) {
    api->m_u50InstCount.shfe_inst_cnt_2ps = 12800;
    Parse(MdqpWriter(mdqp::FLAG_LAST));
    EXPECT_THAT(log.Texts(LOG_WARNING), IsEmpty());
}

TEST_F(MdqpDecoding, UnknownFieldIsToldAndPassedOver) {
    const uint8_t data[5] = {};
    Parse(MdqpWriter().Field(0x0BAD, data, sizeof data).InstInfo(Info(2)));
    EXPECT_THAT(log.Texts(LOG_ERROR), ElementsAre("unknown field id: bad"));
    EXPECT_EQ(api->m_counters[ECounter::FieldUnknown], 1U);
    EXPECT_EQ(api->m_u50InstCount.shfe_inst_cnt_2ps, 3U);
}

TEST_F(MdqpDecoding, KnownFieldsWithoutUseAreSilent) {
    MdqpWriter message;
    const uint8_t data[6] = {};
    for (const uint16_t id : {0x0031, 0x0032, 0x1001, 0x1002, 0x1003}) message.Field(id, data, sizeof data);
    Parse(message);
    EXPECT_THAT(log.Texts(LOG_ERROR), IsEmpty());
}

// ---- fields that lie
// --------------------------------------------------------------------------------------------------

TEST_F(MdqpDecoding, FieldThatClaimsToRunPastItsMessageIsReadAndEndsTheWalk) {
    int32_t instNo = 3;
    for (const uint16_t claimed : {113, 230, 700, 65535}) {
        instNo += 10;
        const inst_info_t info = Info(instNo);
        Parse(MdqpWriter().FieldClaiming(0x0101, claimed, &info, sizeof info).PacketNo(77).PacketNo(78));
        EXPECT_EQ(api->m_u50InstCount.shfe_inst_cnt_2ps, static_cast<uint64_t>(instNo) + 1) << claimed;
        EXPECT_STREQ(Slot(instNo).inst_id, "cu2612");
    }
    EXPECT_THAT(board.accesses, IsEmpty());
    EXPECT_EQ(api->m_counters[ECounter::FieldMalformed], 0U);
}

TEST_F(MdqpDecoding, RecordsOfEveryKindAreReadWhateverTheirFieldsSayOfTheirSize) {
    deal_info_t deal = Deal(5);
    deal.volume = 12;
    const price_detail_t level{5, '1', 100.5, 13};
    const order_statistics_info_t statistics{5, 14, 1, 15, 1};
    const packet_no_t packetNo{77};
    const uint8_t zeros[8] = {};
    for (const uint16_t off : {1, 9, 60000, 65536 - 1, 65536 - 3}) {
        const auto claim = [&](std::size_t size) { return static_cast<uint16_t>(size + off); };
        Slot(5) = SInstTableType{};
        board.Forget();
        Parse(MdqpWriter().FieldClaiming(0x0102, claim(154), &deal, sizeof deal));
        Parse(MdqpWriter().FieldClaiming(0x0103, claim(17), &level, sizeof level));
        Parse(MdqpWriter().FieldClaiming(0x0104, claim(28), &statistics, sizeof statistics));
        Parse(MdqpWriter().FieldClaiming(0x1004, claim(4), &packetNo, sizeof packetNo).RawBytes(zeros, 8));
        EXPECT_EQ(Slot(5).volume, 12U) << off;
        EXPECT_EQ(Slot(5).ask1_price, 10050) << off;
        EXPECT_EQ(Slot(5).ask_volume, 15U) << off;
        EXPECT_THAT(board.accesses, ::testing::Contains(W(0x11110, 77))) << off;
    }
    EXPECT_EQ(api->m_counters[ECounter::FieldMalformed], 0U);
}

TEST_F(MdqpDecoding, FieldThatClaimsLessThanItsRecordIsReadAndLeadsIntoIt) {
    inst_info_t info = Info(6);
    const field_t hidden{0x0BAD, 68};  // where the next field begins by the first one's size
    std::memcpy(reinterpret_cast<char*>(&info) + 40, &hidden, sizeof hidden);
    Parse(MdqpWriter().FieldClaiming(0x0101, 40, &info, sizeof info).InstInfo(Info(9)));
    EXPECT_STREQ(Slot(6).inst_id, "cu2612");
    EXPECT_EQ(api->m_u50InstCount.shfe_inst_cnt_2ps, 10U);
    EXPECT_THAT(log.Texts(LOG_ERROR), ElementsAre("unknown field id: bad"));
    EXPECT_EQ(api->m_counters[ECounter::FieldMalformed], 0U);
}

TEST_F(MdqpDecoding, RecordThatWouldBeReadPastItsMessageIsDropped) {
    const uint8_t data[111] = {};
    for (const uint16_t claimed : {111, 112, 40000}) {
        Parse(MdqpWriter().FieldClaiming(0x0101, claimed, data, sizeof data));
    }
    EXPECT_EQ(api->m_counters[ECounter::FieldMalformed], 3U);
    EXPECT_EQ(api->m_u50InstCount.shfe_inst_cnt_2ps, 0U);
}

TEST_F(MdqpDecoding, EveryClaimedSizeIsSurvived) {
    uint64_t sizes = 0;
    for (int size = 0; size <= 65535; size += size < 300 ? 1 : 211, ++sizes) {
        const uint8_t data[40] = {3};  // an instrument, or a packet, of number 3
        Slot(3).bid5_price = Slot(3).bid_volume = 7;
        for (const uint16_t id : {0x0101, 0x0102, 0x0103, 0x0104, 0x1004}) {
            ASSERT_EQ(Parse(MdqpWriter().FieldClaiming(id, static_cast<uint16_t>(size), data, sizeof data)), 0);
        }
        EXPECT_EQ(Slot(3).bid5_price, 0) << size;
        EXPECT_EQ(Slot(3).bid_volume, 0U) << size;
    }
    // Records of 112 and 154 bytes are not there; those of 17, 28 and 4 are, whatever is claimed of them.
    EXPECT_EQ(api->m_counters[ECounter::FieldMalformed], 2 * sizes);
    EXPECT_EQ(api->m_u50InstCount.shfe_inst_cnt_2ps, 0U);
    EXPECT_THAT(board.Writes(), testing::AllOf(testing::SizeIs(sizes), testing::Each(W(0x11110, 3))));
}

TEST_F(MdqpDecoding, MessagesOfEveryShortLengthAreSurvived) {
    for (std::size_t bytes = 0; bytes < 40; ++bytes) {
        const std::vector<uint8_t> body(bytes, 0x01);
        EXPECT_EQ(Parse(MdqpWriter().RawBytes(body.data(), bytes)), 0);
        // A field that begins behind the last eight bytes is looked at, and its record is not there.
        EXPECT_EQ(api->m_counters[ECounter::FieldMalformed], bytes > 8 ? bytes - 8 : 0) << bytes;
    }
    EXPECT_EQ(api->m_u50InstCount.shfe_inst_cnt_2ps, 0U);
    EXPECT_EQ(api->m_finishedMask.enabled_mask, 0);
}

// ---- the book against a plain second implementation
// ---------------------------------------------------------------------

TEST_F(MdqpDecoding, LevelsOfAllShortSequencesEqualASecondImplementation) {
    constexpr int SYMBOLS = 4;
    constexpr int LENGTH = 6;
    for (int code = 0; code < 4096; ++code) {
        MdqpWriter message;
        int32_t bids[5] = {};
        int rest = code;
        for (int i = 0; i < LENGTH; ++i, rest /= SYMBOLS) {
            const int price = rest % SYMBOLS;
            message.PriceDetail(1, '0', price, 1);
            int level = 0;
            while (level < 4 && bids[level] > 0 && bids[level] > price * 100) ++level;
            bids[level] = price * 100;
        }
        Parse(Padded(message));
        ASSERT_THAT((std::vector<int32_t>{Slot().bid1_price, Slot().bid2_price, Slot().bid3_price, Slot().bid4_price,
                                          Slot().bid5_price}),
                    testing::ElementsAreArray(bids))
            << code;
    }
}

}  // namespace
