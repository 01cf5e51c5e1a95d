#include "tests/unit/MdqpFixture.h"

namespace {

using exchange::MdqpWriter;
using testing::ElementsAre;
using testing::IsEmpty;

/// A slot above the first, in use before, so that what a record leaves alone is seen too.
class MdqpDecoding : public MdqpFixture {
protected:
    MdqpDecoding() { Slot(7) = expected = FilledSlot("al2701", 1000); }
    void ExpectSlot() { EXPECT_EQ(TextOf(Slot(7)), TextOf(expected)); }

    SInstTableType expected;  ///< of number 7
};

TEST_F(MdqpDecoding, InstrumentIsStored) {
    inst_info_t info = Info(7);
    info.volume_multiple = 5;
    info.price_tick = 10.25;
    info.codec_price = 70123.45;
    info.strike_price = 1;
    info.underlying_multiple = 2;
    info.is_trading = 3;
    Parse(MdqpWriter().InstInfo(info));
    expected.price_tick = 1025;
    expected.codec_price = 7012345;
    expected.vol_multiple = 5;
    std::memcpy(expected.inst_id, "cu2612\0\0\0\0\0\0\0\0\0", 16);
    ExpectSlot();
}

TEST_F(MdqpDecoding, DealIsStoredInHundredths) {
    deal_info_t deal = Deal(7);
    deal.last_price = 4321.5;
    deal.volume = 12;
    deal.turnover = 90'000'000'001.25;
    deal.open_interest = 5'000'000'000.0;
    deal.highest_price = 4400.25;
    deal.lowest_price = 4300.75;
    deal.open_price = 1;
    deal.close_price = 2;
    deal.settlement_price = 3;
    deal.upper_limit_price = 5000;
    deal.lower_limit_price = -1.004;
    deal.pre_settlement_price = 4;
    deal.pre_close_price = 5;
    deal.pre_open_interest = 6;
    deal.pre_delta = 7;
    deal.curr_delta = 8;
    std::memcpy(deal.action_day, "20260430", 9);
    std::memcpy(deal.update_time, "09:30:00", 9);
    deal.update_mill_sec = 500;
    deal.change_no = 13;
    Parse(MdqpWriter().DealInfo(deal));
    expected.last_price = 432150;
    expected.volume = 12;
    expected.turnover = 9'000'000'000'125;
    expected.open_interest = 5'000'000'000;
    expected.high_price = 440025;
    expected.low_price = 430075;
    expected.upper_limit_price = 500000;
    expected.lower_limit_price = -99;  // -100.4 + 0.5, cut towards zero
    expected.update_mill_sec = 500;
    expected.change_no = 13;
    ExpectSlot();
    EXPECT_EQ(state->tradingDay, 20260430);
}

TEST_F(MdqpDecoding, HalfAHundredthIsRoundedUpAndLessIsNot) {
    deal_info_t deal = Deal(7);
    deal.last_price = 1.125;
    deal.highest_price = 1.1249;
    deal.open_interest = 98.5;
    Parse(MdqpWriter().DealInfo(deal));
    EXPECT_EQ(Slot(7).last_price, 113);
    EXPECT_EQ(Slot(7).high_price, 112);
    EXPECT_EQ(uint64_t{Slot(7).open_interest}, 99U);
    deal.open_interest = 98.4;
    Parse(MdqpWriter().DealInfo(deal));
    EXPECT_EQ(uint64_t{Slot(7).open_interest}, 98U);
}

TEST_F(MdqpDecoding, AbsentValuesOfADealBecomeZero) {
    deal_info_t deal = Deal(7);
    deal.last_price = deal.highest_price = deal.lowest_price = deal.turnover = DBL_MAX;
    deal.upper_limit_price = deal.lower_limit_price = DBL_MAX;
    Parse(MdqpWriter().DealInfo(deal));
    expected.last_price = expected.high_price = expected.low_price = 0;
    expected.upper_limit_price = expected.lower_limit_price = 0;
    expected.turnover = expected.open_interest = 0;
    expected.volume = expected.change_no = expected.update_mill_sec = 0;
    ExpectSlot();
}

TEST_F(MdqpDecoding, RecordsGoToTheTableOfTheirFeedAndNoOther) {
    for (const int feed : {0, 1, 2, 3}) {
        state->ports = {};
        uint16_t* const ports[] = {&state->ports.port_shfe_2ps, &state->ports.port_shfe_4ps, &state->ports.port_ine_2ps,
                                   &state->ports.port_ine_4ps};
        *ports[feed] = PORT;
        SInstTableType* const slots[] = {&state->tables.shfe2psInstTable[9], &state->tables.shfe4psInstTable[9],
                                         &state->tables.ine2psInstTable[9], &state->tables.ine4psInstTable[9]};
        for (SInstTableType* slot : slots) *slot = SInstTableType{};
        state->counts = {1, 2, 3, 4};
        deal_info_t deal = Deal(9);
        deal.volume = 12;
        Parse(Padded(
            MdqpWriter().InstInfo(Info(9)).DealInfo(deal).OrderStatistics({9, 5, 1, 6, 1}).PriceDetail(9, '0', 1, 77)));
        for (const int other : {0, 1, 2, 3}) {
            const SInstTableType& slot = *slots[other];
            EXPECT_EQ(slot.volume, other == feed ? 12U : 0U) << feed;
            EXPECT_EQ(slot.bid_volume, other == feed ? 5U : 0U) << feed;
            EXPECT_EQ(slot.bid1_vol, other == feed ? 77U : 0U) << feed;
            EXPECT_STREQ(slot.inst_id, other == feed ? "cu2612" : "") << feed;
        }
        const U50InstCount& count = state->counts;
        const uint64_t counts[] = {count.shfe_inst_cnt_2ps, count.shfe_inst_cnt_4ps, count.ine_inst_cnt_2ps,
                                   count.ine_inst_cnt_4ps};
        for (uint64_t other = 0; other < 4; ++other) {
            EXPECT_EQ(counts[other], other == static_cast<uint64_t>(feed) ? 10 : other + 1) << feed;
        }
    }
}

TEST_F(MdqpDecoding, TradingDayIsTheGreatestSeen) {
    for (const auto& [day, greatest] : {std::pair{"garbage!", 0},
                                        {"20260429", 20260429},
                                        {"20260430", 20260430},
                                        {"20260428", 20260430},
                                        {"", 20260430},
                                        {"20260501", 20260501}}) {
        deal_info_t deal = Deal(7);
        std::memcpy(deal.action_day, day, std::strlen(day));
        Parse(MdqpWriter().DealInfo(deal));
        EXPECT_EQ(state->tradingDay, greatest) << day;
    }
}

TEST_F(MdqpDecoding, TradingDayEndsAtWhatIsNoDigitAndWithItsField) {
    for (const auto& [day, value] :
         {std::pair{"2026043/1", 2026043}, {"2026043:1", 2026043}, {"-20260430", 0}, {"202604301", 202604301}}) {
        state->tradingDay = 0;
        deal_info_t deal = Deal(7);
        std::memcpy(deal.action_day, day, 9);
        std::memcpy(deal.update_time, "999999999", 9);
        Parse(MdqpWriter().DealInfo(deal));
        EXPECT_EQ(state->tradingDay, value) << day;
    }
}

TEST_F(MdqpDecoding, WhatNoIntegerHoldsBecomesZero) {
    const double nan = std::numeric_limits<double>::quiet_NaN();
    const double inf = std::numeric_limits<double>::infinity();
    for (const double value : {nan, inf, -inf, 1e300, -1e300, 21474836.48, -21474836.5}) {
        Slot(7) = FilledSlot("cu2612", 1000);
        deal_info_t deal = Deal(7);
        deal.last_price = value;
        inst_info_t info = Info(7);
        info.price_tick = value;
        Parse(
            Padded(MdqpWriter().DealInfo(deal).InstInfo(info).PriceDetail(7, '1', 5, 1).PriceDetail(7, '1', value, 2)));
        EXPECT_EQ(Slot(7).last_price, 0) << value;
        EXPECT_EQ(Slot(7).price_tick, 0) << value;
        EXPECT_EQ(Slot(7).ask1_price, 0) << value;
        EXPECT_EQ(Slot(7).ask1_vol, 2U) << value;
    }
    for (const double value : {nan, inf, -inf, 1e300, -5.0, 18446744073709551616.0}) {
        Slot(7) = FilledSlot("cu2612", 1000);
        deal_info_t deal = Deal(7);
        deal.turnover = value;
        deal.open_interest = value;
        Parse(Padded(MdqpWriter().DealInfo(deal)));
        EXPECT_EQ(uint64_t{Slot(7).turnover}, 0U) << value;
        EXPECT_EQ(uint64_t{Slot(7).open_interest}, 0U) << value;
    }
    for (const double value : {nan, inf, -inf, 1e300, -1e300, 92233720368547758.08, -92233720368547780.0}) {
        Slot(7) = FilledSlot("cu2612", 1000);
        Parse(MdqpWriter().OrderStatistics({7, 5, value, 6, value}));
        EXPECT_EQ(int64_t{Slot(7).bid_amount}, 0) << value;
        EXPECT_EQ(int64_t{Slot(7).ask_amount}, 0) << value;
    }
}

TEST_F(MdqpDecoding, EdgesOfTheIntegerAreHeld) {
    deal_info_t deal = Deal(7);
    deal.last_price = 21474836.47;
    deal.highest_price = -21474836.48;
    deal.lowest_price = -21474836.488;
    deal.open_interest = 18446744073709549568.0;  // the last one below 2^64
    Parse(Padded(MdqpWriter().DealInfo(deal).OrderStatistics({7, 5, -92233720368547750.0, 6, 92233720368547750.0})));
    EXPECT_EQ(Slot(7).last_price, INT32_MAX);
    EXPECT_EQ(Slot(7).low_price, INT32_MIN);
    EXPECT_EQ(Slot(7).high_price, INT32_MIN + 1);  // half a hundredth up, cut towards zero
    EXPECT_EQ(uint64_t{Slot(7).open_interest}, 18446744073709549568U);
    EXPECT_LT(int64_t{Slot(7).bid_amount}, -9223372036854770000);
    EXPECT_GT(int64_t{Slot(7).ask_amount}, 9223372036854770000);
}

TEST_F(MdqpDecoding, OrderStatisticsAreStored) {
    Parse(MdqpWriter().OrderStatistics({7, 5, 50'000'000.25, 6, -60'000'000.5}));
    expected.bid_volume = 5;
    expected.bid_amount = 5'000'000'025;
    expected.ask_volume = 6;
    expected.ask_amount = -6'000'000'049;  // half a hundredth up, cut towards zero
    ExpectSlot();
    Parse(MdqpWriter().OrderStatistics({7, -1, -70'000'000.5, -2, 80'000'000.25}));
    expected.bid_volume = UINT32_MAX;
    expected.bid_amount = -7'000'000'049;
    expected.ask_volume = UINT32_MAX - 1;
    expected.ask_amount = 8'000'000'025;
    ExpectSlot();
}

TEST_F(MdqpDecoding, AbsentAmountsBecomeZero) {
    Parse(MdqpWriter().OrderStatistics({7, 5, DBL_MAX, 6, DBL_MAX}));
    expected.bid_volume = 5;
    expected.ask_volume = 6;
    expected.bid_amount = expected.ask_amount = 0;
    ExpectSlot();
}

TEST_F(MdqpDecoding, InstrumentNumberSetsTheCountOnePastIt) {
    Parse(MdqpWriter().InstInfo(Info(99)));
    EXPECT_EQ(state->counts.shfe_inst_cnt_2ps, 100U);
    Parse(MdqpWriter().InstInfo(Info(3)));
    EXPECT_EQ(state->counts.shfe_inst_cnt_2ps, 100U);
}

TEST_F(MdqpDecoding, IdTakesFifteenBytesAsTheyAreAlsoBehindATerminator) {
    std::memset(Slot(7).inst_id, 'x', 16);
    inst_info_t info = Info(7);
    std::memcpy(info.inst_id, "ab\0cdefghijklmnopq", 19);
    Parse(MdqpWriter().InstInfo(info));
    EXPECT_EQ(std::string(Slot(7).inst_id, 16), std::string("ab\0cdefghijklmn\0", 16));
}

TEST_F(MdqpDecoding, EmptyIdClearsTheTextAndLeavesTheBytesBehindItsFirst) {
    std::memset(Slot(7).inst_id, 'x', 16);
    inst_info_t info = Info(7);
    std::memcpy(info.inst_id, "\0yz", 3);
    decoder.InstInfo(SHFE_2PS, info, Slot(7));
    EXPECT_EQ(std::string(Slot(7).inst_id, 16), std::string("\0xxxxxxxxxxxxxxx", 16));
}

TEST_F(MdqpDecoding, IdOfOneCharacterIsAnId) {
    std::memset(Slot(7).inst_id, 'x', 16);
    inst_info_t info = Info(7);
    std::memcpy(info.inst_id, "\x01\0\0\0\0\0\0\0\0\0\0\0\0\0\0", 16);
    Parse(MdqpWriter().InstInfo(info));
    EXPECT_EQ(std::string(Slot(7).inst_id, 16), std::string("\x01\0\0\0\0\0\0\0\0\0\0\0\0\0\0\0", 16));
}

TEST_F(MdqpDecoding, NegativeNumberIsRefusedAndCountsNothing) {
    for (const int32_t number : {-1, INT32_MIN}) {
        Parse(Padded(MdqpWriter()
                         .InstInfo(Info(number))
                         .DealInfo(Deal(number))
                         .PriceDetail(number, '0', 1, 1)
                         .OrderStatistics({number, 1, 1, 1, 1})));
    }
    EXPECT_EQ(state->counts.shfe_inst_cnt_2ps, 0U);
    EXPECT_EQ(state->counters[ECounter::InstNoOutOfRange], 8U);
    EXPECT_EQ(state->tradingDay, 0);
    EXPECT_THAT(log.Texts(), IsEmpty());
}

TEST_F(MdqpDecoding, NumberBeyondTheTableIsRefusedAndToldOnce) {
    Parse(MdqpWriter().InstInfo(Info(16384)));
    Parse(MdqpWriter().InstInfo(Info(16385)));
    EXPECT_THAT(log.Texts(LOG_WARNING), ElementsAre("shfe inst_no[16384] is out of range [16384]"));
}

TEST_F(MdqpDecoding, MessageOfNoFeedIsRefused) {
    tcp_session_t& session = state->sessions[41000];
    session.src_host = 11;
    session.src_port = 33022;
    session.dst_host = 12;
    session.dst_port = 41000;
    session.init = 1;
    for (const uint8_t flag : {mdqp::FLAG_MORE, mdqp::FLAG_LAST}) {
        EXPECT_FALSE(Parse(Padded(MdqpWriter(flag).InstInfo(Info(7)).PacketNo(1)), 41000));
    }
    const std::string line = "src_host[11] src_port[33022] dst_host[12] dst_port[41000] unknown.";
    EXPECT_THAT(log.Texts(), ElementsAre(line, line));
    EXPECT_EQ(log.lines[0].level, LOG_DEBUG);
    EXPECT_EQ(log.lines[0].Function(), "_ParseMdqp");
    EXPECT_EQ(state->counters[ECounter::MessageOfNoFeed], 2U);
    EXPECT_EQ(state->counts.shfe_inst_cnt_2ps, 0U);
    EXPECT_EQ(state->finished.enabled_mask, 0);
    EXPECT_EQ(session.init, 1);
    EXPECT_THAT(board.accesses, IsEmpty());
    ExpectSlot();
}

TEST_F(MdqpDecoding, PacketNumberGoesToTheFeedsRegister) {
    state->ports = {PORT, PORT + 1, PORT + 2, PORT + 3};
    for (uint16_t feed = 0; feed < 4; ++feed) {
        Parse(Padded(MdqpWriter().PacketNo(77 + feed)), static_cast<uint16_t>(PORT + feed));
    }
    Parse(Padded(MdqpWriter().PacketNo(-1)));
    EXPECT_THAT(board.accesses,
                ElementsAre(W(0x11110, 77), W(0x21110, 78), W(0x11111, 79), W(0x21111, 80), W(0x11110, 0xFFFFFFFF)));
}

TEST_F(MdqpDecoding, FieldThatBeginsInTheLastEightBytesIsNotHandled) {
    Parse(MdqpWriter().PacketNo(77));
    EXPECT_THAT(board.accesses, IsEmpty());
    const uint8_t zero = 0;
    Parse(MdqpWriter().PacketNo(78).RawBytes(&zero, 1));
    EXPECT_THAT(board.accesses, ElementsAre(W(0x11110, 78)));
}

TEST_F(MdqpDecoding, UnknownFieldIsToldAndPassedOver) {
    const uint8_t data[5] = {};
    Parse(MdqpWriter().Field(0x0BAD, data, sizeof data).InstInfo(Info(2)));
    EXPECT_THAT(log.Texts(), ElementsAre("unknown field id: bad"));
    EXPECT_EQ(log.lines[0].level, LOG_ERROR);
    EXPECT_EQ(log.lines[0].Function(), "_ParseMdqp");
    EXPECT_EQ(state->counters[ECounter::FieldUnknown], 1U);
    EXPECT_EQ(state->counts.shfe_inst_cnt_2ps, 3U);
}

TEST_F(MdqpDecoding, UnknownFieldIsToldWithAtLeastTwoDigits) {
    const uint8_t data[8] = {};
    Parse(Padded(MdqpWriter().Field(0x0005, data, 8).Field(0x1005, data, 8).Field(0x0100, data, 8)));
    EXPECT_THAT(log.Texts(), ElementsAre("unknown field id: 05", "unknown field id: 1005", "unknown field id: 100"));
}

TEST_F(MdqpDecoding, KnownFieldsWithoutUseAreSilent) {
    MdqpWriter message;
    const uint8_t data[6] = {7};
    for (const uint16_t id : std::initializer_list<uint16_t>{0x0031, 0x0032, 0x1001, 0x1002, 0x1003})
        message.Field(id, data, sizeof data);
    Parse(Padded(message));
    EXPECT_THAT(log.lines, IsEmpty());
    EXPECT_THAT(board.accesses, IsEmpty());
    EXPECT_EQ(state->counters[ECounter::FieldUnknown], 0U);
    ExpectSlot();
}

}  // namespace
