// What is kept of a message until the rest of it has come: headers cut short, and empty segments behind kept bytes.
#include "tests/unit/StreamFixture.h"

namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

class CarryOver : public StreamFixture {
protected:
    static constexpr uint32_t FIRST_BYTES = 100;
    static constexpr uint16_t HEADS_OF_FIRST = 8 + 10 + 4;  ///< message, snap_t, padding field

    /// A first segment of 100 bytes and this message behind it, which is shorter and so kept. Gives the next number.
    uint32_t BeginWith(const Bytes& message, int16_t topic = SHFE_TOPIC, uint16_t localPort = LOCAL_PORT) {
        const Bytes payload = Join({FirstMessage(topic, FIRST_BYTES - HEADS_OF_FIRST), message});
        Arrive(FIRST_SEQ, payload, localPort);
        return FIRST_SEQ + static_cast<uint32_t>(payload.size());
    }

    static Bytes LastNumbered(int32_t number) {
        const Bytes zeros(20);
        return exchange::MdqpWriter(mdqp::FLAG_LAST).PacketNo(number).Field(PADDING, zeros.data(), 20).Bytes();
    }

    void ExpectNothingKept() {
        EXPECT_EQ(Session().frag_flag, 0);
        EXPECT_EQ(uint32_t{Session().frag_buf_offset}, 0U);
    }

    void ExpectNothingDropped() {
        for (std::size_t i = 0; i < COUNTER_NAMES.size(); ++i) {
            EXPECT_EQ(Counted(static_cast<ECounter>(i)), 0U) << COUNTER_NAMES[i];
        }
    }
};

TEST_F(CarryOver, KeptHeaderThatBeginsNoMessageIsNotParsedWhenItsRestHasCome) {
    const Bytes zeros(20);
    const Bytes none = exchange::MdqpWriter(0x55, 'x').PacketNo(7).Field(PADDING, zeros.data(), 20).Bytes();
    const uint32_t next = Begin();
    const Bytes stream = Join({Numbered(1), none});
    const uint32_t cut = MESSAGE_BYTES + 12;
    Arrive(next, Cut(stream, 0, cut));
    Arrive(next + cut, Cut(stream, cut, stream.size()));
    EXPECT_THAT(Decoded(), ElementsAre(1));
    EXPECT_EQ(Counted(ECounter::PayloadNotMdqp), 1U);
    EXPECT_EQ(uint32_t{Session().frag_buf_offset}, none.size());
}

// ---- empty segments -------------------------------------------------------------------------------------------------

TEST_F(CarryOver, BareAcknowledgementParsesTheWholeMessageThatIsKept) {
    const uint32_t next = BeginWith(Numbered(7));
    EXPECT_THAT(Decoded(), IsEmpty());
    Arrive(next, {});
    EXPECT_THAT(Decoded(), ElementsAre(7));
    ExpectNothingKept();
    EXPECT_EQ(uint32_t{Session().next_expt_seq}, next);
    Arrive(next, Numbered(8));
    EXPECT_THAT(Decoded(), ElementsAre(7, 8));
    ExpectNothingDropped();
}

TEST_F(CarryOver, BareAcknowledgementParsesAllThatIsKeptAndLeavesTheRest) {
    const Bytes third = Cut(Numbered(9), 0, 11);
    const uint32_t next = BeginWith(Join({Numbered(7), Numbered(8), third}));
    Arrive(next, {});
    EXPECT_THAT(Decoded(), ElementsAre(7, 8));
    EXPECT_EQ(Carried(), third);
    Arrive(next, {});
    EXPECT_EQ(Carried(), third);
    Arrive(next, Cut(Numbered(9), 11, MESSAGE_BYTES));
    EXPECT_THAT(Decoded(), ElementsAre(7, 8, 9));
    ExpectNothingDropped();
}

TEST_F(CarryOver, SnapshotOfOneSegmentIsFinishedByOneAcknowledgement) {
    const uint32_t next = BeginWith(LastNumbered(7));
    EXPECT_EQ(state->finished.enabled_mask, 0);
    EXPECT_EQ(Session().init, 1);
    Arrive(next, {});
    EXPECT_EQ(state->finished.enabled_mask, FeedBit(SHFE_2PS));
    EXPECT_EQ(Session().init, 0);
}

TEST_F(CarryOver, AcknowledgementsBehindAFinishedFeedAreRefused) {
    const uint32_t next = BeginWith(LastNumbered(7), INE_TOPIC);
    for (int i = 0; i < 3; ++i) Arrive(next, {});
    EXPECT_EQ(state->finished.enabled_mask, FeedBit(INE_2PS));
    EXPECT_EQ(Counted(ECounter::SegmentRefused), 2U);
    EXPECT_EQ(Counted(ECounter::MessageOfNoFeed), 0U);
}

TEST_F(CarryOver, EmptyEarlySegmentIsNotStored) {
    const uint32_t next = Begin();
    Arrive(next + MESSAGE_BYTES, {});
    EXPECT_EQ(EarlyHead(), nullptr);
    EXPECT_EQ(Session().lost_flag, 0);
    EXPECT_EQ(Counted(ECounter::SegmentEarlyDropped), 1U);
    Arrive(next + MESSAGE_BYTES, Numbered(2));  // the data of the same number, early too
    Arrive(next, Numbered(1));
    EXPECT_THAT(Decoded(), ElementsAre(1, 2));
    EXPECT_EQ(Counted(ECounter::SegmentRepeated), 0U);
}

TEST_F(CarryOver, EmptySegmentInFrontOfAStoredOneStopsNoDrain) {
    const uint32_t next = Begin();
    Arrive(next + 2 * MESSAGE_BYTES, Numbered(3));
    Arrive(next + MESSAGE_BYTES, {});
    Arrive(next + MESSAGE_BYTES, Numbered(2));
    Arrive(next, Numbered(1));
    EXPECT_THAT(Decoded(), ElementsAre(1, 2, 3));
}

TEST_F(CarryOver, EmptyEarlySegmentBehindAFullListClearsNothing) {
    const uint32_t next = Begin();
    Arrive(next + MESSAGE_BYTES, Numbered(2));
    Session().lost_buf_size = 500;
    Arrive(next + 2 * MESSAGE_BYTES, {});
    EXPECT_EQ(Session().init, 1);
    EXPECT_EQ(Counted(ECounter::EarlyOverflow), 0U);
    EXPECT_EQ(Counted(ECounter::SegmentEarlyDropped), 1U);
}

// ---- headers cut short ----------------------------------------------------------------------------------------------

class CutHeader : public CarryOver, public ::testing::WithParamInterface<uint32_t> {};

INSTANTIATE_TEST_SUITE_P(After, CutHeader, ::testing::Range(2U, 8U));

TEST_P(CutHeader, IsCarriedOver) {
    const uint32_t next = Begin();
    const Bytes stream = Join({Numbered(5), Numbered(6)});
    Arrive(next, Cut(stream, 0, GetParam()));
    EXPECT_EQ(Session().frag_flag, 1);
    EXPECT_EQ(Carried(), Cut(stream, 0, GetParam()));
    Arrive(next + GetParam(), Cut(stream, GetParam(), stream.size()));
    EXPECT_THAT(Decoded(), ElementsAre(5, 6));
    ExpectNothingKept();
    ExpectNothingDropped();
}

TEST_P(CutHeader, WaitsForTheRestOfItself) {
    uint32_t next = Begin();
    const Bytes stale = Join({Numbered(1), Cut(Numbered(2), 0, 10)});
    Arrive(next, stale);  // leaves a whole header in the buffer
    next += static_cast<uint32_t>(stale.size());
    Arrive(next, Cut(Numbered(2), 10, MESSAGE_BYTES));
    next += MESSAGE_BYTES - 10;
    const Bytes message = Numbered(3);
    Arrive(next, Cut(message, 0, GetParam()));
    for (uint32_t at = GetParam(); at < MESSAGE_BYTES; ++at) {
        EXPECT_THAT(Decoded(), ElementsAre(1, 2));
        Arrive(next + at, {});
        EXPECT_EQ(Carried(), Cut(message, 0, at));
        Arrive(next + at, Cut(message, at, at + 1));
    }
    EXPECT_THAT(Decoded(), ElementsAre(1, 2, 3));
    ExpectNothingKept();
    ExpectNothingDropped();
}

TEST_P(CutHeader, ThatCameEarlyIsCarriedOverByTheDrain) {
    const uint32_t next = Begin();
    const Bytes stream = Join({Numbered(1), Numbered(2), Numbered(3)});
    const uint32_t cut = MESSAGE_BYTES + GetParam();
    Arrive(next + cut, Cut(stream, cut, stream.size()));
    Arrive(next + MESSAGE_BYTES, Cut(stream, MESSAGE_BYTES, cut));
    Arrive(next, Cut(stream, 0, MESSAGE_BYTES));
    EXPECT_THAT(Decoded(), ElementsAre(1, 2, 3));
    ExpectNothingKept();
    ExpectNothingDropped();
    EXPECT_EQ(Reassembly().EarlySegments(), 0U);
}

TEST_P(CutHeader, OfTheLastMessageFinishesTheFeed) {
    const uint32_t next = Begin();
    const Bytes last = LastNumbered(4);
    Arrive(next, Cut(last, 0, GetParam()));
    Arrive(next + GetParam(), Cut(last, GetParam(), last.size()));
    EXPECT_THAT(Decoded(), ElementsAre(4));
    EXPECT_EQ(state->finished.enabled_mask, FeedBit(SHFE_2PS));
}

TEST_P(CutHeader, WithAWrongFlagOrTypeIsRefusedAndCounted) {
    uint32_t next = Begin();
    uint64_t refused = 0;
    for (const auto& [flag, type] : {std::pair<uint8_t, uint8_t>{0x12, '2'}, {0x00, '2'}, {0x11, '3'}, {0x01, 0}}) {
        Bytes payload = Cut(Numbered(1), 0, GetParam());
        payload[0] = flag;
        payload[1] = type;
        Arrive(next, payload);
        next += GetParam();
        EXPECT_EQ(Counted(ECounter::PayloadNotMdqp), ++refused);
        ExpectNothingKept();
    }
    Arrive(next, Numbered(2));
    EXPECT_THAT(Decoded(), ElementsAre(2));
}

TEST_F(CarryOver, OneByteOfAHeaderIsRefusedAndCounted) {
    const uint32_t next = Begin();
    Arrive(next, Cut(Numbered(1), 0, 1));
    EXPECT_EQ(uint32_t{Session().next_expt_seq}, next + 1);
    EXPECT_EQ(Counted(ECounter::PayloadNotMdqp), 1U);
    ExpectNothingKept();
    Arrive(next + 1, Numbered(2));
    EXPECT_THAT(Decoded(), ElementsAre(2));
}

TEST_F(CarryOver, BytesBehindAPacketCompleteNoHeader) {
    const uint32_t next = Begin();
    Bytes message = Segment(next, {mdqp::FLAG_MORE}).DmaMessage();
    message.resize(message.size() + 7, mdqp::TYPE_SNAPSHOT);  // the link layer's padding
    Hand(message);
    EXPECT_EQ(Counted(ECounter::PayloadNotMdqp), 1U);
    ExpectNothingKept();
}

TEST_F(CarryOver, OneByteOfAHeaderThatCameEarlyStopsTheDrain) {
    const uint32_t next = Begin();
    Arrive(next + MESSAGE_BYTES, Cut(Numbered(2), 0, 1));
    Arrive(next + MESSAGE_BYTES + 1, Numbered(3));
    Arrive(next, Numbered(1));
    EXPECT_THAT(Decoded(), ElementsAre(1));
    EXPECT_EQ(Counted(ECounter::PayloadNotMdqp), 1U);
    EXPECT_THAT(log.Texts(TROUBLE), ElementsAre("not a mdqp header, check program logic"));
}

TEST_F(CarryOver, KeptBytesThatAreNoMessageStayAndEachPayloadBehindThemIsCounted) {
    const uint32_t next = Begin();
    Session().frag_flag = 1;
    Arrive(next, Bytes(1, 0xEE));  // one byte tells nothing yet
    EXPECT_EQ(Counted(ECounter::PayloadNotMdqp), 0U);
    Arrive(next + 1, Bytes(1, 0xEE));
    EXPECT_EQ(Counted(ECounter::PayloadNotMdqp), 1U);
    Arrive(next + 2, {});
    EXPECT_EQ(Counted(ECounter::PayloadNotMdqp), 1U);
    Arrive(next + 2, Bytes(8, 0xEE));
    EXPECT_EQ(Counted(ECounter::PayloadNotMdqp), 2U);
    EXPECT_EQ(uint32_t{Session().frag_buf_offset}, 10U);
    EXPECT_EQ(Session().frag_flag, 1);
}

// ---- messages that cannot be decoded --------------------------------------------------------------------------------

TEST_F(CarryOver, MessageOfNoFeedIsToldBeforeItsLengthIsLookedAt) {
    const Bytes zeros(60);
    const Bytes first = exchange::MdqpWriter().Field(PADDING, zeros.data(), 48).Bytes();
    const Bytes liar = exchange::MdqpWriter().PacketNo(2).Field(PADDING, zeros.data(), 40).WithLengthOff(5000).Bytes();
    ASSERT_EQ(first.size(), liar.size());
    Arrive(FIRST_SEQ, Join({first, liar}));
    const std::string line = "src_host[50462986] src_port[33022] dst_host[67240202] dst_port[40001] unknown.";
    EXPECT_EQ(log.Count(LOG_DEBUG, line), 2U);
    EXPECT_EQ(Counted(ECounter::MessageOfNoFeed), 2U);
    EXPECT_EQ(Counted(ECounter::FieldMalformed), 0U);
}

}  // namespace
