// Segments that came early: their order, their limits, and their replay once the gap is filled.
#include "tests/unit/StreamFixture.h"

namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using EarlySegments = StreamFixture;

TEST_F(EarlySegments, EarlySegmentIsReplayedOnceTheGapIsFilled) {
    const uint32_t next = Begin();
    Arrive(next + MESSAGE_BYTES, Numbered(2));
    EXPECT_THAT(Decoded(), IsEmpty());
    EXPECT_EQ(Session().lost_flag, 1);
    EXPECT_EQ(uint32_t{Session().lost_buf_size}, 1U);
    Arrive(next, Numbered(1));
    EXPECT_THAT(Decoded(), ElementsAre(1, 2));
    EXPECT_EQ(Session().lost_flag, 0);
    EXPECT_EQ(uint32_t{Session().lost_buf_size}, 0U);
    EXPECT_EQ(api->m_earlySegmentCount, 0U);
}

TEST_F(EarlySegments, EarlySegmentsAreKeptInOrder) {
    const uint32_t next = Begin();
    Arrive(next + 2 * MESSAGE_BYTES, Numbered(3));
    Arrive(next + MESSAGE_BYTES, Numbered(2));
    EXPECT_THAT(EarlySeqs(), ElementsAre(next + MESSAGE_BYTES, next + 2 * MESSAGE_BYTES));
    Arrive(next, Numbered(1));
    EXPECT_THAT(Decoded(), ElementsAre(1, 2, 3));
}

TEST_F(EarlySegments, DrainStopsAtTheNextGap) {
    const uint32_t next = Begin();
    Arrive(next + 3 * MESSAGE_BYTES, Numbered(4));
    Arrive(next + MESSAGE_BYTES, Numbered(2));
    Arrive(next, Numbered(1));
    EXPECT_THAT(Decoded(), ElementsAre(1, 2));
    EXPECT_THAT(EarlySeqs(), ElementsAre(next + 3 * MESSAGE_BYTES));
    EXPECT_EQ(Session().lost_flag, 1);
}

TEST_F(EarlySegments, EarlySegmentThatIsCoveredMeanwhileIsPassedOver) {
    const uint32_t next = Begin();
    Arrive(next + MESSAGE_BYTES, Numbered(2));
    Arrive(next, Stream(1, 3));
    EXPECT_THAT(Decoded(), ElementsAre(1, 2, 3));
    EXPECT_EQ(EarlyHead(), nullptr);
}

TEST_F(EarlySegments, WalkAlongTheListTellsEachStep) {
    const uint32_t next = Begin();
    for (const int32_t number : {2, 3, 4, 5}) {
        Arrive(next + static_cast<uint32_t>(number - 1) * MESSAGE_BYTES, Numbered(number));
    }
    // The third one looks past one entry, the fourth past two.
    EXPECT_EQ(log.Count(LOG_ERROR, "free the cache of packet loss."), 3U);
    EXPECT_EQ(log.lines.back().Function(), "_TcpHandler");
}

TEST_F(EarlySegments, RepeatedHeadOfTheListIsDiscarded) {
    const uint32_t next = Begin();
    Arrive(next + MESSAGE_BYTES, Numbered(2));
    Arrive(next + MESSAGE_BYTES, Numbered(2));
    EXPECT_EQ(api->m_earlySegmentCount, 1U);
    EXPECT_EQ(Counted(ECounter::SegmentRepeated), 1U);
}

TEST_F(EarlySegments, RepeatedLaterEntryIsDecodedOnce) {
    const uint32_t next = Begin();
    Arrive(next + MESSAGE_BYTES, Numbered(2));
    Arrive(next + 2 * MESSAGE_BYTES, Numbered(3));
    Arrive(next + 2 * MESSAGE_BYTES, Numbered(3));
    EXPECT_EQ(EarlySeqs().size(), 3U);  // stored in front of its equal
    EXPECT_FALSE(log.Has(LOG_ERROR, "free the cache of packet loss."));
    Arrive(next, Numbered(1));
    EXPECT_THAT(Decoded(), ElementsAre(1, 2, 3));
}

TEST_F(EarlySegments, DrainedPayloadThatIsNoMessageStopsTheDrain) {
    const uint32_t next = Begin();
    Arrive(next + MESSAGE_BYTES, Bytes(MESSAGE_BYTES, 0xEE));
    Arrive(next + 2 * MESSAGE_BYTES, Numbered(3));
    Arrive(next, Numbered(1));
    EXPECT_THAT(Decoded(), ElementsAre(1));
    EXPECT_THAT(log.Texts(TROUBLE), ElementsAre("not a mdqp header, check program logic"));
    EXPECT_THAT(EarlySeqs(), ElementsAre(next + 2 * MESSAGE_BYTES));
    Arrive(next + 2 * MESSAGE_BYTES, Numbered(3));
    EXPECT_THAT(Decoded(), ElementsAre(1, 3));
    EXPECT_EQ(api->m_earlySegmentCount, 0U);
}

TEST_F(EarlySegments, EarlySegmentsOfAFormerConnectionAreNoPartOfTheNext) {
    const uint32_t next = Begin();
    Arrive(next + 1000, Numbered(9));
    Arrive(next, LastMessage());
    Arrive(Begin(INE_TOPIC, LOCAL_PORT, next), Numbered(2));
    EXPECT_EQ(Session().lost_flag, 0);
    EXPECT_EQ(api->m_earlySegmentCount, 0U);
}

class EarlyFlood : public StreamFixture {
protected:
    void StoreEarly(uint32_t count) {
        m_next = Begin();
        CCommonLog::GetInstance().SetLogLevel(LOG_NONE);  // each step of each walk has its line
        // From the far end, so that each becomes the head at once.
        for (uint32_t i = count; i > 0; --i) Arrive(m_next + i * MESSAGE_BYTES, Numbered(static_cast<int32_t>(i)));
        CCommonLog::GetInstance().SetLogLevel(LOG_ALL);
        log.lines.clear();
    }

    uint32_t m_next = 0;
};

TEST_F(EarlyFlood, FiveHundredSegmentsAreStored) {
    StoreEarly(LOST_BUF_LIMIT);
    EXPECT_EQ(uint32_t{Session().lost_buf_size}, LOST_BUF_LIMIT);
    EXPECT_EQ(EarlySeqs().size(), LOST_BUF_LIMIT);
    Arrive(m_next, Numbered(0));
    EXPECT_EQ(Decoded().size(), LOST_BUF_LIMIT + 1);
}

TEST_F(EarlyFlood, OneMoreClearsEverything) {
    StoreEarly(LOST_BUF_LIMIT);
    api->m_finishedMask.enabled_mask = FeedBit(INE_2PS);
    const uint32_t seq = m_next + 501 * MESSAGE_BYTES;
    Arrive(seq, Numbered(501));
    EXPECT_THAT(log.Texts(TROUBLE),
                ElementsAre("break tcp seq detected. expt: " + std::to_string(m_next) + ", Got: " + std::to_string(seq),
                            "packet loss > 20 msg, free cache, init again."));
    EXPECT_EQ(Session().init, 0);
    EXPECT_EQ(EarlyHead(), nullptr);
    EXPECT_EQ(api->m_finishedMask.enabled_mask, 0);
    EXPECT_EQ(api->m_u50DstPort.port_shfe_2ps, 0);
    EXPECT_EQ(api->m_earlySegmentCount, 0U);
    EXPECT_EQ(api->m_carryOverOwners.Count(), 0U);
    EXPECT_EQ(Counted(ECounter::EarlyOverflow), 1U);
}

TEST_F(EarlySegments, LongestFrameThatFitsAnEntryIsStored) {
    const uint32_t next = Begin();
    const std::size_t headers = Segment(next, {}).Frame().size();
    Arrive(next + 1, Bytes(EARLY_FRAME_CAPACITY - headers));
    EXPECT_EQ(uint32_t{EarlyHead()->len}, EARLY_FRAME_CAPACITY);
    EXPECT_THAT(log.Texts(TROUBLE), IsEmpty());
}

TEST_F(EarlySegments, EarlyFrameLongerThanAnEntryIsLost) {
    const uint32_t next = Begin();
    const std::size_t headers = Segment(next, {}).Frame().size();
    Arrive(next + 1, Bytes(EARLY_FRAME_CAPACITY - headers + 1));
    EXPECT_THAT(log.Texts(TROUBLE), ElementsAre("failed to malloc buffer to store tcp_lost_buf_t"));
    EXPECT_EQ(Session().lost_flag, 0);
    EXPECT_EQ(Counted(ECounter::SegmentEarlyDropped), 1U);
}

TEST_F(EarlySegments, EarlySegmentBeyondTheBudgetOfAllConnectionsIsLost) {
    const uint32_t next = Begin();
    api->m_earlySegmentCount = EARLY_SEGMENT_BUDGET;
    Arrive(next + 1, Numbered(1));
    EXPECT_THAT(log.Texts(TROUBLE), ElementsAre("failed to malloc buffer to store tcp_lost_buf_t"));
    EXPECT_EQ(Counted(ECounter::SegmentEarlyDropped), 1U);
}

TEST_F(EarlySegments, ListGoesOnWhenOneOfItsSegmentsFindsNoRoom) {
    const uint32_t next = Begin();
    Arrive(next + MESSAGE_BYTES, Numbered(2));
    api->m_earlySegmentCount = EARLY_SEGMENT_BUDGET;
    Arrive(next + 2 * MESSAGE_BYTES, Numbered(3));
    Arrive(next, Numbered(1));
    EXPECT_THAT(Decoded(), ElementsAre(1, 2));
}

}  // namespace
