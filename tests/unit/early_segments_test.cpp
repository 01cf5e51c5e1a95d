// Segments that came early: their order, their limits, and their replay once the gap is filled.
#include "tests/unit/SnapshotFixture.h"
#include "tests/unit/StreamFixture.h"

namespace {

using ::testing::AllOf;
using ::testing::Each;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::SizeIs;

class EarlySegments : public StreamFixture {
protected:
    /// So many early segments of other connections.
    void StoreElsewhere(uint32_t segments) {
        for (uint16_t port = LOCAL_PORT + 1; segments > 0; ++port) {
            const uint32_t next = Begin(INE_TOPIC, port);
            // From the far end, so that each becomes the head at once.
            for (uint32_t place = 500; place > 0 && segments > 0; --place, --segments) {
                Arrive(next + place * MESSAGE_BYTES, Numbered(1), port);
            }
        }
        log.lines.clear();
    }
};

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
    EXPECT_EQ(Reassembly().EarlySegments(), 0U);
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
    EXPECT_EQ(Counted(ECounter::SegmentRepeated), 1U);
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
    EXPECT_EQ(Reassembly().EarlySegments(), 1U);
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

TEST_F(EarlySegments, LatestOfTwoWithTheSameNumberIsTheOneThatIsDecoded) {
    const uint32_t next = Begin();
    for (const int32_t number : {2, 3, 4}) {
        Arrive(next + static_cast<uint32_t>(number - 1) * MESSAGE_BYTES, Numbered(number));
    }
    Arrive(next + 2 * MESSAGE_BYTES, Numbered(33));
    EXPECT_EQ(log.Count(LOG_ERROR, "free the cache of packet loss."), 1U) << "told of the third, not of the equal one";
    Arrive(next, Numbered(1));
    EXPECT_THAT(Decoded(), ElementsAre(1, 2, 33, 4));
    EXPECT_EQ(Counted(ECounter::SegmentRepeated), 1U);
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
    EXPECT_EQ(Reassembly().EarlySegments(), 0U);
}

TEST_F(EarlySegments, EarlySegmentsOfAFormerConnectionAreNoPartOfTheNext) {
    const uint32_t next = Begin();
    Arrive(next + 1000, Numbered(9));
    Arrive(next, LastMessage());
    Arrive(Begin(INE_TOPIC, LOCAL_PORT, next), Numbered(2));
    EXPECT_EQ(Session().lost_flag, 0);
    EXPECT_EQ(Reassembly().EarlySegments(), 0U);
}

TEST_F(EarlySegments, EveryStoredSegmentIsCountedAndARepeatedOneIsNot) {
    const uint32_t next = Begin();
    const auto keep = [&](uint32_t number) {
        Arrive(next + (number - 1) * MESSAGE_BYTES, Numbered(static_cast<int32_t>(number)));
        return uint32_t{Session().lost_buf_size};
    };
    EXPECT_EQ(keep(5), 1U);  // alone
    EXPECT_EQ(keep(5), 1U);
    EXPECT_EQ(keep(3), 2U);  // in front of the head
    EXPECT_EQ(keep(9), 3U);  // behind the last
    EXPECT_EQ(keep(4), 4U);  // between two
    EXPECT_EQ(keep(8), 5U);
    EXPECT_THAT(EarlySeqs(), ElementsAre(next + 80, next + 120, next + 160, next + 280, next + 320));
    EXPECT_EQ(Reassembly().EarlySegments(), 5U);
    EXPECT_THAT(log.Texts(TROUBLE), AllOf(SizeIs(3), Each("free the cache of packet loss.")));
}

TEST_F(EarlySegments, ListThatIsDrainedInPartKeepsItsCount) {
    const uint32_t next = Begin();
    for (const uint32_t number : {2U, 3U, 5U}) {
        Arrive(next + (number - 1) * MESSAGE_BYTES, Numbered(static_cast<int32_t>(number)));
    }
    Arrive(next, Numbered(1));
    EXPECT_THAT(Decoded(), ElementsAre(1, 2, 3));
    EXPECT_THAT(EarlySeqs(), ElementsAre(next + 160));
    EXPECT_EQ(uint32_t{Session().lost_buf_size}, 3U);  // of all that were put into it
    EXPECT_EQ(Reassembly().EarlySegments(), 1U);
    Arrive(next + 5 * MESSAGE_BYTES, Numbered(6));
    EXPECT_EQ(uint32_t{Session().lost_buf_size}, 4U);
    Arrive(next + 3 * MESSAGE_BYTES, Numbered(4));
    EXPECT_THAT(Decoded(), ElementsAre(1, 2, 3, 4, 5, 6));
    EXPECT_EQ(uint32_t{Session().lost_buf_size}, 0U);
    EXPECT_EQ(Session().lost_flag, 0);
    EXPECT_THAT(log.Texts(TROUBLE), ElementsAre("free the cache of packet loss."));
}

class EarlyFlood : public SnapshotFixture {
protected:
    /// Messages from `first` to `last`, whose predecessor is missing.
    void StoreEarly(uint32_t first, uint32_t last) {
        CCommonLog::GetInstance().SetLogLevel(LOG_NONE);  // each step of each walk has its line
        // From the far end, so that each becomes the head at once.
        for (uint32_t i = last; i >= first; --i) ArriveMessage(i);
        CCommonLog::GetInstance().SetLogLevel(LOG_ALL);
        log.lines.clear();
    }

    void ArriveMessage(uint32_t number) {
        Arrive(m_begin + number * MESSAGE_BYTES, Numbered(static_cast<int32_t>(number)));
    }

    void ExpectEverythingCleared(uint32_t expected, uint32_t arrived) {
        EXPECT_THAT(log.Texts(TROUBLE),
                    ElementsAre("break tcp seq detected. expt: " + std::to_string(m_begin + expected * MESSAGE_BYTES) +
                                    ", Got: " + std::to_string(m_begin + arrived * MESSAGE_BYTES),
                                "packet loss > 20 msg, free cache, init again."));
        const tcp_session_t empty{};
        EXPECT_EQ(std::memcmp(&Session(), &empty, sizeof empty), 0);
        EXPECT_EQ(state->finished.enabled_mask, 0);
        EXPECT_EQ(state->ports.port_shfe_2ps, 0);
        EXPECT_EQ(Reassembly().EarlySegments(), 0U);
        EXPECT_EQ(Reassembly().CarryOverBuffers(), 0U);
        EXPECT_EQ(Counted(ECounter::EarlyOverflow), 1U);
        EXPECT_EQ(Counted(ECounter::SegmentRepeated), 0U);
    }

    void SetUp() override {
        m_begin = Begin();
        state->finished.enabled_mask = 4;
    }

    uint32_t m_begin = 0;  ///< of message 0
};

TEST_F(EarlyFlood, FiveHundredSegmentsAreStored) {
    StoreEarly(1, 500);
    EXPECT_EQ(uint32_t{Session().lost_buf_size}, 500U);
    EXPECT_EQ(EarlySeqs().size(), 500U);
    ArriveMessage(0);
    EXPECT_EQ(Decoded().size(), 501U);
    StoreEarly(502, 1001);  // an emptied list takes as many again
    EXPECT_EQ(EarlySeqs().size(), 500U);
    EXPECT_EQ(Counted(ECounter::EarlyOverflow), 0U);
}

TEST_F(EarlyFlood, OneMoreClearsEverything) {
    StoreEarly(1, 500);
    ArriveMessage(501);
    ExpectEverythingCleared(0, 501);
}

TEST_F(EarlyFlood, OneMoreThatIsARepetitionClearsEverythingToo) {
    StoreEarly(1, 500);
    ArriveMessage(1);  // the head itself
    ExpectEverythingCleared(0, 1);
}

TEST_F(EarlyFlood, SegmentsThatWereDrainedCountAgainstTheLimit) {
    StoreEarly(301, 301);
    StoreEarly(1, 299);
    ArriveMessage(0);
    EXPECT_EQ(EarlySeqs().size(), 1U);
    StoreEarly(302, 501);
    EXPECT_EQ(EarlySeqs().size(), 201U);
    EXPECT_EQ(uint32_t{Session().lost_buf_size}, 500U);
    ArriveMessage(502);
    ExpectEverythingCleared(300, 502);
}

TEST_F(EarlySegments, OneMoreThanFiveHundredAsksToBeginAgainAndClearsNothing) {
    const uint32_t next = Begin();
    for (uint32_t place = 500; place > 0; --place) Arrive(next + place * MESSAGE_BYTES, Numbered(1));
    EXPECT_EQ(result, CReassembly::EResult::Taken);
    log.lines.clear();
    Arrive(next + 501 * MESSAGE_BYTES, Numbered(1));
    EXPECT_EQ(result, CReassembly::EResult::BeginAgain);
    EXPECT_THAT(log.Texts(), ElementsAre("break tcp seq detected. expt: " + std::to_string(next) +
                                         ", Got: " + std::to_string(next + 501 * MESSAGE_BYTES)));
    EXPECT_EQ(EarlySeqs().size(), 500U);
    EXPECT_EQ(Session().init, 1);
    EXPECT_EQ(store.Instruments(SHFE_2PS), 0U);
    EXPECT_EQ(Counted(ECounter::EarlyOverflow), 1U);
}

TEST_F(EarlySegments, LongestFrameThatFitsAnEntryIsStored) {
    const uint32_t next = Begin();
    const std::size_t headers = Segment(next, {}).Frame().size();
    Arrive(next + 1, Bytes(1600U - headers));
    EXPECT_EQ(uint32_t{EarlyHead()->len}, 1600U);
}

TEST_F(EarlySegments, EarlyFrameLongerThanAnEntryIsLost) {
    const uint32_t next = Begin();
    const std::size_t headers = Segment(next, {}).Frame().size();
    Arrive(next + 1, Bytes(1600U - headers + 1));
    EXPECT_THAT(log.Texts(LOG_ERROR), ElementsAre("failed to malloc buffer to store tcp_lost_buf_t"));
    EXPECT_EQ(Session().lost_flag, 0);
    EXPECT_EQ(Counted(ECounter::SegmentEarlyDropped), 1U);
}

TEST_F(EarlySegments, EarlySegmentBeyondTheBudgetOfAllConnectionsIsLost) {
    StoreElsewhere(1999);
    const uint32_t next = Begin();
    Arrive(next + MESSAGE_BYTES, Numbered(2));
    EXPECT_EQ(Reassembly().EarlySegments(), 2000U);
    EXPECT_THAT(log.Texts(TROUBLE), IsEmpty());
    Arrive(next + 2 * MESSAGE_BYTES, Numbered(3));
    EXPECT_THAT(EarlySeqs(), ElementsAre(next + MESSAGE_BYTES));
    EXPECT_THAT(log.Texts(TROUBLE), ElementsAre("failed to malloc buffer to store tcp_lost_buf_t"));
    EXPECT_EQ(Counted(ECounter::SegmentEarlyDropped), 1U);
}

TEST_F(EarlySegments, ListGoesOnWhenOneOfItsSegmentsFindsNoRoom) {
    const uint32_t next = Begin();
    Arrive(next + MESSAGE_BYTES, Numbered(2));
    StoreElsewhere(1999);
    Arrive(next + 2 * MESSAGE_BYTES, Numbered(3));
    Arrive(next, Numbered(1));
    EXPECT_THAT(Decoded(), ElementsAre(1, 2));
    EXPECT_THAT(log.Texts(TROUBLE), ElementsAre("failed to malloc buffer to store tcp_lost_buf_t"));
}

}  // namespace
