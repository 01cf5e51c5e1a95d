// The last message of a feed, and the warning at 80 % of what an exchange lists.
#include <cstdlib>

#include "tests/unit/MdqpFixture.h"

namespace {

using exchange::MdqpWriter;
using testing::ElementsAre;
using testing::IsEmpty;

/// All four feeds are being loaded, each from a port of its own.
class MdqpFeedEnd : public MdqpFixture {
protected:
    MdqpFeedEnd() { state->ports = {PORT, PORT + 1, PORT + 2, PORT + 3}; }
    void End(int feed) { EXPECT_TRUE(Parse(MdqpWriter(mdqp::FLAG_LAST), static_cast<uint16_t>(PORT + feed))); }
    std::vector<int> Ports() const {
        const U50DstPort ports = state->ports;
        return {ports.port_shfe_2ps, ports.port_shfe_4ps, ports.port_ine_2ps, ports.port_ine_4ps};
    }
};

TEST_F(MdqpFeedEnd, LastMessageWithoutFieldsFinishesItsFeedAndNoOther) {
    const uint32_t registers[] = {0x1F14, 0x1F14, 0x1F15, 0x1F15};
    const char* const names[] = {"shfe2ps", "shfe4ps", "ine2ps", "ine4ps"};
    state->counts = {11, 12, 13, 14};
    std::vector<int> ports = Ports();
    int finished = 0;
    for (const int feed : {2, 0, 3, 1}) {
        board.Forget();
        log.lines.clear();
        End(feed);
        finished |= 1 << feed;
        ports[static_cast<std::size_t>(feed)] = 0;
        EXPECT_EQ(state->finished.enabled_mask, finished);
        EXPECT_EQ(Ports(), ports);
        EXPECT_THAT(board.accesses, ElementsAre(W(registers[feed], 11 + static_cast<uint64_t>(feed))));
        EXPECT_THAT(log.Texts(), ElementsAre(std::string(names[feed]) +
                                             " init finished, total instruments:" + std::to_string(11 + feed)));
        EXPECT_EQ(log.lines.back().level, LOG_INFO);
        EXPECT_EQ(log.lines.back().Function(), "_ParseMdqp");
    }
}

TEST_F(MdqpFeedEnd, CountGoesToTheBoardInItsLow32Bits) {
    state->counts.ine_inst_cnt_2ps = 0x1'0000'0009;
    End(2);
    EXPECT_THAT(board.accesses, ElementsAre(W(0x1F15, 9)));
    EXPECT_TRUE(log.Has(LOG_INFO, "ine2ps init finished, total instruments:4294967305"));
}

TEST_F(MdqpFeedEnd, MessageThatIsNotTheLastFinishesNothing) {
    EXPECT_FALSE(Parse(MdqpWriter().InstInfo(Info(1))));
    EXPECT_EQ(state->finished.enabled_mask, 0);
    EXPECT_EQ(Ports(), (std::vector<int>{PORT, PORT + 1, PORT + 2, PORT + 3}));
    EXPECT_THAT(board.accesses, IsEmpty());
}

TEST_F(MdqpFeedEnd, EightyPercentAreToldOnceForBothFeedsOfAnExchange) {
    state->counts = {12801, 12802, 3201, 3202};
    for (const int feed : {0, 1, 2, 3}) End(feed);
    EXPECT_THAT(log.Texts(LOG_WARNING), ElementsAre("shfe_inst_cnt_2ps is 12801, more than 80% max cnt.",
                                                    "ine_inst_cnt_2ps is 3201, more than 80% max cnt. "));
}

TEST_F(MdqpFeedEnd, EightyPercentAreToldOfThe4psFeedThatEndsFirst) {
    state->counts = {12801, 12802, 3201, 3202};
    for (const int feed : {3, 1, 2, 0}) End(feed);
    EXPECT_THAT(log.Texts(LOG_WARNING), ElementsAre("ine_inst_cnt_4ps is 3202, more than 80% max cnt. ",
                                                    "shfe_inst_cnt_4ps is 12802, more than 80% max cnt."));
}

TEST_F(MdqpFeedEnd, EachExchangeHasAWarningOfItsOwnToUseUp) {
    state->counts = {12801, 0, 0, 0};
    End(0);
    EXPECT_FALSE(CInstrumentStore::shfe_cnt_80_flag);
    EXPECT_TRUE(CInstrumentStore::ine_cnt_80_flag);
    state->counts = {0, 0, 3201, 0};
    End(2);
    EXPECT_FALSE(CInstrumentStore::ine_cnt_80_flag);
}

TEST_F(MdqpFeedEnd, EightyPercentExactlyAreNotToldAndUseNoWarningUp) {
    state->counts = {12799, 12800, 3199, 3200};
    for (const int feed : {0, 1, 2, 3}) End(feed);
    EXPECT_THAT(log.Texts(LOG_WARNING), IsEmpty());
    state->ports = {PORT, PORT + 1, PORT + 2, PORT + 3};
    state->counts = {12800, 12801, 3200, 3201};
    for (const int feed : {0, 1, 2, 3}) End(feed);
    EXPECT_THAT(log.Texts(LOG_WARNING), ElementsAre("shfe_inst_cnt_4ps is 12801, more than 80% max cnt.",
                                                    "ine_inst_cnt_4ps is 3201, more than 80% max cnt. "));
}

// In a process of its own, so that no other test has touched them.
TEST(MdqpFeedEndFlags, WarningsAreStillToBeGivenWhenAProcessBegins) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(std::exit(CInstrumentStore::shfe_cnt_80_flag && CInstrumentStore::ine_cnt_80_flag ? 0 : 1),
                ::testing::ExitedWithCode(0), "");
}

}  // namespace
