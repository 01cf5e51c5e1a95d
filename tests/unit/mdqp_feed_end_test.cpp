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
    MdqpFeedEnd() {
        api->m_u50DstPort = {PORT, PORT + 1, PORT + 2, PORT + 3};
        for (uint16_t i = 0; i < 4; ++i) api->m_sessions[PORT + i].init = 1;
    }
    void End(int feed) { EXPECT_EQ(Parse(MdqpWriter(mdqp::FLAG_LAST), static_cast<uint16_t>(PORT + feed)), 0); }
    std::vector<int> Ports() const {
        const U50DstPort ports = api->m_u50DstPort;
        return {ports.port_shfe_2ps, ports.port_shfe_4ps, ports.port_ine_2ps, ports.port_ine_4ps};
    }
    std::vector<int> InUse() const {
        std::vector<int> flags;
        for (uint16_t i = 0; i < 4; ++i) flags.push_back(api->m_sessions[PORT + i].init);
        return flags;
    }
};

TEST_F(MdqpFeedEnd, LastMessageWithoutFieldsFinishesItsFeedAndNoOther) {
    const uint32_t registers[] = {0x1F14, 0x1F14, 0x1F15, 0x1F15};
    const char* const names[] = {"shfe2ps", "shfe4ps", "ine2ps", "ine4ps"};
    api->m_u50InstCount = {11, 12, 13, 14};
    std::vector<int> ports = Ports();
    std::vector<int> inUse = InUse();
    int finished = 0;
    for (const int feed : {2, 0, 3, 1}) {
        board.Forget();
        log.lines.clear();
        End(feed);
        finished |= 1 << feed;
        ports[static_cast<std::size_t>(feed)] = inUse[static_cast<std::size_t>(feed)] = 0;
        EXPECT_EQ(api->m_finishedMask.enabled_mask, finished);
        EXPECT_EQ(Ports(), ports);
        EXPECT_EQ(InUse(), inUse);
        EXPECT_THAT(board.accesses, ElementsAre(W(registers[feed], 11 + static_cast<uint64_t>(feed))));
        EXPECT_THAT(log.Texts(), ElementsAre(std::string(names[feed]) +
                                             " init finished, total instruments:" + std::to_string(11 + feed)));
        EXPECT_EQ(log.lines.back().level, LOG_INFO);
        EXPECT_EQ(log.lines.back().Function(), "_ParseMdqp");
    }
}

TEST_F(MdqpFeedEnd, CountGoesToTheBoardInItsLow32Bits) {
    api->m_u50InstCount.ine_inst_cnt_2ps = 0x1'0000'0009;
    End(2);
    EXPECT_THAT(board.accesses, ElementsAre(W(0x1F15, 9)));
    EXPECT_TRUE(log.Has(LOG_INFO, "ine2ps init finished, total instruments:4294967305"));
}

TEST_F(MdqpFeedEnd, MessageThatIsNotTheLastFinishesNothing) {
    Parse(MdqpWriter().InstInfo(Info(1)));
    EXPECT_EQ(api->m_finishedMask.enabled_mask, 0);
    EXPECT_EQ(Ports(), (std::vector<int>{PORT, PORT + 1, PORT + 2, PORT + 3}));
    EXPECT_EQ(InUse(), (std::vector<int>{1, 1, 1, 1}));
    EXPECT_THAT(board.accesses, IsEmpty());
}

TEST_F(MdqpFeedEnd, EightyPercentAreToldOnceForBothFeedsOfAnExchange) {
    api->m_u50InstCount = {12801, 12802, 3201, 3202};
    for (const int feed : {0, 1, 2, 3}) End(feed);
    EXPECT_THAT(log.Texts(LOG_WARNING), ElementsAre("shfe_inst_cnt_2ps is 12801, more than 80% max cnt.",
                                                    "ine_inst_cnt_2ps is 3201, more than 80% max cnt. "));
}

TEST_F(MdqpFeedEnd, EightyPercentAreToldOfThe4psFeedThatEndsFirst) {
    api->m_u50InstCount = {12801, 12802, 3201, 3202};
    for (const int feed : {3, 1, 2, 0}) End(feed);
    EXPECT_THAT(log.Texts(LOG_WARNING), ElementsAre("ine_inst_cnt_4ps is 3202, more than 80% max cnt. ",
                                                    "shfe_inst_cnt_4ps is 12802, more than 80% max cnt."));
}

TEST_F(MdqpFeedEnd, EachExchangeHasAWarningOfItsOwnToUseUp) {
    api->m_u50InstCount = {12801, 0, 0, 0};
    End(0);
    EXPECT_FALSE(TestableApi::shfe_cnt_80_flag);
    EXPECT_TRUE(TestableApi::ine_cnt_80_flag);
    api->m_u50InstCount = {0, 0, 3201, 0};
    End(2);
    EXPECT_FALSE(TestableApi::ine_cnt_80_flag);
}

TEST_F(MdqpFeedEnd, EightyPercentExactlyAreNotToldAndUseNoWarningUp) {
    api->m_u50InstCount = {12799, 12800, 3199, 3200};
    for (const int feed : {0, 1, 2, 3}) End(feed);
    EXPECT_THAT(log.Texts(LOG_WARNING), IsEmpty());
    api->m_u50DstPort = {PORT, PORT + 1, PORT + 2, PORT + 3};
    api->m_u50InstCount = {12800, 12801, 3200, 3201};
    for (const int feed : {0, 1, 2, 3}) End(feed);
    EXPECT_THAT(log.Texts(LOG_WARNING), ElementsAre("shfe_inst_cnt_4ps is 12801, more than 80% max cnt.",
                                                    "ine_inst_cnt_4ps is 3201, more than 80% max cnt. "));
}

// In a process of its own, so that no other test has touched them.
TEST(MdqpFeedEndFlags, WarningsAreStillToBeGivenWhenAProcessBegins) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(std::exit(TestableApi::shfe_cnt_80_flag && TestableApi::ine_cnt_80_flag ? 0 : 1),
                ::testing::ExitedWithCode(0), "");
}

}  // namespace
