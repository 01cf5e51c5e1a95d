// What becomes of one message of the snapshot phase: foreign and broken ones, first segments.
#include "tests/unit/DispatchFixture.h"

namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using SnapshotDispatch = DispatchFixture;

// ---- messages -----------------------------------------------------------------------------------------------------

TEST_F(SnapshotDispatch, EventYieldsTwoLines) {
    state->config.channel_id = 3;
    Hand(EventMessage());
    EXPECT_THAT(log.Texts(), ElementsAre("invalide DMA Data Type[0]",
                                         "channel3 receive DMA_EVENT event_data0[10] event_data1[11] event_data2[12] "
                                         "event_data3[13] event_data4[14] event_data5[15]"));
    EXPECT_EQ(log.lines[1].level, LOG_WARNING);
    EXPECT_EQ(log.lines[1].Function(), "_TcpHandler");
}

TEST_F(SnapshotDispatch, UpdateYieldsOneLine) {
    Hand(MessageOfType(DMA_UDP, DMA_READABLE_BYTES));
    EXPECT_THAT(log.Texts(), ElementsAre("invalide DMA Data Type[1]"));
    EXPECT_EQ(Counted(ECounter::FrameForeign), 1U);
}

TEST_F(SnapshotDispatch, ShortMessagesAreReadToTheirEndOnly) {
    for (std::size_t size = 1; size < 12 + 40; ++size) Hand(MessageOfType(DMA_TCP, size));
    EXPECT_EQ(Counted(ECounter::FrameForeign), 51U);  // of no protocol yet
    EXPECT_THAT(log.Texts(), IsEmpty());
    EXPECT_EQ(board.accesses.size(), 0U);
    EXPECT_EQ(Reassembly().TouchedSessions(), 0U);
}

TEST_F(SnapshotDispatch, MessageBeyondTheCapacityIsDropped) {
    Bytes message = Segment(FIRST_SEQ, FirstMessage(SHFE_TOPIC, 1900)).DmaMessage();
    message.resize(DMA_MESSAGE_CAPACITY + 1);
    Hand(message);
    EXPECT_EQ(Counted(ECounter::MessageTooLong), 1U);
    EXPECT_THAT(log.Texts(), IsEmpty());
    message.resize(DMA_MESSAGE_CAPACITY);
    Hand(message);
    EXPECT_EQ(Session().init, 1);
}

// ---- frames -------------------------------------------------------------------------------------------------------

TEST_F(SnapshotDispatch, FrameThatIsNotTcpIsIgnored) {
    Hand(Segment(FIRST_SEQ, FirstMessage(SHFE_TOPIC)).WithProtocol(17).DmaMessage());
    EXPECT_THAT(log.Texts(), IsEmpty());
    EXPECT_EQ(Counted(ECounter::FrameForeign), 1U);
    EXPECT_EQ(Reassembly().TouchedSessions(), 0U);
}

TEST_F(SnapshotDispatch, FrameOfAnotherPortIsIgnored) {
    state->config.snapTcpPort = {1, 2, 3, 4};
    Begin();
    EXPECT_THAT(log.Texts(), IsEmpty());
    EXPECT_EQ(Counted(ECounter::FrameForeign), 1U);
}

TEST_F(SnapshotDispatch, AnyOfTheFourSnapshotPortsWillDo) {
    for (const uint16_t place : std::initializer_list<uint16_t>{0, 1, 2, 3}) {
        uint16_t ports[] = {1, 2, 3, 4};
        ports[place] = SNAP_PORT;
        state->config.snapTcpPort = {ports[0], ports[1], ports[2], ports[3]};
        const auto localPort = static_cast<uint16_t>(LOCAL_PORT + place);
        Begin(SHFE_TOPIC, localPort);
        EXPECT_EQ(Session(localPort).init, 1) << place;
    }
    EXPECT_EQ(Counted(ECounter::FrameForeign), 0U);
}

TEST_F(SnapshotDispatch, WrongChecksumIsToldWithBothValues) {
    const exchange::FrameWriter right = Segment(FIRST_SEQ, FirstMessage(SHFE_TOPIC));
    exchange::FrameWriter wrong = right;
    wrong.WithChecksumOff();
    Hand(wrong.DmaMessage());
    const uint16_t sum = snapshot_frame::Raw<uint16_t>(right.Frame().data() + CHECK_OFFSET);
    EXPECT_THAT(log.Texts(), ElementsAre(ChecksumLine(wrong.Frame(), sum)));
    EXPECT_EQ(log.lines[0].level, LOG_ERROR);
    EXPECT_EQ(Counted(ECounter::ChecksumWrong), 1U);
    EXPECT_EQ(Reassembly().TouchedSessions(), 0U);
}

TEST_F(SnapshotDispatch, NoSingleBitOfTheTcpPartMayChange) {
    const Bytes message = Segment(FIRST_SEQ, FirstMessage(SHFE_TOPIC)).DmaMessage();
    uint64_t flips = 0;
    for (std::size_t bit = (12 + 14 + 20) * 8; bit < message.size() * 8; ++bit) {
        Bytes flipped = message;
        flipped[bit / 8] ^= static_cast<uint8_t>(1U << (bit % 8));
        Hand(flipped);
        ++flips;
    }
    EXPECT_EQ(Reassembly().TouchedSessions(), 0U);
    EXPECT_EQ(Counted(ECounter::FrameForeign), 16U);  // those of the server's port
    EXPECT_EQ(Counted(ECounter::ChecksumWrong), flips - 16);
    EXPECT_THAT(log.Texts(TROUBLE), ::testing::Each(::testing::StartsWith("TcpCheckSum false, ")));
}

TEST_F(SnapshotDispatch, TcpPartBeyondTheLimitIsTold) {
    const Bytes first = FirstMessage(SHFE_TOPIC);
    const int toLimit = TCP_LENGTH_LIMIT - 20 - static_cast<int>(first.size());
    Hand(Segment(FIRST_SEQ, first).WithTotalLengthOff(toLimit).DmaMessage());
    EXPECT_THAT(log.Texts(), ElementsAre("TcpCheckSum false"));
    EXPECT_EQ(log.lines[0].level, LOG_ERROR);
    log.lines.clear();
    Hand(Segment(FIRST_SEQ, first).WithTotalLengthOff(toLimit - 1).DmaMessage());
    EXPECT_THAT(log.Texts(), IsEmpty());
    EXPECT_EQ(Counted(ECounter::FrameMalformed), 2U);
}

TEST_F(SnapshotDispatch, FrameCutAnywhereIsDropped) {
    state->config.snapTcpPort = {SNAP_PORT, SNAP_PORT + 1, SNAP_PORT, SNAP_PORT + 1};  // none is 0
    const Bytes message = Segment(FIRST_SEQ, FirstMessage(SHFE_TOPIC)).DmaMessage();
    for (std::size_t size = DMA_TCP_FRAME_OFFSET + 14 + 10; size < message.size(); ++size) {
        Hand(Cut(message, 0, size));
        EXPECT_EQ(Session().init, 0) << size;
    }
    EXPECT_EQ(Reassembly().TouchedSessions(), 0U);
    EXPECT_EQ(Counted(ECounter::FrameMalformed), message.size() - (12 + 14 + 10));
    EXPECT_THAT(log.Texts(), IsEmpty());
}

TEST_F(SnapshotDispatch, PaddingBehindThePacketIsNoPayload) {
    Bytes message = Segment(FIRST_SEQ, FirstMessage(SHFE_TOPIC)).DmaMessage();
    message.resize(message.size() + 6, 0xEE);
    Hand(message);
    EXPECT_EQ(uint32_t{Session().next_expt_seq}, FIRST_SEQ + FirstMessage(SHFE_TOPIC).size());
}

class HeaderWords : public DispatchFixture, public ::testing::WithParamInterface<int> {};

TEST_P(HeaderWords, OfIpThatDoNotFitDropTheFrame) {
    const auto words = static_cast<uint8_t>(GetParam());
    Hand(Segment(FIRST_SEQ, {1, 2, 3, 4}).WithIpHeaderWords(words).DmaMessage());
    EXPECT_EQ(Reassembly().TouchedSessions(), 0U);
    EXPECT_EQ(Counted(ECounter::FrameMalformed) + Counted(ECounter::FrameForeign), 1U);
    EXPECT_THAT(log.Texts(), IsEmpty());
}

TEST_P(HeaderWords, OfTcpThatDoNotFitDropTheFrame) {
    const auto words = static_cast<uint8_t>(GetParam());
    Hand(Segment(FIRST_SEQ, {1, 2, 3, 4}).WithTcpHeaderWords(words).DmaMessage());
    EXPECT_EQ(Reassembly().TouchedSessions(), 0U);
    EXPECT_EQ(Counted(ECounter::FrameMalformed), 1U);
    EXPECT_THAT(log.Texts(), IsEmpty());
}

INSTANTIATE_TEST_SUITE_P(Wrong, HeaderWords, ::testing::Values(0, 1, 4, 7, 8, 15));

TEST_F(SnapshotDispatch, TotalLengthShorterThanTheHeadersIsDropped) {
    const Bytes first = FirstMessage(SHFE_TOPIC);
    for (int length = 0; length < 40; ++length) {
        const int off = length - 40 - static_cast<int>(first.size());
        Hand(Segment(FIRST_SEQ, first).WithTotalLengthOff(off).DmaMessage());
    }
    EXPECT_EQ(Counted(ECounter::FrameMalformed), 40U);
    EXPECT_THAT(log.Texts(), IsEmpty());
}

// ---- first segments -----------------------------------------------------------------------------------------------

TEST_F(SnapshotDispatch, FirstPayloadOf44BytesDoesNotBeginASession) {
    constexpr uint16_t padding = 44 - 8 - 10 - 4;
    Arrive(FIRST_SEQ, FirstMessage(SHFE_TOPIC, padding));
    EXPECT_EQ(Session().init, 0);
    EXPECT_NE(FragBuf(), nullptr);
    EXPECT_EQ(Counted(ECounter::SegmentRefused), 1U);
    Arrive(FIRST_SEQ, FirstMessage(SHFE_TOPIC, padding + 1));
    EXPECT_EQ(Session().init, 1);
}

TEST_F(SnapshotDispatch, FirstPayloadMustBeginASnapshot) {
    const Bytes zeros(40);
    for (const uint8_t flag : {mdqp::FLAG_LAST, uint8_t{0x12}}) {
        Arrive(FIRST_SEQ, exchange::MdqpWriter(flag).Snap(SHFE_TOPIC, 1).Field(PADDING, zeros.data(), 40).Bytes());
    }
    Arrive(FIRST_SEQ,
           exchange::MdqpWriter(mdqp::FLAG_MORE, '1').Snap(SHFE_TOPIC, 1).Field(PADDING, zeros.data(), 40).Bytes());
    EXPECT_EQ(Session().init, 0);
    EXPECT_EQ(Counted(ECounter::SegmentRefused), 3U);
}

TEST_F(SnapshotDispatch, FirstSegmentIsSteppedBySizeOfItsFirstMessage) {
    const Bytes first = FirstMessage(SHFE_TOPIC, 100 - 22);
    const Bytes second = Numbered(2, 60 - 20);
    ASSERT_EQ(first.size(), 100U);
    ASSERT_EQ(second.size(), 60U);
    Arrive(FIRST_SEQ, Join({first, second}));
    EXPECT_THAT(Decoded(), IsEmpty());
    EXPECT_EQ(Session().frag_flag, 1);
    EXPECT_EQ(Carried(), second);
    Arrive(FIRST_SEQ + 160, Numbered(3));
    EXPECT_THAT(Decoded(), ElementsAre(2, 3));
}

TEST_F(SnapshotDispatch, LaterMessagesOfTheFirstSegmentAsLongAsTheFirstAreParsed) {
    Arrive(FIRST_SEQ, Join({FirstMessage(SHFE_TOPIC, 60 - 22), Numbered(2, 60 - 20), Numbered(3, 60 - 20)}));
    EXPECT_THAT(Decoded(), ElementsAre(2, 3));
    EXPECT_EQ(Session().frag_flag, 0);
}

TEST_F(SnapshotDispatch, LaterHeaderOfTheFirstSegmentIsNotBelievedBeyondWhatArrived) {
    const Bytes zeros(40);
    const Bytes liar = exchange::MdqpWriter().PacketNo(2).Field(PADDING, zeros.data(), 40).WithLengthOff(5000).Bytes();
    Arrive(FIRST_SEQ, Join({FirstMessage(SHFE_TOPIC, 60 - 22), liar, Numbered(3, 60 - 20)}));
    EXPECT_THAT(Decoded(), ElementsAre(3));
    EXPECT_EQ(Counted(ECounter::FieldMalformed), 1U);
}

TEST_F(SnapshotDispatch, FirstMessageMayBeCutByItsSegment) {
    const Bytes first = FirstMessage(SHFE_TOPIC, 400);
    Arrive(FIRST_SEQ, Cut(first, 0, 200));
    EXPECT_EQ(uint32_t{Session().frag_buf_offset}, 200U);
    Arrive(FIRST_SEQ + 200, Join({Cut(first, 200, first.size()), Numbered(2)}));
    EXPECT_THAT(Decoded(), ElementsAre(2));
}

}  // namespace
